/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Multicast accounting: 32 slots that bind a group address to one of the
 * hardware counters taken at start, and the per-port software counters.
 *
 * mcst_acnt_lock serialises the slots between the packet path (which
 * holds hwnat_flow_lock) and entry addition; it nests inside the flow
 * lock and is never held while another lock is taken.
 *
 * A bound slot counts its users: the forwarding entries and the flow
 * records of its group.  The group keeps its slot until the last of them
 * is gone, then the slot is freed and its counter cleared.
 */
#ifndef JIX_ACNT_H
#define JIX_ACNT_H

#include "jix_mc.h"

struct igmp_fdb_entry;
struct igmp_acnt;

#define MCST_ACNT_NUM		32
#define MCST_ACNT_NAME		"MCST_DW"

struct mcst_acnt_slot {
	u8 valid;		/* 1: free */
	u8 acnt_id;		/* hardware counter owned for the module's life */
	u8 grp_addr[16];	/* bound group, zero while free */
	u8 usable;		/* the slot got a counter at start */
	u32 users;		/* entries and flow records holding it */
};

extern struct mcst_acnt_slot mcst_acnt[MCST_ACNT_NUM];

/* Start: 0, or -ENOMEM when the software counters cannot be set up. */
int quor_mcst_acnt_init(void);
void quor_mcst_acnt_deinit(void);
/*
 * The slot of @grp with one more user, binding the lowest free slot when
 * the group has none; -1 when every usable slot is bound to another group
 * ("mcst acnt table is full", rate-limited: it can come once a frame).
 * Any context; takes mcst_acnt_lock with bottom halves disabled.
 */
int quor_mcst_slot_hold(const u8 *grp);
/* One user of @slot less; the last frees the slot and clears its counter. */
void quor_mcst_slot_put(int slot);
/* The counter id of a held slot. */
static inline u8 quor_mcst_slot_id(int slot)
{
	return mcst_acnt[slot].acnt_id;
}
u64 quor_mcst_get_byte_cnt(u8 id, u32 *lo, u32 *hi);
u32 quor_mcst_get_pkt_cnt(u8 id, u32 *lo, u32 *hi);
void quor_mcst_clear_cnt(u8 id);
void igmp_set_entry_base_acnt(struct igmp_fdb_entry *entry, u8 id);
void igmp_set_entry_real_acnt(struct igmp_acnt *acnt);
/* Per-port software counters: frames (and bytes) their devices took. */
void set_sw_cnt_by_port(u8 port, u32 bytes);
/* Counts since the last read or clean, wrapping in 32 bits. */
void get_sw_cnt_by_port(u8 port, u32 *bytes, u32 *pkts);
void clean_sw_cnt_by_port(u8 port);
int jix_mc_acnt_mapping_read_proc(char *page, char **start, off_t off,
				  int count, int *eof, void *data);

#endif /* JIX_ACNT_H */
