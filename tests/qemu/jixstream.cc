// SPDX-License-Identifier: GPL-2.0
//
// jixstream: the stream source and sinks of the QEMU tests, linked
// statically.  Sends COUNT frames of one kind into an interface (the far
// end of the uplink veth) and reports what arrived on each listening
// interface (the far ends of the port veths):
//
//   jixstream [--stack IF] IN COUNT KIND GROUP TAGS LISTEN...
//
//   KIND   udp     IPv4 UDP data to GROUP, port 5001
//          udp6    IPv6 UDP data to GROUP, port 5001
//          mdns    IPv4 UDP to GROUP, port 5353 (never forwarded)
//          report  IGMPv2 membership report for GROUP
//          query   IGMPv2 query: general when GROUP is 224.0.0.1, else
//                  group-specific to GROUP
//          ucast   IPv4 UDP data to GROUP given as MAC/IP (a unicast host)
//   TAGS   "-" or TPID:VID[,TPID:VID...] in hex:decimal, outer first
//
// With IN "-" and COUNT 0 nothing is sent: the sinks listen for frames
// that something else makes (for 3 s, or until 400 ms after the last).
//
// With --stack, a socket of the kernel's own stack on IF (a UDP socket on
// the frames' port, or a raw IGMP socket for reports, joined to the group)
// counts the test frames that the stack received there:
//   STACK <if> frames=<n>
//
// Every frame carries the source MAC 02:4a:49:58:53:54, so that frames of
// the guest's own stack are told apart.  One line per listening interface:
//   RX <if> frames=<n> tags=<tpid:vid/...|none> len=<first frame length>
// Exit status 0 when everything was sent, 2 on an error of the program.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const uint8_t kSrcMac[6] = { 0x02, 0x4a, 0x49, 0x58, 0x53, 0x54 };

