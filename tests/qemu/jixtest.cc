// SPDX-License-Identifier: GPL-2.0
//
// jixtest: the QEMU guest's tester, linked statically.  It checks what
// only a running kernel shows: loading and unloading, the device node, a
// few ioctls through real system calls, a multicast stream through veth
// pairs with byte-exact copies per VLAN treatment, hardware flows aging on
// real timers, the port map following deleted and renamed devices, a
// reload, a tracepoint, load/unload cycles under traffic,
// a concurrency storm, kmemleak and lockdep.  Texts, parsing, records and
// VLAN byte rules in detail are the host tests' business.
//
//   jixtest suite STORM_S CYCLES    the whole suite: "ok"/"FAILED" lines,
//                                   then "JIXTEST PASS <n>" or
//                                   "JIXTEST FAIL; <what>; ..."
//   jixtest stream IN COUNT GROUP TAGS LISTEN...
//                                   COUNT IPv4 UDP frames to GROUP into IN
//                                   (TAGS "-" or TPID:VID); one line per
//                                   listener: RX <if> frames=<n>
//                                   tags=<tpid:vid/...|none> len=<first>
//
// Links are made with busybox ip (a veth's peer is born veth0 and renamed
// at once).  jix_probe.ko is driven through its parameters; records are
// laid out as the peers lay them out (platform/quor_peer.h).

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "quor_peer.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Str = std::string;

const Str kKv = "/proc/kv7730/", kProbe = "/sys/module/jix_probe/parameters/";
const Str kTrace = "/sys/kernel/tracing/", kLeaks = "/sys/kernel/debug/kmemleak";
const char kDev[] = "/dev/quor_igmp";
const uint8_t kSrcMac[6] = { 0x02, 0x4a, 0x49, 0x58, 0x53, 0x54 };
const uint8_t kG[4] = { 239, 10, 10, 10 };	// the stream's group
const uint32_t kVlan100 = 0x81006064;		// a tag: TPID << 16 | TCI (priority 3)
// The device's ioctl commands.
enum { kIocAdd = 1, kIocClearPort = 4, kIocClearAll, kIocGet, kIocSetMode, kIocSetSnoop = 9 };

struct Fd {
	int fd;
	explicit Fd(int f = -1) : fd(f) {}
	~Fd() { if (fd >= 0) close(fd); }
	Fd(Fd &&o) noexcept : fd(o.fd) { o.fd = -1; }
};

long now_ms()
{
	auto t = std::chrono::steady_clock::now().time_since_epoch();
	return (long)std::chrono::duration_cast<std::chrono::milliseconds>(t).count();
}

void sleep_ms(long ms) { usleep((useconds_t)ms * 1000); }
bool has(const Str &hay, const Str &needle) { return hay.find(needle) != Str::npos; }
bool sh(const Str &cmd) { return system(cmd.c_str()) == 0; }

Str slurp(const Str &path)
{
	Fd f(open(path.c_str(), O_RDONLY | O_CLOEXEC));
	Str s;
	char buf[4096];
	for (ssize_t n; f.fd >= 0 && (n = read(f.fd, buf, sizeof(buf))) > 0;)
		s.append(buf, (size_t)n);
	return s;
}

bool put(const Str &path, const Str &text, int flags = 0)
{
	Fd f(open(path.c_str(), O_WRONLY | O_CLOEXEC | flags));
	return f.fd >= 0 && write(f.fd, text.data(), text.size()) == (ssize_t)text.size();
}

bool make_veth(const Str &name, const Str &peer)
{
	return sh("ip link add " + name + " type veth && ip link set veth0 name " + peer +
		  " && ip link set " + name + " up && ip link set " + peer + " up");
}

// A link is renamed while down.
bool link_rename(const Str &from, const Str &to)
{
	return sh("ip link set " + from + " down && ip link set " + from + " name " + to +
		  " && ip link set " + to + " up");
}

