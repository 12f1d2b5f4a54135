// Lifetime of records and timers: expiries that fire while another path
// removes or replaces their record; module stop with records, pending
// timers and an expiry in flight.
#include "hwnat_test.h"

#include <atomic>
#include <functional>
#include <thread>

namespace {

// What another processor does after a timer fired, before its function
// takes the lock.
std::function<void()> meanwhile;

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
	host_timer_set_prerun([](timer_list *) { meanwhile(); });
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
