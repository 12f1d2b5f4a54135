// SPDX-License-Identifier: GPL-2.0
/*
 * Control API operations 2 and 3, with which the network driver asks
 * whether a frame's flow is 1:N and hands a frame over for software VLAN
 * treatment and replication.  They run in their caller's context (the
 * receive path, or process context); nothing here sleeps.
 *
 * Operation 2 gives the frame back as it came (switch tag put back);
 * operation 3 consumes the frame on every path once it has one.  Both edit
 * the frame in place, so a frame whose data is shared with another owner
 * (a clone) gets data of its own first.
 */
#include "vlan.h"
#include "datapath/datapath.h"
#include "datapath/transmit.h"
#include "fdb/fdb.h"

#define PORT_MASK_LAN		0x00000FFFULL	/* ports counted for copies */
#define PORT_MASK_WIFI		0xFFFF0000ULL
#define PORT_MASK_LAN_FLOOD	0xFFULL		/* the eight LAN ports */

u64 jix_vlan_flood_mask(u64 mask)
{
	u8 p;

	for (p = JIX_PORT_WIFI_FIRST; p < 32; p++) {
		if (get_dev_by_port(p))
			mask |= jix_port_bit(p);
	}
	return mask | PORT_MASK_LAN_FLOOD;
}

/* Multicast UDP data: not DHCPv6, SSDP or mDNS. */
static bool jix_vlan_is_data(struct sk_buff *skb)
{
	return jix_xpon_get_ip_type(skb) == JIX_IPPROTO_UDP &&
	       jix_xpon_is_data_udp_port(skb) == 1;
}

int quor_mc_hook_vlan_isOneToN(struct mc_data *mc)
{
	struct sk_buff *skb = mc->skb;
	u16 stag = 0;
	u64 mask = 0;
	int ret;
	s8 kind;
	u32 vid;

	jix_enter();
	if (!skb || skb_cow(skb, 0))
		return QUOR_MC_API_FAIL;
	skb_reset_mac_header(skb);
	if (!jix_xpon_is_multicast_addr(jix_xpon_get_dst_mac(skb)))
		return QUOR_MC_API_FAIL;
	kind = jix_stag_remove(skb, &stag);
	if (!jix_vlan_is_data(skb)) {
		quor_recover_stag(skb, kind, stag);
		return QUOR_MC_API_FAIL;
	}

	vid = quor_get_skb_original_vid(skb);
	quor_mcst_get_fwd_mask(skb, vid, &mask);
	if (!quor_igmp_get_snooping())
		mask = jix_vlan_flood_mask(mask);
	if (quor_vlan_IsOneToN(mask, skb, NULL, vid)) {
		quor_mcst_update_vlan(skb);
		jix_dbg(JIX_DBG_TRACE, "[%s]is vlan 1:N\n", __func__);
		ret = QUOR_MC_API_OK;
	} else {
		jix_dbg(JIX_DBG_TRACE, "[%s]is not vlan 1:N\n", __func__);
		ret = QUOR_MC_API_FAIL;
	}
	quor_recover_stag(skb, kind, stag);
	return ret;
}

int quor_mc_hook_vlan_handle(struct mc_data *mc)
{
	struct sk_buff *skb = mc->skb;
	u16 stag;
	u64 mask = 0;

	jix_enter();
	if (!skb)
		return QUOR_MC_API_FAIL;
	if (skb_cow(skb, 0)) {
		kfree_skb(skb);		/* no data of its own: nothing sent */
		return QUOR_MC_API_OK;
	}
	skb_reset_mac_header(skb);
	jix_skb_dump(skb);
	/* The copies leave with the restored type field. */
	jix_stag_remove(skb, &stag);
	igmp_get_fwd_portmask(skb, &mask);
	if (!quor_igmp_get_snooping())
		mask = jix_vlan_flood_mask(mask);
	quor_mcst_vlan_handle(skb, mask);
	return QUOR_MC_API_OK;
}

/*
 * Send a treated copy of @skb out of port @p.  Returns false, without
 * copying, when the port has no device or its device is down; true when
 * a copy was attempted (a failed copy is skipped).  The device is used
 * under RCU (the port map lets a device go only after a grace period).
 */
static bool jix_vlan_send_copy(struct sk_buff *skb, u8 p)
{
	struct net_device *dev;
	struct sk_buff *copy;

	rcu_read_lock();
	dev = get_dev_by_port(p);
	if (!dev || !(READ_ONCE(dev->flags) & IFF_UP)) {
		rcu_read_unlock();
		return false;
	}
	copy = skb_copy(skb, GFP_ATOMIC);
	if (copy) {
		jix_xpon_data_vlan_handle(copy, p);
		copy->dev = dev;
		jix_dev_xmit(copy);
	}
	rcu_read_unlock();
	return true;
}

int quor_mcst_vlan_handle(struct sk_buff *skb, u64 mask)
{
	int count = hweight64(mask & PORT_MASK_LAN) +
		    hweight64(mask & PORT_MASK_WIFI);
	u8 p;

	if (!count)
		jix_dbg(JIX_DBG_TRACE, "[%s]dev = NULL\n", __func__);
	for (p = 0; p < 32 && count > 0; p++) {
		if (!((mask >> p) & 1))
			continue;
		if (jix_vlan_send_copy(skb, p))
			count--;
	}
	kfree_skb(skb);
	return 0;
}
