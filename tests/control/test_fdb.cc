// The forwarding database: lookups under every filter mode and the entry
// operations with the calls they make into offload code.
#include "support/module_fixture.h"

#include <algorithm>

using namespace jt;

namespace {

class Fdb : public ModuleTest {};

void set_flow_idx(u8 port, s32 idx)
{
	igmp_fdb_entry *e;

	spin_lock_bh(&igmp_fdb_lock);
	list_for_each_entry(e, igmp_get_fdb_list(), list)
		if (e->port == port)
			e->flow_idx = idx;
	spin_unlock_bh(&igmp_fdb_lock);
}

struct ProgResult {
	int found;
	s32 flow;
	u64 mask;
};

ProgResult programme(const igmp_entry_info &key, u32 op)
{
	ProgResult r{ 0, -1, 0 };

	spin_lock_bh(&igmp_fdb_lock);
	r.found = igmp_is_programme_exist(&key, &r.flow, &r.mask, op);
	spin_unlock_bh(&igmp_fdb_lock);
	return r;
}

igmp_fdb_entry *find(const igmp_entry_info &key)
{
	spin_lock_bh(&igmp_fdb_lock);
	igmp_fdb_entry *e = igmp_find_entry(&key);
	spin_unlock_bh(&igmp_fdb_lock);
	return e;
}

TEST_F(Fdb, FirstMemberRemovesDropEntrySecondUpdatesHardwareMask)
{
	auto a = entry(1, "239.1.1.1"), b = entry(3, "239.1.1.1");

	quor_mc_debug_level = 3;
	EXPECT_EQ(0, quor_igmp_add_entry(&a));
	EXPECT_NE(std::string::npos,
		  log_take().find("[quor_igmp_add_entry]delete drop entry\n"));
	EXPECT_EQ(std::vector<std::string>{ "add_iptv(239.1.1.1)" }, fake::calls);
	EXPECT_EQ(-1, fdb_entries()[0].flow_idx);

	set_flow_idx(1, 5);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_add_entry(&b));
	EXPECT_NE(std::string::npos,
		  log_take().find("[quor_igmp_add_entry]flow_idx = 5, port_mask = 0xa\n"));
	EXPECT_EQ((std::vector<std::string>{ "check_vlan(5,0xa)", "update_hwnat(5,0xa)" }),
		  fake::calls);
	auto v = fdb_entries();
	ASSERT_EQ(2u, v.size());
	EXPECT_EQ(5, v[1].flow_idx);
	EXPECT_EQ(3, v[1].port);
}

TEST_F(Fdb, AddOfExistingKeyRefreshesInPlace)
{
	auto a = entry(1, "239.1.1.1");

	quor_igmp_add_entry(&a);
	set_flow_idx(1, 9);
	fake::reset();
	a.vlan_mode = JIX_VLAN_STRIP;
	a.outer_tci = 0x123;
	EXPECT_EQ(0, quor_igmp_add_entry(&a));
	auto v = fdb_entries();
	ASSERT_EQ(1u, v.size());
	EXPECT_EQ(9, v[0].flow_idx);
	EXPECT_EQ((u32)JIX_VLAN_STRIP, v[0].vlan_mode);
	EXPECT_EQ(0x123, v[0].outer_tci);
	// Still a member: the hardware gets the unchanged mask.
	EXPECT_TRUE(has_call("update_hwnat(9,0x2)"));
}

TEST_F(Fdb, AddFailsCleanlyWithoutMemory)
{
	auto a = entry(1, "239.1.1.1");

	host_alloc_fail_nth(1);
	EXPECT_EQ(-1, quor_igmp_add_entry(&a));
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(-1, quor_igmp_add_entry(nullptr));
}

TEST_F(Fdb, DeleteReportsRemainingMembersAndLastLeaves)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.1");

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	set_flow_idx(1, 4);
	set_flow_idx(2, 4);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_del_entry(&a));
	EXPECT_EQ((std::vector<std::string>{ "check_vlan(4,0x4)", "update_hwnat(4,0x4)" }),
		  fake::calls);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_del_entry(&b));
	EXPECT_TRUE(has_call("update_hwnat(4,0x0)"));
	EXPECT_TRUE(fdb_entries().empty());
	// Deleting what is not there succeeds and calls nothing.
	fake::reset();
	EXPECT_EQ(0, quor_igmp_del_entry(&b));
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(-1, quor_igmp_del_entry(nullptr));
}

