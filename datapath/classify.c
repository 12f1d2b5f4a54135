// SPDX-License-Identifier: GPL-2.0
/*
 * Classification of received frames: multicast destination, network-layer
 * type behind VLAN tags and a PPPoE session header, IP protocol, data or
 * control traffic, source and group addresses.
 *
 * Every function reads the frame from its MAC header, never from the
 * data pointer, so the answers do not depend on whether the Ethernet
 * header has been pushed back.  Every read is bounded by the bytes from
 * the MAC header to the end of the linear data: a frame too short for a
 * read answers as a frame of another type (0, NULL, records untouched).
 * Nothing is written, allocated or locked.
 */
#include "datapath.h"

#define JIX_ETH_TYPE_OFF	12	/* first TPID or EtherType */
#define JIX_TAG_LEN		4
#define JIX_PPPOE_HLEN		6	/* PPPoE session header */
#define JIX_PPP_PROTO_IPV4	0x0021
#define JIX_PPP_PROTO_IPV6	0x0057
#define JIX_IPV4_HLEN		20	/* header length field not consulted */
#define JIX_IPV6_HLEN		40
#define JIX_IPV6_NEXTHDR_HOP	0
#define JIX_UDP_HLEN		8

/* The frame as seen from its MAC header: @len bytes are readable at @mac. */
struct jix_frame {
	u8 *mac;
	unsigned int len;
};

/* What the tag walk finds. */
struct jix_l3 {
	u16 raw_type;		/* EtherType behind the tags */
	int pkt_type;		/* see jix_xpon_get_packet_type() */
	unsigned int nh;	/* network header offset from the MAC header */
};

static void jix_frame_of(const struct sk_buff *skb, struct jix_frame *f)
{
	f->mac = NULL;
	f->len = 0;
	if (!skb || !skb_mac_header_was_set(skb))
		return;
	f->mac = skb_mac_header(skb);
	if (skb_tail_pointer(skb) > f->mac)
		f->len = (unsigned int)(skb_tail_pointer(skb) - f->mac);
}

static bool jix_has(const struct jix_frame *f, unsigned int off,
		    unsigned int n)
{
	return off <= f->len && n <= f->len - off;
}

static u16 jix_be16(const struct jix_frame *f, unsigned int off)
{
	return (u16)(f->mac[off] << 8 | f->mac[off + 1]);
}

static bool jix_is_tpid(u16 v)
{
	return v == ETH_P_8021Q || v == JIX_ETH_P_9100 || v == ETH_P_8021AD;
}

/*
 * Walk the tags and read the network-layer type.  Returns false when the
 * frame ends before its EtherType.  A PPPoE frame too short for its PPP
 * protocol field counts as PPPoE with another payload.
 */
static bool jix_l3_of(const struct jix_frame *f, struct jix_l3 *l3)
{
	unsigned int e = JIX_ETH_TYPE_OFF;

	while (jix_has(f, e, 2) && jix_is_tpid(jix_be16(f, e)))
		e += JIX_TAG_LEN;
	if (!jix_has(f, e, 2))
		return false;
	l3->raw_type = jix_be16(f, e);
	l3->pkt_type = l3->raw_type;
	l3->nh = e + 2;
	if (l3->raw_type != ETH_P_PPP_SES)
		return true;
	l3->nh = e + 2 + JIX_PPPOE_HLEN + 2;
	if (jix_has(f, e + 2 + JIX_PPPOE_HLEN, 2)) {
		u16 proto = jix_be16(f, e + 2 + JIX_PPPOE_HLEN);

		if (proto == JIX_PPP_PROTO_IPV4)
			l3->pkt_type = ETH_P_IP;
		else if (proto == JIX_PPP_PROTO_IPV6)
			l3->pkt_type = ETH_P_IPV6;
	}
	return true;
}

/* Offset of the transport header of an IP frame, 0 for other frames. */
static unsigned int jix_l4_off(const struct jix_l3 *l3)
{
	if (l3->pkt_type == ETH_P_IP)
		return l3->nh + JIX_IPV4_HLEN;
	if (l3->pkt_type == ETH_P_IPV6)
		return l3->nh + JIX_IPV6_HLEN;
	return 0;
}

