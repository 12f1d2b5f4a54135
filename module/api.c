// SPDX-License-Identifier: GPL-2.0
/*
 * Control API handlers: thin wrappers that unpack mc_data and call the
 * forwarding database, the port map or the transmit path.  They run in
 * their caller's context (process or softirq): they never sleep.
 */
#include "module/api.h"
#include "fdb/fdb.h"

#define QUOR_XMIT_HEADROOM	64

/*
 * The receive callback is published with RCU and called only through
 * quor_mc_rx_cb_call(), which counts the calls in progress: operation 0
 * runs inside the hook framework's RCU read-side section and cannot
 * sleep, so it waits for those calls by watching the count.  Writers are
 * serialised by quor_mc_rx_cb_lock.
 */
quor_mc_rx_cb_t __rcu quor_mc_ctrl_packet_rx_cb_func;
static DEFINE_SPINLOCK(quor_mc_rx_cb_lock);
static atomic_t quor_mc_rx_cb_calls = ATOMIC_INIT(0);

static int quor_api_result(int ret)
{
	return ret < 0 ? QUOR_MC_API_FAIL : QUOR_MC_API_OK;
}

/* Call the receive callback, if any (softirq).  Returns its answer, or 0. */
int quor_mc_rx_cb_call(u8 port, u8 *frame, u32 len)
{
	quor_mc_rx_cb_t cb;
	int ret = 0;

	atomic_inc(&quor_mc_rx_cb_calls);
	smp_mb__after_atomic();
	rcu_read_lock();
	cb = rcu_dereference(quor_mc_ctrl_packet_rx_cb_func);
	if (cb)
		ret = cb(port, frame, len);
	rcu_read_unlock();
	smp_mb__before_atomic();
	atomic_dec(&quor_mc_rx_cb_calls);
	return ret;
}

/*
 * Install (or, with NULL, remove) the receive callback.  A replaced
 * callback may still run on another processor: wait until no call is in
 * progress, so that its module can go away afterwards.  The callback
 * itself must not call this operation.
 */
int quor_mc_hook_set_recv_cb(struct mc_data *mc)
{
	quor_mc_rx_cb_t cb, old;

	jix_enter();
	if (!mc->param.ptr)
		return QUOR_MC_API_FAIL;
	cb = *(quor_mc_rx_cb_t *)mc->param.ptr;
	spin_lock_bh(&quor_mc_rx_cb_lock);
	old = rcu_dereference_protected(quor_mc_ctrl_packet_rx_cb_func,
					lockdep_is_held(&quor_mc_rx_cb_lock));
	rcu_assign_pointer(quor_mc_ctrl_packet_rx_cb_func, cb);
	spin_unlock_bh(&quor_mc_rx_cb_lock);
	if (!old || old == cb)
		return QUOR_MC_API_OK;
	smp_mb();
	while (atomic_read(&quor_mc_rx_cb_calls))
		cpu_relax();
	return QUOR_MC_API_OK;
}

/*
 * Send a frame given as bytes out of one port, in a fresh buffer.  Frames
 * that do not fit the buffer behind its headroom are refused.
 */
int quor_mc_hook_xmit(struct mc_data *mc)
{
	u8 port = mc->param.bytes[0];
	u32 len = mc->param3;
	struct net_device *dev;
	struct sk_buff *skb;

	jix_enter();
	if (port > JIX_PORT_MAX_ID)
		return QUOR_MC_API_FAIL;
	dev = quor_port_dev_hold(port);
	if (!dev)
		return QUOR_MC_API_FAIL;
	skb = skbmgr_alloc_skb2k();
	if (!skb)
		goto fail;
	skb_reserve(skb, QUOR_XMIT_HEADROOM);
	if (len > (u32)skb_tailroom(skb) || (len && !mc->param2)) {
		kfree_skb(skb);
		goto fail;
	}
	skb->dev = dev;
	jix_skb_or_vendor_flags(skb, (u32)mc->param.bytes[1] << 1);
	/* An empty frame may come without bytes: nothing to copy then. */
	if (len)
		memcpy(skb_put(skb, len), mc->param2, len);
	jix_dev_xmit(skb);
	dev_put(dev);
	return QUOR_MC_API_OK;
fail:
	dev_put(dev);
	return QUOR_MC_API_FAIL;
}

