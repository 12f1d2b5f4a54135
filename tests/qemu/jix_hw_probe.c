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
 * With storm_ms=<n> a thread of its own plays a busy engine for n
 * milliseconds (the guest's concurrency test): it asks the module for the
 * records of flow indexes 101..108 and reports bound multicast flows to
 * it, and every 2 s flips entry_answer and drop_answer so that aging
 * removes flows; n_storm counts its rounds.  It ends at unload.
 *
 * Unload it only after jix_xpon_multicast: the module calls these
 * functions from its timers.
 */
#include <linux/delay.h>
#include <linux/if_ether.h>
#include <linux/ip.h>
#include <linux/ipv6.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
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

static uint storm_ms;
module_param(storm_ms, uint, 0444);
static uint n_storm;
module_param(n_storm, uint, 0444);
static struct task_struct *storm_task;

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

/* A multicast frame as the engine reports a bound flow: to 239.20.0.@last. */
static struct sk_buff *probe_bound_frame(u8 last)
{
	static const u8 dst[6] = { 0x01, 0x00, 0x5e, 0x14, 0x00, 0x00 };
	struct sk_buff *skb = alloc_skb(128, GFP_KERNEL);
	struct iphdr *ip;
	u8 *f;

	if (!skb)
		return NULL;
	f = skb_put_zero(skb, ETH_HLEN + sizeof(*ip) + 8);
	memcpy(f, dst, 6);
	f[5] = last;
	f[6] = 0x02;
	f[12] = ETH_P_IP >> 8;
	f[13] = ETH_P_IP & 0xff;
	ip = (struct iphdr *)(f + ETH_HLEN);
	ip->version = 4;
	ip->ihl = 5;
	ip->protocol = IPPROTO_UDP;
	ip->daddr = htonl(0xef140000 | last);
	skb_reset_mac_header(skb);
	skb->protocol = htons(ETH_P_IP);
	return skb;
}

/* One round: the module's hooks are called as the driver calls them. */
static void probe_storm_round(unsigned int i)
{
	struct sk_buff *skb = i % 4 ? NULL : probe_bound_frame(1 + i % 8);
	struct hwnat_flow_entry *(*find)(int index);
	int (*learn)(struct sk_buff *skb);

	rcu_read_lock();
	local_bh_disable();
	find = READ_ONCE(multicast_speed_find_entry_hook);
	if (find)
		find(101 + i % 8);
	learn = READ_ONCE(xpon_igmp_learn_flow_hook);
	if (learn && skb)
		learn(skb);
	local_bh_enable();
	rcu_read_unlock();
	kfree_skb(skb);
}

static int probe_storm(void *unused)
{
	unsigned long end = jiffies + msecs_to_jiffies(storm_ms);
	unsigned long flip = jiffies;
	unsigned int i = 0;

	while (!kthread_should_stop()) {
		if (time_after(jiffies, end)) {
			WRITE_ONCE(entry_answer, 1);
			WRITE_ONCE(drop_answer, 1);
			msleep(20);
			continue;
		}
		if (time_after(jiffies, flip + 2 * HZ)) {
			flip = jiffies;
			WRITE_ONCE(entry_answer, !READ_ONCE(entry_answer));
			WRITE_ONCE(drop_answer, READ_ONCE(entry_answer));
		}
		probe_storm_round(i++);
		WRITE_ONCE(n_storm, i);
		usleep_range(500, 1000);
	}
	return 0;
}

static void jix_hw_probe_exit_hooks(void);

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
	if (storm_ms) {
		storm_task = kthread_run(probe_storm, NULL, "jix_hw_storm");
		if (IS_ERR(storm_task)) {
			storm_task = NULL;
			jix_hw_probe_exit_hooks();
			return -ENOMEM;
		}
	}
	return 0;
}

static void jix_hw_probe_exit_hooks(void)
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

static void __exit jix_hw_probe_exit(void)
{
	if (storm_task)
		kthread_stop(storm_task);
	jix_hw_probe_exit_hooks();
}

module_init(jix_hw_probe_init);
module_exit(jix_hw_probe_exit);
MODULE_DESCRIPTION("hardware forwarding driver stand-in for the jix_xpon_multicast QEMU tests");
MODULE_LICENSE("GPL");
