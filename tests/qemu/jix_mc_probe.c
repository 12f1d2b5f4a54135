// SPDX-License-Identifier: GPL-2.0
/*
 * jix_mc_probe: a stand-in for the snooping control plane in the QEMU
 * tests.  At load it calls the multicast module's control API hook the way
 * another kernel module does (__QUOR_HOOK, type 36, sub-type 2) and logs
 * what came back, one line per call, for the guest script to grep:
 *
 *   jix_mc_probe: add <group> port=<p> result=<r> hook=<h>
 *   jix_mc_probe: xmit port=<p> len=<n> result=<r> hook=<h>
 *
 * <h> is the hook's return (1 when an operation ran), <r> the operation's
 * status in the hook record (2 done, -1 refused).  Load it once per action and
 * unload it again.
 *
 * With rx_cb=1 it stays the control plane's receive callback while loaded
 * (API operation 0), logging every query it is given and answering
 * cb_answer (0: do not relay), which may be changed at run time:
 *
 *   jix_mc_probe: query port=<p> len=<n> first=<first 6 bytes>
 *
 * With vh_grp=<IPv4 group> it hands vh_count switch-tagged UDP data frames
 * to API operation 3 (software VLAN handling and replication), switch tag
 * value vh_stag, VLAN id vh_vid when the tag says the frame had one:
 *
 *   jix_mc_probe: vlan_handle <group> stag=<v> sent=<n> result=<r> hook=<h>
 *
 * With op=<n> it makes one call of API operation 2 or 5 to 14 with the
 * add_* entry (5, 6), op_arg as port (7), filter mode (10), snooping
 * flag (12) or port type (14, for device op_name), or a switch-tagged
 * frame to vh_grp (2), and logs what came back:
 *
 *   jix_mc_probe: op <n> result=<r> hook=<h> out=<value>
 *
 * out is what the operation wrote: the mode (11), the flag (13), the
 * number of records (9, for port op_arg), or whether operation 2 gave the
 * frame back as it came ("same"/"changed").
 *
 * With storm_ms=<n> a thread of its own calls operations 3 to 13 in turn
 * on groups 239.20.0.1..8 and ports 0..3 for n milliseconds (the guest's
 * concurrency test), counting the calls in n_storm; it ends at unload.
 */
#include <linux/delay.h>
#include <linux/inet.h>
#include <linux/kthread.h>
#include <linux/ip.h>
#include <net/checksum.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "quor_vendor.h"
#include "quor_peer.h"
#include "jix_probe_frame.h"

static char *add_grp;
module_param(add_grp, charp, 0444);
MODULE_PARM_DESC(add_grp, "add an entry for this IPv4 or IPv6 group (API operation 4)");
static char *add_mac;
module_param(add_mac, charp, 0444);
MODULE_PARM_DESC(add_mac, "group MAC of the entry (default: derived from the group)");
static int add_port;
module_param(add_port, int, 0444);
static int add_vlan = -1;
module_param(add_vlan, int, 0444);
static int add_mode;
module_param(add_mode, int, 0444);

static int xmit_port = -1;
module_param(xmit_port, int, 0444);
MODULE_PARM_DESC(xmit_port, "send the test frame out of this port (API operation 1)");
static uint xmit_len = JIX_PROBE_LEN;
module_param(xmit_len, uint, 0444);
static int xmit_flags;
module_param(xmit_flags, int, 0444);

static bool rx_cb;
module_param(rx_cb, bool, 0444);
MODULE_PARM_DESC(rx_cb, "be the receive callback for queries while loaded");
static int cb_answer = 1;
module_param(cb_answer, int, 0644);
static uint n_queries;
module_param(n_queries, uint, 0444);

static char *vh_grp;
module_param(vh_grp, charp, 0444);
MODULE_PARM_DESC(vh_grp, "hand switch-tagged frames to this group to API operation 3");
static uint vh_stag = 0x0100;
module_param(vh_stag, uint, 0444);
static uint vh_vid = 100;
module_param(vh_vid, uint, 0444);
static uint vh_count = 10;
module_param(vh_count, uint, 0444);

