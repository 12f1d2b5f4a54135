/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Tracepoints of jix_xpon_multicast (events/jix_mc in tracefs), beside the
 * debug texts: they cost a static branch while off and can be filtered by
 * group ("group == \"239.1.1.1\"").  Defined in platform/kernel/jix_trace.c.
 */
#undef TRACE_SYSTEM
#define TRACE_SYSTEM jix_mc

#if !defined(JIX_MC_TRACE_H) || defined(TRACE_HEADER_MULTI_READ)
#define JIX_MC_TRACE_H

#include <linux/tracepoint.h>

#define JIX_TRACE_ADDR_LEN	40

/* Group addresses are kept as text, so that filters can name them. */
#define jix_trace_addr(buf, addr, v6) \
	snprintf(buf, JIX_TRACE_ADDR_LEN, (v6) ? "%pI6c" : "%pI4", addr)

TRACE_EVENT(jix_mc_forward,
	TP_PROTO(struct sk_buff *skb, const struct mc_ip_addr *grp, u64 ports),
	TP_ARGS(skb, grp, ports),
	TP_STRUCT__entry(
		__array(char, group, JIX_TRACE_ADDR_LEN)
		__field(u64, ports)
		__field(int, flow)
	),
	TP_fast_assign(
		int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);

		jix_trace_addr(__entry->group, grp->addr, grp->isipv6);
		__entry->ports = ports;
		__entry->flow = to_foe ? to_foe(skb) : -1;
	),
	TP_printk("group=%s ports=0x%llx flow=%d", __entry->group,
		  __entry->ports, __entry->flow)
);

DECLARE_EVENT_CLASS(jix_mc_record,
	TP_PROTO(int index, const u8 *grp, bool v6, u64 mask, int vid),
	TP_ARGS(index, grp, v6, mask, vid),
	TP_STRUCT__entry(
		__array(char, group, JIX_TRACE_ADDR_LEN)
		__field(int, index)
		__field(u64, mask)
		__field(int, vid)
	),
	TP_fast_assign(
		jix_trace_addr(__entry->group, grp, v6);
		__entry->index = index;
		__entry->mask = mask;
		__entry->vid = vid;
	),
	TP_printk("group=%s index=%d mask=0x%llx vid=%d", __entry->group,
		  __entry->index, __entry->mask, __entry->vid)
);

/* A flow bound into the engine; unbound when aged, given up or cleared. */
DEFINE_EVENT(jix_mc_record, jix_mc_flow_bind,
	TP_PROTO(int index, const u8 *grp, bool v6, u64 mask, int vid),
	TP_ARGS(index, grp, v6, mask, vid));
DEFINE_EVENT(jix_mc_record, jix_mc_flow_unbind,
	TP_PROTO(int index, const u8 *grp, bool v6, u64 mask, int vid),
	TP_ARGS(index, grp, v6, mask, vid));
/* A drop entry made for a flow without members, and its removal. */
DEFINE_EVENT(jix_mc_record, jix_mc_drop_add,
	TP_PROTO(int index, const u8 *grp, bool v6, u64 mask, int vid),
	TP_ARGS(index, grp, v6, mask, vid));
DEFINE_EVENT(jix_mc_record, jix_mc_drop_del,
	TP_PROTO(int index, const u8 *grp, bool v6, u64 mask, int vid),
	TP_ARGS(index, grp, v6, mask, vid));

/* A query relayed to @ports; @ingress -1 for a group-specific query. */
TRACE_EVENT(jix_mc_query_relay,
	TP_PROTO(int ingress, u64 ports),
	TP_ARGS(ingress, ports),
	TP_STRUCT__entry(
		__field(int, ingress)
		__field(u64, ports)
	),
	TP_fast_assign(
		__entry->ingress = ingress;
		__entry->ports = ports;
	),
	TP_printk("ingress=%d ports=0x%llx", __entry->ingress, __entry->ports)
);

/*
 * The accounting table had no slot for @grp (the counter id is -1).  An
 * IPv4 group has zeros after its four bytes.
 */
TRACE_EVENT_CONDITION(jix_mc_table_full,
	TP_PROTO(const u8 *grp, int id),
	TP_ARGS(grp, id),
	TP_CONDITION(id < 0),
	TP_STRUCT__entry(
		__array(char, group, JIX_TRACE_ADDR_LEN)
	),
	TP_fast_assign(
		jix_trace_addr(__entry->group, grp, memchr_inv(grp + 4, 0, 12) != NULL);
	),
	TP_printk("group=%s", __entry->group)
);

#endif /* JIX_MC_TRACE_H */

#undef TRACE_INCLUDE_PATH
#define TRACE_INCLUDE_PATH .
#undef TRACE_INCLUDE_FILE
#define TRACE_INCLUDE_FILE jix_mc_trace
#include <trace/define_trace.h>
