// SPDX-License-Identifier: GPL-2.0
/*
 * Forwarding entries and their lookups.
 *
 * An entry is named by its port plus the fields the filter mode selects
 * (its entry key); a programme by those fields alone.  Addresses compare
 * in the width of the key's family: 4 bytes for IPv4, 16 for IPv6.
 */
#include "fdb.h"

DEFINE_SPINLOCK(igmp_fdb_lock);
static LIST_HEAD(igmp_fdb_list);
static LIST_HEAD(igmp_fdb_tmp_list);
u32 igmp_filter_mode = IGMP_FILTER_MAC_IP;

static bool igmp_addr_eq(const struct mc_ip_addr *a, const struct mc_ip_addr *b,
			 const struct igmp_entry_info *key)
{
	return !memcmp(a->addr, b->addr, key->grp_ip.isipv6 ? 16 : 4);
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
	struct igmp_fdb_entry *e;

	if (!key)
		return NULL;
	list_for_each_entry(e, &igmp_fdb_list, list) {
		if (e->port == key->port && igmp_prog_match(e, key, mode))
			return e;
	}
	return NULL;
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
	struct igmp_fdb_entry *e;
	bool found = false;

	if (!key)
		return 0;
	list_for_each_entry(e, &igmp_fdb_list, list) {
		if (!igmp_prog_match(e, key, mode))
			continue;
		*mask |= jix_port_bit(e->port);
		*flow_idx = e->flow_idx;
		found = true;
	}
	if (!found)
		return 0;
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

/* Caller holds igmp_fdb_lock. */
void igmp_del_entry(struct igmp_fdb_entry *entry)
{
	list_del(&entry->list);
	kfree(entry);
}
