/* SPDX-License-Identifier: GPL-2.0 WITH Linux-syscall-note */
/*
 * User-space interface of jix_xpon_multicast: the ioctl commands of the
 * character device "quor_igmp" (major 253) and the records they carry.
 * Records are little-endian with the layouts checked below; the same
 * records cross the module's control API hook.
 */
#ifndef JIX_MC_UAPI_H
#define JIX_MC_UAPI_H

#include <linux/types.h>

#define QUOR_IGMP_DEV_NAME	"quor_igmp"
#define QUOR_IGMP_MAJOR		253
#define QUOR_IGMP_MINORS	256

/* ioctl commands: plain numbers, no direction or size encoding. */
#define QUOR_IGMP_IOC_ADD_ENTRY		1	/* struct igmp_entry_info */
#define QUOR_IGMP_IOC_DEL_ENTRY		2	/* struct igmp_entry_info */
#define QUOR_IGMP_IOC_UPDATE_ENTRY	3	/* struct igmp_entry_info */
#define QUOR_IGMP_IOC_CLEAR_BY_PORT	4	/* __u8 port id */
#define QUOR_IGMP_IOC_CLEAR_ALL		5	/* no argument */
#define QUOR_IGMP_IOC_GET_ENTRY		6	/* struct igmp_entry_get_req */
#define QUOR_IGMP_IOC_SET_FILTER_MODE	7	/* __u32 mode in */
#define QUOR_IGMP_IOC_GET_FILTER_MODE	8	/* __u32 mode out */
#define QUOR_IGMP_IOC_SET_SNOOPING	9	/* __u8 on/off in */
#define QUOR_IGMP_IOC_GET_SNOOPING	10	/* __u8 on/off out */

/* Filter modes: the fields that name a programme besides the port. */
#define IGMP_FILTER_IP_VID	0
#define IGMP_FILTER_MAC		1
#define IGMP_FILTER_IP_SRC_IP	2
#define IGMP_FILTER_MAC_VID	3
#define IGMP_FILTER_MAC_IP	4
#define IGMP_FILTER_MAC_IP_VID	5
#define IGMP_FILTER_MAX		5

/* VLAN treatments of a member port. */
#define JIX_VLAN_TRANSPARENT	0
#define JIX_VLAN_REPLACE	1
#define JIX_VLAN_REPLACE_REMARK	2
#define JIX_VLAN_STRIP		3
#define JIX_VLAN_ADD		4
#define JIX_VLAN_ADD_REMARK	5

/* An IP address: IPv4 in addr[0..3] (network order), the rest zero. */
struct mc_ip_addr {
	__u8 addr[16];
	__u8 isipv6;
	__u8 rsv[3];
};

/* One forwarding entry as it crosses the interface (80 bytes). */
struct igmp_entry_info {
	__u8 port;
	__u8 rsv0;
	__s16 vlan;		/* -1: untagged */
	__u32 pkt_acnt;		/* out: packets since the entry was added */
	__u64 byte_acnt;	/* out: bytes since the entry was added */
	struct mc_ip_addr grp_ip;
	struct mc_ip_addr src_ip;
	__u8 grp_mac[6];
	__u8 rsv1[2];
	__u32 vlan_mode;
	__u16 outer_tpid;
	__u16 outer_tci;
	__u16 inner_tpid;
	__u16 inner_tci;
	__u8 rsv2[4];
};

/* Get the entries of one port with their counts (32 bytes). */
struct igmp_entry_get_req {
	__u8 port_id;
	__u8 rsv0[3];
	__s32 entry_num;	/* in: capacity of entries; out: records written */
	__u32 total_pkts;	/* added to, never cleared */
	__u32 rsv1;
	__u64 total_bytes;	/* added to, never cleared */
	struct igmp_entry_info *entries;
};

#ifdef __cplusplus
#define JIX_UAPI_CHECK(c) static_assert(c, #c)
#else
#define JIX_UAPI_CHECK(c) _Static_assert(c, #c)
#endif
JIX_UAPI_CHECK(sizeof(struct mc_ip_addr) == 20);
JIX_UAPI_CHECK(__builtin_offsetof(struct mc_ip_addr, isipv6) == 16);
JIX_UAPI_CHECK(sizeof(struct igmp_entry_info) == 80);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, port) == 0x00);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, vlan) == 0x02);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, pkt_acnt) == 0x04);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, byte_acnt) == 0x08);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, grp_ip) == 0x10);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, grp_ip.isipv6) == 0x20);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, src_ip) == 0x24);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, src_ip.isipv6) == 0x34);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, grp_mac) == 0x38);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, vlan_mode) == 0x40);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, outer_tpid) == 0x44);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, outer_tci) == 0x46);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, inner_tpid) == 0x48);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_info, inner_tci) == 0x4A);
JIX_UAPI_CHECK(sizeof(struct igmp_entry_get_req) == 32);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_get_req, port_id) == 0x00);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_get_req, entry_num) == 0x04);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_get_req, total_pkts) == 0x08);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_get_req, total_bytes) == 0x10);
JIX_UAPI_CHECK(__builtin_offsetof(struct igmp_entry_get_req, entries) == 0x18);
#undef JIX_UAPI_CHECK

#endif /* JIX_MC_UAPI_H */