static int jix_ip_type_of(const struct jix_frame *f, const struct jix_l3 *l3)
{
	u8 next;

	if (l3->pkt_type == ETH_P_IP)
		return jix_has(f, l3->nh + 9, 1) ? f->mac[l3->nh + 9] : 0;
	if (l3->pkt_type != ETH_P_IPV6 || !jix_has(f, l3->nh + 6, 1))
		return 0;
	next = f->mac[l3->nh + 6];
	if (next != JIX_IPV6_NEXTHDR_HOP)
		return next;
	/* The Next Header field of one hop-by-hop header. */
	return jix_has(f, l3->nh + JIX_IPV6_HLEN, 1) ?
	       f->mac[l3->nh + JIX_IPV6_HLEN] : 0;
}

static int jix_data_port_of(const struct jix_frame *f, const struct jix_l3 *l3)
{
	unsigned int t = jix_l4_off(l3);
	u16 sport, dport;

	if (!t || !jix_has(f, t, 4))
		return 0;
	sport = jix_be16(f, t);
	dport = jix_be16(f, t + 2);
	if ((sport == 546 && dport == 547) || (sport == 547 && dport == 546))
		return 0;	/* DHCPv6 */
	if (dport == 1900 || dport == 5353)
		return 0;	/* SSDP, mDNS */
	return 1;
}

unsigned int jix_xpon_frame_len(struct sk_buff *skb)
{
	struct jix_frame f;

	jix_frame_of(skb, &f);
	return f.len;
}

unsigned int jix_xpon_bytes_from(struct sk_buff *skb, const u8 *p)
{
	struct jix_frame f;

	jix_frame_of(skb, &f);
	if (!p || !f.mac || p < f.mac || p >= f.mac + f.len)
		return 0;
	return (unsigned int)(f.mac + f.len - p);
}

u8 *jix_xpon_get_dst_mac(struct sk_buff *skb)
{
	struct jix_frame f;

	jix_frame_of(skb, &f);
	return jix_has(&f, 0, ETH_ALEN) ? f.mac : NULL;
}

int jix_xpon_get_outer_vid(struct sk_buff *skb)
{
	struct jix_frame f;
	u16 tpid;

	jix_frame_of(skb, &f);
	if (!jix_has(&f, JIX_ETH_TYPE_OFF, JIX_TAG_LEN))
		return -1;
	tpid = jix_be16(&f, JIX_ETH_TYPE_OFF);
	if (tpid != ETH_P_8021Q && tpid != ETH_P_8021AD)
		return -1;
	return jix_be16(&f, JIX_ETH_TYPE_OFF + 2) & 0xFFF;
}

int jix_xpon_is_multicast_addr(const u8 *mac)
{
	if (!mac)
		return 0;
	if (mac[0] == 0x01 && mac[1] == 0x00 && mac[2] == 0x5E)
		return 1;
	return mac[0] == 0x33 && mac[1] == 0x33;
}

int jix_xpon_get_packet_type(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	return jix_l3_of(&f, &l3) ? l3.pkt_type : 0;
}

u8 *jix_xpon_get_network_header(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	if (!jix_l3_of(&f, &l3) || !jix_has(&f, l3.nh, 1))
		return NULL;
	return f.mac + l3.nh;
}

int jix_xpon_get_ip_type(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	return jix_l3_of(&f, &l3) ? jix_ip_type_of(&f, &l3) : 0;
}

u8 *jix_xpon_get_udp_header(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;
	unsigned int t;

	jix_frame_of(skb, &f);
	if (!jix_l3_of(&f, &l3))
		return NULL;
	t = jix_l4_off(&l3);
	return t && jix_has(&f, t, JIX_UDP_HLEN) ? f.mac + t : NULL;
}

int jix_xpon_is_data_udp_port(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	return jix_l3_of(&f, &l3) ? jix_data_port_of(&f, &l3) : 0;
}

int jix_xpon_is_data_pkt(struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	if (!jix_l3_of(&f, &l3) || jix_ip_type_of(&f, &l3) != JIX_IPPROTO_UDP)
		return 0;
	return jix_data_port_of(&f, &l3);
}