static int op = -1;
module_param(op, int, 0444);
static int op_arg;
module_param(op_arg, int, 0444);
static char *op_name;
module_param(op_name, charp, 0444);

static uint storm_ms;
module_param(storm_ms, uint, 0444);
static uint n_storm;
module_param(n_storm, uint, 0444);
static struct task_struct *storm_task;

/* Returns the hook's result; the operation's status goes to *result. */
static int probe_api(struct quor_peer_mc *mc, int *result)
{
	int hook;

	mc->result = -12345;	/* shows whether the dispatcher wrote it */
	hook = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, mc);
	*result = mc->result;
	return hook;
}

/* The MAC of a group: 01:00:5e + low 23 bits, or 33:33 + low 32 bits. */
static void probe_group_mac(const struct quor_peer_addr *g, u8 mac[6])
{
	if (g->isipv6) {
		mac[0] = 0x33;
		mac[1] = 0x33;
		memcpy(mac + 2, g->addr + 12, 4);
	} else {
		mac[0] = 0x01;
		mac[1] = 0x00;
		mac[2] = 0x5e;
		mac[3] = g->addr[1] & 0x7f;
		mac[4] = g->addr[2];
		mac[5] = g->addr[3];
	}
}

/* The entry described by the add_* parameters. */
static int probe_entry(struct quor_peer_entry *e_out)
{
	struct quor_peer_entry e;

	memset(&e, 0, sizeof(e));
	if (!add_grp)
		return -EINVAL;
	if (in4_pton(add_grp, -1, e.grp_ip.addr, -1, NULL)) {
		e.grp_ip.isipv6 = 0;
	} else if (in6_pton(add_grp, -1, e.grp_ip.addr, -1, NULL)) {
		e.grp_ip.isipv6 = 1;
		e.src_ip.isipv6 = 1;
	} else {
		pr_err("jix_mc_probe: bad group %s\n", add_grp);
		return -EINVAL;
	}
	if (add_mac) {
		if (!mac_pton(add_mac, e.grp_mac)) {
			pr_err("jix_mc_probe: bad MAC %s\n", add_mac);
			return -EINVAL;
		}
	} else {
		probe_group_mac(&e.grp_ip, e.grp_mac);
	}
	e.port = (u8)add_port;
	e.vlan = (s16)add_vlan;
	e.vlan_mode = (u32)add_mode;
	*e_out = e;
	return 0;
}

static int probe_add(void)
{
	struct quor_peer_entry e;
	struct quor_peer_mc mc;
	int hook, result, ret;

	ret = probe_entry(&e);
	if (ret)
		return ret;
	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = QUOR_PEER_OP_ENTRY_ADD;
	mc.param.ptr = &e;
	hook = probe_api(&mc, &result);
	printk("jix_mc_probe: add %s port=%d result=%d hook=%d\n", add_grp,
	       add_port, result, hook);
	return 0;
}

static int probe_xmit(void)
{
	struct quor_peer_mc mc;
	int hook, result;
	u8 *frame;
	uint i;

	if (xmit_len > JIX_PROBE_MAX_LEN)
		return -EINVAL;
	frame = kmalloc(xmit_len ? xmit_len : 1, GFP_KERNEL);
	if (!frame)
		return -ENOMEM;
	for (i = 0; i < xmit_len; i++)
		frame[i] = jix_probe_frame_byte(i, (unsigned int)xmit_port);

	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = QUOR_PEER_OP_XMIT;
	mc.param.bytes[0] = (u8)xmit_port;
	mc.param.bytes[1] = (u8)xmit_flags;
	mc.param2 = frame;
	mc.param3 = xmit_len;
	hook = probe_api(&mc, &result);
	/* The module copies the bytes: the frame stays ours. */
	kfree(frame);
	printk("jix_mc_probe: xmit port=%d len=%u result=%d hook=%d\n",
	       xmit_port, xmit_len, result, hook);
	return 0;
}

