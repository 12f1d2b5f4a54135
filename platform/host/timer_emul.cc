// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of jiffies and timers.  Time stands still until a test
 * advances it; the advancing thread then runs the expired timers, in
 * softirq context, tick by tick as the kernel's timer softirq would.
 */
#include "host_emul.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

#define JIFFIES_START	100000UL

volatile unsigned long jiffies = JIFFIES_START;

namespace {

std::mutex timer_mtx;
std::condition_variable timer_done;
/* Pending timers and the arming sequence number of each. */
std::map<struct timer_list *, unsigned long> pending;
/*
 * Timers whose function is running, on which thread, and whether that
 * function has re-armed its own timer.
 */
struct run_state {
	unsigned long thread;
	bool rearmed;
};
std::multimap<struct timer_list *, run_state> running;
unsigned long arm_seq;
/* Called on the timer's thread just before each timer function. */
void (*prerun)(struct timer_list *t);

/* Value of entry.pprev that marks a timer as pending. */
struct hlist_node **pending_mark(struct timer_list *t)
{
	return &t->entry.next;
}

void set_pending(struct timer_list *t, bool on)
{
	__atomic_store_n(&t->entry.pprev, on ? pending_mark(t) : nullptr,
			 __ATOMIC_RELAXED);
}

unsigned long now()
{
	return __atomic_load_n(&jiffies, __ATOMIC_RELAXED);
}

void set_now(unsigned long j)
{
	__atomic_store_n(&jiffies, j, __ATOMIC_RELAXED);
}

/* Caller holds timer_mtx. */
bool detach(struct timer_list *t)
{
	if (!pending.erase(t))
		return false;
	set_pending(t, false);
	return true;
}

bool running_elsewhere(struct timer_list *t)
{
	auto r = running.equal_range(t);
	for (auto it = r.first; it != r.second; ++it)
		if (it->second.thread != host::thread_id())
			return true;
	return false;
}

/* Caller holds timer_mtx: @t's own function re-arms it. */
void note_rearm(struct timer_list *t)
{
	auto r = running.equal_range(t);
	for (auto it = r.first; it != r.second; ++it)
		if (it->second.thread == host::thread_id())
			it->second.rearmed = true;
}

struct due_timer {
	struct timer_list *t;
	unsigned long seq;
	long when;		/* expiry relative to the current tick */
};

/* Timers due at tick @j, in expiry then arming order. */
std::vector<due_timer> collect_due(unsigned long j)
{
	std::vector<due_timer> due;

	for (const auto &p : pending) {
		long when = (long)(p.first->expires - j);
		if (when <= 0)
			due.push_back({p.first, p.second, when});
	}
	std::sort(due.begin(), due.end(), [](const due_timer &a,
					       const due_timer &b) {
		return a.when != b.when ? a.when < b.when : a.seq < b.seq;
	});
	return due;
}

/* First expiry in (j, target], or @target when none. */
unsigned long next_expiry(unsigned long j, unsigned long target)
{
	unsigned long next = target;

	for (const auto &p : pending) {
		unsigned long e = p.first->expires;
		if (time_after(e, j) && time_before(e, next))
			next = e;
	}
	return next;
}

/* Run one timer of a batch unless it was re-armed or deleted since. */
void run_one(const due_timer &d)
{
	std::unique_lock<std::mutex> g(timer_mtx);
	auto it = pending.find(d.t);
	if (it == pending.end() || it->second != d.seq)
		return;
	detach(d.t);
	auto run = running.emplace(d.t, run_state{ host::thread_id(), false });
	void (*fn)(struct timer_list *) = d.t->function;
	void (*before)(struct timer_list *) = prerun;
	g.unlock();

	local_bh_disable();
	if (before)
		before(d.t);
	fn(d.t);
	/*
	 * Done before the read-side section ends: a grace period that waited
	 * for this run may free the timer as soon as it does.
	 */
	g.lock();
	running.erase(run);
	timer_done.notify_all();
	g.unlock();
	local_bh_enable();
}

} /* namespace */

