// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of the module's tracepoints: the lines the kernel's
 * trace buffer would show, kept while tracing is on.
 */
#include <arpa/inet.h>	/* before the emulation's byte-order macros */
#include <atomic>
#include <cstdarg>

#include "host_emul.h"

#include <mutex>
#include <string>

extern "C" {
#include "uapi/jix_mc_uapi.h"
#include "jix_mc_trace.h"
}

namespace {

std::mutex trace_mtx;
std::atomic<bool> trace_on;
std::string trace_text, trace_copy;

void emit(const char *event, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

void emit(const char *event, const char *fmt, ...)
{
	char line[256];
	va_list ap;

	std::lock_guard<std::mutex> g(trace_mtx);
	if (!trace_on)
		return;
	va_start(ap, fmt);
	vsnprintf(line, sizeof(line), fmt, ap);
	va_end(ap);
	trace_text += std::string(event) + ": " + line + "\n";
}

std::string addr(const u8 *a, bool v6)
{
	char buf[INET6_ADDRSTRLEN];

	inet_ntop(v6 ? AF_INET6 : AF_INET, a, buf, sizeof(buf));
	return buf;
}

// A tracepoint that is off costs a test, as the kernel's static key does.
void record(const char *event, int index, const u8 *grp, bool v6, u64 mask, int vid)
{
	if (!trace_on.load(std::memory_order_relaxed))
		return;
	emit(event, "group=%s index=%d mask=0x%llx vid=%d", addr(grp, v6).c_str(), index,
	     (unsigned long long)mask, vid);
}

} // namespace

extern "C" {

void trace_jix_mc_forward(struct sk_buff *skb, const struct mc_ip_addr *grp, u64 ports)
{
	int (*to_foe)(struct sk_buff *skb) = READ_ONCE(hwnat_skb_to_foe_hook);

	if (!trace_on)
		return;
	emit("jix_mc_forward", "group=%s ports=0x%llx flow=%d",
	     addr(grp->addr, grp->isipv6).c_str(), (unsigned long long)ports,
	     to_foe ? to_foe(skb) : -1);
}

void trace_jix_mc_flow_bind(int index, const u8 *grp, bool v6, u64 mask, int vid)
{
	record("jix_mc_flow_bind", index, grp, v6, mask, vid);
}

void trace_jix_mc_flow_unbind(int index, const u8 *grp, bool v6, u64 mask, int vid)
{
	record("jix_mc_flow_unbind", index, grp, v6, mask, vid);
}

void trace_jix_mc_drop_add(int index, const u8 *grp, bool v6, u64 mask, int vid)
{
	record("jix_mc_drop_add", index, grp, v6, mask, vid);
}

void trace_jix_mc_drop_del(int index, const u8 *grp, bool v6, u64 mask, int vid)
{
	record("jix_mc_drop_del", index, grp, v6, mask, vid);
}

void trace_jix_mc_query_relay(int ingress, u64 ports)
{
	if (!trace_on.load(std::memory_order_relaxed))
		return;
	emit("jix_mc_query_relay", "ingress=%d ports=0x%llx", ingress, (unsigned long long)ports);
}

void trace_jix_mc_table_full(const u8 *grp, int id)
{
	static const u8 zero[12] = {};

	if (id < 0 && trace_on.load(std::memory_order_relaxed))
		emit("jix_mc_table_full", "group=%s",
		     addr(grp, memcmp(grp + 4, zero, sizeof(zero)) != 0).c_str());
}

void host_trace_enable(int on)
{
	std::lock_guard<std::mutex> g(trace_mtx);
	trace_on = on;
	trace_text.clear();
}

const char *host_trace_text(void)
{
	std::lock_guard<std::mutex> g(trace_mtx);
	trace_copy = trace_text;
	return trace_copy.c_str();
}

} /* extern "C" */