int load(const Str &ko)
{
	Fd fd(open(("/lib/jix/" + ko + ".ko").c_str(), O_RDONLY | O_CLOEXEC));
	return fd.fd >= 0 && !syscall(SYS_finit_module, fd.fd, "", 0) ? 0 : -errno;
}

// An open proc file or device node holds the module for a while.
bool unload(const char *name)
{
	int t = 0, r;
	while ((r = (int)syscall(SYS_delete_module, name, O_NONBLOCK)) && errno == EAGAIN && t++ < 500)
		sleep_ms(10);
	return !r;
}

// ---- frames ----

// UDP data from 10.0.0.1:5000 to @grp:5001 with a 32-byte payload; @tags
// outer first.
Bytes udp_frame(const uint8_t grp[4], const std::vector<uint32_t> &tags)
{
	Bytes f = { 0x01, 0x00, 0x5e, (uint8_t)(grp[1] & 0x7f), grp[2], grp[3] };
	f.insert(f.end(), kSrcMac, kSrcMac + 6);
	for (uint32_t t : tags)
		for (int s = 24; s >= 0; s -= 8)
			f.push_back((uint8_t)(t >> s));
	const uint8_t ip[] = { 0x08, 0, 0x45, 0, 0, 60, 0, 0, 0x40, 0, 1, 17, 0, 0, 10, 0, 0, 1,
			       grp[0], grp[1], grp[2], grp[3], 0x13, 0x88, 0x13, 0x89, 0, 40, 0, 0,
			       'J', 'I', 'X', 'S', 'T', 'R', 'E', 'A', 'M' };
	f.insert(f.end(), ip, ip + sizeof(ip));
	f.resize(f.size() + 23);
	return f;
}

Fd packet_socket(const Str &ifname)
{
	Fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
	sockaddr_ll sll = { AF_PACKET, htons(ETH_P_ALL), (int)if_nametoindex(ifname.c_str()), 0, 0, 0, {} };
	int one = 1;
	if (!sll.sll_ifindex || bind(fd.fd, reinterpret_cast<sockaddr *>(&sll), sizeof(sll)) ||
	    setsockopt(fd.fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one)))
		return Fd();
	return fd;
}

// A listener on a port's peer: what arrived, and how many of the copies
// were byte for byte @want.
struct Sink {
	explicit Sink(const Str &n) : name(n), fd(packet_socket(n)) {}
	Str name;
	Bytes want;
	Fd fd;
	int frames = 0, exact = 0;
	Bytes first;
};

Str tag_text(const Bytes &f)
{
	Str out;
	for (size_t o = 12; o + 4 <= f.size() && (f[o] == 0x81 || f[o] == 0x88); o += 4) {
		char one[24];
		snprintf(one, sizeof(one), "%s%x:%u", out.empty() ? "" : "/", f[o] << 8 | f[o + 1],
			 (f[o + 2] << 8 | f[o + 3]) & 0xfff);
		out += one;
	}
	return out.empty() ? "none" : out;
}

// One received test frame, with the outer tag that the kernel took out
// put back where it was on the wire; false when nothing was waiting.
bool take(Sink &s)
{
	uint8_t buf[4096];
	alignas(cmsghdr) char ctl[CMSG_SPACE(sizeof(tpacket_auxdata))];
	sockaddr_ll from{};
	iovec iov = { buf, sizeof(buf) };
	msghdr msg = { &from, sizeof(from), &iov, 1, ctl, sizeof(ctl), 0 };
	ssize_t n = recvmsg(s.fd.fd, &msg, MSG_DONTWAIT);
	if (n < 14 || from.sll_pkttype == PACKET_OUTGOING || memcmp(buf + 6, kSrcMac, 6))
		return n >= 0;
	Bytes f(buf, buf + n);
	for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
		auto *aux = reinterpret_cast<const tpacket_auxdata *>(CMSG_DATA(c));
		if (c->cmsg_type != PACKET_AUXDATA || !(aux->tp_status & TP_STATUS_VLAN_VALID))
			continue;
		unsigned tpid = aux->tp_status & TP_STATUS_VLAN_TPID_VALID ? aux->tp_vlan_tpid : 0x8100;
		const uint8_t tag[4] = { (uint8_t)(tpid >> 8), (uint8_t)tpid,
					 (uint8_t)(aux->tp_vlan_tci >> 8), (uint8_t)aux->tp_vlan_tci };
		f.insert(f.begin() + 12, tag, tag + 4);
	}
	if (!s.frames++)
		s.first = f;
	s.exact += f == s.want;
	return true;
}

