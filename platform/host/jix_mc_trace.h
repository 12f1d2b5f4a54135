/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The module's tracepoints in the host build: while tracing is on
 * (host_trace_enable), each event appends its line, as the kernel's trace
 * buffer shows it, to a text the tests read (host_trace_text).
 */
#ifndef JIX_HOST_MC_TRACE_H
#define JIX_HOST_MC_TRACE_H

#ifdef __cplusplus
extern "C" {
#endif

void trace_jix_mc_forward(struct sk_buff *skb, const struct mc_ip_addr *grp, u64 ports);
void trace_jix_mc_flow_bind(int index, const u8 *grp, bool v6, u64 mask, int vid);
void trace_jix_mc_flow_unbind(int index, const u8 *grp, bool v6, u64 mask, int vid);
void trace_jix_mc_drop_add(int index, const u8 *grp, bool v6, u64 mask, int vid);
void trace_jix_mc_drop_del(int index, const u8 *grp, bool v6, u64 mask, int vid);
void trace_jix_mc_query_relay(int ingress, u64 ports);
void trace_jix_mc_table_full(const u8 *grp, int id);

#ifdef __cplusplus
}
#endif

#endif /* JIX_HOST_MC_TRACE_H */
