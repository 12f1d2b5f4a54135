// SPDX-License-Identifier: GPL-2.0
/*
 * Drop entries: flows that reach the module without any member port are
 * turned into hardware drop entries by the driver, one drop record per
 * flow index, aged while the engine keeps dropping them.
 *
 * Every path takes hwnat_drop_lock with bottom halves disabled.  The drop
 * lock is never held while hwnat_flow_lock is taken.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "datapath/datapath.h"

/* What a frame gives a drop record. */
struct drop_frame {
	u32 proto;
	s16 vid;
	u8 grp[16];
	u8 src[16];
};

/*
 * The first tag's VLAN id (any of 0x8100, 0x9100, 0x88A8) and the IPv4 or
 * IPv6 addresses, also behind a PPPoE session, from the frame's parse;
 * false for other types and for frames too short to tell.
 */
static bool drop_parse(const struct jix_pkt *pk, struct drop_frame *f)
{
	unsigned int need;

	memset(f, 0, sizeof(*f));
	f->vid = pk->tag_num ? (s16)(pk->tag[0] & 0xFFF) : -1;
	if (pk->pkt_type == ETH_P_IP) {
		f->proto = HWNAT_PROTO_IPV4;
		need = 20;
	} else if (pk->pkt_type == ETH_P_IPV6) {
		f->proto = HWNAT_PROTO_IPV6;
		need = 40;
	} else {
		return false;
	}
	if (!pk->nh || pk->len - pk->nh < need)
		return false;
	memcpy(f->grp, pk->grp.addr, 16);
	memcpy(f->src, pk->src.addr, 16);
	return true;
}

/* Full removal of a drop record; caller holds hwnat_drop_lock. */
static void jix_xpon_hwnat_free_drop(struct hwnat_flow_entry *e)
{
	int (*del)(int index) = READ_ONCE(hwnat_delete_foe_entry_hook);

	trace_jix_mc_drop_del(e->index, e->grp_addr, hwnat_is_v6(e), 0, e->vid);
	if (del)
		del(e->index);
	hwnat_rec_remove(&hwnat_drops, e);
}

/*
 * Aging: the record lives another period while the engine answers above 0
 * for it as a drop entry; otherwise it is removed.
 */
static void jix_xpon_hwnat_drop_timeout(struct timer_list *t)
{
	struct hwnat_flow_entry *e = from_timer(e, t, timer);
	int (*is_drop)(int index, unsigned char *grp, unsigned char *src,
		       int is_ipv6);

	spin_lock_bh(&hwnat_drop_lock);
	if (hwnat_rec_expiry_begin(&hwnat_drops, e)) {
		is_drop = READ_ONCE(hwnat_is_drop_entry_hook);
		if (is_drop && is_drop(e->index, e->grp_addr, e->src_addr,
				       hwnat_is_v6(e)) > 0)
			hwnat_rec_rearm(e);
		else
			jix_xpon_hwnat_free_drop(e);
	}
	spin_unlock_bh(&hwnat_drop_lock);
}

/*
 * Refresh the first drop record of @index with the frame's VLAN id and
 * group (its timer keeps running).  Returns whether one exists; the
 * record itself may go as soon as the lock is released.
 */
static bool jix_xpon_hwnat_find_drop_entry(s32 index, const u8 *grp, s16 vid)
{
	struct hwnat_flow_entry *e;

	if (index <= 0)
		return false;
	spin_lock_bh(&hwnat_drop_lock);
	e = hwnat_rec_find(&hwnat_drops, index);
	if (e) {
		e->vid = vid;
		if (e->proto == HWNAT_PROTO_IPV6)
			memcpy(e->grp_addr, grp, 16);
		else if (e->proto == HWNAT_PROTO_IPV4)
			memcpy(e->grp_addr, grp, 4);
	}
	spin_unlock_bh(&hwnat_drop_lock);
	return e != NULL;
}

