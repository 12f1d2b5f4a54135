/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The hardware flow record.  Its address is handed to the hardware
 * forwarding driver (multicast_speed_find_entry_hook), so its layout is a
 * shared format, checked below: every field the driver reads, up to the
 * timer at 136, has a fixed offset; the timer is the kernel's, so what
 * follows it and the record's size follow struct timer_list (40 bytes,
 * a 184-byte record, unless lock debugging makes the timer larger; a
 * vendor kernel's driver is built for the 184 bytes).  Drop records use
 * the same type.
 *
 * hwnat_flow_lock guards hwnat_flow_list and its records, hwnat_drop_lock
 * hwnat_drop_list and its records; both are always taken with bottom
 * halves disabled (the packet path, the driver's hooks and the timers
 * included).  The flow lock may be held while the drop lock is taken,
 * never the reverse.
 *
 * Readers: the per-flow-index lists (hwnat_rec.by_index) are also walked
 * under RCU, by the packet path and by the driver's find hook, which
 * hands a record to the driver after the walk.  Records are therefore
 * freed only after a grace period (hwnat_rec.rcu), and the fields a
 * reader compares are set before the record is published; only mask and
 * wifi_num change in place (WRITE_ONCE under the lock).
 *
 * Lifetime: a record on its list always has its timer pending, except
 * while its own expiry runs.  Only the expiry re-arms a record's timer.
 * The expiry may already be running on another processor, waiting for the
 * lock, when a control or packet path removes the record; such a record is
 * not freed but parked on the table's orphan list, and the expiry frees it
 * when it gets the lock.  So a record's memory outlives every run of its
 * timer, and an expiry acts only on a record that is still on its list.
 */
#ifndef JIX_HWNAT_FLOW_H
#define JIX_HWNAT_FLOW_H

#include "jix_mc.h"

#define HWNAT_PROTO_IPV4	2
#define HWNAT_PROTO_IPV6	16
#define HWNAT_AGING_TICKS	3000	/* from the tick count rounded to a second */
#define HWNAT_DROP_DP		15	/* destination port of a dropped flow */
#define HWNAT_WIFI_BITS		0xFFFF0000ULL	/* port ids 16..31 */

/* Where a record is in its life (hwnat_flow_entry.life). */
enum hwnat_life {
	HWNAT_LIVE = 0,		/* on its list (the driver sees 0 here) */
	HWNAT_EXPIRING,		/* its expiry holds the lock and acts on it */
	HWNAT_ORPHAN,		/* removed while its expiry was in flight */
	HWNAT_RELEASED,		/* taken by module stop */
};

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
	struct timer_list timer;	/* 136, 40 bytes without lock debugging */
	u8 life;			/* 176 behind a 40-byte timer: enum hwnat_life */
	u8 rsv5[7];			/* 177 */
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
	BUILD_BUG_ON(offsetof(struct hwnat_flow_entry, life) !=
		     136 + sizeof(struct timer_list));
	BUILD_BUG_ON(sizeof(struct hwnat_flow_entry) !=
		     144 + sizeof(struct timer_list));
#ifdef QUOR_FLOW_RECORD_SIZE
	BUILD_BUG_ON(sizeof(struct hwnat_flow_entry) != QUOR_FLOW_RECORD_SIZE);
#endif
}

/* The driver's IPv6 flag of a record. */
static inline int hwnat_is_v6(const struct hwnat_flow_entry *e)
{
	return e->proto == HWNAT_PROTO_IPV6;
}

extern spinlock_t hwnat_flow_lock;
extern struct list_head hwnat_flow_list;
extern spinlock_t hwnat_drop_lock;
extern struct list_head hwnat_drop_list;

/*
 * The module's allocation around a record: the record first (the driver
 * sees only its own part), then the module's private tail.
 */
struct hwnat_rec {
	struct hwnat_flow_entry e;
	struct list_head by_index;	/* in hwnat_bucket(table, e.index), RCU */
	unsigned long seen;		/* jiffies of the flow's last frame */
	s16 acnt_slot;			/* accounting slot held, -1: none */
	struct rcu_head rcu;
};

static inline struct hwnat_rec *hwnat_rec_of(struct hwnat_flow_entry *e)
{
	return container_of(e, struct hwnat_rec, e);
}

#define HWNAT_INDEX_BITS	10

