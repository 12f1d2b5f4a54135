// SPDX-License-Identifier: GPL-2.0
/*
 * Life of flow and drop records: adding with the aging timer, removal that
 * never frees memory an expiry on another processor is about to use, and
 * the release of everything at module stop.
 *
 * No timer is waited for while its list lock is held: removal under the
 * lock uses del_timer(), which does not wait.  When it finds the timer
 * not pending, the record's expiry is in flight (it fired and has not yet
 * taken the lock, since only the expiry re-arms and it does so under the
 * lock).  The record then goes to the table's orphan list and that expiry
 * frees it.  Only module stop waits (del_timer_sync), with no lock held.
 *
 * Memory goes back only after an RCU grace period: the packet path and
 * the driver read records through the flow-index lists without a lock.
 * A flow record holds its group's accounting slot until it is unlinked.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "acnt/acnt.h"

DEFINE_SPINLOCK(hwnat_flow_lock);
LIST_HEAD(hwnat_flow_list);
DEFINE_SPINLOCK(hwnat_drop_lock);
LIST_HEAD(hwnat_drop_list);

struct hwnat_table hwnat_flows = {
	.lock = &hwnat_flow_lock,
	.list = &hwnat_flow_list,
	.orphans = LIST_HEAD_INIT(hwnat_flows.orphans),
};

struct hwnat_table hwnat_drops = {
	.lock = &hwnat_drop_lock,
	.list = &hwnat_drop_list,
	.orphans = LIST_HEAD_INIT(hwnat_drops.orphans),
};

static unsigned long hwnat_aging_expiry(void)
{
	return round_jiffies(READ_ONCE(jiffies)) + HWNAT_AGING_TICKS;
}

struct hwnat_flow_entry *hwnat_rec_alloc(void)
{
	struct hwnat_rec *r = kzalloc(sizeof(*r), GFP_ATOMIC);

	if (!r)
		return NULL;
	r->acnt_slot = -1;
	return &r->e;
}

/* Readers may still hold @e: it goes after a grace period. */
static void hwnat_rec_free(struct hwnat_flow_entry *e)
{
	struct hwnat_rec *r = hwnat_rec_of(e);

	kfree_rcu(r, rcu);
}

/* Off the list and the index, its slot given back; caller holds the lock. */
static void hwnat_rec_unlink(struct hwnat_table *t, struct hwnat_flow_entry *e)
{
	struct hwnat_rec *r = hwnat_rec_of(e);

	list_del(&e->list);
	list_del_rcu(&r->by_index);
	WRITE_ONCE(t->count, t->count - 1);
	if (r->acnt_slot >= 0)
		quor_mcst_slot_put(r->acnt_slot);
	WRITE_ONCE(r->acnt_slot, -1);
}

bool hwnat_rec_add(struct hwnat_table *t, struct hwnat_flow_entry *e,
		   void (*fn)(struct timer_list *))
{
	if (!t->open) {
		if (hwnat_rec_of(e)->acnt_slot >= 0)
			quor_mcst_slot_put(hwnat_rec_of(e)->acnt_slot);
		hwnat_rec_free(e);
		return false;
	}
	e->life = HWNAT_LIVE;
	hwnat_rec_of(e)->seen = READ_ONCE(jiffies);
	timer_setup(&e->timer, fn, 0);
	mod_timer(&e->timer, hwnat_aging_expiry());
	list_add_tail(&e->list, t->list);
	/* Published last: readers find it complete. */
	list_add_tail_rcu(&hwnat_rec_of(e)->by_index, hwnat_bucket(t, e->index));
	WRITE_ONCE(t->count, t->count + 1);
	return true;
}

struct hwnat_flow_entry *hwnat_rec_find(struct hwnat_table *t, s32 index)
{
	struct hwnat_rec *r, *n;

	hwnat_for_each_of_index(t, r, n, index)
		return &r->e;
	return NULL;
}

struct hwnat_flow_entry *hwnat_rec_find_rcu(struct hwnat_table *t, s32 index)
{
	struct hwnat_rec *r;

	list_for_each_entry_rcu(r, hwnat_bucket(t, index), by_index)
		if (r->e.index == index)
			return &r->e;
	return NULL;
}

/*
 * Only the expiry re-arms a timer that has fired, so a record whose timer
 * is pending here, under the lock, has no expiry in flight.  The expiry
 * re-arms from the time noted here.
 */
bool hwnat_rec_refresh(struct hwnat_flow_entry *e)
{
	if (e->life != HWNAT_LIVE || !timer_pending(&e->timer))
		return false;
	hwnat_rec_seen(e);
	return true;
}