TEST_F(Fdb, UpdateChangesEntryAndForcesRelearn)
{
	auto a = entry(1, "239.1.1.1");

	EXPECT_EQ(-1, quor_igmp_update_entry(&a));
	quor_igmp_add_entry(&a);
	fake::reset();
	a.vlan_mode = JIX_VLAN_ADD;
	EXPECT_EQ(0, quor_igmp_update_entry(&a));
	EXPECT_TRUE(fake::calls.empty()); // flow_idx -1: no hardware flow
	EXPECT_EQ((u32)JIX_VLAN_ADD, fdb_entries()[0].vlan_mode);
	set_flow_idx(1, 0);
	EXPECT_EQ(0, quor_igmp_update_entry(&a));
	EXPECT_EQ(std::vector<std::string>{ "del_flow(0)" }, fake::calls);
}

TEST_F(Fdb, ClearByPortDeletesOnlyThatPortThroughDelete)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.1"),
	     c = entry(1, "ff0e::1");

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	quor_igmp_add_entry(&c);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_clear_entry_by_port(1));
	auto v = fdb_entries();
	ASSERT_EQ(1u, v.size());
	EXPECT_EQ(2, v[0].port);
	// Each deletion told the hardware the remaining members.
	EXPECT_TRUE(has_call("update_hwnat(-1,0x4)"));
	EXPECT_TRUE(has_call("update_hwnat(-1,0x0)"));
	EXPECT_TRUE(list_empty(igmp_get_fdb_tmp_list()));
}

TEST_F(Fdb, ClearByPortWithoutMemoryDeletesNothing)
{
	auto a = entry(1, "239.1.1.1"), b = entry(1, "239.1.1.2");

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	host_alloc_fail_nth(2); // the second holding copy
	EXPECT_EQ(-1, quor_igmp_clear_entry_by_port(1));
	EXPECT_EQ(2u, fdb_entries().size());
}

TEST_F(Fdb, ClearAllEmptiesAndDropsHardwareFlows)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.2");

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	fake::reset();
	quor_igmp_clear_all_entry();
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_EQ(std::vector<std::string>{ "clear_flows" }, fake::calls);
}

// Which fields separate entries in modes 0..5 is checked against a plain
// list walk in tests/datapath/test_fdb_index.cc; any other mode finds
// nothing.
TEST_F(Fdb, UnknownFilterModeFindsNothing)
{
	auto base = entry(1, "239.1.1.1", 10);

	quor_igmp_add_entry(&base);
	EXPECT_NE(nullptr, find(base));
	EXPECT_EQ(1, programme(base, 0).found);
	WRITE_ONCE(igmp_filter_mode, 6u);
	EXPECT_EQ(nullptr, find(base));
	EXPECT_EQ(0, programme(base, 0).found);
}

TEST_F(Fdb, AddressFamilyComesFromTheKey)
{
	auto v4 = entry(1, "239.1.1.1");

	quor_igmp_add_entry(&v4);
	auto key = v4;
	key.grp_ip.addr[10] = 0x55; // beyond the IPv4 width: ignored
	EXPECT_NE(nullptr, find(key));
	key.grp_ip.isipv6 = 1; // compared on all 16 bytes now
	EXPECT_EQ(nullptr, find(key));
	auto v6 = entry(2, "ff0e::1:2");
	quor_igmp_add_entry(&v6);
	auto k6 = v6;
	k6.grp_ip.addr[15] ^= 1;
	EXPECT_EQ(nullptr, find(k6));
}