/*
 * A list of records with its lock, its parked orphans and an index by
 * flow index.  Within a bucket, records keep their order on the list.
 */
struct hwnat_table {
	spinlock_t *lock;
	struct list_head *list;
	struct list_head orphans;
	bool open;		/* false from module stop on: nothing is added */
	unsigned int count;	/* records on the list; written under the lock */
	struct list_head index[1 << HWNAT_INDEX_BITS];
};

static inline struct list_head *hwnat_bucket(struct hwnat_table *t, s32 index)
{
	return &t->index[(u32)index & ((1U << HWNAT_INDEX_BITS) - 1)];
}

/*
 * Walk the records of flow index @idx in @t (caller holds its lock);
 * @r may be removed inside the loop.  Readers without the lock use
 * hwnat_rec_find_rcu().
 */
#define hwnat_for_each_of_index(t, r, n, idx)				\
	list_for_each_entry_safe(r, n, hwnat_bucket(t, idx), by_index)	\
		if ((r)->e.index != (idx)) {} else

extern struct hwnat_table hwnat_flows;
extern struct hwnat_table hwnat_drops;

/* ---- record lifetime (rec.c); callers hold the table's lock ---- */
/* A cleared record, allocated without sleeping; NULL on failure. */
struct hwnat_flow_entry *hwnat_rec_alloc(void);
/*
 * Append @e at the tail and start its aging timer with @fn.  When the
 * table is closed (module stop) the record is freed instead; returns
 * false then.
 */
bool hwnat_rec_add(struct hwnat_table *t, struct hwnat_flow_entry *e,
		   void (*fn)(struct timer_list *));
/* Stop the timer, unlink and free (or park for a running expiry). */
void hwnat_rec_remove(struct hwnat_table *t, struct hwnat_flow_entry *e);
/* First record of @index on @t's list, or NULL; caller holds the lock. */
struct hwnat_flow_entry *hwnat_rec_find(struct hwnat_table *t, s32 index);
/* The same under rcu_read_lock (or in softirq); valid until it is left. */
struct hwnat_flow_entry *hwnat_rec_find_rcu(struct hwnat_table *t, s32 index);
/*
 * A packet path found @e still describing its flow: note the frame's time
 * (the expiry re-arms from it).  False, with nothing changed, when its
 * expiry is already in flight.  Caller holds the lock.
 */
bool hwnat_rec_refresh(struct hwnat_flow_entry *e);
/* The lock-free refresh of a bound flow: the frame's time only. */
static inline void hwnat_rec_seen(struct hwnat_flow_entry *e)
{
	struct hwnat_rec *r = hwnat_rec_of(e);
	unsigned long now = READ_ONCE(jiffies);

	/* One store per tick at most: the line stays shared otherwise. */
	if (READ_ONCE(r->seen) != now)
		WRITE_ONCE(r->seen, now);
}
/* Whether @t holds any record; read without the lock, a hint only. */
static inline bool hwnat_table_empty(struct hwnat_table *t)
{
	return !READ_ONCE(t->count);
}
/*
 * First step of an expiry, under the lock: true when the record is live
 * and the expiry is to act on it (then it must either re-arm it with
 * hwnat_rec_rearm or remove it).  False when the record was removed
 * meanwhile; an orphan is freed here.
 */
bool hwnat_rec_expiry_begin(struct hwnat_table *t, struct hwnat_flow_entry *e);
void hwnat_rec_rearm(struct hwnat_flow_entry *e);
/*
 * For a flow record: when a frame was seen less than a period before its
 * aging would end, re-arm for a period from that frame and return true.
 */
bool hwnat_rec_rearm_if_seen(struct hwnat_flow_entry *e);

/* ---- flow table (flow.c) ---- */
void jix_xpon_hwnat_timer_timeout(struct timer_list *t);
/* Quiet removal of every flow record of @index; caller holds the lock. */
void hwnat_flow_forget(s32 index);

/* ---- drop list (drop.c) ---- */
/* A drop record copied from @flow; takes hwnat_drop_lock plainly. */
void jix_xpon_hwnat_flow_to_drop(const struct hwnat_flow_entry *flow);
/* Quiet removal of every drop record of @index; takes the lock plainly. */
void hwnat_drop_forget(s32 index);

#endif /* JIX_HWNAT_FLOW_H */
