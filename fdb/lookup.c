// SPDX-License-Identifier: GPL-2.0
/*
 * Forwarding entries and their lookups.
 *
 * An entry is named by its port plus the fields the filter mode selects
 * (its entry key); a programme by those fields alone.  Addresses compare
 * in the width of the key's family: 4 bytes for IPv4, 16 for IPv6.
 *
 * Besides the list (insertion order) the entries hang in a hash table
 * keyed by the programme fields of one filter mode.  Only the first 4
 * address bytes go into the key: every comparison, in either width,
 * includes them, so an entry that matches is always in the key's bucket.
 * In mode 0 the VLAN stays out of the key, because the member-port walk
 * lets hybrid-HGU ports match any VLAN.  Buckets hold entries newest
 * first; lookups that care about age compare the entries' sequence
 * numbers, which follow list order.
 */
#include "fdb.h"
#include "acnt/acnt.h"

DEFINE_SPINLOCK(igmp_fdb_lock);
static LIST_HEAD(igmp_fdb_list);
static LIST_HEAD(igmp_fdb_tmp_list);
u32 igmp_filter_mode = IGMP_FILTER_MAC_IP;

static struct hlist_head igmp_fdb_buckets[1 << IGMP_FDB_HASH_BITS];
static u32 igmp_fdb_hash_mode = IGMP_FILTER_MAC_IP;	/* mode of the index */
static u64 igmp_fdb_seq;
static u32 igmp_fdb_count;	/* entries on igmp_fdb_list */

static u32 igmp_mix(u32 h, u32 w)
{
	h ^= w;
	h *= 0x9E3779B1U;
	return h ^ (h >> 16);
}

static u32 igmp_be32(const u8 *b)
{
	return (u32)b[0] << 24 | (u32)b[1] << 16 | (u32)b[2] << 8 | b[3];
}

static u32 igmp_mix_mac(u32 h, const u8 *mac)
{
	h = igmp_mix(h, igmp_be32(mac));
	return igmp_mix(h, (u32)mac[4] << 8 | mac[5]);
}

u32 igmp_fdb_hash(u32 mode, const u8 *mac, const u8 *grp, const u8 *src,
		  s16 vlan)
{
	u32 h = mode;

	switch (mode) {
	case IGMP_FILTER_IP_VID:
		return igmp_mix(h, igmp_be32(grp));
	case IGMP_FILTER_MAC:
		return igmp_mix_mac(h, mac);
	case IGMP_FILTER_IP_SRC_IP:
		h = igmp_mix(h, igmp_be32(grp));
		return igmp_mix(h, igmp_be32(src));
	case IGMP_FILTER_MAC_VID:
		h = igmp_mix_mac(h, mac);
		return igmp_mix(h, (u16)vlan);
	case IGMP_FILTER_MAC_IP:
		h = igmp_mix_mac(h, mac);
		return igmp_mix(h, igmp_be32(grp));
	case IGMP_FILTER_MAC_IP_VID:
		h = igmp_mix_mac(h, mac);
		h = igmp_mix(h, igmp_be32(grp));
		return igmp_mix(h, (u16)vlan);
	default:
		return h;
	}
}

static u32 igmp_entry_hash(const struct igmp_fdb_entry *e, u32 mode)
{
	return igmp_fdb_hash(mode, e->grp_mac, e->grp_ip.addr, e->src_ip.addr,
			     e->vlan);
}

static u32 igmp_key_hash(const struct igmp_entry_info *key, u32 mode)
{
	return igmp_fdb_hash(mode, key->grp_mac, key->grp_ip.addr,
			     key->src_ip.addr, key->vlan);
}

static struct hlist_head *igmp_head(u32 hash)
{
	return &igmp_fdb_buckets[(hash * 0x61C88647U) >> (32 - IGMP_FDB_HASH_BITS)];
}

static void igmp_fdb_hash_clear(void)
{
	size_t i;

	for (i = 0; i < ARRAY_SIZE(igmp_fdb_buckets); i++)
		INIT_HLIST_HEAD(&igmp_fdb_buckets[i]);
}

/* @src whole into @dst; @src's flow index may be stored meanwhile. */
void igmp_entry_copy(struct igmp_fdb_entry *dst,
			    const struct igmp_fdb_entry *src)
{
	const size_t off = offsetof(struct igmp_fdb_entry, flow_idx);
	const size_t rest = off + sizeof(src->flow_idx);

	memcpy(dst, src, off);
	dst->flow_idx = READ_ONCE(src->flow_idx);
	memcpy((char *)dst + rest, (const char *)src + rest, sizeof(*dst) - rest);
}

