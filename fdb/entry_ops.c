// SPDX-License-Identifier: GPL-2.0
/*
 * Adding, deleting, updating and clearing forwarding entries, and the
 * filter-mode and snooping switches.
 *
 * Every operation changes the table under igmp_fdb_lock and calls into
 * the hardware-flow, drop, VLAN and accounting code only after releasing
 * it.  The callers run in process context or in the softirq receive path.
 */
#include "fdb.h"
#include "acnt/acnt.h"
#include "hwnat/hwnat.h"
#include "vlan/vlan.h"

u32 igmp_snooping_enable = 1;

/*
 * Any local caller of the API, the ioctl or the proc file can add
 * entries, and the packet path walks them under igmp_fdb_lock: the
 * database is bounded.
 */
unsigned int igmp_fdb_max_entries = IGMP_FDB_MAX_ENTRIES;
module_param_named(max_entries, igmp_fdb_max_entries, uint, 0644);
MODULE_PARM_DESC(max_entries, "most forwarding entries (default 16384)");

/* Copy the fields a request may set; flow_idx and acnt are the entry's. */
static void igmp_copy_req(struct igmp_fdb_entry *e,
			  const struct igmp_entry_info *req)
{
	size_t alen = req->grp_ip.isipv6 ? 16 : 4;

	e->grp_ip.isipv6 = req->grp_ip.isipv6;
	e->src_ip.isipv6 = req->grp_ip.isipv6;
	memcpy(e->grp_ip.addr, req->grp_ip.addr, alen);
	memcpy(e->src_ip.addr, req->src_ip.addr, alen);
	memcpy(e->grp_mac, req->grp_mac, ETH_ALEN);
	e->port = req->port;
	e->vlan = req->vlan;
	e->vlan_mode = req->vlan_mode;
	e->outer_tpid = req->outer_tpid;
	e->outer_tci = req->outer_tci;
	e->inner_tpid = req->inner_tpid;
	e->inner_tci = req->inner_tci;
}

/* Build a request naming @e (the reverse of igmp_copy_req). */
static void igmp_entry_to_req(const struct igmp_fdb_entry *e,
			      struct igmp_entry_info *req)
{
	size_t alen = e->grp_ip.isipv6 ? 16 : 4;

	memset(req, 0, sizeof(*req));
	req->grp_ip.isipv6 = e->grp_ip.isipv6;
	req->src_ip.isipv6 = e->grp_ip.isipv6;
	memcpy(req->grp_ip.addr, e->grp_ip.addr, alen);
	memcpy(req->src_ip.addr, e->src_ip.addr, alen);
	memcpy(req->grp_mac, e->grp_mac, ETH_ALEN);
	req->port = e->port;
	req->vlan = e->vlan;
	req->vlan_mode = e->vlan_mode;
	req->outer_tpid = e->outer_tpid;
	req->outer_tci = e->outer_tci;
	req->inner_tpid = e->inner_tpid;
	req->inner_tci = e->inner_tci;
}

/*
 * Bind the entry of @req to accounting slot @slot (a reference the caller
 * holds), unless it is bound to it already (a refresh of the same group
 * keeps counting from its old bases).  The entry is looked up again under
 * the lock: it may have been deleted or replaced since it was added.  The
 * reference not kept is put after the lock is released.
 */
static void igmp_bind_acnt(const struct igmp_entry_info *req,
			   const struct igmp_fdb_entry *added, int slot)
{
	struct igmp_fdb_entry *e;
	int put = slot;

	spin_lock_bh(&igmp_fdb_lock);
	e = igmp_find_entry(req);
	if (e == added && !(e->acnt.bound && e->acnt.slot == slot)) {
		put = e->acnt.bound ? e->acnt.slot : -1;
		e->acnt.slot = (s8)slot;
		igmp_set_entry_base_acnt(e, quor_mcst_slot_id(slot));
	}
	spin_unlock_bh(&igmp_fdb_lock);
	quor_mcst_slot_put(put);
}

