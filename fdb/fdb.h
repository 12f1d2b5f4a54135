/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The forwarding database: one entry per (member port, programme).
 *
 * Locking: igmp_fdb_lock guards igmp_fdb_list, every field of its entries
 * and igmp_snooping_enable.  It is always taken with bottom halves
 * disabled and never held while the flow, drop or accounting locks are
 * taken.  The lookups below do not lock: callers hold igmp_fdb_lock
 * around the lookup and every use of its result.
 *
 * The packet path reads the programme index under RCU instead: an entry
 * is never changed in place once it is linked (an update links a changed
 * copy in its place), except flow_idx, which readers store with
 * WRITE_ONCE and everyone reads with READ_ONCE; entries are freed after a
 * grace period.  The list itself is walked under the lock only.
 */
#ifndef JIX_FDB_H
#define JIX_FDB_H

#include "jix_mc.h"

struct igmp_acnt {
	u8 acnt_id;		/* hardware counter of the entry's group */
	u32 pkt_base;		/* counter readings when it was bound */
	u32 pkt_acnt;		/* counts since then, as last computed */
	u64 byte_base;
	u64 byte_acnt;
	u8 bound;		/* slot, acnt_id and the bases are valid */
	s8 slot;		/* accounting slot the entry holds */
};

struct igmp_fdb_entry {
	struct list_head list;
	struct hlist_node hnode;	/* programme index of the filter mode (RCU) */
	u32 hkey;		/* hash of the programme fields, see below */
	u64 seq;		/* insertion order: list order */
	s32 flow_idx;		/* hardware flow of the programme, -1: none */
	u8 port;
	s16 vlan;		/* -1: untagged */
	struct mc_ip_addr grp_ip;
	struct mc_ip_addr src_ip;
	u8 grp_mac[ETH_ALEN];
	u32 vlan_mode;
	u16 outer_tpid;
	u16 outer_tci;
	u16 inner_tpid;
	u16 inner_tci;
	struct igmp_acnt acnt;
	struct rcu_head rcu;
};

extern spinlock_t igmp_fdb_lock;
extern u32 igmp_filter_mode;
extern u32 igmp_snooping_enable;

