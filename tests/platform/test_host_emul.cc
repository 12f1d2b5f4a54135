// SPDX-License-Identifier: GPL-2.0
/*
 * Tests of the host emulation's checking features that module tests rely
 * on to fail when they should: leak and lock accounting, allocation
 * failure injection, timers freed while pending, waiting for a running
 * timer, user-copy faults and device references.  The rest of the
 * emulation is exercised by the module tests themselves, which fail
 * loudly when it misbehaves.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "platform/host/host_ctl.h"

namespace {
class Host : public ::testing::Test {
protected:
	void SetUp() override
	{
		host_reset();
		live0 = host_alloc_live();
	}
	void TearDown() override
	{
		EXPECT_EQ(host_alloc_live(), live0);
		EXPECT_EQ(host_warn_count(), 0ul);
	}
	long live0;
};

TEST_F(Host, SpinlockRecordsHowItWasTaken)
{
	DEFINE_SPINLOCK(lock);

	spin_lock_bh(&lock);
	EXPECT_TRUE(in_softirq());
	EXPECT_TRUE(host_lock_held_by_me(&lock));
	std::thread([&] { EXPECT_FALSE(host_lock_held_by_me(&lock)); }).join();
	spin_unlock_bh(&lock);
	EXPECT_FALSE(in_softirq());

	spin_lock(&lock);			/* bh enabled: counted */
	EXPECT_EQ(host_locks_held(), 1);
	spin_unlock(&lock);
	local_bh_disable();
	spin_lock(&lock);			/* softirq context: fine */
	spin_unlock(&lock);
	local_bh_enable();
	EXPECT_EQ(lock.taken_bh, 1ul);
	EXPECT_EQ(lock.taken_plain, 2ul);
	EXPECT_EQ(lock.taken_plain_bh_on, 1ul);
	EXPECT_EQ(host_locks_held(), 0);
}

/* ---- allocation ---- */

TEST_F(Host, NthAtomicAllocationFailsOnceAndSleepingOnesNever)
{
	host_alloc_fail_nth(3);
	void *a = kmalloc(8, GFP_ATOMIC);
	void *k = kmalloc(8, GFP_KERNEL);	/* not counted towards n */
	struct sk_buff *s = alloc_skb(64, GFP_ATOMIC);
	void *c = kzalloc(8, GFP_ATOMIC);	/* the third: fails */
	void *d = kcalloc(2, 8, GFP_ATOMIC);
	EXPECT_TRUE(a && k && s && d);
	EXPECT_EQ(c, nullptr);
	EXPECT_EQ(host_alloc_live(), live0 + 4);
	EXPECT_EQ(host_alloc_atomic_attempts(), 4ul);
	kfree(a), kfree(k), kfree_skb(s), kfree(d), kfree(NULL);

	host_alloc_fail_all(1);
	EXPECT_EQ(skbmgr_alloc_skb2k(), nullptr);
	EXPECT_NE(a = kmalloc(8, GFP_KERNEL), nullptr);
	kfree(a);
	EXPECT_EQ(kmalloc(1ul << 40, GFP_KERNEL | __GFP_NOWARN), nullptr);
}

struct slow_timer {
	struct timer_list t;
	std::atomic<int> state{0};	/* 1 running, 2 finished */
};

void slow_fn(struct timer_list *t)
{
	struct slow_timer *s = from_timer(s, t, t);

	s->state = 1;
	std::this_thread::sleep_for(std::chrono::milliseconds(50));
	s->state = 2;
}

TEST_F(Host, DelTimerSyncWaitsForARunningCallback)
{
	struct slow_timer s;

	timer_setup(&s.t, slow_fn, 0);
	mod_timer(&s.t, jiffies + 1);
	std::thread softirq([] { host_jiffies_advance(1); });
	while (s.state == 0)
		std::this_thread::yield();
	del_timer_sync(&s.t);
	EXPECT_EQ(s.state, 2);
	softirq.join();
}

struct owned_timer {
	struct timer_list t;
	bool free_self = false;
};

void owned_fn(struct timer_list *t)
{
	struct owned_timer *o = from_timer(o, t, t);

	if (o->free_self)
		kfree(o);
}

TEST_F(Host, FreeingAPendingTimerWarnsAFunctionMayFreeItsOwn)
{
	auto *o = (owned_timer *)kzalloc(sizeof(owned_timer), GFP_KERNEL);

	timer_setup(&o->t, owned_fn, 0);
	mod_timer(&o->t, jiffies + 5);
	kfree(o);
	EXPECT_EQ(host_warn_count(), 1u);
	host_reset();	/* drops the dangling timer and the warning */

	o = (owned_timer *)kzalloc(sizeof(owned_timer), GFP_KERNEL);
	o->free_self = true;
	timer_setup(&o->t, owned_fn, 0);
	mod_timer(&o->t, jiffies + 5);
	EXPECT_EQ(host_timers_pending(), 1);
	host_jiffies_advance(5);
	EXPECT_EQ(host_warn_count(), 0u);
	EXPECT_EQ(host_timers_pending(), 0);
}

TEST_F(Host, UserCopyStopsAtFaultAndZeroFills)
{
	char user[16] = "abcdefghijklmno";
	char k[16];

	memset(k, 'x', sizeof(k));
	host_uaccess_add_fault(user + 5, 3);
	EXPECT_EQ(copy_from_user(k, user, 10), 5ul);
	EXPECT_EQ(std::string(k, 10), std::string("abcde\0\0\0\0\0", 10));
	EXPECT_EQ(k[10], 'x');
	EXPECT_EQ(copy_to_user(user + 2, "ZZZZZZ", 6), 3ul);
	EXPECT_STREQ(user, "abZZZfghijklmno");
	EXPECT_EQ(copy_from_user(k, NULL, 4), 4ul);
	host_uaccess_clear_faults();
	EXPECT_EQ(copy_from_user(k, user, 16), 0ul);
}

TEST_F(Host, DeviceReferencesAreCounted)
{
	struct net_device *dev = host_netdev_alloc("nas0");

	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), nullptr);
	host_netdev_register(dev);
	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), dev);
	EXPECT_EQ(host_netdev_refcnt(dev), 1);
	dev_hold(dev);
	EXPECT_EQ(host_netdev_refcnt(dev), 2);
	dev_put(dev);
	dev_put(dev);
	EXPECT_EQ(host_netdev_refcnt(dev), 0);
	host_netdev_unregister(dev);
	host_netdev_free(dev);
}

} /* namespace */
