// SPDX-License-Identifier: GPL-2.0
/*
 * The hardware flow table.
 *
 * The record, the list and its lock are in place; binding, updating and
 * aging are not built yet, so the list stays empty and every operation
 * here has nothing to act on.  The callers are wired already.
 */
#include "hwnat.h"
#include "hwnat_flow.h"

DEFINE_SPINLOCK(hwnat_flow_lock);
LIST_HEAD(hwnat_flow_list);

void jix_init_hwnat_list(void)
{
	hwnat_flow_layout_check();
	INIT_LIST_HEAD(&hwnat_flow_list);
}

void jix_hwnat_release_all(void)
{
}

void quor_update_hwnat_entry(u32 flow_idx, u64 mask)
{
}

void jix_xpon_hwnat_del_flow_by_index(s32 flow_idx)
{
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
}

int jix_xpon_hwnat_learn_flow(struct sk_buff *skb)
{
	return 0;
}

void jix_xpon_hwnat_add_flow(struct sk_buff *skb, u64 mask)
{
}

struct hwnat_flow_entry *jix_xpon_hwnat_find_speed_entry(int index)
{
	return NULL;
}

int jix_mc_hwnat_flow_read_proc(char *page, char **start, off_t off, int count,
				int *eof, void *data)
{
	return jix_proc_read_finish(page, start, off, count, eof, 0);
}
