// SPDX-License-Identifier: GPL-2.0
/*
 * The host emulation's checkers that would let every test pass if they were
 * silent: lock and leak accounting and the warning for a timer freed while
 * pending.  (Failure injection, user-copy faults and device references are
 * seen to work by the tests that count on them.)
 */
#include <gtest/gtest.h>

#include "platform/host/host_ctl.h"

TEST(Host, CheckersSeeWhatTheyGuard)
{
	host_reset();
	long live0 = host_alloc_live();
	DEFINE_SPINLOCK(lock);
	spin_lock(&lock);
	EXPECT_EQ(1, host_locks_held());
	spin_unlock(&lock);
	auto *t = (timer_list *)kzalloc(sizeof(timer_list), GFP_ATOMIC);
	EXPECT_EQ(live0 + 1, host_alloc_live());
	timer_setup(t, [](timer_list *) {}, 0);
	mod_timer(t, jiffies + 5);
	kfree(t);
	EXPECT_EQ(1u, host_warn_count());
	EXPECT_EQ(live0, host_alloc_live());
	host_reset();
}
