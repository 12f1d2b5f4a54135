// SPDX-License-Identifier: GPL-2.0
/*
 * The host emulation's checkers that the module tests rely on to fail when
 * they should: lock, leak and device-reference accounting, a timer freed
 * while pending, allocation failure injection and user-copy faults.
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
	host_alloc_fail_nth(2);		/* the second atomic allocation */
	void *a = kmalloc(8, GFP_ATOMIC), *k = kmalloc(8, GFP_KERNEL);
	EXPECT_TRUE(a && k && !kmalloc(8, GFP_ATOMIC));
	EXPECT_EQ(live0 + 2, host_alloc_live());
	kfree(a), kfree(k);
	auto *t = (timer_list *)kzalloc(sizeof(timer_list), GFP_KERNEL);
	timer_setup(t, [](timer_list *) {}, 0);
	mod_timer(t, jiffies + 5);
	kfree(t);
	EXPECT_EQ(1u, host_warn_count());
	host_reset();
	char user[16] = "abcdefghijklmno", kbuf[16];
	host_uaccess_add_fault(user + 5, 3);
	EXPECT_EQ(5ul, copy_from_user(kbuf, user, 10));
	EXPECT_EQ(3ul, copy_to_user(user + 2, "ZZZZZZ", 6));
	EXPECT_EQ(4ul, copy_from_user(kbuf, NULL, 4));
	host_uaccess_clear_faults();
	struct net_device *dev = host_netdev_alloc("nas0");
	host_netdev_register(dev);
	EXPECT_EQ(dev, dev_get_by_name(&init_net, "nas0"));
	EXPECT_EQ(1, host_netdev_refcnt(dev));
	dev_put(dev);
	host_netdev_unregister(dev);
	host_netdev_free(dev);
	EXPECT_EQ(live0, host_alloc_live());
}
