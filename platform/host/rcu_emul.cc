// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of RCU: each thread counts its read-side sections, and
 * synchronize_rcu() waits for the sections that were open when it was
 * called, so a test can see an updater wait for a reader.
 */
#include "host_emul.h"

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct rcu_reader {
	std::atomic<unsigned int> nest{0};
	std::atomic<unsigned long> sections{0};	/* sections entered */
};

std::mutex readers_mtx;
std::set<rcu_reader *> readers;

struct rcu_reader_reg {
	rcu_reader r;
	rcu_reader_reg()
	{
		std::lock_guard<std::mutex> g(readers_mtx);
		readers.insert(&r);
	}
	~rcu_reader_reg()
	{
		std::lock_guard<std::mutex> g(readers_mtx);
		readers.erase(&r);
	}
};

rcu_reader &self()
{
	thread_local rcu_reader_reg reg;
	return reg.r;
}

/* True once @r has left the section it was in (or its thread ended). */
bool left(rcu_reader *r, unsigned long sections)
{
	std::lock_guard<std::mutex> g(readers_mtx);

	return !readers.count(r) || !r->nest.load() ||
	       r->sections.load() != sections;
}

} /* namespace */

extern "C" {

void smp_mb(void)
{
	std::atomic_thread_fence(std::memory_order_seq_cst);
}

void rcu_read_lock(void)
{
	rcu_reader &r = self();

	if (r.nest.fetch_add(1) == 0)
		r.sections.fetch_add(1);
	std::atomic_thread_fence(std::memory_order_seq_cst);
}

void rcu_read_unlock(void)
{
	WARN_ON(self().nest.fetch_sub(1, std::memory_order_release) == 0);
}

void synchronize_rcu(void)
{
	std::vector<std::pair<rcu_reader *, unsigned long>> open;

	WARN_ON(self().nest.load() || host_locks_held() || in_softirq());
	std::atomic_thread_fence(std::memory_order_seq_cst);
	{
		std::lock_guard<std::mutex> g(readers_mtx);
		for (rcu_reader *r : readers)
			if (r->nest.load())
				open.emplace_back(r, r->sections.load());
	}
	for (auto &o : open)
		while (!left(o.first, o.second))
			std::this_thread::yield();
}

} /* extern "C" */