namespace host {

void timer_reset()
{
	std::lock_guard<std::mutex> g(timer_mtx);
	pending.clear();
	prerun = nullptr;
	set_now(JIFFIES_START);
}

/*
 * Freeing memory that holds a pending timer, or a timer whose function
 * runs on another thread, is a use-after-free in the making (the kernel's
 * debugobjects reports the first).  A timer function may free its own
 * timer.  A function that has re-armed its own timer is taken to be done
 * with it (re-arming under the owner's lock is its last act), so another
 * thread that then deletes the timer may free it: the kernel's timer code
 * does not touch a timer after its function returns.  AddressSanitizer
 * catches a function that breaks this rule.
 */
void timer_check_free(const void *p, size_t n)
{
	std::lock_guard<std::mutex> g(timer_mtx);
	uintptr_t lo = (uintptr_t)p, hi = lo + n;

	/* Both maps are ordered by address: look at [lo, hi) only. */
	auto first = pending.lower_bound((struct timer_list *)lo);
	for (auto q = first; q != pending.end() && (uintptr_t)q->first < hi; ++q)
		host_warn(__FILE__, __LINE__, "kfree of a pending timer");
	auto from = running.lower_bound((struct timer_list *)lo);
	for (auto r = from; r != running.end() && (uintptr_t)r->first < hi; ++r)
		if (r->second.thread != host::thread_id() && !r->second.rearmed)
			host_warn(__FILE__, __LINE__,
				  "kfree of a timer running on another thread");
}

} /* namespace host */

extern "C" {

unsigned long round_jiffies(unsigned long j)
{
	unsigned long original = j;
	unsigned long rem = j % HZ;

	if (rem < HZ / 4)
		j -= rem;
	else
		j = j - rem + HZ;
	return time_after(j, now()) ? j : original;
}

void timer_setup(struct timer_list *t, void (*fn)(struct timer_list *),
		 unsigned int flags)
{
	t->entry.next = NULL;
	set_pending(t, false);
	t->expires = 0;
	t->function = fn;
	t->flags = flags;
}

int mod_timer(struct timer_list *t, unsigned long expires)
{
	std::lock_guard<std::mutex> g(timer_mtx);
	bool was = pending.count(t) != 0;

	note_rearm(t);
	if (was && t->expires == expires)
		return 1;
	t->expires = expires;
	pending[t] = ++arm_seq;
	set_pending(t, true);
	return was;
}

int mod_timer_pending(struct timer_list *t, unsigned long expires)
{
	std::lock_guard<std::mutex> g(timer_mtx);

	if (!pending.count(t))
		return 0;
	note_rearm(t);
	if (t->expires != expires) {
		t->expires = expires;
		pending[t] = ++arm_seq;
	}
	return 1;
}

int del_timer(struct timer_list *t)
{
	std::lock_guard<std::mutex> g(timer_mtx);
	return detach(t);
}

int del_timer_sync(struct timer_list *t)
{
	std::unique_lock<std::mutex> g(timer_mtx);

	/* Called from the timer's own function this would never return. */
	WARN_ON(running.count(t) && !running_elsewhere(t));
	timer_done.wait(g, [t] { return !running_elsewhere(t); });
	return detach(t);
}

int timer_pending(const struct timer_list *t)
{
	return __atomic_load_n(&t->entry.pprev, __ATOMIC_RELAXED) != NULL;
}

void host_jiffies_advance(unsigned long n)
{
	unsigned long target = now() + n;

	for (;;) {
		std::unique_lock<std::mutex> g(timer_mtx);
		unsigned long j = now();
		std::vector<due_timer> due = collect_due(j);

		if (due.empty()) {
			if (j == target)
				return;
			set_now(next_expiry(j, target));
			continue;
		}
		g.unlock();
		/* Timers armed for this tick by these functions run next tick. */
		for (const due_timer &d : due)
			run_one(d);
		if (j == target)
			return;
		set_now(j + 1);
	}
}

void host_jiffies_set(unsigned long j)
{
	set_now(j);
}

void host_timer_set_prerun(void (*fn)(struct timer_list *t))
{
	std::lock_guard<std::mutex> g(timer_mtx);
	prerun = fn;
}

int host_timers_running(void)
{
	std::lock_guard<std::mutex> g(timer_mtx);
	return (int)running.size();
}

int host_timers_pending(void)
{
	std::lock_guard<std::mutex> g(timer_mtx);
	return (int)pending.size();
}

} /* extern "C" */