/* A drop record made from the frame; the flow's records go quietly. */
static void jix_xpon_hwnat_add_drop(const struct drop_frame *f, s32 index)
{
	struct hwnat_flow_entry *e;

	jix_dbg(JIX_DBG_TRACE, "[%s]index=%d\n", "jix_xpon_hwnat_add_drop",
		index);
	if (index < 0)
		return;
	e = hwnat_rec_alloc();
	if (!e) {
		jix_dbg(JIX_DBG_TRACE, "[%s]Not enough memory!\n",
			"jix_xpon_hwnat_add_drop");
		return;
	}
	e->proto = f->proto;
	e->index = index;
	e->vid = f->vid;
	memcpy(e->grp_addr, f->grp, 16);
	memcpy(e->src_addr, f->src, 16);

	spin_lock_bh(&hwnat_drop_lock);
	hwnat_rec_add(&hwnat_drops, e, jix_xpon_hwnat_drop_timeout);
	trace_jix_mc_drop_add(e->index, e->grp_addr, hwnat_is_v6(e), 0, e->vid);
	spin_unlock_bh(&hwnat_drop_lock);

	spin_lock_bh(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	spin_unlock_bh(&hwnat_flow_lock);
}

int jix_xpon_hwnat_drop_pkt(struct sk_buff *skb, const struct jix_pkt *pk)
{
	int (*drop)(struct sk_buff *skb);
	struct drop_frame f;

	jix_dbg(JIX_DBG_TRACE, "[%s]index=%d\n",
		"jix_xpon_hwnat_drop_multicast", 0);
	if (!drop_parse(pk, &f) || pk->flow_idx <= 0)
		return -1;
	drop = READ_ONCE(ux_sw_nat_hook_drop_packet);
	if (!drop || drop(skb) <= 0)
		return 0;
	if (!jix_xpon_hwnat_find_drop_entry(pk->flow_idx, f.grp, f.vid))
		jix_xpon_hwnat_add_drop(&f, pk->flow_idx);
	return 0;
}

/*
 * multicast_hwnat_drop_entry_hook, also reached by the data handler for a
 * data frame without members (softirq).  Returns -1 when the frame cannot
 * be dropped in hardware (no frame, type not supported, no flow index),
 * else 0.
 */
int jix_xpon_hwnat_drop_multicast(struct sk_buff *skb, unsigned long long mask)
{
	int (*to_foe)(struct sk_buff *skb);
	struct jix_pkt pk;

	if (!skb) {
		jix_dbg(JIX_DBG_TRACE, "[%s]index=%d\n",
			"jix_xpon_hwnat_drop_multicast", 0);
		return -1;
	}
	jix_xpon_parse(skb, &pk);
	to_foe = READ_ONCE(hwnat_skb_to_foe_hook);
	pk.flow_idx = to_foe ? to_foe(skb) : -1;
	return jix_xpon_hwnat_drop_pkt(skb, &pk);
}

/* Caller holds hwnat_flow_lock (or owns @flow) with bottom halves off. */
void jix_xpon_hwnat_flow_to_drop(const struct hwnat_flow_entry *flow)
{
	struct hwnat_flow_entry *e = hwnat_rec_alloc();

	if (!e)
		return;
	e->proto = flow->proto;
	e->index = flow->index;
	e->vid = flow->vid;
	e->mask = flow->mask;
	memcpy(e->grp_addr, flow->grp_addr, 16);
	memcpy(e->src_addr, flow->src_addr, 16);
	spin_lock_bh(&hwnat_drop_lock);
	hwnat_rec_add(&hwnat_drops, e, jix_xpon_hwnat_drop_timeout);
	trace_jix_mc_drop_add(e->index, e->grp_addr, hwnat_is_v6(e), 0, e->vid);
	spin_unlock_bh(&hwnat_drop_lock);
}

void hwnat_drop_forget(s32 index)
{
	struct hwnat_rec *r, *n;

	/*
	 * Most data frames find no drop record at all.  A record added on
	 * another processor after this look belongs to a frame of the same
	 * flow that raced this one; either order is a valid outcome.
	 */
	if (hwnat_table_empty(&hwnat_drops))
		return;
	spin_lock_bh(&hwnat_drop_lock);
	hwnat_for_each_of_index(&hwnat_drops, r, n, index)
		hwnat_rec_remove(&hwnat_drops, &r->e);
	spin_unlock_bh(&hwnat_drop_lock);
}

void jix_xpon_hwnat_clear_all_drop(void)
{
	struct hwnat_flow_entry *e, *n;

	spin_lock_bh(&hwnat_drop_lock);
	list_for_each_entry_safe(e, n, &hwnat_drop_list, list)
		jix_xpon_hwnat_free_drop(e);
	spin_unlock_bh(&hwnat_drop_lock);
}

/* A group gained its first member: its first drop record goes. */
int jix_add_iptv_table_entry(const struct igmp_entry_info *req)
{
	struct hwnat_flow_entry *e;
	size_t alen;

	if (!req)
		return 0;
	alen = req->grp_ip.isipv6 ? 16 : 4;
	spin_lock_bh(&hwnat_drop_lock);
	list_for_each_entry(e, &hwnat_drop_list, list) {
		if (!memcmp(e->grp_addr, req->grp_ip.addr, alen)) {
			jix_xpon_hwnat_free_drop(e);
			break;
		}
	}
	spin_unlock_bh(&hwnat_drop_lock);
	return 0;
}
