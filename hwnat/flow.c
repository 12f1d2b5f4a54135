// SPDX-License-Identifier: GPL-2.0
/*
 * The hardware flow table: one record per flow index bound into the
 * forwarding engine, kept in step with group membership and aged while
 * the engine keeps the flow.
 *
 * Two ways out for a record: full removal (the engine's entry is deleted
 * when it still holds this flow) and quiet removal (record only); either
 * way the record gives its group's accounting slot back.  Driver
 * pointers, the accounting release and the freeing run with
 * hwnat_flow_lock held.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "acnt/acnt.h"
#include "datapath/datapath.h"

#define HWNAT_SWITCH_CMD_PORT	12
#define HWNAT_LAN_SWITCH_PORTS	6	/* LAN ports 0..5 */

/* Switch port query (hook 23): command at 0, LAN port at 8, answer at 9. */
struct hwnat_switch_req {
	u32 cmd;
	u8 rsv0[4];
	u8 lan_port;
	s8 switch_port;
	u8 rsv1[54];
};

static int hwnat_is_mc(struct hwnat_flow_entry *e)
{
	int (*is_mc)(int index, unsigned char *grp, unsigned char *src,
		     int is_ipv6) = READ_ONCE(hwnat_is_multicast_entry_hook);

	if (!is_mc)
		return 0;
	return is_mc(e->index, e->grp_addr, e->src_addr, hwnat_is_v6(e));
}

/* Full removal; caller holds hwnat_flow_lock. */
static void jix_xpon_hwnat_free_flow(struct hwnat_flow_entry *e)
{
	int (*del)(int index);

	trace_jix_mc_flow_unbind(e->index, e->grp_addr, hwnat_is_v6(e), e->mask, e->vid);
	if (hwnat_is_mc(e) > 0) {
		del = READ_ONCE(hwnat_delete_foe_entry_hook);
		if (del)
			del(e->index);
	}
	hwnat_rec_remove(&hwnat_flows, e);
}

void hwnat_flow_forget(s32 index)
{
	struct hwnat_rec *r, *n;

	hwnat_for_each_of_index(&hwnat_flows, r, n, index)
		hwnat_rec_remove(&hwnat_flows, &r->e);
}

/*
 * Give a record @mask in the engine, or drop the record quietly when the
 * engine no longer holds the flow.  Caller holds hwnat_flow_lock.
 */
void jix_xpon_hwnat_update_flow(struct hwnat_flow_entry *e, u64 mask)
{
	int (*set_info)(int index, unsigned int mask, int flag);

	if (hwnat_is_mc(e) > 0) {
		set_info = READ_ONCE(hwnat_multicast_set_hwnat_info_hook);
		if (set_info) {
			set_info(e->index, (u32)mask, 0);
			jix_dbg(JIX_DBG_TRACE, "[%s]entry->index:%d mask:0x%x\n",
				"jix_xpon_hwnat_update_flow", e->index, (u32)mask);
		}
		WRITE_ONCE(e->mask, mask);
		return;
	}
	jix_dbg(JIX_DBG_ERR, "[%s]not multicast entry,delete it\n",
		"jix_xpon_hwnat_update_flow");
	hwnat_rec_remove(&hwnat_flows, e);
}

/* Re-apply every record; runs in softirq (driver hook). */
void quor_hwnat_update_flows(void)
{
	struct hwnat_flow_entry *e, *n;

	spin_lock_bh(&hwnat_flow_lock);
	list_for_each_entry_safe(e, n, &hwnat_flow_list, list) {
		if (!e->mask)
			jix_xpon_hwnat_free_flow(e);
		else
			jix_xpon_hwnat_update_flow(e, e->mask);
	}
	spin_unlock_bh(&hwnat_flow_lock);
}