/*
 * File every entry again under @mode, in list order (newest ends first).
 * The packet path may be walking an entry's old bucket, so each entry is
 * refiled as a fresh copy and the old one freed after a grace period;
 * only when no copy can be made is the entry itself moved (a reader on it
 * may then miss the rest of its bucket, never touch freed memory).
 */
static void igmp_fdb_reindex(u32 mode)
{
	struct igmp_fdb_entry *e, *n, *c;

	igmp_fdb_hash_clear();
	WRITE_ONCE(igmp_fdb_hash_mode, mode);
	list_for_each_entry_safe(e, n, &igmp_fdb_list, list) {
		c = kmalloc(sizeof(*c), GFP_ATOMIC);
		if (!c) {
			WRITE_ONCE(e->hkey, igmp_entry_hash(e, mode));
			hlist_add_head_rcu(&e->hnode, igmp_head(e->hkey));
			continue;
		}
		igmp_entry_copy(c, e);
		c->hkey = igmp_entry_hash(c, mode);
		list_add(&c->list, &e->list);
		list_del(&e->list);
		hlist_add_head_rcu(&c->hnode, igmp_head(c->hkey));
		kfree_rcu(e, rcu);
	}
}

/*
 * May a lookup under @mode use the index?  Only for the current filter
 * mode; the index follows a change of mode at its first lookup (the
 * database is emptied on a change, so that costs nothing).
 */
static bool igmp_fdb_indexed(u32 mode)
{
	if (mode > IGMP_FILTER_MAX || mode != READ_ONCE(igmp_filter_mode))
		return false;
	if (mode != igmp_fdb_hash_mode)
		igmp_fdb_reindex(mode);
	return true;
}

struct hlist_head *igmp_fdb_bucket(u32 mode, u32 hash)
{
	if (mode > IGMP_FILTER_MAX)
		return NULL;
	if (mode != igmp_fdb_hash_mode)
		igmp_fdb_reindex(mode);
	return igmp_head(hash);
}

/* Caller holds the lock; readers see @e complete once it is linked. */
void igmp_fdb_link(struct igmp_fdb_entry *e)
{
	e->seq = ++igmp_fdb_seq;
	WRITE_ONCE(igmp_fdb_count, igmp_fdb_count + 1);
	list_add_tail(&e->list, &igmp_fdb_list);
	e->hkey = igmp_entry_hash(e, igmp_fdb_hash_mode);
	hlist_add_head_rcu(&e->hnode, igmp_head(e->hkey));
}

void igmp_fdb_replace(struct igmp_fdb_entry *old, struct igmp_fdb_entry *new)
{
	new->seq = old->seq;
	new->flow_idx = READ_ONCE(old->flow_idx);
	new->acnt = old->acnt;
	old->acnt.bound = 0;
	new->hkey = igmp_entry_hash(new, igmp_fdb_hash_mode);
	list_add(&new->list, &old->list);
	list_del(&old->list);
	hlist_del_init_rcu(&old->hnode);
	hlist_add_head_rcu(&new->hnode, igmp_head(new->hkey));
}

void igmp_fdb_unlink_all(struct list_head *to)
{
	list_splice_tail_init(&igmp_fdb_list, to);
	WRITE_ONCE(igmp_fdb_count, 0);
	igmp_fdb_hash_clear();
}

static bool igmp_addr_eq(const struct mc_ip_addr *a, const struct mc_ip_addr *b,
			 const struct igmp_entry_info *key)
{
	if (key->grp_ip.isipv6)
		return !memcmp(a->addr, b->addr, 16);
	return !memcmp(a->addr, b->addr, 4);
}

static bool igmp_grp_eq(const struct igmp_fdb_entry *e,
			const struct igmp_entry_info *key)
{
	return igmp_addr_eq(&e->grp_ip, &key->grp_ip, key);
}

static bool igmp_mac_eq(const struct igmp_fdb_entry *e,
			const struct igmp_entry_info *key)
{
	return !memcmp(e->grp_mac, key->grp_mac, ETH_ALEN);
}

/* Do the programme fields of @e under @mode equal those of @key? */
static bool igmp_prog_match(const struct igmp_fdb_entry *e,
			    const struct igmp_entry_info *key, u32 mode)
{
	switch (mode) {
	case IGMP_FILTER_IP_VID:
		return e->vlan == key->vlan && igmp_grp_eq(e, key);
	case IGMP_FILTER_MAC:
		return igmp_mac_eq(e, key);
	case IGMP_FILTER_IP_SRC_IP:
		return igmp_grp_eq(e, key) &&
		       igmp_addr_eq(&e->src_ip, &key->src_ip, key);
	case IGMP_FILTER_MAC_VID:
		return e->vlan == key->vlan && igmp_mac_eq(e, key);
	case IGMP_FILTER_MAC_IP:
		return igmp_mac_eq(e, key) && igmp_grp_eq(e, key);
	case IGMP_FILTER_MAC_IP_VID:
		return e->vlan == key->vlan && igmp_mac_eq(e, key) &&
		       igmp_grp_eq(e, key);
	default:
		return false;
	}
}

