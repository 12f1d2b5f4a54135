// The flow table: binding from frames, refreshing and replacing, aging by
// the driver's answer, removal, lookups and the driver's hooks.
#include "hwnat_test.h"

#include <thread>

namespace {

const Tag s_tag{ 0x88A8, 0x0064 }, c_tag{ 0x8100, 0x2005 }, c_tag2{ 0x8100, 0x2006 };

// Each frame's flow replaces the record of the index.  Frames that bind
// nothing (no index, type not supported, no memory for the record) leave it
// alone and say why; an empty mask removes the flow quietly.
TEST_F(Hwnat, BindingRecordsTheFlowAndMarksTheGroupCounterOrSaysWhyNot)
{
	Bytes cut = v4("239.1.1.1");
	cut.resize(14 + 19);	// IPv4 header one byte short
	const struct { Bytes frame; const char *rec; } cases[] = {
		{ v4("239.1.1.1", { s_tag, c_tag }), "239.1.1.1<10.0.0.1 p2 t2 88a80064/81002005 v100" },
		{ v4("239.1.1.1", { s_tag, c_tag, c_tag }), "239.1.1.1<10.0.0.1 p2 t0 0/0 v100" },
	};
	host_jiffies_set(100100);	// rounds up to 100250
	for (const auto &c : cases) {
		u32 ctrl = bind(c.frame, 0x30001 | (1ULL << 40));	// bit 40 is no Wi-Fi port
		EXPECT_EQ(std::string("7 ") + c.rec + " w2 m10000030001 @103250; ", flows());
		EXPECT_EQ((u32)mcst_acnt[0].acnt_id << 17, ctrl) << c.rec;
		EXPECT_EQ(0, mcst_acnt[0].valid) << c.rec;
	}
	const std::string kept = flows();
	const struct { Bytes frame; int foe; bool fail; const char *log; } none[] = {
		{ v4("239.1.1.1"), -1, false, "index is not correct\n" },
		{ eth(mac("01:00:5e:01:01:01"), mac("00:11:22:33:44:55"), {}, 0x0806, Bytes(28, 0)),
		  7, false, "eth_type(806) is not support!\n" },
		{ cut, 7, false, "eth_type(800) is not support!\n" },
		{ v4("239.1.1.2"), 7, true, "Not enough memory!\n" },
	};
	quor_mc_debug_level = 2;
	for (const auto &c : none) {
		drv.foe = c.foe;
		bind(c.frame, 0x3, c.fail);
		EXPECT_EQ(std::string("[jix_xpon_hwnat_add_flow]") + c.log, log_take());
		EXPECT_EQ(kept, flows()) << c.log;
	}
	quor_mc_debug_level = 3;
	bind(v4("239.1.1.1"), 0);
	EXPECT_EQ("[quor_mcst_clean_group]del the group mapping to acnt_id=100\n"
		  "[jix_xpon_hwnat_add_flow]fwd_port_mask is 0\n", log_take());
	EXPECT_EQ("", flows() + drv.calls);
	EXPECT_EQ(1, mcst_acnt[0].valid);	// its last user gone, the slot is free
}

// Frames of a bound flow keep its record in its place: it takes their mask
// and ages again from the latest frame, without allocating or asking the
// driver.  Another flow on the same index replaces it.
TEST_F(Hwnat, FramesOfABoundFlowRefreshItsRecordOthersReplaceIt)
{
	const Bytes mine = v4("239.1.1.1", { s_tag, c_tag });
	bind(mine, 0x1);
	hwnat_flow_entry *first = jix_xpon_hwnat_find_speed_entry(7);
	host_jiffies_advance(2000);
	long live = host_alloc_live();
	bind(mine, 0x10006);
	EXPECT_EQ(live, host_alloc_live());
	EXPECT_EQ(first, jix_xpon_hwnat_find_speed_entry(7));
	host_jiffies_advance(1500);	// past the first frame's expiry
	EXPECT_EQ("7 239.1.1.1<10.0.0.1 p2 t2 88a80064/81002005 v100 w1 m10006 @105000; ", flows());
	EXPECT_EQ("", drv.calls);

	// One field differs: the inner tag, then the source.
	const struct { Bytes frame; const char *rec; } others[] = {
		{ v4("239.1.1.1", { s_tag, c_tag2 }), "239.1.1.1<10.0.0.1 p2 t2 88a80064/81002006 v100" },
		{ ipv4_udp_frame("10.0.0.2", "239.1.1.1", 5000, 5001, { s_tag, c_tag2 }),
		  "239.1.1.1<10.0.0.2 p2 t2 88a80064/81002006 v100" },
	};
	for (const auto &o : others) {
		bind(o.frame, 0x1);
		EXPECT_EQ(std::string("7 ") + o.rec + " w0 m1 @106500; ", flows());
	}
	EXPECT_EQ(1, host_timers_pending());
}

// The driver's answer at expiry: exactly 1 keeps the flow; anything else
// removes it, deleting the hardware entry when above 0.
TEST_F(Hwnat, FlowLivesOnOnlyWhileTheDriverAnswersOne)
{
	const struct { int answer; const char *calls; } cases[] = {
		{ 2, "is_mc(7,0) is_mc(7,0) delete(7) " }, { 0, "is_mc(7,0) is_mc(7,0) " },
		{ -1, "is_mc(7,0) is_mc(7,0) " }, { 1, "is_mc(7,0) " } };
	for (const auto &c : cases) {
		drv.calls.clear();
		bind(v4("239.1.1.1"), 0x1);
		drv.is_mc = c.answer;
		host_jiffies_advance(3000);
		std::string kept = "7 239.1.1.1<10.0.0.1 p2 t0 0/0 v-1 w0 m1 @" + std::to_string(jiffies + 3000) + "; ";
		EXPECT_EQ(c.answer == 1 ? kept : "", flows()) << c.answer;
		EXPECT_EQ(c.calls, drv.calls);
		EXPECT_EQ(c.answer == 1 ? 0 : 1, mcst_acnt[0].valid) << c.answer;
	}
}

// The driver's lookups ignore index 0 and below; removal by index takes
// index 0 too (-1 matches none).  Removal by index and clearing delete the
// engine's entry while the engine holds the flow.
TEST_F(Hwnat, LookupsIgnoreIndexZeroAndBelowRemovalCleansUpTheHardware)
{
	for (int i : { 7, 8, 0 }) {
		drv.foe = i;
		bind(v4(i == 7 ? "239.1.1.1" : i ? "239.1.1.2" : "239.1.1.3"), 0x1);
	}
	local_bh_disable();
	hwnat_flow_entry *e = multicast_speed_find_entry_hook(7);
	ASSERT_NE(nullptr, e);
	for (int i : { 0, -1, 9 })
		EXPECT_EQ(nullptr, multicast_speed_find_entry_hook(i)) << i;
	EXPECT_EQ(nullptr, jix_xpon_hwnat_find_entry(&hwnat_flow_list, 0));
	EXPECT_EQ(nullptr, jix_xpon_hwnat_find_entry(nullptr, 7));
	quor_mcst_hwnat_add_drop(e);	// a copy on the drop list
	quor_mcst_hwnat_add_drop(nullptr);
	EXPECT_EQ(list_first_entry(&hwnat_drop_list, hwnat_flow_entry, list),
		  jix_xpon_hwnat_find_entry(&hwnat_drop_list, 7));
	EXPECT_EQ(text(*e), drops());
	local_bh_enable();

	EXPECT_EQ(0, jix_update_iptv_table_entry(-1));
	EXPECT_EQ(0, jix_update_iptv_table_entry(7));
	EXPECT_EQ(0, jix_update_iptv_table_entry(0));
	EXPECT_EQ("is_mc(7,0) delete(7) is_mc(0,0) delete(0) ", drv.calls);
	EXPECT_EQ("8 239.1.1.2<10.0.0.1 p2 t0 0/0 v-1 w0 m1 @103000; ", flows());
	drv.calls.clear();
	hwnat_is_multicast_entry_hook = nullptr;	// no driver to ask: nothing to delete
	EXPECT_EQ(0, jix_remove_iptv_table_entry());
	EXPECT_EQ("", flows() + drv.calls);
}

TEST_F(Hwnat, LearnHookReappliesTheTableForMulticastFramesOnly)
{
	bind(v4("239.1.1.1"), 0x1);
	drv.foe = 8;
	bind(v4("239.1.1.2"), 0x5);
	list_first_entry(&hwnat_flow_list, hwnat_flow_entry, list)->mask = 0;	// members gone
	quor_mc_debug_level = 3;
	log_take();
	Bytes uni = v4("239.1.1.1");
	uni[0] = 0x00;
	EXPECT_EQ(0, xpon_igmp_learn_flow_hook(skb_from(uni).get()));
	EXPECT_EQ("", drv.calls + log_take());
	EXPECT_EQ(0, xpon_igmp_learn_flow_hook(skb_from(v4("239.1.1.1")).get()));
	EXPECT_NE(std::string::npos, log_take().find("[jix_xpon_hwnat_learn_flow]tx bind enter!!!!\n"));
	EXPECT_EQ("is_mc(7,0) delete(7) is_mc(8,0) set_info(8,0x5,0) ", drv.calls);
	// A PPPoE frame to a group counts, whatever its destination MAC.
	drv.calls.clear();
	drv.is_mc = 0;
	Bytes ppp = eth(mac("00:11:22:33:44:66"), mac("00:11:22:33:44:55"), {}, 0x8864,
			pppoe(0x0021, ipv4("10.0.0.9", "239.2.2.2", 17, udp(5000, 5001))));
	EXPECT_EQ(0, xpon_igmp_learn_flow_hook(skb_from(ppp).get()));
	EXPECT_EQ("is_mc(8,0) ", flows() + drv.calls);	// 7 went at the first learn
	EXPECT_NE(std::string::npos, log_take().find("[jix_xpon_hwnat_update_flow]not multicast entry,delete it\n"));
}

// The driver reads the record its find hook returns until it leaves
// softirq, while another processor may clear the flows meanwhile.  Every
// path, the driver's and the packet path's included, takes the table locks
// with bottom halves disabled.
TEST_F(Hwnat, FoundRecordOutlivesItsRemovalAndLocksAreTakenWithBhOff)
{
	unsigned long plain = hwnat_flow_lock.taken_plain + hwnat_drop_lock.taken_plain;
	bind(v4("239.1.1.1"), 0x1);
	bind(v4("239.1.1.1"), 0x3);
	drop(v4("239.1.1.1"));
	jix_xpon_hwnat_learn_flow(skb_from(v4("239.1.1.1")).get());
	host_jiffies_advance(4000);
	EXPECT_EQ(plain, hwnat_flow_lock.taken_plain + hwnat_drop_lock.taken_plain);

	bind(v4("239.1.1.1"), 0x1);
	local_bh_disable();
	hwnat_flow_entry *e = jix_xpon_hwnat_find_speed_entry(7);
	ASSERT_NE(nullptr, e);
	std::string before = text(*e);
	std::thread([] { jix_xpon_hwnat_clear_flows(); }).join();
	EXPECT_EQ(before, text(*e));
	local_bh_enable();
}

} // namespace
