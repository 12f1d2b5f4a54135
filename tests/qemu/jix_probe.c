// SPDX-License-Identifier: GPL-2.0
/*
 * jix_probe: the peers of the multicast module in the QEMU guest.  While
 * loaded it is the hardware forwarding driver (it sets the driver's
 * flow-index, entry and drop function pointers that quor_platform exports;
 * the driver's notifications stay unset) and, on request, the
 * snooping control plane calling the control API hook (type 36,
 * sub-type 2).  jixtest drives it through
 * /sys/module/jix_probe/parameters/:
 *
 *   answer    what "is this still a multicast / drop entry?" answers
 *   cmd       write one request, read back its outcome:
 *     add PORT MODE OTCI  API add of 239.10.10.10 in VLAN 100 on PORT, outer
 *                       tag 0x8100 with OTCI -> "hook=H result=R"
 *     find INDEX        the module's record of a flow, read at the driver's
 *                       offsets -> "index=I mask=0xM" or "none"
 *     storm MS          a thread plays a busy engine (record look-ups,
 *                       bound-flow reports, answers flipped every 2 s so
 *                       that aging removes records) for MS milliseconds;
 *                       n_storm counts rounds
 *
 * A frame's flow index is 100 + the last byte of its IPv4 destination.
 * Records are filled as the peers lay them out (quor_peer.h).
 */
#include <linux/delay.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/skbuff.h>
#include <asm/unaligned.h>

#include "quor_vendor.h"
#include "quor_peer.h"

static int answer = 1;
module_param(answer, int, 0644);
static uint n_storm;
module_param(n_storm, uint, 0444);

static char probe_out[64];	/* under the parameters' lock */
static struct task_struct *storm_task;
static unsigned long storm_end;

/* ---- the forwarding driver ---- */

static int probe_foe(struct sk_buff *skb)
{
	const u8 *mac = skb_mac_header(skb);
	unsigned int len = skb_tail_pointer(skb) - mac, off = 12;

	while (off + 2 <= len && (get_unaligned_be16(mac + off) == ETH_P_8021Q ||
				  get_unaligned_be16(mac + off) == ETH_P_8021AD))
		off += 4;
	if (off + 22 > len || get_unaligned_be16(mac + off) != ETH_P_IP)
		return -1;
	return 100 + mac[off + 21];	/* last byte of the destination */
}

static int probe_is_entry(int index, unsigned char *grp, unsigned char *src,
			  int is_ipv6)
{
	return READ_ONCE(answer);
}

static int probe_drop_packet(struct sk_buff *skb)
{
	return 1;
}

/* The driver reads a flow record at these offsets; the outcome to @out. */
static void probe_find(int index, char *out, size_t n)
{
	struct hwnat_flow_entry *(*find)(int index);
	const u8 *rec = NULL;

	local_bh_disable();
	find = READ_ONCE(multicast_speed_find_entry_hook);
	if (find)
		rec = (const u8 *)find(index);
	if (rec)
		snprintf(out, n, "index=%d mask=0x%llx",
			 *(const s32 *)(rec + QUOR_PEER_FLOW_INDEX),
			 *(const u64 *)(rec + QUOR_PEER_FLOW_MASK));
	else
		strscpy(out, "none", n);
	local_bh_enable();
}

/* ---- the storm ---- */

/*
 * A busy engine until storm_end: look-ups, every 4th round a bound flow of
 * a multicast frame reported, and answers flipped every 2 s so that aging
 * removes records.
 */
