// SPDX-License-Identifier: GPL-2.0
/*
 * Member ports of a frame: a walk of the forwarding database under the
 * current filter mode.  Each matching entry adds the bit of its port to
 * the caller's mask and learns the frame's hardware flow index, so that
 * later membership changes can be applied to that flow.
 */
#include "datapath.h"
#include "fdb/fdb.h"
#include "transmit.h"

/* What a frame is matched by, built on the stack for every call. */
struct jix_fwd_key {
	u8 grp_mac[ETH_ALEN];
	struct mc_ip_addr src_ip;
	struct mc_ip_addr grp_ip;
	int vid;			/* -1: untagged */
	s32 flow_idx;			/* -1: none */
	bool learn;			/* matching entries take flow_idx */
};

static void jix_fwd_key_of(struct sk_buff *skb, int vid,
			   struct jix_fwd_key *k)
{
	int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);
	const u8 *dst = jix_xpon_get_dst_mac(skb);

	memset(k, 0, sizeof(*k));
	k->flow_idx = skb && to_foe ? to_foe(skb) : -1;
	k->learn = true;
	if (dst)
		memcpy(k->grp_mac, dst, ETH_ALEN);
	jix_xpon_get_src_and_dst_addr(&k->src_ip, &k->grp_ip, skb);
	k->vid = vid;
}

/* The same key from the frame's parse (which holds its flow index). */
static void jix_fwd_key_of_pkt(const struct jix_pkt *pk, struct jix_fwd_key *k)
{
	memset(k, 0, sizeof(*k));
	k->flow_idx = pk->flow_idx;
	k->learn = true;
	if (pk->dst)
		memcpy(k->grp_mac, pk->dst, ETH_ALEN);
	k->src_ip = pk->src;
	k->grp_ip = pk->grp;
	k->vid = pk->outer_vid;
}

/*
 * One address line: "[func]a.b.c.d\n", or for IPv6 sixteen "%02X" with a
 * ":" after bytes 1, 3, .. 13.  With @each the function's name goes in
 * front of every byte and separator, otherwise once at the start.  The
 * line is composed first so that it reaches the log as one record; only
 * debug output takes this stack.
 */
#define JIX_FWD_NAME_MAX	32
#define JIX_FWD_TAG_MAX		(JIX_FWD_NAME_MAX + 2)	/* "[name]" */

static noinline void jix_fwd_print_addr(const char *func,
					const struct mc_ip_addr *a, bool each)
{
	char buf[23 * JIX_FWD_TAG_MAX + 16 * 2 + 7 + 2];
	size_t n = 0;
	int i;

	if (!a->isipv6) {
		printk("[%s]%d.%d.%d.%d\n", func, a->addr[0], a->addr[1],
		       a->addr[2], a->addr[3]);
		return;
	}
	for (i = 0; i < 16; i++) {
		if (each || i == 0)
			n += scnprintf(buf + n, sizeof(buf) - n, "[%s]", func);
		n += scnprintf(buf + n, sizeof(buf) - n, "%02X", a->addr[i]);
		if (i % 2 == 0 || i == 15)
			continue;
		if (each)
			n += scnprintf(buf + n, sizeof(buf) - n, "[%s]", func);
		n += scnprintf(buf + n, sizeof(buf) - n, ":");
	}
	printk("%s\n", buf);
}

static void jix_fwd_print_key(const char *func, const struct jix_fwd_key *k,
			      bool each)
{
	const u8 *m = k->grp_mac;

	printk("[%s]vid = %d\n", func, k->vid);
	printk("[%s]grp_mac = %02X:%02X:%02X:%02X:%02X:%02X\n", func,
	       m[0], m[1], m[2], m[3], m[4], m[5]);
	printk("[%s]src_ip.isipv6 = %d\n", func, k->src_ip.isipv6);
	jix_fwd_print_addr(func, &k->src_ip, each);
	printk("[%s]grp_ip.isipv6 = %d\n", func, k->grp_ip.isipv6);
	jix_fwd_print_addr(func, &k->grp_ip, each);
	printk("[%s]flow index = %d\n", func, k->flow_idx);
}

/* Same family as the frame, and equal in the frame family's width. */
static bool jix_fwd_family(const struct igmp_fdb_entry *e,
			   const struct jix_fwd_key *k)
{
	return k->grp_ip.isipv6 ? e->grp_ip.isipv6 != 0 : e->grp_ip.isipv6 == 0;
}

