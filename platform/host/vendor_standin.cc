// SPDX-License-Identifier: GPL-2.0
/*
 * Host stand-in for the vendor platform: the hook framework with the
 * services the module calls (hardware counter pool and counter requests,
 * switch port lookup), and the hardware forwarding driver's pointers.
 */
#include "host_emul.h"
#include "quor_peer.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <vector>

/* Records exchanged with the built-in services. */
#define CNT_POOL_CMD_TAKE	19
#define CNT_POOL_CMD_GIVE	20
#define CNT_POOL_OFF_NAMEP	16	/* u64: address of the name */
#define CNT_POOL_OFF_ID		56	/* u32 */
#define CNT_REQ_CMD_READ	90
#define CNT_REQ_CMD_CLEAR	91
#define CNT_REQ_OFF_ID		80	/* u8 */
#define CNT_REQ_OFF_BYTES	104	/* u32 low, u32 high */
#define CNT_REQ_OFF_PKTS	112	/* u32 low, u32 high */
#define CNT_POOL_OFF_NAME	40	/* 16 bytes */
#define CNT_POOL_OFF_KIND	60	/* u32: 2 */
#define CNT_REQ_LEN		256
#define CNT_REQ_OFF_KIND	92	/* u32: 3 */
#define SWITCH_CMD_PORT		12
#define SWITCH_OFF_LAN		8	/* u8 */
#define SWITCH_OFF_ANSWER	9	/* s8 */
#define COUNTER_FIRST_ID	100
#define COUNTER_LAST_ID		255	/* ids travel in a byte */

int (*hwnat_skb_to_foe_hook)(struct sk_buff *skb);
int (*hwnat_is_multicast_entry_hook)(int index, unsigned char *grp,
				     unsigned char *src, int is_ipv6);
int (*hwnat_is_drop_entry_hook)(int index, unsigned char *grp,
				unsigned char *src, int is_ipv6);
int (*hwnat_multicast_set_hwnat_info_hook)(int index, unsigned int mask,
					   int flag);
int (*hwnat_delete_foe_entry_hook)(int index);
int (*ux_sw_nat_hook_update_dp)(int index, int dp);
int (*ux_sw_nat_hook_update_vlan)(int index, unsigned int outer_tag,
				  unsigned int inner_tag);
int (*ux_sw_nat_hook_drop_packet)(struct sk_buff *skb);
int (*xpon_igmp_learn_flow_hook)(struct sk_buff *skb);
struct hwnat_flow_entry *(*multicast_speed_find_entry_hook)(int index);
int (*multicast_hwnat_drop_entry_hook)(struct sk_buff *skb,
				       unsigned long long mask);

namespace {

struct hw_counter {
	u64 bytes, pkts;
	unsigned long clears;
};

std::mutex vendor_mtx;
LIST_HEAD(hooks);

/*
 * What __QUOR_HOOK() reads: an immutable copy of the registry, published
 * whole after every change, so that callers walk it without a lock and in
 * parallel (the stand-in module walks its list under RCU).  A replaced
 * copy is kept until vendor_reset(), when no call can be running: a caller
 * may still be walking it, as an RCU reader may still walk an unlinked
 * node.
 */
struct hook_snap {
	std::vector<struct quor_hook_ops *> ops;
	const hook_snap *retired_next;	/* chain of replaced copies */
};

/* Plain pointers, so that the copies stay reachable until exit. */
std::atomic<const hook_snap *> hook_view{nullptr};
const hook_snap *hook_retired;		/* under vendor_mtx */
int register_fail_err;
void (*on_register)(struct quor_hook_ops *ops);
std::set<unsigned int> taken;
std::map<unsigned int, hw_counter> counters;
std::map<unsigned int, int> switch_ports;
unsigned long counter_reads;
unsigned long counter_reads_locked;	/* made holding a spinlock */

u32 get32(const void *rec, size_t off)
{
	u32 v;
	memcpy(&v, (const char *)rec + off, sizeof(v));
	return v;
}

void put32(void *rec, size_t off, u32 v)
{
	memcpy((char *)rec + off, &v, sizeof(v));
}

void put64(void *rec, size_t off, u64 v)
{
	put32(rec, off, (u32)v);
	put32(rec, off + 4, (u32)(v >> 32));
}

/* Caller holds vendor_mtx: publish the registry as it now is. */
void hook_publish()
{
	hook_snap *snap = new hook_snap;
	struct quor_hook_ops *o;

	snap->retired_next = NULL;
	list_for_each_entry(o, &hooks, list)
		snap->ops.push_back(o);
	hook_snap *old = const_cast<hook_snap *>(
		hook_view.exchange(snap, std::memory_order_acq_rel));
	if (old) {
		old->retired_next = hook_retired;
		hook_retired = old;
	}
}

/* Caller holds vendor_mtx. */
struct quor_hook_ops *hook_find(unsigned int type, unsigned int subtype)
{
	struct quor_hook_ops *ops;

