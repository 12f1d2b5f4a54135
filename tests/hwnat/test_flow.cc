// The flow table: binding from frames, rebinding, aging by the driver's
// answer, membership updates with the conversion into a drop, removal,
// lookups and the driver's learn hook.
#include "hwnat_test.h"
#include <thread>

using namespace frames;
using jt::log_take;

namespace {

const Tag s_tag{ 0x88A8, 0x0064 }, c_tag{ 0x8100, 0x2005 };

u8 acnt_id0() { return mcst_acnt[0].acnt_id; }

TEST_F(Hwnat, BindingRecordsTheFlowAndMarksTheGroupCounter)
{
	host_jiffies_set(100100);	// rounds up to 100250
	u64 mask = 0x1 | 0x30000 | (1ULL << 40);
	u32 ctrl = bind(v4("239.1.1.1", { s_tag, c_tag }), mask);

	auto f = flows();
	ASSERT_EQ(1u, f.size());
	EXPECT_EQ(2u, f[0].proto);
	EXPECT_EQ(7, f[0].index);
	EXPECT_EQ(2u, f[0].tag_num);
	EXPECT_EQ(0x88A80064u, f[0].outer_tag);
	EXPECT_EQ(0x81002005u, f[0].inner_tag);
	EXPECT_EQ(100, f[0].vid);
	EXPECT_EQ(2, f[0].wifi_num);	// bits 16, 17; bit 40 is no Wi-Fi port
	EXPECT_EQ(mask, f[0].mask);
	Bytes grp = addr("239.1.1.1");
	grp.resize(16, 0);
	EXPECT_EQ(hex(grp), hex16(f[0].grp_addr));
	EXPECT_EQ(0, memcmp(f[0].src_addr, addr("10.0.0.1").data(), 4));
	EXPECT_EQ(103250ul, f[0].timer.expires);
	EXPECT_EQ(1, host_timers_pending());
	EXPECT_EQ((u32)acnt_id0() << 17, ctrl);
	EXPECT_EQ(0, mcst_acnt[0].valid);
}

TEST_F(Hwnat, TagsBeyondTwoThe9100TagIpv6AndPppoe)
{
	bind(v4("239.1.1.1", { s_tag, c_tag, c_tag }), 0x1);
	auto f = flows();
	EXPECT_EQ(0u, f[0].tag_num);
	EXPECT_EQ(0u, f[0].outer_tag | f[0].inner_tag);
	EXPECT_EQ(100, f[0].vid);

	bind(v4("239.1.1.1", { { 0x9100, 0x0005 } }), 0x1);
	f = flows();
	EXPECT_EQ(1u, f[0].tag_num);
	EXPECT_EQ(0x91000005u, f[0].outer_tag);
	EXPECT_EQ(-1, f[0].vid);	// the binding step reads no 0x9100 VID

	bind(v6("ff05::1:3"), 0x1);
	f = flows();
	EXPECT_EQ(16u, f[0].proto);
	EXPECT_EQ(hex(addr("ff05::1:3")), hex16(f[0].grp_addr));
	EXPECT_EQ(hex(addr("2001:db8::1")), hex16(f[0].src_addr));

	Bytes ip = ipv4("10.0.0.9", "239.2.2.2", 17, udp(5000, 5001));
	hw::drv.foe = 8;
	bind(eth(mac("01:00:5e:02:02:02"), mac("00:11:22:33:44:55"), {}, 0x8864,
		 pppoe(0x0021, ip)), 0x1);
	f = flows();
	ASSERT_EQ(2u, f.size());
	EXPECT_EQ(2u, f[1].proto);
	EXPECT_EQ(0, memcmp(f[1].grp_addr, addr("239.2.2.2").data(), 4));
}

TEST_F(Hwnat, UnsupportedFramesMissingIndexOrMemoryBindNothing)
{
	quor_mc_debug_level = 2;
	Bytes arp = eth(mac("01:00:5e:01:01:01"), mac("00:11:22:33:44:55"), {},
			0x0806, Bytes(28, 0));
	bind(arp, 0x1);
	EXPECT_EQ("[jix_xpon_hwnat_add_flow]eth_type(806) is not support!\n", log_take());
	Bytes cut = v4("239.1.1.1");
	cut.resize(14 + 19);	// IPv4 header one byte short
	bind(cut, 0x1);
	EXPECT_EQ("[jix_xpon_hwnat_add_flow]eth_type(800) is not support!\n", log_take());

	hw::drv.foe = -1;
	bind(v4("239.1.1.1"), 0x1);
	EXPECT_EQ("[jix_xpon_hwnat_add_flow]index is not correct\n", log_take());
	hwnat_skb_to_foe_hook = nullptr;
	bind(v4("239.1.1.1"), 0x1);
	EXPECT_EQ("[jix_xpon_hwnat_add_flow]index is not correct\n", log_take());

	quor_mc_debug_level = 1;
	bind(arp, 0x1);
	EXPECT_EQ("", log_take());
	EXPECT_TRUE(flows().empty());
	EXPECT_EQ(1, mcst_acnt[0].valid);	// no counter bound either

	// A failed allocation for another flow of the index keeps the older
	// record.
	hw::install();
	hw::drv.foe = 7;
	bind(v4("239.1.1.1"), 0x1);
	bind(v4("239.1.1.2"), 0x3, true);
	EXPECT_EQ("[jix_xpon_hwnat_add_flow]Not enough memory!\n", log_take());
	ASSERT_EQ(1u, flows().size());
	EXPECT_EQ(0x1u, flows()[0].mask);
	EXPECT_EQ(0, memcmp(flows()[0].grp_addr, addr("239.1.1.1").data(), 4));
}

// Frames of a bound flow keep its record in its place: it takes their
// mask and ages again from the latest frame, without allocating.
// Any other flow on the same index (group, source or tags) replaces it.
TEST_F(Hwnat, FramesOfABoundFlowRefreshItsRecordInPlace)
{
	bind(v4("239.1.1.1"), 0x1);
	hwnat_flow_entry *first = jix_xpon_hwnat_find_speed_entry(7);
	hw::drv.foe = 8;
	bind(v4("239.1.1.2"), 0x1);
	hw::drv.foe = 7;
	host_jiffies_advance(2000);
	long live = host_alloc_live();
	bind(v4("239.1.1.1"), 0x10006);
	EXPECT_EQ(live, host_alloc_live());
	EXPECT_EQ(first, jix_xpon_hwnat_find_speed_entry(7));
	auto f = flows();
	ASSERT_EQ(2u, f.size());
	EXPECT_EQ(7, f[0].index);
	EXPECT_EQ(8, f[1].index);
	EXPECT_EQ(0x10006u, f[0].mask);
	EXPECT_EQ(1, f[0].wifi_num);
	EXPECT_EQ(2, host_timers_pending());

	const std::pair<Bytes, const char *> others[] = {
		{ v4("239.1.1.3"), "239.1.1.3" },
		{ v4("239.1.1.1", { c_tag }), "239.1.1.1" },
		{ v6("ff05::1:3"), "ff05::1:3" },
	};
	for (const auto &o : others) {
		bind(o.first, 0x1);
		f = flows();
		ASSERT_EQ(2u, f.size());
		EXPECT_EQ(7, f[1].index);
		EXPECT_EQ(0x1u, f[1].mask);
		Bytes g = addr(o.second);
		EXPECT_EQ(0, memcmp(f[1].grp_addr, g.data(), g.size()));
	}
	EXPECT_EQ(0u, f[1].tag_num);	// the IPv6 flow is untagged
	EXPECT_EQ(2, host_timers_pending());
}

TEST_F(Hwnat, RebindingReplacesTheRecordAndRestartsItsTimer)
{
	bind(v4("239.1.1.1"), 0x1);
	host_jiffies_advance(2000);
	bind(v4("239.1.1.1"), 0x6);
	auto f = flows();
	ASSERT_EQ(1u, f.size());
	EXPECT_EQ(0x6u, f[0].mask);
	unsigned long due = jiffies + 3000;
	host_jiffies_advance(1500);	// past the first record's expiry
	EXPECT_TRUE(hw::drv.calls.empty());
	EXPECT_EQ(1, host_timers_pending());
	EXPECT_EQ(due, flows()[0].timer.expires);	// from the last frame
}

TEST_F(Hwnat, EmptyMaskRemovesTheFlowQuietly)
{
	bind(v4("239.1.1.1"), 0x1);
	quor_mc_debug_level = 3;
	log_take();
	bind(v4("239.1.1.1"), 0);
	EXPECT_EQ("[quor_mcst_clean_group]del the group mapping to acnt_id=100\n"
		  "[jix_xpon_hwnat_add_flow]fwd_port_mask is 0\n", log_take());
	EXPECT_TRUE(flows().empty());
	EXPECT_TRUE(hw::drv.calls.empty());
	EXPECT_EQ(1, mcst_acnt[0].valid);	// its last user gone, the slot is free
}

// The driver's answer at expiry: exactly 1 keeps the flow; anything else,
// or no hook, removes it, deleting the hardware entry when above 0.
struct AgingCase {
	int answer;		// -99: hook absent
	bool kept;
	bool deleted;
};

class Aging : public Hwnat, public ::testing::WithParamInterface<AgingCase> {};

TEST_P(Aging, FlowLivesOnOnlyWhileTheDriverAnswersOne)
{
	const AgingCase c = GetParam();

	bind(v4("239.1.1.1"), 0x1);
	if (c.answer == -99)
		hwnat_is_multicast_entry_hook = nullptr;
	hw::drv.is_mc = c.answer;
	host_jiffies_advance(3000);
	EXPECT_EQ(c.kept ? 1u : 0u, flows().size());
	EXPECT_EQ(c.deleted, hw::called("delete(7)"));
	EXPECT_EQ(c.kept ? 0 : 1, mcst_acnt[0].valid);
	EXPECT_EQ(c.kept ? 1 : 0, host_timers_pending());
	if (c.kept) {
		EXPECT_EQ(jiffies + 3000, flows()[0].timer.expires);
		hw::drv.is_mc = 0;
		host_jiffies_advance(3000);
		EXPECT_TRUE(flows().empty());
	}
}

INSTANTIATE_TEST_SUITE_P(Answers, Aging, ::testing::Values(
	AgingCase{ 1, true, false }, AgingCase{ 2, false, true },
	AgingCase{ 0, false, false }, AgingCase{ -1, false, false },
	AgingCase{ -99, false, false }));

TEST_F(Hwnat, MembershipUpdateReachesTheDriver)
{
	bind(v4("239.1.1.1"), 0x2);
	quor_update_hwnat_entry(7, 0x1FF0002);
	EXPECT_EQ((std::vector<std::string>{ "is_mc(7,0)", "set_info(7,0x1ff0002,0)" }),
		  hw::drv.calls);
	auto f = flows();
	EXPECT_EQ(0x1FF0002u, f[0].mask);
	EXPECT_EQ(9, f[0].wifi_num);

	hw::drv.calls.clear();
	quor_update_hwnat_entry(8, 0x4);
	quor_update_hwnat_entry((u32)-1, 0x4);
	EXPECT_TRUE(hw::drv.calls.empty());
	EXPECT_EQ(0x1FF0002u, flows()[0].mask);

	hw::drv.is_mc = 2;	// above 0 is enough here
	quor_update_hwnat_entry(7, 0x2);
	EXPECT_TRUE(hw::called("set_info(7,0x2,0)"));
	hw::drv.is_mc = 0;	// the engine gave the flow up
	log_take();
	quor_update_hwnat_entry(7, 0x4);
	EXPECT_EQ("[jix_xpon_hwnat_update_flow]not multicast entry,delete it\n", log_take());
	EXPECT_TRUE(flows().empty());
	EXPECT_FALSE(hw::called("delete(7)"));
}

TEST_F(Hwnat, LastMemberLeavingTurnsTheFlowIntoADrop)
{
	u8 id = acnt_id0();
	bind(v4("239.1.1.1", { c_tag }), 0x2);
	host_jiffies_advance(100);
	quor_update_hwnat_entry(7, 0);
	EXPECT_EQ(std::vector<std::string>{ "dp(7,15)" }, hw::drv.calls);
	EXPECT_TRUE(flows().empty());
	auto d = drops();
	ASSERT_EQ(1u, d.size());
	EXPECT_EQ(7, d[0].index);
	EXPECT_EQ(0u, d[0].mask);
	EXPECT_EQ(5, d[0].vid);
	EXPECT_EQ(2u, d[0].proto);
	EXPECT_EQ(0u, d[0].tag_num | d[0].outer_tag | d[0].wifi_num);
	EXPECT_EQ(0, memcmp(d[0].grp_addr, addr("239.1.1.1").data(), 4));
	EXPECT_EQ(0, memcmp(d[0].src_addr, addr("10.0.0.1").data(), 4));
	EXPECT_EQ(103250ul, d[0].timer.expires);	// 100100 rounds up to 100250
	EXPECT_EQ(1, mcst_acnt[0].valid);
	EXPECT_EQ(1ul, host_counter_clears(id));
	EXPECT_EQ(1, host_timers_pending());
}

TEST_F(Hwnat, SwitchMaskTraceNamesTheSwitchPortsOfLanPorts)
{
	host_switch_port_set(0, 4);
	host_switch_port_set(2, 6);
	host_switch_port_set(5, -1);
	bind(v4("239.1.1.1"), 0x1);
	quor_mc_debug_level = 3;
	log_take();
	quor_update_hwnat_entry(7, 0x40025);
	std::string log = log_take();
	EXPECT_NE(std::string::npos, log.find(
		"[quor_update_hwnat_entry]switch_mask = 0x50, entry->mask = 0x40025\n")) << log;
	EXPECT_NE(std::string::npos, log.find(
		"[jix_xpon_hwnat_update_flow]entry->index:7 mask:0x40025\n")) << log;
}

TEST_F(Hwnat, RemovalByIndexAndClearCleanUpTheHardware)
{
	bind(v4("239.1.1.1"), 0x1);
	hw::drv.foe = 8;
	bind(v4("239.1.1.2"), 0x1);
	hw::drv.foe = 0;
	bind(v4("239.1.1.3"), 0x1);

	EXPECT_EQ(0, jix_update_iptv_table_entry(-1));
	EXPECT_EQ(3u, flows().size());
	EXPECT_TRUE(hw::drv.calls.empty());
	jix_xpon_hwnat_del_flow_by_index(7);
	EXPECT_EQ((std::vector<std::string>{ "is_mc(7,0)", "delete(7)" }), hw::drv.calls);
	EXPECT_EQ(1, mcst_acnt[0].valid);	// 239.1.1.1's slot is free
	EXPECT_EQ(0, mcst_acnt[1].valid);
	EXPECT_EQ(0, jix_update_iptv_table_entry(0));
	ASSERT_EQ(1u, flows().size());
	EXPECT_EQ(8, flows()[0].index);

	hw::drv.calls.clear();
	hw::drv.is_mc = 0;	// gone from the engine: nothing to delete
	EXPECT_EQ(0, jix_remove_iptv_table_entry());
	EXPECT_TRUE(flows().empty());
	EXPECT_EQ(std::vector<std::string>{ "is_mc(8,0)" }, hw::drv.calls);
	EXPECT_EQ(1, mcst_acnt[1].valid);
	EXPECT_EQ(0, host_timers_pending());
}

TEST_F(Hwnat, LookupsIgnoreIndexZeroAndBelow)
{
	hw::drv.foe = 0;
	bind(v4("239.1.1.1"), 0x1);
	hw::drv.foe = 8;
	Hwnat::drop(v4("239.9.9.9"));	// a drop record of index 8
	hw::drv.foe = 7;
	bind(v4("239.1.1.2"), 0x1);

	local_bh_disable();
	hwnat_flow_entry *e = multicast_speed_find_entry_hook(7);
	ASSERT_NE(nullptr, e);
	// Read as the driver reads it, by the record's documented offsets.
	const u8 *raw = (const u8 *)e;
	s32 idx;
	memcpy(&idx, raw + QUOR_PEER_FLOW_INDEX, sizeof(idx));
	EXPECT_EQ(7, idx);
	EXPECT_EQ(0, memcmp(raw + QUOR_PEER_FLOW_GRP, addr("239.1.1.2").data(), 4));
	EXPECT_EQ(nullptr, multicast_speed_find_entry_hook(0));
	EXPECT_EQ(nullptr, multicast_speed_find_entry_hook(-1));
	EXPECT_EQ(nullptr, multicast_speed_find_entry_hook(9));
	local_bh_enable();

	e = jix_xpon_hwnat_find_entry(&hwnat_drop_list, 8);
	ASSERT_NE(nullptr, e);
	EXPECT_EQ(0, memcmp(e->grp_addr, addr("239.9.9.9").data(), 4));
	EXPECT_EQ(nullptr, jix_xpon_hwnat_find_entry(nullptr, 7));
	EXPECT_EQ(nullptr, jix_xpon_hwnat_find_entry(&hwnat_flow_list, 0));
}

TEST_F(Hwnat, LearnHookReappliesTheTableForMulticastFramesOnly)
{
	bind(v4("239.1.1.1"), 0x3);
	hw::drv.foe = 8;
	bind(v4("239.1.1.2"), 0x5);
	hw::drv.foe = 9;
	bind(v4("239.1.1.3"), 0x9);
	spin_lock_bh(&hwnat_flow_lock);	// a record whose members are gone
	list_first_entry(&hwnat_flow_list, hwnat_flow_entry, list)->mask = 0;
	spin_unlock_bh(&hwnat_flow_lock);
	quor_mc_debug_level = 3;
	log_take();

	Bytes uni = v4("239.1.1.1");
	uni[0] = 0x00;
	local_bh_disable();
	EXPECT_EQ(0, xpon_igmp_learn_flow_hook(frames::skb_from(uni).get()));
	local_bh_enable();
	EXPECT_TRUE(hw::drv.calls.empty());
	EXPECT_EQ("", log_take());

	local_bh_disable();
	EXPECT_EQ(0, xpon_igmp_learn_flow_hook(frames::skb_from(v4("239.1.1.1")).get()));
	local_bh_enable();
	EXPECT_NE(std::string::npos,
		  log_take().find("[jix_xpon_hwnat_learn_flow]tx bind enter!!!!\n"));
	EXPECT_EQ((std::vector<std::string>{ "delete(7)", "set_info(8,0x5,0)",
					     "set_info(9,0x9,0)" }),
		  hw::calls_of("delete(") + hw::calls_of("set_info("));
	EXPECT_EQ(2u, flows().size());

	// A PPPoE frame to a group counts, whatever its destination MAC.
	hw::drv.calls.clear();
	hw::drv.is_mc = 0;
	Bytes ip = ipv4("10.0.0.9", "239.2.2.2", 17, udp(5000, 5001));
	Bytes ppp = eth(mac("00:11:22:33:44:66"), mac("00:11:22:33:44:55"), {},
			0x8864, pppoe(0x0021, ip));
	local_bh_disable();
	xpon_igmp_learn_flow_hook(frames::skb_from(ppp).get());
	local_bh_enable();
	EXPECT_TRUE(flows().empty());	// the engine holds neither any more
	EXPECT_TRUE(hw::calls_of("delete(").empty());
}

TEST_F(Hwnat, VlanAndDestinationPortReachTheDriver)
{
	bind(v4("239.1.1.1", { s_tag, c_tag }), 0x1);
	quor_mcst_hwnat_update_vlan(7);
	quor_mcst_hwnat_update_vlan(8);
	quor_mc_debug_level = 3;
	quor_mcst_hwnat_update_dp(7, 1);
	EXPECT_EQ("[quor_mcst_hwnat_update_dp]dp=1\n", log_take());
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x88a80064,0x81002005)", "dp(7,1)" }),
		  hw::drv.calls);
	ux_sw_nat_hook_update_vlan = nullptr;
	ux_sw_nat_hook_update_dp = nullptr;
	quor_mcst_hwnat_update_vlan(7);
	quor_mcst_hwnat_update_dp(7, 0);
	EXPECT_EQ(2u, hw::drv.calls.size());
}

} // namespace

