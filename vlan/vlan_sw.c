// SPDX-License-Identifier: GPL-2.0
/*
 * Software VLAN handlers: edit the tags of one frame copy just before it
 * is sent to a port.  They run in softirq on a copy only the caller owns,
 * take no lock and allocate nothing beyond what adding a tag needs.  Every
 * read and write stays inside the frame (MAC header to tail).
 */
#include "vlan.h"
#include "fdb/fdb.h"

#define VLAN_TYPE_OFF	12	/* first type field */
#define VLAN_TCI1_OFF	14	/* TCI of the first tag */
#define VLAN_TCI2_OFF	18	/* TCI of the second tag */
#define VLAN_STRIP_META_PRI_SHIFT 11
#define VLAN_STRIP_META_PRI_MASK (7U << VLAN_STRIP_META_PRI_SHIFT)
#define VLAN_STRIP_META_FLAG	(1U << 16)

const struct jix_vlan_handle jix_vlan_handle_s[JIX_VLAN_MODE_NUM] = {
	{ JIX_VLAN_TRANSPARENT, jix_mcts_vlan_transparent },
	{ JIX_VLAN_REPLACE, jix_mcts_vlan_replace },
	{ JIX_VLAN_REPLACE_REMARK, jix_mcts_vlan_replace_and_remark },
	{ JIX_VLAN_STRIP, jix_mcts_vlan_strip },
	{ JIX_VLAN_ADD, jix_mcts_vlan_add },
	{ JIX_VLAN_ADD_REMARK, jix_mcts_vlan_add_and_remark },
};

static long vlan_frame_len(const struct sk_buff *skb)
{
	return skb_tail_pointer(skb) - skb_mac_header(skb);
}

static u16 vlan_get16(const u8 *p)
{
	return (u16)(p[0] << 8 | p[1]);
}

static void vlan_put16(u8 *p, u16 v)
{
	p[0] = v >> 8;
	p[1] = v & 0xff;
}

static bool vlan_is_tag(u16 type)
{
	return type == ETH_P_8021Q || type == ETH_P_8021AD || type == 0x9100;
}

/* Consecutive tags from the first type field, counting only whole tags. */
static int vlan_count_tags(const struct sk_buff *skb)
{
	const u8 *h = skb_mac_header(skb);
	long len = vlan_frame_len(skb);
	long pos = VLAN_TYPE_OFF;
	int n = 0;

	while (pos + 4 <= len && vlan_is_tag(vlan_get16(h + pos))) {
		n++;
		pos += 4;
	}
	return n;
}

int jix_mcts_vlan_transparent(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			      u64 outer_pri, u64 inner_pri)
{
	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_transparent\n", __func__);
	return 0;
}

/* Replace the VID bits of a tag's TCI; priority and DEI stay. */
static void vlan_set_vid(u8 *tci, u64 vid)
{
	vlan_put16(tci, (vlan_get16(tci) & ~JIX_VID_NONE) | (u16)vid);
}

int jix_mcts_vlan_replace(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			  u64 outer_pri, u64 inner_pri)
{
	u8 *h = skb_mac_header(skb);
	int tags = vlan_count_tags(skb);

	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_replace\n", __func__);
	if (!tags)
		return 0;
	if (outer_vid < JIX_VID_NONE)
		vlan_set_vid(h + VLAN_TCI1_OFF, outer_vid);
	if (inner_vid < JIX_VID_NONE && tags >= 2)
		vlan_set_vid(h + VLAN_TCI2_OFF, inner_vid);
	return 0;
}

/* The whole TCI: VID and priority, DEI cleared. */
int jix_mcts_vlan_replace_and_remark(struct sk_buff *skb, u64 outer_vid,
				     u64 inner_vid, u64 outer_pri, u64 inner_pri)
{
	u8 *h = skb_mac_header(skb);
	int tags = vlan_count_tags(skb);

	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_replace_and_remark\n", __func__);
	if (!tags)
		return 0;
	if (outer_vid < JIX_VID_NONE && outer_pri <= 7)
		vlan_put16(h + VLAN_TCI1_OFF, (u16)(outer_vid + (outer_pri << 13)));
	if (inner_vid < JIX_VID_NONE && inner_pri <= 7 && tags >= 2)
		vlan_put16(h + VLAN_TCI2_OFF, (u16)(inner_vid + (inner_pri << 13)));
	return 0;
}

/*
 * Remove the outermost 0x8100 or 0x88A8 tag, recording its priority in
 * the vendor flags word (bits 13..11, with bit 16 set) for the driver.
 */