int quor_igmp_add_entry(const struct igmp_entry_info *req)
{
	struct igmp_fdb_entry *new, *found;
	s32 flow_idx = -1;
	u64 mask = 0;
	int existed;
	int slot;

	if (!req)
		return -1;
	new = kzalloc(sizeof(*new), GFP_ATOMIC);
	if (!new)
		return -1;
	igmp_copy_req(new, req);

	spin_lock_bh(&igmp_fdb_lock);
	existed = igmp_is_programme_exist(req, &flow_idx, &mask,
					  IGMP_PROG_OP_ADD);
	found = igmp_find_entry(req);
	if (!found && igmp_fdb_entries() >= READ_ONCE(igmp_fdb_max_entries)) {
		spin_unlock_bh(&igmp_fdb_lock);
		kfree(new);
		printk_ratelimited(KERN_WARNING
				   "[%s]forwarding database is full (%u entries)\n",
				   "quor_igmp_add_entry",
				   READ_ONCE(igmp_fdb_max_entries));
		return -1;
	}
	if (found) {
		igmp_fdb_replace(found, new);
		kfree_rcu(found, rcu);
	} else {
		new->flow_idx = flow_idx;
		igmp_fdb_link(new);
	}
	spin_unlock_bh(&igmp_fdb_lock);

	if (existed) {
		jix_dbg(JIX_DBG_TRACE, "[%s]flow_idx = %d, port_mask = 0x%lx\n",
			"quor_igmp_add_entry", flow_idx, (unsigned long)mask);
		igmp_entry_check_vlan_mode(req, mask, (u32)flow_idx);
		quor_update_hwnat_entry((u32)flow_idx, mask);
	} else {
		jix_dbg(JIX_DBG_TRACE, "[%s]delete drop entry\n",
			"quor_igmp_add_entry");
		jix_add_iptv_table_entry(req);
	}

	slot = quor_mcst_slot_hold(req->grp_ip.addr);
	if (slot >= 0)
		igmp_bind_acnt(req, new, slot);
	return 0;
}

int quor_igmp_del_entry(const struct igmp_entry_info *req)
{
	struct igmp_fdb_entry *e;
	s32 flow_idx = -1;
	u64 mask = 0;
	int slot;

	if (!req)
		return -1;
	spin_lock_bh(&igmp_fdb_lock);
	e = igmp_find_entry(req);
	if (!e) {
		spin_unlock_bh(&igmp_fdb_lock);
		return 0;
	}
	igmp_is_programme_exist(req, &flow_idx, &mask, IGMP_PROG_OP_DEL);
	slot = igmp_del_entry(e);
	spin_unlock_bh(&igmp_fdb_lock);
	quor_mcst_slot_put(slot);

	jix_dbg(JIX_DBG_TRACE, "[%s]flow_idx = %d, port_mask = 0x%lx\n",
		"quor_igmp_del_entry", flow_idx, (unsigned long)mask);
	igmp_entry_check_vlan_mode(req, mask, (u32)flow_idx);
	quor_update_hwnat_entry((u32)flow_idx, mask);
	return 0;
}

/* A changed copy takes the entry's place; -1 also when none can be made. */
int quor_igmp_update_entry(const struct igmp_entry_info *req)
{
	struct igmp_fdb_entry *e, *new;
	s32 flow_idx;

	if (!req)
		return -1;
	new = kzalloc(sizeof(*new), GFP_ATOMIC);
	if (!new)
		return -1;
	igmp_copy_req(new, req);
	spin_lock_bh(&igmp_fdb_lock);
	e = igmp_find_entry(req);
	if (!e) {
		spin_unlock_bh(&igmp_fdb_lock);
		kfree(new);
		return -1;
	}
	igmp_fdb_replace(e, new);
	kfree_rcu(e, rcu);
	flow_idx = READ_ONCE(new->flow_idx);
	spin_unlock_bh(&igmp_fdb_lock);

	/* The next frames are learned again with the new VLAN treatment. */
	if (flow_idx >= 0)
		jix_xpon_hwnat_del_flow_by_index(flow_idx);
	return 0;
}

/*
 * Copy the entries of @port onto @hold under the lock.  Returns -1 when a
 * copy cannot be allocated; the copies made so far stay on @hold.
 */
