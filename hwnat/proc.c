// SPDX-License-Identifier: GPL-2.0
/*
 * /proc/kv7730/jix_mc_hwnat_entry: the flow table, then the drop list.
 *
 * Each list is read under its own lock (never both at once), so records
 * that timers and other paths remove meanwhile are either listed whole or
 * not at all.  The text is composed into the read window: a table of any
 * length is served over successive reads and nothing is written past the
 * page.
 */
#include "hwnat.h"
#include "hwnat_flow.h"
#include "jix_proc_win.h"

#define HWNAT_V6_TEXT	40	/* 8 groups of 4 digits, 7 colons, NUL */

/* Eight groups of four lower-case hex digits, nothing shortened. */
static void hwnat_v6_text(char *buf, const u8 *a)
{
	scnprintf(buf, HWNAT_V6_TEXT,
		  "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x",
		  a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
		  a[10], a[11], a[12], a[13], a[14], a[15]);
}

static void hwnat_print_flow(struct jix_proc_win *w,
			     const struct hwnat_flow_entry *e)
{
	const u8 *s = e->src_addr, *g = e->grp_addr;
	char src[HWNAT_V6_TEXT], grp[HWNAT_V6_TEXT];

	jix_proc_win_printf(w, "%d\t%d\t%d\t0x%llX\t%d", e->index,
			    (int)e->proto, e->wifi_num,
			    (unsigned long long)e->mask, e->vid);
	switch (e->proto) {
	case HWNAT_PROTO_IPV4:
		jix_proc_win_printf(w,
			"\t[%d.%d.%d.%d]\t\t\t\t\t[%d.%d.%d.%d] \n",
			s[0], s[1], s[2], s[3], g[0], g[1], g[2], g[3]);
		break;
	case HWNAT_PROTO_IPV6:
		hwnat_v6_text(src, s);
		hwnat_v6_text(grp, g);
		jix_proc_win_printf(w, "\t[%s]\t[%s]\n", src, grp);
		break;
	default:
		jix_proc_win_printf(w, "unknown igmp_proto\n");
	}
}

static void hwnat_print_drop(struct jix_proc_win *w,
			     const struct hwnat_flow_entry *e)
{
	const u8 *g = e->grp_addr;
	char grp[HWNAT_V6_TEXT];

	jix_proc_win_printf(w, "%d    [vid=%d]    ", e->index, e->vid);
	switch (e->proto) {
	case HWNAT_PROTO_IPV4:
		jix_proc_win_printf(w, "[%d.%d.%d.%d]\n", g[0], g[1], g[2], g[3]);
		break;
	case HWNAT_PROTO_IPV6:
		hwnat_v6_text(grp, g);
		jix_proc_win_printf(w, "[%s]\n", grp);
		break;
	default:
		jix_proc_win_printf(w, "unknown igmp_proto\n");
	}
}

int jix_mc_hwnat_flow_read_proc(char *page, char **start, off_t off, int count,
				int *eof, void *data)
{
	const struct hwnat_flow_entry *e;
	struct jix_proc_win w;

	jix_proc_win_init(&w, page, off, count);
	jix_proc_win_printf(&w,
		"index proto wifi_num    mask    vid      src_addr\t\t\t\t\tgrp_addr \n");
	spin_lock_bh(&hwnat_flow_lock);
	list_for_each_entry(e, &hwnat_flow_list, list) {
		if (jix_proc_win_full(&w))
			break;
		hwnat_print_flow(&w, e);
	}
	spin_unlock_bh(&hwnat_flow_lock);

	jix_proc_win_printf(&w, "\ndrop list:\n");
	spin_lock_bh(&hwnat_drop_lock);
	list_for_each_entry(e, &hwnat_drop_list, list) {
		if (jix_proc_win_full(&w))
			break;
		hwnat_print_drop(&w, e);
	}
	spin_unlock_bh(&hwnat_drop_lock);
	return jix_proc_win_finish(&w, start, eof);
}
