// Switch tags through API operations 2 and 3, the 1:N decision, the
// hardware calls of entry add and delete, and operation 3 consuming its
// frame on every path.
#include "fixture.h"

using namespace cv;
using namespace jt;

namespace {

Bytes udp(std::vector<frames::Tag> tags = {})
{
	return frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 5000, 5001, tags);
}

// @f with bytes @at.. replaced by @b (or inserted when @insert).
Bytes edit(Bytes f, size_t at, Bytes b, bool insert = false)
{
	if (insert)
		f.insert(f.begin() + at, b.begin(), b.end());
	else
		std::copy(b.begin(), b.end(), f.begin() + at);
	return f;
}

struct StagCase {
	int kind;
	Bytes in;	// as it comes from the switch
	Bytes real;	// with its real type field
};

std::vector<StagCase> stag_cases()
{
	return {
		{ 0, edit(udp(), 12, { 0x00, 0x05, 0xab, 0xcd }, true), udp() },
		{ 0, edit(udp(), 12, { 0x00, 0x00, 0xab, 0xcd }, true), udp() },
		{ 1, edit(udp({ { 0x8100, 100 } }), 12, { 0x01, 0x00 }), udp({ { 0x8100, 100 } }) },
		{ 2, edit(udp({ { 0x88a8, 100 } }), 12, { 0x02, 0x00 }), udp({ { 0x88a8, 100 } }) },
		{ 3, edit(udp(), 12, { 0x03, 0x00 }), edit(udp(), 12, { 0x03, 0x00 }) },
	};
}

class VlanOps : public CtrlVlan {
protected:
	void add(const igmp_entry_info &e)
	{
		igmp_entry_info r = e;
		ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &r).result);
	}
	void del(const igmp_entry_info &e)
	{
		igmp_entry_info r = e;
		ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_DEL, &r).result);
	}
	// A data frame of the group passing the data path, so that the
	// entries learn flow @idx, which the hardware learned with VID 100.
	void learn(int idx)
	{
		u64 m = 0;
		foe_index = idx;
		igmp_get_fwd_portmask(frames::skb_from(udp()).get(), &m);
		flow(idx, 1, 0x81000064);
		hw.clear();
	}
	int one_to_n(const Bytes &f, Bytes *after = nullptr)
	{
		frames::Skb skb(eth_skb(f));
		int r = api_skb(QUOR_MC_API_VLAN_IS_ONE_TO_N, skb.get());
		if (after)
			*after = data_of(skb.get());
		return r;
	}
};

TEST_F(VlanOps, OperationTwoSeesTheRealTypeAndReturnsTheFrameAsItCame)
{
	add(member(0, 1, 100));
	add(member(1, 1, 200));
	for (auto &c : stag_cases()) {
		Bytes after, expect = c.in;
		if (c.kind == 0)
			expect[14] = expect[15] = 0;	// the second half is not kept
		EXPECT_EQ(c.kind == 3 ? -1 : 2, one_to_n(c.in, &after)) << c.kind;
		EXPECT_EQ(frames::hex(expect), frames::hex(after)) << c.kind;
	}
}

TEST_F(VlanOps, OperationThreeSendsCopiesWithTheRealType)
{
	quor_igmp_set_filterMode(IGMP_FILTER_MAC);	// type 3 has no readable IP
	add(member(0));
	add(member(1));
	for (auto &c : stag_cases()) {
		host_netdev_tx_clear(dev["eth0.1"]);
		host_netdev_tx_clear(dev["eth0.2"]);
		EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, eth_skb(c.in)));
		ASSERT_EQ(1u, tx("eth0.1")) << c.kind;
		EXPECT_EQ(frames::hex(c.real), frames::hex(sent("eth0.1"))) << c.kind;
		EXPECT_EQ(frames::hex(c.real), frames::hex(sent("eth0.2"))) << c.kind;
	}
}