int jix_mcts_vlan_strip(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			u64 outer_pri, u64 inner_pri)
{
	u8 *h = skb_mac_header(skb);
	u16 type, next;
	u32 meta;

	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_strip\n", __func__);
	if (vlan_frame_len(skb) < VLAN_TCI2_OFF || skb->len < VLAN_HLEN_BYTES)
		return 0;
	type = vlan_get16(h + VLAN_TYPE_OFF);
	if (type != ETH_P_8021Q && type != ETH_P_8021AD)
		return 0;
	meta = jix_skb_vendor_flags(skb) & ~VLAN_STRIP_META_PRI_MASK;
	meta |= (u32)(vlan_get16(h + VLAN_TCI1_OFF) >> 13) << VLAN_STRIP_META_PRI_SHIFT;
	jix_skb_set_vendor_flags(skb, meta | VLAN_STRIP_META_FLAG);
	next = vlan_get16(h + VLAN_TCI1_OFF + 2);
	memmove(h + VLAN_HLEN_BYTES, h, ETH_HLEN);
	skb_pull(skb, VLAN_HLEN_BYTES);
	skb->mac_header += VLAN_HLEN_BYTES;
	vlan_put16(skb_mac_header(skb) + VLAN_TYPE_OFF, next);
	skb->protocol = htons(next);
	return 0;
}

int jix_mcts_vlan_add(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
		      u64 outer_pri, u64 inner_pri)
{
	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_add\n", __func__);
	if (vlan_frame_len(skb) < 2 * ETH_ALEN)
		return 0;
	if (inner_vid < JIX_VID_NONE)
		jix_vlan_put_tag(skb, (u16)inner_vid);
	if (outer_vid < JIX_VID_NONE)
		jix_vlan_put_tag(skb, (u16)outer_vid);
	return 0;
}

int jix_mcts_vlan_add_and_remark(struct sk_buff *skb, u64 outer_vid,
				 u64 inner_vid, u64 outer_pri, u64 inner_pri)
{
	jix_dbg(JIX_DBG_TRACE, "[%s]jix_mcts_vlan_add_and_remark\n", __func__);
	if (vlan_frame_len(skb) < 2 * ETH_ALEN)
		return 0;
	if (inner_vid < JIX_VID_NONE && inner_pri <= 7)
		jix_vlan_put_tag(skb, (u16)(inner_vid + (inner_pri << 13)));
	if (outer_vid < JIX_VID_NONE && outer_pri <= 7)
		jix_vlan_put_tag(skb, (u16)(outer_vid + (outer_pri << 13)));
	return 0;
}

void jix_vlan_action_of(const struct igmp_fdb_entry *e, struct vlan_action *a)
{
	a->vlan_mode = e->vlan_mode;
	a->outer_tpid = e->outer_tpid;
	a->outer_tci = e->outer_tci;
	a->inner_tpid = e->inner_tpid;
	a->inner_tci = e->inner_tci;
}

void jix_vlan_apply(struct sk_buff *skb, u32 mode, u16 outer_tci, u16 inner_tci)
{
	int i;

	for (i = 0; i < JIX_VLAN_MODE_NUM; i++) {
		if (jix_vlan_handle_s[i].mode != (u16)mode)
			continue;
		jix_vlan_handle_s[i].handler(skb, outer_tci & JIX_VID_NONE,
					     inner_tci & JIX_VID_NONE,
					     outer_tci >> 13, inner_tci >> 13);
		return;
	}
}

/*
 * Whether @mode's handler leaves the bytes and vendor words of @skb as
 * they are, so that the frame may be shared rather than copied:
 * transparent, a mode without a handler, a replace on an untagged frame,
 * a strip without a 0x8100/0x88A8 tag in front, an add of no tag.
 */
bool jix_vlan_keeps(const struct sk_buff *skb, u32 mode, u16 outer_tci,
		    u16 inner_tci)
{
	const u8 *h = skb_mac_header(skb);
	u16 type;

	switch ((u16)mode) {
	case JIX_VLAN_TRANSPARENT:
		return true;
	case JIX_VLAN_REPLACE:
	case JIX_VLAN_REPLACE_REMARK:
		return !vlan_count_tags(skb);
	case JIX_VLAN_STRIP:
		if (vlan_frame_len(skb) < VLAN_TCI2_OFF || skb->len < VLAN_HLEN_BYTES)
			return true;
		type = vlan_get16(h + VLAN_TYPE_OFF);
		return type != ETH_P_8021Q && type != ETH_P_8021AD;
	case JIX_VLAN_ADD:
	case JIX_VLAN_ADD_REMARK:
		return (outer_tci & JIX_VID_NONE) == JIX_VID_NONE &&
		       (inner_tci & JIX_VID_NONE) == JIX_VID_NONE;
	default:
		return true;
	}
}
