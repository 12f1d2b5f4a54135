// SPDX-License-Identifier: GPL-2.0
/*
 * Drop entries: flows that reach the module without any member port are
 * turned into hardware drop entries by the driver, one drop record per
 * flow index, aged while the engine keeps dropping them.
 *
 * The packet path, the driver hook and the timer take hwnat_drop_lock
 * plainly (softirq); control paths with bottom halves disabled.  The drop
 * lock is never held while hwnat_flow_lock is taken.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "datapath/datapath.h"

#define DROP_ETH_TYPE_OFF	12
#define DROP_TAG_LEN		4
#define DROP_PPPOE_PROTO_OFF	6	/* in the network data */
#define DROP_PPPOE_HLEN		8	/* PPPoE session header + PPP protocol */
#define DROP_PPP_IPV4		0x0021
#define DROP_PPP_IPV6		0x0057
#define DROP_ETH_P_9100		0x9100

/* What a frame gives a drop record. */
struct drop_frame {
	u32 proto;
	s16 vid;
	u8 grp[16];
	u8 src[16];
};

static u16 drop_be16(const u8 *p)
{
	return (u16)(p[0] << 8 | p[1]);
}

static bool drop_is_tpid(u16 v)
{
	return v == ETH_P_8021Q || v == DROP_ETH_P_9100 || v == ETH_P_8021AD;
}

/* Copy group and source of the IP header at @ip (@room bytes readable). */
static bool drop_parse_ip(struct drop_frame *f, u16 type, const u8 *ip,
			  unsigned int room)
{
	if (type == ETH_P_IP && room >= 20) {
		f->proto = HWNAT_PROTO_IPV4;
		memcpy(f->grp, ip + 16, 4);
		memcpy(f->src, ip + 12, 4);
		return true;
	}
	if (type == ETH_P_IPV6 && room >= 40) {
		f->proto = HWNAT_PROTO_IPV6;
		memcpy(f->grp, ip + 24, 16);
		memcpy(f->src, ip + 8, 16);
		return true;
	}
	return false;
}

/*
 * Tags (0x8100, 0x9100, 0x88A8), the first tag's VLAN id, and the IPv4 or
 * IPv6 addresses, also behind a PPPoE session.  Every read is bounded by
 * the frame; false for other types and for frames too short to tell.
 */
static bool drop_parse(struct sk_buff *skb, struct drop_frame *f)
{
	unsigned int len = jix_xpon_frame_len(skb);
	unsigned int e = DROP_ETH_TYPE_OFF, nd;
	const u8 *mac;
	u16 type;

	memset(f, 0, sizeof(*f));
	f->vid = -1;
	if (!len)
		return false;
	mac = skb_mac_header(skb);
	while (e + DROP_TAG_LEN <= len && drop_is_tpid(drop_be16(mac + e)))
		e += DROP_TAG_LEN;
	if (e > DROP_ETH_TYPE_OFF)
		f->vid = (s16)(drop_be16(mac + DROP_ETH_TYPE_OFF + 2) & 0xFFF);
	if (e + 2 > len)
		return false;
	type = drop_be16(mac + e);
	nd = e + 2;
	if (type == ETH_P_PPP_SES) {
		if (nd + DROP_PPPOE_HLEN > len)
			return false;
		switch (drop_be16(mac + nd + DROP_PPPOE_PROTO_OFF)) {
		case DROP_PPP_IPV4:
			type = ETH_P_IP;
			break;
		case DROP_PPP_IPV6:
			type = ETH_P_IPV6;
			break;
		default:
			return false;
		}
		nd += DROP_PPPOE_HLEN;
	}
	return drop_parse_ip(f, type, mac + nd, len - nd);
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

	spin_lock(&hwnat_drop_lock);
	if (hwnat_rec_expiry_begin(&hwnat_drops, e)) {
		is_drop = READ_ONCE(hwnat_is_drop_entry_hook);
		if (is_drop && is_drop(e->index, e->grp_addr, e->src_addr,
				       hwnat_is_v6(e)) > 0)
			hwnat_rec_rearm(e);
		else
			jix_xpon_hwnat_free_drop(e);
	}
	spin_unlock(&hwnat_drop_lock);
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
	spin_lock(&hwnat_drop_lock);
	e = hwnat_rec_find(&hwnat_drops, index);
	if (e) {
		e->vid = vid;
		if (e->proto == HWNAT_PROTO_IPV6)
			memcpy(e->grp_addr, grp, 16);
		else if (e->proto == HWNAT_PROTO_IPV4)
			memcpy(e->grp_addr, grp, 4);
	}
	spin_unlock(&hwnat_drop_lock);
	return e != NULL;
}

