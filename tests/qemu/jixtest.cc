// SPDX-License-Identifier: GPL-2.0
//
// jixtest: the guest-side helper of the QEMU tests, linked statically.
// Busybox cannot make veth pairs, receive raw frames or issue arbitrary
// ioctls; this does, and prints one line per result for the guest script.
//
//   jixtest veth NAME PEER            make a veth pair, bring both ends up
//   jixtest del NAME MAX_MS           delete a link; fail when it takes
//                                     longer (a leaked device reference
//                                     makes the kernel wait for ever)
//   jixtest recv IF PORT MS [CMD...]  listen on IF, run CMD, then expect
//                                     exactly one test frame of PORT
//   jixtest ioctl CMD [VALUE]         raw ioctl on /dev/quor_igmp with a
//                                     4-byte argument
//   jixtest get PORT CAPACITY ROOM    get-entries (command 6) claiming
//                                     CAPACITY records with ROOM real ones
//   jixtest json KEY=VALUE...         parse the JSON document on standard
//                                     input and print how many objects in
//                                     it have every KEY=VALUE (strings
//                                     unquoted); fails when none has
//   jixtest storm SECONDS             the concurrency test: a stream into
//                                     pon-p on processor 0 while processor
//                                     1 changes entries (proc, ioctl),
//                                     filter mode and snooping, renames
//                                     eth0.4 and deletes and re-creates
//                                     eth0.3; prints what was done
//
// Exit status 0 means the expected outcome, 1 a failed check, 2 an error
// of the helper itself.

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "uapi/jix_mc_uapi.h"
#include "jix_probe_frame.h"

