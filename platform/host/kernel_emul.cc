// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of the core kernel services: WARN, printk capture,
 * spinlocks and bottom halves, kmalloc with failure injection, user
 * memory access with faulting ranges, and scnprintf.
 */
#include "host_emul.h"

#include <malloc.h>

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

std::atomic<unsigned long> warn_count{0};

/* ---- log capture ---- */
std::mutex log_mtx;
std::string log_text;
unsigned long log_levels[8];

/* ---- allocation ---- */
/*
 * Live allocations and atomic attempts are counted per thread, as the
 * kernel counts per CPU, so that threads allocating at once do not share
 * a cache line; readers add up every thread's counts (threads that ended
 * included).  Only the owning thread writes its counts.
 */
struct alloc_counts {
	alignas(64) std::atomic<long> live{0};
	std::atomic<unsigned long> attempts{0};
};
std::mutex counts_mtx;
/* Never destroyed: threads may still count while the process exits. */
std::vector<alloc_counts *> &all_counts()
{
	static auto *v = new std::vector<alloc_counts *>;
	return *v;
}

__attribute__((__noinline__)) alloc_counts *new_counts()
{
	alloc_counts *mine = new alloc_counts;
	std::lock_guard<std::mutex> g(counts_mtx);

	all_counts().push_back(mine);
	return mine;
}

inline alloc_counts &my_counts()
{
	static thread_local alloc_counts *mine;

	if (__builtin_expect(!mine, 0))
		mine = new_counts();
	return *mine;
}

template <typename T> void bump(std::atomic<T> &c, T by)
{
	c.store(c.load(std::memory_order_relaxed) + by,
		std::memory_order_relaxed);
}

long live_sum()
{
	std::lock_guard<std::mutex> g(counts_mtx);
	long n = 0;

	for (alloc_counts *c : all_counts())
		n += c->live.load(std::memory_order_relaxed);
	return n;
}

unsigned long attempts_sum()
{
	std::lock_guard<std::mutex> g(counts_mtx);
	unsigned long n = 0;

	for (alloc_counts *c : all_counts())
		n += c->attempts.load(std::memory_order_relaxed);
	return n;
}

std::atomic<unsigned long> fail_countdown{0};	/* 0: off */
std::atomic<bool> fail_all{false};
std::atomic<bool> fail_sleeping{false};

/* ---- bottom halves and locks (per thread) ---- */
thread_local int bh_depth;
thread_local int locks_held;
std::atomic<unsigned long> next_thread_id{1};

/* ---- user memory ---- */
std::mutex fault_mtx;
std::vector<std::pair<uintptr_t, uintptr_t>> fault_ranges;	/* [lo, hi) */

bool uaccess_faults(uintptr_t a)
{
	if (a < 4096)
		return true;
	std::lock_guard<std::mutex> g(fault_mtx);
	for (const auto &r : fault_ranges)
		if (a >= r.first && a < r.second)
			return true;
	return false;
}

unsigned long lock_owner(const spinlock_t *lock)
{
	return __atomic_load_n(&lock->owner, __ATOMIC_RELAXED);
}

void set_lock_owner(spinlock_t *lock, unsigned long id)
{
	__atomic_store_n(&lock->owner, id, __ATOMIC_RELAXED);
}

} /* namespace */

namespace host {

unsigned long thread_id()
{
	thread_local unsigned long id = next_thread_id.fetch_add(1);
	return id;
}

bool atomic_alloc_fails()
{
	bump(my_counts().attempts, 1UL);
	if (fail_all)
		return true;
	unsigned long c = fail_countdown.load();
	while (c) {
		if (fail_countdown.compare_exchange_weak(c, c - 1))
			return c == 1;
	}
	return false;
}

void live_inc() { bump(my_counts().live, 1L); }
void live_dec() { bump(my_counts().live, -1L); }

/* Bumped by every reset, so rate limits start afresh in each test. */
std::atomic<unsigned long> ratelimit_epoch{1};
std::mutex ratelimit_mtx;

void kernel_reset()
{
	host_log_clear();
	ratelimit_epoch.fetch_add(1);
	{
		std::lock_guard<std::mutex> g(counts_mtx);
		for (alloc_counts *c : all_counts())
			c->attempts.store(0, std::memory_order_relaxed);
	}
	fail_countdown = 0;
	fail_all = false;
	fail_sleeping = false;
	host_uaccess_clear_faults();
	warn_count = 0;
}

} /* namespace host */

