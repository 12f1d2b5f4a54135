// Classification of received frames: answers on well-formed frames, and
// on every prefix of them (run under AddressSanitizer: the buffers end
// exactly where the frame ends).
#include <gtest/gtest.h>

#include <array>

#include "support/frames.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace frames;

namespace {

// Packet type, network header, IP protocol, UDP header (offsets from the
// MAC header, -1 for NULL), data port, data, multicast data, PPPoE
// multicast, outer VID.
using Answers = std::array<long, 9>;
enum { TYPE, NH, IP, UDP, PORT, DATA, MCST, PPPOX, VID };

struct Result {
	Answers a;
	mc_ip_addr src, grp;	// start filled with 0xee
};

long off(const sk_buff *skb, const u8 *p) { return p ? (long)(p - skb_mac_header(skb)) : -1; }

Result classify(const Bytes &frame)
{
	Skb skb = skb_from(frame);
	sk_buff *s = skb.get();
	Result r;

	r.a = { jix_xpon_get_packet_type(s), off(s, jix_xpon_get_network_header(s)),
		jix_xpon_get_ip_type(s), off(s, jix_xpon_get_udp_header(s)),
		jix_xpon_is_data_udp_port(s), jix_xpon_is_data_pkt(s), quor_is_mcst_data_pkt(s),
		jix_xpon_is_pppox_multicast_pkt(s), jix_xpon_get_outer_vid(s) };
	memset(&r.src, 0xee, sizeof(r.src));
	memset(&r.grp, 0xee, sizeof(r.grp));
	jix_xpon_get_src_and_dst_addr(&r.src, &r.grp, s);
	return r;
}

bool untouched(const mc_ip_addr &r)
{
	mc_ip_addr s;
	memset(&s, 0xee, sizeof(s));
	return !memcmp(&r, &s, sizeof(s));
}

const Tag q{ 0x8100, 0x2064 }, s{ 0x88a8, 0x30c8 };
const char *kSrc = "10.0.0.1", *kSrc6 = "2001:db8::1";

struct Case { const char *name; Bytes frame; Answers want; };

std::vector<Case> cases()
{
	Bytes smac = mac("00:11:22:33:44:55"), v4udp = ipv4(kSrc, "239.1.1.1", 17, udp(5000, 1234));
	return {
		{ "v4_qinq", ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234, { s, q }), { 0x0800, 22, 17, 42, 1, 1, 1, 0, 200 } },
		{ "v4_unicast_mac", eth(mac("00:aa:bb:cc:dd:ee"), smac, {}, 0x0800, v4udp),
		  { 0x0800, 14, 17, 34, 1, 1, 0, 0, -1 } },
		{ "igmp_query", igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), { 0x0800, 14, 2, 34, 1, 0, 0, 0, -1 } },
		{ "v6_udp", ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1234), { 0x86dd, 14, 17, 54, 1, 1, 1, 0, -1 } },
		// Only one extension header is looked through.
		{ "v6_two_ext", eth(group_mac("ff0e::1"), smac, {}, 0x86dd, ipv6(kSrc6, "ff0e::1", 0, Bytes(16, 0), true)),
		  { 0x86dd, 14, 0, 54, 1, 0, 0, 0, -1 } },
		{ "pppoe_v4", eth(group_mac("224.1.1.1"), smac, {}, 0x8864,
				  pppoe(0x0021, ipv4(kSrc, "224.1.1.1", 17, udp(5000, 1234)))),
		  { 0x0800, 22, 17, 42, 1, 1, 1, 1, -1 } },
		{ "pppoe_v6", eth(group_mac("ff0e::1"), smac, { s }, 0x8864,
				  pppoe(0x0057, ipv6(kSrc6, "ff0e::1", 17, udp(5000, 1234)))),
		  { 0x86dd, 26, 17, 66, 1, 1, 1, 1, 200 } },
		{ "pppoe_v6_ff80", eth(group_mac("ff0e::1"), smac, {}, 0x8864,
				       pppoe(0x0057, ipv6(kSrc6, "ff80::1", 17, udp(5000, 1234)))),
		  { 0x86dd, 22, 17, 62, 1, 1, 1, 0, -1 } },
		{ "arp", eth(mac("ff:ff:ff:ff:ff:ff"), smac, { q }, 0x0806, Bytes(28, 0)),
		  { 0x0806, 18, 0, -1, 0, 0, 0, 0, 100 } },
	};
}

