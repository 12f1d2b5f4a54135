// SPDX-License-Identifier: GPL-2.0
/*
 * The 1:N VLAN decision.  The forwarding engine puts one pair of tags on
 * every copy of a flow, so a flow can stay in hardware only while all its
 * member ports want the same treatment.  Otherwise ("vlan 1:N") the flow
 * gets back the tags it was learned with and goes through software, which
 * treats every copy separately.
 *
 * Locks: igmp_fdb_lock and hwnat_flow_lock are each taken with bottom
 * halves disabled (these paths run from process context as well as from
 * the receive path), held only for one lookup or walk, and never together.
 * The driver's hooks are called with no lock held.
 */
#include "vlan.h"
#include "datapath/datapath.h"
#include "fdb/fdb.h"
#include "hwnat/hwnat.h"

#define PORT_MASK_LAN	0x00000FFFULL	/* LAN ports counted for 1:N */
#define PORT_MASK_WIFI	0xFFFF0000ULL

/* The frame's hardware flow index, or -1 with the error message. */
static s32 jix_vlan_skb_flow(struct sk_buff *skb, const char *func)
{
	int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);
	s32 idx = -1;

	if (skb && to_foe)
		idx = to_foe(skb);
	if (idx < 0)
		jix_dbg(JIX_DBG_ERR, "[%s]index is not correct\n", func);
	return idx;
}

u32 quor_get_skb_original_vid(struct sk_buff *skb)
{
	s32 idx = jix_vlan_skb_flow(skb, __func__);
	u32 outer = 0, inner = 0;

	if (idx < 0)
		return 0;
	jix_hwnat_learned_tags(idx, &outer, &inner, NULL);
	return outer & JIX_VID_NONE;
}

void quor_mcst_update_vlan(struct sk_buff *skb)
{
	s32 idx = jix_vlan_skb_flow(skb, __func__);

	if (idx >= 0)
		quor_mcst_hwnat_update_vlan((u32)idx);
}

/* The lookup key of a member port, from a frame. */
static void jix_vlan_key_of_skb(struct igmp_entry_info *key,
				struct sk_buff *skb, s32 vid)
{
	const u8 *dst = jix_xpon_get_dst_mac(skb);

	if (dst)
		memcpy(key->grp_mac, dst, ETH_ALEN);
	jix_xpon_get_src_and_dst_addr(&key->src_ip, &key->grp_ip, skb);
	key->vlan = (s16)(vid > 0 ? vid : jix_xpon_get_outer_vid(skb));
}

/* The lookup key of a member port, from a control record. */
static void jix_vlan_key_of_req(struct igmp_entry_info *key,
				const struct igmp_entry_info *req)
{
	size_t alen = req->grp_ip.isipv6 ? 16 : 4;

	memcpy(key->grp_mac, req->grp_mac, ETH_ALEN);
	key->grp_ip.isipv6 = req->grp_ip.isipv6;
	key->src_ip.isipv6 = req->grp_ip.isipv6;
	memcpy(key->grp_ip.addr, req->grp_ip.addr, alen);
	memcpy(key->src_ip.addr, req->src_ip.addr, alen);
	key->vlan = req->vlan;
}

void igmp_get_port_vlan_action(u8 port, struct sk_buff *skb,
			       const struct igmp_entry_info *req, s32 vid,
			       struct vlan_action *slot)
{
	struct igmp_entry_info key;
	struct igmp_fdb_entry *e;

	if (igmp_fdb_empty())
		return;
	memset(&key, 0, sizeof(key));
	key.port = port;
	key.vlan = -1;
	if (skb)
		jix_vlan_key_of_skb(&key, skb, vid);
	else if (req)
		jix_vlan_key_of_req(&key, req);

	spin_lock_bh(&igmp_fdb_lock);
	e = igmp_find_entry(&key);
	if (e)
		jix_vlan_action_of(e, slot);
	spin_unlock_bh(&igmp_fdb_lock);
}

/* The TPIDs do not matter: the engine writes its own. */
static bool jix_vlan_same_treatment(const struct vlan_action *a,
				    const struct vlan_action *b)
{
	return a->vlan_mode == b->vlan_mode && a->outer_tci == b->outer_tci &&
	       a->inner_tci == b->inner_tci;
}

int quor_vlan_IsOneToN(u64 mask, struct sk_buff *skb,
		       const struct igmp_entry_info *req, u32 vid)
{
	struct vlan_action prev, cur;
	int filled = 0;
	u8 p;

	if (!mask) {
		jix_dbg(JIX_DBG_TRACE, "[%s]port mask is 0...\n", __func__);
		return 0;
	}
	if (mask & PORT_MASK_WIFI)
		return 1;
	if (hweight64(mask & PORT_MASK_LAN) < 2) {
		jix_dbg(JIX_DBG_TRACE, "[%s]interface counter < 2...\n", __func__);
		return 0;
	}
	if (!skb && !req)
		return 0;
	for (p = 0; p < 32; p++) {
		if (!((mask >> p) & 1))
			continue;
		memset(&cur, 0, sizeof(cur));
		igmp_get_port_vlan_action(p, skb, req, (s32)vid, &cur);
		if (filled++ && !jix_vlan_same_treatment(&prev, &cur))
			return 1;
		prev = cur;
	}
	return 0;
}

void igmp_entry_check_vlan_mode(const struct igmp_entry_info *req, u64 mask,
				u32 flow_idx)
{
	s32 idx = (s32)flow_idx;

	/* No hardware flow yet: the first frame binds it with the members. */
	if (idx < 0)
		return;
	if (quor_vlan_IsOneToN(mask, NULL, req, (u32)-1)) {
		quor_mcst_hwnat_update_vlan(flow_idx);
		quor_mcst_hwnat_update_dp(flow_idx, 0);
		return;
	}
	if (!mask)
		return;
	quor_mcst_do_vlan(flow_idx, mask);
	quor_mcst_hwnat_update_dp(flow_idx, 1);
}