static void probe_put16(u8 *p, u16 v)
{
	p[0] = v >> 8;
	p[1] = v & 0xff;
}

/*
 * A frame as it comes up from the switch: group MAC, the source MAC that
 * jixstream counts, the switch tag in the type position (followed by the
 * TCI when the tag says the frame had a VLAN tag, by 0x0000 for type 0),
 * then IPv4 and UDP to port 5001 with the JIXSTREAM payload.
 */
static struct sk_buff *probe_stag_frame(const u8 grp[4], unsigned int seq)
{
	static const u8 src[6] = { 0x02, 0x4a, 0x49, 0x58, 0x53, 0x54 };
	struct sk_buff *skb = alloc_skb(64 + 128, GFP_KERNEL);
	u8 *f, *ip, *udp;
	unsigned int kind = (vh_stag >> 8) & 3;

	if (!skb)
		return NULL;
	skb_reserve(skb, 64);
	f = skb_put_zero(skb, 18 + 20 + 8 + 32);
	f[0] = 0x01;
	f[1] = 0x00;
	f[2] = 0x5e;
	f[3] = grp[1] & 0x7f;
	f[4] = grp[2];
	f[5] = grp[3];
	memcpy(f + 6, src, 6);
	probe_put16(f + 12, (u16)vh_stag);
	probe_put16(f + 14, kind == 0 ? 0 : (u16)vh_vid);
	probe_put16(f + 16, ETH_P_IP);
	ip = f + 18;
	ip[0] = 0x45;
	probe_put16(ip + 2, 20 + 8 + 32);
	ip[8] = 1;
	ip[9] = IPPROTO_UDP;
	ip[12] = 10;
	ip[15] = 1;
	memcpy(ip + 16, grp, 4);
	probe_put16(ip + 10, ip_fast_csum(ip, 5));
	udp = ip + 20;
	probe_put16(udp, 5000);
	probe_put16(udp + 2, 5001);
	probe_put16(udp + 4, 8 + 32);
	snprintf((char *)udp + 8, 32, "JIXSTREAM %u", seq);
	skb_reset_mac_header(skb);
	return skb;
}

static int probe_vlan_handle(void)
{
	int hook = -1, result = 0, sent = 0;
	struct quor_peer_mc mc;
	u8 grp[4];
	uint i;

	if (!in4_pton(vh_grp, -1, grp, -1, NULL)) {
		pr_err("jix_mc_probe: bad group %s\n", vh_grp);
		return -EINVAL;
	}
	for (i = 0; i < vh_count; i++) {
		struct sk_buff *skb = probe_stag_frame(grp, i);

		if (!skb)
			return -ENOMEM;
		memset(&mc, 0, sizeof(mc));
		mc.api_function_id = QUOR_PEER_OP_VLAN_HANDLE;
		mc.skb = skb;
		/* The operation runs in the receive path on a real box. */
		local_bh_disable();
		hook = probe_api(&mc, &result);
		local_bh_enable();
		if (hook != 1)
			kfree_skb(skb);	/* no operation ran: still ours */
		else
			sent++;
	}
	printk("jix_mc_probe: vlan_handle %s stag=0x%04x sent=%d result=%d hook=%d\n",
	       vh_grp, vh_stag, sent, result, hook);
	return 0;
}

/* Operation 2 on a switch-tagged frame: 1:N or not, frame given back. */
static int probe_op2(struct quor_peer_mc *mc, const char **out)
{
	struct sk_buff *skb;
	u8 grp[4], before[96];
	int hook, result;

	if (!vh_grp || !in4_pton(vh_grp, -1, grp, -1, NULL))
		return -EINVAL;
	skb = probe_stag_frame(grp, 0);
	if (!skb)
		return -ENOMEM;
	memcpy(before, skb->data, min_t(unsigned int, skb->len, sizeof(before)));
	mc->skb = skb;
	local_bh_disable();
	hook = probe_api(mc, &result);
	local_bh_enable();
	*out = skb->len <= sizeof(before) &&
	       !memcmp(before, skb->data, skb->len) ? "same" : "changed";
	kfree_skb(skb);	/* operation 2 gives the frame back */
	printk("jix_mc_probe: op 2 result=%d hook=%d out=%s\n", result, hook,
	       *out);
	return 0;
}

