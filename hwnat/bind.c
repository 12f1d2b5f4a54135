// SPDX-License-Identifier: GPL-2.0
/*
 * Binding a forwarded data flow into the hardware flow table.  The data
 * handler calls this in softirq for every data frame it forwards, with the
 * frame's parse; a frame of a flow that is bound as it stands takes no
 * lock.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "acnt/acnt.h"
#include "datapath/datapath.h"

#define HWNAT_ACNT_SHIFT	17	/* counter id in the forwarding control word */
#define HWNAT_IPV4_HLEN		20
#define HWNAT_IPV6_HLEN		40

/*
 * Group and source of the parsed IPv4 or IPv6 frame (also behind PPPoE)
 * into the cleared 16-byte buffers.  Returns the record's proto, or 0 for
 * another type or a frame too short for its IP header.
 */
static u32 hwnat_frame_addrs(const struct jix_pkt *pk, u8 *grp, u8 *src)
{
	unsigned int need;
	u32 proto;

	if (pk->pkt_type == ETH_P_IP) {
		proto = HWNAT_PROTO_IPV4;
		need = HWNAT_IPV4_HLEN;
	} else if (pk->pkt_type == ETH_P_IPV6) {
		proto = HWNAT_PROTO_IPV6;
		need = HWNAT_IPV6_HLEN;
	} else {
		return 0;
	}
	if (!pk->nh || pk->len - pk->nh < need)
		return 0;
	memcpy(grp, pk->grp.addr, sizeof(pk->grp.addr));
	memcpy(src, pk->src.addr, sizeof(pk->src.addr));
	return proto;
}

/* What a data frame binds: the fields of its flow record. */
static void hwnat_fill(struct hwnat_flow_entry *e, u32 proto,
		       const struct jix_pkt *pk, u64 mask)
{
	e->proto = proto;
	e->index = pk->flow_idx;
	e->vid = (s16)pk->outer_vid;
	e->wifi_num = (s16)hweight64(mask & HWNAT_WIFI_BITS);
	e->mask = mask;
	if (pk->tag_num != 1 && pk->tag_num != 2)
		return;
	e->tag_num = pk->tag_num;
	e->outer_tag = pk->tag[0];
	if (pk->tag_num == 2)
		e->inner_tag = pk->tag[1];
}

/* Whether @old was bound from a frame of the same flow as @want. */
static bool hwnat_same_flow(const struct hwnat_flow_entry *old,
			    const struct hwnat_flow_entry *want)
{
	return old->proto == want->proto && old->vid == want->vid &&
	       old->tag_num == want->tag_num &&
	       old->outer_tag == want->outer_tag &&
	       old->inner_tag == want->inner_tag &&
	       !memcmp(old->grp_addr, want->grp_addr, sizeof(old->grp_addr)) &&
	       !memcmp(old->src_addr, want->src_addr, sizeof(old->src_addr));
}

/* The group's hardware counter, marked into the frame for the engine. */
static void hwnat_mark_acnt(struct sk_buff *skb, int slot)
{
	if (slot >= 0)
		jix_skb_or_hwnat_ctrl(skb, (u32)quor_mcst_slot_id(slot) <<
				      HWNAT_ACNT_SHIFT);
}

/*
 * The common case, without a lock: the index's record describes this
 * flow with this mask and holds its group's slot, so the frame only
 * notes its time (the record's expiry re-arms from it) and is marked.
 */
static bool hwnat_seen(struct sk_buff *skb, const struct hwnat_flow_entry *want)
{
	struct hwnat_flow_entry *old;
	int slot = -1;

	rcu_read_lock();
	old = hwnat_rec_find_rcu(&hwnat_flows, want->index);
	if (old && hwnat_same_flow(old, want) &&
	    READ_ONCE(old->mask) == want->mask) {
		slot = READ_ONCE(hwnat_rec_of(old)->acnt_slot);
		if (slot >= 0)
			hwnat_rec_seen(old);
	}
	rcu_read_unlock();
	hwnat_mark_acnt(skb, slot);
	return slot >= 0;
}

