/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The hardware flow record.  Its address is handed to the hardware
 * forwarding driver (multicast_speed_find_entry_hook), so its layout is a
 * shared format: 184 bytes, checked below.  Drop records use the same
 * type.
 *
 * hwnat_flow_lock guards hwnat_flow_list and its records; it is taken
 * with bottom halves disabled from control paths and plainly in softirq.
 * A record is freed exactly when it is unlinked, after its timer is
 * stopped.
 */
#ifndef JIX_HWNAT_FLOW_H
#define JIX_HWNAT_FLOW_H

#include "jix_mc.h"

#define HWNAT_PROTO_IPV4	2
#define HWNAT_PROTO_IPV6	16
#define HWNAT_AGING_TICKS	3000	/* from the tick count rounded to a second */
#define HWNAT_DROP_DP		15	/* destination port of a dropped flow */

struct hwnat_flow_entry {
	struct list_head list;		/* 0 */
	u8 rsv0[16];			/* 16 */
	u32 proto;			/* 32: 2 IPv4, 16 IPv6 */
	s32 index;			/* 36: flow index */
	u32 tag_num;			/* 40: 0, 1 or 2 */
	u32 outer_tag;			/* 44: TPID << 16 | TCI, 0: none */
	u32 inner_tag;			/* 48 */
	u8 rsv1[4];			/* 52 */
	s16 vid;			/* 56: first tag's VID, -1 untagged */
	s16 wifi_num;			/* 58: Wi-Fi member ports */
	u8 rsv2[4];			/* 60 */
	u64 mask;			/* 64: port mask */
	u8 rsv3[24];			/* 72 */
	u8 grp_addr[16];		/* 96 */
	u8 src_addr[16];		/* 112 */
	u8 rsv4[8];			/* 128 */
	struct timer_list timer;	/* 136 */
	u8 rsv5[8];			/* 176 */
};

static inline void hwnat_flow_layout_check(void)
{
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, proto) != 32);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, index) != 36);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, tag_num) != 40);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, outer_tag) != 44);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, inner_tag) != 48);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, vid) != 56);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, wifi_num) != 58);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, mask) != 64);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, grp_addr) != 96);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, src_addr) != 112);
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, timer) != 136);
	BUILD_BUG_ON(sizeof(struct timer_list) != 40);
	BUILD_BUG_ON(sizeof(struct hwnat_flow_entry) != 184);
}

extern spinlock_t hwnat_flow_lock;
extern struct list_head hwnat_flow_list;

#endif /* JIX_HWNAT_FLOW_H */