	list_for_each_entry(ops, &hooks, list)
		if (ops->hook_type == type && ops->hook_subtype == subtype)
			return ops;
	return NULL;
}

/* Bytes [@from, @to) of @rec are all 0. */
bool zero_between(const void *rec, unsigned int from, unsigned int to)
{
	for (const unsigned char *b = (const unsigned char *)rec; from < to; from++)
		if (b[from])
			return false;
	return true;
}

/*
 * The framework serves only records laid out as it defines them: a
 * counter pool request has kind 2 and zeros where no field is, a counter
 * request kind 3 and was cleared before use (the answers' bytes aside).
 */
bool counter_pool_well_formed(const void *rec)
{
	return get32(rec, CNT_POOL_OFF_KIND) == 2 && zero_between(rec, 4, CNT_POOL_OFF_NAMEP) &&
	       zero_between(rec, CNT_POOL_OFF_NAMEP + 8, CNT_POOL_OFF_NAME) &&
	       (get32(rec, 0) == CNT_POOL_CMD_TAKE ||
		zero_between(rec, CNT_POOL_OFF_NAME, CNT_POOL_OFF_ID));
}

bool counter_request_well_formed(const void *rec)
{
	return get32(rec, CNT_REQ_OFF_KIND) == 3 && zero_between(rec, 4, CNT_REQ_OFF_ID) &&
	       zero_between(rec, CNT_REQ_OFF_ID + 1, CNT_REQ_OFF_KIND) &&
	       zero_between(rec, CNT_REQ_OFF_KIND + 4, CNT_REQ_OFF_BYTES) &&
	       zero_between(rec, CNT_REQ_OFF_PKTS + 8, CNT_REQ_LEN);
}

int counter_pool(void *rec)
{
	u32 id = get32(rec, CNT_POOL_OFF_ID);
	u64 namep;

	if (WARN_ON(!counter_pool_well_formed(rec)))
		return -1;
	switch (get32(rec, 0)) {
	case CNT_POOL_CMD_TAKE:
		memcpy(&namep, (char *)rec + CNT_POOL_OFF_NAMEP, sizeof(namep));
		if (WARN_ON(!namep))
			return -1;
		for (id = COUNTER_FIRST_ID; taken.count(id); id++)
			if (id == COUNTER_LAST_ID)
				return -1;
		taken.insert(id);
		put32(rec, CNT_POOL_OFF_ID, id);
		return 0;
	case CNT_POOL_CMD_GIVE:
		/* Giving back a counter not taken is a module fault. */
		return WARN_ON(!taken.erase(id)) ? -1 : 0;
	}
	return -1;
}

int counter_request(void *rec)
{
	hw_counter &c = counters[((unsigned char *)rec)[CNT_REQ_OFF_ID]];

	if (WARN_ON(!counter_request_well_formed(rec)))
		return -1;
	switch (get32(rec, 0)) {
	case CNT_REQ_CMD_READ:
		counter_reads++;
		counter_reads_locked += host_locks_held() > 0;
		put64(rec, CNT_REQ_OFF_BYTES, c.bytes);
		put64(rec, CNT_REQ_OFF_PKTS, c.pkts);
		return 0;
	case CNT_REQ_CMD_CLEAR:
		c.bytes = c.pkts = 0;
		c.clears++;
		return 0;
	}
	return -1;
}

int switch_port(void *rec)
{
	unsigned char *r = (unsigned char *)rec;

	if (get32(rec, 0) != SWITCH_CMD_PORT)
		return -1;
	auto it = switch_ports.find(r[SWITCH_OFF_LAN]);
	r[SWITCH_OFF_ANSWER] = (unsigned char)(it == switch_ports.end() ?
					       -1 : it->second);
	return 0;
}

} /* namespace */

namespace host {

void vendor_reset()
{
	{
		std::lock_guard<std::mutex> g(vendor_mtx);
		INIT_LIST_HEAD(&hooks);
		hook_publish();
		while (hook_retired) {
			const hook_snap *old = hook_retired;

			hook_retired = old->retired_next;
			delete old;
		}
		register_fail_err = 0;
		on_register = NULL;
		taken.clear();
		counters.clear();
		switch_ports.clear();
		counter_reads = 0;
		counter_reads_locked = 0;
	}
	host_hwnat_reset();
}

} /* namespace host */

