// SPDX-License-Identifier: GPL-2.0
/*
 * Per-port replication: one copy of a frame per member port, with that
 * port's VLAN treatment, handed to the port's device and counted when the
 * device takes it.  A port whose treatment leaves the frame as it is gets
 * a clone (shared bytes); a port that changes tags gets a private copy.
 * The caller's frame is never sent, changed or freed here.
 */
#include "datapath.h"
#include "transmit.h"
#include "acnt/acnt.h"
#include "fdb/fdb.h"
#include "vlan/vlan.h"

#define PORT_MASK_LAN	0x00000FFFULL	/* ports counted by the interface count */
#define PORT_MASK_WIFI	0xFFFF0000ULL

static const char jix_vh_name[] = "jix_xpon_data_vlan_handle";
static const char jix_fwd_name[] = "jix_xpon_fwd_data_to_port";

static int jix_port_count(u64 mask)
{
	return hweight64(mask & PORT_MASK_LAN) + hweight64(mask & PORT_MASK_WIFI);
}

/* The frame's VLAN id: the outermost 0x8100/0x88A8 tag's VID, else -1. */
static s16 jix_frame_vid(const struct sk_buff *skb)
{
	const u8 *h = skb_mac_header(skb);
	u16 type;

	if (skb_tail_pointer(skb) - h < ETH_HLEN + 2)
		return -1;
	type = (u16)(h[12] << 8 | h[13]);
	if (type != ETH_P_8021Q && type != ETH_P_8021AD)
		return -1;
	return (s16)((h[14] << 8 | h[15]) & 0xFFF);
}

void jix_xpon_port_key_of(struct sk_buff *skb, struct igmp_entry_info *key)
{
	memset(key, 0, sizeof(*key));
	key->vlan = jix_frame_vid(skb);
	jix_xpon_get_src_and_dst_addr(&key->src_ip, &key->grp_ip, skb);
	if (skb_tail_pointer(skb) - skb_mac_header(skb) >= ETH_ALEN)
		memcpy(key->grp_mac, skb_mac_header(skb), ETH_ALEN);
}

void jix_xpon_port_key_of_pkt(const struct jix_pkt *pk,
			      struct igmp_entry_info *key)
{
	memset(key, 0, sizeof(*key));
	key->vlan = (s16)pk->outer_vid;
	key->src_ip = pk->src;
	key->grp_ip = pk->grp;
	if (pk->dst)
		memcpy(key->grp_mac, pk->dst, ETH_ALEN);
}

int jix_xpon_get_port_vlan_action(u8 port, struct sk_buff *skb,
				  struct vlan_action *action)
{
	struct igmp_entry_info key;
	struct igmp_fdb_entry *e;
	int ret = -1;

	if (igmp_fdb_empty())
		return -1;
	jix_xpon_port_key_of(skb, &key);
	key.port = port;

	spin_lock_bh(&igmp_fdb_lock);
	e = igmp_find_entry(&key);
	if (e) {
		jix_vlan_action_of(e, action);
		ret = 1;
	}
	spin_unlock_bh(&igmp_fdb_lock);
	return ret;
}

/* The treatment of @port: @act's mode, or strip for a hybrid HGU port
 * while snooping is off. */
static u32 jix_xpon_port_mode(unsigned long port, const struct vlan_action *act)
{
	if (port < JIX_PORT_TYPE_NUM && !quor_igmp_snooping_peek() &&
	    READ_ONCE(PORT_TYPE[port]) == JIX_PORT_TYPE_HYBRID_HGU)
		return JIX_VLAN_STRIP;
	return act->vlan_mode;
}

static noinline void jix_xpon_vlan_trace(u32 mode, const struct vlan_action *act,
					 int ret)
{
	printk("[%s]jix_xpon_data_vlan_handle: ret:%d\n", jix_vh_name, ret);
	printk("[%s]vlanMode = %d\n", jix_vh_name, mode);
	printk("[%s]outerVlan = %lu\n", jix_vh_name,
	       (unsigned long)(act->outer_tci & JIX_VID_NONE));
	printk("[%s]outerTci = %lu\n", jix_vh_name,
	       (unsigned long)(act->outer_tci >> 13));
	printk("[%s]innerVlan = %lu\n", jix_vh_name,
	       (unsigned long)(act->inner_tci & JIX_VID_NONE));
	printk("[%s]innerTci = %lu\n", jix_vh_name,
	       (unsigned long)(act->inner_tci >> 13));
}

/* Apply @act, the port's action as its lookup answered (@ret), to @skb. */
static void jix_xpon_data_vlan_apply(struct sk_buff *skb, unsigned long port,
				     const struct vlan_action *act, int ret)
{
	u32 mode = jix_xpon_port_mode(port, act);

	if (unlikely(READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE))
		jix_xpon_vlan_trace(mode, act, ret);
	jix_vlan_apply(skb, mode, act->outer_tci, act->inner_tci);
}

int jix_xpon_data_vlan_handle(struct sk_buff *skb, unsigned long port)
{
	struct vlan_action act = { 0 };
	int ret;

	jix_dbg(JIX_DBG_TRACE, "[%s]data_vlan_handle: port id = %lu\n", __func__,
		port);
	ret = jix_xpon_get_port_vlan_action((u8)port, skb, &act);
	jix_xpon_data_vlan_apply(skb, port, &act, ret);
	return 0;
}

