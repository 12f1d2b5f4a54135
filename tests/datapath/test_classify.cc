// Classification of received frames: answers on well-formed frames, and
// on every prefix of them (run under AddressSanitizer: the buffers end
// exactly where the frame ends).
#include <gtest/gtest.h>

#include "support/frames.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace frames;

namespace {

const uint8_t kSentinel = 0xee;

// Every answer of the classification family for one frame; offsets are
// from the MAC header, -1 for NULL; records start filled with kSentinel.
struct Answers {
	int type, ip, port, data, mcst, pppox, vid;
	long nh, udp;
	mc_ip_addr src, grp;
};

long off(const sk_buff *skb, const u8 *p)
{
	return p ? (long)(p - skb_mac_header(skb)) : -1;
}

Answers classify(const Bytes &frame, bool pushed = false)
{
	Skb skb = skb_from(frame);
	Answers a;

	if (pushed)
		skb_push(skb.get(), (unsigned int)(skb->data - skb_mac_header(skb.get())));
	a.type = jix_xpon_get_packet_type(skb.get());
	a.nh = off(skb.get(), jix_xpon_get_network_header(skb.get()));
	a.ip = jix_xpon_get_ip_type(skb.get());
	a.udp = off(skb.get(), jix_xpon_get_udp_header(skb.get()));
	a.port = jix_xpon_is_data_udp_port(skb.get());
	a.data = jix_xpon_is_data_pkt(skb.get());
	a.mcst = quor_is_mcst_data_pkt(skb.get());
	a.pppox = jix_xpon_is_pppox_multicast_pkt(skb.get());
	a.vid = jix_xpon_get_outer_vid(skb.get());
	memset(&a.src, kSentinel, sizeof(a.src));
	memset(&a.grp, kSentinel, sizeof(a.grp));
	jix_xpon_get_src_and_dst_addr(&a.src, &a.grp, skb.get());
	return a;
}

bool untouched(const mc_ip_addr &r)
{
	mc_ip_addr s;
	memset(&s, kSentinel, sizeof(s));
	return !memcmp(&r, &s, sizeof(s));
}

struct Case {
	const char *name;
	Bytes frame;
	int type;
	long nh;
	int ip;
	long udp;
	int port, data, mcst, pppox;
};

const Tag q{ 0x8100, 0x2064 }, s{ 0x88a8, 0x30c8 }, t91{ 0x9100, 0x0123 };
const char *kSrc = "10.0.0.1", *kSrc6 = "2001:db8::1";

std::vector<Case> cases()
{
	Bytes smac = mac("00:11:22:33:44:55");
	Bytes lcp = { 0x01, 0x01, 0x00, 0x04 };
	return {
		{ "v4_udp", ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234), 0x0800, 14, 17, 34, 1, 1, 1, 0 },
		{ "v4_qinq", ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234, { s, q }), 0x0800, 22, 17, 42, 1, 1, 1, 0 },
		{ "v4_9100", ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234, { t91 }), 0x0800, 18, 17, 38, 1, 1, 1, 0 },
		{ "v4_mdns", ipv4_udp_frame(kSrc, "224.0.0.251", 5353, 5353), 0x0800, 14, 17, 34, 0, 0, 0, 0 },
		{ "v4_unicast_mac", eth(mac("00:aa:bb:cc:dd:ee"), smac, {}, 0x0800,
					ipv4(kSrc, "239.1.1.1", 17, udp(5000, 1234))),
		  0x0800, 14, 17, 34, 1, 1, 0, 0 },
		// Ports are read 20 bytes in, whatever the header length: here
		// from the router alert option, which is not a DHCPv6 pair.
		{ "v4_options", eth(group_mac("239.1.1.1"), smac, {}, 0x0800,
				    ipv4(kSrc, "239.1.1.1", 17, udp(546, 547), router_alert())),
		  0x0800, 14, 17, 34, 1, 1, 1, 0 },
		{ "igmp_query", igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), 0x0800, 14, 2, 34, 1, 0, 0, 0 },
		{ "v6_udp", ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1234), 0x86dd, 14, 17, 54, 1, 1, 1, 0 },
		// No extension header is skipped for the ports: they come from
		// the hop-by-hop header (next 17, length 0 -> port 0x1100).
		{ "v6_hbh_udp", ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1900, {}, true), 0x86dd, 14, 17, 54, 1, 1, 1, 0 },
		{ "mld_query", eth(group_mac("ff02::1"), smac, { q }, 0x86dd,
				   ipv6("fe80::1", "ff02::1", 58, mld(130, "fe80::1", "ff02::1", "::"), true)),
		  0x86dd, 18, 58, 58, 1, 0, 0, 0 },
		// Only one extension header is looked through.
		{ "v6_two_ext", eth(group_mac("ff0e::1"), smac, {}, 0x86dd,
				    ipv6(kSrc6, "ff0e::1", 0, Bytes(16, 0), true)),
		  0x86dd, 14, 0, 54, 1, 0, 0, 0 },
		{ "pppoe_v4", eth(group_mac("239.1.1.1"), smac, {}, 0x8864,
				  pppoe(0x0021, ipv4(kSrc, "239.1.1.1", 17, udp(5000, 1234)))),
		  0x0800, 22, 17, 42, 1, 1, 1, 1 },
		{ "pppoe_v4_unicast", eth(group_mac("239.1.1.1"), smac, { q, q }, 0x8864,
					  pppoe(0x0021, ipv4(kSrc, "10.0.0.239", 17, udp(5000, 1234)))),
		  0x0800, 30, 17, 50, 1, 1, 1, 0 },
		{ "pppoe_v6", eth(group_mac("ff0e::1"), smac, { s }, 0x8864,
				  pppoe(0x0057, ipv6(kSrc6, "ff0e::1", 17, udp(5000, 1234)))),
		  0x86dd, 26, 17, 66, 1, 1, 1, 1 },
		{ "pppoe_v6_ff80", eth(group_mac("ff0e::1"), smac, {}, 0x8864,
				       pppoe(0x0057, ipv6(kSrc6, "ff80::1", 17, udp(5000, 1234)))),
		  0x86dd, 22, 17, 62, 1, 1, 1, 0 },
		{ "pppoe_lcp", eth(group_mac("239.1.1.1"), smac, {}, 0x8864, pppoe(0xc021, lcp)),
		  0x8864, 22, 0, -1, 0, 0, 0, 0 },
		{ "arp", eth(mac("ff:ff:ff:ff:ff:ff"), smac, { q }, 0x0806, Bytes(28, 0)),
		  0x0806, 18, 0, -1, 0, 0, 0, 0 },
	};
}

