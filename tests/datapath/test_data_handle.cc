// The per-packet handler as the driver calls it through the hook framework:
// what it answers for each kind of frame, what it sends where, what it asks
// of the offload code, and that the driver's frame comes back as it went in.
#include <atomic>
#include <chrono>
#include <thread>

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace jt;
using namespace frames;

namespace {

const char *kSrc = "10.0.0.1";
const char *kDh = "[jix_multicast_data_handle]";

int rx_cb_calls;
u8 rx_cb_port;
int rx_cb(u8 port, u8 *, u32)
{
	rx_cb_calls++;
	rx_cb_port = port;
	return 1;	// relay
}

class DataHandle : public ModuleTest {
protected:
	void before_start() override
	{
		up({ "eth0.1", "eth0.2", "ux0", "ux1" });
		eth01 = devs[0], eth02 = devs[1], ux0 = devs[2], ux1 = devs[3];
		rx_cb_calls = 0;
	}

	void join(u8 port, const char *grp = "239.1.1.1")
	{
		igmp_entry_info e = entry(port, grp);
		memcpy(e.src_ip.addr, frames::addr(kSrc).data(), 4);
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}

	// Offer @frame as the driver does; checks that the frame and its data
	// pointer come back unchanged and returns the handler's result.
	int offer(const Bytes &frame, unsigned int headroom = 32,
		  net_device *in = nullptr)
	{
		Skb skb = skb_from(frame, headroom);
		skb->dev = in;
		unsigned char *data = skb->data;
		unsigned int len = skb->len;
		int ret = 12345;
		EXPECT_EQ(1, host_driver_offer(skb.get(), &ret));
		EXPECT_EQ(data, skb->data) << "data pointer moved";
		EXPECT_EQ(len, skb->len);
		EXPECT_EQ(frame, Bytes(skb_mac_header(skb.get()),
				       skb_mac_header(skb.get()) + frame.size()))
			<< "the driver's frame was changed";
		return ret;
	}

	static unsigned sent(net_device *d) { return host_netdev_tx_count(d); }

	net_device *eth01, *eth02, *ux0, *ux1;
};

// An MLD message in IPv6 with its hop-by-hop router alert.
Bytes mld_frame(uint8_t type, const char *dst, const char *group)
{
	return eth(group_mac(dst), mac("00:11:22:33:44:55"), {}, 0x86dd,
		   ipv6("fe80::1", dst, 58, mld(type, "fe80::1", dst, group), true));
}

Bytes data_frame(const char *grp = "239.1.1.1", uint16_t dport = 5001)
{
	return ipv4_udp_frame(kSrc, grp, 5000, dport);
}

TEST_F(DataHandle, UnicastGoesToTheKernelAtOnce)
{
	Bytes f = data_frame();
	f[0] = 0x00; f[1] = 0x11; f[2] = 0x22;
	join(0);
	fake::reset();

	quor_mc_debug_level = 2;
	EXPECT_EQ(-1, offer(f));
	EXPECT_EQ(std::string::npos, log_take().find("Not multicast"));

	quor_mc_debug_level = 3;
	EXPECT_EQ(-1, offer(f));
	std::string log = log_take();
	EXPECT_NE(std::string::npos,
		  log.find(std::string(kDh) + "Not multicast addr, dst=00-11-22-01-01-01\n"))
		<< log;
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(0u, sent(eth01));
}

TEST_F(DataHandle, ControlAndExcludedTrafficGoesToTheKernel)
{
	join(0);
	join(0, "ff3e::1");
	quor_mc_ctrl_packet_rx_cb_func = rx_cb;
	fake::reset();
	quor_mc_debug_level = 3;
	const Bytes mdns = data_frame("239.1.1.1", 5353);
	const Bytes ssdp = data_frame("239.1.1.1", 1900);
	const Bytes dhcp6 = ipv6_udp_frame("fe80::1", "ff3e::1", 546, 547);
	const Bytes report = igmp_frame(igmp_report("239.1.1.1"), "239.1.1.1");
	const Bytes mld_report = mld_frame(131, "ff3e::1", "ff3e::1");
	// Only type 0x11 counts as a query: an MLD query (130) is not one.
	const Bytes mld_query = mld_frame(130, "ff02::1", "::");
	for (const Bytes *f : { &mdns, &ssdp, &dhcp6, &report, &mld_report, &mld_query }) {
		SCOPED_TRACE(hex(*f));
		EXPECT_EQ(-1, offer(*f));
		EXPECT_NE(std::string::npos,
			  log_take().find(std::string(kDh) + "Not data packet, send to kernel\n"));
	}
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(0u, sent(eth01));
}

TEST_F(DataHandle, QueriesGoToTheControlPlaneOnlyWhenItListens)
{
	const Bytes general = igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1");
	const Bytes specific = igmp_frame(igmp_query("239.1.1.1", true), "239.1.1.1");
	const Bytes tagged = igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1",
					{ { 0x8100, 100 } });
	for (const Bytes *f : { &general, &specific, &tagged }) {
		SCOPED_TRACE(hex(*f));
		quor_mc_ctrl_packet_rx_cb_func = nullptr;
		EXPECT_EQ(-1, offer(*f));
		quor_mc_ctrl_packet_rx_cb_func = rx_cb;
		quor_mc_debug_level = 3;
		EXPECT_EQ(0, offer(*f));
		EXPECT_NE(std::string::npos,
			  log_take().find(std::string(kDh) +
					  "Query packet, send to callback function\n"));
		quor_mc_debug_level = 1;
	}
	EXPECT_TRUE(fake::calls.empty());
}

