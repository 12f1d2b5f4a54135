// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of RCU and of per-CPU counters.
 *
 * Readers: each thread has a record with its nesting depth (rcu_read_lock
 * and bottom halves alike) and, while inside, the grace-period number it
 * entered under.  synchronize_rcu() starts a new grace period and waits
 * until no thread is still inside a section that began before it.  As in
 * liburcu, the reader's announcement needs no fence of its own:
 * synchronize_rcu() makes every running thread pass a full barrier
 * (membarrier) before it looks at the announcements; without membarrier
 * the readers fence.
 * call_rcu() callbacks are run by a reclaim thread after such a wait, in
 * softirq context, so frees really happen later and elsewhere.
 *
 * CPUs: each thread that counts is a CPU of its own, with an id taken on
 * first use and given back when the thread ends.
 */
#include "host_emul.h"

#include <linux/membarrier.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

struct reader {
	int depth = 0;				/* only its thread writes */
	std::atomic<unsigned long> since{0};	/* 0: outside */
};

struct rcu_state {
	std::mutex mtx;				/* readers, queue */
	std::vector<reader *> readers;
	std::atomic<unsigned long> gp{1};
	std::condition_variable cv;		/* queue and progress */
	struct rcu_head *queue = nullptr, **tail = &queue;
	unsigned long queued = 0, done = 0;
	bool thread_up = false;
};

/* Never destroyed: the reclaim thread may run while the process exits. */
rcu_state &st()
{
	static auto *s = new rcu_state;
	return *s;
}

/* 1: membarrier serves the writers; 0: readers fence; -1: not asked yet. */
std::atomic<int> use_membarrier{-1};

bool membarrier_ready()
{
	int m = use_membarrier.load(std::memory_order_relaxed);

	if (m >= 0)
		return m;
	m = syscall(__NR_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
	use_membarrier.store(m);
	return m;
}

__attribute__((__noinline__)) reader *new_reader()
{
	reader *r = new reader;

	membarrier_ready();
	std::lock_guard<std::mutex> g(st().mtx);
	st().readers.push_back(r);
	return r;
}

/* Called at every section boundary: the first call per thread registers. */
inline reader &me()
{
	static thread_local reader *r;

	if (__builtin_expect(!r, 0))
		r = new_reader();
	return *r;
}

void reclaim_loop();


void start_reclaim_locked()
{
	if (st().thread_up)
		return;
	st().thread_up = true;
	std::thread(reclaim_loop).detach();
}

void run_batch(struct rcu_head *h)
{
	local_bh_disable();
	while (h) {
		struct rcu_head *next = h->next;
		uintptr_t f = (uintptr_t)h->func;

		/* kfree_rcu() queues the object's offset, as the kernel does. */
		if (f < 4096)
			kfree((char *)h - f);
		else
			h->func(h);
		h = next;
	}
	local_bh_enable();
}

void reclaim_loop()
{
	rcu_state &s = st();

	for (;;) {
		struct rcu_head *batch;
		unsigned long n;
		{
			std::unique_lock<std::mutex> g(s.mtx);
			s.cv.wait(g, [&] { return s.queue != nullptr; });
			batch = s.queue;
			n = s.queued;
			s.queue = nullptr;
			s.tail = &s.queue;
		}
		synchronize_rcu();
		run_batch(batch);
		std::lock_guard<std::mutex> g(s.mtx);
		s.done = n;
		s.cv.notify_all();
	}
}

/* ---- CPUs ---- */
std::mutex cpu_mtx;
bool cpu_used[HOST_NR_CPUS];

struct cpu_slot {
	int id = -1;
	~cpu_slot()
	{
		if (id < 0)
			return;
		std::lock_guard<std::mutex> g(cpu_mtx);
		cpu_used[id] = false;
	}
};

} /* namespace */

namespace host {

void rcu_enter()
{
	reader &r = me();

	if (r.depth++)
		return;
	r.since.store(st().gp.load(std::memory_order_acquire),
		      std::memory_order_relaxed);
	/* The store is seen before anything this section reads. */
	if (use_membarrier.load(std::memory_order_relaxed) > 0)
		std::atomic_signal_fence(std::memory_order_seq_cst);
	else
		std::atomic_thread_fence(std::memory_order_seq_cst);
}

void rcu_exit()
{
	reader &r = me();

	if (WARN_ON(r.depth <= 0))
		return;
	if (--r.depth)
		return;
	r.since.store(0, std::memory_order_release);
}

bool rcu_reading()
{
	return me().depth > 0;
}

} /* namespace host */