// Listeners on @names, bound before anything is sent.
std::vector<Sink> sinks(const std::vector<Str> &names)
{
	return std::vector<Sink>(names.begin(), names.end());
}

// @count copies of @frame into @in, 2 ms apart, then what arrived; how
// many went.
int send_frames(const Str &in, const Bytes &frame, int count, std::vector<Sink> &rx)
{
	Fd out = packet_socket(in);
	int sent = 0;
	for (int i = 0; out.fd >= 0 && i < count; i++, sleep_ms(2))
		sent += send(out.fd, frame.data(), frame.size(), 0) == (ssize_t)frame.size();
	sleep_ms(500);	// the copies are forwarded long before
	for (Sink &s : rx)
		while (take(s))
			;
	return sent;
}

int cmd_stream(char **argv, int argc)
{
	uint8_t grp[4];
	unsigned tpid, vid;
	std::vector<uint32_t> tags;
	if (sscanf(argv[3], "%x:%u", &tpid, &vid) == 2)
		tags.push_back(tpid << 16 | vid);
	if (inet_pton(AF_INET, argv[2], grp) != 1)
		return 2;
	std::vector<Sink> rx = sinks(std::vector<Str>(argv + 4, argv + argc));
	int sent = send_frames(argv[0], udp_frame(grp, tags), atoi(argv[1]), rx);
	printf("TX %s frames=%d\n", argv[0], sent);
	for (Sink &s : rx)
		printf("RX %s frames=%d tags=%s len=%zu\n", s.name.c_str(), s.frames,
		       tag_text(s.first).c_str(), s.first.size());
	return sent == atoi(argv[1]) ? 0 : 2;
}

// ---- the suite ----

int n_ok;
Str fails;

bool check(const Str &what, bool good, const Str &detail = "")
{
	if (good)
		printf("ok %d - %s\n", ++n_ok, what.c_str());
	else
		printf("FAILED - %s%s%s\n", what.c_str(), detail.empty() ? "" : ": ", detail.c_str());
	fails += good ? "" : "; " + what;
	return good;
}

[[noreturn]] void finish()
{
	printf("JIXTEST %s%s\n", fails.empty() ? "PASS " : "FAIL",
	       (fails.empty() ? std::to_string(n_ok) : fails).c_str());
	exit(fails.empty() ? 0 : 1);
}

// One request to jix_probe; its outcome.
Str probe(const Str &cmd)
{
	if (!put(kProbe + "cmd", cmd))
		return "refused: " + cmd;
	Str s = slurp(kProbe + "cmd");
	return s.substr(0, s.find('\n'));
}

// How many of 5 frames of the stream into pon reach @peer.
int reach(const char *peer)
{
	std::vector<Sink> rx = sinks({ peer });
	send_frames("pon-p", udp_frame(kG, { kVlan100 }), 5, rx);
	return rx[0].frames;
}

// A leaked device reference makes the deletion wait for ever (and every
// later link change with it): the guest's watchdog ends the run, the
// kernel complains on the console.  8 s leave room for a slow debug kernel.
void delete_at_once(const Str &name, const Str &when)
{
	long start = now_ms();
	bool ok = sh("ip link delete " + name);
	check(name + " is deleted at once " + when + " (" + std::to_string(now_ms() - start) +
	      " ms)", ok && now_ms() - start < 8000);
}

const char *const kLinks[][2] = { { "pon", "pon-p" }, { "eth0.1", "e01-p" },
				  { "eth0.2", "e02-p" }, { "eth0.3", "e03-p" },
				  { "eth0.4", "e04-p" }, { "ux0", "ux0-p" } };

