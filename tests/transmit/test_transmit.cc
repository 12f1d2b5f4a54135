// Per-port replication: which ports get a copy, with which treatment, and
// what is counted; the caller's frame is never touched.
#include <algorithm>
#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/transmit.h"
#include "vlan/vlan.h"
}

namespace {

using frames::Bytes;
using jt::sent;

// Ethernet (optionally one 0x8100 tag) + IPv4 + UDP to 239.1.1.1.
Bytes udp_frame(int vid = -1)
{
	std::vector<frames::Tag> tags;

	if (vid >= 0)
		tags.push_back({ 0x8100, (u16)vid });
	return frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 5000, 5001, tags);
}

sk_buff *skb_of(const Bytes &b)
{
	sk_buff *skb = alloc_skb(64 + b.size(), GFP_ATOMIC);
	skb_reserve(skb, 64);
	memcpy(skb_put(skb, b.size()), b.data(), b.size());
	skb_reset_mac_header(skb);
	skb_set_network_header(skb, b[12] == 0x81 ? 18 : 14);
	return skb;
}

class Transmit : public jt::ModuleTest {
protected:
	// devs: eth0.1, eth0.2, eth0.3, ux0
	void before_start() override { up({ "eth0.1", "eth0.2", "eth0.3", "ux0" }); }

	void join(u8 port, u32 mode, u16 otci = 0xFFF, u16 itci = 0xFFF, s16 vlan = -1)
	{
		igmp_entry_info e = jt::entry(port, "239.1.1.1", vlan);
		e.vlan_mode = mode;
		e.outer_tci = otci;
		e.inner_tci = itci;
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}

	// Replicate and check the caller's frame came back unchanged.
	void fwd(const Bytes &in, u64 mask, unsigned long fail_nth = 0)
	{
		sk_buff *skb = skb_of(in);
		host_alloc_fail_nth(fail_nth);
		unsigned char *data = skb->data;
		EXPECT_EQ(0, jix_xpon_fwd_data_to_port(skb, mask));
		EXPECT_EQ(in, Bytes(skb->data, skb->data + skb->len));
		EXPECT_EQ(data, skb->data);
		kfree_skb(skb);
	}
};

TEST_F(Transmit, OneCopyPerMemberPortInPortOrderAndCounted)
{
	join(0, JIX_VLAN_TRANSPARENT);
	join(2, JIX_VLAN_ADD, 100);
	join(16, JIX_VLAN_TRANSPARENT);
	Bytes in = udp_frame();
	quor_mc_debug_level = 3;
	host_log_clear();
	fwd(in, 0x10005);
	EXPECT_EQ(1u, host_netdev_tx_count(devs[0]));
	EXPECT_EQ(0u, host_netdev_tx_count(devs[1]));
	EXPECT_EQ(1u, host_netdev_tx_count(devs[2]));
	EXPECT_EQ(1u, host_netdev_tx_count(devs[3]));
	EXPECT_EQ(in, sent(devs[0], 0));
	EXPECT_EQ(udp_frame(100), sent(devs[2], 0));
	u32 bytes, pkts;
	get_sw_cnt_by_port(2, &bytes, &pkts);
	EXPECT_EQ(1u, pkts);
	EXPECT_EQ(in.size() + 4, bytes);
	get_sw_cnt_by_port(16, &bytes, &pkts);
	EXPECT_EQ(in.size(), bytes);
	std::string log = host_log_text();
	EXPECT_NE(std::string::npos, log.find("[jix_xpon_fwd_data_to_port]interfacecount=3\n"));
	size_t a = log.find("dev name = eth0.1"), b = log.find("dev name = eth0.3"),
	       c = log.find("dev name = ux0");
	EXPECT_TRUE(a < b && b < c) << log;
}

TEST_F(Transmit, InterfaceCountStopsTheLoop)
{
	Bytes in = udp_frame();
	fwd(in, 0x11001); // ports 0, 12, 16: count 2
	EXPECT_EQ(1u, host_netdev_tx_count(devs[0]));
	EXPECT_EQ(0u, host_netdev_tx_count(devs[3])); // port 16 got nothing
	fwd(in, 0x1000); // port 12 only: copy made and freed
	fwd(in, 1ull << 40); // bits beyond 31 are not ports
	EXPECT_EQ(1u, host_netdev_tx_count(devs[0]));
}