extern "C" {

/* Out of line, so ThreadSanitizer builds see the fence. */
void smp_mb(void)
{
	std::atomic_thread_fence(std::memory_order_seq_cst);
}

void rcu_read_lock(void)
{
	host::rcu_enter();
}

void rcu_read_unlock(void)
{
	host::rcu_exit();
}

void synchronize_rcu(void)
{
	rcu_state &s = st();

	/* In the kernel this sleeps inside an atomic section or deadlocks. */
	BUG_ON(host::rcu_reading());
	WARN_ON(host_locks_held());
	std::atomic_thread_fence(std::memory_order_seq_cst);
	unsigned long gp = s.gp.fetch_add(1, std::memory_order_acq_rel) + 1;
	/* Every reader's announcement is visible from here on. */
	if (membarrier_ready())
		syscall(__NR_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
	std::vector<reader *> rs;
	{
		std::lock_guard<std::mutex> g(s.mtx);
		rs = s.readers;
	}
	for (reader *r : rs) {
		for (;;) {
			unsigned long since = r->since.load(std::memory_order_acquire);

			if (!since || since >= gp)
				break;
			sched_yield();
		}
	}
}

void call_rcu(struct rcu_head *head, void (*func)(struct rcu_head *head))
{
	rcu_state &s = st();

	head->func = func;
	head->next = nullptr;
	std::lock_guard<std::mutex> g(s.mtx);
	*s.tail = head;
	s.tail = &head->next;
	s.queued++;
	start_reclaim_locked();
	s.cv.notify_all();
}

void rcu_barrier(void)
{
	rcu_state &s = st();

	BUG_ON(host::rcu_reading());
	std::unique_lock<std::mutex> g(s.mtx);
	unsigned long want = s.queued;

	s.cv.wait(g, [&] { return s.done >= want; });
}

void host_kfree_rcu(struct rcu_head *head, size_t offset)
{
	BUG_ON(offset >= 4096);
	call_rcu(head, (void (*)(struct rcu_head *))(uintptr_t)offset);
}

/*
 * Per-CPU counters: one row block per emulated CPU.  Only the owning
 * thread writes its rows, with relaxed stores; readers load them.
 */
struct host_pcpu_row {
	std::atomic<u64> pkts, bytes;
};

struct jix_pcpu_stats {
	unsigned int rows;
	host_pcpu_row *row;	/* [HOST_NR_CPUS][rows] */
};

struct jix_pcpu_stats *jix_pcpu_stats_alloc(unsigned int rows)
{
	auto *s = new jix_pcpu_stats;

	s->rows = rows;
	s->row = new host_pcpu_row[(size_t)HOST_NR_CPUS * rows]();
	return s;
}

void jix_pcpu_stats_free(struct jix_pcpu_stats *s)
{
	if (!s)
		return;
	delete[] s->row;
	delete s;
}

void jix_pcpu_stats_add(struct jix_pcpu_stats *s, unsigned int row, u32 bytes)
{
	if (row >= s->rows)
		return;
	host_pcpu_row &r = s->row[(size_t)host_this_cpu() * s->rows + row];

	r.pkts.store(r.pkts.load(std::memory_order_relaxed) + 1,
		     std::memory_order_relaxed);
	r.bytes.store(r.bytes.load(std::memory_order_relaxed) + bytes,
		      std::memory_order_relaxed);
}

void jix_pcpu_stats_sum(struct jix_pcpu_stats *s, unsigned int row, u64 *pkts,
			u64 *bytes)
{
	*pkts = 0;
	*bytes = 0;
	if (row >= s->rows)
		return;
	for (int cpu = 0; cpu < HOST_NR_CPUS; cpu++) {
		host_pcpu_row &r = s->row[(size_t)cpu * s->rows + row];

		*pkts += r.pkts.load(std::memory_order_relaxed);
		*bytes += r.bytes.load(std::memory_order_relaxed);
	}
}

int host_this_cpu(void)
{
	thread_local cpu_slot slot;

	if (slot.id >= 0)
		return slot.id;
	std::lock_guard<std::mutex> g(cpu_mtx);
	for (int i = 0; i < HOST_NR_CPUS; i++) {
		if (!cpu_used[i]) {
			cpu_used[i] = true;
			slot.id = i;
			return i;
		}
	}
	fprintf(stderr, "host emulation: more than %d threads count per CPU\n",
		HOST_NR_CPUS);
	abort();
}

} /* extern "C" */