quor_peer_entry entry(const uint8_t grp[4], unsigned port, uint32_t mode, uint32_t outer)
{
	quor_peer_entry e{};
	memcpy(e.grp_ip.addr, grp, 4);
	memcpy(e.grp_mac, udp_frame(grp, {}).data(), 6);
	e.port = (uint8_t)port;
	e.vlan = 100;
	e.vlan_mode = mode;
	e.outer_tpid = (uint16_t)(outer >> 16);
	e.outer_tci = (uint16_t)outer;
	e.inner_tci = 0x0fff;	// no inner tag
	return e;
}

// The node has the class device's major.
void check_device()
{
	struct stat st{};
	unsigned maj = 0;
	sscanf(slurp("/sys/class/quor_igmp/quor_igmp/dev").c_str(), "%u", &maj);
	check("/dev/quor_igmp appears with the major " + std::to_string(maj),
	      !stat(kDev, &st) && S_ISCHR(st.st_mode) && major(st.st_rdev) == maj && maj);
}

// Members through the proc file, the ioctl and the API; ioctls that
// answer through user memory.
void add_members()
{
	put(kKv + "jix_mc_fwd_entry", "add ipv4 239.10.10.10 01:00:5e:0a:0a:0a 0 100 0 0 0 0 0\n");
	Fd dev(open(kDev, O_RDWR | O_CLOEXEC));
	quor_peer_entry rep = entry(kG, 1, 1, 0x810000c8), strip = entry(kG, 2, 3, 0);
	check("ioctl add", !ioctl(dev.fd, kIocAdd, &rep) && !ioctl(dev.fd, kIocAdd, &strip));
	Str r = probe("add 16 4 012c");
	check("API add", r == "hook=1 result=2", r);
	quor_peer_get_req req = { 1, {}, 4, 0, {}, 0, reinterpret_cast<quor_peer_entry *>(16) };
	check("ioctl get-entries to a bad pointer: EFAULT",
	      ioctl(dev.fd, kIocGet, &req) == -1 && errno == EFAULT);
}

// The stream, byte for byte per port; the tracepoint sees each frame.
void check_stream()
{
	struct Row {
		const char *what;
		int frames;
		std::vector<uint32_t> tags;
	} rows[] = {
		{ "transparent port: 20 exact copies", 20, { kVlan100 } },
		{ "replace port: 20 exact copies, VLAN 200, priority kept", 20, { 0x810060c8 } },
		{ "strip port: 20 exact copies", 20, {} },
		{ "port without membership: nothing", 0, {} },
		{ "add port: 20 exact copies, VLAN 300 outside", 20, { 0x8100012c, kVlan100 } },
	};
	Str ev = kTrace + "events/jix_mc/jix_mc_forward/";
	put(ev + "filter", "group == \"239.10.10.10\"");
	put(ev + "enable", "1");
	put(kTrace + "trace", "", O_TRUNC);
	std::vector<Sink> rx = sinks({ "e01-p", "e02-p", "e03-p", "e04-p", "ux0-p" });
	for (size_t i = 0; i < rx.size(); i++)
		rx[i].want = udp_frame(kG, rows[i].tags);
	send_frames("pon-p", udp_frame(kG, { kVlan100 }), 20, rx);
	for (size_t i = 0; i < rx.size(); i++)
		check(Str("stream: ") + rows[i].what,
		      rx[i].frames == rows[i].frames && rx[i].exact == rows[i].frames,
		      std::to_string(rx[i].frames) + " frames, " + std::to_string(rx[i].exact) +
		      " exact, tags " + tag_text(rx[i].first));
	put(ev + "enable", "0");
	Str tr = slurp(kTrace + "trace"), ev_line = "jix_mc_forward: group=239.10.10.10 ";
	int n = 0;
	for (size_t p = tr.find(ev_line); p != Str::npos; p = tr.find(ev_line, p + 1))
		n++;
	check("trace: 20 jix_mc_forward events", n == 20, std::to_string(n));
}

