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
 *   foe_base  flow index of a frame: foe_base + the last byte of its IPv4
 *             destination (negative: frames have none)
 *   answer    what "is this still a multicast / drop entry?" answers
 *   cmd       write one request, read back its outcome:
 *     add PORT MODE OTCI  API add of 239.10.10.10 in VLAN 100 on PORT, outer
 *                       tag 0x8100 with OTCI -> "hook=H result=R"
 *     xmit PORT LEN     API transmit of the test frame -> "hook=H result=R"
 *     find INDEX        the module's record of a flow, read at the driver's
 *                       offsets -> "index=I mask=0xM" or "none"
 *     storm MS          a thread calls API operations 3 to 13 and plays a
 *                       busy engine (record look-ups, bound-flow reports,
 *                       answers flipped every 2 s so that aging removes
 *                       records) for MS milliseconds; n_storm counts rounds
 *
 * The test frame: destination 01:00:5e:7f:4a:58, source
 * 02:4a:49:58:53:54, type 0x88b5, then byte i = i * 7 + port.
 * Records are filled as the peers lay them out (quor_peer.h).
 */
#include <linux/delay.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/skbuff.h>
#include <asm/unaligned.h>

#include "quor_vendor.h"
#include "quor_peer.h"

static int foe_base = 100;
module_param(foe_base, int, 0644);
static int answer = 1;
module_param(answer, int, 0644);
static uint n_storm;
module_param(n_storm, uint, 0444);

/* The test frame's head; the stream's source MAC. */
static const u8 probe_head[14] = { 0x01, 0x00, 0x5e, 0x7f, 0x4a, 0x58, 0x02,
				   0x4a, 0x49, 0x58, 0x53, 0x54, 0x88, 0xb5 };
static char probe_out[64];	/* under the parameters' lock */
static struct task_struct *storm_task;
static unsigned long storm_end;

/* ---- the forwarding driver ---- */

static int probe_foe(struct sk_buff *skb)
{
	const u8 *mac = skb_mac_header(skb);
	unsigned int len = skb_tail_pointer(skb) - mac, off = 12;
	int base = READ_ONCE(foe_base);

	while (off + 2 <= len && (get_unaligned_be16(mac + off) == ETH_P_8021Q ||
				  get_unaligned_be16(mac + off) == ETH_P_8021AD))
		off += 4;
	if (base < 0 || off + 22 > len || get_unaligned_be16(mac + off) != ETH_P_IP)
		return -1;
	return base + mac[off + 21];	/* last byte of the destination */
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

/* ---- frames and API calls ---- */

/*
 * UDP data to 239.20.0.@last from 10.0.0.1; with @stag the switch tag and
 * a TCI of VLAN 100 stand between the MAC addresses and the type.
 */
static struct sk_buff *probe_frame(u8 last, u16 stag)
{
	static const u8 ip[30] = { 0x08, 0x00, 0x45, 0, 0, 60, 0, 0, 0x40, 0, 1,
				   IPPROTO_UDP, 0, 0, 10, 0, 0, 1, 239, 20, 0, 0,
				   0x13, 0x88, 0x13, 0x89, 0, 40, 0, 0 };
	struct sk_buff *skb = alloc_skb(192, GFP_KERNEL);
	unsigned int hl = stag ? 18 : 14;
	u8 *f;

	if (!skb)
		return NULL;
	skb_reserve(skb, 64);
	f = skb_put_zero(skb, hl + 60);
	memcpy(f, probe_head, 12);
	f[3] = 20;
	f[4] = 0;
	f[5] = last;
	put_unaligned_be16(stag, f + 12);
	put_unaligned_be16(100, f + 14);
	memcpy(f + hl - 2, ip, sizeof(ip));
	f[hl + 19] = last;
	skb_reset_mac_header(skb);
	skb->protocol = htons(ETH_P_IP);
	return skb;
}

static int probe_api(struct quor_peer_mc *mc)
{
	int hook;

	mc->result = -12345;	/* shows whether the dispatcher wrote it */
	local_bh_disable();
	hook = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, mc);
	local_bh_enable();
	return hook;
}

static void probe_entry(struct quor_peer_entry *e, const u8 grp[4], u8 port)
{
	memset(e, 0, sizeof(*e));
	memcpy(e->grp_ip.addr, grp, 4);
	memcpy(e->grp_mac, probe_head, 3);
	memcpy(e->grp_mac + 3, grp + 1, 3);
	e->grp_mac[3] &= 0x7f;
	e->port = port;
	e->vlan = 100;
	e->inner_tci = 0x0fff;	/* no inner tag */
}