TEST_F(Fdb, ProgrammeWalkCollectsMembersAndNewestFlow)
{
	quor_igmp_set_filterMode(IGMP_FILTER_MAC);
	auto a = entry(0, "239.1.1.1"), b = entry(5, "239.9.9.9");
	memcpy(b.grp_mac, a.grp_mac, 6); // one programme under MAC mode
	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	set_flow_idx(0, 7);
	set_flow_idx(5, 8);

	auto key = a;
	key.port = 9;
	auto r = programme(key, IGMP_PROG_OP_ADD);
	EXPECT_EQ(1, r.found);
	EXPECT_EQ(8, r.flow); // the newest member's
	EXPECT_EQ((1ull << 0) | (1ull << 5) | (1ull << 9), r.mask);
	key.port = 5;
	r = programme(key, IGMP_PROG_OP_DEL);
	EXPECT_EQ(1ull, r.mask);
	key.grp_mac[0] = 0x11;
	r = programme(key, IGMP_PROG_OP_ADD);
	EXPECT_EQ(0, r.found);
	EXPECT_EQ(-1, r.flow);
	EXPECT_EQ(0u, r.mask);
	// The only member leaving leaves an empty mask.
	quor_igmp_del_entry(&a);
	key = b;
	r = programme(key, IGMP_PROG_OP_DEL);
	EXPECT_EQ(1, r.found);
	EXPECT_EQ(0u, r.mask);
}

TEST_F(Fdb, PortBitsSignExtendAndWrap)
{
	EXPECT_EQ(0xFFFFFFFF80000000ull, jix_port_bit(31));
	EXPECT_EQ(1ull, jix_port_bit(32));
	EXPECT_EQ(2ull, jix_port_bit(33));
	EXPECT_EQ(1ull << 30, jix_port_bit(30));
	auto a = entry(31, "239.1.1.1"), b = entry(16, "239.1.1.1");
	quor_igmp_add_entry(&a);
	fake::reset();
	quor_igmp_add_entry(&b);
	EXPECT_TRUE(has_call("update_hwnat(-1,0xffffffff80010000)"));
}

TEST_F(Fdb, FilterModeChangeEmptiesTheDatabase)
{
	auto a = entry(1, "239.1.1.1");

	quor_igmp_add_entry(&a);
	quor_igmp_set_filterMode(4); // same mode keeps entries
	EXPECT_EQ(1u, fdb_entries().size());
	quor_igmp_set_filterMode(6); // refused
	EXPECT_EQ(1u, fdb_entries().size());
	EXPECT_EQ(4u, igmp_filter_mode);
	fake::reset();
	quor_igmp_set_filterMode(5);
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_EQ(5u, igmp_filter_mode);
	EXPECT_EQ(std::vector<std::string>{ "clear_flows" }, fake::calls);
	// The refusal message is an error: gated at level 1.
	host_log_clear();
	quor_mc_debug_level = 0;
	quor_igmp_set_filterMode(9);
	EXPECT_EQ("", log_take());
}

TEST_F(Fdb, SnoopingSwitch)
{
	auto a = entry(1, "239.1.1.1");

	quor_igmp_add_entry(&a);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_set_snooping(1)); // unchanged: nothing
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(0, quor_igmp_set_snooping(0));
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_EQ((std::vector<std::string>{ "clear_flows", "clear_drop", "clear_flows" }),
		  fake::calls);
	fake::reset();
	EXPECT_EQ(0, quor_igmp_set_snooping(7));
	EXPECT_EQ(std::vector<std::string>{ "clear_flows" }, fake::calls);
	EXPECT_EQ(7, quor_igmp_get_snooping());
}

TEST_F(Fdb, EntriesCountFromTheirBindingAndAcrossWrap)
{
	auto a = entry(1, "239.1.1.1"), b = entry(1, "239.1.1.2");
	u8 id_a = mcst_acnt[0].acnt_id, id_b = mcst_acnt[1].acnt_id;

	host_counter_set(id_a, 1000, 10);
	quor_igmp_add_entry(&a); // binds slot 0 with bases 1000/10
	host_counter_set(id_b, 0xFFFFFFFFFFFFFF00ull, 0xFFFFFFF0ull);
	quor_igmp_add_entry(&b); // slot 1, bases near the top
	host_counter_set(id_a, 1500, 15);
	host_counter_set(id_b, 0x100, 0x10); // both wrapped
	for (int i = 0; i < 3; i++)
		set_sw_cnt_by_port(1, 100);

	igmp_entry_info rec[4]{};
	igmp_entry_get_req req = get_req(1, rec, 4);
	req.total_pkts = 1; // added to, never cleared
	unsigned long locked = host_counter_reads_locked();
	EXPECT_EQ(2, quor_igmp_get_entry(&req));
	EXPECT_EQ(locked, host_counter_reads_locked()) << "counters read under a lock";
	EXPECT_EQ(2, req.entry_num);
	EXPECT_EQ(5u, rec[0].pkt_acnt);
	EXPECT_EQ(500u, rec[0].byte_acnt);
	EXPECT_EQ(0x20u, rec[1].pkt_acnt);
	EXPECT_EQ(0x200u, rec[1].byte_acnt);
	EXPECT_EQ(1u + 5 + 0x20 + 3, req.total_pkts);
	EXPECT_EQ(500u + 0x200 + 300, req.total_bytes);
	u32 sb = 1, sp = 1;
	get_sw_cnt_by_port(1, &sb, &sp); // read and reset
	EXPECT_EQ(0u, sp + sb);
	EXPECT_EQ(0, memcmp(rec[0].grp_ip.addr, a.grp_ip.addr, 16));
	EXPECT_EQ(0, memcmp(rec[0].grp_mac, a.grp_mac, 6));
}