// Flows and drops on real timers: the engine gives them up, aging ends them.
void check_hwnat()
{
	auto drop_of = [](const char *g) { return has(slurp(kKv + "jix_mc_hwnat_entry"), g); };
	Str r = probe("find 110");
	check("hwnat: the driver finds the flow with the members' mask",
	      r == "index=110 mask=0x10007", r);
	const uint8_t lone[4] = { 239, 99, 99, 99 };
	std::vector<Sink> rx = sinks({ "e01-p" });
	send_frames("pon-p", udp_frame(lone, { kVlan100 }), 20, rx);
	check("hwnat: a group without members reaches nobody, becomes a drop",
	      !rx[0].frames && drop_of("[239.99.99.99]"));
	put(kProbe + "answer", "0");
	long start = now_ms();
	while (now_ms() - start < 40000 && (probe("find 110") != "none" || drop_of("[239.99.99.99]")))
		sleep_ms(500);
	check("hwnat: aging removes the flow and the drop the engine gave up (" +
	      std::to_string((now_ms() - start) / 1000) + " s)",
	      probe("find 110") == "none" && !drop_of("[239.99.99.99]"));
	put(kProbe + "answer", "1");
	rx = sinks({});
	send_frames("pon-p", udp_frame(kG, { kVlan100 }), 3, rx);
	send_frames("pon-p", udp_frame(lone, { kVlan100 }), 3, rx);
	check("hwnat: a flow and a drop pending for the unload",
	      probe("find 110") != "none" && drop_of("[239.99.99.99]"));
}

// The port map follows devices deleted, re-created and renamed: port 2
// (eth0.3, strip) and port 0 (eth0.1, transparent) are members.
void check_port_map()
{
	delete_at_once("eth0.3", "while the module holds its port");
	check("port map: eth0.3 re-created, its port sends again",
	      make_veth("eth0.3", "e03-p") && reach("e03-p") == 5);
	check("port map: eth0.1 renamed lan1, its port sends nothing",
	      link_rename("eth0.1", "lan1") && reach("e01-p") == 0);
	check("port map: lan1 renamed eth0.1, its port sends again",
	      link_rename("lan1", "eth0.1") && reach("e01-p") == 5);
}

// Unload with timers pending (the tour loads the module again).
void check_reload()
{
	struct stat st;
	check("unload with flows and drops pending", unload("jix_xpon_multicast"));
	check("unload: /proc/kv7730 and the node are gone", stat(kKv.c_str(), &st) && stat(kDev, &st));
	Str r = probe("add 16 4 012c");
	check("unload: the API hook is gone", r == "hook=-1 result=-12345", r);
}

// The README's operator's tour (its commands in /etc/tour), printed as
// run, with the kernel's log cleared and its messages kept off the console
// meanwhile.
void tour()
{
	put(kTrace + "trace", "", O_TRUNC);
	fflush(stdout);
	sh("read level rest < /proc/sys/kernel/printk; dmesg -c > /dev/null; dmesg -n 1;"
	   " echo 'TOUR BEGIN'; while read -r c; do echo \"# $c\"; sh -c \"$c\" < /dev/null 2>&1; done"
	   " < /etc/tour; echo 'TOUR END'; echo $level > /proc/sys/kernel/printk");
	put(kTrace + "events/jix_mc/enable", "0");
	check("tour: unload", unload("jix_xpon_multicast"));
}

// Frames of eight groups into pon until @end; returns how many went, adds
// to @got what reached the LAN peers.
long stream_until(const std::atomic<long> &end, long *got)
{
	Fd out = packet_socket("pon-p");
	std::vector<Sink> rx = sinks({ "e01-p", "e02-p", "e04-p" });
	long sent = 0;
	for (uint8_t i = 0; now_ms() < end; i++, usleep(300)) {
		const uint8_t g[4] = { 239, 20, 0, (uint8_t)(1 + i % 8) };
		Bytes f = udp_frame(g, { kVlan100 });
		sent += send(out.fd, f.data(), f.size(), 0) == (ssize_t)f.size();
		for (Sink &s : rx)
			while (take(s))
				;
	}
	for (Sink &s : rx)
		*got += s.frames;
	return sent;
}

