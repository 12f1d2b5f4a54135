// SPDX-License-Identifier: GPL-2.0
/*
 * Binding a forwarded data flow into the hardware flow table.  The data
 * handler calls this in softirq for every data frame it forwards, with the
 * data pointer at the Ethernet header; the frame is read from its MAC
 * header and every read is bounded by the frame.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "acnt/acnt.h"
#include "datapath/datapath.h"

#define HWNAT_ETH_TYPE_OFF	12
#define HWNAT_TAG_LEN		4
#define HWNAT_TAGS_KEPT		2
#define HWNAT_ACNT_SHIFT	17	/* counter id in the forwarding control word */
#define HWNAT_IPV4_HLEN		20
#define HWNAT_IPV6_HLEN		40

struct hwnat_tags {
	u32 word[HWNAT_TAGS_KEPT];	/* TPID << 16 | TCI */
	unsigned int num;		/* every tag, also beyond the kept ones */
};

static bool hwnat_is_tpid(u16 v)
{
	return v == ETH_P_8021Q || v == JIX_ETH_P_9100 || v == ETH_P_8021AD;
}

/* A tag counts only when its 4 bytes lie inside the frame. */
static void hwnat_collect_tags(struct sk_buff *skb, struct hwnat_tags *tags)
{
	unsigned int len = jix_xpon_frame_len(skb);
	unsigned int off = HWNAT_ETH_TYPE_OFF;
	const u8 *mac;
	u16 tpid;

	memset(tags, 0, sizeof(*tags));
	if (!len)
		return;
	mac = skb_mac_header(skb);
	while (off + HWNAT_TAG_LEN <= len) {
		tpid = (u16)(mac[off] << 8 | mac[off + 1]);
		if (!hwnat_is_tpid(tpid))
			break;
		if (tags->num < HWNAT_TAGS_KEPT)
			tags->word[tags->num] = (u32)tpid << 16 |
						(u32)(mac[off + 2] << 8 | mac[off + 3]);
		tags->num++;
		off += HWNAT_TAG_LEN;
	}
}

/*
 * Group and source of an IPv4 or IPv6 frame (also behind PPPoE) into the
 * cleared 16-byte buffers.  Returns the record's proto, or 0 for another
 * type or a frame too short for its IP header.
 */
static u32 hwnat_frame_addrs(struct sk_buff *skb, int type, u8 *grp, u8 *src)
{
	struct mc_ip_addr g, s;
	unsigned int need;
	u32 proto;

	if (type == ETH_P_IP) {
		proto = HWNAT_PROTO_IPV4;
		need = HWNAT_IPV4_HLEN;
	} else if (type == ETH_P_IPV6) {
		proto = HWNAT_PROTO_IPV6;
		need = HWNAT_IPV6_HLEN;
	} else {
		return 0;
	}
	if (jix_xpon_bytes_from(skb, jix_xpon_get_network_header(skb)) < need)
		return 0;
	memset(&g, 0, sizeof(g));
	memset(&s, 0, sizeof(s));
	jix_xpon_get_src_and_dst_addr(&s, &g, skb);
	memcpy(grp, g.addr, sizeof(g.addr));
	memcpy(src, s.addr, sizeof(s.addr));
	return proto;
}

/* What a data frame binds: the fields of its flow record. */
static void hwnat_fill(struct hwnat_flow_entry *e, u32 proto, s32 index,
		       int vid, u64 mask, const struct hwnat_tags *tags)
{
	e->proto = proto;
	e->index = index;
	e->vid = (s16)vid;
	e->wifi_num = (s16)hweight64(mask & HWNAT_WIFI_BITS);
	e->mask = mask;
	if (tags->num != 1 && tags->num != 2)
		return;
	e->tag_num = tags->num;
	e->outer_tag = tags->word[0];
	if (tags->num == 2)
		e->inner_tag = tags->word[1];
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

/*
 * The common case: the index's record already describes this flow, so it
 * only takes the frame's mask and starts aging again, as a new record
 * would.  Caller holds hwnat_flow_lock.  False when a new record is due.
 */
static bool hwnat_rebind(const struct hwnat_flow_entry *want)
{
	struct hwnat_flow_entry *old = hwnat_rec_find(&hwnat_flows, want->index);

	if (!old || !hwnat_same_flow(old, want) ||
	    !hwnat_rec_refresh(&hwnat_flows, old))
		return false;
	old->wifi_num = want->wifi_num;
	if (old->mask != want->mask)
		WRITE_ONCE(old->mask, want->mask);
	return true;
}

/* The group's hardware counter, marked into the frame for the engine. */
static void hwnat_mark_acnt(struct sk_buff *skb, const u8 *grp)
{
	s32 id = quor_mcst_match_group(grp);

	if (id >= 0)
		jix_skb_or_hwnat_ctrl(skb, (u32)id << HWNAT_ACNT_SHIFT);
}

/* Mask 0: the flow has no member left; its records go quietly. */
static void hwnat_unbind(s32 index)
{
	spin_lock(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	spin_unlock(&hwnat_flow_lock);
	jix_dbg(JIX_DBG_TRACE, "[%s]fwd_port_mask is 0\n",
		"jix_xpon_hwnat_add_flow");
}

void jix_xpon_hwnat_add_flow(struct sk_buff *skb, u64 mask)
{
	int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);
	struct hwnat_flow_entry want, *e;
	struct hwnat_tags tags;
	int index, type, vid;
	u32 proto;

	index = to_foe ? to_foe(skb) : -1;
	if (index < 0) {
		jix_dbg(JIX_DBG_ACNT, "[%s]index is not correct\n",
			"jix_xpon_hwnat_add_flow");
		return;
	}
	if (!mask) {
		hwnat_unbind(index);
		return;
	}
	type = jix_xpon_get_packet_type(skb);
	vid = jix_xpon_get_outer_vid(skb);
	hwnat_collect_tags(skb, &tags);
	memset(&want, 0, sizeof(want));
	proto = hwnat_frame_addrs(skb, type, want.grp_addr, want.src_addr);
	if (!proto) {
		jix_dbg(JIX_DBG_ACNT, "[%s]eth_type(%x) is not support!\n",
			"jix_xpon_hwnat_add_flow", type);
		return;
	}
	hwnat_fill(&want, proto, index, vid, mask, &tags);

	/* A refreshed record's counter is marked after the flow lock is released. */
	spin_lock(&hwnat_flow_lock);
	if (hwnat_rebind(&want)) {
		spin_unlock(&hwnat_flow_lock);
		hwnat_mark_acnt(skb, want.grp_addr);
		jix_dbg(JIX_DBG_TRACE, "[%s]Add an entry\n",
			"jix_xpon_hwnat_add_flow");
		hwnat_drop_forget(index);
		return;
	}
	spin_unlock(&hwnat_flow_lock);

	e = hwnat_rec_alloc();
	if (!e) {
		jix_dbg(JIX_DBG_ERR, "[%s]Not enough memory!\n",
			"jix_xpon_hwnat_add_flow");
		return;
	}
	*e = want;	/* list and timer still zero: set up when added */

	spin_lock(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	hwnat_mark_acnt(skb, e->grp_addr);
	jix_dbg(JIX_DBG_TRACE, "[%s]Add an entry\n", "jix_xpon_hwnat_add_flow");
	hwnat_rec_add(&hwnat_flows, e, jix_xpon_hwnat_timer_timeout);
	trace_jix_mc_flow_bind(e->index, e->grp_addr, hwnat_is_v6(e), e->mask, e->vid);
	spin_unlock(&hwnat_flow_lock);

	hwnat_drop_forget(index);
}