TEST_F(Fdb, CapacityLimitsRecordsAndZeroStillReadsPortCounters)
{
	auto a = entry(2, "239.1.1.1"), b = entry(2, "239.1.1.2");
	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	igmp_entry_info rec[1]{};
	igmp_entry_get_req req = get_req(2, rec, 1);
	EXPECT_EQ(1, quor_igmp_get_entry(&req));
	EXPECT_EQ(0, memcmp(rec[0].grp_ip.addr, a.grp_ip.addr, 4));

	for (int i = 0; i < 4; i++)
		set_sw_cnt_by_port(2, 1);
	req = {};
	req.port_id = 2;
	EXPECT_EQ(0, quor_igmp_get_entry(&req));
	EXPECT_EQ(4u, req.total_pkts);
	EXPECT_EQ(0, quor_igmp_get_entry(&req)); // read and reset
	EXPECT_EQ(4u, req.total_pkts);

	req = {};
	req.port_id = 34; // no software counters beyond port 33
	set_sw_cnt_by_port(34, 9);
	EXPECT_EQ(0, quor_igmp_get_entry(&req));
	EXPECT_EQ(0u, req.total_pkts);
	quor_mc_debug_level = 1;
	host_log_clear();
	EXPECT_EQ(-1, quor_igmp_get_entry(nullptr));
	EXPECT_EQ("[quor_igmp_get_entry]NULL point\n", log_take());
}

// The database is bounded: an add beyond the bound fails and changes
// nothing, a refresh still works, and the refusal is logged rate-limited.
TEST_F(Fdb, AddsBeyondTheBoundFail)
{
	const std::string full = "[quor_igmp_add_entry]forwarding database is full (2 entries)\n";
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.1"), c = entry(3, "239.1.1.1");

	EXPECT_EQ(16384u, igmp_fdb_max_entries);
	igmp_fdb_max_entries = 2;
	EXPECT_EQ(0, quor_igmp_add_entry(&a));
	EXPECT_EQ(0, quor_igmp_add_entry(&b));
	fake::reset();
	host_log_clear();
	for (int i = 0; i < 20; i++)
		EXPECT_EQ(-1, quor_igmp_add_entry(&c));
	EXPECT_EQ(2u, fdb_entries().size());
	EXPECT_TRUE(fake::calls.empty());
	std::string log = log_take(), ten;
	for (int i = 0; i < 10; i++)
		ten += full;
	EXPECT_EQ(ten, log);
	a.vlan_mode = 3;
	EXPECT_EQ(0, quor_igmp_add_entry(&a));
	EXPECT_EQ(3u, fdb_entries()[0].vlan_mode);
	igmp_fdb_max_entries = IGMP_FDB_MAX_ENTRIES;
}

TEST_F(Fdb, RefreshKeepsBasesOfTheSameGroup)
{
	auto a = entry(1, "239.1.1.1");
	u8 id = mcst_acnt[0].acnt_id;

	host_counter_set(id, 100, 1);
	quor_igmp_add_entry(&a);
	host_counter_set(id, 200, 2);
	quor_igmp_add_entry(&a); // refresh
	auto v = fdb_entries();
	EXPECT_EQ(100u, v[0].acnt.byte_base);
	EXPECT_EQ(id, v[0].acnt.acnt_id);
}

