// The six VLAN treatments on frame copies, and the tag words computed for
// hardware flows.
#include <numeric>

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "hwnat/hwnat_flow.h"
#include "vlan/vlan.h"
}

namespace {

using frames::Bytes;
using frames::Tag;

// An IPv4 Ethernet frame with the given tags and @payload bytes 0, 1, ...
Bytes frame(const std::vector<Tag> &tags, size_t payload = 30)
{
	Bytes p(payload);

	std::iota(p.begin(), p.end(), 0);
	return frames::eth(frames::mac("01:00:5e:01:01:01"),
			   frames::mac("00:11:22:33:44:55"), tags, 0x0800, p);
}

// A buffer as the transmit path holds a copy: data at the MAC header.
sk_buff *skb_of(const Bytes &b, unsigned headroom = 64)
{
	sk_buff *skb = alloc_skb(headroom + b.size() + 16, GFP_ATOMIC);

	skb_reserve(skb, headroom);
	memcpy(skb_put(skb, b.size()), b.data(), b.size());
	skb_reset_mac_header(skb);
	return skb;
}

Bytes bytes_of(sk_buff *skb)
{
	return Bytes(skb_mac_header(skb), skb_tail_pointer(skb));
}

// A learned flow on the flow list; it goes at module stop.
void flow(s32 index, u32 tags, u32 outer, u32 inner)
{
	hwnat_flow_entry *f = hwnat_rec_alloc();

	f->index = index;
	f->tag_num = tags;
	f->outer_tag = outer;
	f->inner_tag = inner;
	spin_lock_bh(&hwnat_flow_lock);
	hwnat_rec_add(&hwnat_flows, f, [](timer_list *) {});
	spin_unlock_bh(&hwnat_flow_lock);
}

using Vlan = jt::ModuleTest;

// Each treatment on frames with zero, one and two tags.  A VID of 4095
// means "not given"; only the low 16 bits of the mode select.
TEST_F(Vlan, TreatmentsOnFrameCopies)
{
	const Bytes none = frame({}), one = frame({ { 0x8100, 0x2064 } });
	const Bytes two = frame({ { 0x8100, 0x0001 }, { 0x9100, 0x0002 } });
	const Bytes two_pri = frame({ { 0x8100, 0x1064 }, { 0x8100, 0x0002 } });
	const Bytes s_tag = frame({ { 0x88a8, 0xB064 } });
	const struct {
		const char *what;
		Bytes in;
		u32 mode;
		u16 otci, itci;
		Bytes out;
	} cases[] = {
		{ "transparent", one, JIX_VLAN_TRANSPARENT, 5, 6, one },
		{ "unknown mode", one, 6, 5, 6, one },
		{ "mode in the low 16 bits", one, 0x10003, 5, 6, none },
		{ "replace keeps priority, DEI, TPID", s_tag, JIX_VLAN_REPLACE, 10, 20,
		  frame({ { 0x88a8, 0xB00A } }) },
		{ "replace, single tag has no inner", s_tag, JIX_VLAN_REPLACE, 0xFFF, 100, s_tag },
		{ "replace inner only", two, JIX_VLAN_REPLACE, 0xFFF, 100,
		  frame({ { 0x8100, 0x0001 }, { 0x9100, 0x0064 } }) },
		{ "replace untagged", none, JIX_VLAN_REPLACE, 10, 20, none },
		{ "replace and remark whole TCIs", two_pri, JIX_VLAN_REPLACE_REMARK, 0xA00A, 0xE014,
		  frame({ { 0x8100, 0xA00A }, { 0x8100, 0xE014 } }) },
		{ "bad outer VID does not stop the inner", two_pri, JIX_VLAN_REPLACE_REMARK,
		  0xAFFF, 0x6014, frame({ { 0x8100, 0x1064 }, { 0x8100, 0x6014 } }) },
		{ "remark, inner VID not given", two_pri, JIX_VLAN_REPLACE_REMARK, 0xA00A, 0x6FFF,
		  frame({ { 0x8100, 0xA00A }, { 0x8100, 0x0002 } }) },
		{ "add: inner first, priority 0", none, JIX_VLAN_ADD, 0xA00A, 0x6014,
		  frame({ { 0x8100, 10 }, { 0x8100, 20 } }) },
		{ "add inner only", frame({ { 0x88a8, 7 } }), JIX_VLAN_ADD, 0xFFF, 20,
		  frame({ { 0x8100, 20 }, { 0x88a8, 7 } }) },
		{ "add and remark", none, JIX_VLAN_ADD_REMARK, 0xA00A, 0x6014,
		  frame({ { 0x8100, 0xA00A }, { 0x8100, 0x6014 } }) },
		{ "strip untagged", none, JIX_VLAN_STRIP, 0, 0, none },
		{ "strip leaves 0x9100", frame({ { 0x9100, 5 } }), JIX_VLAN_STRIP, 0, 0,
		  frame({ { 0x9100, 5 } }) },
		{ "strip the outer tag only", frame({ { 0x88a8, 0xA064 }, { 0x8100, 5 } }),
		  JIX_VLAN_STRIP, 0, 0, frame({ { 0x8100, 5 } }) },
	};
	for (const auto &c : cases) {
		sk_buff *skb = skb_of(c.in);
		jix_vlan_apply(skb, c.mode, c.otci, c.itci);
		EXPECT_EQ(c.out, bytes_of(skb)) << c.what;
		kfree_skb(skb);
	}
	// The exported remark call leaves a tag alone for a priority above 7.
	sk_buff *skb = skb_of(two_pri);
	jix_mcts_vlan_replace_and_remark(skb, 10, 20, 8, 3);
	EXPECT_EQ(frame({ { 0x8100, 0x1064 }, { 0x8100, 0x6014 } }), bytes_of(skb));
	kfree_skb(skb);
}

// Strip records the removed priority in metadata bits 13..11 and sets bit
// 16; other bits stay.
TEST_F(Vlan, StripSetsProtocolAndRecordsPriority)
{
	sk_buff *skb = skb_of(frame({ { 0x88a8, 0xA064 }, { 0x8100, 0x0005 } }));
	jix_skb_set_vendor_flags(skb, (7u << 11) | 0x2);
	jix_vlan_apply(skb, JIX_VLAN_STRIP, 0, 0);
	EXPECT_EQ(htons(0x8100), skb->protocol);
	EXPECT_EQ((5u << 11) | (1u << 16) | 0x2, jix_skb_vendor_flags(skb));
	EXPECT_EQ(skb->data, skb_mac_header(skb));
	kfree_skb(skb);
}

TEST_F(Vlan, AddWithoutHeadroomOrMemoryLeavesAValidFrameAndCutFramesAreSafe)
{
	Bytes in = frame({});
	sk_buff *skb = skb_of(in, 0);
	host_alloc_fail_all(1);
	jix_vlan_apply(skb, JIX_VLAN_ADD, 10, 0xFFF);
	host_alloc_fail_all(0);
	EXPECT_EQ(in, bytes_of(skb));	// unchanged, still usable
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

using WordsFn = void (*)(u32 idx, const vlan_action *a, u32 *outer, u32 *inner);

// Flows 7 (0x8100 B064 over 0x88a8 1003), 3 (0x8100 0064), 4 (0x88a8 0001
// over 0x8100 0002) and twice 5; words start as @o0 / @i0.
TEST_F(Vlan, HardwareTagWords)
{
	flow(7, 2, 0x8100B064, 0x88a81003);
	flow(3, 1, 0x81000064, 0);
	flow(4, 2, 0x88a80001, 0x81000002);
	flow(5, 1, 0x81000001, 0);
	flow(5, 2, 0x81000002, 0x81000003);
	WordsFn strip = [](u32 idx, const vlan_action *, u32 *o, u32 *i) {
		quor_mcst_vlan_strip(idx, o, i);
	};
	WordsFn learned = [](u32 idx, const vlan_action *, u32 *o, u32 *i) {
		u32 n;
		quor_mcst_get_skb_vlan(idx, o, i, &n);
	};
	const struct {
		const char *what;
		WordsFn fn;
		u32 idx;
		u16 otci, itci;
		u32 o0, i0, outer, inner;
	} cases[] = {
		{ "replace VIDs", quor_mcst_vlan_replace, 7, 0x000A, 0x0014, 0, 0,
		  0x8100B00A, 0x88a81014 },
		{ "remark, inner VID not given", quor_mcst_vlan_replace_and_remark, 7,
		  0xA00A, 0x6FFF, 0, 0, 0x8100B00A, 0 },
		{ "replace, no such flow", quor_mcst_vlan_replace, 8, 0xA00A, 1, 0, 0, 0, 0 },
		{ "add inner only", quor_mcst_vlan_add, 3, 0xFFF, 0x2014, 0, 0,
		  0x81002014, 0x81000064 },
		{ "add and remark", quor_mcst_vlan_add_and_remark, 3, 0xA00A, 0x2014, 0, 0,
		  0x8100A00A, 0x81002014 },
		{ "add, no VID given", quor_mcst_vlan_add, 3, 0xFFF, 0xFFF, 1, 1, 1, 1 },
		{ "strip the only tag", strip, 3, 0, 0, 1, 1, 0, 0 },
		{ "strip, inner moves out", strip, 4, 0, 0, 1, 1, 0x81000002, 0 },
		{ "learned tags: the last flow of an index", learned, 5, 0, 0, 0, 0,
		  0x81000002, 0x81000003 },
	};
	for (const auto &c : cases) {
		vlan_action a{};
		a.outer_tci = c.otci;
		a.inner_tci = c.itci;
		u32 o = c.o0, i = c.i0;
		c.fn(c.idx, &a, &o, &i);
		EXPECT_EQ(c.outer, o) << c.what;
		EXPECT_EQ(c.inner, i) << c.what;
	}
}

struct {
	int index, calls;
	unsigned outer, inner;
} seen;

TEST_F(Vlan, DoVlanUsesFirstMemberEntryAndCallsTheDriver)
{
	vlan_action a{};
	EXPECT_EQ(0, quor_get_entry_vlan_action(~0ull, &a));	// empty database
	flow(9, 1, 0x81000064, 0);
	const struct {
		u8 port;
		u32 mode;
		u16 otci;
	} entries[] = { { 1, JIX_VLAN_STRIP, 0 }, { 2, JIX_VLAN_ADD, 10 }, { 6, 9, 0 },
			{ 4, JIX_VLAN_TRANSPARENT, 5 } };
	for (const auto &m : entries) {
		igmp_entry_info e = jt::entry(m.port, "239.1.1.1");
		e.grp_ip.addr[3] = m.port;	// one group per port
		e.vlan_mode = m.mode;
		e.outer_tci = m.otci;
		e.inner_tci = m.otci ? 0xFFF : 6;
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}
	seen = {};
	quor_mcst_do_vlan(9, 1u << 2);	// no hook set: nothing happens
	ux_sw_nat_hook_update_vlan = [](int index, unsigned outer, unsigned inner) {
		seen = { index, seen.calls + 1, outer, inner };
		return 0;
	};
	const struct {
		u64 mask;
		int calls;
		u32 outer, inner;
	} cases[] = {
		{ (1u << 2) | (1u << 1), 1, 0, 0 },		// port 1's entry first
		{ 1u << 2, 2, 0x8100000A, 0x81000064 },
		{ 1u << 5, 2, 0x8100000A, 0x81000064 },		// no member entry
		{ 1u << 6, 2, 0x8100000A, 0x81000064 },		// unknown mode
		{ 1u << 4, 3, 0x81000064, 0 },			// transparent: as learned
	};
	for (const auto &c : cases) {
		quor_mcst_do_vlan(9, c.mask);
		EXPECT_EQ(c.calls, seen.calls) << c.mask;
		EXPECT_EQ(9, seen.index);
		EXPECT_EQ(c.outer, seen.outer) << c.mask;
		EXPECT_EQ(c.inner, seen.inner) << c.mask;
	}
	EXPECT_EQ(1, quor_get_entry_vlan_action(1u << 6, &a));
	EXPECT_EQ(9u, a.vlan_mode);
	EXPECT_EQ(0, quor_get_entry_vlan_action(1u << 7, &a));
}

} // namespace