// The driver reads the record its find hook returns until it leaves
// softirq, while another processor may clear the flows meanwhile.  Every
// path, the driver's and the packet path's included, takes the table
// locks with bottom halves disabled.
TEST_F(Hwnat, FoundRecordOutlivesItsRemovalAndLocksAreTakenWithBhOff)
{
	unsigned long plain = hwnat_flow_lock.taken_plain + hwnat_drop_lock.taken_plain;

	bind(v4("239.1.1.1"), 0x1);
	bind(v4("239.1.1.1"), 0x3);
	drop(v4("239.1.1.1"));
	jix_xpon_hwnat_learn_flow(frames::skb_from(v4("239.1.1.1")).get());
	host_jiffies_advance(4000);
	EXPECT_EQ(plain, hwnat_flow_lock.taken_plain + hwnat_drop_lock.taken_plain);

	bind(v4("239.1.1.1"), 0x1);
	local_bh_disable();
	hwnat_flow_entry *e = jix_xpon_hwnat_find_speed_entry(7);
	ASSERT_NE(nullptr, e);
	std::thread([] { jix_xpon_hwnat_clear_flows(); }).join();
	EXPECT_EQ(7, e->index);
	EXPECT_EQ(0, memcmp(e->grp_addr, addr("239.1.1.1").data(), 4));
	local_bh_enable();
}
