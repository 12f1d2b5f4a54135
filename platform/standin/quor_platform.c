// SPDX-License-Identifier: GPL-2.0
/*
 * quor_platform: what the vendor kernel provides to the multicast module,
 * for mainline kernels.
 *
 * - The hook framework: registration records on an RCU list, and
 *   __QUOR_HOOK() to call the hook of a (type, subtype).
 * - The hardware forwarding driver's function pointers, unset here since
 *   there is no forwarding engine, and the pointers the module installs.
 * - The socket-buffer manager's 2 KiB buffers.
 * - The framework services the module calls: the counter pool (type 20),
 *   counter read/clear (type 19) over 64 software counters, and the
 *   switch port of a LAN port (type 23).
 * - The network driver's receive side on the uplink (quor_rx.c).
 */
#include "quor_vendor.h"
#include "quor_rx.h"

#include <linux/bitmap.h>
#include <linux/rculist.h>
#include <linux/rcupdate.h>

/* ---- hook framework ---- */

/*
 * Registered hooks, by ascending priority, then in registration order.
 * Writers take quor_hooks_lock; __QUOR_HOOK() walks under RCU only.
 */
static LIST_HEAD(quor_hooks);
static DEFINE_SPINLOCK(quor_hooks_lock);

/* Caller holds quor_hooks_lock. */
static bool quor_hook_listed(const struct quor_hook_ops *ops)
{
	struct quor_hook_ops *pos;

	list_for_each_entry(pos, &quor_hooks, list)
		if (pos == ops)
			return true;
	return false;
}

/*
 * Add @ops.  Returns 0, -EINVAL for a record without a function, or
 * -EEXIST when @ops is registered already.
 */
int quor_register_hook(struct quor_hook_ops *ops)
{
	struct list_head *at = &quor_hooks;
	struct quor_hook_ops *pos;
	int ret = 0;

	if (!ops || !ops->hookfn)
		return -EINVAL;
	spin_lock_bh(&quor_hooks_lock);
	if (quor_hook_listed(ops)) {
		ret = -EEXIST;
		goto out;
	}
	list_for_each_entry(pos, &quor_hooks, list) {
		if (pos->priority > ops->priority) {
			at = &pos->list;
			break;
		}
	}
	list_add_tail_rcu(&ops->list, at);
out:
	spin_unlock_bh(&quor_hooks_lock);
	return ret;
}
EXPORT_SYMBOL(quor_register_hook);

/*
 * Remove @ops and wait until no call of it is running.  Sleeps: process
 * context only, and never from within a hook.
 */
void quor_unregister_hook(struct quor_hook_ops *ops)
{
	bool listed;

	if (!ops)
		return;
	spin_lock_bh(&quor_hooks_lock);
	listed = quor_hook_listed(ops);
	if (listed)
		list_del_rcu(&ops->list);
	spin_unlock_bh(&quor_hooks_lock);
	if (listed)
		synchronize_rcu();
}
EXPORT_SYMBOL(quor_unregister_hook);

/*
 * Call the first hook of (@type, @subtype).  Never sleeps and holds no
 * lock while the hook runs, so hooks may call __QUOR_HOOK() themselves.
 * Returns the hook's result, -1 when none is registered.
 */
int __QUOR_HOOK(unsigned int type, unsigned int subtype, void *data)
{
	struct quor_hook_ops *ops;
	int ret = -1;

	rcu_read_lock();
	list_for_each_entry_rcu(ops, &quor_hooks, list) {
		if (ops->hook_type == type && ops->hook_subtype == subtype) {
			ret = ops->hookfn(data);
			break;
		}
	}
	rcu_read_unlock();
	return ret;
}
EXPORT_SYMBOL(__QUOR_HOOK);

/* ---- buffer manager ---- */

#define QUOR_SKB2K_SIZE		2048

/* A buffer with at least 2 KiB of tailroom.  Never sleeps; NULL on failure. */
struct sk_buff *skbmgr_alloc_skb2k(void)
{
	return dev_alloc_skb(QUOR_SKB2K_SIZE);
}
EXPORT_SYMBOL(skbmgr_alloc_skb2k);

/* ---- hardware forwarding driver pointers ---- */

int (*hwnat_skb_to_foe_hook)(struct sk_buff *skb);
EXPORT_SYMBOL(hwnat_skb_to_foe_hook);
int (*hwnat_is_multicast_entry_hook)(int index, unsigned char *grp,
				     unsigned char *src, int is_ipv6);
