// The whole module with devices for ports 0..3 (eth0.1..eth0.4, up), 16
// (ux0) and 20 (ux4), the driver's hooks recording what they are asked,
// and hardware flow records the test puts on the flow list.
#pragma once

#include "support/frames.h"
#include "support/module_fixture.h"

#include <map>

extern "C" {
#include "datapath/ctrl.h"
#include "datapath/datapath.h"
#include "hwnat/hwnat_flow.h"
#include "vlan/vlan.h"
}

namespace cv {

using frames::Bytes;

extern std::vector<std::string> hw;	// "vlan(idx,outer,inner)", "dp(idx,dp)"
extern int foe_index;			// what hwnat_skb_to_foe_hook answers

// A frame as the driver hands it to operations 2 and 3: data at the
// Ethernet header.
inline sk_buff *eth_skb(const Bytes &b, unsigned headroom = 32)
{
	sk_buff *skb = alloc_skb(headroom + b.size(), GFP_ATOMIC);

	skb_reserve(skb, headroom);
	memcpy(skb_put(skb, b.size()), b.data(), b.size());
	return skb;
}

inline Bytes data_of(const sk_buff *skb)
{
	return Bytes(skb->data, skb_tail_pointer(skb));
}

// An API operation on a frame (operations 2 and 3).
inline int api_skb(u32 id, sk_buff *skb)
{
	quor_peer_mc mc{};
	mc.api_function_id = id;
	mc.skb = skb;
	EXPECT_EQ(1, __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc));
	return mc.result;
}

// An entry of 239.1.1.1 on @port with a VLAN treatment.
inline igmp_entry_info member(u8 port, u32 mode = 0, u16 otci = 0, u16 itci = 0,
			      u16 otpid = 0x8100)
{
	igmp_entry_info e = jt::entry(port, "239.1.1.1");
	e.vlan_mode = mode;
	e.outer_tpid = otpid;
	e.outer_tci = otci;
	e.inner_tpid = 0x8100;
	e.inner_tci = itci;
	return e;
}

class CtrlVlan : public jt::ModuleTest {
protected:
	std::map<std::string, net_device *> dev;

	void SetUp() override;
	void TearDown() override;
	// A learned hardware flow on the flow list.
	void flow(s32 index, u32 tag_num, u32 outer, u32 inner = 0);
	unsigned tx(const char *name) { return host_netdev_tx_count(dev[name]); }
	Bytes sent(const char *name, unsigned i = 0) { return jt::sent(dev[name], i); }
};

} // namespace cv
