// SPDX-License-Identifier: GPL-2.0
/*
 * VLAN tag words for hardware flows: from the tags a flow was learned with
 * and the VLAN action of a member entry, the tags the forwarding engine is
 * to put on the flow's frames.  No frame is touched; new tags always carry
 * TPID 0x8100.  Each lookup holds its lock only for its walk, and the
 * driver hook is called with no lock held.
 */
#include "vlan.h"
#include "fdb/fdb.h"
#include "hwnat/hwnat.h"

#define TAG_WORD(tci)	((u32)JIX_VLAN_TPID_8021Q << 16 | (tci))

static bool vid_given(u16 tci)
{
	return (tci & JIX_VID_NONE) != JIX_VID_NONE;
}

/* The VLAN action of the first entry (list order) on a port of @mask. */
int quor_get_entry_vlan_action(u64 mask, struct vlan_action *action)
{
	struct igmp_fdb_entry *e;
	int found = 0;

	if (igmp_fdb_empty())
		return 0;
	spin_lock_bh(&igmp_fdb_lock);
	list_for_each_entry(e, igmp_get_fdb_list(), list) {
		if (!((mask >> (e->port % 32)) & 1))
			continue;
		jix_vlan_action_of(e, action);
		found = 1;
		break;
	}
	spin_unlock_bh(&igmp_fdb_lock);
	return found;
}

/* The learned tags of the flow; the last record of the index wins. */
void quor_mcst_get_skb_vlan(u32 flow_idx, u32 *outer, u32 *inner, u32 *tag_num)
{
	jix_hwnat_learned_tags((s32)flow_idx, outer, inner, tag_num);
}

/* Replace a tag word's VID (and with @remark its priority bits). */
static u32 vlan_replace_word(u32 word, u16 tci, bool remark)
{
	u32 keep = remark ? 0xFFFF1000U : 0xFFFFF000U;

	return (word & keep) | (tci & (remark ? 0xEFFFU : 0x0FFFU));
}

static void quor_mcst_vlan_replace_common(u32 flow_idx, const struct vlan_action *act,
					  u32 *outer, u32 *inner, bool remark)
{
	u32 f_outer = 0, f_inner = 0, tags = 0;

	quor_mcst_get_skb_vlan(flow_idx, &f_outer, &f_inner, &tags);
	if ((s32)tags <= 0)
		return;
	if (vid_given(act->outer_tci))
		*outer = vlan_replace_word(f_outer, act->outer_tci, remark);
	if (vid_given(act->inner_tci) && tags > 1)
		*inner = vlan_replace_word(f_inner, act->inner_tci, remark);
}

void quor_mcst_vlan_replace(u32 flow_idx, const struct vlan_action *act,
			    u32 *outer, u32 *inner)
{
	quor_mcst_vlan_replace_common(flow_idx, act, outer, inner, false);
}

void quor_mcst_vlan_replace_and_remark(u32 flow_idx, const struct vlan_action *act,
				       u32 *outer, u32 *inner)
{
	quor_mcst_vlan_replace_common(flow_idx, act, outer, inner, true);
}

/* Add carries the configured TCI whole, priority bits included. */
void quor_mcst_vlan_add(u32 flow_idx, const struct vlan_action *act,
			u32 *outer, u32 *inner)
{
	bool o = vid_given(act->outer_tci), i = vid_given(act->inner_tci);
	u32 f_outer = 0, f_inner = 0, tags = 0;

	if (!o && !i)
		return;
	quor_mcst_get_skb_vlan(flow_idx, &f_outer, &f_inner, &tags);
	if (o && i) {
		*outer = TAG_WORD(act->outer_tci);
		*inner = TAG_WORD(act->inner_tci);
		return;
	}
	*outer = TAG_WORD(o ? act->outer_tci : act->inner_tci);
	*inner = f_outer;
}

void quor_mcst_vlan_add_and_remark(u32 flow_idx, const struct vlan_action *act,
				   u32 *outer, u32 *inner)
{
	quor_mcst_vlan_add(flow_idx, act, outer, inner);
}

static void vlan_strip_words(u32 tags, u32 f_inner, u32 *outer, u32 *inner)
{
	if (tags == 1) {
		*outer = 0;
		*inner = 0;
	} else if (tags == 2) {
		*outer = f_inner;
		*inner = 0;
	}
}

void quor_mcst_vlan_strip(u32 flow_idx, u32 *outer, u32 *inner)
{
	u32 f_outer = 0, f_inner = 0, tags = 0;

	quor_mcst_get_skb_vlan(flow_idx, &f_outer, &f_inner, &tags);
	vlan_strip_words(tags, f_inner, outer, inner);
}

/* Apply the first member entry's VLAN action to the flow in hardware. */
void quor_mcst_do_vlan(u32 flow_idx, u64 mask)
{
	int (*update)(int index, unsigned int outer, unsigned int inner);
	u32 outer = 0, inner = 0, f_outer = 0, f_inner = 0, tags = 0;
	struct vlan_action act = { 0 };

	if (!quor_get_entry_vlan_action(mask, &act))
		return;
	switch (act.vlan_mode) {
	case JIX_VLAN_TRANSPARENT:
		quor_mcst_get_skb_vlan(flow_idx, &outer, &inner, &tags);
		break;
	case JIX_VLAN_REPLACE:
		quor_mcst_vlan_replace(flow_idx, &act, &outer, &inner);
		break;
	case JIX_VLAN_REPLACE_REMARK:
		quor_mcst_vlan_replace_and_remark(flow_idx, &act, &outer, &inner);
		break;
	case JIX_VLAN_STRIP:
		quor_mcst_get_skb_vlan(flow_idx, &f_outer, &f_inner, &tags);
		vlan_strip_words(tags, f_inner, &outer, &inner);
		break;
	case JIX_VLAN_ADD:
		quor_mcst_vlan_add(flow_idx, &act, &outer, &inner);
		break;
	case JIX_VLAN_ADD_REMARK:
		quor_mcst_vlan_add_and_remark(flow_idx, &act, &outer, &inner);
		break;
	default:
		return;
	}
	update = READ_ONCE(ux_sw_nat_hook_update_vlan);
	if (update)
		update((int)flow_idx, outer, inner);
}