EXPORT_SYMBOL(hwnat_is_multicast_entry_hook);
int (*hwnat_is_drop_entry_hook)(int index, unsigned char *grp,
				unsigned char *src, int is_ipv6);
EXPORT_SYMBOL(hwnat_is_drop_entry_hook);
int (*hwnat_multicast_set_hwnat_info_hook)(int index, unsigned int mask,
					   int flag);
EXPORT_SYMBOL(hwnat_multicast_set_hwnat_info_hook);
int (*hwnat_delete_foe_entry_hook)(int index);
EXPORT_SYMBOL(hwnat_delete_foe_entry_hook);
int (*ux_sw_nat_hook_update_dp)(int index, int dp);
EXPORT_SYMBOL(ux_sw_nat_hook_update_dp);
int (*ux_sw_nat_hook_update_vlan)(int index, unsigned int outer_tag,
				  unsigned int inner_tag);
EXPORT_SYMBOL(ux_sw_nat_hook_update_vlan);
int (*ux_sw_nat_hook_drop_packet)(struct sk_buff *skb);
EXPORT_SYMBOL(ux_sw_nat_hook_drop_packet);

int (*xpon_igmp_learn_flow_hook)(struct sk_buff *skb);
EXPORT_SYMBOL(xpon_igmp_learn_flow_hook);
struct hwnat_flow_entry *(*multicast_speed_find_entry_hook)(int index);
EXPORT_SYMBOL(multicast_speed_find_entry_hook);
int (*multicast_hwnat_drop_entry_hook)(struct sk_buff *skb,
				       unsigned long long mask);
EXPORT_SYMBOL(multicast_hwnat_drop_entry_hook);

/* ---- framework services ---- */

/* Request records are byte layouts in host order; read them by offset. */
static u32 quor_rec_u32(const void *rec, size_t off)
{
	u32 v;

	memcpy(&v, (const u8 *)rec + off, sizeof(v));
	return v;
}

static void quor_rec_set_u32(void *rec, size_t off, u32 v)
{
	memcpy((u8 *)rec + off, &v, sizeof(v));
}

#define QUOR_CNT_NUM		64

struct quor_cnt {
	u64 bytes;
	u64 packets;
};

/*
 * Software counters standing in for the forwarding engine's.  Services
 * run in any context, with or without bottom halves disabled.
 */
static DEFINE_SPINLOCK(quor_cnt_lock);
static DECLARE_BITMAP(quor_cnt_taken, QUOR_CNT_NUM);
static struct quor_cnt quor_cnt[QUOR_CNT_NUM];

/* Counter pool (type 20): a 64-byte record. */
#define QUOR_POOL_CMD_TAKE	19
#define QUOR_POOL_CMD_GIVE	20
#define QUOR_POOL_OFF_CMD	0
#define QUOR_POOL_OFF_ID	56

/* Take: the lowest free counter, zeroed, answered at offset 56. */
static int quor_cnt_pool_take(void *rec)
{
	unsigned long flags;
	unsigned int id;

	spin_lock_irqsave(&quor_cnt_lock, flags);
	id = find_first_zero_bit(quor_cnt_taken, QUOR_CNT_NUM);
	if (id < QUOR_CNT_NUM) {
		__set_bit(id, quor_cnt_taken);
		memset(&quor_cnt[id], 0, sizeof(quor_cnt[id]));
	}
	spin_unlock_irqrestore(&quor_cnt_lock, flags);
	if (id >= QUOR_CNT_NUM)
		return -1;
	quor_rec_set_u32(rec, QUOR_POOL_OFF_ID, id);
	return 0;
}

static int quor_cnt_pool_give(void *rec)
{
	u32 id = quor_rec_u32(rec, QUOR_POOL_OFF_ID);
	unsigned long flags;
	int ret = -1;

	if (id >= QUOR_CNT_NUM)
		return -1;
	spin_lock_irqsave(&quor_cnt_lock, flags);
	if (__test_and_clear_bit(id, quor_cnt_taken))
		ret = 0;
	spin_unlock_irqrestore(&quor_cnt_lock, flags);
	return ret;
}

static int quor_cnt_pool_hook(void *rec)
{
	switch (quor_rec_u32(rec, QUOR_POOL_OFF_CMD)) {
	case QUOR_POOL_CMD_TAKE:
		return quor_cnt_pool_take(rec);
	case QUOR_POOL_CMD_GIVE:
		return quor_cnt_pool_give(rec);
	default:
		return -1;
	}
}

