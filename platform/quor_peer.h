/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The records that the multicast module's peers hand it, as those peers
 * lay them out: the network driver and the snooping control plane fill
 * the hook argument record, the control plane the forwarding-entry
 * records.  Written from the interface tables, independently of the
 * module's own headers, for everything that plays a peer: the stand-in
 * driver, the host emulation, the tests, the fuzzers and the QEMU probes.
 * If the module's declarations drift, the two sides disagree and the
 * tests see it.
 *
 * Plain C and C++, kernel or user space; 64-bit little-endian targets.
 */
#ifndef QUOR_PEER_H
#define QUOR_PEER_H

#ifdef __KERNEL__
#include <linux/types.h>
#include <linux/stddef.h>
#else
#include <stddef.h>
#include <stdint.h>
#endif

#ifdef __cplusplus
#define QUOR_PEER_AT(type, field, off) \
	static_assert(offsetof(type, field) == (off), #type "." #field)
#define QUOR_PEER_SIZE(type, size) static_assert(sizeof(type) == (size), #type)
#else
#define QUOR_PEER_AT(type, field, off) \
	_Static_assert(offsetof(type, field) == (off), #type "." #field)
#define QUOR_PEER_SIZE(type, size) _Static_assert(sizeof(type) == (size), #type)
#endif

/* Control API operation numbers (api_function_id). */
enum quor_peer_api_op {
	QUOR_PEER_OP_SET_RECV_CB = 0,
	QUOR_PEER_OP_XMIT = 1,
	QUOR_PEER_OP_VLAN_IS_ONE_TO_N = 2,
	QUOR_PEER_OP_VLAN_HANDLE = 3,
	QUOR_PEER_OP_ENTRY_ADD = 4,
	QUOR_PEER_OP_ENTRY_DEL = 5,
	QUOR_PEER_OP_ENTRY_UPDATE = 6,
	QUOR_PEER_OP_CLEAR_BY_PORT = 7,
	QUOR_PEER_OP_CLEAR_ALL = 8,
	QUOR_PEER_OP_ENTRY_GET = 9,
	QUOR_PEER_OP_SET_FILTER_MODE = 10,
	QUOR_PEER_OP_GET_FILTER_MODE = 11,
	QUOR_PEER_OP_SET_SNOOPING = 12,
	QUOR_PEER_OP_GET_SNOOPING = 13,
	QUOR_PEER_OP_SET_PORT_TYPE = 14,
};

/*
 * The hook argument record (88 bytes).  The driver's per-packet call
 * sets in_function_id 0 and the frame in skb; param is for control API
 * operations only.
 */
struct quor_peer_mc {
	uint32_t in_function_id;	/* 0x00 */
	uint8_t unused04[4];
	uint32_t api_function_id;	/* 0x08 */
	uint8_t unused0c[4];
	void *skb;			/* 0x10: the frame (struct sk_buff) */
	union {				/* 0x18 */
		void *ptr;
		uint8_t bytes[8];	/* op 1: port id; 0x19 flag byte */
		uint32_t val;		/* op 14: port type */
	} param;
	void *param2;			/* 0x20: op 1 frame bytes, op 14 name */
	uint32_t param3;		/* 0x28: op 1 frame length */
	uint8_t unused2c[0x24];
	int32_t result;			/* 0x50 */
	uint8_t unused54[4];
};
QUOR_PEER_AT(struct quor_peer_mc, in_function_id, 0x00);
QUOR_PEER_AT(struct quor_peer_mc, api_function_id, 0x08);
QUOR_PEER_AT(struct quor_peer_mc, skb, 0x10);
QUOR_PEER_AT(struct quor_peer_mc, param, 0x18);
QUOR_PEER_AT(struct quor_peer_mc, param.bytes[1], 0x19);
QUOR_PEER_AT(struct quor_peer_mc, param2, 0x20);
QUOR_PEER_AT(struct quor_peer_mc, param3, 0x28);
QUOR_PEER_AT(struct quor_peer_mc, result, 0x50);
QUOR_PEER_SIZE(struct quor_peer_mc, 88);

/* An address: IPv4 in addr[0..3], the rest zero; 20 bytes. */
struct quor_peer_addr {
	uint8_t addr[16];
	uint8_t isipv6;
	uint8_t unused[3];
};

/* One forwarding entry (80 bytes). */
struct quor_peer_entry {
	uint8_t port;			/* 0x00 */
	uint8_t unused01;
	int16_t vlan;			/* 0x02: -1 untagged */
	uint32_t pkt_acnt;		/* 0x04 */
	uint64_t byte_acnt;		/* 0x08 */
	struct quor_peer_addr grp_ip;	/* 0x10, isipv6 at 0x20 */
	struct quor_peer_addr src_ip;	/* 0x24, isipv6 at 0x34 */
	uint8_t grp_mac[6];		/* 0x38 */
	uint8_t unused3e[2];
	uint32_t vlan_mode;		/* 0x40 */
	uint16_t outer_tpid;		/* 0x44 */
	uint16_t outer_tci;		/* 0x46 */
	uint16_t inner_tpid;		/* 0x48 */
	uint16_t inner_tci;		/* 0x4A */
	uint8_t unused4c[4];
};
QUOR_PEER_AT(struct quor_peer_entry, vlan, 0x02);
QUOR_PEER_AT(struct quor_peer_entry, pkt_acnt, 0x04);
QUOR_PEER_AT(struct quor_peer_entry, byte_acnt, 0x08);
QUOR_PEER_AT(struct quor_peer_entry, grp_ip.addr, 0x10);
QUOR_PEER_AT(struct quor_peer_entry, grp_ip.isipv6, 0x20);
QUOR_PEER_AT(struct quor_peer_entry, src_ip.addr, 0x24);
QUOR_PEER_AT(struct quor_peer_entry, src_ip.isipv6, 0x34);
QUOR_PEER_AT(struct quor_peer_entry, grp_mac, 0x38);
QUOR_PEER_AT(struct quor_peer_entry, vlan_mode, 0x40);
QUOR_PEER_AT(struct quor_peer_entry, outer_tpid, 0x44);
QUOR_PEER_AT(struct quor_peer_entry, outer_tci, 0x46);
QUOR_PEER_AT(struct quor_peer_entry, inner_tpid, 0x48);
QUOR_PEER_AT(struct quor_peer_entry, inner_tci, 0x4A);
QUOR_PEER_SIZE(struct quor_peer_entry, 80);

/* The get-entries request (32 bytes). */
struct quor_peer_get_req {
	uint8_t port_id;		/* 0x00 */
	uint8_t unused01[3];
	int32_t entry_num;		/* 0x04 */
	uint32_t total_pkts;		/* 0x08 */
	uint8_t unused0c[4];
	uint64_t total_bytes;		/* 0x10 */
	struct quor_peer_entry *entries; /* 0x18 */
};
QUOR_PEER_AT(struct quor_peer_get_req, entry_num, 0x04);
QUOR_PEER_AT(struct quor_peer_get_req, total_pkts, 0x08);
QUOR_PEER_AT(struct quor_peer_get_req, total_bytes, 0x10);
QUOR_PEER_AT(struct quor_peer_get_req, entries, 0x18);
QUOR_PEER_SIZE(struct quor_peer_get_req, 32);

/*
 * The hardware flow record as the forwarding driver reads it at the
 * address multicast_speed_find_entry_hook answers: byte offsets.
 */
#define QUOR_PEER_FLOW_PROTO		32	/* u32: 2 IPv4, 16 IPv6 */
#define QUOR_PEER_FLOW_INDEX		36	/* s32 */
#define QUOR_PEER_FLOW_MASK		64	/* u64 */
#define QUOR_PEER_FLOW_GRP		96	/* 16 bytes */

/*
 * The frame's vendor words on a kernel without sk_buff fields for them:
 * bytes 40..43 (flags) and 44..47 (forwarding control) of skb->cb.
 */
#define QUOR_PEER_CB_VENDOR_FLAGS	40
#define QUOR_PEER_CB_HWNAT_CTRL		44

#undef QUOR_PEER_AT
#undef QUOR_PEER_SIZE

#endif /* QUOR_PEER_H */