static int probe_op(void)
{
	struct quor_peer_entry e, recs[8];
	struct quor_peer_get_req req;
	struct quor_peer_mc mc;
	const char *out = "-";
	u32 word = (u32)op_arg;
	u8 byte = (u8)op_arg;
	int hook, result, ret;
	char num[16];

	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = (u32)op;
	switch (op) {
	case QUOR_PEER_OP_VLAN_IS_ONE_TO_N:
		return probe_op2(&mc, &out);
	case QUOR_PEER_OP_ENTRY_DEL:
	case QUOR_PEER_OP_ENTRY_UPDATE:
		ret = probe_entry(&e);
		if (ret)
			return ret;
		mc.param.ptr = &e;
		break;
	case QUOR_PEER_OP_CLEAR_BY_PORT:
		mc.param.bytes[0] = byte;
		break;
	case QUOR_PEER_OP_CLEAR_ALL:
		break;
	case QUOR_PEER_OP_ENTRY_GET:
		memset(&req, 0, sizeof(req));
		req.port_id = byte;
		req.entry_num = ARRAY_SIZE(recs);
		req.entries = recs;
		mc.param.ptr = &req;
		break;
	case QUOR_PEER_OP_SET_FILTER_MODE:
	case QUOR_PEER_OP_GET_FILTER_MODE:
		mc.param.ptr = &word;
		break;
	case QUOR_PEER_OP_SET_SNOOPING:
	case QUOR_PEER_OP_GET_SNOOPING:
		mc.param.ptr = &byte;
		break;
	case QUOR_PEER_OP_SET_PORT_TYPE:
		mc.param.val = word;
		mc.param2 = op_name;
		break;
	default:
		return -EINVAL;
	}
	hook = probe_api(&mc, &result);
	if (op == QUOR_PEER_OP_ENTRY_GET)
		snprintf(num, sizeof(num), "%d", req.entry_num);
	else if (op == QUOR_PEER_OP_GET_FILTER_MODE)
		snprintf(num, sizeof(num), "%u", word);
	else if (op == QUOR_PEER_OP_GET_SNOOPING)
		snprintf(num, sizeof(num), "%u", byte);
	else
		strscpy(num, out, sizeof(num));
	printk("jix_mc_probe: op %d result=%d hook=%d out=%s\n", op, result,
	       hook, num);
	return 0;
}