// A clone shares its data with another owner: operations 2 and 3 must
// edit a private copy, never the bytes the other owner still reads.
TEST_F(VlanOps, ClonedFramesDoNotChangeUnderTheirOtherOwner)
{
	quor_igmp_set_filterMode(IGMP_FILTER_MAC);
	add(member(0, 1, 100));
	add(member(1, 1, 200));
	for (u32 op : { QUOR_MC_API_VLAN_IS_ONE_TO_N, QUOR_MC_API_VLAN_HANDLE }) {
		for (auto &c : stag_cases()) {
			frames::Skb other(eth_skb(c.in));
			sk_buff *mine = skb_clone(other.get(), GFP_ATOMIC);
			api_skb(op, mine);
			if (op == QUOR_MC_API_VLAN_IS_ONE_TO_N)
				kfree_skb(mine);	// given back
			EXPECT_EQ(frames::hex(c.in), frames::hex(data_of(other.get())))
				<< op << "/" << c.kind;
		}
	}
}

TEST_F(VlanOps, SwitchTagRemovalAndRecoveryBounds)
{
	u8 type = 9;
	u16 value = 9;
	frames::Skb ip(eth_skb(udp()));
	quor_remove_stag(ip.get(), &type, &value);
	EXPECT_EQ(9, type);	// no switch tag: neither output written
	EXPECT_EQ(9, value);
	EXPECT_EQ(udp(), data_of(ip.get()));

	// Type 0 goes back only with 4 bytes of headroom.
	for (unsigned room : { 3u, 4u }) {
		frames::Skb skb(eth_skb(udp(), room));
		skb_reset_mac_header(skb.get());
		quor_recover_stag(skb.get(), 0, 0x0005);
		quor_recover_stag(skb.get(), -1, 0x0005);
		Bytes expect = room < 4 ? udp() : edit(udp(), 12, { 0, 5, 0, 0 }, true);
		EXPECT_EQ(frames::hex(expect), frames::hex(data_of(skb.get()))) << room;
		EXPECT_EQ(skb->data, skb_mac_header(skb.get()));
	}
}

TEST_F(VlanOps, OneToNDecision)
{
	struct {
		const char *what;
		std::vector<igmp_entry_info> members;
		int result;
	} cases[] = {
		{ "Wi-Fi member, same treatment", { member(0, 1, 100), member(16, 1, 100) }, 2 },
		{ "LAN, only TPIDs differ", { member(0, 1, 100, 5, 0x8100), member(1, 1, 100, 5, 0x88a8) }, -1 },
		{ "LAN, outer TCI differs", { member(0, 1, 100), member(1, 1, 200) }, 2 },
		{ "LAN, inner TCI differs", { member(0, 4, 100, 5), member(1, 4, 100, 6) }, 2 },
		{ "LAN, mode differs", { member(0, 1, 100), member(1, 2, 100) }, 2 },
		{ "LAN, three equal", { member(0, 3), member(2, 3), member(3, 3) }, -1 },
		{ "single member", { member(0, 1, 100) }, -1 },
	};
	for (auto &c : cases) {
		api(QUOR_MC_API_CLEAR_ALL, nullptr);
		for (auto &m : c.members)
			add(m);
		EXPECT_EQ(c.result, one_to_n(udp())) << c.what;
	}
	quor_mc_debug_level = 3;
	log_take();
	one_to_n(udp());
	EXPECT_NE(std::string::npos,
		  log_take().find("[quor_vlan_IsOneToN]interface counter < 2...\n"));
	// Snooping off floods to the Wi-Fi ports with a device: 1:N.
	quor_igmp_set_snooping(0);
	EXPECT_EQ(2, one_to_n(udp()));
}

TEST_F(VlanOps, OneToNFrameGetsItsFlowsLearnedTagsBack)
{
	add(member(0, 1, 100));
	add(member(1, 1, 200));
	foe_index = 9;
	flow(9, 2, 0x88a80064, 0x810000c8);
	EXPECT_EQ(2, one_to_n(udp()));
	EXPECT_EQ(std::vector<std::string>{ "vlan(9,0x88a80064,0x810000c8)" }, hw);
}