/* Fixed lengths, so that the compiler compares in place. */
static bool jix_fwd_addr_eq(const struct mc_ip_addr *a,
			    const struct jix_fwd_key *k,
			    const struct mc_ip_addr *b)
{
	if (k->grp_ip.isipv6)
		return !memcmp(a->addr, b->addr, 16);
	return !memcmp(a->addr, b->addr, 4);
}

static bool jix_fwd_vid(const struct igmp_fdb_entry *e,
			const struct jix_fwd_key *k)
{
	return e->vlan == k->vid;
}

static bool jix_fwd_mac(const struct igmp_fdb_entry *e,
			const struct jix_fwd_key *k)
{
	return !memcmp(e->grp_mac, k->grp_mac, ETH_ALEN);
}

/* A hybrid HGU port takes its groups whatever their VLAN (mode 0 only). */
static bool jix_fwd_hybrid_hgu(u8 port)
{
	return port < JIX_PORT_TYPE_NUM &&
	       READ_ONCE(PORT_TYPE[port]) == JIX_PORT_TYPE_HYBRID_HGU;
}

static bool jix_fwd_match(const struct igmp_fdb_entry *e,
			  const struct jix_fwd_key *k, u32 mode)
{
	switch (mode) {
	case IGMP_FILTER_IP_VID:
		return jix_fwd_family(e, k) &&
		       (jix_fwd_vid(e, k) || jix_fwd_hybrid_hgu(e->port)) &&
		       jix_fwd_addr_eq(&e->grp_ip, k, &k->grp_ip);
	case IGMP_FILTER_MAC:
		return jix_fwd_mac(e, k);
	case IGMP_FILTER_IP_SRC_IP:
		return jix_fwd_family(e, k) &&
		       jix_fwd_addr_eq(&e->grp_ip, k, &k->grp_ip) &&
		       jix_fwd_addr_eq(&e->src_ip, k, &k->src_ip);
	case IGMP_FILTER_MAC_VID:
		return jix_fwd_mac(e, k) && jix_fwd_vid(e, k);
	case IGMP_FILTER_MAC_IP:
		return jix_fwd_family(e, k) && jix_fwd_mac(e, k) &&
		       jix_fwd_addr_eq(&e->grp_ip, k, &k->grp_ip);
	case IGMP_FILTER_MAC_IP_VID:
		return jix_fwd_family(e, k) && jix_fwd_vid(e, k) &&
		       jix_fwd_mac(e, k) &&
		       jix_fwd_addr_eq(&e->grp_ip, k, &k->grp_ip);
	default:
		return false;
	}
}

/* The bucket of the programme index that holds every entry @k can match. */
static struct hlist_head *jix_fwd_bucket(const struct jix_fwd_key *k, u32 mode,
					 u32 *hash)
{
	*hash = igmp_fdb_hash(mode, k->grp_mac, k->grp_ip.addr, k->src_ip.addr,
			      (s16)k->vid);
	return igmp_fdb_bucket(mode, *hash);
}

/*
 * Every entry of @head that @k matches: its port joins *@mask and it
 * learns the frame's flow index (data frames only).  Caller holds
 * igmp_fdb_lock or, for the packet path, rcu_read_lock: entries do not
 * change once linked, except flow_idx, a single store.
 */
static void jix_fwd_walk_bucket(const struct jix_fwd_key *k, u32 mode,
				struct hlist_head *head, u32 h, u64 *mask)
{
	struct igmp_fdb_entry *e;

	hlist_for_each_entry_rcu(e, head, hnode) {
		if (READ_ONCE(e->hkey) != h || !jix_fwd_match(e, k, mode))
			continue;
		*mask |= jix_port_bit(e->port);
		if (k->learn && READ_ONCE(e->flow_idx) != k->flow_idx)
			WRITE_ONCE(e->flow_idx, k->flow_idx);
	}
}

/* Caller holds igmp_fdb_lock. */
static void jix_fwd_walk_locked(const struct jix_fwd_key *k, u32 mode,
				u64 *mask)
{
	struct hlist_head *head;
	u32 h;

	head = jix_fwd_bucket(k, mode, &h);
	if (head)
		jix_fwd_walk_bucket(k, mode, head, h, mask);
}

static void jix_fwd_walk(const struct jix_fwd_key *k, u64 *mask)
{
	u32 mode = READ_ONCE(igmp_filter_mode);

	if (mode > IGMP_FILTER_MAX || igmp_fdb_empty())
		return;
	spin_lock_bh(&igmp_fdb_lock);
	jix_fwd_walk_locked(k, READ_ONCE(igmp_filter_mode), mask);
	spin_unlock_bh(&igmp_fdb_lock);
}