namespace {

const char kDevPath[] = "/dev/quor_igmp";

// A file descriptor closed when it goes out of scope.
class Fd {
public:
	explicit Fd(int fd = -1) : fd_(fd) {}
	~Fd()
	{
		if (fd_ >= 0)
			close(fd_);
	}
	Fd(Fd &&other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
	Fd(const Fd &) = delete;
	Fd &operator=(const Fd &) = delete;

	int get() const { return fd_; }
	bool ok() const { return fd_ >= 0; }

private:
	int fd_;
};

long now_ms()
{
	timespec ts;
	clock_gettime(CLOCK_MONOTONIC, &ts);
	return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

// ---- rtnetlink ----

struct NlReq {
	nlmsghdr nh;
	ifinfomsg ifi;
	char attrs[512];
};

// A link request of @type for the link @index (0: none yet).
void nl_init(NlReq &req, unsigned short type, unsigned short flags, int index)
{
	memset(&req, 0, sizeof(req));
	req.nh.nlmsg_len = NLMSG_LENGTH(sizeof(req.ifi));
	req.nh.nlmsg_type = type;
	req.nh.nlmsg_flags = flags;
	req.ifi.ifi_family = AF_UNSPEC;
	req.ifi.ifi_index = index;
}

// Append an attribute to @req (addressed through the whole request, so
// the compiler sees the room behind the header).
rtattr *nl_put(NlReq &req, unsigned short type, const void *data, size_t len)
{
	char *base = reinterpret_cast<char *>(&req);
	auto *rta = reinterpret_cast<rtattr *>(base + NLMSG_ALIGN(req.nh.nlmsg_len));
	rta->rta_type = type;
	rta->rta_len = (unsigned short)RTA_LENGTH(len);
	if (len)
		memcpy(RTA_DATA(rta), data, len);
	req.nh.nlmsg_len = NLMSG_ALIGN(req.nh.nlmsg_len) + RTA_ALIGN(rta->rta_len);
	return rta;
}

void nl_put_str(NlReq &req, unsigned short type, const std::string &s)
{
	nl_put(req, type, s.c_str(), s.size() + 1);
}

// Close the nested attribute @nest at the end of the message so far.
void nl_end(NlReq &req, rtattr *nest)
{
	nest->rta_len = (unsigned short)(reinterpret_cast<char *>(&req) + req.nh.nlmsg_len -
					 reinterpret_cast<char *>(nest));
}

// Send one request and wait for its acknowledgement; returns -errno.
int nl_talk(nlmsghdr &nh)
{
	Fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
	if (!fd.ok())
		return -errno;
	nh.nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
	if (send(fd.get(), &nh, nh.nlmsg_len, 0) < 0)
		return -errno;
	char buf[4096];
	ssize_t n = recv(fd.get(), buf, sizeof(buf), 0);
	int ret = n < 0 ? -errno : -EPROTO;
	if (n >= (ssize_t)NLMSG_LENGTH(sizeof(nlmsgerr))) {
		const auto *r = reinterpret_cast<const nlmsghdr *>(buf);
		if (r->nlmsg_type == NLMSG_ERROR)
			ret = static_cast<const nlmsgerr *>(NLMSG_DATA(r))->error;
	}
	return ret;
}

int link_up(const std::string &name)
{
	Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	if (!fd.ok())
		return -errno;
	ifreq ifr{};
	snprintf(ifr.ifr_name, sizeof(ifr.ifr_name), "%s", name.c_str());
	if (ioctl(fd.get(), SIOCGIFFLAGS, &ifr) < 0)
		return -errno;
	ifr.ifr_flags |= IFF_UP;
	if (ioctl(fd.get(), SIOCSIFFLAGS, &ifr) < 0)
		return -errno;
	return 0;
}

int make_veth(const std::string &name, const std::string &peer)
{
	NlReq req;
	nl_init(req, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, 0);
	nl_put_str(req, IFLA_IFNAME, name);
	rtattr *info = nl_put(req, IFLA_LINKINFO, nullptr, 0);
	nl_put(req, IFLA_INFO_KIND, "veth", 4);
	rtattr *data = nl_put(req, IFLA_INFO_DATA, nullptr, 0);
	ifinfomsg peer_ifi{};
	rtattr *peer_attr = nl_put(req, VETH_INFO_PEER, &peer_ifi, sizeof(peer_ifi));
	nl_put_str(req, IFLA_IFNAME, peer);
	nl_end(req, peer_attr);
	nl_end(req, data);
	nl_end(req, info);
	return nl_talk(req.nh);
}

int cmd_veth(const std::string &name, const std::string &peer)
{
	int ret = make_veth(name, peer);
	if (!ret)
		ret = link_up(name);
	if (!ret)
		ret = link_up(peer);
	if (ret) {
		printf("veth %s %s: %s\n", name.c_str(), peer.c_str(), strerror(-ret));
		return 2;
	}
	return 0;
}

int cmd_del(const std::string &name, long max_ms)
{
	long start = now_ms();
	unsigned int idx = if_nametoindex(name.c_str());
	if (!idx) {
		printf("del %s: no such link\n", name.c_str());
		return 2;
	}
	pid_t pid = fork();
	if (pid < 0)
		return 2;
	if (pid == 0) {
		NlReq req;
		nl_init(req, RTM_DELLINK, 0, (int)idx);
		_exit(nl_talk(req.nh) ? 2 : 0);
	}
	// The kernel waits inside the request while references remain.
	int status;
	long took;
	for (;;) {
		pid_t r = waitpid(pid, &status, WNOHANG);
		took = now_ms() - start;
		if (r == pid)
			break;
		if (took > max_ms) {
			printf("del %s: still waiting after %ld ms\n", name.c_str(), took);
			return 1;
		}
		usleep(10000);
	}
	if (!WIFEXITED(status) || WEXITSTATUS(status)) {
		printf("del %s: refused\n", name.c_str());
		return 2;
	}
	printf("del %s: %ld ms\n", name.c_str(), took);
	return 0;
}

// ---- frames ----

bool frame_matches(const unsigned char *f, size_t len, unsigned int port)
{
	if (len != JIX_PROBE_LEN)
		return false;
	for (size_t i = 0; i < len; i++)
		if (f[i] != jix_probe_frame_byte((unsigned int)i, port))
			return false;
	return true;
}

bool is_test_frame(const unsigned char *f, ssize_t n)
{
	return n >= 14 && f[12] == (JIX_PROBE_ETHERTYPE >> 8) &&
	       f[13] == (JIX_PROBE_ETHERTYPE & 0xff);
}

// Run @argv (null-terminated) and return its exit status, -1 when it
// could not be waited for or did not exit.
int run_cmd(char **argv)
{
	pid_t pid = fork();
	if (pid < 0)
		return -1;
	if (pid == 0) {
		execvp(argv[0], argv);
		_exit(127);
	}
	int status;
	if (waitpid(pid, &status, 0) < 0)
		return -1;
	return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A raw socket receiving every frame of @ifname; not ok when there is no
// such interface or it cannot be bound.
bool open_rx(Fd &fd, const std::string &ifname)
{
	sockaddr_ll sll{};
	sll.sll_family = AF_PACKET;
	sll.sll_protocol = htons(ETH_P_ALL);
	sll.sll_ifindex = (int)if_nametoindex(ifname.c_str());
	return sll.sll_ifindex &&
	       bind(fd.get(), reinterpret_cast<sockaddr *>(&sll), sizeof(sll)) == 0;
}

// Bind before running the command, so a frame sent by it cannot be
// missed; after the first test frame wait a little longer to catch a
// second copy.
int cmd_recv(const std::string &ifname, unsigned int port, long timeout_ms, char **argv)
{
	Fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
	if (!fd.ok()) {
		perror("socket");
		return 2;
	}
	if (!open_rx(fd, ifname)) {
		printf("RX %s: cannot bind\n", ifname.c_str());
		return 2;
	}
	if (argv[0] && run_cmd(argv) != 0)
		printf("RX %s: command %s failed\n", ifname.c_str(), argv[0]);

	int good = 0, bad = 0;
	long deadline = now_ms() + timeout_ms;
	for (;;) {
		long left = deadline - now_ms();
		pollfd pfd = { fd.get(), POLLIN, 0 };
		if (left <= 0 || poll(&pfd, 1, (int)left) <= 0)
			break;
		unsigned char buf[4096];
		ssize_t n = recv(fd.get(), buf, sizeof(buf), MSG_DONTWAIT);
		if (!is_test_frame(buf, n))
			continue;
		if (frame_matches(buf, (size_t)n, port)) {
			if (!good++ && deadline > now_ms() + 300)
				deadline = now_ms() + 300;
		} else {
			bad++;
			printf("RX %s: unexpected test frame, len=%zd\n", ifname.c_str(), n);
		}
	}
	printf("RX %s frames=%d bad=%d\n", ifname.c_str(), good, bad);
	return good == 1 && !bad ? 0 : 1;
}

// ---- ioctl ----

Fd open_dev()
{
	Fd fd(open(kDevPath, O_RDWR));
	if (!fd.ok())
		printf("%s: %s\n", kDevPath, strerror(errno));
	return fd;
}

int cmd_ioctl(unsigned int cmd, unsigned int value)
{
	Fd fd = open_dev();
	if (!fd.ok())
		return 2;
	unsigned int arg = value;
	errno = 0;
	long ret = ioctl(fd.get(), cmd, &arg);
	printf("ret=%ld errno=%d out=0x%08x\n", ret, ret < 0 ? errno : 0, arg);
	return 0;
}

int cmd_get(unsigned int port, int capacity, unsigned int room)
{
	Fd fd = open_dev();
	if (!fd.ok())
		return 2;
	std::vector<igmp_entry_info> recs;
	try {
		recs.resize((size_t)room + 1);
	} catch (const std::bad_alloc &) {
		return 2;
	}
	memset(recs.data(), 0xa5, recs.size() * sizeof(recs[0]));
	igmp_entry_get_req req{};
	req.port_id = (__u8)port;
	req.entry_num = capacity;
	req.entries = recs.data();
	long ret = ioctl(fd.get(), QUOR_IGMP_IOC_GET_ENTRY, &req);
	// The record after the room must stay untouched.
	const igmp_entry_info &guard = recs[room];
	bool intact = guard.port == 0xa5 && guard.inner_tci == 0xa5a5;
	printf("ret=%ld entry_num=%d guard=%s\n", ret, req.entry_num,
	       intact ? "ok" : "overwritten");
	return 0;
}

// A JSON reader just strict enough to reject what is not JSON: every
// object's members are kept as KEY=VALUE texts of its scalar values.
struct Json {
	const std::string &s;
	size_t i = 0;
	std::vector<std::vector<std::string>> objects;

	explicit Json(const std::string &doc) : s(doc) {}
	void ws() { while (i < s.size() && strchr(" \t\r\n", s[i])) i++; }
	bool lit(const char *w)
	{
		size_t n = strlen(w);
		if (s.compare(i, n, w))
			return false;
		i += n;
		return true;
	}
	bool str(std::string &out)
	{
		if (i >= s.size() || s[i] != '"')
			return false;
		for (i++; i < s.size() && s[i] != '"'; i++) {
			if (s[i] == '\\' && ++i >= s.size())
				return false;
			out += s[i];
		}
		return i++ < s.size();
	}
	// One value; a scalar's text goes to @text.
	bool value(std::string &text)
	{
		ws();
		if (i >= s.size())
			return false;
		if (s[i] == '{' || s[i] == '[')
			return s[i] == '{' ? object() : array();
		if (s[i] == '"')
			return str(text);
		for (const char *w : { "true", "false", "null" })
			if (lit(w))
				return text = w, true;
		size_t b = i;
		while (i < s.size() && strchr("-+.eE0123456789", s[i]))
			i++;
		text = s.substr(b, i - b);
		return i > b;
	}
	bool array()
	{
		std::string t;
		i++;
		ws();
		if (lit("]"))
			return true;
		do {
			if (!value(t))
				return false;
			ws();
		} while (lit(","));
		return lit("]");
	}
	bool object()
	{
		std::vector<std::string> members;
		i++;
		ws();
		if (!lit("}")) {
			do {
				std::string k, v;
				ws();
				if (!str(k))
					return false;
				ws();
				if (!lit(":") || !value(v))
					return false;
				members.push_back(k + "=" + v);
				ws();
			} while (lit(","));
			if (!lit("}"))
				return false;
		}
		objects.push_back(members);
		return true;
	}
};

int cmd_json(char **want, int n)
{
	std::string doc, t;
	char buf[4096];
	size_t got;

	while ((got = fread(buf, 1, sizeof(buf), stdin)) > 0)
		doc.append(buf, got);
	Json j(doc);
	if (!j.value(t) || (j.ws(), j.i != doc.size())) {
		printf("not JSON at byte %zu\n", j.i);
		return 2;
	}
	int count = 0;
	for (auto &o : j.objects) {
		int hit = 0;
		for (int k = 0; k < n; k++)
			for (auto &m : o)
				hit += m == want[k];
		count += hit == n;
	}
	printf("%d\n", count);
	return count ? 0 : 1;
}

// ---- the concurrency storm ----

const char kFwd[] = "/proc/kv7730/jix_mc_fwd_entry";
const uint8_t kStormSrc[6] = { 0x02, 0x4a, 0x49, 0x58, 0x53, 0x54 };

void pin_cpu(int cpu)
{
	cpu_set_t set;
	CPU_ZERO(&set);
	CPU_SET(cpu, &set);
	sched_setaffinity(0, sizeof(set), &set);
}

uint16_t ip_csum(const uint8_t *p, size_t n)
{
	uint32_t sum = 0;
	for (size_t i = 0; i + 1 < n; i += 2)
		sum += (uint32_t)(p[i] << 8 | p[i + 1]);
	while (sum >> 16)
		sum = (sum & 0xffff) + (sum >> 16);
	return (uint16_t)~sum;
}

// UDP data to 239.20.0.@last in VLAN 100, as jixstream sends it.
std::vector<uint8_t> storm_frame(uint8_t last)
{
	std::vector<uint8_t> f = { 0x01, 0x00, 0x5e, 0x14, 0x00, last };
	f.insert(f.end(), kStormSrc, kStormSrc + 6);
	f.insert(f.end(), { 0x81, 0x00, 0x00, 100, 0x08, 0x00 });
	uint8_t ip[20] = { 0x45, 0, 0, 20 + 8 + 32, 0, 0, 0x40, 0, 1, 17, 0, 0,
			   10, 0, 0, 1, 239, 20, 0, last };
	uint16_t c = ip_csum(ip, sizeof(ip));
	ip[10] = (uint8_t)(c >> 8);
	ip[11] = (uint8_t)c;
	f.insert(f.end(), ip, ip + sizeof(ip));
	f.insert(f.end(), { 0x13, 0x88, 0x13, 0x89, 0, 8 + 32, 0, 0 });
	f.resize(f.size() + 32, 0);
	return f;
}

// Processor 0: frames into pon-p; counts what reaches the ports' peers.
int storm_stream(long end_ms)
{
	pin_cpu(0);
	Fd out(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
	if (!out.ok() || !open_rx(out, "pon-p"))
		return 2;
	std::vector<Fd> sinks;
	for (const char *p : { "e01-p", "e02-p", "e04-p" }) {
		Fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL)));
		if (fd.ok() && open_rx(fd, p))
			sinks.push_back(std::move(fd));
	}
	long sent = 0, got = 0;
	for (unsigned i = 0; now_ms() < end_ms; i++) {
		std::vector<uint8_t> f = storm_frame((uint8_t)(1 + i % 8));
		sent += send(out.get(), f.data(), f.size(), 0) == (ssize_t)f.size();
		for (Fd &fd : sinks) {
			unsigned char buf[2048];
			ssize_t n;
			while ((n = recv(fd.get(), buf, sizeof(buf), MSG_DONTWAIT)) > 0)
				got += n >= 12 && !memcmp(buf + 6, kStormSrc, 6);
		}
		usleep(300);
	}
	printf("STORM stream sent=%ld got=%ld\n", sent, got);
	return sent > 0 && got > 0 ? 0 : 1;
}

int link_set_up(const std::string &name, bool up)
{
	Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	ifreq ifr{};
	snprintf(ifr.ifr_name, sizeof(ifr.ifr_name), "%s", name.c_str());
	if (!fd.ok() || ioctl(fd.get(), SIOCGIFFLAGS, &ifr) < 0)
		return -errno;
	if (up)
		ifr.ifr_flags |= IFF_UP;
	else
		ifr.ifr_flags &= ~IFF_UP;
	return ioctl(fd.get(), SIOCSIFFLAGS, &ifr) < 0 ? -errno : 0;
}

// A link is renamed while down.
int link_rename(const std::string &from, const std::string &to)
{
	int idx = (int)if_nametoindex(from.c_str());
	if (!idx)
		return -ENODEV;
	int ret = link_set_up(from, false);
	if (ret)
		return ret;
	NlReq req;
	nl_init(req, RTM_NEWLINK, 0, idx);
	nl_put_str(req, IFLA_IFNAME, to);
	ret = nl_talk(req.nh);
	return ret ? ret : link_up(to);
}

int link_delete(const std::string &name)
{
	int idx = (int)if_nametoindex(name.c_str());
	if (!idx)
		return -ENODEV;
	NlReq req;
	nl_init(req, RTM_DELLINK, 0, idx);
	return nl_talk(req.nh);
}

void write_file(const char *path, const std::string &text)
{
	Fd fd(open(path, O_WRONLY | O_CLOEXEC));
	if (fd.ok() && write(fd.get(), text.data(), text.size()) < 0)
		return;	// refusals are part of the game
}

void read_file(const char *path)
{
	Fd fd(open(path, O_RDONLY | O_CLOEXEC));
	char buf[4096];
	while (fd.ok() && read(fd.get(), buf, sizeof(buf)) > 0)
		;
}

igmp_entry_info storm_entry(unsigned i)
{
	igmp_entry_info e{};
	unsigned last = 1 + i % 8;
	e.port = (uint8_t)((i / 5) % 4);
	e.vlan = 100;
	e.grp_ip.addr[0] = 239;
	e.grp_ip.addr[1] = 20;
	e.grp_ip.addr[3] = (uint8_t)last;
	const uint8_t mac[6] = { 0x01, 0x00, 0x5e, 0x14, 0x00, (uint8_t)last };
	memcpy(e.grp_mac, mac, 6);
	e.vlan_mode = i & 1 ? 3 : 0;
	return e;
}

// Processor 1: one change of step @i; a failed link change is an error.
int storm_step(unsigned i, int dev, long *done)
{
	igmp_entry_info e = storm_entry(i);
	unsigned round = i / 12;
	char line[128];
	int ret = 0;
	switch (i % 12) {
	case 0:
	case 1:
		snprintf(line, sizeof(line), "%s ipv4 239.20.0.%u 01:00:5e:14:00:%02x %u 100 %u 0 0 0 0\n",
			 i % 12 ? "del" : "add", e.grp_ip.addr[3], e.grp_ip.addr[3], e.port,
			 e.vlan_mode);
		write_file(kFwd, line);
		break;
	case 2:
	case 3:
	case 4:
		ioctl(dev, i % 12 == 2 ? QUOR_IGMP_IOC_ADD_ENTRY :
			   i % 12 == 3 ? QUOR_IGMP_IOC_UPDATE_ENTRY : QUOR_IGMP_IOC_DEL_ENTRY, &e);
		break;
	case 5: {
		unsigned char port = e.port;
		ioctl(dev, round % 8 ? QUOR_IGMP_IOC_CLEAR_BY_PORT : QUOR_IGMP_IOC_CLEAR_ALL, &port);
		break;
	}
	case 6: {
		igmp_entry_info recs[8];
		igmp_entry_get_req req{};
		req.port_id = e.port;
		req.entry_num = 8;
		req.entries = recs;
		ioctl(dev, QUOR_IGMP_IOC_GET_ENTRY, &req);
		break;
	}
	case 7:
		read_file(kFwd);
		read_file("/proc/kv7730/jix_mc_hwnat_entry");
		read_file("/proc/kv7730/jix_mc_acnt_mapping");
		break;
	case 8: {
		unsigned mode = round % 8 == 3 ? 5 : 4;
		ioctl(dev, QUOR_IGMP_IOC_SET_FILTER_MODE, &mode);
		break;
	}
	case 9: {
		unsigned char on = round % 6 != 1;
		ioctl(dev, QUOR_IGMP_IOC_SET_SNOOPING, &on);
		break;
	}
	case 10:
		if (round % 2)
			return 0;	// every other round
		ret = link_rename("eth0.4", "lan4tmp");
		if (!ret)
			ret = link_rename("lan4tmp", "eth0.4");
		break;
	case 11:
		if (round % 2)
			return 0;	// every other round
		ret = link_delete("eth0.3");
		if (!ret)
			ret = cmd_veth("eth0.3", "e03-p") ? -EIO : 0;
		break;
	}
	if (ret) {
		printf("STORM step %u: %s\n", i % 12, strerror(-ret));
		return 1;
	}
	done[i % 12]++;
	return 0;
}

int storm_control(long end_ms)
{
	pin_cpu(1);
	Fd dev = open_dev();
	if (!dev.ok())
		return 2;
	long done[12] = {};
	int bad = 0;
	unsigned i = 0;
	while (now_ms() < end_ms && !bad)
		bad = storm_step(i++, dev.get(), done);
	unsigned char on = 1;
	ioctl(dev.get(), QUOR_IGMP_IOC_SET_SNOOPING, &on);
	printf("STORM control steps=%u proc=%ld ioctl=%ld reads=%ld mode=%ld snooping=%ld "
	       "renames=%ld relinks=%ld\n", i, done[0] + done[1], done[2] + done[3] + done[4] +
	       done[5] + done[6], done[7], done[8], done[9], done[10], done[11]);
	return bad || !done[10] || !done[11] ? 1 : 0;
}

int cmd_storm(long seconds)
{
	long end_ms = now_ms() + seconds * 1000;
	fflush(stdout);
	pid_t kids[2];
	for (int k = 0; k < 2; k++) {
		kids[k] = fork();
		if (kids[k] == 0) {
			int r = k ? storm_control(end_ms) : storm_stream(end_ms);
			fflush(stdout);
			_exit(r);
		}
	}
	int ret = 0;
	for (pid_t pid : kids) {
		int status;
		if (pid < 0 || waitpid(pid, &status, 0) < 0 || !WIFEXITED(status) ||
		    WEXITSTATUS(status))
			ret = 1;
	}
	return ret;
}

int usage()
{
	fprintf(stderr, "usage: jixtest veth NAME PEER | del NAME MAX_MS | "
			"recv IF PORT MS [CMD...] | ioctl CMD [VALUE] | get PORT CAP ROOM | "
			"json KEY=VALUE... | storm SECONDS\n");
	return 2;
}

unsigned int to_uint(const char *s)
{
	return (unsigned int)strtoul(s, nullptr, 0);
}

long to_long(const char *s)
{
	return strtol(s, nullptr, 0);
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
		return usage();
	const std::string what = argv[1];
	if (what == "veth" && argc == 4)
		return cmd_veth(argv[2], argv[3]);
	if (what == "del" && argc == 4)
		return cmd_del(argv[2], to_long(argv[3]));
	if (what == "recv" && argc >= 5)
		return cmd_recv(argv[2], to_uint(argv[3]), to_long(argv[4]), argv + 5);
	if (what == "ioctl" && (argc == 3 || argc == 4))
		return cmd_ioctl(to_uint(argv[2]), argc == 4 ? to_uint(argv[3]) : 0xa5a5a5a5u);
	if (what == "json" && argc >= 3)
		return cmd_json(argv + 2, argc - 2);
	if (what == "storm" && argc == 3)
		return cmd_storm(to_long(argv[2]));
	if (what == "get" && argc == 5)
		return cmd_get(to_uint(argv[2]), (int)to_long(argv[3]), to_uint(argv[4]));
	return usage();
}