TEST_F(VlanOps, EntryAddAndDeleteMoveTheFlowBetweenHardwareAndSoftware)
{
	add(member(0, 1, 300));
	learn(7);
	add(member(1, 1, 300));	// uniform: first member's action, engine ports
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x8100012c,0x0)", "dp(7,1)" }), hw);
	hw.clear();
	add(member(2, 1, 400));	// 1:N: learned tags, to software
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x81000064,0x0)", "dp(7,0)" }), hw);
	hw.clear();
	del(member(2, 1, 400));	// uniform again
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x8100012c,0x0)", "dp(7,1)" }), hw);
	hw.clear();
	add(member(16, 1, 300));	// a Wi-Fi member makes it 1:N
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x81000064,0x0)", "dp(7,0)" }), hw);
	hw.clear();
	del(member(16));
	del(member(1));		// one member left: not 1:N
	EXPECT_EQ((std::vector<std::string>{ "vlan(7,0x8100012c,0x0)", "dp(7,1)",
					     "vlan(7,0x8100012c,0x0)", "dp(7,1)" }), hw);
}

TEST_F(VlanOps, NoHardwareCallsWithoutAFlowOrWithoutHooks)
{
	add(member(0, 1, 100));
	add(member(1, 1, 200));	// entries never saw a frame: flow index -1
	EXPECT_TRUE(hw.empty());
	learn(7);
	ux_sw_nat_hook_update_vlan = nullptr;
	ux_sw_nat_hook_update_dp = nullptr;
	add(member(2, 1, 300));
	del(member(2));
	EXPECT_TRUE(hw.empty());
}

TEST_F(VlanOps, OperationThreeConsumesItsFrameOnEveryPath)
{
	quor_peer_mc mc{};
	mc.api_function_id = QUOR_MC_API_VLAN_HANDLE;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	EXPECT_EQ(-1, mc.result);	// no frame

	dev["eth0.2"]->flags &= ~IFF_UP;
	auto run = [&](const char *what, bool fail_copies) {
		long live = host_alloc_live();
		sk_buff *skb = eth_skb(udp());
		host_alloc_fail_all(fail_copies);
		EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, skb)) << what;
		host_alloc_fail_all(0);
		EXPECT_EQ(live, host_alloc_live()) << what;
	};
	quor_mc_debug_level = 3;
	run("no member", false);
	EXPECT_NE(std::string::npos, log_take().find("[quor_mcst_vlan_handle]dev = NULL\n"));
	add(member(1));		// device down
	add(member(5));		// no device
	run("members without a device up", false);
	EXPECT_EQ(0u, tx("eth0.2"));
	add(member(0));
	run("copies cannot be made", true);
	EXPECT_EQ(0u, tx("eth0.1"));
	run("sent", false);
	EXPECT_EQ(1u, tx("eth0.1"));
}

TEST_F(VlanOps, PortsWithoutADeviceDoNotUseUpTheCopies)
{
	add(member(0));
	add(member(12));	// not counted, no device
	add(member(16));
	EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, eth_skb(udp())));
	EXPECT_EQ(1u, tx("eth0.1"));
	EXPECT_EQ(1u, tx("ux0"));
}

TEST_F(VlanOps, SnoopingOffSendsToEveryPortWithADeviceUp)
{
	quor_igmp_set_snooping(0);
	dev["eth0.2"]->flags &= ~IFF_UP;
	EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, eth_skb(udp())));
	for (const char *n : { "eth0.1", "eth0.3", "eth0.4", "ux0", "ux4" })
		EXPECT_EQ(1u, tx(n)) << n;
	EXPECT_EQ(0u, tx("eth0.2"));
}

} // namespace
