// Start and stop, and the port map following devices through notifier
// events with exact device reference counts.
#include <atomic>
#include <chrono>
#include <thread>

#include "support/module_fixture.h"

using namespace jt;

namespace {

class Module : public ModuleTest {};

// What a start sets up and a stop takes down, in one list.
bool installed()
{
	bool all = true, none = true;
	auto see = [&](bool b) { all &= b, none &= !b; };

	see(xpon_igmp_learn_flow_hook && multicast_speed_find_entry_hook);
	see(multicast_hwnat_drop_entry_hook != nullptr);
	for (const char *f : { "kv7730/jix_mc_hwnat_entry", "kv7730/jix_mc_acnt_mapping",
			       "kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_debug", "kv7730/jix_mc_port_type" })
		see(host_proc_exists(f));
	see(host_chrdev_registered(253));
	see(host_quor_registered_count() == 2);
	see(host_counters_taken() == 32);
	EXPECT_TRUE(all || none) << "half started";
	return all;
}

// A stop takes down what a start set up.  A start that fails at the API
// hook has served no ioctl (the character device goes live last) and
// leaves nothing of what the already live interval hook and API calls
// made meanwhile; a start after both works.
void add_while_starting(quor_hook_ops *ops)
{
	auto a = entry(1, "239.1.1.1");
	if (ops->hook_subtype != QUOR_MC_SUBTYPE_INTERVAL) return;
	EXPECT_EQ(-ENODEV, host_chrdev_ioctl(253, 0, QUOR_IGMP_IOC_ADD_ENTRY, (unsigned long)&a));
	host_quor_fail_next_register(-ENOMEM);
}

TEST_F(Module, FailedStartLeavesNothing)
{
	EXPECT_STREQ("quor_igmp", host_chrdev_name(253));
	auto *ops = host_quor_find(36, 0), *api_ops = host_quor_find(36, 2);
	ASSERT_TRUE(ops && api_ops);
	EXPECT_EQ("quor_mc_interval_hook 1 quor_mc_api_hook",
		  std::string(ops->name) + " " + std::to_string(ops->priority) + " " + api_ops->name);
	add_entry(1, "239.1.1.1");
	fake::reset();
	stop();
	EXPECT_EQ("quor igmp module exit\n", log_take());
	EXPECT_FALSE(installed());
	EXPECT_FALSE(host_proc_exists("kv7730"));
	EXPECT_TRUE(list_empty(igmp_get_fdb_tmp_list()));
	EXPECT_EQ((std::vector<std::string>{ "clear_flows", "release_all" }), fake::calls);

	host_quor_on_register(add_while_starting);
	EXPECT_EQ(-ENOMEM, init_module());
	host_quor_on_register(nullptr);
	EXPECT_FALSE(installed());
	EXPECT_TRUE(igmp_fdb_empty());
	quor_mc_debug_level = 0;
	host_log_clear();
	ASSERT_EQ(0, init_module());
	loaded = true;
	EXPECT_EQ("jix xpon multcast init\n", log_take());
	EXPECT_TRUE(installed());
	auto a = entry(1, "239.1.1.1");
	EXPECT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &a).result);
}

// Stop waits for the driver's calls through its hooks (made in softirq,
// under RCU) before it takes anything down.
TEST_F(Module, StopWaitsForDriverHookCalls)
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
	while (!in_call) std::this_thread::yield();
	stop();
	driver.join();
	EXPECT_EQ(2, hooks_at_return);
}

// Rows follow devices of the initial namespace by identity: through
// renames, repeated events and out of whatever row they hold when they go
// away, releasing exactly the reference they took.  The names that select
// a row, and their neighbours that select none, in the order renamed.
TEST_F(Module, RowsFollowTheirDevices)
{
	net_device *d = netdev("eth0.1"), *f = netdev("ux5", false);
	netdev_notifier_info info{ d }, none{ nullptr };
	net other{};
	const struct { const char *name; int port; } names[] = { { "lan1", -1 }, { "eth0.8", 7 },
		{ "ux0", 16 }, { "ux7", 23 }, { "uxi0", 24 }, { "uxi7", 31 }, { "pon", 32 }, { "nas10", 33 },
		{ "eth0.0", -1 }, { "eth0.9", -1 }, { "eth0.12", -1 }, { "ux8", -1 }, { "uxi8", -1 },
		{ "eth1.1", -1 }, { "ux", -1 }, { "pon0", -1 }, { "eth0.3", 2 }, { "ux5", 21 } };
	auto rows_of = [](net_device *dev) {	// the rows holding @dev
		std::string s;
		for (u8 p = 0; p <= 34; p++)
			s += get_dev_by_port(p) == dev ? std::to_string(p) + " " : "";
		return s;
	};

	quor_igmp_device_event(&quor_igmp_device_notifier, NETDEV_REGISTER, &info);
	quor_igmp_device_event(&quor_igmp_device_notifier, NETDEV_UP, &info);
	EXPECT_EQ(NOTIFY_DONE, quor_igmp_device_event(&quor_igmp_device_notifier, NETDEV_UNREGISTER, &none));
	EXPECT_EQ("0 ", rows_of(d));
	EXPECT_EQ(1, host_netdev_refcnt(d));
	for (auto &r : names) {
		ASSERT_EQ(0, host_netdev_rename(d, r.name));
		EXPECT_EQ(r.port < 0 ? "" : std::to_string(r.port) + " ", rows_of(d)) << r.name;
		EXPECT_EQ(r.port >= 0, host_netdev_refcnt(d)) << r.name;
		EXPECT_EQ(r.port, get_port_id_by_name(r.name)) << r.name;
	}
	EXPECT_EQ(-1, get_port_id_by_name(nullptr));
	EXPECT_EQ(nullptr, get_dev_by_port(200));
	f->nd_net = &other;
	ASSERT_EQ(0, host_netdev_register(f));
	host_netdev_unregister(f);
	EXPECT_EQ("21 ", rows_of(d)) << "another namespace's ux5 is not ours";
	dev_hold(d);	// someone else's reference
	host_netdev_unregister(d);
	EXPECT_EQ("", rows_of(d));
	EXPECT_EQ(1, host_netdev_refcnt(d));
	dev_put(d);
}

// A reader that found the device under rcu_read_lock may still take its
// own reference: the row's reference goes only after the reader is done.
TEST_F(Module, RowReferenceOutlivesReaders)
{
	net_device *d = netdev("eth0.5");
	rcu_read_lock();
	ASSERT_EQ(d, get_dev_by_port(4));
	std::thread t([&] { host_netdev_unregister(d); });
	std::this_thread::sleep_for(std::chrono::milliseconds(50));
	EXPECT_EQ(1, host_netdev_refcnt(d));
	rcu_read_unlock();
	t.join();
	EXPECT_EQ(0, host_netdev_refcnt(d));
}

} // namespace
