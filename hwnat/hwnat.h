/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Hardware flow offload: the flows bound into the forwarding engine and
 * the drop entries of groups that nobody watches, each with an aging
 * timer.  Lock order: hwnat_flow_lock before hwnat_drop_lock; neither is
 * taken while igmp_fdb_lock is held.  Both are taken with bottom halves
 * disabled on every path.
 */
#ifndef JIX_HWNAT_H
#define JIX_HWNAT_H

#include "jix_mc.h"

struct hwnat_flow_entry;
struct jix_pkt;

void jix_init_hwnat_list(void);
/*
 * Module stop: stop every timer and free every flow and drop record,
 * quietly (no driver or accounting call), waiting for expiries in flight.
 * Nothing is added afterwards.  Process context, no lock held.
 */
void jix_hwnat_release_all(void);

/* ---- control paths: process context or softirq, no lock held ---- */
/* Records of @flow_idx take @mask; mask 0 turns them into drop records. */
void quor_update_hwnat_entry(u32 flow_idx, u64 mask);
bool jix_hwnat_learned_tags(s32 flow_idx, u32 *outer, u32 *inner,
			    u32 *tag_num);
void quor_mcst_hwnat_update_vlan(u32 flow_idx);
void quor_mcst_hwnat_update_dp(u32 flow_idx, int port);
u64 quor_get_switch_mask(u64 mask);
void jix_xpon_hwnat_del_flow_by_index(s32 flow_idx);
int jix_update_iptv_table_entry(s32 flow_idx);
int jix_remove_iptv_table_entry(void);
void jix_xpon_hwnat_clear_flows(void);
struct hwnat_flow_entry *jix_xpon_hwnat_find_entry(struct list_head *head,
						   int index);
void quor_mcst_hwnat_add_drop(struct hwnat_flow_entry *e);

/* ---- driver hooks and packet path: softirq ---- */
int jix_xpon_hwnat_learn_flow(struct sk_buff *skb);
void quor_hwnat_update_flows(void);
/* Caller holds hwnat_flow_lock. */
void jix_xpon_hwnat_update_flow(struct hwnat_flow_entry *e, u64 mask);
/*
 * Bind the flow of a data frame (@pk its parse, with its flow index)
 * forwarded to @mask: one record per flow index, aging from this frame,
 * the frame marked with its group's counter id, the flow's drop records
 * removed.  A mask of 0 removes the flow's records instead.
 */
void jix_xpon_hwnat_add_flow(struct sk_buff *skb, const struct jix_pkt *pk,
			     u64 mask);
struct hwnat_flow_entry *jix_xpon_hwnat_find_speed_entry(int index);
int jix_mc_hwnat_flow_read_proc(char *page, char **start, off_t off, int count,
				int *eof, void *data);

int jix_add_iptv_table_entry(const struct igmp_entry_info *req);
void jix_xpon_hwnat_clear_all_drop(void);
int jix_xpon_hwnat_drop_multicast(struct sk_buff *skb, unsigned long long mask);
/* The same for the data handler, with the frame's parse and flow index. */
int jix_xpon_hwnat_drop_pkt(struct sk_buff *skb, const struct jix_pkt *pk);

#endif /* JIX_HWNAT_H */
