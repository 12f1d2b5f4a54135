// SPDX-License-Identifier: GPL-2.0
/*
 * /proc/kv7730/jix_mc_fwd_entry: the operator's view of the forwarding
 * database, and one-line commands that change it.
 */
#include "fdb.h"

#define FWD_WRITE_MAX	255
#define FWD_TOKEN_LEN	15	/* command and second token */
#define FWD_ADDR_LEN	63	/* address and MAC tokens */

static const char fwd_filter_help[] =
	"filter_mode: 0-IP&VID, 1-MAC, 2-IP&SRC_IP, 3-MAC&VID, 4-MAC&IP, 5-MAC&IP&VID\n";
static const char fwd_vlan_help[] =
	"vlan_mode: 0-transparent, 1-replace, 2-replace&remark, 3-strip, 4-add, 5-add&remark\n";

/* "%d.%d.%d.%d", or eight groups of four upper-case hex digits. */
static int fwd_format_addr(char *buf, size_t size, const struct mc_ip_addr *a)
{
	const u8 *b = a->addr;

	if (!a->isipv6)
		return scnprintf(buf, size, "%d.%d.%d.%d", b[0], b[1], b[2], b[3]);
	return scnprintf(buf, size,
			 "%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X",
			 b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8],
			 b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
}

static int fwd_print_entry(char *buf, size_t size,
			   const struct igmp_fdb_entry *e)
{
	char grp[40], src[40];
	const u8 *m = e->grp_mac;

	fwd_format_addr(grp, sizeof(grp), &e->grp_ip);
	fwd_format_addr(src, sizeof(src), &e->src_ip);
	return scnprintf(buf, size,
		"%d\t%d\t%d\t%02X:%02X:%02X:%02X:%02X:%02X\t%d\t0x%04X\t0x%04X\t0x%04X\t0x%04X\t%s/%s\n",
		READ_ONCE(e->flow_idx), e->port, e->vlan, m[0], m[1], m[2], m[3], m[4],
		m[5], e->vlan_mode, e->outer_tpid, e->outer_tci, e->inner_tpid,
		e->inner_tci, grp, src);
}

/*
 * The listing is composed once per pass over the file, from a copy of
 * the entries taken under igmp_fdb_lock in one walk, and every page of
 * the pass is served from that text: a reader holds the lock the packet
 * path waits for only for the copy.  fwd_snap_lock guards fwd_snap and
 * fwd_done_len (process context).
 */
struct fwd_snap {
	size_t len;
	char text[];
};

#define FWD_LINE_MAX	192	/* longest entry line, with room to spare */
#define FWD_FIXED_MAX	512	/* state lines, header and help */

static DEFINE_SPINLOCK(fwd_snap_lock);
static struct fwd_snap *fwd_snap;
static size_t fwd_done_len;	/* length of the last text dropped */

struct fwd_copy {
	struct igmp_fdb_entry *e;
	u32 n;
	u32 snooping;
};

/*
 * Copy the entries in one walk.  Room is sized from the count read
 * without the lock; when the database grew past it meanwhile, try again
 * (twice), then list what fits.
 */
static int fwd_copy_entries(struct fwd_copy *c)
{
	const struct igmp_fdb_entry *e;
	int tries;
	u32 cap;

	for (tries = 0;; tries++) {
		cap = igmp_fdb_entries() + 16;
		c->e = kvcalloc(cap, sizeof(*c->e), GFP_KERNEL);
		if (!c->e)
			return -ENOMEM;
		spin_lock_bh(&igmp_fdb_lock);
		if (igmp_fdb_entries() <= cap || tries == 2)
			break;
		spin_unlock_bh(&igmp_fdb_lock);
		kvfree(c->e);
	}
	c->n = 0;
	list_for_each_entry(e, igmp_get_fdb_list(), list) {
		if (c->n == cap)
			break;
		igmp_entry_copy(&c->e[c->n++], e);
	}
	c->snooping = igmp_snooping_enable;
	spin_unlock_bh(&igmp_fdb_lock);
	return 0;
}

static struct fwd_snap *fwd_compose(const struct fwd_copy *c)
{
	size_t size = FWD_FIXED_MAX + (size_t)c->n * FWD_LINE_MAX, len;
	struct fwd_snap *s;
	u32 i;

	s = kvcalloc(1, sizeof(*s) + size, GFP_KERNEL);
	if (!s)
		return NULL;
	len = scnprintf(s->text, size, "IGMP Snooping: %s\nFilter Mode: %d\n",
			c->snooping ? "on" : "off", READ_ONCE(igmp_filter_mode));
	len += scnprintf(s->text + len, size - len,
		"flow_idx port\tvlan\tgrp_mac\t\t\tv_mode\to_tpid\to_tci\ti_tpid\ti_tci\tgrp_ip/src_ip\n");
	for (i = 0; i < c->n; i++)
		len += fwd_print_entry(s->text + len, size - len, &c->e[i]);
	len += scnprintf(s->text + len, size - len, "\nHelp info:\n%s%s",
			 fwd_filter_help, fwd_vlan_help);
	s->len = len;
	return s;
}