// One change of the control side, kind i % 8: entries added, deleted and
// updated through proc and ioctl, cleared by port and all, listed and
// read, the filter mode and snooping switched, eth0.4 renamed away and
// back, eth0.3 deleted and re-created (every other round); false when a
// link change failed.
bool control_step(unsigned i, int dev)
{
	uint8_t g[4] = { 239, 20, 0, (uint8_t)(1 + i % 8) };
	unsigned r = i / 8, k = i % 8;
	quor_peer_entry e = entry(g, r % 4, i & 1 ? 3 : 0, 0), recs[8];
	quor_peer_get_req req = { e.port, {}, 8, 0, {}, 0, recs };
	uint32_t mode = r % 8 == 3 ? 5 : 4;
	uint8_t b = k == 2 ? (r + 1) % 4 : r % 6 != 1;	// a member lives 3 rounds
	Str d = std::to_string(g[3]);
	if (k == 0)
		put(kKv + "jix_mc_fwd_entry", Str(r & 1 ? "del" : "add") + " ipv4 239.20.0." + d +
		    " 01:00:5e:14:00:0" + d + " " + std::to_string(e.port) + " 100 0 0 0 0 0\n");
	if (k == 1)
		ioctl(dev, kIocAdd + r % 3, &e);
	if (k == 2)
		ioctl(dev, r % 8 ? kIocClearPort : kIocClearAll, &b);
	if (k == 3 && ioctl(dev, kIocGet, &req) >= 0)
		slurp(kKv + (r & 1 ? "jix_mc_fwd_entry" : "jix_mc_hwnat_entry"));
	if (k == 4)
		ioctl(dev, kIocSetMode, &mode);
	if (k == 5)
		ioctl(dev, kIocSetSnoop, &b);
	if (k == 6 && !(r & 1))
		return link_rename("eth0.4", "lan4tmp") && link_rename("lan4tmp", "eth0.4");
	if (k == 7 && !(r & 1))
		return sh("ip link delete eth0.3") && make_veth("eth0.3", "e03-p");
	return true;
}

// Load and unload while the stream flows and the control side (no link
// changes) works; what fails while the module is away is ignored.
void check_cycles(int cycles)
{
	std::atomic<long> end{ LONG_MAX };
	long got = 0;
	std::thread tx([&] { stream_until(end, &got); });
	std::thread ctl([&] {
		for (unsigned i = 0; now_ms() < end; i++, sleep_ms(1)) {
			Fd dev(open(kDev, O_RDWR | O_CLOEXEC));
			control_step(i / 6 * 8 + i % 6, dev.fd);
		}
	});
	int n = 0;
	long start = now_ms();
	while (n < cycles && !load("jix_xpon_multicast") && (sleep_ms(20), unload("jix_xpon_multicast")))
		n++;
	end = 0;
	tx.join();
	ctl.join();
	check("load/unload: " + std::to_string(cycles) + " cycles under traffic (" +
	      std::to_string((now_ms() - start) / 1000) + " s)", n == cycles, std::to_string(n));
}