static int probe_storm(void *unused)
{
	static const u8 mac[6] = { 0x01, 0x00, 0x5e, 0x14, 0x00, 0x01 };
	int (*learn)(struct sk_buff *skb);
	unsigned long flip = jiffies;
	struct sk_buff *skb;
	char out[64];

	while (!kthread_should_stop()) {
		if (time_after(jiffies, storm_end)) {
			WRITE_ONCE(answer, 1);
			msleep(20);
			continue;
		}
		if (time_after(jiffies, flip + 2 * HZ)) {
			flip = jiffies;
			WRITE_ONCE(answer, !READ_ONCE(answer));
		}
		probe_find(101 + n_storm % 8, out, sizeof(out));
		skb = n_storm % 4 ? NULL : alloc_skb(64, GFP_KERNEL);
		if (skb) {
			skb_put_data(skb, mac, 6);
			skb_put_zero(skb, 54);
			skb_reset_mac_header(skb);
			local_bh_disable();
			learn = READ_ONCE(xpon_igmp_learn_flow_hook);
			if (learn)
				learn(skb);
			local_bh_enable();
			kfree_skb(skb);
		}
		WRITE_ONCE(n_storm, n_storm + 1);
		usleep_range(500, 1000);
	}
	return 0;
}

/* ---- requests ---- */

static int probe_cmd_set(const char *val, const struct kernel_param *kp)
{
	struct quor_peer_mc mc = {};
	struct quor_peer_entry e = {
		.grp_ip.addr = { 239, 10, 10, 10 },
		.grp_mac = { 0x01, 0x00, 0x5e, 0x0a, 0x0a, 0x0a },
		.vlan = 100, .outer_tpid = ETH_P_8021Q, .inner_tci = 0x0fff,
	};
	uint a, b, c;
	int hook;

	if (sscanf(val, "find %d", &hook) == 1) {
		probe_find(hook, probe_out, sizeof(probe_out));
		return 0;
	}
	if (sscanf(val, "storm %u", &a) == 1 && !storm_task) {
		storm_end = jiffies + msecs_to_jiffies(a);
		storm_task = kthread_run(probe_storm, NULL, "jix_probe_storm");
		return PTR_ERR_OR_ZERO(storm_task);
	}
	if (sscanf(val, "add %u %u %x", &a, &b, &c) != 3)
		return -EINVAL;
	e.port = a;
	e.vlan_mode = b;
	e.outer_tci = c;
	mc.api_function_id = QUOR_PEER_OP_ENTRY_ADD;
	mc.param.ptr = &e;
	mc.result = -12345;	/* shows whether the dispatcher wrote it */
	local_bh_disable();
	hook = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	local_bh_enable();
	snprintf(probe_out, sizeof(probe_out), "hook=%d result=%d", hook,
		 mc.result);
	return 0;
}

static int probe_cmd_get(char *buf, const struct kernel_param *kp)
{
	return scnprintf(buf, PAGE_SIZE, "%s\n", probe_out);
}

static const struct kernel_param_ops probe_cmd_ops = {
	.set = probe_cmd_set,
	.get = probe_cmd_get,
};
module_param_cb(cmd, &probe_cmd_ops, NULL, 0644);

static void probe_hooks(bool on)
{
	WRITE_ONCE(hwnat_skb_to_foe_hook, on ? probe_foe : NULL);
	WRITE_ONCE(hwnat_is_multicast_entry_hook, on ? probe_is_entry : NULL);
	WRITE_ONCE(hwnat_is_drop_entry_hook, on ? probe_is_entry : NULL);
	WRITE_ONCE(ux_sw_nat_hook_drop_packet, on ? probe_drop_packet : NULL);
}

static int __init jix_probe_init(void)
{
	probe_hooks(true);
	return 0;
}

/* Unloaded after jix_xpon_multicast, whose timers call the driver. */
static void __exit jix_probe_exit(void)
{
	if (!IS_ERR_OR_NULL(storm_task))
		kthread_stop(storm_task);
	probe_hooks(false);
	synchronize_rcu();	/* callers run in softirq context */
}

module_init(jix_probe_init);
module_exit(jix_probe_exit);
MODULE_DESCRIPTION("peers of jix_xpon_multicast for its QEMU tests");
MODULE_LICENSE("GPL");