Bytes case_frame(const char *name)
{
	for (const Case &c : cases())
		if (!strcmp(c.name, name))
			return c.frame;
	return {};
}

TEST(Classify, WellFormedFrames)
{
	for (const Case &c : cases()) {
		SCOPED_TRACE(c.name);
		for (bool pushed : { false, true }) {
			Answers a = classify(c.frame, pushed);
			EXPECT_EQ(c.type, a.type);
			EXPECT_EQ(c.nh, a.nh);
			EXPECT_EQ(c.ip, a.ip);
			EXPECT_EQ(c.udp, a.udp);
			EXPECT_EQ(c.port, a.port);
			EXPECT_EQ(c.data, a.data);
			EXPECT_EQ(c.mcst, a.mcst);
			EXPECT_EQ(c.pppox, a.pppox);
			bool ip = c.type == 0x0800 || c.type == 0x86dd;
			EXPECT_EQ(!ip, untouched(a.src));
			EXPECT_EQ(!ip, untouched(a.grp));
		}
	}
}

TEST(Classify, AnyNumberOfTagsOfEachKindIsSkipped)
{
	for (uint16_t tpid : { 0x8100, 0x9100, 0x88a8 }) {
		for (int n = 0; n <= 3; n++) {
			std::vector<Tag> tags(n, Tag{ tpid, 0x0fff });
			Answers a = classify(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, tags));
			EXPECT_EQ(0x0800, a.type) << std::hex << tpid << " x" << n;
			EXPECT_EQ(14 + 4 * n, a.nh) << std::hex << tpid << " x" << n;
			EXPECT_EQ(17, a.ip);
		}
	}
}

TEST(Classify, MulticastMacPrefixes)
{
	EXPECT_EQ(1, jix_xpon_is_multicast_addr(mac("01:00:5e:7f:00:01").data()));
	EXPECT_EQ(1, jix_xpon_is_multicast_addr(mac("33:33:00:00:00:fb").data()));
	EXPECT_EQ(0, jix_xpon_is_multicast_addr(mac("01:00:5f:00:00:01").data()));
	EXPECT_EQ(0, jix_xpon_is_multicast_addr(mac("33:34:00:00:00:01").data()));
	EXPECT_EQ(0, jix_xpon_is_multicast_addr(mac("ff:ff:ff:ff:ff:ff").data()));
	EXPECT_EQ(0, jix_xpon_is_multicast_addr(nullptr));
}

TEST(Classify, ExcludedUdpPorts)
{
	struct {
		uint16_t sport, dport;
		int data;
	} ports[] = { { 546, 547, 0 }, { 547, 546, 0 }, { 546, 600, 1 }, { 600, 547, 1 },
		      { 5353, 600, 1 }, { 1, 1900, 0 }, { 1900, 1, 1 }, { 9, 5353, 0 },
		      { 546, 546, 1 } };
	for (auto &p : ports) {
		Answers a = classify(ipv4_udp_frame(kSrc, "239.1.1.1", p.sport, p.dport));
		EXPECT_EQ(p.data, a.port) << p.sport << "->" << p.dport;
		EXPECT_EQ(p.data, a.data) << p.sport << "->" << p.dport;
	}
}

