// Lifetime of records and timers: a flow's whole life through membership
// changes; expiries that fire while another path removes or replaces their
// record; module stop with records, pending timers and an expiry in flight.
#include "hwnat_test.h"

#include <atomic>
#include <thread>

namespace {

TEST_F(Hwnat, AFlowFromFirstFrameToModuleStop)
{
	auto p1 = entry(1, "239.1.1.1"), p2 = entry(2, "239.1.1.1"), p3 = entry(3, "239.1.1.1");
	const Bytes f = v4("239.1.1.1");
	u8 id = mcst_acnt[0].acnt_id;
	auto members = [&f] {
		u64 mask = 0;
		igmp_get_fwd_portmask(skb_from(f).get(), &mask);
		return mask;
	};

	host_trace_enable(1);
	// The first frame of a joined group binds the flow and is marked with
	// the group's counter, the one its entry counts on.
	host_counter_set(id, 1000, 10);
	ASSERT_EQ(0, quor_igmp_add_entry(&p1));
	ASSERT_EQ(0x2u, members());
	EXPECT_EQ((u32)id << 17, bind(f, 0x2));
	host_counter_set(id, 1600, 16);	// the engine counted marked frames
	igmp_entry_info rec[1]{};
	igmp_entry_get_req req = jt::get_req(1, rec, 1);
	ASSERT_EQ(1, quor_igmp_get_entry(&req));
	EXPECT_EQ(6u, rec[0].pkt_acnt);
	EXPECT_EQ(600u, rec[0].byte_acnt);

	// A second member reaches the driver; both leave: the flow becomes a
	// drop entry, its counter released.  A new member undoes the drop.
	ASSERT_EQ(0, quor_igmp_add_entry(&p3));
	ASSERT_EQ(0, quor_igmp_del_entry(&p1));
	ASSERT_EQ(0, quor_igmp_del_entry(&p3));
	ASSERT_EQ(0, quor_igmp_add_entry(&p2));
	// Its frames bind the flow again, until the engine gives it up.
	ASSERT_EQ(0x4u, members());
	bind(f, 0x4);
	host_jiffies_advance(2999);
	EXPECT_NE("", flows());
	drv.is_mc = 0;
	host_jiffies_advance(1);
	EXPECT_EQ("", flows());
	// The drop's deletion only: the engine no longer held the flow.
	EXPECT_EQ("set_info(7,0xa,0) set_info(7,0x8,0) dp(7,15) delete(7) ",
		  calls_of({ "set_info(", "dp(7,15", "delete(" }));

	// Stop (entries left) with a bound flow and a drop, timers pending.
	drv.foe = 9;
	bind(v4("239.5.5.5"), 0x1);
	drv.foe = 10;
	drop(v4("239.6.6.6"));
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
	EXPECT_EQ(nullptr, xpon_igmp_learn_flow_hook);
}

// With the database empty, stop releases flows quietly but deletes each
// drop in the engine, so a reload does not find those groups dropped.
TEST_F(Hwnat, StopDeletesDropsInTheEngineAndFlowsQuietly)
{
	for (int i = 1; i <= 3; i++) {
		drv.foe = i;
		bind(v4("239.1.1.1"), 0x1);
	}
	drv.foe = 20;
	drop(v6("ff05::1:3"));
	quor_update_hwnat_entry(3, 0);	// a drop made from a flow
	host_jiffies_advance(3000);	// re-armed once by their expiries
	EXPECT_EQ(4, host_timers_pending());
	drv.calls.clear();
	stop();
	EXPECT_EQ("delete(20) delete(3) ", drv.calls);
}

// An expiry fired; before it takes the lock, another path removes,
// replaces or converts its record.  The expiry acts on no other record.
TEST_F(Hwnat, ExpiriesInFlightLeaveOtherRecordsAlone)
{
	const std::string flow = "7 239.1.1.1<10.0.0.1 p2 t0 0/0 v-1 w0 m";
	const struct {
		bool flow;	// else a drop record
		std::function<void()> meanwhile;
		std::string records, calls;
	} cases[] = {
		{ true, [] { jix_xpon_hwnat_del_flow_by_index(7); }, "", "is_mc(7,0) " },
		{ true, [] { bind(v4("239.1.1.1"), 0x3); }, flow + "3 @109000; ", "" },
		{ true, [] { quor_update_hwnat_entry(7, 0); }, flow + "0 @112000; ", "dp(7,15) " },
		{ false, [] { jix_xpon_hwnat_clear_all_drop(); drop(v4("239.1.1.1")); },
		  flow + "0 @115000; ", "delete(7) drop_packet " },
	};
	for (const auto &c : cases) {
		jix_xpon_hwnat_clear_flows();
		jix_xpon_hwnat_clear_all_drop();
		c.flow ? (void)bind(v4("239.1.1.1"), 0x1) : (void)drop(v4("239.1.1.1"));
		drv.calls.clear();
		drv.is_mc = drv.is_drop = 0;	// an expiry acting on a record removes it
		meanwhile = c.meanwhile;
		host_jiffies_advance(3000);
		EXPECT_EQ(c.records, flows() + drops()) << c.calls;
		EXPECT_EQ(c.calls, drv.calls);
		EXPECT_EQ(c.records.empty() ? 0 : 1, host_timers_pending()) << c.calls;
		EXPECT_EQ(0, host_timers_running()) << c.calls;
	}
}

// Stop takes the records while an expiry waits for the lock on another
// thread; the expiry stays in flight until stop has begun (the driver's
// hooks are cleared), and stop's grace period then waits for it.
std::atomic<int> in_flight;

TEST_F(Hwnat, StopWaitsForAnExpiryInFlightOnAnotherProcessor)
{
	bind(v4("239.1.1.1"), 0x1);
	drv.foe = 8;
	drop(v4("239.2.2.2"));
	drv.calls.clear();
	in_flight = 0;
	host_timer_set_prerun([](timer_list *) {
		in_flight++;
		while (READ_ONCE(multicast_speed_find_entry_hook))
			std::this_thread::yield();
	});
	std::thread softirq([] { host_jiffies_advance(3000); });
	while (!in_flight)
		std::this_thread::yield();
	stop();
	softirq.join();
	// The drop is deleted in the engine exactly once, by its expiry or by
	// stop, whichever comes first.
	EXPECT_EQ("delete(8) ", calls_of({ "delete(" }));
	EXPECT_EQ(0, host_timers_running());
}

} // namespace