extern "C" {

static int register_locked(struct quor_hook_ops *ops)
{
	struct quor_hook_ops *o;

	if (register_fail_err) {
		int err = register_fail_err;
		register_fail_err = 0;
		return err;
	}
	list_for_each_entry(o, &hooks, list)
		if (o == ops)
			return -EEXIST;
	list_add_tail(&ops->list, &hooks);
	hook_publish();
	return 0;
}

int quor_register_hook(struct quor_hook_ops *ops)
{
	void (*fn)(struct quor_hook_ops *ops);
	int ret;

	{
		std::lock_guard<std::mutex> g(vendor_mtx);
		ret = register_locked(ops);
		fn = on_register;
	}
	if (!ret && fn)
		fn(ops);
	return ret;
}

void host_quor_on_register(void (*fn)(struct quor_hook_ops *ops))
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	on_register = fn;
}

void quor_unregister_hook(struct quor_hook_ops *ops)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	struct quor_hook_ops *o;

	list_for_each_entry(o, &hooks, list) {
		if (o == ops) {
			list_del(&ops->list);
			hook_publish();
			return;
		}
	}
	WARN_ON(1);	/* not registered */
}

/*
 * The built-in services keep their state under vendor_mtx.  Registered
 * hooks are found in the published registry without any lock and run
 * without one: they may call back in here, and several processors may be
 * in here at once.
 */
int __QUOR_HOOK(unsigned int type, unsigned int subtype, void *data)
{
	if (subtype == 0) {
		std::lock_guard<std::mutex> g(vendor_mtx);

		switch (type) {
		case QUOR_HOOK_TYPE_CNT_POOL:
			return counter_pool(data);
		case QUOR_HOOK_TYPE_CNT_REQ:
			return counter_request(data);
		case QUOR_HOOK_TYPE_SWITCH_PORT:
			return switch_port(data);
		}
	}
	const hook_snap *snap = hook_view.load(std::memory_order_acquire);

	if (!snap)
		return -1;
	for (struct quor_hook_ops *ops : snap->ops) {
		if (ops->hook_type != type || ops->hook_subtype != subtype)
			continue;
		if (!ops->hookfn)
			return -1;
		/* Hooks run inside an RCU read-side section, as in the kernel. */
		rcu_read_lock();
		int ret = ops->hookfn(data);
		rcu_read_unlock();
		return ret;
	}
	return -1;
}

int host_driver_offer(struct sk_buff *skb, int *result)
{
	struct quor_peer_mc mc = {};
	int ret;

	mc.in_function_id = 0;
	mc.skb = skb;
	mc.result = -1;
	ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc);
	*result = mc.result;
	return ret;
}

struct quor_hook_ops *host_quor_find(unsigned int type, unsigned int subtype)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	return hook_find(type, subtype);
}

int host_quor_registered_count(void)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	struct quor_hook_ops *o;
	int n = 0;

	list_for_each_entry(o, &hooks, list)
		n++;
	return n;
}

void host_quor_fail_next_register(int err)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	register_fail_err = err;
}

int host_counter_taken(unsigned int id)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	return taken.count(id) != 0;
}

int host_counters_taken(void)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	return (int)taken.size();
}

void host_counter_set(unsigned int id, u64 bytes, u64 pkts)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	counters[id].bytes = bytes;
	counters[id].pkts = pkts;
}

unsigned long host_counter_clears(unsigned int id)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	auto it = counters.find(id);

	return it == counters.end() ? 0 : it->second.clears;
}

unsigned long host_counter_reads_locked(void)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	return counter_reads_locked;
}

unsigned long host_counter_reads(void)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	return counter_reads;
}

void host_switch_port_set(unsigned int lan_port, int switch_port)
{
	std::lock_guard<std::mutex> g(vendor_mtx);
	switch_ports[lan_port] = switch_port;
}

void host_hwnat_reset(void)
{
	hwnat_skb_to_foe_hook = NULL;
	hwnat_is_multicast_entry_hook = NULL;
	hwnat_is_drop_entry_hook = NULL;
	hwnat_multicast_set_hwnat_info_hook = NULL;
	hwnat_delete_foe_entry_hook = NULL;
	ux_sw_nat_hook_update_dp = NULL;
	ux_sw_nat_hook_update_vlan = NULL;
	ux_sw_nat_hook_drop_packet = NULL;
	xpon_igmp_learn_flow_hook = NULL;
	multicast_speed_find_entry_hook = NULL;
	multicast_hwnat_drop_entry_hook = NULL;
}

} /* extern "C" */
