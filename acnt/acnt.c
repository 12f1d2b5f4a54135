// SPDX-License-Identifier: GPL-2.0
/*
 * Multicast accounting: group-to-counter slots, counter requests to the
 * platform, count arithmetic and the per-port software counters.
 */
#include "acnt.h"
#include "fdb/fdb.h"

#define CNT_POOL_TAKE	19
#define CNT_POOL_GIVE	20
#define CNT_REQ_READ	90
#define CNT_REQ_CLEAR	91

/* Counter pool request (hook 20): take or give back one counter. */
struct quor_cnt_pool_req {
	u32 cmd;
	u8 rsv0[12];
	char *name_ptr;		/* points at name below */
	u8 rsv1[8];
	u64 zero;
	char name[16];
	u32 cnt_id;
	u32 kind;		/* 2 */
};

/* Counter request (hook 19): read or clear one counter. */
struct quor_cnt_req {
	u32 cmd;
	u8 rsv0[76];
	u8 cnt_id;
	u8 rsv1[11];
	u32 kind;		/* 3 */
	u8 rsv2[8];
	u32 byte_lo;
	u32 byte_hi;
	u32 pkt_lo;
	u32 pkt_hi;
	u8 rsv3[136];
};

struct mcst_acnt_slot mcst_acnt[MCST_ACNT_NUM];
static DEFINE_SPINLOCK(mcst_acnt_lock);
static const u8 zero_addr[16];

/*
 * Software counters: per-CPU sums since start; a read hands out what was
 * counted since the last read or clean (the base), in 32 wrapping bits.
 */
static struct jix_pcpu_stats *jix_sw_stats;
static u64 jix_sw_base_pkts[JIX_PORT_NUM], jix_sw_base_bytes[JIX_PORT_NUM];
static DEFINE_SPINLOCK(jix_sw_base_lock);	/* the bases; a leaf */


static void quor_mcst_layout_check(void)
{
	BUILD_BUG_ON(sizeof(struct quor_cnt_pool_req) != 64);
	BUILD_BUG_ON(offsetof(struct quor_cnt_pool_req, name_ptr) != 16);
	BUILD_BUG_ON(offsetof(struct quor_cnt_pool_req, zero) != 32);
	BUILD_BUG_ON(offsetof(struct quor_cnt_pool_req, name) != 40);
	BUILD_BUG_ON(offsetof(struct quor_cnt_pool_req, cnt_id) != 56);
	BUILD_BUG_ON(offsetof(struct quor_cnt_pool_req, kind) != 60);
	BUILD_BUG_ON(sizeof(struct quor_cnt_req) != 256);
	BUILD_BUG_ON(offsetof(struct quor_cnt_req, cnt_id) != 80);
	BUILD_BUG_ON(offsetof(struct quor_cnt_req, kind) != 92);
	BUILD_BUG_ON(offsetof(struct quor_cnt_req, byte_lo) != 104);
	BUILD_BUG_ON(offsetof(struct quor_cnt_req, pkt_lo) != 112);
}

static u32 quor_mcst_pool_req(u32 cmd, u32 id)
{
	struct quor_cnt_pool_req req;

	memset(&req, 0, sizeof(req));
	req.cmd = cmd;
	req.name_ptr = req.name;
	req.cnt_id = id;
	req.kind = 2;
	__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_POOL, 0, &req);
	return req.cnt_id;
}

/* Take a counter into *@id; false when the pool answered no counter. */
static bool quor_mcst_pool_take(u8 *id)
{
	struct quor_cnt_pool_req req;

	memset(&req, 0, sizeof(req));
	req.cmd = CNT_POOL_TAKE;
	req.name_ptr = req.name;
	req.kind = 2;
	memcpy(req.name, MCST_ACNT_NAME, sizeof(MCST_ACNT_NAME));
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_POOL, 0, &req) != 0)
		return false;
	*id = (u8)req.cnt_id;
	return true;
}

static void quor_mcst_cnt_req(u32 cmd, u8 id, struct quor_cnt_req *req)
{
	memset(req, 0, sizeof(*req));
	req->cmd = cmd;
	req->cnt_id = id;
	req->kind = 3;
	__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_REQ, 0, req);
}

/*
 * Start: every slot free, each with a counter of its own.  A slot whose
 * take fails owns no counter and is never bound or given back.
 */