/*
 * A changed flow, under hwnat_flow_lock: a record of the same flow takes
 * the frame's mask (and a slot, when it has none yet); false when a new
 * record is due.
 */
static bool hwnat_rebind(struct sk_buff *skb, const struct hwnat_flow_entry *want)
{
	struct hwnat_flow_entry *old = hwnat_rec_find(&hwnat_flows, want->index);
	struct hwnat_rec *r;

	if (!old || !hwnat_same_flow(old, want) || !hwnat_rec_refresh(old))
		return false;
	r = hwnat_rec_of(old);
	WRITE_ONCE(old->wifi_num, want->wifi_num);
	if (old->mask != want->mask)
		WRITE_ONCE(old->mask, want->mask);
	if (r->acnt_slot < 0)
		WRITE_ONCE(r->acnt_slot, (s16)quor_mcst_slot_hold(old->grp_addr));
	hwnat_mark_acnt(skb, r->acnt_slot);
	return true;
}

/* Mask 0: the flow has no member left; its records go quietly. */
static void hwnat_unbind(s32 index)
{
	spin_lock_bh(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	spin_unlock_bh(&hwnat_flow_lock);
	jix_dbg(JIX_DBG_TRACE, "[%s]fwd_port_mask is 0\n",
		"jix_xpon_hwnat_add_flow");
}

void jix_xpon_hwnat_add_flow(struct sk_buff *skb, const struct jix_pkt *pk,
			     u64 mask)
{
	struct hwnat_flow_entry want, *e;
	int index = pk->flow_idx;
	u32 proto;

	if (index < 0) {
		jix_dbg(JIX_DBG_ACNT, "[%s]index is not correct\n",
			"jix_xpon_hwnat_add_flow");
		return;
	}
	if (!mask) {
		hwnat_unbind(index);
		return;
	}
	memset(&want, 0, sizeof(want));
	proto = hwnat_frame_addrs(pk, want.grp_addr, want.src_addr);
	if (!proto) {
		jix_dbg(JIX_DBG_ACNT, "[%s]eth_type(%x) is not support!\n",
			"jix_xpon_hwnat_add_flow", pk->pkt_type);
		return;
	}
	hwnat_fill(&want, proto, pk, mask);

	if (hwnat_seen(skb, &want)) {
		jix_dbg(JIX_DBG_TRACE, "[%s]Add an entry\n",
			"jix_xpon_hwnat_add_flow");
		hwnat_drop_forget(index);
		return;
	}

	spin_lock_bh(&hwnat_flow_lock);
	if (hwnat_rebind(skb, &want)) {
		spin_unlock_bh(&hwnat_flow_lock);
		jix_dbg(JIX_DBG_TRACE, "[%s]Add an entry\n",
			"jix_xpon_hwnat_add_flow");
		hwnat_drop_forget(index);
		return;
	}
	spin_unlock_bh(&hwnat_flow_lock);

	e = hwnat_rec_alloc();
	if (!e) {
		jix_dbg(JIX_DBG_ERR, "[%s]Not enough memory!\n",
			"jix_xpon_hwnat_add_flow");
		return;
	}
	*e = want;	/* list and timer still zero: set up when added */

	spin_lock_bh(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	hwnat_rec_of(e)->acnt_slot = (s16)quor_mcst_slot_hold(e->grp_addr);
	hwnat_mark_acnt(skb, hwnat_rec_of(e)->acnt_slot);
	jix_dbg(JIX_DBG_TRACE, "[%s]Add an entry\n", "jix_xpon_hwnat_add_flow");
	hwnat_rec_add(&hwnat_flows, e, jix_xpon_hwnat_timer_timeout);
	trace_jix_mc_flow_bind(e->index, e->grp_addr, hwnat_is_v6(e), e->mask, e->vid);
	spin_unlock_bh(&hwnat_flow_lock);

	hwnat_drop_forget(index);
}