static int probe_xmit(struct quor_peer_mc *mc, uint port, uint len)
{
	u8 *frame = len <= 2048 ? kmalloc(max(len, 1U), GFP_KERNEL) : NULL;
	uint i;
	int hook;

	if (!frame)
		return -EINVAL;
	for (i = 0; i < len; i++)
		frame[i] = i < 14 ? probe_head[i] : i * 7 + port;
	mc->api_function_id = QUOR_PEER_OP_XMIT;
	mc->param.bytes[0] = port;
	mc->param2 = frame;
	mc->param3 = len;
	hook = probe_api(mc);
	kfree(frame);	/* the module sends a copy */
	return hook;
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
 * One API call of step @i: operations 3 to 13 in turn.  Operations 10 to
 * 13 read or write @v, the filter mode as u32 or the flag as its low byte.
 */
static void probe_storm_api(unsigned int i)
{
	u8 grp[4] = { 239, 20, 0, 1 + (i * 7) % 8 };
	unsigned int op = QUOR_PEER_OP_VLAN_HANDLE + i % 11;
	struct quor_peer_entry e, recs[8];
	struct quor_peer_get_req req = { .entries = recs, .entry_num = 8 };
	struct quor_peer_mc mc = { .api_function_id = op };
	u32 v = op <= QUOR_PEER_OP_GET_FILTER_MODE ? 4 + !!(i & 0x80) : !(i & 0x40);

	probe_entry(&e, grp, (i / 3) % 4);
	e.vlan_mode = i & 1 ? 3 : 0;
	req.port_id = e.port;
	mc.param.ptr = op <= QUOR_PEER_OP_ENTRY_UPDATE ? (void *)&e :
		       op == QUOR_PEER_OP_ENTRY_GET ? (void *)&req : &v;
	if (op == QUOR_PEER_OP_CLEAR_BY_PORT) {
		mc.param.ptr = NULL;
		mc.param.bytes[0] = e.port;
	}
	if (op == QUOR_PEER_OP_VLAN_HANDLE) {
		mc.skb = probe_frame(grp[3], 0x0100);
		if (!mc.skb)
			return;
	}
	if (probe_api(&mc) != 1 && mc.skb)
		kfree_skb(mc.skb);	/* no operation ran: still ours */
}

/* The engine's side: look-ups and a bound flow reported every 4th round. */
static void probe_storm_engine(unsigned int i)
{
	struct sk_buff *skb = i % 4 ? NULL : probe_frame(1 + i % 8, 0);
	int (*learn)(struct sk_buff *skb);
	char out[64];

	probe_find(101 + i % 8, out, sizeof(out));
	local_bh_disable();
	learn = READ_ONCE(xpon_igmp_learn_flow_hook);
	if (learn && skb)
		learn(skb);
	local_bh_enable();
	kfree_skb(skb);
}

static int probe_storm(void *unused)
{
	unsigned long flip = jiffies;
	unsigned int i = 0;

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
		probe_storm_api(i);
		probe_storm_engine(i++);
		WRITE_ONCE(n_storm, i);
		usleep_range(500, 1000);
	}
	return 0;
}

/* ---- requests ---- */

static int probe_cmd_set(const char *val, const struct kernel_param *kp)
{
	struct quor_peer_mc mc = {};
	struct quor_peer_entry e;
	static const u8 grp[4] = { 239, 10, 10, 10 };
	uint a, b, c;
	int hook;

	if (sscanf(val, "add %u %u %x", &a, &b, &c) == 3) {
		probe_entry(&e, grp, a);
		e.vlan_mode = b;
		e.outer_tpid = ETH_P_8021Q;
		e.outer_tci = c;
		mc.api_function_id = QUOR_PEER_OP_ENTRY_ADD;
		mc.param.ptr = &e;
		hook = probe_api(&mc);
	} else if (sscanf(val, "xmit %u %u", &a, &b) == 2) {
		hook = probe_xmit(&mc, a, b);
	} else if (sscanf(val, "find %d", &hook) == 1) {
		probe_find(hook, probe_out, sizeof(probe_out));
		return 0;
	} else if (sscanf(val, "storm %u", &a) == 1 && !storm_task) {
		storm_end = jiffies + msecs_to_jiffies(a);
		storm_task = kthread_run(probe_storm, NULL, "jix_probe_storm");
		return PTR_ERR_OR_ZERO(storm_task);
	} else {
		return -EINVAL;
	}
	if (hook < -1)
		return hook;
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