long now_ms()
{
	timespec ts;
	clock_gettime(CLOCK_MONOTONIC, &ts);
	return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

void put16(Bytes &b, unsigned v)
{
	b.push_back((uint8_t)(v >> 8));
	b.push_back((uint8_t)v);
}

uint16_t csum(const uint8_t *p, size_t n, uint32_t sum = 0)
{
	for (size_t i = 0; i + 1 < n; i += 2)
		sum += (uint32_t)(p[i] << 8 | p[i + 1]);
	if (n & 1)
		sum += (uint32_t)(p[n - 1] << 8);
	while (sum >> 16)
		sum = (sum & 0xffff) + (sum >> 16);
	return (uint16_t)~sum;
}

struct Tag {
	unsigned tpid, vid;
};

bool parse_tags(const char *s, std::vector<Tag> &tags)
{
	if (!strcmp(s, "-"))
		return true;
	std::string all(s);
	size_t pos = 0;
	while (pos <= all.size()) {
		size_t end = all.find(',', pos);
		std::string one = all.substr(pos, end == std::string::npos ? end : end - pos);
		unsigned tpid, vid;
		if (sscanf(one.c_str(), "%x:%u", &tpid, &vid) != 2 || vid > 4095)
			return false;
		tags.push_back({ tpid, vid });
		if (end == std::string::npos)
			break;
		pos = end + 1;
	}
	return true;
}

Bytes ipv4(const uint8_t dst[4], uint8_t proto, const Bytes &payload, bool alert)
{
	Bytes h = { (uint8_t)(alert ? 0x46 : 0x45), 0 };
	size_t hl = alert ? 24 : 20;
	put16(h, (unsigned)(hl + payload.size()));
	h.insert(h.end(), { 0, 0, 0x40, 0, 1, proto, 0, 0, 10, 0, 0, 1 });
	h.insert(h.end(), dst, dst + 4);
	if (alert)
		h.insert(h.end(), { 0x94, 0x04, 0, 0 });
	uint16_t c = csum(h.data(), h.size());
	h[10] = (uint8_t)(c >> 8);
	h[11] = (uint8_t)c;
	h.insert(h.end(), payload.begin(), payload.end());
	return h;
}

Bytes udp(unsigned dport, unsigned seq)
{
	Bytes u;
	put16(u, 5000);
	put16(u, dport);
	Bytes data(32, 0);
	snprintf((char *)data.data(), data.size(), "JIXSTREAM %u", seq);
	put16(u, (unsigned)(8 + data.size()));
	put16(u, 0);
	u.insert(u.end(), data.begin(), data.end());
	return u;
}

Bytes igmp(uint8_t type, const uint8_t grp[4])
{
	Bytes m = { type, (uint8_t)(type == 0x11 ? 100 : 0), 0, 0 };
	m.insert(m.end(), grp, grp + 4);
	uint16_t c = csum(m.data(), m.size());
	m[2] = (uint8_t)(c >> 8);
	m[3] = (uint8_t)c;
	return m;
}

Bytes ipv6_udp(const uint8_t dst[16], unsigned seq)
{
	Bytes u = udp(5001, seq);
	Bytes h = { 0x60, 0, 0, 0 };
	put16(h, (unsigned)u.size());
	h.push_back(17);
	h.push_back(1);
	uint8_t src[16] = { 0xfe, 0x80 };
	src[15] = 1;
	h.insert(h.end(), src, src + 16);
	h.insert(h.end(), dst, dst + 16);
	h.insert(h.end(), u.begin(), u.end());
	return h;
}

void group_mac(const uint8_t *ip, bool v6, uint8_t mac[6])
{
	if (v6) {
		const uint8_t m[6] = { 0x33, 0x33, ip[12], ip[13], ip[14], ip[15] };
		memcpy(mac, m, 6);
	} else {
		const uint8_t m[6] = { 0x01, 0x00, 0x5e, (uint8_t)(ip[1] & 0x7f), ip[2], ip[3] };
		memcpy(mac, m, 6);
	}
}

struct Stream {
	std::string kind;
	uint8_t mac[6];
	uint8_t ip[16];
	std::vector<Tag> tags;
};

bool parse_stream(const char *kind, const char *group, const char *tags, Stream &s)
{
	s.kind = kind;
	if (!parse_tags(tags, s.tags))
		return false;
	if (s.kind == "ucast") {
		unsigned m[6];
		char ip[64];
		if (sscanf(group, "%x:%x:%x:%x:%x:%x/%63s", &m[0], &m[1], &m[2], &m[3],
			   &m[4], &m[5], ip) != 7)
			return false;
		for (int i = 0; i < 6; i++)
			s.mac[i] = (uint8_t)m[i];
		return inet_pton(AF_INET, ip, s.ip) == 1;
	}
	bool v6 = s.kind == "udp6";
	if (inet_pton(v6 ? AF_INET6 : AF_INET, group, s.ip) != 1)
		return false;
	group_mac(s.ip, v6, s.mac);
	return s.kind == "udp" || v6 || s.kind == "mdns" || s.kind == "report" ||
	       s.kind == "query";
}

Bytes make_frame(const Stream &s, unsigned seq)
{
	Bytes f(s.mac, s.mac + 6);
	f.insert(f.end(), kSrcMac, kSrcMac + 6);
	for (const Tag &t : s.tags) {
		put16(f, t.tpid);
		put16(f, t.vid);
	}
	Bytes l3;
	unsigned type = 0x0800;
	static const uint8_t any[4] = { 0, 0, 0, 0 };
	static const uint8_t all_hosts[4] = { 224, 0, 0, 1 };
	if (s.kind == "udp" || s.kind == "ucast")
		l3 = ipv4(s.ip, 17, udp(5001, seq), false);
	else if (s.kind == "mdns")
		l3 = ipv4(s.ip, 17, udp(5353, seq), false);
	else if (s.kind == "report")
		l3 = ipv4(s.ip, 2, igmp(0x16, s.ip), true);
	else if (s.kind == "query")
		l3 = ipv4(s.ip, 2, igmp(0x11, memcmp(s.ip, all_hosts, 4) ? s.ip : any), true);
	else {
		type = 0x86dd;
		l3 = ipv6_udp(s.ip, seq);
	}
	put16(f, type);
	f.insert(f.end(), l3.begin(), l3.end());
	while (f.size() < 60)
		f.push_back(0);
	return f;
}

int open_if(const char *name)
{
	int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
	if (fd < 0)
		return -1;
	sockaddr_ll sll{};
	sll.sll_family = AF_PACKET;
	sll.sll_protocol = htons(ETH_P_ALL);
	sll.sll_ifindex = (int)if_nametoindex(name);
	int one = 1;
	if (!sll.sll_ifindex || bind(fd, (sockaddr *)&sll, sizeof(sll)) < 0 ||
	    setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one)) < 0) {
		close(fd);
		return -1;
	}
	return fd;
}