extern "C" {

/* ---- WARN ---- */

void host_warn(const char *file, int line, const char *cond)
{
	fprintf(stderr, "WARNING: %s:%d: %s\n", file, line, cond);
	warn_count++;
}

unsigned long host_warn_count(void)
{
	return warn_count;
}

/* ---- printk ---- */

int __ratelimit(struct ratelimit_state *rs)
{
	std::lock_guard<std::mutex> g(host::ratelimit_mtx);
	unsigned long now = jiffies;

	if (rs->epoch != host::ratelimit_epoch || time_after(now, rs->begin + 5 * HZ)) {
		rs->epoch = host::ratelimit_epoch;
		rs->begin = now;
		rs->printed = 0;
	}
	return rs->printed < 10 ? ++rs->printed : 0;
}

int printk(const char *fmt, ...)
{
	char small[512];
	va_list ap;

	va_start(ap, fmt);
	int n = vsnprintf(small, sizeof(small), fmt, ap);
	va_end(ap);
	if (n < 0)
		return 0;
	std::string msg;
	if ((size_t)n < sizeof(small)) {
		msg.assign(small, n);
	} else {
		msg.resize(n + 1);
		va_start(ap, fmt);
		vsnprintf(&msg[0], n + 1, fmt, ap);
		va_end(ap);
		msg.resize(n);
	}

	int level = 4;
	if (msg.size() >= 2 && msg[0] == '\001' && msg[1] >= '0' &&
	    msg[1] <= '7') {
		level = msg[1] - '0';
		msg.erase(0, 2);
	}
	if (getenv("JIX_HOST_LOG"))
		fprintf(stderr, "<%d>%s", level, msg.c_str());

	std::lock_guard<std::mutex> g(log_mtx);
	log_text += msg;
	log_levels[level]++;
	return (int)msg.size();
}

/*
 * The pointer stays valid until the next printk or host_log_clear(), so
 * read the log only while no other thread is printing.
 */
const char *host_log_text(void)
{
	std::lock_guard<std::mutex> g(log_mtx);
	return log_text.c_str();
}

void host_log_clear(void)
{
	std::lock_guard<std::mutex> g(log_mtx);
	log_text.clear();
	for (auto &c : log_levels)
		c = 0;
}

unsigned long host_log_count_level(int level)
{
	if (level < 0 || level > 7)
		return 0;
	std::lock_guard<std::mutex> g(log_mtx);
	return log_levels[level];
}

/* ---- bottom halves and spinlocks ---- */

/* Bottom halves disabled is a read-side RCU section, as in the kernel. */
void local_bh_disable(void)
{
	bh_depth++;
	host::rcu_enter();
}

void local_bh_enable(void)
{
	if (WARN_ON(bh_depth <= 0))
		return;
	host::rcu_exit();
	bh_depth--;
}

int in_softirq(void)
{
	return bh_depth > 0;
}

void spin_lock_init(spinlock_t *lock)
{
	pthread_mutex_init(&lock->mutex, NULL);
	lock->name = "spin_lock_init";
	lock->owner = 0;
	lock->taken_bh = 0;
	lock->taken_plain = 0;
	lock->taken_plain_bh_on = 0;
}

/*
 * Spin a while, as the kernel's spinlock does, before sleeping: the
 * module holds its locks for a few hundred nanoseconds at most, far less
 * than a sleep and wake-up costs.
 */
static void lock_wait(spinlock_t *lock)
{
	for (int i = 0; i < 2000; i++) {
		if (!pthread_mutex_trylock(&lock->mutex))
			return;
		cpu_relax();
	}
	pthread_mutex_lock(&lock->mutex);
}

static void lock_acquire(spinlock_t *lock)
{
	/* Re-taking a held spinlock deadlocks the CPU in the kernel. */
	BUG_ON(lock_owner(lock) == host::thread_id());
	lock_wait(lock);
	set_lock_owner(lock, host::thread_id());
	locks_held++;
}

void spin_lock(spinlock_t *lock)
{
	lock_acquire(lock);
	lock->taken_plain++;
	if (!bh_depth)
		lock->taken_plain_bh_on++;
}

void spin_unlock(spinlock_t *lock)
{
	if (WARN_ON(lock_owner(lock) != host::thread_id()))
		return;
	set_lock_owner(lock, 0);
	locks_held--;
	pthread_mutex_unlock(&lock->mutex);
}

void spin_lock_bh(spinlock_t *lock)
{
	local_bh_disable();
	lock_acquire(lock);
	lock->taken_bh++;
}

void spin_unlock_bh(spinlock_t *lock)
{
	spin_unlock(lock);
	local_bh_enable();
}

int host_lock_held_by_me(const spinlock_t *lock)
{
	return lock_owner(lock) == host::thread_id();
}

int host_locks_held(void)
{
	return locks_held;
}

/* ---- memory ---- */

/* Beyond this even kvmalloc() refuses, with a warning. */
#define KMALLOC_SANE_MAX	((size_t)INT32_MAX)

void *kmalloc(size_t size, gfp_t flags)
{
	if (size > KMALLOC_SANE_MAX) {
		if (!(flags & __GFP_NOWARN))
			WARN_ON(size > KMALLOC_SANE_MAX);
		return NULL;
	}
	if ((flags & GFP_ATOMIC) && host::atomic_alloc_fails())
		return NULL;
	if (!(flags & GFP_ATOMIC) && fail_sleeping)
		return NULL;
	void *p = malloc(size ? size : 1);
	if (!p)
		return NULL;
	if (flags & __GFP_ZERO)
		memset(p, 0, size);
	host::live_inc();
	return p;
}

void *kzalloc(size_t size, gfp_t flags)
{
	return kmalloc(size, flags | __GFP_ZERO);
}

void *kcalloc(size_t n, size_t size, gfp_t flags)
{
	if (size && n > SIZE_MAX / size)
		return NULL;
	return kmalloc(n * size, flags | __GFP_ZERO);
}

void kfree(const void *p)
{
	if (!p)
		return;
	size_t n = malloc_usable_size((void *)p);

	host::timer_check_free(p, n);
	host::live_dec();
	memset((void *)p, 0x6b, n);	/* poison: a late reader sees garbage */
	free((void *)p);
}

void host_alloc_fail_sleeping(int on)
{
	fail_sleeping = on != 0;
}

void host_alloc_fail_nth(unsigned long n)
{
	fail_countdown = n;
}

void host_alloc_fail_all(int on)
{
	fail_all = on != 0;
}

/* Objects waiting for a grace period are still live until it ends. */
long host_alloc_live(void)
{
	if (!host::rcu_reading())
		rcu_barrier();
	return live_sum();
}

unsigned long host_alloc_atomic_attempts(void)
{
	return attempts_sum();
}

/* ---- user memory ---- */

unsigned long copy_from_user(void *to, const void __user *from,
			     unsigned long n)
{
	const unsigned char *src = (const unsigned char *)from;
	unsigned char *dst = (unsigned char *)to;
	unsigned long i = 0;

	for (; i < n && !uaccess_faults((uintptr_t)(src + i)); i++)
		dst[i] = src[i];
	memset(dst + i, 0, n - i);
	return n - i;
}

unsigned long copy_to_user(void __user *to, const void *from,
			   unsigned long n)
{
	const unsigned char *src = (const unsigned char *)from;
	unsigned char *dst = (unsigned char *)to;
	unsigned long i = 0;

	for (; i < n && !uaccess_faults((uintptr_t)(dst + i)); i++)
		dst[i] = src[i];
	return n - i;
}

void host_uaccess_add_fault(const void *addr, size_t len)
{
	std::lock_guard<std::mutex> g(fault_mtx);
	fault_ranges.emplace_back((uintptr_t)addr, (uintptr_t)addr + len);
}

void host_uaccess_clear_faults(void)
{
	std::lock_guard<std::mutex> g(fault_mtx);
	fault_ranges.clear();
}

/* ---- strings ---- */

int scnprintf(char *buf, size_t size, const char *fmt, ...)
{
	va_list ap;

	if (!size)
		return 0;
	va_start(ap, fmt);
	int n = vsnprintf(buf, size, fmt, ap);
	va_end(ap);
	if (n < 0)
		return 0;
	return (size_t)n < size ? n : (int)(size - 1);
}

/* ---- everything ---- */

void host_reset(void)
{
	rcu_barrier();
	host::kernel_reset();
	host::timer_reset();
	host::net_reset();
	host::proc_chrdev_reset();
	host::vendor_reset();
}

} /* extern "C" */
