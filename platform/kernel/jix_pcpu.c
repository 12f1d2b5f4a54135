// SPDX-License-Identifier: GPL-2.0
/*
 * Per-CPU packet and byte counters.  Writers add to their own CPU's row
 * with bottom halves disabled (the packet path runs in softirq, control
 * paths may not); u64_stats lets readers on 32-bit kernels see whole
 * 64-bit values.
 */
#include "platform.h"

#include <linux/percpu.h>
#include <linux/u64_stats_sync.h>

struct jix_pcpu_row {
	struct u64_stats_sync syncp;
	u64 pkts;
	u64 bytes;
};

struct jix_pcpu_stats {
	unsigned int rows;
	struct jix_pcpu_row __percpu *row;
};

struct jix_pcpu_stats *jix_pcpu_stats_alloc(unsigned int rows)
{
	struct jix_pcpu_stats *s = kzalloc(sizeof(*s), GFP_KERNEL);
	unsigned int cpu, i;

	if (!s)
		return NULL;
	s->rows = rows;
	s->row = __alloc_percpu(rows * sizeof(struct jix_pcpu_row),
				__alignof__(struct jix_pcpu_row));
	if (!s->row) {
		kfree(s);
		return NULL;
	}
	for_each_possible_cpu(cpu)
		for (i = 0; i < rows; i++)
			u64_stats_init(&per_cpu_ptr(s->row, cpu)[i].syncp);
	return s;
}

void jix_pcpu_stats_free(struct jix_pcpu_stats *s)
{
	if (!s)
		return;
	free_percpu(s->row);
	kfree(s);
}

void jix_pcpu_stats_add(struct jix_pcpu_stats *s, unsigned int row, u32 bytes)
{
	struct jix_pcpu_row *r;

	if (row >= s->rows)
		return;
	local_bh_disable();
	r = this_cpu_ptr(s->row) + row;
	u64_stats_update_begin(&r->syncp);
	r->pkts++;
	r->bytes += bytes;
	u64_stats_update_end(&r->syncp);
	local_bh_enable();
}

void jix_pcpu_stats_sum(struct jix_pcpu_stats *s, unsigned int row, u64 *pkts,
			u64 *bytes)
{
	const struct jix_pcpu_row *r;
	unsigned int cpu, start;
	u64 p, b;

	*pkts = 0;
	*bytes = 0;
	if (row >= s->rows)
		return;
	for_each_possible_cpu(cpu) {
		r = per_cpu_ptr(s->row, cpu) + row;
		do {
			start = u64_stats_fetch_begin(&r->syncp);
			p = r->pkts;
			b = r->bytes;
		} while (u64_stats_fetch_retry(&r->syncp, start));
		*pkts += p;
		*bytes += b;
	}
}