struct Sink {
	const char *name;
	int fd;
	int frames = 0;
	std::string tags = "none";
	size_t len = 0;
};

// Tags of a received frame: the one the kernel took out (in the auxiliary
// data) first, then those still in the frame.
std::string tags_of(const uint8_t *f, size_t n, const tpacket_auxdata *aux)
{
	std::string out;
	char one[32];
	if (aux && (aux->tp_status & TP_STATUS_VLAN_VALID)) {
		unsigned tpid = (aux->tp_status & TP_STATUS_VLAN_TPID_VALID) ?
				aux->tp_vlan_tpid : 0x8100;
		snprintf(one, sizeof(one), "%x:%u", tpid, aux->tp_vlan_tci & 0xfff);
		out = one;
	}
	for (size_t o = 12; o + 4 <= n; o += 4) {
		unsigned t = (unsigned)(f[o] << 8 | f[o + 1]);
		if (t != 0x8100 && t != 0x88a8 && t != 0x9100)
			break;
		snprintf(one, sizeof(one), "%x:%u", t, (unsigned)((f[o + 2] << 8 | f[o + 3]) & 0xfff));
		out += out.empty() ? one : std::string("/") + one;
	}
	return out.empty() ? "none" : out;
}

// One received frame; returns false when nothing was waiting.
bool take(Sink &s)
{
	uint8_t buf[4096];
	union {
		cmsghdr h;
		char room[CMSG_SPACE(sizeof(tpacket_auxdata))];
	} ctl;
	sockaddr_ll from{};
	iovec iov = { buf, sizeof(buf) };
	msghdr msg{};
	msg.msg_name = &from;
	msg.msg_namelen = sizeof(from);
	msg.msg_iov = &iov;
	msg.msg_iovlen = 1;
	msg.msg_control = &ctl;
	msg.msg_controllen = sizeof(ctl);
	ssize_t n = recvmsg(s.fd, &msg, MSG_DONTWAIT);
	if (n < 0)
		return false;
	if (from.sll_pkttype == PACKET_OUTGOING || n < 14 || memcmp(buf + 6, kSrcMac, 6))
		return true;
	const tpacket_auxdata *aux = nullptr;
	for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c))
		if (c->cmsg_level == SOL_PACKET && c->cmsg_type == PACKET_AUXDATA)
			aux = (const tpacket_auxdata *)CMSG_DATA(c);
	if (!s.frames++) {
		s.tags = tags_of(buf, (size_t)n, aux);
		s.len = (size_t)n + (aux && (aux->tp_status & TP_STATUS_VLAN_VALID) ? 4 : 0);
	}
	return true;
}

// Collect until 400 ms pass without a test frame after @first_ms (at
// most 5 s).
void drain(std::vector<Sink> &sinks, long first_ms)
{
	long quiet_until = now_ms() + first_ms, stop = now_ms() + 5000;
	std::vector<pollfd> p;
	for (Sink &s : sinks)
		p.push_back({ s.fd, POLLIN, 0 });
	while (now_ms() < quiet_until && now_ms() < stop) {
		if (poll(p.data(), p.size(), 50) <= 0)
			continue;
		for (size_t i = 0; i < sinks.size(); i++) {
			int before = sinks[i].frames;
			while (take(sinks[i]))
				;
			if (sinks[i].frames != before)
				quiet_until = now_ms() + 400;
		}
	}
}

// ---- the kernel stack's view ----

struct Stack {
	const char *name = nullptr;
	int fd = -1;
	int frames = 0;
	bool raw = false;
};

