// SPDX-License-Identifier: GPL-2.0
/*
 * jix_hw_probe: plays the hardware forwarding driver in the QEMU tests.
 * While loaded it sets the driver's function pointers that quor_platform
 * exports (unset by default) and answers them from its parameters, which
 * the guest script changes at run time under
 * /sys/module/jix_hw_probe/parameters/:
 *
 *   foe_base      flow index of a frame: foe_base + the last byte of its
 *                 IPv4 or IPv6 destination; negative: frames have none
 *   entry_answer  what "is this still a multicast entry?" answers
 *   drop_answer   what "is this still a drop entry?" answers
 *   drop_packet   what "turn this frame's entry into a drop" answers
 *
 * and counts what the module asked of it (read-only parameters):
 *   n_set_info n_delete n_update_dp n_update_vlan n_drop_packet, and the
 *   last mask / destination port / tag words it was given.
 *
 * Unload it only after jix_xpon_multicast: the module calls these
 * functions from its timers.
 */
#include <linux/if_ether.h>
#include <linux/ip.h>
#include <linux/ipv6.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/skbuff.h>

#include "quor_vendor.h"

static int foe_base = 100;
module_param(foe_base, int, 0644);
static int entry_answer = 1;
module_param(entry_answer, int, 0644);
static int drop_answer = 1;
module_param(drop_answer, int, 0644);
static int drop_packet = 1;
module_param(drop_packet, int, 0644);

static uint n_foe, n_set_info, n_delete, n_update_dp, n_update_vlan;
static uint n_drop_packet, n_is_entry, n_is_drop;
module_param(n_foe, uint, 0444);
module_param(n_set_info, uint, 0444);
module_param(n_delete, uint, 0444);
module_param(n_update_dp, uint, 0444);
module_param(n_update_vlan, uint, 0444);
module_param(n_drop_packet, uint, 0444);
module_param(n_is_entry, uint, 0444);
module_param(n_is_drop, uint, 0444);
static uint last_mask, last_outer, last_inner;
static int last_dp = -1, last_delete = -1;
module_param(last_mask, uint, 0444);
module_param(last_dp, int, 0444);
module_param(last_delete, int, 0444);
module_param(last_outer, uint, 0444);
module_param(last_inner, uint, 0444);

#define PROBE_COUNT(n) WRITE_ONCE(n, READ_ONCE(n) + 1)

/* The last byte of the frame's destination address, from the MAC header. */
static int probe_dst_last_byte(struct sk_buff *skb)
{
	const u8 *mac = skb_mac_header(skb);
	unsigned int len = skb_tail_pointer(skb) - mac;
	unsigned int off = 12;
	u16 type;

	for (;;) {
		if (off + 2 > len)
			return -1;
		type = mac[off] << 8 | mac[off + 1];
		if (type != ETH_P_8021Q && type != ETH_P_8021AD && type != 0x9100)
			break;
		off += 4;
	}
	off += 2;
	if (type == ETH_P_IP && off + sizeof(struct iphdr) <= len)
		return mac[off + 19];
	if (type == ETH_P_IPV6 && off + sizeof(struct ipv6hdr) <= len)
		return mac[off + 39];
	return -1;
}

static int probe_foe(struct sk_buff *skb)
{
	int base = READ_ONCE(foe_base);
	int last;

	PROBE_COUNT(n_foe);
	if (base < 0)
		return -1;
	last = probe_dst_last_byte(skb);
	return last < 0 ? -1 : base + last;
}

static int probe_is_entry(int index, unsigned char *grp, unsigned char *src,
			  int is_ipv6)
{
	PROBE_COUNT(n_is_entry);
	return READ_ONCE(entry_answer);
}

static int probe_is_drop(int index, unsigned char *grp, unsigned char *src,
			 int is_ipv6)
{
	PROBE_COUNT(n_is_drop);
	return READ_ONCE(drop_answer);
}

static int probe_set_info(int index, unsigned int mask, int flag)
{
	WRITE_ONCE(last_mask, mask);
	PROBE_COUNT(n_set_info);
	return 0;
}

static int probe_delete(int index)
{
	WRITE_ONCE(last_delete, index);
	PROBE_COUNT(n_delete);
	return 0;
}

static int probe_update_dp(int index, int dp)
{
	WRITE_ONCE(last_dp, dp);
	PROBE_COUNT(n_update_dp);
	return 0;
}

static int probe_update_vlan(int index, unsigned int outer, unsigned int inner)
{
	WRITE_ONCE(last_outer, outer);
	WRITE_ONCE(last_inner, inner);
	PROBE_COUNT(n_update_vlan);
	return 0;
}

static int probe_drop_packet(struct sk_buff *skb)
{
	PROBE_COUNT(n_drop_packet);
	return READ_ONCE(drop_packet);
}

static int __init jix_hw_probe_init(void)
{
	WRITE_ONCE(hwnat_skb_to_foe_hook, probe_foe);
	WRITE_ONCE(hwnat_is_multicast_entry_hook, probe_is_entry);
	WRITE_ONCE(hwnat_is_drop_entry_hook, probe_is_drop);
	WRITE_ONCE(hwnat_multicast_set_hwnat_info_hook, probe_set_info);
	WRITE_ONCE(hwnat_delete_foe_entry_hook, probe_delete);
	WRITE_ONCE(ux_sw_nat_hook_update_dp, probe_update_dp);
	WRITE_ONCE(ux_sw_nat_hook_update_vlan, probe_update_vlan);
	WRITE_ONCE(ux_sw_nat_hook_drop_packet, probe_drop_packet);
	return 0;
}

static void __exit jix_hw_probe_exit(void)
{
	WRITE_ONCE(hwnat_skb_to_foe_hook, NULL);
	WRITE_ONCE(hwnat_is_multicast_entry_hook, NULL);
	WRITE_ONCE(hwnat_is_drop_entry_hook, NULL);
	WRITE_ONCE(hwnat_multicast_set_hwnat_info_hook, NULL);
	WRITE_ONCE(hwnat_delete_foe_entry_hook, NULL);
	WRITE_ONCE(ux_sw_nat_hook_update_dp, NULL);
	WRITE_ONCE(ux_sw_nat_hook_update_vlan, NULL);
	WRITE_ONCE(ux_sw_nat_hook_drop_packet, NULL);
	/* Callers run in softirq context (receive path, timers). */
	synchronize_rcu();
}

module_init(jix_hw_probe_init);
module_exit(jix_hw_probe_exit);
MODULE_DESCRIPTION("hardware forwarding driver stand-in for the jix_xpon_multicast QEMU tests");
MODULE_LICENSE("GPL");