/* One call of the storm: step @i picks the operation and its entry. */
static void probe_storm_step(unsigned int i)
{
	struct quor_peer_entry e, recs[8];
	struct quor_peer_get_req req;
	struct sk_buff *skb;
	struct quor_peer_mc mc;
	unsigned int round = i / 16;
	u32 mode = round & 8 ? 5 : 4;
	u8 flag = !(round & 4);
	int hook, result;

	memset(&e, 0, sizeof(e));
	e.grp_ip.addr[0] = 239;
	e.grp_ip.addr[1] = 20;
	e.grp_ip.addr[3] = 1 + (i * 7) % 8;
	probe_group_mac(&e.grp_ip, e.grp_mac);
	e.port = (i / 3) % 4;
	e.vlan = 100;
	e.vlan_mode = i & 1 ? 3 : 0;
	memset(&mc, 0, sizeof(mc));
	mc.param.ptr = &e;
	switch (i % 16) {
	case 6: case 7:
		mc.api_function_id = QUOR_PEER_OP_ENTRY_DEL;
		break;
	case 8: case 9:
		mc.api_function_id = QUOR_PEER_OP_ENTRY_UPDATE;
		break;
	case 10:
		mc.api_function_id = QUOR_PEER_OP_CLEAR_BY_PORT;
		mc.param.bytes[0] = e.port;
		break;
	case 11:
		memset(&req, 0, sizeof(req));
		req.port_id = e.port;
		req.entry_num = ARRAY_SIZE(recs);
		req.entries = recs;
		mc.api_function_id = QUOR_PEER_OP_ENTRY_GET;
		mc.param.ptr = &req;
		break;
	case 12:
		skb = probe_stag_frame(e.grp_ip.addr, i);
		if (!skb)
			return;
		mc.api_function_id = QUOR_PEER_OP_VLAN_HANDLE;
		mc.skb = skb;
		local_bh_disable();
		hook = probe_api(&mc, &result);
		local_bh_enable();
		if (hook != 1)
			kfree_skb(skb);
		return;
	case 13:
		mc.api_function_id = QUOR_PEER_OP_SET_FILTER_MODE;
		mc.param.ptr = &mode;
		break;
	case 14:
		mc.api_function_id = QUOR_PEER_OP_SET_SNOOPING;
		mc.param.ptr = &flag;
		break;
	case 15:
		mc.api_function_id = round & 3 ? QUOR_PEER_OP_GET_SNOOPING :
						 QUOR_PEER_OP_CLEAR_ALL;
		mc.param.ptr = &flag;
		break;
	default:
		mc.api_function_id = QUOR_PEER_OP_ENTRY_ADD;
		break;
	}
	probe_api(&mc, &result);
}

static int probe_storm(void *unused)
{
	unsigned long end = jiffies + msecs_to_jiffies(storm_ms);
	unsigned int i = 0;

	while (!kthread_should_stop()) {
		if (time_after(jiffies, end)) {
			msleep(20);
			continue;
		}
		probe_storm_step(i++);
		WRITE_ONCE(n_storm, i);
		usleep_range(500, 1000);
	}
	return 0;
}

static int probe_rx(u8 port, u8 *frame, u32 len)
{
	WRITE_ONCE(n_queries, READ_ONCE(n_queries) + 1);
	printk("jix_mc_probe: query port=%u len=%u first=%6phC\n", port, len,
	       frame);
	return READ_ONCE(cb_answer);
}

typedef int (*probe_rx_fn)(u8 port, u8 *frame, u32 len);

static int probe_set_cb(probe_rx_fn fn)
{
	struct quor_peer_mc mc;
	int hook, result;

	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = QUOR_PEER_OP_SET_RECV_CB;
	mc.param.ptr = &fn;
	hook = probe_api(&mc, &result);
	printk("jix_mc_probe: recv_cb %s result=%d hook=%d\n",
	       fn ? "set" : "cleared", result, hook);
	return hook == 1 && result == 2 ? 0 : -EIO;
}

static int __init jix_mc_probe_init(void)
{
	int ret = 0;

	if (rx_cb)
		ret = probe_set_cb(probe_rx);
	if (!ret && add_grp && op < 0)
		ret = probe_add();
	if (!ret && xmit_port >= 0)
		ret = probe_xmit();
	if (!ret && op >= 0)
		ret = probe_op();
	else if (!ret && vh_grp)
		ret = probe_vlan_handle();
	if (!ret && storm_ms) {
		storm_task = kthread_run(probe_storm, NULL, "jix_mc_storm");
		if (IS_ERR(storm_task))
			ret = PTR_ERR(storm_task);
	}
	return ret;
}

static void __exit jix_mc_probe_exit(void)
{
	if (storm_task)
		kthread_stop(storm_task);
	if (!rx_cb)
		return;
	probe_set_cb(NULL);
	/* The callback is called from the receive path (softirq). */
	synchronize_rcu();
}

module_init(jix_mc_probe_init);
module_exit(jix_mc_probe_exit);
MODULE_DESCRIPTION("control API caller for the jix_xpon_multicast QEMU tests");
MODULE_LICENSE("GPL");