int quor_is_mcst_data_pkt(struct sk_buff *skb)
{
	if (!jix_xpon_is_multicast_addr(jix_xpon_get_dst_mac(skb)))
		return 0;
	return jix_xpon_is_data_pkt(skb);
}

static void jix_addrs_of(const struct jix_frame *f, const struct jix_l3 *l3,
			 struct mc_ip_addr *src, struct mc_ip_addr *grp)
{
	const u8 *nh = f->mac + l3->nh;
	unsigned int alen;
	u8 v6;

	if (l3->pkt_type == ETH_P_IP && jix_has(f, l3->nh, JIX_IPV4_HLEN)) {
		alen = 4;
		v6 = 0;
	} else if (l3->pkt_type == ETH_P_IPV6 &&
		   jix_has(f, l3->nh, JIX_IPV6_HLEN)) {
		alen = 16;
		v6 = 1;
	} else {
		return;
	}
	/* IPv4: source at 12, destination at 16; IPv6: 8 and 24. */
	if (src) {
		memcpy(src->addr, nh + (v6 ? 8 : 12), alen);
		src->isipv6 = v6;
	}
	if (grp) {
		memcpy(grp->addr, nh + (v6 ? 24 : 16), alen);
		grp->isipv6 = v6;
	}
}

void jix_xpon_get_src_and_dst_addr(struct mc_ip_addr *src,
				   struct mc_ip_addr *grp,
				   struct sk_buff *skb)
{
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	if (jix_l3_of(&f, &l3))
		jix_addrs_of(&f, &l3, src, grp);
}

int jix_xpon_is_pppox_multicast_pkt(struct sk_buff *skb)
{
	struct mc_ip_addr src, grp;
	struct jix_frame f;
	struct jix_l3 l3;

	jix_frame_of(skb, &f);
	if (!jix_l3_of(&f, &l3) || l3.raw_type != ETH_P_PPP_SES)
		return 0;
	memset(&src, 0, sizeof(src));
	memset(&grp, 0, sizeof(grp));
	jix_addrs_of(&f, &l3, &src, &grp);
	/* Records left clear (no IP payload) give 0 below. */
	if (grp.isipv6)
		return grp.addr[0] == 0xFF && grp.addr[1] < 0x80;
	return grp.addr[0] >= 224 && grp.addr[0] <= 239;
}

void jix_xpon_parse(struct sk_buff *skb, struct jix_pkt *pk)
{
	struct jix_frame f;
	struct jix_l3 l3;
	u16 tpid;

	unsigned int off;

	memset(pk, 0, sizeof(*pk));
	pk->outer_vid = -1;
	pk->flow_idx = -1;
	jix_frame_of(skb, &f);
	pk->mac = f.mac;
	pk->len = f.len;
	if (jix_has(&f, 0, ETH_ALEN))
		pk->dst = f.mac;
	if (jix_has(&f, JIX_ETH_TYPE_OFF, JIX_TAG_LEN)) {
		tpid = jix_be16(&f, JIX_ETH_TYPE_OFF);
		if (tpid == ETH_P_8021Q || tpid == ETH_P_8021AD)
			pk->outer_vid = jix_be16(&f, JIX_ETH_TYPE_OFF + 2) & 0xFFF;
	}
	for (off = JIX_ETH_TYPE_OFF; jix_has(&f, off, JIX_TAG_LEN) &&
	     jix_is_tpid(jix_be16(&f, off)); off += JIX_TAG_LEN) {
		if (pk->tag_num < ARRAY_SIZE(pk->tag))
			pk->tag[pk->tag_num] = (u32)jix_be16(&f, off) << 16 |
					       jix_be16(&f, off + 2);
		pk->tag_num++;
	}
	if (!jix_l3_of(&f, &l3))
		return;
	pk->pkt_type = l3.pkt_type;
	if (jix_has(&f, l3.nh, 1))
		pk->nh = l3.nh;
	pk->ip_type = jix_ip_type_of(&f, &l3);
	pk->data_port = jix_data_port_of(&f, &l3);
	jix_addrs_of(&f, &l3, &pk->src, &pk->grp);
}
