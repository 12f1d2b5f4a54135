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
	if (cmd == CNT_POOL_TAKE)
		memcpy(req.name, MCST_ACNT_NAME, sizeof(MCST_ACNT_NAME));
	__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_POOL, 0, &req);
	return req.cnt_id;
}

static void quor_mcst_cnt_req(u32 cmd, u8 id, struct quor_cnt_req *req)
{
	memset(req, 0, sizeof(*req));
	req->cmd = cmd;
	req->cnt_id = id;
	req->kind = 3;
	__QUOR_HOOK(QUOR_HOOK_TYPE_CNT_REQ, 0, req);
}

/* Start: every slot free, each with a counter of its own. */
void quor_mcst_acnt_init(void)
{
	int i;

	quor_mcst_layout_check();
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		mcst_acnt[i].valid = 1;
		memset(mcst_acnt[i].grp_addr, 0, 16);
		mcst_acnt[i].acnt_id = (u8)quor_mcst_pool_req(CNT_POOL_TAKE, 0);
	}
}

/* Stop: give every counter back. */
void quor_mcst_acnt_deinit(void)
{
	int i;

	for (i = 0; i < MCST_ACNT_NUM; i++) {
		mcst_acnt[i].valid = 0;
		quor_mcst_pool_req(CNT_POOL_GIVE, mcst_acnt[i].acnt_id);
	}
}

/*
 * The counter id bound to @grp, binding the lowest free slot when the
 * group has none.  Returns -1 when every slot is bound to another group.
 */
s32 quor_mcst_match_group(const u8 *grp)
{
	int i, free_slot = -1;
	bool bound = false;
	s32 id = -1;

	spin_lock_bh(&mcst_acnt_lock);
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		if (mcst_acnt[i].valid) {
			if (free_slot < 0)
				free_slot = i;
		} else if (!memcmp(mcst_acnt[i].grp_addr, grp, 16)) {
			id = mcst_acnt[i].acnt_id;
			goto out;
		}
	}
	if (free_slot < 0)
		goto out;
	mcst_acnt[free_slot].valid = 0;
	memcpy(mcst_acnt[free_slot].grp_addr, grp, 16);
	id = mcst_acnt[free_slot].acnt_id;
	bound = true;
out:
	spin_unlock_bh(&mcst_acnt_lock);
	trace_jix_mc_table_full(grp, id);
	if (id < 0)
		printk("mcst acnt table is full\n");
	else if (bound)
		jix_dbg(JIX_DBG_ACNT, "[%s]set the group ip to acnt table\n",
			"quor_mcst_match_group");
	return id;
}

/* Free every slot bound to @grp and clear its counter. */
void quor_mcst_clean_group(const u8 *grp)
{
	int i;

	spin_lock_bh(&mcst_acnt_lock);
	for (i = 0; i < MCST_ACNT_NUM; i++) {
		if (memcmp(mcst_acnt[i].grp_addr, grp, 16))
			continue;
		jix_dbg(JIX_DBG_ACNT, "[%s]del the group mapping to acnt_id=%d\n",
			"quor_mcst_clean_group", mcst_acnt[i].acnt_id);
		mcst_acnt[i].valid = 1;
		memcpy(mcst_acnt[i].grp_addr, zero_addr, 16);
		quor_mcst_clear_cnt(mcst_acnt[i].acnt_id);
	}
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

void set_sw_cnt_by_port(u8 port, u32 bytes)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	atomic_inc(&lan_map_data[port].sw_pktcnt);
	atomic_add((int)bytes, &lan_map_data[port].sw_bytecount);
}

void get_sw_cnt_by_port(u8 port, u32 *bytes, u32 *pkts)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	*bytes = (u32)atomic_xchg(&lan_map_data[port].sw_bytecount, 0);
	*pkts = (u32)atomic_xchg(&lan_map_data[port].sw_pktcnt, 0);
}

void clean_sw_cnt_by_port(u8 port)
{
	if (port > JIX_PORT_MAX_ID)
		return;
	atomic_set(&lan_map_data[port].sw_pktcnt, 0);
	atomic_set(&lan_map_data[port].sw_bytecount, 0);
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
