// The per-packet handler as the driver calls it through the hook framework:
// what it answers for each kind of frame, what it sends where, what it asks
// of the offload code, and that the driver's frame comes back as it went in.
#include <atomic>
#include <chrono>
#include <thread>

#include "support/frames.h"
#include "support/module_fixture.h"

using namespace jt;
using namespace frames;

namespace {

int relay_cb(u8, u8 *, u32) { return 1; }

class DataHandle : public ModuleTest {
protected:
	void before_start() override { up({ "eth0.1", "eth0.2", "ux0", "ux1" }); }

	void join(u8 port, const char *grp = "239.1.1.1", u32 vlan_mode = JIX_VLAN_TRANSPARENT)
	{
		igmp_entry_info e = entry(port, grp);
		e.vlan_mode = vlan_mode, e.outer_tci = 100, e.inner_tci = 0xFFF;
		memcpy(e.src_ip.addr, addr("10.0.0.1").data(), 4);
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}

	// Offer @frame as the driver does; checks that the frame and its data
	// pointer come back unchanged and returns the handler's result.
	int offer(const Bytes &frame, unsigned int headroom = 32, net_device *in = nullptr)
	{
		Skb skb = skb_from(frame, headroom);
		unsigned char *data = skb->data;
		unsigned int len = skb->len;
		int ret = 12345;

		skb->dev = in;
		EXPECT_EQ(1, host_driver_offer(skb.get(), &ret));
		EXPECT_EQ(data, skb->data) << "data pointer moved";
		EXPECT_EQ(len, skb->len);
		EXPECT_EQ(frame, Bytes(skb_mac_header(skb.get()), skb_mac_header(skb.get()) + frame.size()))
			<< "the driver's frame was changed";
		return ret;
	}

	// Bit i: the i-th device sent something (eth0.1, eth0.2, ux0, ux1).
	unsigned sent_mask()
	{
		unsigned m = 0;
		for (size_t i = 0; i < devs.size(); i++)
			m |= (host_netdev_tx_count(devs[i]) ? 1u : 0u) << i, host_netdev_tx_clear(devs[i]);
		return m;
	}
};

Bytes data(const char *grp = "239.1.1.1") { return ipv4_udp_frame("10.0.0.1", grp, 5000, 5001); }

TEST_F(DataHandle, WhatEachFrameGets)
{
	const std::string dh = "[jix_multicast_data_handle]", kernel = dh + "Not data packet, send to kernel\n";
	Bytes unicast = data();
	unicast[0] = 0x00, unicast[1] = 0x11, unicast[2] = 0x22;
	const struct { const char *name; Bytes frame; bool cb, snoop; int drop, ret; const char *calls; unsigned sent; std::string log; } rows[] = {
		{ "unicast", unicast, true, true, 0, -1, "", 0, dh + "Not multicast addr, dst=00-11-22-01-01-01\n" },
		{ "query_unheard", igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), false, true, 0, -1, "", 0, kernel },
		{ "general_query", igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), true, true, 0, 0, "", 0,
		  dh + "Query packet, send to callback function\n" },
		{ "members", data(), true, true, 0, 0, "add_flow(0x10001)", 0x5, "[jix_xpon_data_vlan_handle]jix_xpon_data_vlan_handle: ret:1\n" },
		{ "no_members_refused", data("239.2.2.2"), true, true, -1, -1, "add_flow(0x0) drop(0x0)", 0, "" },
		{ "snooping_off", data("239.9.9.9"), true, false, 0, 0, "add_flow(0x300ff)", 0xf, "" },
	};
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP_VID);	// untagged frames match VLAN -1
	join(0);
	join(16, "239.1.1.1", JIX_VLAN_ADD);
	quor_mc_debug_level = 3;
	for (auto &r : rows) {
		SCOPED_TRACE(r.name);
		quor_mc_ctrl_packet_rx_cb_func = r.cb ? relay_cb : nullptr;
		quor_igmp_set_snooping(r.snoop);
		fake::reset();
		fake::drop_result = r.drop;
		host_log_clear();
		EXPECT_EQ(r.ret, offer(r.frame));
		std::string calls;
		for (auto &c : fake::calls) calls += (calls.empty() ? "" : " ") + c;
		EXPECT_EQ(r.calls, calls);
		EXPECT_EQ(r.sent, sent_mask());
		EXPECT_NE(std::string::npos, log_take().find(r.log));
	}
	quor_mc_debug_level = 4;	// whole frames are dumped at level 4 only
	offer(data());
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
	net_device *pon = netdev("pon");

	cb_entered = cb_removed = removed_while_running = false;
	ASSERT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	std::thread rx([&] { offer(igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"), 32, pon); });
	while (!cb_entered) std::this_thread::yield();
	cb = nullptr;
	EXPECT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	cb_removed = true;
	rx.join();
	EXPECT_FALSE(removed_while_running);
}

} // namespace