int quor_mc_hook_entry_add(struct mc_data *mc)
{
	jix_enter();
	return quor_api_result(quor_igmp_add_entry(mc->param.ptr));
}

int quor_mc_hook_entry_del(struct mc_data *mc)
{
	jix_enter();
	return quor_api_result(quor_igmp_del_entry(mc->param.ptr));
}

int quor_mc_hook_entry_update(struct mc_data *mc)
{
	jix_enter();
	return quor_api_result(quor_igmp_update_entry(mc->param.ptr));
}

int quor_mc_hook_entry_clear_by_port(struct mc_data *mc)
{
	jix_enter();
	if (igmp_fdb_empty())
		return QUOR_MC_API_OK;
	return quor_api_result(quor_igmp_clear_entry_by_port(mc->param.bytes[0]));
}

int quor_mc_hook_entry_clear_all(struct mc_data *mc)
{
	jix_enter();
	if (!igmp_fdb_empty())
		quor_igmp_clear_all_entry();
	return QUOR_MC_API_OK;
}

int quor_mc_hook_entry_get(struct mc_data *mc)
{
	jix_enter();
	return quor_api_result(quor_igmp_get_entry(mc->param.ptr));
}

int quor_mc_hook_set_filter_mode(struct mc_data *mc)
{
	jix_enter();
	if (!mc->param.ptr)
		return QUOR_MC_API_FAIL;
	quor_igmp_set_filterMode(*(u32 *)mc->param.ptr);
	return QUOR_MC_API_OK;
}

int quor_mc_hook_get_filter_mode(struct mc_data *mc)
{
	jix_enter();
	if (!mc->param.ptr)
		return QUOR_MC_API_FAIL;
	*(u32 *)mc->param.ptr = READ_ONCE(igmp_filter_mode);
	return QUOR_MC_API_OK;
}

int quor_mc_hook_set_snooping_mode(struct mc_data *mc)
{
	jix_enter();
	if (!mc->param.ptr)
		return QUOR_MC_API_FAIL;
	return quor_api_result(quor_igmp_set_snooping(*(u8 *)mc->param.ptr));
}

int quor_mc_hook_get_snooping_mode(struct mc_data *mc)
{
	jix_enter();
	if (!mc->param.ptr)
		return QUOR_MC_API_FAIL;
	*(u8 *)mc->param.ptr = quor_igmp_get_snooping();
	return QUOR_MC_API_OK;
}

int quor_mc_hook_set_port_type(struct mc_data *mc)
{
	jix_enter();
	return quor_igmp_set_port_type(mc);
}

/*
 * The PORT_TYPE index of an interface name: for "eth?.N" it is N - 1
 * (the character after the dot minus '1', as a byte); any other name
 * gives 0.  Indexes outside the table are refused by the caller.
 */
static u8 quor_port_type_index(const char *name)
{
	if (strnlen(name, 5) == 5 && !strncmp(name, "eth", 3) && name[4] == '.')
		return (u8)(name[5] - '1');
	return 0;
}

int quor_igmp_set_port_type(struct mc_data *mc)
{
	const char *name = mc->param2;
	u32 type = mc->param.val;
	u8 idx;

	if (type != JIX_PORT_TYPE_HYBRID_SFU && type != JIX_PORT_TYPE_HYBRID_HGU)
		return QUOR_MC_API_FAIL;
	if (!name)
		return QUOR_MC_API_FAIL;
	jix_dbg(JIX_DBG_TRACE, "[%s]portName:%s portType:%d\n",
		"quor_igmp_set_port_type", name, type);
	idx = quor_port_type_index(name);
	if (idx >= JIX_PORT_TYPE_NUM)
		return QUOR_MC_API_FAIL;
	if (READ_ONCE(PORT_TYPE[idx]) == type)
		return QUOR_MC_API_OK;
	WRITE_ONCE(PORT_TYPE[idx], type);
	if (!igmp_fdb_empty())
		quor_igmp_clear_entry_by_port(idx);
	return QUOR_MC_API_OK;
}