/* The oldest entry of the key's port and programme under @mode. */
static struct igmp_fdb_entry *igmp_find_entry_mode(const struct igmp_entry_info *key,
						   u32 mode)
{
	struct igmp_fdb_entry *e, *best = NULL;
	u32 h;

	if (!key)
		return NULL;
	if (!igmp_fdb_indexed(mode)) {
		list_for_each_entry(e, &igmp_fdb_list, list) {
			if (e->port == key->port && igmp_prog_match(e, key, mode))
				return e;
		}
		return NULL;
	}
	h = igmp_key_hash(key, mode);
	hlist_for_each_entry(e, igmp_head(h), hnode) {
		if (e->hkey != h || e->port != key->port ||
		    !igmp_prog_match(e, key, mode))
			continue;
		if (!best || e->seq < best->seq)
			best = e;
	}
	return best;
}

void igmp_find_port_entries(const struct igmp_entry_info *key, u32 ports,
			    struct igmp_fdb_entry **found)
{
	u32 mode = READ_ONCE(igmp_filter_mode);
	struct igmp_fdb_entry *e;
	u32 h;

	memset(found, 0, 32 * sizeof(*found));
	if (!igmp_fdb_indexed(mode))
		return;		/* not a filter mode: nothing matches */
	h = igmp_key_hash(key, mode);
	hlist_for_each_entry(e, igmp_head(h), hnode) {
		if (e->hkey != h || e->port >= 32 || !((ports >> e->port) & 1) ||
		    !igmp_prog_match(e, key, mode))
			continue;
		if (!found[e->port] || e->seq < found[e->port]->seq)
			found[e->port] = e;
	}
}

struct hlist_head *igmp_fdb_bucket_rcu(u32 mode, u32 hash)
{
	if (mode > IGMP_FILTER_MAX || mode != READ_ONCE(igmp_fdb_hash_mode))
		return NULL;
	return igmp_head(hash);
}

bool igmp_entry_matches(const struct igmp_fdb_entry *e,
			const struct igmp_entry_info *key, u32 mode)
{
	return e->port == key->port && igmp_prog_match(e, key, mode);
}

/*
 * Collect the member ports of the key's programme into *@mask and the
 * newest member's flow index into *@flow_idx; then let @op add or remove
 * the key's own port.  Returns 1 when the programme has a member, else 0
 * with both outputs untouched.
 */
static int igmp_find_data_mode(const struct igmp_entry_info *key, s32 *flow_idx,
			       u64 *mask, u32 op, u32 mode)
{
	struct igmp_fdb_entry *e, *newest = NULL;
	u32 h;

	if (!key)
		return 0;
	if (!igmp_fdb_indexed(mode)) {
		list_for_each_entry(e, &igmp_fdb_list, list) {
			if (!igmp_prog_match(e, key, mode))
				continue;
			*mask |= jix_port_bit(e->port);
			newest = e;
		}
	} else {
		h = igmp_key_hash(key, mode);
		hlist_for_each_entry(e, igmp_head(h), hnode) {
			if (e->hkey != h || !igmp_prog_match(e, key, mode))
				continue;
			*mask |= jix_port_bit(e->port);
			if (!newest || e->seq > newest->seq)
				newest = e;
		}
	}
	if (!newest)
		return 0;
	*flow_idx = READ_ONCE(newest->flow_idx);
	if (op == IGMP_PROG_OP_ADD)
		*mask |= jix_port_bit(key->port);
	else if (op == IGMP_PROG_OP_DEL)
		*mask &= ~jix_port_bit(key->port);
	return 1;
}

#define IGMP_FIND_FNS(suffix, mode) \
struct igmp_fdb_entry *igmp_find_entry_##suffix(const struct igmp_entry_info *key) \
{ \
	return igmp_find_entry_mode(key, mode); \
} \
int igmp_find_data_##suffix(const struct igmp_entry_info *key, s32 *flow_idx, \
			    u64 *mask, u32 op) \
{ \
	return igmp_find_data_mode(key, flow_idx, mask, op, mode); \
}