bool stack_open(Stack &st, const Stream &s)
{
	st.raw = s.kind == "report";
	st.fd = st.raw ? socket(AF_INET, SOCK_RAW, IPPROTO_IGMP) :
			 socket(AF_INET, SOCK_DGRAM, 0);
	if (st.fd < 0)
		return false;
	if (setsockopt(st.fd, SOL_SOCKET, SO_BINDTODEVICE, st.name,
		       (socklen_t)strlen(st.name) + 1) < 0)
		return false;
	int one = 1;
	setsockopt(st.fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
	if (!st.raw) {
		sockaddr_in a{};
		a.sin_family = AF_INET;
		a.sin_port = htons(s.kind == "mdns" ? 5353 : 5001);
		if (bind(st.fd, (sockaddr *)&a, sizeof(a)) < 0)
			return false;
	}
	if (s.kind == "ucast")
		return true;
	ip_mreqn m{};
	memcpy(&m.imr_multiaddr, s.ip, 4);
	m.imr_ifindex = (int)if_nametoindex(st.name);
	return setsockopt(st.fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m, sizeof(m)) == 0;
}

// Count what the stack delivered: our UDP payloads, or IGMP reports from
// the stream's source address.
void stack_take(Stack &st)
{
	uint8_t buf[2048];
	ssize_t n;
	while ((n = recv(st.fd, buf, sizeof(buf), MSG_DONTWAIT)) >= 0) {
		if (!st.raw) {
			st.frames += n >= 9 && !memcmp(buf, "JIXSTREAM", 9);
			continue;
		}
		static const uint8_t src[4] = { 10, 0, 0, 1 };
		size_t hl = n > 0 ? (size_t)(buf[0] & 0xf) * 4 : 0;
		st.frames += n >= 20 && (size_t)n > hl && !memcmp(buf + 12, src, 4) &&
			     buf[hl] == 0x16;
	}
}

int usage()
{
	fprintf(stderr, "usage: jixstream [--stack IF] IN COUNT udp|udp6|mdns|report|query|ucast "
			"GROUP TAGS|- LISTEN...\n");
	return 2;
}

} // namespace

int main(int argc, char **argv)
{
	Stack stack;
	if (argc > 2 && !strcmp(argv[1], "--stack")) {
		stack.name = argv[2];
		argc -= 2;
		argv += 2;
	}
	if (argc < 6)
		return usage();
	Stream want;
	unsigned count = (unsigned)strtoul(argv[2], nullptr, 0);
	bool listen_only = !strcmp(argv[1], "-");
	if ((!count && !listen_only) || !parse_stream(argv[3], argv[4], argv[5], want))
		return usage();
	std::vector<Sink> sinks;
	for (int i = 6; i < argc; i++) {
		int fd = open_if(argv[i]);
		if (fd < 0) {
			printf("RX %s: cannot listen\n", argv[i]);
			return 2;
		}
		sinks.push_back({ argv[i], fd });
	}
	if (stack.name && !stack_open(stack, want)) {
		printf("STACK %s: cannot listen: %s\n", stack.name, strerror(errno));
		return 2;
	}
	if (listen_only) {
		printf("LISTENING\n");
		fflush(stdout);
		drain(sinks, 3000);
		for (Sink &s : sinks)
			printf("RX %s frames=%d tags=%s len=%zu\n", s.name, s.frames,
			       s.tags.c_str(), s.len);
		return 0;
	}
	int out = open_if(argv[1]);
	if (out < 0) {
		printf("TX %s: cannot open\n", argv[1]);
		return 2;
	}
	unsigned sent = 0;
	for (unsigned seq = 0; seq < count; seq++) {
		Bytes f = make_frame(want, seq);
		if (send(out, f.data(), f.size(), 0) == (ssize_t)f.size())
			sent++;
		usleep(2000);
	}
	printf("TX %s frames=%u\n", argv[1], sent);
	drain(sinks, 400);
	if (stack.name) {
		stack_take(stack);
		printf("STACK %s frames=%d\n", stack.name, stack.frames);
		close(stack.fd);
	}
	for (Sink &s : sinks) {
		printf("RX %s frames=%d tags=%s len=%zu\n", s.name, s.frames, s.tags.c_str(), s.len);
		close(s.fd);
	}
	close(out);
	return sent == count ? 0 : 2;
}