/*
 * Send @copy on port @p when its device is present and up; consumes it.
 * Caller holds rcu_read_lock: the port map releases a device only after a
 * grace period, so no reference of our own is needed.  The port counts
 * the copy only when the device took it.
 */
static void jix_xpon_xmit_copy(struct sk_buff *copy, u8 p)
{
	struct net_device *dev = get_dev_by_port(p);
	unsigned int len;

	if (!dev || !(READ_ONCE(dev->flags) & IFF_UP)) {
		jix_dbg(JIX_DBG_TRACE, "[%s]dev = NULL\n", jix_fwd_name);
		kfree_skb(copy);
		return;
	}
	jix_dbg(JIX_DBG_TRACE, "[%s]dev name = %s\n", jix_fwd_name, dev->name);
	copy->dev = dev;
	len = copy->len;
	if (jix_dev_xmit(copy) == 0)
		set_sw_cnt_by_port(p, len);
}

/* The action of a port without an entry. */
static const struct vlan_action jix_no_action;

/*
 * @p's copy of @skb with the port's treatment: a clone when the treatment
 * keeps the bytes (nothing to apply), else a private copy it is applied to.
 */
static struct sk_buff *jix_xpon_port_copy(struct sk_buff *skb, u8 p,
					  const struct vlan_action *act,
					  bool found)
{
	u32 mode = jix_xpon_port_mode(p, act);
	bool keeps = jix_vlan_keeps(skb, mode, act->outer_tci, act->inner_tci);
	struct sk_buff *copy;

	copy = keeps ? skb_clone(skb, GFP_ATOMIC) : skb_copy(skb, GFP_ATOMIC);
	if (!copy)
		return NULL;
	if (unlikely(READ_ONCE(quor_mc_debug_level) >= JIX_DBG_TRACE)) {
		printk("[%s]data_vlan_handle: port id = %lu\n", jix_vh_name,
		       (unsigned long)p);
		jix_xpon_vlan_trace(mode, act, found ? 1 : -1);
	}
	if (!keeps)
		jix_vlan_apply(copy, mode, act->outer_tci, act->inner_tci);
	return copy;
}

/* One copy per port of @mask; actions from @pa, or looked up per copy. */
static int jix_xpon_fwd(struct sk_buff *skb, u64 mask,
			const struct jix_port_actions *pa)
{
	unsigned long todo = (u32)mask;
	int count = jix_port_count(mask);
	const struct vlan_action *act;
	struct sk_buff *copy;
	bool found;
	u8 p;

	jix_dbg(JIX_DBG_TRACE, "[%s]interfacecount=%d\n", jix_fwd_name, count);
	rcu_read_lock();
	/* Ports 0 to 31 in order, each set bit using up one of @count. */
	for (; todo && --count >= 0; todo &= todo - 1) {
		p = (u8)__ffs(todo);
		if (!pa) {
			/* The query relay: its actions are looked up per copy. */
			copy = skb_copy(skb, GFP_ATOMIC);
			if (!copy)
				continue;
			jix_xpon_data_vlan_handle(copy, p);
			jix_xpon_xmit_copy(copy, p);
			continue;
		}
		found = (pa->found >> p) & 1;
		act = found ? &pa->act[p] : &jix_no_action;
		copy = jix_xpon_port_copy(skb, p, act, found);
		if (copy)
			jix_xpon_xmit_copy(copy, p);
	}
	rcu_read_unlock();
	return 0;
}

int jix_xpon_fwd_data_to_port(struct sk_buff *skb, u64 mask)
{
	return jix_xpon_fwd(skb, mask, NULL);
}

int jix_xpon_fwd_data_with_actions(struct sk_buff *skb, u64 mask,
				   const struct jix_port_actions *pa)
{
	return jix_xpon_fwd(skb, mask, pa);
}

/*
 * The frame from its start to its end, 16 bytes a line, with network/MAC/
 * data marks (and the head mark when the frame starts at the buffer).
 */
void jix_skb_dump_all(struct sk_buff *skb)
{
	long tail = skb_tail_pointer(skb) - skb->head;
	long data = skb->data - skb->head;
	char line[16 * 5 + 8];
	int len = 0;
	long i;

	printk("\nskb_dump: from %s with len %d (%d) headroom=%d tailroom=%d\n",
	       skb->dev ? skb->dev->name : "ip stack", skb->len, skb->truesize,
	       skb_headroom(skb), skb->data_len ? 0 : skb_tailroom(skb));
	/* The frame only: headroom bytes are stale memory, not frame. */
	for (i = data; i < tail; i++) {
		if ((i - data) % 16 == 0) {
			if (len)
				printk("%s", line);
			len = scnprintf(line, sizeof(line), "\n");
		}
		if (i == 0)
			len += scnprintf(line + len, sizeof(line) - len, "@h");
		if (i == skb->network_header)
			len += scnprintf(line + len, sizeof(line) - len, "@n");
		if (i == skb->mac_header)
			len += scnprintf(line + len, sizeof(line) - len, "@*");
		if (i == data)
			len += scnprintf(line + len, sizeof(line) - len, "@d");
		len += scnprintf(line + len, sizeof(line) - len, "%02X-", skb->head[i]);
	}
	if (len)
		printk("%s", line);
	printk("\n");
}

void jix_skb_dump(struct sk_buff *skb)
{
	if (READ_ONCE(quor_mc_debug_level) == JIX_DBG_DUMP)
		jix_skb_dump_all(skb);
}