/* Counter request (type 19): a 256-byte record. */
#define QUOR_CNT_CMD_READ	90
#define QUOR_CNT_CMD_CLEAR	91
#define QUOR_CNT_OFF_CMD	0
#define QUOR_CNT_OFF_ID		80
#define QUOR_CNT_OFF_BYTES	104	/* low half, high half at +4 */
#define QUOR_CNT_OFF_PACKETS	112	/* low half, high half at +4 */

static void quor_rec_set_u64(void *rec, size_t off, u64 v)
{
	quor_rec_set_u32(rec, off, lower_32_bits(v));
	quor_rec_set_u32(rec, off + 4, upper_32_bits(v));
}

static int quor_cnt_req_hook(void *rec)
{
	unsigned int id = ((const u8 *)rec)[QUOR_CNT_OFF_ID];
	u32 cmd = quor_rec_u32(rec, QUOR_CNT_OFF_CMD);
	struct quor_cnt cnt;
	unsigned long flags;

	if (id >= QUOR_CNT_NUM ||
	    (cmd != QUOR_CNT_CMD_READ && cmd != QUOR_CNT_CMD_CLEAR))
		return -1;
	spin_lock_irqsave(&quor_cnt_lock, flags);
	cnt = quor_cnt[id];
	if (cmd == QUOR_CNT_CMD_CLEAR)
		memset(&quor_cnt[id], 0, sizeof(quor_cnt[id]));
	spin_unlock_irqrestore(&quor_cnt_lock, flags);
	if (cmd == QUOR_CNT_CMD_READ) {
		quor_rec_set_u64(rec, QUOR_CNT_OFF_BYTES, cnt.bytes);
		quor_rec_set_u64(rec, QUOR_CNT_OFF_PACKETS, cnt.packets);
	}
	return 0;
}

/* Switch port query (type 23): LAN ports 0..3 are switch ports 0..3. */
#define QUOR_SWITCH_CMD_PORT	12
#define QUOR_SWITCH_OFF_CMD	0
#define QUOR_SWITCH_OFF_LAN	8
#define QUOR_SWITCH_OFF_ANSWER	9
#define QUOR_SWITCH_LAN_PORTS	4

static int quor_switch_port_hook(void *rec)
{
	u8 *bytes = rec;
	u8 lan = bytes[QUOR_SWITCH_OFF_LAN];
	s8 answer = lan < QUOR_SWITCH_LAN_PORTS ? (s8)lan : -1;

	if (quor_rec_u32(rec, QUOR_SWITCH_OFF_CMD) != QUOR_SWITCH_CMD_PORT)
		return -1;
	bytes[QUOR_SWITCH_OFF_ANSWER] = (u8)answer;
	return 0;
}

static struct quor_hook_ops quor_services[] = {
	{
		.name = "quor_cnt_pool",
		.hookfn = quor_cnt_pool_hook,
		.hook_type = QUOR_HOOK_TYPE_CNT_POOL,
		.hook_subtype = 0,
	}, {
		.name = "quor_cnt_req",
		.hookfn = quor_cnt_req_hook,
		.hook_type = QUOR_HOOK_TYPE_CNT_REQ,
		.hook_subtype = 0,
	}, {
		.name = "quor_switch_port",
		.hookfn = quor_switch_port_hook,
		.hook_type = QUOR_HOOK_TYPE_SWITCH_PORT,
		.hook_subtype = 0,
	},
};

/* ---- module ---- */

static void quor_services_stop(unsigned int count)
{
	while (count--)
		quor_unregister_hook(&quor_services[count]);
}

static int __init quor_platform_init(void)
{
	unsigned int i;
	int ret;

	for (i = 0; i < ARRAY_SIZE(quor_services); i++) {
		ret = quor_register_hook(&quor_services[i]);
		if (ret) {
			quor_services_stop(i);
			return ret;
		}
	}
	ret = quor_rx_start();
	if (ret)
		quor_services_stop(ARRAY_SIZE(quor_services));
	return ret;
}

static void __exit quor_platform_exit(void)
{
	quor_rx_stop();
	quor_services_stop(ARRAY_SIZE(quor_services));
}

module_init(quor_platform_init);
module_exit(quor_platform_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Stand-in for the vendor hook framework and hardware forwarding driver");
