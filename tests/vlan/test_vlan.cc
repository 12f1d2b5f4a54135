// The six VLAN treatments on frame copies, and the tag words the engine is
// given for hardware flows.
#include <numeric>

#include "hwnat/hwnat_test.h"

extern "C" {
#include "vlan/vlan.h"
}

namespace {

// An IPv4 Ethernet frame with the given tags and @payload bytes 0, 1, ...
Bytes frame(const std::vector<Tag> &tags, size_t payload = 30)
{
	Bytes p(payload);

	std::iota(p.begin(), p.end(), 0);
	return eth(mac("01:00:5e:01:01:01"), mac("00:11:22:33:44:55"), tags, 0x0800, p);
}

// A buffer as the transmit path holds a copy: data at the MAC header.
sk_buff *skb_of(const Bytes &b, unsigned headroom = 64)
{
	sk_buff *skb = alloc_skb(headroom + b.size() + 16, GFP_ATOMIC);

	skb_reserve(skb, headroom);
	if (!b.empty())
		memcpy(skb_put(skb, b.size()), b.data(), b.size());
	skb_reset_mac_header(skb);
	return skb;
}

Bytes bytes_of(sk_buff *skb) { return Bytes(skb_mac_header(skb), skb_tail_pointer(skb)); }

class Vlan : public Hwnat {};

// Each treatment on frames with zero, one and two tags.  A VID of 4095
// means "not given".
TEST_F(Vlan, TreatmentsOnFrameCopies)
{
	const Bytes none = frame({});
	const Bytes two = frame({ { 0x8100, 0x0001 }, { 0x9100, 0x0002 } });
	const Bytes two_pri = frame({ { 0x8100, 0x1064 }, { 0x8100, 0x0002 } });
	const Bytes s_tag = frame({ { 0x88a8, 0xB064 } });
	const struct { const char *what; Bytes in; u32 mode; u16 otci, itci; Bytes out; } cases[] = {
		{ "unknown mode", s_tag, 6, 5, 6, s_tag },
		{ "replace keeps priority, DEI, TPID", s_tag, JIX_VLAN_REPLACE, 10, 20, frame({ { 0x88a8, 0xB00A } }) },
		{ "replace inner only", two, JIX_VLAN_REPLACE, 0xFFF, 100, frame({ { 0x8100, 1 }, { 0x9100, 100 } }) },
		{ "replace and remark whole TCIs", two_pri, JIX_VLAN_REPLACE_REMARK, 0xA00A, 0xE014,
		  frame({ { 0x8100, 0xA00A }, { 0x8100, 0xE014 } }) },
		{ "bad outer VID does not stop the inner", two_pri, JIX_VLAN_REPLACE_REMARK, 0xAFFF, 0x6014,
		  frame({ { 0x8100, 0x1064 }, { 0x8100, 0x6014 } }) },
		{ "remark, inner VID not given", two_pri, JIX_VLAN_REPLACE_REMARK, 0xA00A, 0x6FFF,
		  frame({ { 0x8100, 0xA00A }, { 0x8100, 0x0002 } }) },
		{ "add: inner first, priority 0", none, JIX_VLAN_ADD, 0xA00A, 0x6014, frame({ { 0x8100, 10 }, { 0x8100, 20 } }) },
		{ "add and remark", none, JIX_VLAN_ADD_REMARK, 0xA00A, 0x6014, frame({ { 0x8100, 0xA00A }, { 0x8100, 0x6014 } }) },
		{ "strip leaves 0x9100", frame({ { 0x9100, 5 } }), JIX_VLAN_STRIP, 0, 0, frame({ { 0x9100, 5 } }) },
		{ "strip the outer tag only", frame({ { 0x88a8, 0xA064 }, { 0x8100, 5 } }), JIX_VLAN_STRIP, 0, 0,
		  frame({ { 0x8100, 5 } }) },
	};
	for (const auto &c : cases) {
		sk_buff *skb = skb_of(c.in);
		jix_skb_set_vendor_flags(skb, (7u << 11) | 0x2);
		jix_vlan_apply(skb, c.mode, c.otci, c.itci);
		EXPECT_EQ(c.out, bytes_of(skb)) << c.what;
		EXPECT_EQ(skb->data, skb_mac_header(skb)) << c.what;
		if (c.mode == JIX_VLAN_STRIP && c.in.size() > c.out.size()) {
			// The removed priority goes to metadata bits 13..11 with bit 16.
			EXPECT_EQ((5u << 11) | (1u << 16) | 0x2, jix_skb_vendor_flags(skb));
			EXPECT_EQ(htons(0x8100), skb->protocol);
		}
		kfree_skb(skb);
	}
	// The exported remark call leaves a tag alone for a priority above 7.
	sk_buff *skb = skb_of(two_pri);
	jix_mcts_vlan_replace_and_remark(skb, 10, 20, 8, 3);
	EXPECT_EQ(frame({ { 0x8100, 0x1064 }, { 0x8100, 0x6014 } }), bytes_of(skb));
	kfree_skb(skb);
}

TEST_F(Vlan, AddWithoutHeadroomOrMemoryLeavesAValidFrameAndCutFramesAreSafe)
{
	sk_buff *skb = skb_of(frame({}), 0);
	host_alloc_fail_all(1);
	jix_vlan_apply(skb, JIX_VLAN_ADD, 10, 0xFFF);
	host_alloc_fail_all(0);
	EXPECT_EQ(frame({}), bytes_of(skb));	// unchanged, still usable
	jix_vlan_apply(skb, JIX_VLAN_ADD, 10, 0xFFF);
	EXPECT_EQ(frame({ { 0x8100, 10 } }), bytes_of(skb));
	kfree_skb(skb);
	// No treatment reads past the end of a cut frame (AddressSanitizer).
	Bytes full = frame({ { 0x8100, 0x2064 }, { 0x8100, 3 } }, 0);
	for (size_t n = 0; n <= full.size(); n++) {
		for (u32 mode = 0; mode < 6; mode++) {
			skb = skb_of(Bytes(full.begin(), full.begin() + n));
			jix_vlan_apply(skb, mode, 10, 20);
			kfree_skb(skb);
		}
	}
}

// The treatment of the first entry (list order) whose port is in the mask,
// applied to the tags flow 9 was learned with, reaches the driver.
TEST_F(Vlan, HardwareTagWordsOfTheFirstMemberEntry)
{
	const Tag t8100{ 0x8100, 0xB064 }, t88a8{ 0x88a8, 0x1003 }, c100{ 0x8100, 0x0064 };
	const struct { const char *name; u32 mode; u16 otci, itci; std::vector<Tag> learned; u64 mask; const char *call; } cases[] = {
		{ "replace, one learned tag", JIX_VLAN_REPLACE, 0x000A, 0x0014, { c100 }, 0x6, "vlan(9,0x8100000a,0x0) " },
		{ "replace, no learned tag", JIX_VLAN_REPLACE, 0xA00A, 0x0014, {}, 0x6, "vlan(9,0x0,0x0) " },
		{ "remark, inner VID not given", JIX_VLAN_REPLACE_REMARK, 0xA00A, 0x6FFF, { t8100, t88a8 }, 0x6, "vlan(9,0x8100b00a,0x0) " },
		{ "remark, outer VID not given", JIX_VLAN_REPLACE_REMARK, 0xAFFF, 0x6014, { t8100, t88a8 }, 0x6, "vlan(9,0x0,0x88a87014) " },
		{ "add the inner VID only", JIX_VLAN_ADD, 0xFFF, 0x2014, { c100 }, 0x6, "vlan(9,0x81002014,0x81000064) " },
		{ "add the outer VID only", JIX_VLAN_ADD, 0x200A, 0xFFF, { c100 }, 0x6, "vlan(9,0x8100200a,0x81000064) " },
		{ "add and remark", JIX_VLAN_ADD_REMARK, 0xA00A, 0x2014, { c100 }, 0x6, "vlan(9,0x8100a00a,0x81002014) " },
		{ "add, no VID given", JIX_VLAN_ADD, 0xFFF, 0xFFF, { c100 }, 0x6, "vlan(9,0x0,0x0) " },
		{ "strip the only tag", JIX_VLAN_STRIP, 0, 0, { c100 }, 0x6, "vlan(9,0x0,0x0) " },
		{ "strip, the inner moves out", JIX_VLAN_STRIP, 0, 0, { t88a8, c100 }, 0x6, "vlan(9,0x81000064,0x0) " },
		{ "strip, no learned tag", JIX_VLAN_STRIP, 0, 0, {}, 0x6, "vlan(9,0x0,0x0) " },
		{ "unknown mode", 9, 0, 0, { c100 }, 0x6, "" },
		{ "no member entry", JIX_VLAN_STRIP, 0, 0, { c100 }, 0x20, "" },
	};
	vlan_action a{};
	EXPECT_EQ(0, quor_get_entry_vlan_action(~0ull, &a));	// empty database
	for (const auto &c : cases) {
		jix_xpon_hwnat_clear_flows();
		quor_igmp_clear_all_entry();
		drv.foe = 9;
		bind(v4("239.1.1.1", c.learned), 0x1);
		igmp_entry_info e = entry(2, "239.1.1.1"), e2 = entry(1, "239.1.1.1");
		e.vlan_mode = c.mode;
		e.outer_tci = c.otci;
		e.inner_tci = c.itci;
		e2.vlan_mode = 9;	// after the first member entry on the list
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
		ASSERT_EQ(0, quor_igmp_add_entry(&e2));
		drv.calls.clear();
		quor_mcst_do_vlan(9, c.mask);
		EXPECT_EQ(c.call, drv.calls) << c.name;
	}
}

} // namespace