/* xpon_igmp_learn_flow_hook: the driver bound a flow of @skb. */
int jix_xpon_hwnat_learn_flow(struct sk_buff *skb)
{
	if (!jix_xpon_is_multicast_addr(jix_xpon_get_dst_mac(skb)) &&
	    !jix_xpon_is_pppox_multicast_pkt(skb))
		return 0;
	jix_dbg(JIX_DBG_TRACE, "[%s]tx bind enter!!!!\n",
		"jix_xpon_hwnat_learn_flow");
	quor_hwnat_update_flows();
	return 0;
}

/* Switch ports of the LAN ports 0..5 in @mask; used for tracing only. */
u64 quor_get_switch_mask(u64 mask)
{
	struct hwnat_switch_req req;
	u64 sw = 0;
	int i;

	for (i = 0; i < HWNAT_LAN_SWITCH_PORTS; i++) {
		if (!(mask & 0x3FFF & (1ULL << i)))
			continue;
		memset(&req, 0, sizeof(req));
		req.cmd = HWNAT_SWITCH_CMD_PORT;
		req.lan_port = (u8)i;
		__QUOR_HOOK(QUOR_HOOK_TYPE_SWITCH_PORT, 0, &req);
		/* -1: none; other answers outside the mask are ignored. */
		if (req.switch_port >= 0 && req.switch_port < 64)
			sw |= 1ULL << req.switch_port;
	}
	return sw;
}

void quor_mcst_hwnat_update_dp(u32 flow_idx, int port)
{
	int (*update_dp)(int index, int dp) = READ_ONCE(ux_sw_nat_hook_update_dp);

	jix_dbg(JIX_DBG_TRACE, "[%s]dp=%d\n", "quor_mcst_hwnat_update_dp", port);
	if (update_dp)
		update_dp((int)flow_idx, port);
}

/* Mask 0: the flow becomes a drop entry.  Caller holds hwnat_flow_lock. */
static void hwnat_flow_to_drop_entry(struct hwnat_flow_entry *e, u32 flow_idx)
{
	quor_mcst_hwnat_update_dp(flow_idx, HWNAT_DROP_DP);
	jix_xpon_hwnat_flow_to_drop(e);
	hwnat_rec_remove(&hwnat_flows, e);
}

/*
 * A membership change of the flow @flow_idx (-1 matches nothing): its
 * records take @mask, or with mask 0 turn into drop records.
 */
void quor_update_hwnat_entry(u32 flow_idx, u64 mask)
{
	s16 wifi = (s16)hweight64(mask & HWNAT_WIFI_BITS);
	struct hwnat_rec *r, *n;
	u64 sw = 0;

	/* The switch mask only feeds a trace: ask the framework only then. */
	if (READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)
		sw = quor_get_switch_mask(mask);
	spin_lock_bh(&hwnat_flow_lock);
	hwnat_for_each_of_index(&hwnat_flows, r, n, (s32)flow_idx) {
		struct hwnat_flow_entry *e = &r->e;

		WRITE_ONCE(e->wifi_num, wifi);
		WRITE_ONCE(e->mask, mask);
		jix_dbg(JIX_DBG_TRACE,
			"[%s]switch_mask = 0x%lx, entry->mask = 0x%lx\n",
			"quor_update_hwnat_entry", (unsigned long)sw,
			(unsigned long)mask);
		if (mask)
			jix_xpon_hwnat_update_flow(e, mask);
		else
			hwnat_flow_to_drop_entry(e, flow_idx);
	}
	spin_unlock_bh(&hwnat_flow_lock);
}

/*
 * The tags flow @flow_idx was learned with (@tag_num may be NULL); the
 * last record of the index wins.  False when it has no record.
 */
bool jix_hwnat_learned_tags(s32 flow_idx, u32 *outer, u32 *inner,
			    u32 *tag_num)
{
	struct hwnat_rec *r, *n;
	bool found = false;

	spin_lock_bh(&hwnat_flow_lock);
	hwnat_for_each_of_index(&hwnat_flows, r, n, flow_idx) {
		*outer = r->e.outer_tag;
		*inner = r->e.inner_tag;
		if (tag_num)
			*tag_num = r->e.tag_num;
		found = true;
	}
	spin_unlock_bh(&hwnat_flow_lock);
	return found;
}