/* A drop record made from the frame; the flow's records go quietly. */
static void jix_xpon_hwnat_add_drop(struct sk_buff *skb, s32 index)
{
	struct hwnat_flow_entry *e;
	struct drop_frame f;

	jix_dbg(JIX_DBG_TRACE, "[%s]index=%d\n", "jix_xpon_hwnat_add_drop",
		index);
	if (!skb || index < 0 || !drop_parse(skb, &f))
		return;
	e = hwnat_rec_alloc();
	if (!e) {
		jix_dbg(JIX_DBG_TRACE, "[%s]Not enough memory!\n",
			"jix_xpon_hwnat_add_drop");
		return;
	}
	e->proto = f.proto;
	e->index = index;
	e->vid = f.vid;
	memcpy(e->grp_addr, f.grp, 16);
	memcpy(e->src_addr, f.src, 16);

	spin_lock(&hwnat_drop_lock);
	hwnat_rec_add(&hwnat_drops, e, jix_xpon_hwnat_drop_timeout);
	trace_jix_mc_drop_add(e->index, e->grp_addr, hwnat_is_v6(e), 0, e->vid);
	spin_unlock(&hwnat_drop_lock);

	spin_lock(&hwnat_flow_lock);
	hwnat_flow_forget(index);
	spin_unlock(&hwnat_flow_lock);
}

/*
 * multicast_hwnat_drop_entry_hook, also called by the data handler for a
 * data frame without members (softirq).  Returns -1 when the frame cannot
 * be dropped in hardware (no frame, type not supported, no flow index),
 * else 0.
 */
int jix_xpon_hwnat_drop_multicast(struct sk_buff *skb, unsigned long long mask)
{
	int (*to_foe)(struct sk_buff *skb);
	int (*drop)(struct sk_buff *skb);
	struct drop_frame f;
	int index;

	jix_dbg(JIX_DBG_TRACE, "[%s]index=%d\n",
		"jix_xpon_hwnat_drop_multicast", 0);
	if (!skb)
		return -1;
	to_foe = READ_ONCE(hwnat_skb_to_foe_hook);
	index = to_foe ? to_foe(skb) : -1;
	if (!drop_parse(skb, &f) || index <= 0)
		return -1;
	drop = READ_ONCE(ux_sw_nat_hook_drop_packet);
	if (!drop || drop(skb) <= 0)
		return 0;
	if (!jix_xpon_hwnat_find_drop_entry(index, f.grp, f.vid))
		jix_xpon_hwnat_add_drop(skb, index);
	return 0;
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
	spin_lock(&hwnat_drop_lock);
	hwnat_rec_add(&hwnat_drops, e, jix_xpon_hwnat_drop_timeout);
	trace_jix_mc_drop_add(e->index, e->grp_addr, hwnat_is_v6(e), 0, e->vid);
	spin_unlock(&hwnat_drop_lock);
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
	spin_lock(&hwnat_drop_lock);
	hwnat_for_each_of_index(&hwnat_drops, r, n, index)
		hwnat_rec_remove(&hwnat_drops, &r->e);
	spin_unlock(&hwnat_drop_lock);
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
