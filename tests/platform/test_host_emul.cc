// SPDX-License-Identifier: GPL-2.0
/*
 * The host emulation's checkers that the module tests rely on to fail when
 * they should: lock, leak, timer and device-reference accounting,
 * allocation failure injection and user-copy faults.  The rest of the
 * emulation is exercised by the module tests themselves.
 */
#include <gtest/gtest.h>

#include <string>

#include "platform/host/host_ctl.h"

namespace {

void noop_fn(struct timer_list *) {}

TEST(Host, CheckersSeeWhatTheyGuard)
{
	host_reset();
	long live0 = host_alloc_live();
	DEFINE_SPINLOCK(lock);

	spin_lock(&lock);
	EXPECT_EQ(host_locks_held(), 1);
	spin_unlock(&lock);

	host_alloc_fail_nth(2);		/* the second atomic allocation */
	void *a = kmalloc(8, GFP_ATOMIC);
	void *k = kmalloc(8, GFP_KERNEL);	/* sleeping: never failed */
	EXPECT_TRUE(a && k);
	EXPECT_EQ(kmalloc(8, GFP_ATOMIC), nullptr);
	EXPECT_EQ(host_alloc_live(), live0 + 2);
	kfree(a), kfree(k);

	auto *t = (timer_list *)kzalloc(sizeof(timer_list), GFP_KERNEL);
	timer_setup(t, noop_fn, 0);
	mod_timer(t, jiffies + 5);
	kfree(t);			/* freed while pending */
	EXPECT_EQ(host_warn_count(), 1u);
	host_reset();

	char user[16] = "abcdefghijklmno", kbuf[16];
	host_uaccess_add_fault(user + 5, 3);
	EXPECT_EQ(copy_from_user(kbuf, user, 10), 5ul);
	EXPECT_EQ(std::string(kbuf, 10), std::string("abcde\0\0\0\0\0", 10));
	EXPECT_EQ(copy_to_user(user + 2, "ZZZZZZ", 6), 3ul);
	EXPECT_EQ(copy_from_user(kbuf, NULL, 4), 4ul);
	host_uaccess_clear_faults();

	struct net_device *dev = host_netdev_alloc("nas0");
	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), nullptr);
	host_netdev_register(dev);
	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), dev);
	EXPECT_EQ(host_netdev_refcnt(dev), 1);
	dev_put(dev);
	host_netdev_unregister(dev);
	host_netdev_free(dev);
	EXPECT_EQ(host_alloc_live(), live0);
}

} /* namespace */