void igmp_get_fwd_portmask(struct sk_buff *skb, u64 *mask)
{
	struct jix_fwd_key k;

	jix_fwd_key_of(skb, jix_xpon_get_outer_vid(skb), &k);
	if (READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)
		jix_fwd_print_key(__func__, &k, false);
	jix_fwd_walk(&k, mask);
}

void jix_query_fwd_portmask(struct sk_buff *skb, u64 *mask)
{
	struct jix_fwd_key k;

	jix_fwd_key_of(skb, jix_xpon_get_outer_vid(skb), &k);
	k.learn = false;
	if (READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)
		jix_fwd_print_key("igmp_get_fwd_portmask", &k, false);
	jix_fwd_walk(&k, mask);
}

void quor_mcst_get_fwd_mask(struct sk_buff *skb, u32 vid, u64 *mask)
{
	struct jix_fwd_key k;

	jix_fwd_key_of(skb, (s16)(u16)vid, &k);
	if (READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)
		jix_fwd_print_key(__func__, &k, true);
	jix_fwd_walk(&k, mask);
}

/* Snooping off: every Wi-Fi port with a device, and the LAN ports 0 to 7. */
static u64 jix_fwd_flood_mask(void)
{
	u64 mask = 0;
	unsigned int port;

	for (port = JIX_PORT_WIFI_FIRST; port < 32; port++)
		if (get_dev_by_port(port))
			mask |= jix_port_bit(port);
	return mask | 0xFFULL;
}

/*
 * The data handler's one visit to the database: the member ports of the
 * frame (as igmp_get_fwd_portmask), widened by the flood mask when
 * snooping is off, and the VLAN action of every port of the result (as
 * jix_xpon_get_port_vlan_action would find it for each copy), all under a
 * single hold of igmp_fdb_lock.  Returns the mask.
 */
u64 jix_fwd_ports_and_actions(struct sk_buff *skb, const struct jix_pkt *pk,
			      struct jix_port_actions *pa)
{
	struct igmp_fdb_entry *e, *found[32];
	struct igmp_entry_info key;
	struct hlist_head *head;
	struct jix_fwd_key k;
	unsigned long todo;
	u32 mode, h, have = 0;
	bool have_key = false;
	u64 mask = 0;

	jix_fwd_key_of_pkt(pk, &k);
	if (READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)
		jix_fwd_print_key("igmp_get_fwd_portmask", &k, false);
	pa->found = 0;

	rcu_read_lock();
	mode = READ_ONCE(igmp_filter_mode);
	h = igmp_fdb_hash(mode, k.grp_mac, k.grp_ip.addr, k.src_ip.addr,
			  (s16)k.vid);
	head = igmp_fdb_bucket_rcu(mode, h);
	/*
	 * One walk of the bucket: the entries the frame belongs to (member
	 * ports, flow index) and, per port, the oldest entry of the frame's
	 * key (its VLAN action), which lies in the same bucket.  found[p] is
	 * valid only for the bits of @have.
	 */
	if (head) {
		hlist_for_each_entry_rcu(e, head, hnode) {
			u32 bit;

			bool member;

			if (READ_ONCE(e->hkey) != h)
				continue;
			member = jix_fwd_match(e, &k, mode);
			if (member) {
				mask |= jix_port_bit(e->port);
				if (READ_ONCE(e->flow_idx) != k.flow_idx)
					WRITE_ONCE(e->flow_idx, k.flow_idx);
			}
			if (e->port >= 32)
				continue;
			bit = 1U << e->port;
			if ((have & bit) && found[e->port]->seq < e->seq)
				continue;
			/*
			 * A member is also an entry of the frame's key, unless
			 * it is a hybrid HGU port's entry of another VLAN; an
			 * entry of another address family can be one without
			 * being a member.
			 */
			if (!(member && (mode != IGMP_FILTER_IP_VID ||
					 e->vlan == k.vid))) {
				if (!have_key)
					jix_xpon_port_key_of_pkt(pk, &key);
				have_key = true;
				key.port = e->port;
				if (!igmp_entry_matches(e, &key, mode))
					continue;
			}
			found[e->port] = e;
			have |= bit;
		}
	}
	if (!READ_ONCE(igmp_snooping_enable))
		mask |= jix_fwd_flood_mask();
	todo = have & (u32)mask;
	while (todo) {
		unsigned int p = __ffs(todo);

		todo &= todo - 1;
		jix_vlan_action_of(found[p], &pa->act[p]);
	}
	pa->found = have & (u32)mask;
	rcu_read_unlock();
	return mask;
}