// Each answer; addresses are filled exactly for IP frames.
TEST(Classify, WellFormedFrames)
{
	for (const Case &c : cases()) {
		Result r = classify(c.frame);
		bool ip = c.want[TYPE] == 0x0800 || c.want[TYPE] == 0x86dd;
		EXPECT_EQ(c.want, r.a) << c.name;
		EXPECT_EQ(ip ? 0 : 2, untouched(r.src) + untouched(r.grp)) << c.name;
	}
}

// Each answer appears exactly when the bytes it reads are all present.
TEST(Classify, AnswersAppearAtTheFirstLengthThatHoldsTheirBytes)
{
	const Bytes v4 = ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234),
		    v6 = ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1234),
		    tagged = ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234, { q }),
		    hbh = ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1234, {}, true), pppoe_v4 = cases()[5].frame;
	const struct {
		const Bytes &f;
		size_t n;
		int answer;
		long before, at;	// at n - 1 and at n bytes
	} rows[] = {
		{ v4, 14, TYPE, 0, 0x0800 }, { v4, 15, NH, -1, 14 },	 { v4, 24, IP, 0, 17 },
		{ v4, 38, PORT, 0, 1 },	     { v4, 42, UDP, -1, 34 },	 { tagged, 16, VID, -1, 100 },
		{ v6, 21, IP, 0, 17 },	     { hbh, 55, IP, 0, 17 },	     { pppoe_v4, 22, TYPE, 0x8864, 0x0800 },
	};
	for (auto &r : rows) {
		EXPECT_EQ(r.before, classify(Bytes(r.f.begin(), r.f.begin() + r.n - 1)).a[r.answer]) << r.n;
		EXPECT_EQ(r.at, classify(Bytes(r.f.begin(), r.f.begin() + r.n)).a[r.answer]) << r.n;
	}
	EXPECT_TRUE(untouched(classify(Bytes(v4.begin(), v4.begin() + 33)).grp));
	EXPECT_FALSE(untouched(classify(Bytes(v4.begin(), v4.begin() + 34)).grp));
}

TEST(Classify, TagsMacPrefixesAndExcludedPorts)
{
	for (uint16_t tpid : { 0x8100, 0x9100, 0x88a8 }) {
		for (int n = 0; n <= 3; n++) {
			Answers a = classify(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, std::vector<Tag>(n, { tpid, 5 }))).a;
			EXPECT_EQ((Answers{ 0x0800, 14 + 4 * n, 17, 34 + 4 * n, 1, 1, 1, 0,
					    n && tpid != 0x9100 ? 5 : -1 }), a) << std::hex << tpid << " x" << n;
		}
	}
	const std::pair<const char *, int> macs[] = { { "01:00:5e:7f:00:01", 1 }, { "33:33:00:00:00:fb", 1 },
		{ "01:00:5f:00:00:01", 0 }, { "33:34:00:00:00:01", 0 }, { "ff:ff:ff:ff:ff:ff", 0 } };
	for (auto &m : macs)
		EXPECT_EQ(m.second, jix_xpon_is_multicast_addr(mac(m.first).data())) << m.first;
	EXPECT_EQ(0, jix_xpon_is_multicast_addr(nullptr));
	const struct { uint16_t sport, dport; long data; } ports[] = { { 546, 547, 0 }, { 547, 546, 0 }, { 546, 600, 1 }, { 600, 547, 1 }, { 5353, 600, 1 },
		      { 1, 1900, 0 },	 { 1900, 1, 1 },    { 9, 5353, 0 },    { 546, 546, 1 } };
	for (auto &p : ports) {
		Answers a = classify(ipv4_udp_frame(kSrc, "239.1.1.1", p.sport, p.dport)).a;
		EXPECT_EQ(p.data, a[PORT]) << p.sport << "->" << p.dport;
		EXPECT_EQ(p.data, a[DATA]) << p.sport << "->" << p.dport;
	}
}

} // namespace
