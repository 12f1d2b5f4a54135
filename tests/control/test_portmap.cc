// The port map following devices through notifier events, with exact
// device reference counts.
#include <chrono>
#include <thread>

#include "support/module_fixture.h"

using namespace jt;

namespace {

class PortMap : public ModuleTest {};

TEST_F(PortMap, NamesSelectTheirRows)
{
	struct {
		const char *name;
		int port;
	} bound[] = { { "eth0.1", 0 }, { "eth0.8", 7 }, { "ux0", 16 }, { "ux7", 23 },
		      { "uxi0", 24 }, { "uxi7", 31 }, { "pon", 32 }, { "nas10", 33 } };
	for (auto &b : bound) {
		net_device *d = netdev(b.name);
		EXPECT_EQ(d, get_dev_by_port((u8)b.port)) << b.name;
		EXPECT_EQ(1, host_netdev_refcnt(d)) << b.name;
		EXPECT_EQ(b.port, get_port_id_by_name(b.name)) << b.name;
	}
	for (const char *name : { "eth0.0", "eth0.9", "eth0.12", "ux8", "uxi8", "eth1.1",
				  "ux", "pon0" }) {
		net_device *d = netdev(name);
		EXPECT_EQ(0, host_netdev_refcnt(d)) << name;
		EXPECT_EQ(-1, get_port_id_by_name(name)) << name;
	}
	EXPECT_EQ(-1, get_port_id_by_name(""));
	EXPECT_EQ(-1, get_port_id_by_name(nullptr));
	EXPECT_EQ(nullptr, get_dev_by_port(34));
	EXPECT_EQ(nullptr, get_dev_by_port(200));
}

TEST_F(PortMap, UnregisterReleasesExactlyTheReferenceTaken)
{
	net_device *d = netdev("uxi7");
	dev_hold(d); // someone else's reference
	EXPECT_EQ(2, host_netdev_refcnt(d));
	host_netdev_unregister(d);
	EXPECT_EQ(nullptr, get_dev_by_port(31));
	EXPECT_EQ(1, host_netdev_refcnt(d));
	dev_put(d);
}

TEST_F(PortMap, RegisteringTwiceKeepsOneReference)
{
	net_device *d = netdev("eth0.2");
	netdev_notifier_info info{ d };
	quor_igmp_device_event(&quor_igmp_device_notifier, NETDEV_REGISTER, &info);
	EXPECT_EQ(1, host_netdev_refcnt(d));
	// Other events and events without a device change nothing.
	quor_igmp_device_event(&quor_igmp_device_notifier, NETDEV_UP, &info);
	netdev_notifier_info none{ nullptr };
	EXPECT_EQ(NOTIFY_DONE, quor_igmp_device_event(&quor_igmp_device_notifier,
						      NETDEV_UNREGISTER, &none));
	EXPECT_EQ(d, get_dev_by_port(1));
}

// Rows follow devices of the initial namespace by identity: through
// renames, and out of whatever row they hold when they go away.
TEST_F(PortMap, RowsFollowRenamesAndIgnoreOtherNamespaces)
{
	net_device *d = netdev("eth0.1");
	ASSERT_EQ(0, host_netdev_rename(d, "lan1"));
	EXPECT_EQ(nullptr, get_dev_by_port(0));
	EXPECT_EQ(0, host_netdev_refcnt(d));
	ASSERT_EQ(0, host_netdev_rename(d, "eth0.3"));
	EXPECT_EQ(d, get_dev_by_port(2));
	ASSERT_EQ(0, host_netdev_rename(d, "ux5"));
	EXPECT_EQ(nullptr, get_dev_by_port(2));
	EXPECT_EQ(d, get_dev_by_port(21));
	EXPECT_EQ(1, host_netdev_refcnt(d));
	net other{};
	net_device *f = netdev("ux5", false);
	f->nd_net = &other;
	ASSERT_EQ(0, host_netdev_register(f));
	host_netdev_unregister(f);
	EXPECT_EQ(d, get_dev_by_port(21)) << "another namespace's ux5 is not ours";
	EXPECT_EQ(0, host_netdev_refcnt(f));
	host_netdev_unregister(d);
	EXPECT_EQ(nullptr, get_dev_by_port(21));
	EXPECT_EQ(0, host_netdev_refcnt(d));
}

// A reader that found the device under rcu_read_lock may still take its
// own reference: the row's reference goes only after the reader is done.
TEST_F(PortMap, RowReferenceOutlivesReaders)
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

TEST_F(PortMap, SoftwareCountersReadAndReset)
{
	u32 bytes = 1, pkts = 1;

	set_sw_cnt_by_port(4, 100);
	set_sw_cnt_by_port(4, 50);
	get_sw_cnt_by_port(4, &bytes, &pkts);
	EXPECT_EQ(150u, bytes);
	EXPECT_EQ(2u, pkts);
	get_sw_cnt_by_port(4, &bytes, &pkts);
	EXPECT_EQ(0u, bytes);
	EXPECT_EQ(0u, pkts);
	bytes = pkts = 42;
	set_sw_cnt_by_port(34, 10);
	get_sw_cnt_by_port(34, &bytes, &pkts); // ignored: untouched
	EXPECT_EQ(42u, bytes);
}

// Devices that exist before start are bound at start and replayed by the
// notifier; each row still holds one reference, released at stop.
class PortMapAtStart : public ModuleTest {
protected:
	net_device *early = nullptr;
	void before_start() override { early = netdev("eth0.4"); }
};

TEST_F(PortMapAtStart, BoundOnceAndReleasedAtStop)
{
	EXPECT_EQ(early, get_dev_by_port(3));
	EXPECT_EQ(1, host_netdev_refcnt(early));
	stop();
	EXPECT_EQ(0, host_netdev_refcnt(early));
	EXPECT_EQ(nullptr, lan_map_data[3].dev);
}

} // namespace