/*
 * Put back the tags the flow was learned with.  The driver is called after
 * the lock is released, so it may call back into the module.
 */
void quor_mcst_hwnat_update_vlan(u32 flow_idx)
{
	int (*update)(int index, unsigned int outer, unsigned int inner);
	u32 outer = 0, inner = 0;

	if (!jix_hwnat_learned_tags((s32)flow_idx, &outer, &inner, NULL))
		return;
	update = READ_ONCE(ux_sw_nat_hook_update_vlan);
	if (update)
		update((int)flow_idx, outer, inner);
}

void jix_xpon_hwnat_del_flow_by_index(s32 flow_idx)
{
	struct hwnat_rec *r, *n;

	spin_lock_bh(&hwnat_flow_lock);
	hwnat_for_each_of_index(&hwnat_flows, r, n, flow_idx)
		jix_xpon_hwnat_free_flow(&r->e);
	spin_unlock_bh(&hwnat_flow_lock);
}

int jix_update_iptv_table_entry(s32 flow_idx)
{
	if (flow_idx >= 0)
		jix_xpon_hwnat_del_flow_by_index(flow_idx);
	return 0;
}

int jix_remove_iptv_table_entry(void)
{
	jix_xpon_hwnat_clear_flows();
	return 0;
}

void jix_xpon_hwnat_clear_flows(void)
{
	struct hwnat_flow_entry *e, *n;

	spin_lock_bh(&hwnat_flow_lock);
	list_for_each_entry_safe(e, n, &hwnat_flow_list, list)
		jix_xpon_hwnat_free_flow(e);
	spin_unlock_bh(&hwnat_flow_lock);
}

/*
 * First record of @head (the flow or the drop list) with @index, found
 * under RCU.  The caller must be in softirq or under rcu_read_lock and use
 * the record only until it leaves: records are freed after a grace
 * period, not while a reader may hold one.
 */
struct hwnat_flow_entry *jix_xpon_hwnat_find_entry(struct list_head *head,
						   int index)
{
	if (!head || index <= 0)
		return NULL;
	if (head == &hwnat_flow_list)
		return hwnat_rec_find_rcu(&hwnat_flows, index);
	if (head == &hwnat_drop_list)
		return hwnat_rec_find_rcu(&hwnat_drops, index);
	return NULL;
}

/*
 * multicast_speed_find_entry_hook: the driver calls it in softirq and
 * reads the record it gets until it leaves softirq, which is a read-side
 * RCU section; no lock is taken.
 */
struct hwnat_flow_entry *jix_xpon_hwnat_find_speed_entry(int index)
{
	if (index <= 0)
		return NULL;
	return hwnat_rec_find_rcu(&hwnat_flows, index);
}

/*
 * Copy @e (a flow record the caller holds hwnat_flow_lock for) into a new
 * drop record.  Callable with bottom halves enabled.
 */
void quor_mcst_hwnat_add_drop(struct hwnat_flow_entry *e)
{
	if (!e)
		return;
	local_bh_disable();
	jix_xpon_hwnat_flow_to_drop(e);
	local_bh_enable();
}

/*
 * Aging: a flow whose frames still reach the module ages from its last
 * frame; otherwise the record lives another period while the engine
 * answers exactly 1 for it, and is removed with hardware clean-up when it
 * does not.
 */
void jix_xpon_hwnat_timer_timeout(struct timer_list *t)
{
	struct hwnat_flow_entry *e = from_timer(e, t, timer);

	spin_lock_bh(&hwnat_flow_lock);
	if (hwnat_rec_expiry_begin(&hwnat_flows, e) &&
	    !hwnat_rec_rearm_if_seen(e)) {
		if (hwnat_is_mc(e) == 1)
			hwnat_rec_rearm(e);
		else
			jix_xpon_hwnat_free_flow(e);
	}
	spin_unlock_bh(&hwnat_flow_lock);
}