// A device that does not take the copy (down, queue stopped, no carrier)
// leaves the port's counters alone.
TEST_F(Transmit, PortWithoutDeviceDownOrStoppedCountsNothing)
{
	Bytes in = udp_frame();
	u32 bytes = 0, pkts = 0;
	quor_mc_debug_level = 3;
	host_log_clear();
	fwd(in, 1u << 5);
	EXPECT_NE(std::string::npos, std::string(host_log_text()).find("[jix_xpon_fwd_data_to_port]dev = NULL\n"));
	get_sw_cnt_by_port(5, &bytes, &pkts);
	EXPECT_EQ(0u, pkts);
	host_netdev_tx_stop(devs[0], 1);
	fwd(in, 1u << 0);
	get_sw_cnt_by_port(0, &bytes, &pkts);
	EXPECT_EQ(0u, pkts + bytes);
	devs[1]->flags &= ~IFF_UP;
	fwd(in, 1u << 1);
	EXPECT_EQ(0u, host_netdev_tx_count(devs[1]));
	get_sw_cnt_by_port(1, &bytes, &pkts);
	EXPECT_EQ(0u, pkts);
}

TEST_F(Transmit, FailedCopySkipsOnlyThatPort)
{
	Bytes in = udp_frame();
	fwd(in, 0x3, 1);
	EXPECT_EQ(0u, host_netdev_tx_count(devs[0]));
	EXPECT_EQ(1u, host_netdev_tx_count(devs[1]));
}

TEST_F(Transmit, PortWithoutEntryIsTransparentUnlessHybridHguWithSnoopingOff)
{
	Bytes tagged = udp_frame(7);
	fwd(tagged, 1u << 1);
	EXPECT_EQ(tagged, sent(devs[1], 0));
	PORT_TYPE[1] = JIX_PORT_TYPE_HYBRID_HGU;
	fwd(tagged, 1u << 1);
	EXPECT_EQ(tagged, sent(devs[1], 1)); // snooping on: still transparent
	igmp_snooping_enable = 0;
	fwd(tagged, 1u << 1);
	EXPECT_EQ(udp_frame(), sent(devs[1], 2));
}

TEST_F(Transmit, UnknownModeSendsUnchangedAndEntryLookupUsesFrameVlan)
{
	join(0, 7);
	Bytes in = udp_frame();
	fwd(in, 1);
	EXPECT_EQ(in, sent(devs[0], 0));
	// Filter mode 5 also names the VLAN: a tagged frame finds the tagged entry.
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP_VID);
	join(0, JIX_VLAN_REPLACE, 0x0055, 0xFFF, 9);
	fwd(udp_frame(9), 1);
	EXPECT_EQ(udp_frame(0x55), sent(devs[0], 1));
	fwd(udp_frame(8), 1); // no entry for VLAN 8: transparent
	EXPECT_EQ(udp_frame(8), sent(devs[0], 2));
}

TEST_F(Transmit, FrameDumpOnlyAtLevelFour)
{
	sk_buff *skb = skb_of(udp_frame());
	quor_mc_debug_level = 3;
	host_log_clear();
	jix_skb_dump(skb);
	EXPECT_STREQ("", host_log_text());
	quor_mc_debug_level = 4;
	jix_skb_dump(skb);
	std::string log = host_log_text();
	char head[128];
	snprintf(head, sizeof(head),
		 "\nskb_dump: from ip stack with len %u (%u) headroom=64 tailroom=%d\n",
		 skb->len, skb->truesize, skb_tailroom(skb));
	EXPECT_EQ(0u, log.find(head)) << log;
	// The frame alone, from its start (MAC header and data) to its end.
	std::string body = log.substr(strlen(head));
	EXPECT_EQ(0u, body.find("\n@*@d01-00-5E-01-01-01-")) << log;
	EXPECT_EQ(std::string::npos, body.find("@h")) << log;
	EXPECT_NE(std::string::npos, body.find("@n45-00-")) << log;
	EXPECT_EQ(skb->len, (unsigned)std::count(body.begin(), body.end(), '-'));
	kfree_skb(skb);
}

} // namespace