/* Lookups (caller holds igmp_fdb_lock). */
struct igmp_fdb_entry *igmp_find_entry(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_ip_vid(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_mac(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_ip_and_src_ip(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_mac_vid(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_mac_ip(const struct igmp_entry_info *key);
struct igmp_fdb_entry *igmp_find_entry_by_all(const struct igmp_entry_info *key);

int igmp_is_programme_exist(const struct igmp_entry_info *key, s32 *flow_idx,
			    u64 *mask, u32 op);
int igmp_find_data_by_ip_vid(const struct igmp_entry_info *key, s32 *flow_idx,
			     u64 *mask, u32 op);
int igmp_find_data_by_mac(const struct igmp_entry_info *key, s32 *flow_idx,
			  u64 *mask, u32 op);
int igmp_find_data_by_ip_and_src_ip(const struct igmp_entry_info *key,
				    s32 *flow_idx, u64 *mask, u32 op);
int igmp_find_data_by_mac_vid(const struct igmp_entry_info *key, s32 *flow_idx,
			      u64 *mask, u32 op);
int igmp_find_data_by_mac_ip(const struct igmp_entry_info *key, s32 *flow_idx,
			     u64 *mask, u32 op);
int igmp_find_data_by_all(const struct igmp_entry_info *key, s32 *flow_idx,
			  u64 *mask, u32 op);

/*
 * The programme index: a hash table of igmp_fdb_list's entries keyed by
 * the fields that every matcher of the current filter mode compares for
 * equality (group address in its first 4 bytes, group MAC, VLAN, source
 * address), so a lookup visits one bucket instead of the whole list; the
 * walk then applies the matcher's full rule.  It is kept under
 * igmp_fdb_lock and rebuilt when the filter mode changes.
 */
#define IGMP_FDB_HASH_BITS	14
u32 igmp_fdb_hash(u32 mode, const u8 *mac, const u8 *grp, const u8 *src,
		  s16 vlan);
/* Bucket of @hash, after bringing the index in line with @mode; NULL when
 * @mode is not a filter mode.  Caller holds igmp_fdb_lock. */
struct hlist_head *igmp_fdb_bucket(u32 mode, u32 hash);
/* Append @e to the list and the index; caller holds igmp_fdb_lock. */
void igmp_fdb_link(struct igmp_fdb_entry *e);
/*
 * Put @repl, a changed copy of @old, in @old's place (list position, age,
 * flow index and accounting); @old is then free to go after a grace
 * period.  Caller holds igmp_fdb_lock.
 */
void igmp_fdb_replace(struct igmp_fdb_entry *old, struct igmp_fdb_entry *repl);
/* Move every entry to @to and empty the index; caller holds the lock. */
void igmp_fdb_unlink_all(struct list_head *to);
/*
 * For each port p of @ports (0..31), the oldest entry of p whose entry key
 * equals @key's under the current filter mode, as igmp_find_entry() would
 * answer with key->port = p, or NULL.  Caller holds igmp_fdb_lock.
 */
void igmp_find_port_entries(const struct igmp_entry_info *key, u32 ports,
			    struct igmp_fdb_entry **found);
/*
 * The packet path's lookup, under rcu_read_lock: the bucket of @hash when
 * the index is kept for @mode (NULL otherwise: the database was emptied by
 * the change of mode).
 */
struct hlist_head *igmp_fdb_bucket_rcu(u32 mode, u32 hash);
/* Whether @e is an entry of @key (its port included) under @mode. */
bool igmp_entry_matches(const struct igmp_fdb_entry *e,
			const struct igmp_entry_info *key, u32 mode);

#define IGMP_PROG_OP_ADD	1	/* the key's port is about to join */
#define IGMP_PROG_OP_DEL	2	/* the key's port is about to leave */

void igmp_init_fdb(void);
void igmp_init_fdb_tmp(void);
struct list_head *igmp_get_fdb_list(void);
struct list_head *igmp_get_fdb_tmp_list(void);
void igmp_clear_entry(void);
void igmp_clear_entry_tmp(void);
/* Unlink and free @entry (caller holds igmp_fdb_lock); returns the
 * accounting slot it held (-1: none), for the caller to put after
 * releasing the lock. */
int igmp_del_entry(struct igmp_fdb_entry *entry);
/* Free an unlinked entry of the database and put its slot; no lock held. */
void igmp_entry_release(struct igmp_fdb_entry *entry);
bool igmp_fdb_empty(void);
/*
 * Copy @src whole into @dst; the packet path may store @src's flow index
 * meanwhile (caller holds igmp_fdb_lock).
 */
void igmp_entry_copy(struct igmp_fdb_entry *dst,
		     const struct igmp_fdb_entry *src);
/* Number of entries on igmp_fdb_list. */
u32 igmp_fdb_entries(void);
/* Most entries the database holds (module parameter max_entries). */
extern unsigned int igmp_fdb_max_entries;
#define IGMP_FDB_MAX_ENTRIES	16384
/* Number of entries of @port (takes igmp_fdb_lock). */
int igmp_count_port_entries(u8 port);

/* Entry operations: 0 (or a count) on success, -1 on failure. */
int quor_igmp_add_entry(const struct igmp_entry_info *req);
int quor_igmp_del_entry(const struct igmp_entry_info *req);
int quor_igmp_update_entry(const struct igmp_entry_info *req);
int quor_igmp_clear_entry_by_port(u8 port);
void quor_igmp_clear_all_entry(void);
int quor_igmp_get_entry(struct igmp_entry_get_req *req);
void quor_igmp_set_filterMode(u32 mode);
int quor_igmp_set_snooping(u8 mode);
u8 quor_igmp_get_snooping(void);
/* The flag without the lock, for the packet path. */
u32 quor_igmp_snooping_peek(void);
void quor_igmp_remove_list(void);
/* Free the listing snapshot of the proc file (module stop). */
void jix_mc_fwd_entry_release(void);

/* The forwarding-entry proc file. */
int jix_mc_fwd_entry_read_proc(char *page, char **start, off_t off, int count,
			       int *eof, void *data);
int jix_mc_fwd_entry_write_proc(struct file *file, const char __user *buffer,
				unsigned long count, void *data);

#endif /* JIX_FDB_H */
