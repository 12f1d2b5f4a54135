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

rtattr *nl_put(nlmsghdr &nh, unsigned short type, const void *data, size_t len)
{
	auto *rta = reinterpret_cast<rtattr *>(reinterpret_cast<char *>(&nh) +
					       NLMSG_ALIGN(nh.nlmsg_len));
	rta->rta_type = type;
	rta->rta_len = (unsigned short)RTA_LENGTH(len);
	if (len)
		memcpy(RTA_DATA(rta), data, len);
	nh.nlmsg_len = NLMSG_ALIGN(nh.nlmsg_len) + RTA_ALIGN(rta->rta_len);
	return rta;
}

void nl_put_str(nlmsghdr &nh, unsigned short type, const std::string &s)
{
	nl_put(nh, type, s.c_str(), s.size() + 1);
}

// Close the nested attribute @nest at the end of the message so far.
void nl_end(nlmsghdr &nh, rtattr *nest)
{
	nest->rta_len = (unsigned short)(reinterpret_cast<char *>(&nh) + nh.nlmsg_len -
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
	nl_put_str(req.nh, IFLA_IFNAME, name);
	rtattr *info = nl_put(req.nh, IFLA_LINKINFO, nullptr, 0);
	nl_put(req.nh, IFLA_INFO_KIND, "veth", 4);
	rtattr *data = nl_put(req.nh, IFLA_INFO_DATA, nullptr, 0);
	ifinfomsg peer_ifi{};
	rtattr *peer_attr = nl_put(req.nh, VETH_INFO_PEER, &peer_ifi, sizeof(peer_ifi));
	nl_put_str(req.nh, IFLA_IFNAME, peer);
	nl_end(req.nh, peer_attr);
	nl_end(req.nh, data);
	nl_end(req.nh, info);
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

int usage()
{
	fprintf(stderr, "usage: jixtest veth NAME PEER | del NAME MAX_MS | "
			"recv IF PORT MS [CMD...] | ioctl CMD [VALUE] | get PORT CAP ROOM | "
			"json KEY=VALUE...\n");
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
	if (what == "get" && argc == 5)
		return cmd_get(to_uint(argv[2]), (int)to_long(argv[3]), to_uint(argv[4]));
	return usage();
}