static void fwd_snap_replace(struct fwd_snap *s)
{
	struct fwd_snap *old;

	spin_lock_bh(&fwd_snap_lock);
	old = fwd_snap;
	fwd_snap = s;
	spin_unlock_bh(&fwd_snap_lock);
	kvfree(old);
}

static int fwd_snap_take(void)
{
	struct fwd_copy c;
	struct fwd_snap *s;

	if (fwd_copy_entries(&c))
		return -ENOMEM;
	s = fwd_compose(&c);
	kvfree(c.e);
	if (!s)
		return -ENOMEM;
	fwd_snap_replace(s);
	return 0;
}

void jix_mc_fwd_entry_release(void)
{
	fwd_snap_replace(NULL);
}

/*
 * Bytes past the end of a text dropped at the end of its pass are
 * answered without a new walk (the read that only finds the end).
 * Caller holds fwd_snap_lock.
 */
static bool fwd_snap_needed(off_t off)
{
	if (off == 0)
		return true;
	return !fwd_snap && (off < 0 || (size_t)off < fwd_done_len);
}

/*
 * A pass starts at offset 0; the text is dropped when a read reaches its
 * end.  A reader that seeks into a dropped text gets a new one.
 */
int jix_mc_fwd_entry_read_proc(char *page, char **start, off_t off, int count,
			       int *eof, void *data)
{
	struct fwd_snap *done = NULL;
	bool needed;
	int n = 0;

	spin_lock_bh(&fwd_snap_lock);
	needed = fwd_snap_needed(off);
	spin_unlock_bh(&fwd_snap_lock);
	if (needed && fwd_snap_take())
		return -ENOMEM;
	spin_lock_bh(&fwd_snap_lock);
	if (fwd_snap && count > 0 && off >= 0 && (size_t)off < fwd_snap->len) {
		n = (int)min_t(size_t, count, fwd_snap->len - off);
		memcpy(page, fwd_snap->text + off, n);
	}
	if (!fwd_snap || off < 0 || (size_t)off + n >= fwd_snap->len) {
		*eof = 1;
		done = fwd_snap;
		fwd_snap = NULL;
		if (done)
			fwd_done_len = done->len;
	}
	spin_unlock_bh(&fwd_snap_lock);
	kvfree(done);
	*start = page;
	return n;
}

static void fwd_usage(void)
{
	printk("Wrong CMD! Usage:\n");
	printk("1.Add/Del/Update entry: echo add/del/update ipv4/ipv6 ip_addr(x.x.x.x/x:x:x:x:x:x:x:x) mac_addr(x:x:x:x:x:x) port_id vlan_id vlan_mode outer_tpid outer_tci inner_tpid inner_tci > /proc/kv7730/jix_mc_fwd_entry\n");
	printk("2.Del by port: echo del_by_port port_id > /proc/kv7730/jix_mc_fwd_entry\n");
	printk("3.Del all: echo del_all > /proc/kv7730/jix_mc_fwd_entry\n");
	printk("5.Set snooping mode: echo snooping mode[0~1] > /proc/kv7730/jix_mc_fwd_entry\n");
	printk("%s", fwd_filter_help);
	printk("%s", fwd_vlan_help);
}

/* The tokens and numbers of one command line. */
struct fwd_cmd {
	char cmd[FWD_TOKEN_LEN + 2];
	char arg[FWD_TOKEN_LEN + 2];
	char addr[FWD_ADDR_LEN + 2];
	char mac[FWD_ADDR_LEN + 2];
	int port, vid, vlan_mode;
	unsigned int o_tpid, o_tci, i_tpid, i_tci;
};

/* Tokens are scanned one character wider than allowed to catch overlong ones. */
static bool fwd_scan(const char *line, struct fwd_cmd *c)
{
	memset(c, 0, sizeof(*c));
	sscanf(line, "%16s %16s %64s %64s %d %d %d %X %X %X %X", c->cmd, c->arg,
	       c->addr, c->mac, &c->port, &c->vid, &c->vlan_mode, &c->o_tpid,
	       &c->o_tci, &c->i_tpid, &c->i_tci);
	return strlen(c->cmd) <= FWD_TOKEN_LEN && strlen(c->arg) <= FWD_TOKEN_LEN &&
	       strlen(c->addr) <= FWD_ADDR_LEN && strlen(c->mac) <= FWD_ADDR_LEN;
}

