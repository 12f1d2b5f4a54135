// Lifetime of records and timers: a flow's whole life through membership
// changes; expiries that fire while another path removes or replaces their
// record; module stop with records, pending timers and an expiry in
// flight; all paths at once (for ThreadSanitizer).
#include "hwnat_test.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

using namespace frames;
using jt::entry;

namespace {

// What another processor does after a timer fired and before its
// function took the lock; runs once.
std::function<void()> meanwhile;

void run_meanwhile(struct timer_list *)
{
	auto f = std::move(meanwhile);
	meanwhile = nullptr;
	if (f)
		f();
}

class Life : public Hwnat {
protected:
	void SetUp() override
	{
		Hwnat::SetUp();
		host_timer_set_prerun(run_meanwhile);
	}
	void TearDown() override
	{
		host_timer_set_prerun(nullptr);
		meanwhile = nullptr;
		Hwnat::TearDown();
	}
};

TEST_F(Life, AFlowFromFirstFrameToModuleStop)
{
	auto p1 = entry(1, "239.1.1.1"), p3 = entry(3, "239.1.1.1");
	const Bytes f = v4("239.1.1.1");
	u8 id = mcst_acnt[0].acnt_id;

	host_trace_enable(1);
	// The first frame of a joined group binds the flow and is marked with
	// the group's counter, the one its entry counts on.
	host_counter_set(id, 1000, 10);
	ASSERT_EQ(0, quor_igmp_add_entry(&p1));
	u64 m = members(f);
	ASSERT_EQ(0x2u, m);
	EXPECT_EQ((u32)id << 17, bind(f, m));
	ASSERT_EQ(1u, flows().size());
	EXPECT_EQ(7, jt::fdb_entries()[0].flow_idx);
	host_counter_set(id, 1600, 16);	// the engine counted marked frames
	igmp_entry_info rec[1]{};
	igmp_entry_get_req req = jt::get_req(1, rec, 1);
	ASSERT_EQ(1, quor_igmp_get_entry(&req));
	EXPECT_EQ(6u, rec[0].pkt_acnt);
	EXPECT_EQ(600u, rec[0].byte_acnt);

	// A second member reaches the driver.
	ASSERT_EQ(0, quor_igmp_add_entry(&p3));
	EXPECT_TRUE(hw::called("set_info(7,0xa,0)"));
	EXPECT_EQ(0xAu, flows()[0].mask);

	// Both leave: the flow becomes a drop entry, its counter released.
	ASSERT_EQ(0, quor_igmp_del_entry(&p1));
	EXPECT_TRUE(hw::called("set_info(7,0x8,0)"));
	ASSERT_EQ(0, quor_igmp_del_entry(&p3));
	EXPECT_TRUE(hw::called("dp(7,15)"));
	EXPECT_TRUE(flows().empty());
	ASSERT_EQ(1u, drops().size());
	EXPECT_EQ(1, mcst_acnt[0].valid);
	EXPECT_EQ(1ul, host_counter_clears(id));

	// A new member undoes the drop in the engine.
	auto p2 = entry(2, "239.1.1.1");
	ASSERT_EQ(0, quor_igmp_add_entry(&p2));
	EXPECT_EQ(std::vector<std::string>{ "delete(7)" }, hw::calls_of("delete("));
	EXPECT_TRUE(drops().empty());

	// Its frames bind the flow again, until the engine gives it up.
	m = members(f);
	ASSERT_EQ(0x4u, m);
	bind(f, m);
	host_jiffies_advance(2999);
	EXPECT_EQ(1u, flows().size());
	hw::drv.is_mc = 0;
	host_jiffies_advance(1);
	EXPECT_TRUE(flows().empty());
	EXPECT_EQ(1u, hw::calls_of("delete(").size());	// nothing left to delete

	// Stop (entries left) with a bound flow and a drop, timers pending.
	hw::drv.foe = 9;
	bind(v4("239.5.5.5"), 0x1);
	hw::drv.foe = 10;
	drop(v4("239.6.6.6"));
	EXPECT_EQ(2, host_timers_pending());
	// Every step of the flow's life left its event.
	EXPECT_EQ("jix_mc_flow_bind: group=239.1.1.1 index=7 mask=0x2 vid=-1\n"
		  "jix_mc_drop_add: group=239.1.1.1 index=7 mask=0x0 vid=-1\n"
		  "jix_mc_drop_del: group=239.1.1.1 index=7 mask=0x0 vid=-1\n"
		  "jix_mc_flow_bind: group=239.1.1.1 index=7 mask=0x4 vid=-1\n"
		  "jix_mc_flow_unbind: group=239.1.1.1 index=7 mask=0x4 vid=-1\n"
		  "jix_mc_flow_bind: group=239.5.5.5 index=9 mask=0x1 vid=-1\n"
		  "jix_mc_drop_add: group=239.6.6.6 index=10 mask=0x0 vid=-1\n",
		  std::string(host_trace_text()));
	host_trace_enable(0);
	stop();
	EXPECT_EQ(0, host_timers_pending());
	EXPECT_EQ(nullptr, xpon_igmp_learn_flow_hook);
}

// With the database empty, stop releases flows quietly but deletes each
// drop in the engine, so a reload does not find those groups dropped.
TEST_F(Life, StopDeletesDropsInTheEngineAndFlowsQuietly)
{
	for (int i = 1; i <= 3; i++) {
		hw::drv.foe = i;
		bind(v4("239.1.1.1"), 0x1);
	}
	hw::drv.foe = 20;
	drop(v6("ff05::1:3"));
	quor_update_hwnat_entry(3, 0);	// a drop made from a flow
	host_jiffies_advance(3000);	// re-armed once by their expiries
	EXPECT_EQ(4, host_timers_pending());
	hw::drv.calls.clear();
	stop();
	EXPECT_EQ((std::vector<std::string>{ "delete(20)", "delete(3)" }), hw::drv.calls);
	EXPECT_EQ(0, host_timers_pending());
}

TEST_F(Life, AFlowRemovedWhileItsExpiryIsInFlight)
{
	bind(v4("239.1.1.1"), 0x1);
	meanwhile = [] { jix_xpon_hwnat_del_flow_by_index(7); };
	host_jiffies_advance(3000);
	EXPECT_TRUE(flows().empty());
	// The removal's own calls only: the expiry found its record gone.
	EXPECT_EQ((std::vector<std::string>{ "is_mc(7,0)", "delete(7)" }), hw::drv.calls);
	EXPECT_EQ(0, host_timers_running());
}

TEST_F(Life, AnExpiryInFlightSparesTheRecordThatReplacedItsOwn)
{
	const Bytes f = v4("239.1.1.1");
	bind(f, 0x1);
	meanwhile = [&f] { bind(f, 0x3); };	// same index, group, source
	hw::drv.is_mc = 0;	// an expiry acting on the new record removes it
	host_jiffies_advance(3000);
	ASSERT_EQ(1u, flows().size());
	EXPECT_EQ(0x3u, flows()[0].mask);
	EXPECT_TRUE(hw::drv.calls.empty());
	EXPECT_EQ(1, host_timers_pending());
}

TEST_F(Life, ADropReplacedWhileItsExpiryIsInFlight)
{
	drop(v4("239.1.1.1"));
	meanwhile = [] {
		jix_xpon_hwnat_clear_all_drop();
		drop(v4("239.1.1.1"));
	};
	hw::drv.is_drop = 0;
	host_jiffies_advance(3000);
	EXPECT_EQ(1u, drops().size());
	EXPECT_TRUE(hw::calls_of("is_drop(").empty());
	EXPECT_EQ(1, host_timers_pending());
}

TEST_F(Life, AFlowConvertedWhileItsExpiryIsInFlight)
{
	bind(v4("239.1.1.1"), 0x1);
	meanwhile = [] { quor_update_hwnat_entry(7, 0); };
	host_jiffies_advance(3000);
	EXPECT_TRUE(flows().empty());
	ASSERT_EQ(1u, drops().size());
	EXPECT_EQ(std::vector<std::string>{ "dp(7,15)" }, hw::drv.calls);
	EXPECT_EQ(1, host_timers_pending());	// the drop's own timer
}

// Stop takes the records while an expiry waits for the lock on another
// thread; the expiry leaves them alone and stop frees them after it.
std::atomic<int> in_flight;

// The expiry stays in flight until stop has begun (the driver's hooks are
// cleared); stop's grace period then waits for it to finish.
void hold_until_released(struct timer_list *)
{
	in_flight++;
	while (READ_ONCE(multicast_speed_find_entry_hook))
		std::this_thread::yield();
}

TEST_F(Life, StopWaitsForAnExpiryInFlightOnAnotherProcessor)
{
	bind(v4("239.1.1.1"), 0x1);
	hw::drv.foe = 8;
	drop(v4("239.2.2.2"));
	hw::drv.calls.clear();
	in_flight = 0;
	host_timer_set_prerun(hold_until_released);
	std::thread softirq([] { host_jiffies_advance(3000); });
	while (!in_flight)
		std::this_thread::yield();
	stop();
	softirq.join();
	// The drop is deleted in the engine exactly once, by its expiry or by
	// stop, whichever comes first.
	EXPECT_EQ(1, std::count(hw::drv.calls.begin(), hw::drv.calls.end(), "delete(8)"));
	EXPECT_EQ(0, host_timers_pending());
	EXPECT_EQ(0, host_timers_running());
}

TEST_F(Life, AllPathsAtOnce)
{
	std::atomic<bool> done{ false };
	hw::drv.is_mc = 2;	// updates keep flows, expiries remove them
	hw::drv.is_drop = 0;
	std::thread softirq([&done] {
		while (!done)
			host_jiffies_advance(700);
	});
	for (int i = 0; i < 400; i++) {
		int idx = i % 5 + 1;
		hw::drv.foe = idx;
		switch (i % 7) {
		case 0: case 3: bind(v4("239.1.1.1"), 0x3); break;
		case 1: quor_update_hwnat_entry(idx, i % 2 ? 0x5 : 0); break;
		case 2: drop(v4("239.1.1.2")); break;
		case 4: jix_xpon_hwnat_del_flow_by_index(idx); break;
		case 5: proc(512); break;
		case 6: if (i % 3 == 0) jix_xpon_hwnat_clear_all_drop(); break;
		}
	}
	done = true;
	softirq.join();
	stop();
	EXPECT_EQ(0, host_timers_pending());
}

} // namespace