IGMP_FIND_FNS(by_ip_vid, IGMP_FILTER_IP_VID)
IGMP_FIND_FNS(by_mac, IGMP_FILTER_MAC)
IGMP_FIND_FNS(by_ip_and_src_ip, IGMP_FILTER_IP_SRC_IP)
IGMP_FIND_FNS(by_mac_vid, IGMP_FILTER_MAC_VID)
IGMP_FIND_FNS(by_mac_ip, IGMP_FILTER_MAC_IP)
IGMP_FIND_FNS(by_all, IGMP_FILTER_MAC_IP_VID)

static struct igmp_fdb_entry *(*const igmp_find_entry_fns[])(const struct igmp_entry_info *) = {
	igmp_find_entry_by_ip_vid,
	igmp_find_entry_by_mac,
	igmp_find_entry_by_ip_and_src_ip,
	igmp_find_entry_by_mac_vid,
	igmp_find_entry_by_mac_ip,
	igmp_find_entry_by_all,
};

static int (*const igmp_find_data_fns[])(const struct igmp_entry_info *, s32 *,
					 u64 *, u32) = {
	igmp_find_data_by_ip_vid,
	igmp_find_data_by_mac,
	igmp_find_data_by_ip_and_src_ip,
	igmp_find_data_by_mac_vid,
	igmp_find_data_by_mac_ip,
	igmp_find_data_by_all,
};

struct igmp_fdb_entry *igmp_find_entry(const struct igmp_entry_info *key)
{
	u32 mode = READ_ONCE(igmp_filter_mode);

	if (mode >= ARRAY_SIZE(igmp_find_entry_fns))
		return NULL;
	return igmp_find_entry_fns[mode](key);
}

int igmp_is_programme_exist(const struct igmp_entry_info *key, s32 *flow_idx,
			    u64 *mask, u32 op)
{
	u32 mode = READ_ONCE(igmp_filter_mode);

	if (mode >= ARRAY_SIZE(igmp_find_data_fns))
		return 0;
	return igmp_find_data_fns[mode](key, flow_idx, mask, op);
}

void igmp_init_fdb(void)
{
	WRITE_ONCE(igmp_filter_mode, IGMP_FILTER_MAC_IP);
	INIT_LIST_HEAD(&igmp_fdb_list);
	WRITE_ONCE(igmp_fdb_count, 0);
	igmp_fdb_hash_clear();
	igmp_fdb_hash_mode = IGMP_FILTER_MAC_IP;
}

void igmp_init_fdb_tmp(void)
{
	INIT_LIST_HEAD(&igmp_fdb_tmp_list);
}

struct list_head *igmp_get_fdb_list(void)
{
	return &igmp_fdb_list;
}

struct list_head *igmp_get_fdb_tmp_list(void)
{
	return &igmp_fdb_tmp_list;
}

/* An unlocked peek: callers use it only to skip work on an empty table. */
/* Read without the lock by those who only size a buffer. */
u32 igmp_fdb_entries(void)
{
	return READ_ONCE(igmp_fdb_count);
}

bool igmp_fdb_empty(void)
{
	return READ_ONCE(igmp_fdb_list.next) == &igmp_fdb_list;
}

int igmp_count_port_entries(u8 port)
{
	struct igmp_fdb_entry *e;
	int n = 0;

	spin_lock_bh(&igmp_fdb_lock);
	list_for_each_entry(e, &igmp_fdb_list, list)
		n += e->port == port;
	spin_unlock_bh(&igmp_fdb_lock);
	return n;
}

void igmp_clear_entry(void)
{
	if (!igmp_fdb_empty())
		quor_igmp_clear_all_entry();
}

/* Free every record of the holding list; callers exclude each other. */
void igmp_clear_entry_tmp(void)
{
	struct igmp_fdb_entry *e, *n;

	list_for_each_entry_safe(e, n, &igmp_fdb_tmp_list, list) {
		list_del(&e->list);
		kfree(e);
	}
}

/* Free an entry readers may still hold, and give its slot back. */
void igmp_entry_release(struct igmp_fdb_entry *entry)
{
	if (entry->acnt.bound)
		quor_mcst_slot_put(entry->acnt.slot);
	kfree_rcu(entry, rcu);
}

int igmp_del_entry(struct igmp_fdb_entry *entry)
{
	int slot = entry->acnt.bound ? entry->acnt.slot : -1;

	hlist_del_init_rcu(&entry->hnode);
	list_del(&entry->list);
	WRITE_ONCE(igmp_fdb_count, igmp_fdb_count - 1);
	kfree_rcu(entry, rcu);
	return slot;
}