TEST_F(DataHandle, TheQueryKindDecidesWhereTheQueryIsRelayed)
{
	net_device *pon = netdev("pon");
	join(0);
	quor_mc_ctrl_packet_rx_cb_func = rx_cb;
	EXPECT_EQ(0, offer(igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), 32, pon));
	EXPECT_EQ(1, rx_cb_calls);
	EXPECT_EQ(JIX_PORT_PON, rx_cb_port);
	for (net_device *d : { eth01, eth02, ux0, ux1 })
		EXPECT_EQ(1u, sent(d)) << "a general query goes to every port: " << d->name;
	for (net_device *d : { eth01, eth02, ux0, ux1 })
		host_netdev_tx_clear(d);
	EXPECT_EQ(0, offer(igmp_frame(igmp_query("239.1.1.1"), "239.1.1.1"), 32, pon));
	EXPECT_EQ(2, rx_cb_calls);
	EXPECT_EQ(1u, sent(eth01)) << "a group-specific query goes to the members";
	for (net_device *d : { eth02, ux0, ux1 })
		EXPECT_EQ(0u, sent(d)) << d->name;
}

TEST_F(DataHandle, DataReachesItsMembersAndIsBound)
{
	join(0);
	join(16);
	fake::reset();
	quor_mc_debug_level = 3;
	EXPECT_EQ(0, offer(data_frame()));
	std::string log = log_take();
	EXPECT_NE(std::string::npos, log.find(std::string(kDh) + "fwd_port_mask = 0x10001\n")) << log;
	EXPECT_EQ(std::vector<std::string>{ "add_flow(0x10001)" }, fake::calls);
	EXPECT_EQ(1u, sent(eth01));
	EXPECT_EQ(1u, sent(ux0));
	EXPECT_EQ(0u, sent(eth02));
	EXPECT_EQ(0u, sent(ux1));
	EXPECT_EQ(data_frame(), jt::sent(eth01)) << "a transparent port gets the frame as it came";
}

TEST_F(DataHandle, WithoutMembersTheDropOperationDecides)
{
	join(0, "239.2.2.2");
	fake::reset();
	fake::drop_result = 0;
	EXPECT_EQ(0, offer(data_frame()));
	fake::drop_result = -1;
	EXPECT_EQ(-1, offer(data_frame()));
	EXPECT_EQ((std::vector<std::string>{ "add_flow(0x0)", "drop(0x0)",
					     "add_flow(0x0)", "drop(0x0)" }),
		  fake::calls);
	EXPECT_EQ(0u, sent(eth01));
}

TEST_F(DataHandle, SnoopingOffFloodsLanAndWifiPortsWithDevices)
{
	ASSERT_EQ(0, quor_igmp_set_snooping(0));
	fake::reset();
	fake::drop_result = 0;
	EXPECT_EQ(0, offer(data_frame("239.9.9.9")));
	EXPECT_EQ(std::vector<std::string>{ "add_flow(0x300ff)" }, fake::calls);
	for (net_device *d : { eth01, eth02, ux0, ux1 })
		EXPECT_EQ(1u, sent(d)) << d->name;
}

TEST_F(DataHandle, FramesCutAtEveryLengthAreAnsweredSafely)
{
	join(0);
	join(0, "ff3e::1");
	quor_mc_ctrl_packet_rx_cb_func = rx_cb;
	const Bytes whole[] = {
		data_frame(),
		ipv6_udp_frame(kSrc, "ff3e::1", 5000, 5001, {}, true),
		igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1", { { 0x88a8, 1 }, { 0x8100, 2 } }),
		mld_frame(130, "ff02::1", "::"),
	};
	for (const Bytes &f : whole) {
		for (size_t n = 0; n <= f.size(); n++) {
			SCOPED_TRACE(n);
			int ret = offer(Bytes(f.begin(), f.begin() + n));
			EXPECT_TRUE(ret == 0 || ret == -1);
		}
	}
}

TEST_F(DataHandle, DataWithoutRoomForItsEthernetHeaderIsLeftAlone)
{
	join(0);
	fake::reset();
	Skb skb = skb_from(data_frame(), 0);
	skb_reset_mac_header(skb.get());	// MAC header at the data pointer
	int ret = 0;
	EXPECT_EQ(1, host_driver_offer(skb.get(), &ret));
	EXPECT_EQ(-1, ret);
	EXPECT_TRUE(fake::calls.empty());
	EXPECT_EQ(0u, sent(eth01));
}

TEST_F(DataHandle, DumpOnlyAtLevelFour)
{
	join(0);
	quor_mc_debug_level = 3;
	offer(data_frame());
	EXPECT_EQ(std::string::npos, log_take().find("skb_dump"));
	quor_mc_debug_level = 4;
	offer(data_frame());
	EXPECT_NE(std::string::npos, log_take().find("skb_dump"));
}

// Removing the receive callback waits for a call of it in progress, so
// the control plane may unload right after.
std::atomic<bool> cb_entered, cb_removed, removed_while_running;
int slow_rx_cb(u8, u8 *, u32)
{
	cb_entered = true;
	std::this_thread::sleep_for(std::chrono::milliseconds(100));
	removed_while_running = cb_removed.load();
	return 0;
}

TEST_F(DataHandle, RemovingTheCallbackWaitsForItsCallers)
{
	quor_mc_rx_cb_t cb = slow_rx_cb;
	cb_entered = cb_removed = removed_while_running = false;
	ASSERT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	net_device *pon = netdev("pon");
	std::thread rx([&] { offer(igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), 32, pon); });
	while (!cb_entered)
		std::this_thread::yield();
	cb = nullptr;
	EXPECT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	cb_removed = true;
	rx.join();
	EXPECT_FALSE(removed_while_running);
}

} // namespace