int quor_mcst_acnt_init(void)
{
	struct mcst_acnt_slot *s;
	int i;

	quor_mcst_layout_check();
	jix_sw_stats = jix_pcpu_stats_alloc(JIX_PORT_NUM);
	if (!jix_sw_stats)
		return -ENOMEM;
	memset(jix_sw_base_pkts, 0, sizeof(jix_sw_base_pkts));
	memset(jix_sw_base_bytes, 0, sizeof(jix_sw_base_bytes));
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		s = &mcst_acnt[i];
		memset(s->grp_addr, 0, 16);
		s->users = 0;
		s->usable = quor_mcst_pool_take(&s->acnt_id);
		s->valid = s->usable;
		if (!s->usable)
			s->acnt_id = 0;
	}
	return 0;
}

/* Stop: give every counter back. */
void quor_mcst_acnt_deinit(void)
{
	int i;

	for (i = 0; i < MCST_ACNT_NUM; i++) {
		mcst_acnt[i].valid = 0;
		if (mcst_acnt[i].usable)
			quor_mcst_pool_req(CNT_POOL_GIVE, mcst_acnt[i].acnt_id);
		mcst_acnt[i].usable = 0;
	}
	jix_pcpu_stats_free(jix_sw_stats);
	jix_sw_stats = NULL;
}

/* Caller holds mcst_acnt_lock. */
static void quor_mcst_full(void)
{
	static unsigned long next;
	static bool said;

	/* Once a second at most: it can come with every frame. */
	if (said && time_before(READ_ONCE(jiffies), next))
		return;
	said = true;
	next = READ_ONCE(jiffies) + HZ;
	printk("mcst acnt table is full\n");
}

/* The slot of @grp, binding the lowest free one; caller holds the lock. */
static int quor_mcst_match_slot(const u8 *grp, bool *bound)
{
	int i, free_slot = -1;

	*bound = false;
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		if (!mcst_acnt[i].usable)
			continue;
		if (mcst_acnt[i].valid) {
			if (free_slot < 0)
				free_slot = i;
		} else if (!memcmp(mcst_acnt[i].grp_addr, grp, 16)) {
			return i;
		}
	}
	if (free_slot < 0)
		return -1;
	mcst_acnt[free_slot].valid = 0;
	memcpy(mcst_acnt[free_slot].grp_addr, grp, 16);
	*bound = true;
	return free_slot;
}

int quor_mcst_slot_hold(const u8 *grp)
{
	bool bound;
	int slot;

	spin_lock_bh(&mcst_acnt_lock);
	slot = quor_mcst_match_slot(grp, &bound);
	if (slot >= 0)
		mcst_acnt[slot].users++;
	else
		quor_mcst_full();
	spin_unlock_bh(&mcst_acnt_lock);
	trace_jix_mc_table_full(grp, slot);
	if (bound)
		jix_dbg(JIX_DBG_ACNT, "[%s]set the group ip to acnt table\n",
			"quor_mcst_match_group");
	return slot;
}

/* Caller holds mcst_acnt_lock. */
static void quor_mcst_free_slot(struct mcst_acnt_slot *s)
{
	jix_dbg(JIX_DBG_ACNT, "[%s]del the group mapping to acnt_id=%d\n",
		"quor_mcst_clean_group", s->acnt_id);
	s->valid = 1;
	s->users = 0;
	memcpy(s->grp_addr, zero_addr, 16);
	quor_mcst_clear_cnt(s->acnt_id);
}

void quor_mcst_slot_put(int slot)
{
	struct mcst_acnt_slot *s;

	if (slot < 0 || slot >= MCST_ACNT_NUM)
		return;
	s = &mcst_acnt[slot];
	spin_lock_bh(&mcst_acnt_lock);
	if (!WARN_ON(s->valid || !s->users) && !--s->users)
		quor_mcst_free_slot(s);
	spin_unlock_bh(&mcst_acnt_lock);
}

u64 quor_mcst_get_byte_cnt(u8 id, u32 *lo, u32 *hi)
{
	struct quor_cnt_req req;

	quor_mcst_cnt_req(CNT_REQ_READ, id, &req);
	*lo = req.byte_lo;
	*hi = req.byte_hi;
	return ((u64)req.byte_hi << 32) | req.byte_lo;
}

