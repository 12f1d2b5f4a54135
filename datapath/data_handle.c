// SPDX-License-Identifier: GPL-2.0
/*
 * The per-packet data handler.
 *
 * The driver offers every received frame here with its data pointer 14
 * bytes past the MAC header.  In one pass the frame is either left to the
 * kernel (-1), handed to the control plane as an IGMP/MLD query (0), or
 * forwarded in software to its member ports and bound into the hardware
 * forwarding engine (0); multicast data that no port wants is dropped by
 * the hardware when it can be (the drop operation's result).
 *
 * The frame is never freed or kept here, and its data pointer is the same
 * on return as on entry, on every path.
 */
#include "datapath.h"
#include "ctrl.h"
#include "transmit.h"
#include "../fdb/fdb.h"
#include "../hwnat/hwnat.h"

#define JIX_IPV4_MIN_HLEN	20
#define JIX_IPV6_HLEN		40
#define JIX_IPV6_HOP_HLEN	8		/* one hop-by-hop header */
#define JIX_QUERY_TYPE		0x11		/* IGMP and MLD query */
#define JIX_IPV4_DADDR_OFF	16
#define JIX_IPV6_DADDR_OFF	24

static const char jix_dh_name[] = "jix_multicast_data_handle";

/* Offset of the transport header from @nh, 0 for other frames. */
static unsigned int jix_dh_l4_off(int pkt_type, const u8 *nh)
{
	if (pkt_type == ETH_P_IP)
		return (nh[0] & 0x0F) * 4;
	if (pkt_type == ETH_P_IPV6)
		return nh[6] ? JIX_IPV6_HLEN : JIX_IPV6_HLEN + JIX_IPV6_HOP_HLEN;
	return 0;
}

/*
 * The query kind of @skb: JIX_QUERY_GENERAL or JIX_QUERY_SPECIFIC, or 0
 * when the frame is not an IGMP or MLD query (also when it is too short to
 * tell).
 */
static u8 jix_dh_query_kind(struct sk_buff *skb, int ip_type)
{
	static const u8 all_hosts[4] = { 224, 0, 0, 1 };
	int pkt_type = jix_xpon_get_packet_type(skb);
	u8 *nh = jix_xpon_get_network_header(skb);
	unsigned int avail, l4, daddr;

	if (ip_type != JIX_IPPROTO_IGMP && ip_type != JIX_IPPROTO_ICMPV6)
		return 0;
	if (pkt_type != ETH_P_IP && pkt_type != ETH_P_IPV6)
		return 0;
	avail = jix_xpon_bytes_from(skb, nh);
	if (avail < (pkt_type == ETH_P_IP ? JIX_IPV4_MIN_HLEN : JIX_IPV6_HLEN))
		return 0;
	l4 = jix_dh_l4_off(pkt_type, nh);
	if (l4 >= avail || nh[l4] != JIX_QUERY_TYPE)
		return 0;
	daddr = pkt_type == ETH_P_IP ? JIX_IPV4_DADDR_OFF : JIX_IPV6_DADDR_OFF;
	if (!memcmp(nh + daddr, all_hosts, sizeof(all_hosts)))
		return JIX_QUERY_GENERAL;
	return JIX_QUERY_SPECIFIC;
}

/*
 * A query goes to the control plane when it listens.  The receiver moves
 * the data pointer to the Ethernet header; it is put back where the driver
 * had it.
 */
static int jix_dh_query(struct sk_buff *skb, u8 kind)
{
	unsigned int headroom = skb_headroom(skb);

	if (!rcu_access_pointer(quor_mc_ctrl_packet_rx_cb_func))
		return -1;
	jix_dbg(JIX_DBG_TRACE, "[%s]Query packet, send to callback function\n",
		jix_dh_name);
	quor_mcst_recv_ctrl_pkt(skb, kind);
	if (skb_headroom(skb) < headroom)
		skb_pull(skb, headroom - skb_headroom(skb));
	else if (skb_headroom(skb) > headroom)
		skb_push(skb, skb_headroom(skb) - headroom);
	return 0;
}

/*
 * Multicast data: forward to the members, bind the flow, or drop it.  The
 * member ports and their VLAN actions come from one visit to the
 * database.
 */
static int jix_dh_data(struct sk_buff *skb, struct jix_pkt *pk)
{
	int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);
	struct jix_port_actions pa;
	u64 mask;
	int ret;

	skb_push(skb, ETH_HLEN);
	jix_skb_dump(skb);
	pk->flow_idx = to_foe ? to_foe(skb) : -1;
	mask = jix_fwd_ports_and_actions(skb, pk, &pa);
	jix_dbg(JIX_DBG_TRACE, "[%s]fwd_port_mask = 0x%lx\n", jix_dh_name,
		(unsigned long)mask);
	jix_xpon_hwnat_add_flow(skb, pk, mask);
	trace_jix_mc_forward(skb, &pk->grp, mask);
	if (mask)
		ret = jix_xpon_fwd_data_with_actions(skb, mask, &pa);
	else
		ret = jix_xpon_hwnat_drop_pkt(skb, pk);
	skb_pull(skb, ETH_HLEN);
	return ret;
}

int jix_multicast_data_handle(struct mc_data *mc)
{
	struct sk_buff *skb = mc->skb;
	static const u8 none[ETH_ALEN];
	struct jix_pkt pk;
	const u8 *dst;
	int ip_type;
	u8 kind;

	jix_dbg(JIX_DBG_TRACE, "[%s]Enter\n", jix_dh_name);
	if (!skb)
		return -1;
	jix_xpon_parse(skb, &pk);
	dst = pk.dst;
	if (!jix_xpon_is_multicast_addr(dst)) {
		if (!dst)
			dst = none;
		jix_dbg(JIX_DBG_TRACE,
			"[%s]Not multicast addr, dst=%02X-%02X-%02X-%02X-%02X-%02X\n",
			jix_dh_name, dst[0], dst[1], dst[2], dst[3], dst[4],
			dst[5]);
		return -1;
	}
	ip_type = pk.ip_type;
	/* Data is forwarded from its Ethernet header, which must lie where
	 * the driver promises: 14 bytes before the data pointer.
	 */
	if (ip_type == JIX_IPPROTO_UDP && pk.data_port &&
	    skb_headroom(skb) >= ETH_HLEN &&
	    skb->data - ETH_HLEN == skb_mac_header(skb))
		return jix_dh_data(skb, &pk);
	kind = jix_dh_query_kind(skb, ip_type);
	if (kind) {
		int ret = jix_dh_query(skb, kind);

		if (!ret)
			return 0;
	}
	jix_dbg(JIX_DBG_TRACE, "[%s]Not data packet, send to kernel\n",
		jix_dh_name);
	return -1;
}