// STORM_S seconds: the stream on processor 0, the control side on
// processor 1; meanwhile jix_probe plays a busy engine whose answers flip,
// so that aging removes records.
void check_storm(int seconds)
{
	check("storm: load", !load("jix_xpon_multicast"));
	check("storm: jix_probe's thread starts", put(kProbe + "cmd", "storm " + std::to_string(seconds * 1000)));
	auto pin = [](int c) { cpu_set_t s; CPU_ZERO(&s); CPU_SET(c, &s); sched_setaffinity(0, sizeof(s), &s); };
	std::atomic<long> end{ now_ms() + seconds * 1000L };
	long sent = 0, got = 0;
	std::thread tx([&] { pin(0); sent = stream_until(end, &got); });
	pin(1);
	Fd dev(open(kDev, O_RDWR | O_CLOEXEC));
	unsigned i = 0;
	bool ok = true;
	while (now_ms() < end && ok)
		ok = control_step(i++, dev.fd);
	uint8_t on = 1;
	ioctl(dev.fd, kIocSetSnoop, &on);
	tx.join();
	// 16 steps make every kind of change.
	check("storm: " + std::to_string(seconds) + " s of stream, control and link changes (sent " +
	      std::to_string(sent) + ", got " + std::to_string(got) + ", steps " + std::to_string(i) +
	      ")", ok && i >= 16 && sent && got);
	long rounds = atol(slurp(kProbe + "n_storm").c_str());
	check("storm: jix_probe's thread ran all along (" + std::to_string(rounds) + " rounds)",
	      rounds > seconds * 10L);
}

// Scan twice, 6 s apart (an object is reported once unreferenced for
// 5 s).  A leak whose backtrace names one of our modules, or holds a frame
// that no longer resolves (code of a module unloaded since: only ours are
// by then), is ours and printed whole.
bool no_leaks_of_ours()
{
	if (access(kLeaks.c_str(), W_OK))
		return true;
	put(kLeaks, "scan");
	sleep_ms(6000);
	put(kLeaks, "scan");
	Str all = slurp(kLeaks), mark = "unreferenced object";
	int ours = 0;
	for (size_t p = all.find(mark), e; p != Str::npos; p = e) {
		e = all.find(mark, p + 1);
		Str rec = all.substr(p, e == Str::npos ? e : e - p);
		if (has(rec, "[jix_xpon_multicast]") || has(rec, "[quor_platform]") ||
		    has(rec, "[jix_probe]") || has(rec, ">] 0x")) {
			printf("kmemleak: leak|%s", rec.c_str());
			ours++;
		}
	}
	return !ours;
}

int suite(int storm_s, int cycles)
{
	if (!access(kLeaks.c_str(), W_OK))
		put(kLeaks, "scan") && put(kLeaks, "clear");	// what the boot left
	if (!check("load veth", !load("veth")))
		finish();
	bool up = true;
	for (auto &l : kLinks)
		up = up && make_veth(l[0], l[1]);
	// The module binds the devices that exist when it starts.
	if (!check("veth pairs; load quor_platform, jix_probe, jix_xpon_multicast", up &&
		   !load("quor_platform") && !load("jix_probe") && !load("jix_xpon_multicast")))
		finish();
	check_device();
	add_members();
	check_stream();
	check_hwnat();
	check_port_map();
	check_reload();
	tour();
	check_cycles(cycles);
	check_storm(storm_s);
	check("kmemleak: no leak of ours, modules loaded", no_leaks_of_ours());
	check("unload after the storm", unload("jix_xpon_multicast"));
	for (auto &l : kLinks)
		delete_at_once(l[0], "after the unload");	// every reference given back
	check("unload jix_probe and quor_platform", unload("jix_probe") && unload("quor_platform"));
	check("kmemleak: no leak of ours, modules unloaded", no_leaks_of_ours());
	check("unload veth", unload("veth"));
	// A lockdep report turns lockdep off.
	Str ld = slurp("/proc/lockdep_stats");
	if (!ld.empty())
		check("lockdep still on", has(ld, "debug_locks:") &&
		      atoi(ld.c_str() + ld.find("debug_locks:") + 12) == 1);
	finish();
}

} // namespace

int main(int argc, char **argv)
{
	Str what = argc > 1 ? argv[1] : "";
	setvbuf(stdout, nullptr, _IOLBF, 0);
	if (what == "suite" && argc == 4)
		return suite(atoi(argv[2]), atoi(argv[3]));
	if (what == "stream" && argc >= 6)
		return cmd_stream(argv + 2, argc - 2);
	fprintf(stderr, "usage: jixtest suite STORM_S CYCLES | stream IN COUNT GROUP TAGS LISTEN...\n");
	return 2;
}
