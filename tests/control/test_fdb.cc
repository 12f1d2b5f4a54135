// The forwarding database: the entry operations with the calls they make
// into offload code, the switches, the bound, lookups and accounting.
#include "support/module_fixture.h"

using namespace jt;

namespace {

class Fdb : public ModuleTest {};

// An add beyond the bound fails and changes nothing, a refresh still
// works, and the refusal is logged rate-limited.  Which fields separate
// entries in modes 0..5 is checked against a plain list walk in
// tests/datapath/test_portmask.cc; here what is left: the key's family
// gives the width, and any other mode finds nothing.
TEST_F(Fdb, BoundAndLookupWidth)
{
	auto a = entry(1, "239.1.1.1"), k = a;
	std::string ten;

	EXPECT_EQ(16384u, igmp_fdb_max_entries);
	igmp_fdb_max_entries = 2;
	add_entry(1, "239.1.1.1"), add_entry(2, "239.1.1.1");
	fake::reset();
	host_log_clear();
	for (int i = 0; i < 20; i++)
		EXPECT_EQ(-1, add_entry(3, "239.1.1.1"));
	for (int i = 0; i < 10; i++) ten += "[quor_igmp_add_entry]forwarding database is full (2 entries)\n";
	EXPECT_EQ(ten, log_take());
	EXPECT_TRUE(fake::calls.empty());
	a.vlan_mode = 3;
	EXPECT_EQ(0, quor_igmp_add_entry(&a));
	EXPECT_EQ("m4 s1 1:-1:3 2:-1:0", fdb_state());
	spin_lock_bh(&igmp_fdb_lock);
	k.grp_ip.addr[10] = 0x55;	// beyond the IPv4 width: ignored
	EXPECT_NE(nullptr, igmp_find_entry(&k));
	k.grp_ip.isipv6 = 1;
	EXPECT_EQ(nullptr, igmp_find_entry(&k));
	WRITE_ONCE(igmp_filter_mode, 6u);
	EXPECT_EQ(nullptr, igmp_find_entry(&a));
	WRITE_ONCE(igmp_filter_mode, 4u);
	spin_unlock_bh(&igmp_fdb_lock);
}

// Counts run from the bases taken when the entry was bound (a refresh of
// the same group keeps them), across a wrap of the counter; the port's
// software counters are added to the totals and reset (none beyond port
// 33).  (Capacities claimed through the ioctl: fuzz_ioctl.)
TEST_F(Fdb, EntriesCountFromTheirBinding)
{
	auto a = entry(1, "239.1.1.1"), b = entry(1, "239.1.1.2");
	u8 id_a = mcst_acnt[0].acnt_id, id_b = mcst_acnt[1].acnt_id;
	igmp_entry_info rec[4];
	igmp_entry_get_req req = get_req(1, rec, 4);
	memset(rec, 0xAB, sizeof(rec));	// only what a record holds is written

	quor_mc_debug_level = 2;
	host_counter_set(id_a, 1000, 10);
	quor_igmp_add_entry(&a);
	std::string log = log_take();
	EXPECT_NE(std::string::npos, log.find("[quor_mcst_match_group]set the group ip to acnt table\n"));
	EXPECT_NE(std::string::npos, log.find("[igmp_set_entry_base_acnt]acnt grp_" +
					      std::to_string(id_a) + ": byte_base=1000\n")) << log;
	host_counter_set(id_b, 0xFFFFFFFFFFFFFF00ull, 0xFFFFFFF0ull);
	quor_igmp_add_entry(&b);
	host_counter_set(id_a, 1500, 15);
	quor_igmp_add_entry(&a);
	host_counter_set(id_b, 0x100, 0x10);
	add_entry(2, "239.1.1.2");	// the group's slot, wherever it is
	EXPECT_EQ(id_b, fdb_entries().back().acnt.acnt_id);
	for (int i = 0; i < 3; i++) set_sw_cnt_by_port(1, 100);
	req.total_pkts = 1;	// added to, never cleared
	unsigned long locked = host_counter_reads_locked();
	EXPECT_EQ(2, quor_igmp_get_entry(&req));
	EXPECT_EQ(locked, host_counter_reads_locked()) << "counters read under a lock";
	EXPECT_EQ((std::vector<u64>{ 2, 5, 500, 0x20, 0x200, 1 + 5 + 0x20 + 3, 500 + 0x200 + 300 }),
		  (std::vector<u64>{ (u64)req.entry_num, rec[0].pkt_acnt, rec[0].byte_acnt, rec[1].pkt_acnt,
				     rec[1].byte_acnt, req.total_pkts, req.total_bytes }));
	EXPECT_EQ(0, memcmp(rec[1].grp_ip.addr, b.grp_ip.addr, 4));
	EXPECT_EQ(0, rec[1].grp_ip.isipv6);
	EXPECT_EQ(0, memcmp(rec[1].grp_mac, b.grp_mac, 6));
	req = get_req(1, rec, 1);
	EXPECT_EQ(1, quor_igmp_get_entry(&req));
	EXPECT_EQ(5u, req.total_pkts) << "software counters were reset";
	for (u8 port : { 33, 34 }) {
		set_sw_cnt_by_port(port, 10);
		req = get_req(port, nullptr, 0);
		EXPECT_EQ(0, quor_igmp_get_entry(&req));
		EXPECT_EQ(port == 33 ? 10u : 0u, req.total_bytes) << (int)port;
	}
	quor_mc_debug_level = 1;
	host_log_clear();
	EXPECT_EQ(-1, quor_igmp_get_entry(nullptr));
	EXPECT_EQ("[quor_igmp_get_entry]NULL point\n", log_take());
}

// A group keeps its accounting slot while an entry of it lives, so joins
// and leaves leave every slot free.  A full table does not fail the add
// and says so once a second, not per call.
TEST_F(Fdb, SlotsLiveWithTheirGroups)
{
	auto valid = [] {
		return std::count_if(std::begin(mcst_acnt), std::end(mcst_acnt),
				     [](const mcst_acnt_slot &s) { return s.valid; });
	};
	for (int i = 1; i <= 40; i++) {
		auto e = entry(1, ("239.4.0." + std::to_string(i)).c_str());
		quor_igmp_add_entry(&e), quor_igmp_del_entry(&e);
	}
	EXPECT_EQ(MCST_ACNT_NUM, valid());
	for (int i = 1; i <= MCST_ACNT_NUM; i++) add_entry(1, ("239.2.0." + std::to_string(i)).c_str());
	EXPECT_EQ(0, valid());
	quor_mc_debug_level = 0;
	host_log_clear();
	host_trace_enable(1);
	for (const char *g : { "239.3.3.3", "239.3.3.4" })
		EXPECT_EQ(0, add_entry(1, g));
	EXPECT_EQ("mcst acnt table is full\n", log_take());
	EXPECT_EQ("jix_mc_table_full: group=239.3.3.3\njix_mc_table_full: group=239.3.3.4\n",
		  std::string(host_trace_text()));
	host_trace_enable(0);
	EXPECT_EQ(0, fdb_entries().back().acnt.bound);
}

} // namespace