static int igmp_collect_port(u8 port, struct list_head *hold)
{
	struct igmp_fdb_entry *e, *copy;

	list_for_each_entry(e, igmp_get_fdb_list(), list) {
		if (e->port != port)
			continue;
		copy = kzalloc(sizeof(*copy), GFP_ATOMIC);
		if (!copy)
			return -1;
		copy->grp_ip.isipv6 = e->grp_ip.isipv6;
		memcpy(copy->grp_ip.addr, e->grp_ip.addr, 16);
		memcpy(copy->src_ip.addr, e->src_ip.addr, 16);
		memcpy(copy->grp_mac, e->grp_mac, ETH_ALEN);
		copy->port = e->port;
		copy->vlan = e->vlan;
		copy->vlan_mode = e->vlan_mode;
		copy->outer_tpid = e->outer_tpid;
		copy->outer_tci = e->outer_tci;
		copy->inner_tpid = e->inner_tpid;
		copy->inner_tci = e->inner_tci;
		list_add_tail(&copy->list, hold);
	}
	return 0;
}

static void igmp_free_hold(struct list_head *hold)
{
	struct igmp_fdb_entry *e, *n;

	list_for_each_entry_safe(e, n, hold, list) {
		list_del(&e->list);
		kfree(e);
	}
}

/*
 * Each run keeps its copies on a holding list of its own, so runs from
 * the API, the ioctl and the proc file may overlap.  When a copy cannot be
 * allocated nothing is deleted.
 */
int quor_igmp_clear_entry_by_port(u8 port)
{
	struct igmp_entry_info req;
	struct igmp_fdb_entry *e, *n;
	LIST_HEAD(hold);
	int ret;

	spin_lock_bh(&igmp_fdb_lock);
	ret = igmp_collect_port(port, &hold);
	spin_unlock_bh(&igmp_fdb_lock);
	if (ret < 0) {
		igmp_free_hold(&hold);
		return -1;
	}
	list_for_each_entry_safe(e, n, &hold, list) {
		igmp_entry_to_req(e, &req);
		quor_igmp_del_entry(&req);
		list_del(&e->list);
		kfree(e);
	}
	return 0;
}

void quor_igmp_clear_all_entry(void)
{
	struct igmp_fdb_entry *e, *n;
	LIST_HEAD(gone);

	spin_lock_bh(&igmp_fdb_lock);
	igmp_fdb_unlink_all(&gone);
	spin_unlock_bh(&igmp_fdb_lock);
	list_for_each_entry_safe(e, n, &gone, list)
		igmp_entry_release(e);
	jix_xpon_hwnat_clear_flows();
}

/* Fill one returned record from @e (addresses in the entry's width). */
static void igmp_fill_record(struct igmp_entry_info *rec,
			     const struct igmp_fdb_entry *e)
{
	size_t alen = e->grp_ip.isipv6 ? 16 : 4;

	rec->port = e->port;
	rec->vlan = e->vlan;
	rec->grp_ip.isipv6 = e->grp_ip.isipv6;
	memcpy(rec->grp_ip.addr, e->grp_ip.addr, alen);
	memcpy(rec->src_ip.addr, e->src_ip.addr, alen);
	memcpy(rec->grp_mac, e->grp_mac, ETH_ALEN);
	rec->vlan_mode = e->vlan_mode;
	rec->outer_tpid = e->outer_tpid;
	rec->outer_tci = e->outer_tci;
	rec->inner_tpid = e->inner_tpid;
	rec->inner_tci = e->inner_tci;
}

/*
 * Copy the records of @port into req->entries under the lock, each with
 * its entry's counter binding: the bases in pkt_acnt and byte_acnt and
 * the counter id in the unused byte at 0x01, until the counts are made.
 * Returns the number copied.
 */
static s32 igmp_collect_records(struct igmp_entry_get_req *req)
{
	struct igmp_entry_info *rec;
	struct igmp_fdb_entry *e;
	s32 n = 0;

	spin_lock_bh(&igmp_fdb_lock);
	list_for_each_entry(e, igmp_get_fdb_list(), list) {
		if (n >= req->entry_num)
			break;
		if (e->port != req->port_id)
			continue;
		rec = &req->entries[n++];
		igmp_fill_record(rec, e);
		rec->pkt_acnt = e->acnt.pkt_base;
		rec->byte_acnt = e->acnt.byte_base;
		rec->rsv0 = e->acnt.acnt_id;
	}
	spin_unlock_bh(&igmp_fdb_lock);
	return n;
}

/* Turn a record's counter binding into its counts since the binding. */
static void igmp_record_counts(struct igmp_entry_info *rec)
{
	struct igmp_acnt a = {
		.acnt_id = rec->rsv0,
		.pkt_base = rec->pkt_acnt,
		.byte_base = rec->byte_acnt,
	};

	igmp_set_entry_real_acnt(&a);
	rec->rsv0 = 0;
	rec->pkt_acnt = a.pkt_acnt;
	rec->byte_acnt = a.byte_acnt;
}