TEST(Classify, AddressesInWireOrderIntoClearedRecords)
{
	Skb v4 = skb_from(ipv4_udp_frame("192.168.1.20", "224.1.2.3", 1, 2));
	mc_ip_addr src{}, grp{};
	memset(src.addr, 0x5a, sizeof(src.addr));
	jix_xpon_get_src_and_dst_addr(&src, &grp, v4.get());
	EXPECT_EQ(Bytes({ 0xe0, 1, 2, 3 }), Bytes(grp.addr, grp.addr + 4));
	EXPECT_EQ(Bytes({ 192, 168, 1, 20 }), Bytes(src.addr, src.addr + 4));
	EXPECT_EQ(Bytes(12, 0), Bytes(grp.addr + 4, grp.addr + 16));
	EXPECT_EQ(Bytes(12, 0x5a), Bytes(src.addr + 4, src.addr + 16));
	EXPECT_EQ(0, grp.isipv6);

	Skb v6 = skb_from(ipv6_udp_frame(kSrc6, "ff0e::1:2", 1, 2, { q }));
	jix_xpon_get_src_and_dst_addr(nullptr, &grp, v6.get());	// NULL skipped
	EXPECT_EQ(addr("ff0e::1:2"), Bytes(grp.addr, grp.addr + 16));
	EXPECT_EQ(1, grp.isipv6);
}

// A prefix of a frame never gives an answer the whole frame does not: each
// answer is either the whole frame's or that of "another type".
TEST(Classify, EveryPrefixIsReadWithinItsBounds)
{
	for (const Case &c : cases()) {
		Answers full = classify(c.frame);
		for (size_t n = 0; n < c.frame.size(); n++) {
			SCOPED_TRACE(std::string(c.name) + " cut at " + std::to_string(n));
			Answers a = classify(Bytes(c.frame.begin(), c.frame.begin() + n));
			bool pppoe = !strncmp(c.name, "pppoe", 5);
			EXPECT_TRUE(a.type == full.type || a.type == 0 ||
				    (pppoe && a.type == 0x8864)) << std::hex << a.type;
			EXPECT_TRUE(a.nh == full.nh || a.nh == -1) << a.nh;
			EXPECT_TRUE(a.nh == -1 || a.nh < (long)n);
			EXPECT_TRUE(a.ip == full.ip || a.ip == 0) << a.ip;
			EXPECT_TRUE(a.udp == -1 || (a.udp == full.udp && a.udp + 8 <= (long)n));
			EXPECT_TRUE(a.port == full.port || a.port == 0);
			EXPECT_TRUE(a.data == full.data || a.data == 0);
			EXPECT_TRUE(a.mcst == full.mcst || a.mcst == 0);
			EXPECT_TRUE(a.pppox == full.pppox || a.pppox == 0);
			EXPECT_TRUE(untouched(a.grp) || !memcmp(&a.grp, &full.grp, sizeof(a.grp)));
			EXPECT_TRUE(untouched(a.src) || !memcmp(&a.src, &full.src, sizeof(a.src)));
		}
	}
}

// Each answer appears exactly when the bytes it reads are all present.
TEST(Classify, AnswersAppearAtTheFirstLengthThatHoldsTheirBytes)
{
	auto cut = [](const Bytes &f, size_t n) { return classify(Bytes(f.begin(), f.begin() + n)); };
	Bytes v4 = ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234);
	EXPECT_EQ(0, cut(v4, 13).type);
	EXPECT_EQ(0x0800, cut(v4, 14).type);
	EXPECT_EQ(-1, cut(v4, 14).nh);
	EXPECT_EQ(0, cut(v4, 23).ip);
	EXPECT_EQ(17, cut(v4, 24).ip);
	EXPECT_TRUE(untouched(cut(v4, 33).grp));
	EXPECT_FALSE(untouched(cut(v4, 34).grp));
	EXPECT_EQ(0, cut(v4, 37).port);
	EXPECT_EQ(1, cut(v4, 38).port);
	EXPECT_EQ(-1, cut(v4, 41).udp);
	EXPECT_EQ(34, cut(v4, 42).udp);
	Bytes tagged = ipv4_udp_frame(kSrc, "239.1.1.1", 5000, 1234, { q });
	EXPECT_EQ(-1, cut(tagged, 15).vid);
	EXPECT_EQ(100, cut(tagged, 16).vid);	// ends right after its tag
	Bytes hbh = ipv6_udp_frame(kSrc6, "ff0e::1", 5000, 1234, {}, true);
	EXPECT_EQ(0, cut(hbh, 54).ip);
	EXPECT_EQ(17, cut(hbh, 55).ip);
	// Before its PPP protocol field a PPPoE frame is PPPoE of another kind.
	Bytes pppoe_v4 = case_frame("pppoe_v4");
	EXPECT_EQ(0x8864, cut(pppoe_v4, 21).type);
	EXPECT_EQ(0x0800, cut(pppoe_v4, 22).type);
}

} // namespace