static bool fwd_parse_addr(const struct fwd_cmd *c, struct mc_ip_addr *a)
{
	unsigned int g[8];
	int b[4], i;

	if (!strncmp(c->arg, "ipv4", 4)) {
		if (sscanf(c->addr, "%d.%d.%d.%d", &b[0], &b[1], &b[2], &b[3]) != 4)
			return false;
		for (i = 0; i < 4; i++)
			a->addr[i] = (u8)b[i];
		a->isipv6 = 0;
		return true;
	}
	if (!strncmp(c->arg, "ipv6", 4)) {
		if (sscanf(c->addr, "%x:%x:%x:%x:%x:%x:%x:%x", &g[0], &g[1], &g[2],
			   &g[3], &g[4], &g[5], &g[6], &g[7]) != 8)
			return false;
		for (i = 0; i < 8; i++) {
			a->addr[2 * i] = (u8)(g[i] >> 8);
			a->addr[2 * i + 1] = (u8)g[i];
		}
		a->isipv6 = 1;
		return true;
	}
	return false;
}

static bool fwd_parse_entry(const struct fwd_cmd *c, struct igmp_entry_info *req)
{
	unsigned int m[6];
	int i;

	memset(req, 0, sizeof(*req));
	req->port = (u8)c->port;
	req->vlan = (s16)c->vid;
	if (!fwd_parse_addr(c, &req->grp_ip))
		return false;
	if (sscanf(c->mac, "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3],
		   &m[4], &m[5]) != 6)
		return false;
	for (i = 0; i < ETH_ALEN; i++)
		req->grp_mac[i] = (u8)m[i];
	req->vlan_mode = (u32)c->vlan_mode;
	req->outer_tpid = (u16)c->o_tpid;
	req->outer_tci = (u16)c->o_tci;
	req->inner_tpid = (u16)c->i_tpid;
	req->inner_tci = (u16)c->i_tci;
	return true;
}

static void fwd_cmd_entry(const struct fwd_cmd *c)
{
	struct igmp_entry_info req;
	const char *what;
	int ret;

	if (!fwd_parse_entry(c, &req)) {
		fwd_usage();
		return;
	}
	if (!strcmp(c->cmd, "add")) {
		ret = quor_igmp_add_entry(&req);
		what = "Add";
	} else if (!strcmp(c->cmd, "del")) {
		ret = quor_igmp_del_entry(&req);
		what = "Del";
	} else {
		ret = quor_igmp_update_entry(&req);
		what = "Update";
	}
	printk("%s entry %s!\n", what, ret ? "fail" : "success");
}

/* The second token as a number, or a usage reply. */
static bool fwd_arg_num(const struct fwd_cmd *c, int *num)
{
	if (sscanf(c->arg, "%d", num) == 1)
		return true;
	fwd_usage();
	return false;
}

static void fwd_cmd_del_by_port(const struct fwd_cmd *c)
{
	int port;

	if (!fwd_arg_num(c, &port))
		return;
	if (!igmp_fdb_empty() && quor_igmp_clear_entry_by_port((u8)port)) {
		printk("Clear entry by port fail!\n");
		return;
	}
	printk("Clear entry by port success!\n");
}

static void fwd_cmd_other(const struct fwd_cmd *c)
{
	int num;

	if (!strcmp(c->cmd, "del_all")) {
		igmp_clear_entry();
		printk("Clear all entry success!\n");
	} else if (!strcmp(c->cmd, "filter_mode")) {
		if (!fwd_arg_num(c, &num))
			return;
		quor_igmp_set_filterMode((u32)num);
		printk("Filter mode set success!\n");
	} else if (!strcmp(c->cmd, "snooping")) {
		if (!fwd_arg_num(c, &num))
			return;
		if (quor_igmp_set_snooping((u8)num))
			printk("IGMP snooping set fail!\n");
		else
			printk("IGMP snooping set success!\n");
	} else {
		fwd_usage();
	}
}

int jix_mc_fwd_entry_write_proc(struct file *file, const char __user *buffer,
				unsigned long count, void *data)
{
	char line[FWD_WRITE_MAX + 1];
	struct fwd_cmd c;

	if (count > FWD_WRITE_MAX)
		return -EINVAL;
	if (copy_from_user(line, buffer, count))
		return -EFAULT;
	line[count] = '\0';

	if (!fwd_scan(line, &c))
		fwd_usage();
	else if (!strcmp(c.cmd, "add") || !strcmp(c.cmd, "del") ||
		 !strcmp(c.cmd, "update"))
		fwd_cmd_entry(&c);
	else if (!strcmp(c.cmd, "del_by_port"))
		fwd_cmd_del_by_port(&c);
	else
		fwd_cmd_other(&c);
	return count;
}
