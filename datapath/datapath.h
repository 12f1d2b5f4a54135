/* SPDX-License-Identifier: GPL-2.0 */
/* The per-packet path: classification, member ports, replication. */
#ifndef JIX_DATAPATH_H
#define JIX_DATAPATH_H

#include "jix_mc.h"

/* Per-packet operation 0: -1 leaves the frame to the kernel, 0 handled. */
int jix_multicast_data_handle(struct mc_data *mc);

/* ---- classification (classify.c) ---- */
/*
 * All take the frame as the driver offers it and read it from its MAC
 * header (skb_mac_header), whatever the data pointer.  Reads stop at the
 * end of the linear data: a frame too short for a read answers as a frame
 * of another type.  Callable from any context; no lock, no allocation.
 */
#define JIX_ETH_P_9100		0x9100	/* tag protocol skipped like 0x8100 */
#define JIX_IPPROTO_IGMP	2
#define JIX_IPPROTO_UDP		17
#define JIX_IPPROTO_ICMPV6	58

/* Bytes readable from the MAC header to the end of the linear data. */
unsigned int jix_xpon_frame_len(struct sk_buff *skb);
/* Bytes readable from @p (inside the frame) to its end; 0 outside. */
unsigned int jix_xpon_bytes_from(struct sk_buff *skb, const u8 *p);
/* The destination MAC (the MAC header), or NULL when shorter than 6 bytes. */
u8 *jix_xpon_get_dst_mac(struct sk_buff *skb);
/* VLAN id of an outermost 0x8100 or 0x88A8 tag (TCI & 0xFFF), else -1. */
int jix_xpon_get_outer_vid(struct sk_buff *skb);

/* 1 for 01:00:5E:xx:xx:xx and 33:33:xx:xx:xx:xx, 0 otherwise or NULL. */
int jix_xpon_is_multicast_addr(const u8 *mac);
/* EtherType behind any 0x8100/0x9100/0x88A8 tags; PPPoE sessions carrying
 * IPv4 or IPv6 give 0x0800 or 0x86DD, others 0x8864; 0 when the frame
 * ends before its EtherType. */
int jix_xpon_get_packet_type(struct sk_buff *skb);
/* First byte of the network header (behind a PPPoE session header), or
 * NULL when the frame ends before it. */
u8 *jix_xpon_get_network_header(struct sk_buff *skb);
/* IP protocol (IPv6: through one hop-by-hop header), 0 for non-IP. */
int jix_xpon_get_ip_type(struct sk_buff *skb);
/* Network header + 20 (IPv4) or + 40 (IPv6) when 8 bytes lie there,
 * else NULL. */
u8 *jix_xpon_get_udp_header(struct sk_buff *skb);
/* 0 for DHCPv6 (546<->547), SSDP (to 1900), mDNS (to 5353) and frames
 * whose ports cannot be read; 1 for other ports. */
int jix_xpon_is_data_udp_port(struct sk_buff *skb);
/* 1 for an IP frame carrying UDP data. */
int jix_xpon_is_data_pkt(struct sk_buff *skb);
/* 1 for a multicast-MAC frame carrying UDP data. */
int quor_is_mcst_data_pkt(struct sk_buff *skb);
/* Fill the source and group records (either may be NULL) from an IPv4
 * (4 bytes, isipv6 0) or IPv6 (16 bytes, isipv6 1) frame; other frames
 * leave them untouched.  Callers clear the records first. */
void jix_xpon_get_src_and_dst_addr(struct mc_ip_addr *src,
				   struct mc_ip_addr *grp,
				   struct sk_buff *skb);
/* 1 for a PPPoE session frame to an IPv4 or IPv6 multicast group. */
int jix_xpon_is_pppox_multicast_pkt(struct sk_buff *skb);

/*
 * One pass over a frame for the per-packet path: everything the handler,
 * its member-port lookup and its binding ask about the frame, read once
 * from the MAC header with the same bounds and answers as the functions
 * above (the comment of each field names the function it stands for).
 * Valid while the frame's bytes are unchanged.
 */
struct jix_pkt {
	u8 *mac;		/* MAC header, NULL when not set */
	unsigned int len;	/* jix_xpon_frame_len() */
	u8 *dst;		/* jix_xpon_get_dst_mac() */
	int outer_vid;		/* jix_xpon_get_outer_vid() */
	int pkt_type;		/* jix_xpon_get_packet_type() */
	unsigned int nh;	/* network header offset; 0: none */
	int ip_type;		/* jix_xpon_get_ip_type() */
	int data_port;		/* jix_xpon_is_data_udp_port() */
	struct mc_ip_addr src;	/* jix_xpon_get_src_and_dst_addr() into */
	struct mc_ip_addr grp;	/* cleared records */
	/* The 0x8100/0x9100/0x88A8 tags whose 4 bytes lie in the frame: */
	u32 tag[2];		/* the first two, TPID << 16 | TCI */
	unsigned int tag_num;	/* all of them */
	/* Not from the bytes: the driver's answer for the frame. */
	int flow_idx;		/* hwnat_skb_to_foe_hook(), -1: none */
};

/* Parse @skb into @pk; flow_idx is left -1 (the data handler asks). */
void jix_xpon_parse(struct sk_buff *skb, struct jix_pkt *pk);

/* ---- member ports (portmask.c) ---- */
/*
 * OR the port bits of every forwarding entry that the frame belongs to
 * under the current filter mode into *@mask, and store the frame's
 * hardware flow index (-1 without one) into each of those entries.  Takes
 * igmp_fdb_lock with bottom halves disabled; the hardware driver's hook is
 * called before, outside the lock.  igmp_get_fwd_portmask takes the VLAN
 * id from the frame's outermost tag; quor_mcst_get_fwd_mask uses the low
 * 16 bits of @vid as a signed VLAN id (0xFFFF: untagged).
 */
void igmp_get_fwd_portmask(struct sk_buff *skb, u64 *mask);
void quor_mcst_get_fwd_mask(struct sk_buff *skb, u32 vid, u64 *mask);
/*
 * The member ports of a query's group, as igmp_get_fwd_portmask, without
 * teaching the entries a flow index: only data frames carry their flow.
 */
void jix_query_fwd_portmask(struct sk_buff *skb, u64 *mask);

struct jix_port_actions;
/* The data handler's member ports (flooded with snooping off) and their
 * VLAN actions, from one visit to the database under RCU. */
u64 jix_fwd_ports_and_actions(struct sk_buff *skb, const struct jix_pkt *pk,
			      struct jix_port_actions *pa);

#endif /* JIX_DATAPATH_H */