void hwnat_rec_remove(struct hwnat_table *t, struct hwnat_flow_entry *e)
{
	hwnat_rec_unlink(t, e);
	if (del_timer(&e->timer) || e->life == HWNAT_EXPIRING) {
		hwnat_rec_free(e);
		return;
	}
	/* The expiry is waiting for the lock; it frees the record. */
	e->life = HWNAT_ORPHAN;
	list_add_tail(&e->list, &t->orphans);
}

bool hwnat_rec_expiry_begin(struct hwnat_table *t, struct hwnat_flow_entry *e)
{
	switch (e->life) {
	case HWNAT_LIVE:
		e->life = HWNAT_EXPIRING;
		return true;
	case HWNAT_ORPHAN:
		list_del(&e->list);
		hwnat_rec_free(e);
		return false;
	default:
		/* Module stop owns it and waits for this run to end. */
		return false;
	}
}

void hwnat_rec_rearm(struct hwnat_flow_entry *e)
{
	e->life = HWNAT_LIVE;
	mod_timer(&e->timer, hwnat_aging_expiry());
}

/*
 * A frame refreshes its flow without the lock, by noting its time; the
 * flow then ages 3000 ticks from that tick rounded to a second, as if the
 * frame had restarted the timer.
 */
bool hwnat_rec_rearm_if_seen(struct hwnat_flow_entry *e)
{
	unsigned long due;

	due = round_jiffies(READ_ONCE(hwnat_rec_of(e)->seen)) + HWNAT_AGING_TICKS;
	if (!time_after(due, READ_ONCE(jiffies)))
		return false;
	e->life = HWNAT_LIVE;
	mod_timer(&e->timer, due);
	return true;
}

static void hwnat_table_open(struct hwnat_table *t)
{
	unsigned int i;

	spin_lock_bh(t->lock);
	INIT_LIST_HEAD(t->list);
	INIT_LIST_HEAD(&t->orphans);
	for (i = 0; i < ARRAY_SIZE(t->index); i++)
		INIT_LIST_HEAD(&t->index[i]);
	WRITE_ONCE(t->count, 0);
	t->open = true;
	spin_unlock_bh(t->lock);
}

/*
 * Close @t: its live records go onto @live, its orphans (already removed,
 * waiting for their expiry) onto @gone.
 */
static void hwnat_table_close(struct hwnat_table *t, struct list_head *live,
			      struct list_head *gone)
{
	struct hwnat_flow_entry *e;

	spin_lock_bh(t->lock);
	t->open = false;
	list_for_each_entry(e, t->list, list) {
		e->life = HWNAT_RELEASED;
		/* Quiet: the accounting table goes as a whole after this. */
		list_del_rcu(&hwnat_rec_of(e)->by_index);
	}
	WRITE_ONCE(t->count, 0);
	list_for_each_entry(e, &t->orphans, list)
		e->life = HWNAT_RELEASED;
	list_splice_tail_init(t->list, live);
	list_splice_tail_init(&t->orphans, gone);
	spin_unlock_bh(t->lock);
}

void jix_init_hwnat_list(void)
{
	hwnat_flow_layout_check();
	hwnat_table_open(&hwnat_flows);
	hwnat_table_open(&hwnat_drops);
}

/*
 * Module stop, after the driver hooks and the hook entry points are gone.
 * Closed tables refuse records that a late driver call would still add.
 * Each live drop record is deleted in the engine first, so that a reload
 * does not find its group still dropped; flow records left over are
 * released quietly.  An expiry in flight finds its record released and
 * leaves it alone; del_timer_sync() waits for it, with no lock held,
 * before the free.  Process context, no lock held.
 */
void jix_hwnat_release_all(void)
{
	int (*del)(int index) = READ_ONCE(hwnat_delete_foe_entry_hook);
	struct hwnat_flow_entry *e, *n;
	LIST_HEAD(drops);
	LIST_HEAD(gone);

	hwnat_table_close(&hwnat_flows, &gone, &gone);
	hwnat_table_close(&hwnat_drops, &drops, &gone);
	list_for_each_entry(e, &drops, list)
		if (del)
			del(e->index);
	list_splice_tail_init(&drops, &gone);
	list_for_each_entry_safe(e, n, &gone, list) {
		list_del(&e->list);
		del_timer_sync(&e->timer);
		hwnat_rec_free(e);
	}
	/* Every record and entry is freed before the module's code goes. */
	rcu_barrier();
}
