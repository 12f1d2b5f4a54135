// Start and stop: defaults, registrations, order, and clean failure.
#include <atomic>
#include <chrono>
#include <thread>

#include "support/module_fixture.h"

using namespace jt;

namespace {

const char *const proc_files[] = {
	"kv7730/jix_mc_hwnat_entry", "kv7730/jix_mc_acnt_mapping",
	"kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_debug", "kv7730/jix_mc_port_type",
};

class Lifecycle : public ModuleTest {};

TEST_F(Lifecycle, StateAfterStart)
{
	EXPECT_EQ(4u, igmp_filter_mode);
	EXPECT_EQ(1, quor_igmp_get_snooping());
	EXPECT_EQ(1u, quor_mc_debug_level);
	EXPECT_TRUE(igmp_fdb_empty());
	for (u32 t : PORT_TYPE)
		EXPECT_EQ(0u, t);
	EXPECT_NE(nullptr, xpon_igmp_learn_flow_hook);
	EXPECT_NE(nullptr, multicast_speed_find_entry_hook);
	EXPECT_NE(nullptr, multicast_hwnat_drop_entry_hook);
	for (const char *f : proc_files)
		EXPECT_TRUE(host_proc_exists(f)) << f;
	EXPECT_TRUE(host_chrdev_registered(253));
	EXPECT_STREQ("quor_igmp", host_chrdev_name(253));
	auto *ops = host_quor_find(36, 0);
	ASSERT_NE(nullptr, ops);
	EXPECT_STREQ("quor_mc_interval_hook", ops->name);
	EXPECT_EQ(1, ops->priority);
	ops = host_quor_find(36, 2);
	ASSERT_NE(nullptr, ops);
	EXPECT_STREQ("quor_mc_api_hook", ops->name);
	EXPECT_EQ(32, host_counters_taken());
	for (auto &s : mcst_acnt) {
		EXPECT_EQ(1, s.valid);
		EXPECT_TRUE(host_counter_taken(s.acnt_id));
	}
}

TEST_F(Lifecycle, StopUndoesEverything)
{
	auto a = entry(1, "239.1.1.1");
	quor_igmp_add_entry(&a);
	fake::reset();
	stop();
	EXPECT_EQ("quor igmp module exit\n", log_take());
	EXPECT_EQ(nullptr, xpon_igmp_learn_flow_hook);
	EXPECT_EQ(nullptr, multicast_speed_find_entry_hook);
	EXPECT_EQ(nullptr, multicast_hwnat_drop_entry_hook);
	EXPECT_EQ(0, host_proc_count());
	EXPECT_FALSE(host_proc_exists("kv7730"));
	EXPECT_FALSE(host_chrdev_registered(253));
	EXPECT_EQ(0, host_quor_registered_count());
	EXPECT_EQ(0, host_counters_taken());
	EXPECT_TRUE(igmp_fdb_empty());
	EXPECT_TRUE(list_empty(igmp_get_fdb_tmp_list()));
	EXPECT_EQ((std::vector<std::string>{ "clear_flows", "release_all" }), fake::calls);
}

// A start that fails at the API hook has served no ioctl (the character
// device goes live last) and leaves nothing of what the already live
// interval hook and API calls made meanwhile.
void add_while_starting(quor_hook_ops *ops)
{
	if (ops->hook_subtype != QUOR_MC_SUBTYPE_INTERVAL)
		return;
	auto a = entry(1, "239.1.1.1");
	EXPECT_EQ(-ENODEV, host_chrdev_ioctl(253, 0, QUOR_IGMP_IOC_ADD_ENTRY,
					     (unsigned long)&a));
	host_quor_fail_next_register(-ENOMEM);
}

TEST_F(Lifecycle, FailedStartLeavesNothing)
{
	stop();
	host_quor_on_register(add_while_starting);
	EXPECT_EQ(-ENOMEM, init_module());
	host_quor_on_register(nullptr);
	EXPECT_TRUE(igmp_fdb_empty());
	EXPECT_FALSE(host_chrdev_registered(253));
	EXPECT_EQ(0, host_quor_registered_count());
	EXPECT_EQ(0, host_counters_taken());
	EXPECT_EQ(nullptr, multicast_speed_find_entry_hook);
}

// Stop waits for the driver's calls through its hooks (made in softirq,
// under RCU) before it takes anything down.
TEST_F(Lifecycle, StopWaitsForDriverHookCalls)
{
	std::atomic<bool> in_call{ false };
	int hooks_at_return = -1;
	std::thread driver([&] {
		rcu_read_lock();
		EXPECT_NE(nullptr, READ_ONCE(multicast_speed_find_entry_hook));
		in_call = true;
		std::this_thread::sleep_for(std::chrono::milliseconds(100));
		hooks_at_return = host_quor_registered_count();
		rcu_read_unlock();
	});
	while (!in_call)
		std::this_thread::yield();
	stop();
	driver.join();
	EXPECT_EQ(2, hooks_at_return);
}

TEST_F(Lifecycle, RestartAfterStop)
{
	stop();
	host_log_clear();
	quor_mc_debug_level = 0;
	ASSERT_EQ(0, init_module());
	loaded = true;
	EXPECT_EQ("jix xpon multcast init\n", log_take());
	EXPECT_EQ(32, host_counters_taken());
	auto a = entry(1, "239.1.1.1");
	EXPECT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &a).result);
}

} // namespace
