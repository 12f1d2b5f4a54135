// Per-port replication: which ports get a copy, with which treatment, and
// what is counted; the caller's frame is never touched.
#include <algorithm>

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
#include "datapath/transmit.h"
#include "vlan/vlan.h"
}

namespace {

using frames::Bytes;

// Ethernet (optionally one 0x8100 tag) + IPv4 + UDP to 239.1.1.1.
Bytes udp_frame(int vid = -1)
{
	return frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 5000, 5001,
				      vid < 0 ? std::vector<frames::Tag>() : std::vector<frames::Tag>{ { 0x8100, (u16)vid } });
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
	// Ports 0, 1, 2 and 16.
	void before_start() override { up({ "eth0.1", "eth0.2", "eth0.3", "ux0" }); }

	static void join(u8 port, u32 mode, u16 otci = 0xFFF, s16 vlan = -1)
	{
		igmp_entry_info e = jt::entry(port, "239.1.1.1", vlan);
		e.vlan_mode = mode, e.outer_tci = otci, e.inner_tci = 0xFFF;
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}

	// Replicate @in to @mask and check that each device sent what @want
	// names (VLAN of the copy's tag, -1 untagged, -2 nothing) and that the
	// caller's frame came back unchanged.  Mask 0 takes the data handler's
	// way: member ports and their actions from one lookup.
	void fwd(int in_vid, u64 mask, std::vector<int> want, int fail_nth = 0)
	{
		Bytes in = udp_frame(in_vid);
		sk_buff *skb = skb_of(in);
		unsigned char *data = skb->data;
		struct jix_port_actions pa;
		struct jix_pkt pk;

		host_alloc_fail_nth(fail_nth);
		if (mask) {
			EXPECT_EQ(0, jix_xpon_fwd_data_to_port(skb, mask));
		} else {
			jix_xpon_parse(skb, &pk);
			EXPECT_EQ(0, jix_xpon_fwd_data_with_actions(skb, jix_fwd_ports_and_actions(skb, &pk, &pa), &pa));
		}
		EXPECT_EQ(in, Bytes(skb->data, skb->data + skb->len));
		EXPECT_EQ(data, skb->data);
		kfree_skb(skb);
		for (size_t i = 0; i < devs.size(); i++) {
			EXPECT_EQ(want[i] == -2 ? Bytes() : udp_frame(want[i]), jt::sent(devs[i])) << devs[i]->name;
			host_netdev_tx_clear(devs[i]);
		}
	}

	// Frames and bytes a port's software counters took since last asked.
	static std::pair<u32, u32> counted(u8 port)
	{
		u32 bytes = 0, pkts = 0;
		get_sw_cnt_by_port(port, &bytes, &pkts);
		return { pkts, bytes };
	}
};

TEST_F(Transmit, CopiesPerMemberPort)
{
	const u32 len = (u32)udp_frame().size();

	join(0, JIX_VLAN_TRANSPARENT);
	join(2, JIX_VLAN_ADD, 100);
	join(16, JIX_VLAN_TRANSPARENT);
	quor_mc_debug_level = 3;
	host_log_clear();
	fwd(-1, 0x10005, { -1, -2, 100, -1 });
	EXPECT_EQ(std::make_pair(1u, len + 4), counted(2));
	EXPECT_EQ(std::make_pair(1u, len), counted(16));
	std::string log = jt::log_take();
	size_t a = log.find("dev name = eth0.1"), b = log.find("dev name = eth0.3"), c = log.find("dev name = ux0");
	EXPECT_NE(std::string::npos, log.find("[jix_xpon_fwd_data_to_port]interfacecount=3\n"));
	EXPECT_NE(std::string::npos, log.find("[jix_xpon_data_vlan_handle]jix_xpon_data_vlan_handle: ret:1\n"));
	EXPECT_TRUE(a < b && b < c && c != std::string::npos) << log;

	fwd(-1, 0x11001, { -1, -2, -2, -2 });	// ports 0, 12, 16: the count of 2 ends at 12
	fwd(-1, 0x3, { -2, -1, -2, -2 }, 1);	// a failed copy skips only its port
	// A port without an entry gets the frame as it is, but stripped when it
	// is a hybrid HGU port and snooping is off.
	PORT_TYPE[1] = JIX_PORT_TYPE_HYBRID_HGU;
	fwd(7, 1u << 1, { -2, 7, -2, -2 });
	igmp_snooping_enable = 0;
	fwd(7, 1u << 1, { -2, -1, -2, -2 });
	igmp_snooping_enable = 1;
	// Filter mode 5 also names the VLAN: a tagged frame finds the tagged entry.
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP_VID);
	join(0, JIX_VLAN_REPLACE, 0x0055, 9);
	fwd(9, 1, { 0x55, -2, -2, -2 });
	fwd(8, 1, { 8, -2, -2, -2 });
	counted(0), counted(1);

	// Devices that do not take the copy leave the counters alone.
	fwd(-1, 1u << 5, { -2, -2, -2, -2 });
	EXPECT_NE(std::string::npos, jt::log_take().find("[jix_xpon_fwd_data_to_port]dev = NULL\n"));
	host_netdev_tx_stop(devs[0], 1);
	devs[1]->flags &= ~IFF_UP;
	fwd(-1, 0x3, { -2, -2, -2, -2 });
	for (u8 p : { 0, 1, 5 })
		EXPECT_EQ(std::make_pair(0u, 0u), counted(p)) << (int)p;
}

// The handler's way (clones where the treatment keeps the bytes) sends what
// the per-copy lookup sends, for untagged and tagged frames.
TEST_F(Transmit, HandlerWaySendsWhatThePerCopyWaySends)
{
	join(0, JIX_VLAN_TRANSPARENT);
	join(1, JIX_VLAN_STRIP);
	join(2, JIX_VLAN_REPLACE, 0x0055);
	join(16, JIX_VLAN_ADD, 0xFFF);
	for (u64 mask : { 0x10007ull, 0ull }) {
		fwd(-1, mask, { -1, -1, -1, -1 });
		fwd(7, mask, { 7, -1, 0x55, 7 });
		fwd(0xFFF, mask, { 0xFFF, -1, 0x55, 0xFFF });
	}
}

TEST_F(Transmit, FrameDumpOnlyAtLevelFour)
{
	sk_buff *skb = skb_of(udp_frame());
	char head[128];

	quor_mc_debug_level = 3;
	host_log_clear();
	jix_skb_dump(skb);
	EXPECT_STREQ("", host_log_text());
	quor_mc_debug_level = 4;
	jix_skb_dump(skb);
	std::string log = host_log_text();
	snprintf(head, sizeof(head), "\nskb_dump: from ip stack with len %u (%u) headroom=64 tailroom=%d\n",
		 skb->len, skb->truesize, skb_tailroom(skb));
	EXPECT_EQ(0u, log.find(head)) << log;
	// The frame alone, from its start (MAC header and data) to its end.
	std::string body = log.substr(strlen(head));
	EXPECT_EQ(0u, body.find("\n@*@d01-00-5E-01-01-01-")) << log;
	EXPECT_NE(std::string::npos, body.find("@n45-00-")) << log;
	EXPECT_EQ(skb->len, (unsigned)std::count(body.begin(), body.end(), '-'));
	kfree_skb(skb);
}

} // namespace