/* A packet count is used as its low half only. */
u32 quor_mcst_get_pkt_cnt(u8 id, u32 *lo, u32 *hi)
{
	struct quor_cnt_req req;

	quor_mcst_cnt_req(CNT_REQ_READ, id, &req);
	*lo = req.pkt_lo;
	*hi = req.pkt_hi;
	return req.pkt_lo;
}

void quor_mcst_clear_cnt(u8 id)
{
	struct quor_cnt_req req;

	quor_mcst_cnt_req(CNT_REQ_CLEAR, id, &req);
}

/* Caller holds igmp_fdb_lock. */
void igmp_set_entry_base_acnt(struct igmp_fdb_entry *entry, u8 id)
{
	struct igmp_acnt *a = &entry->acnt;
	u32 lo, hi;

	a->acnt_id = id;
	a->byte_base = quor_mcst_get_byte_cnt(id, &lo, &hi);
	jix_dbg(JIX_DBG_ACNT, "[%s]acnt grp_%d: byte_base=%llu\n",
		"igmp_set_entry_base_acnt", a->acnt_id,
		(unsigned long long)a->byte_base);
	a->pkt_base = quor_mcst_get_pkt_cnt(id, &lo, &hi);
	jix_dbg(JIX_DBG_ACNT, "[%s]acnt grp_%d: pkt_base=%u\n",
		"igmp_set_entry_base_acnt", a->acnt_id, a->pkt_base);
	a->pkt_acnt = 0;
	a->byte_acnt = 0;
	a->bound = 1;
}

/* Counts since the bases, modulo the counters' widths. */
void igmp_set_entry_real_acnt(struct igmp_acnt *acnt)
{
	u32 lo, hi;

	jix_dbg(JIX_DBG_ACNT, "[%s]get entry acntID=%d\n",
		"igmp_set_entry_real_acnt", acnt->acnt_id);
	acnt->byte_acnt = quor_mcst_get_byte_cnt(acnt->acnt_id, &lo, &hi) -
			  acnt->byte_base;
	jix_dbg(JIX_DBG_ACNT, "[%s]get byte_acnt=%llu\n",
		"igmp_set_entry_real_acnt",
		(unsigned long long)acnt->byte_acnt);
	acnt->pkt_acnt = quor_mcst_get_pkt_cnt(acnt->acnt_id, &lo, &hi) -
			 acnt->pkt_base;
	jix_dbg(JIX_DBG_ACNT, "[%s]get pkt_acnt=%u\n",
		"igmp_set_entry_real_acnt", acnt->pkt_acnt);
}

/* Only for a copy its device took; any context. */
void set_sw_cnt_by_port(u8 port, u32 bytes)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	jix_pcpu_stats_add(jix_sw_stats, port, bytes);
}

static void jix_sw_take(u8 port, u32 *bytes, u32 *pkts)
{
	u64 p, b;

	jix_pcpu_stats_sum(jix_sw_stats, port, &p, &b);
	spin_lock_bh(&jix_sw_base_lock);
	if (pkts)
		*pkts = (u32)(p - jix_sw_base_pkts[port]);
	if (bytes)
		*bytes = (u32)(b - jix_sw_base_bytes[port]);
	jix_sw_base_pkts[port] = p;
	jix_sw_base_bytes[port] = b;
	spin_unlock_bh(&jix_sw_base_lock);
}

void get_sw_cnt_by_port(u8 port, u32 *bytes, u32 *pkts)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	jix_sw_take(port, bytes, pkts);
}

void clean_sw_cnt_by_port(u8 port)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	jix_sw_take(port, NULL, NULL);
}

int jix_mc_acnt_mapping_read_proc(char *page, char **start, off_t off,
				  int count, int *eof, void *data)
{
	struct mcst_acnt_slot s;
	int i, len;

	len = scnprintf(page, JIX_PROC_PAGE_SIZE, "valid\tgrp_addr\t\tacnt_id\n");
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		/* Entry addition binds and releases slots meanwhile. */
		spin_lock_bh(&mcst_acnt_lock);
		s = mcst_acnt[i];
		spin_unlock_bh(&mcst_acnt_lock);
		len += scnprintf(page + len, JIX_PROC_PAGE_SIZE - len,
				 "%d\t[%d.%d.%d.%d]\t\t%d\n", s.valid,
				 s.grp_addr[0], s.grp_addr[1], s.grp_addr[2],
				 s.grp_addr[3], s.acnt_id);
	}
	return jix_proc_read_finish(page, start, off, count, eof, len);
}