/*
 * Copy the entries of one port with their counts into req->entries, which
 * must be kernel memory (it is written under the lock).  The hardware
 * counters are read after the lock is released: the packet path waits
 * for that lock.  Returns the number of records written, or -1 for a NULL
 * request.
 */
int quor_igmp_get_entry(struct igmp_entry_get_req *req)
{
	u32 sw_pkts = 0, sw_bytes = 0;
	s32 n, i;

	if (!req) {
		jix_dbg(JIX_DBG_ERR, "[%s]NULL point\n", "quor_igmp_get_entry");
		return -1;
	}
	n = igmp_collect_records(req);
	for (i = 0; i < n; i++) {
		igmp_record_counts(&req->entries[i]);
		req->total_pkts += req->entries[i].pkt_acnt;
		req->total_bytes += req->entries[i].byte_acnt;
	}
	req->entry_num = n;

	get_sw_cnt_by_port(req->port_id, &sw_bytes, &sw_pkts);
	jix_dbg(JIX_DBG_ACNT, "[%s]sw pktcnt=%d\n", "quor_igmp_get_entry",
		sw_pkts);
	jix_dbg(JIX_DBG_ACNT, "[%s]sw bytecnt=%d\n", "quor_igmp_get_entry",
		sw_bytes);
	req->total_pkts += sw_pkts;
	req->total_bytes += sw_bytes;
	jix_dbg(JIX_DBG_ACNT, "[%s]get port_id=%d, entry=%d\n",
		"quor_igmp_get_entry", req->port_id, n);
	jix_dbg(JIX_DBG_ACNT, "[%s]total pktcnt=%d\n", "quor_igmp_get_entry",
		req->total_pkts);
	jix_dbg(JIX_DBG_ACNT, "[%s]total bytecnt=%llu\n", "quor_igmp_get_entry",
		(unsigned long long)req->total_bytes);
	return n;
}

void quor_igmp_set_filterMode(u32 mode)
{
	if (mode > IGMP_FILTER_MAX) {
		jix_dbg(JIX_DBG_ERR, "[%s]quor_igmp filter mode should be 0~%d\n",
			"quor_igmp_set_filterMode", IGMP_FILTER_MAX);
		return;
	}
	if (mode != READ_ONCE(igmp_filter_mode) && !igmp_fdb_empty())
		quor_igmp_clear_all_entry();
	/*
	 * The mode changes under the lock, with the index refiled at once:
	 * a holder of the lock keeps the entries it found across lookups in
	 * one mode (a refile replaces every entry).  The packet path reads
	 * the index only in the mode it is kept for.
	 */
	spin_lock_bh(&igmp_fdb_lock);
	WRITE_ONCE(igmp_filter_mode, mode);
	igmp_fdb_bucket(mode, 0);
	spin_unlock_bh(&igmp_fdb_lock);
}

int quor_igmp_set_snooping(u8 mode)
{
	if (mode == quor_igmp_get_snooping())
		return 0;
	spin_lock_bh(&igmp_fdb_lock);
	/* Also read without the lock (quor_igmp_snooping_peek). */
	WRITE_ONCE(igmp_snooping_enable, mode);
	spin_unlock_bh(&igmp_fdb_lock);

	if (mode) {
		jix_xpon_hwnat_clear_flows();
		return 0;
	}
	if (!igmp_fdb_empty())
		quor_igmp_clear_all_entry();
	jix_xpon_hwnat_clear_all_drop();
	jix_xpon_hwnat_clear_flows();
	return 0;
}

/* The snooping flag as its readers see it: its low byte. */
u8 quor_igmp_get_snooping(void)
{
	u32 on;

	spin_lock_bh(&igmp_fdb_lock);
	on = igmp_snooping_enable;
	spin_unlock_bh(&igmp_fdb_lock);
	return (u8)on;
}

u32 quor_igmp_snooping_peek(void)
{
	return READ_ONCE(igmp_snooping_enable);
}

void quor_igmp_remove_list(void)
{
	if (!igmp_fdb_empty())
		quor_igmp_clear_all_entry();
	igmp_clear_entry_tmp();
	jix_mc_fwd_entry_release();
}