// A group keeps its accounting slot while an entry or a flow of it lives,
// so joining and leaving groups without traffic leaves every slot free.  A
// full table does not fail the add and says so once a second, not per call.
TEST_F(Fdb, SlotsLiveWithTheirGroupsAndAFullTableIsSaidOnce)
{
	char grp[32];
	for (int i = 0; i < 40; i++) {
		snprintf(grp, sizeof(grp), "239.4.0.%d", i + 1);
		auto e = entry(1, grp);
		quor_igmp_add_entry(&e);
		quor_igmp_del_entry(&e);
	}
	EXPECT_EQ(MCST_ACNT_NUM, std::count_if(std::begin(mcst_acnt), std::end(mcst_acnt),
					       [](const mcst_acnt_slot &s) { return s.valid; }));
	for (int i = 0; i < MCST_ACNT_NUM; i++) {
		snprintf(grp, sizeof(grp), "239.2.0.%d", i + 1);
		auto e = entry(1, grp);
		quor_igmp_add_entry(&e);
	}
	host_log_clear();
	quor_mc_debug_level = 0;
	host_trace_enable(1);
	for (const char *g : { "239.3.3.3", "239.3.3.4" }) {
		auto extra = entry(1, g);
		EXPECT_EQ(0, quor_igmp_add_entry(&extra));
	}
	EXPECT_EQ("mcst acnt table is full\n", log_take());
	EXPECT_EQ("jix_mc_table_full: group=239.3.3.3\njix_mc_table_full: group=239.3.3.4\n",
		  std::string(host_trace_text()));
	host_trace_enable(0);
	EXPECT_EQ(0, fdb_entries().back().acnt.bound);
}

// Slots whose counter the pool could not give stay unused: never bound to
// a group, never given back (another owner's counter would be).
class FewCounters : public ModuleTest {
	void before_start() override
	{
		u8 rec[64];
		for (int i = 0; i < 150; i++) {	// the pool has 156
			memset(rec, 0, sizeof(rec));
			rec[0] = 19;		// take
			char *name = (char *)rec + 40;
			memcpy(rec + 16, &name, sizeof(name));
			__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_POOL, 0, rec);
		}
	}
};

TEST_F(FewCounters, SlotsWithoutACounterStayUnused)
{
	char grp[32];
	for (int i = 0; i < 10; i++) {
		snprintf(grp, sizeof(grp), "239.2.0.%d", i + 1);
		auto e = entry(1, grp);
		quor_igmp_add_entry(&e);
	}
	EXPECT_EQ(6, std::count_if(std::begin(mcst_acnt), std::end(mcst_acnt),
				   [](const mcst_acnt_slot &s) { return s.grp_addr[0] != 0; }));
	stop();
	EXPECT_EQ(150, host_counters_taken());	// only its own six went back
}

TEST_F(Fdb, AccountingTracesAtLevelTwo)
{
	auto a = entry(1, "239.1.1.1");
	quor_mc_debug_level = 2;
	host_counter_set(mcst_acnt[0].acnt_id, 77, 7);
	quor_igmp_add_entry(&a);
	std::string log = log_take();
	char want[128];
	snprintf(want, sizeof(want), "[igmp_set_entry_base_acnt]acnt grp_%d: byte_base=77\n",
		 mcst_acnt[0].acnt_id);
	EXPECT_NE(std::string::npos, log.find(want)) << log;
	EXPECT_NE(std::string::npos, log.find("[quor_mcst_match_group]set the group ip to acnt table\n"));
}

// The database lock is always taken with bottom halves disabled, by every
// operation; a plain spin_lock from process context could deadlock
// against the packet path on the same processor.
TEST_F(Fdb, DatabaseLockOnlyWithBottomHalvesDisabled)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "ff0e::1");
	unsigned long bh0 = igmp_fdb_lock.taken_bh;

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	quor_igmp_update_entry(&a);
	igmp_entry_info rec[2]{};
	igmp_entry_get_req req = get_req(1, rec, 2);
	quor_igmp_get_entry(&req);
	quor_igmp_set_snooping(0);
	quor_igmp_set_snooping(1);
	quor_igmp_add_entry(&a);
	quor_igmp_clear_entry_by_port(1);
	quor_igmp_del_entry(&b);
	host_proc_read_all("kv7730/jix_mc_fwd_entry", 4096);
	EXPECT_GT(igmp_fdb_lock.taken_bh, bh0);
	EXPECT_EQ(0u, igmp_fdb_lock.taken_plain);
	EXPECT_FALSE(in_softirq());
}

} // namespace
