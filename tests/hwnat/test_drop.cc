// Drop records: made from frames of every supported kind, refreshed by
// later frames, aged while the engine keeps dropping, cleared; and the text
// of /proc/kv7730/jix_mc_hwnat_entry.
#include "hwnat_test.h"

namespace {

const std::string f8 = "8 239.1.1.2<10.0.0.1 p2 t0 0/0 v-1 w0 m1 @103000; ";

// A frame of every supported kind makes a record when the driver drops it;
// there is none when the driver declines, has no hook for it or memory runs
// out.  The flow of the index goes quietly.
TEST_F(Hwnat, DropsMadeFromFramesOfEveryKindThatTheDriverDrops)
{
	Bytes cut = v6("ff05::1:3"), bare = cut;
	cut.resize(14 + 39);
	bare.resize(14 + 40);	// the IPv6 header alone
	// rec "": the frame is left to the caller (-1), nothing asked.
	const struct { const char *name; Bytes frame; int foe; const char *rec; } cases[] = {
		{ "8100", v4("239.1.1.1", { { 0x8100, 0x2064 } }), 7, "239.1.1.1<10.0.0.1 p2 t0 0/0 v100" },
		{ "ipv6", v6("ff05::1:3", { { 0x8100, 9 } }), 7, "ff05::1:3<2001:db8::1 p16 t0 0/0 v9" },
		{ "ipv6 header alone", bare, 7, "ff05::1:3<2001:db8::1 p16 t0 0/0 v-1" },
		{ "index 0", v4("239.1.1.1"), 0, "" },
		{ "arp", eth(mac("01:00:5e:01:01:01"), mac("00:11:22:33:44:55"), {}, 0x0806, Bytes(28, 0)), 7, "" },
		{ "ipv6 header cut", cut, 7, "" },
	};
	for (const auto &c : cases) {
		jix_xpon_hwnat_clear_all_drop();
		drv.calls.clear();
		drv.foe = c.foe;
		EXPECT_EQ(*c.rec ? 0 : -1, drop(c.frame)) << c.name;
		EXPECT_EQ(*c.rec ? std::string("7 ") + c.rec + " w0 m0 @103000; " : "", drops()) << c.name;
		EXPECT_EQ(*c.rec ? "drop_packet " : "", drv.calls) << c.name;
	}
	// Flows at 7 and 8; the driver declines, has no hook, memory runs out.
	bind(v4("239.1.1.1"), 0x1);
	drv.foe = 8;
	bind(v4("239.1.1.2"), 0x1);
	drv.foe = 7;
	drv.drop_packet = 0;
	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	ux_sw_nat_hook_drop_packet = nullptr;
	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	install_driver();
	drv.drop_packet = 1;
	EXPECT_EQ(0, drop(v4("239.1.1.1"), true));
	EXPECT_EQ("7 239.1.1.1<10.0.0.1 p2 t0 0/0 v-1 w0 m1 @103000; " + f8, drops() + flows());

	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	EXPECT_EQ(f8, flows());	// quietly, for its index only
	EXPECT_EQ("drop_packet drop_packet drop_packet ", drv.calls);	// no delete
	hwnat_skb_to_foe_hook = nullptr;	// no flow index to be had
	EXPECT_EQ(-1, drop(v4("239.1.1.1")));
	EXPECT_EQ(-1, multicast_hwnat_drop_entry_hook(nullptr, 0));
}

// A later frame of the index takes over the record's VLAN id and group (all
// 16 bytes for an IPv6 record, none for one of no known family); the timer
// keeps its expiry.
TEST_F(Hwnat, LaterFramesRefreshTheRecordButNotItsTimer)
{
	drop(v4("239.1.1.1", { { 0x8100, 100 } }));
	host_jiffies_advance(1000);
	drop(v4("239.1.1.2", { { 0x8100, 200 } }));
	EXPECT_EQ("7 239.1.1.2<10.0.0.1 p2 t0 0/0 v200 w0 m0 @103000; ", drops());

	jix_xpon_hwnat_clear_all_drop();
	drop(v6("ff05::1:3"));
	drop(v4("239.1.1.2", { { 0x8100, 300 } }));
	EXPECT_EQ("7 ef01:102::<2001:db8::1 p16 t0 0/0 v300 w0 m0 @104000; ", drops());
	list_first_entry(&hwnat_drop_list, hwnat_flow_entry, list)->proto = 3;
	drop(v4("239.1.1.3", { { 0x8100, 400 } }));
	EXPECT_EQ("7 239.1.1.2<2001:db8::1 p3 t0 0/0 v400 w0 m0 @104000; ", drops());
}

// Aging keeps a drop while the driver answers above 0, and removes it,
// deleted in the engine, when the driver answers 0 or has no hook.  A bound
// flow takes the drop of its index quietly; snooping off removes every flow.
TEST_F(Hwnat, DropLivesOnWhileTheDriverAnswersAboveZeroOrUntilCleared)
{
	drop(v6("ff05::1:3"));
	drv.is_drop = 5;
	host_jiffies_advance(3000);
	EXPECT_EQ("7 ff05::1:3<2001:db8::1 p16 t0 0/0 v-1 w0 m0 @106000; ", drops());
	drv.is_drop = 0;
	host_jiffies_advance(3000);
	EXPECT_EQ("drop_packet is_drop(7,1) is_drop(7,1) delete(7) ", drops() + drv.calls);
	host_trace_enable(1);
	drop(v4("239.1.1.1"));
	hwnat_is_drop_entry_hook = nullptr;
	host_jiffies_advance(3000);
	drv.foe = 8;
	drop(v4("239.1.1.2"));
	bind(v4("239.1.1.3"), 0x1);	// takes the drop of its index quietly
	drv.calls.clear();
	ASSERT_EQ(0, quor_igmp_set_snooping(0));
	EXPECT_EQ("is_mc(8,0) delete(8) ", drv.calls);
	EXPECT_EQ("jix_mc_drop_add: group=239.1.1.1 index=7 mask=0x0 vid=-1\n"
		  "jix_mc_drop_del: group=239.1.1.1 index=7 mask=0x0 vid=-1\n"
		  "jix_mc_drop_add: group=239.1.1.2 index=8 mask=0x0 vid=-1\n"
		  "jix_mc_flow_bind: group=239.1.1.3 index=8 mask=0x1 vid=-1\n"
		  "jix_mc_flow_unbind: group=239.1.1.3 index=8 mask=0x1 vid=-1\n", std::string(host_trace_text()));
	host_trace_enable(0);
	EXPECT_EQ("", drops() + flows());
	EXPECT_EQ(0, host_timers_pending());
}

const std::string kHeader = "index proto wifi_num    mask    vid      src_addr\t\t\t\t\tgrp_addr \n";

TEST_F(Hwnat, ProcListsFlowsAndDropsOfEveryFamily)
{
	const struct { int foe; Bytes frame; u64 mask; } recs[] = {	// mask 0: a drop
		{ 7, v4("239.1.1.1", { { 0x8100, 0x0064 } }), 0x30005 },
		{ 12, v6("ff05::1:3"), 0x1ULL << 40 | 0x2 },
		{ 13, v4("239.1.1.3"), 0x1 },
		{ 20, v4("239.2.2.2", { { 0x9100, 0x0005 } }), 0 },
		{ 21, v6("ff0e::abcd:1"), 0 },
		{ 22, v4("239.2.2.3"), 0 },
	};
	for (const auto &r : recs) {
		drv.foe = r.foe;
		r.mask ? (void)bind(r.frame, r.mask) : (void)drop(r.frame);
	}
	// The last record of each list of no known family.
	list_entry(hwnat_flow_list.prev, hwnat_flow_entry, list)->proto = 7;
	list_entry(hwnat_drop_list.prev, hwnat_flow_entry, list)->proto = 0;

	EXPECT_EQ(kHeader + "7\t2\t2\t0x30005\t100\t[10.0.0.1]\t\t\t\t\t[239.1.1.1] \n"
		"12\t16\t0\t0x10000000002\t-1\t[2001:0db8:0000:0000:0000:0000:0000:0001]\t[ff05:0000:0000:0000:0000:0000:0001:0003]\n"
		"13\t7\t0\t0x1\t-1unknown igmp_proto\n"
		"\ndrop list:\n"
		"20    [vid=5]    [239.2.2.2]\n"
		"21    [vid=-1]    [ff0e:0000:0000:0000:0000:0000:abcd:0001]\n"
		"22    [vid=-1]    unknown igmp_proto\n", proc(64));	// read 64 bytes at a time
}

TEST_F(Hwnat, LongTableIsServedWholeOverSuccessiveReads)
{
	std::string want = kHeader;
	char line[128];

	for (int i = 1; i <= 200; i++) {
		drv.foe = i;
		bind(v4("239.3.0.1"), 0xF0000 | (u64)i);
		snprintf(line, sizeof(line), "%d\t2\t4\t0x%X\t-1\t[10.0.0.1]\t\t\t\t\t[239.3.0.1] \n", i, 0xF0000 | i);
		want += line;
	}
	want += "\ndrop list:\n";
	ASSERT_GT(want.size(), 2u * JIX_PROC_PAGE_SIZE);
	EXPECT_EQ(want, proc(4096));
	EXPECT_EQ(want, proc(333));	// windows cut lines anywhere
}

} // namespace
