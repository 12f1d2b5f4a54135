// SPDX-License-Identifier: GPL-2.0
/*
 * Control frames: IGMP queries handed to the control plane's receive
 * callback with their ingress port, then relayed as the callback allows.
 * A general query goes out of every port through API operation 1, a
 * group-specific query only to the group's member ports.  With snooping
 * off every query is relayed without asking.
 *
 * Runs in the receive path inside the data handler.  The frame stays with
 * the caller: only its bytes are lent to the callback and the relay, and
 * only copies are sent.  No lock of the module is held while the
 * callback, the relay or the transmit run.
 */
#include "ctrl.h"
#include "datapath.h"
#include "transmit.h"
#include "fdb/fdb.h"

#define JIX_RELAY_PORTS		32	/* destination port ids 0..31 */
#define JIX_QUERY_LOW_PORTS	0xFULL	/* ports 0..3 keep their bit */
#define JIX_QUERY_PORT_SHIFT	4	/* every higher port moves up by 4 */

/* The port id of the device that received @skb, or -1. */
static int jix_ctrl_ingress_port(const struct sk_buff *skb)
{
	if (!skb->dev)
		return -1;
	return get_port_id_by_name(skb->dev->name);
}

/*
 * One request for API operation 1: send the frame out of @port, marked
 * with the ingress port.  It goes through the hook framework to the
 * module's own API hook; when the framework has no hook registered there,
 * the request is handed to the API dispatcher directly.
 */
static void jix_ctrl_relay_one(struct sk_buff *skb, u8 port, u8 ingress)
{
	struct mc_data mc;

	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = QUOR_MC_API_XMIT;
	mc.param.bytes[0] = port;
	mc.param.bytes[1] = ingress;
	mc.param2 = skb->data;
	mc.param3 = skb_headlen(skb);
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc) < 0)
		quor_jix_muliticast_api_hook(&mc);
}

static void jix_ctrl_relay_all(struct sk_buff *skb, u8 ingress)
{
	u8 port;

	trace_jix_mc_query_relay(ingress, ~0ULL >> (64 - JIX_RELAY_PORTS));
	for (port = 0; port < JIX_RELAY_PORTS; port++)
		jix_ctrl_relay_one(skb, port, ingress);
}

void quor_mcst_recv_ctrl_pkt(struct sk_buff *skb, u8 kind)
{
	int port;

	/*
	 * Back to the Ethernet header first, so that the caller finds the
	 * data pointer there on every return.  The data handler keeps the
	 * MAC header 14 bytes before the data.
	 */
	if (skb_headroom(skb) < ETH_HLEN)
		return;
	skb_push(skb, ETH_HLEN);

	port = jix_ctrl_ingress_port(skb);
	if (port < 0) {
		jix_dbg(JIX_DBG_ERR, "[%s]port id is error\n", __func__);
		return;
	}
	if (!rcu_access_pointer(quor_mc_ctrl_packet_rx_cb_func)) {
		jix_dbg(JIX_DBG_ERR, "[%s]quor_mc_ctrl_packet_rx_cb_func is NULL\n",
			__func__);
		return;
	}
	if (!quor_igmp_get_snooping()) {
		jix_ctrl_relay_all(skb, (u8)port);
		return;
	}
	/* A callback removed meanwhile answers 0: nothing is relayed. */
	if (!quor_mc_rx_cb_call((u8)port, skb->data, skb_headlen(skb)))
		return;
	if (kind == JIX_QUERY_GENERAL)
		jix_ctrl_relay_all(skb, (u8)port);
	else if (kind == JIX_QUERY_SPECIFIC)
		quor_mcst_send_specific_query(skb);
}

/* Ports 0..3 keep their bit; port n from 4 upward becomes port n + 4. */
static u64 jix_ctrl_query_mask(u64 mask)
{
	return (mask & JIX_QUERY_LOW_PORTS) |
	       ((mask & ~JIX_QUERY_LOW_PORTS) << JIX_QUERY_PORT_SHIFT);
}

void quor_mcst_send_specific_query(struct sk_buff *skb)
{
	u64 mask = 0;

	jix_query_fwd_portmask(skb, &mask);
	jix_dbg(JIX_DBG_TRACE, "[%s]before query : fwd_port_mask = 0x%lx\n",
		__func__, (unsigned long)mask);
	mask = jix_ctrl_query_mask(mask);
	jix_dbg(JIX_DBG_TRACE, "[%s]after query : fwd_port_mask = 0x%lx\n",
		__func__, (unsigned long)mask);
	trace_jix_mc_query_relay(-1, mask);
	if (mask)
		jix_xpon_fwd_data_to_port(skb, mask);
}
