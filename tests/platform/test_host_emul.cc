// SPDX-License-Identifier: GPL-2.0
/*
 * Tests of the host emulation itself: the behaviours module tests lean on
 * and that are easy to get subtly wrong.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

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

/* ---- log and locks ---- */

TEST_F(Host, PrintkStripsLevelAndCountsPerLevel)
{
	printk(KERN_ERR "a%d\n", 1);
	printk("b\n");
	printk(KERN_DEBUG "c\n");
	printk(KERN_ERR "d\n");
	EXPECT_STREQ(host_log_text(), "a1\nb\nc\nd\n");
	EXPECT_EQ(host_log_count_level(3), 2ul);
	EXPECT_EQ(host_log_count_level(4), 1ul);
	EXPECT_EQ(host_log_count_level(7), 1ul);
	host_log_clear();
	EXPECT_STREQ(host_log_text(), "");
	EXPECT_EQ(host_log_count_level(3), 0ul);
}

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

/* ---- timers ---- */

struct probe {
	struct timer_list t;
	std::vector<std::pair<int, unsigned long>> *log = nullptr;
	int id = 0;
	long rearm = -1;		/* period, -1: one shot */
	struct timer_list *postpone = nullptr;	/* by 20 from the callback */
};

void probe_fn(struct timer_list *t)
{
	struct probe *p = from_timer(p, t, t);

	EXPECT_TRUE(in_softirq());
	p->log->push_back({p->id, jiffies});
	if (p->postpone)
		mod_timer(p->postpone, jiffies + 20);
	if (p->rearm >= 0)
		mod_timer(&p->t, jiffies + p->rearm);
}

TEST_F(Host, TimersRunInExpiryOrderAtTheirTick)
{
	std::vector<std::pair<int, unsigned long>> log;
	struct probe p[4];
	unsigned long j0 = jiffies;
	unsigned long when[4] = { j0 + 30, j0 + 10, j0 + 20, j0 + 20 };

	for (int i = 0; i < 4; i++) {
		p[i].log = &log, p[i].id = i;
		timer_setup(&p[i].t, probe_fn, 0);
		EXPECT_FALSE(timer_pending(&p[i].t));
		EXPECT_EQ(mod_timer(&p[i].t, when[i]), 0);
	}
	EXPECT_EQ(mod_timer(&p[3].t, j0 + 20), 1);
	p[2].postpone = &p[3].t;	/* armed first for the same tick */
	host_jiffies_advance(29);
	ASSERT_EQ(log.size(), 2u);
	EXPECT_EQ(log[0], std::make_pair(1, j0 + 10));
	EXPECT_EQ(log[1], std::make_pair(2, j0 + 20));
	host_jiffies_advance(100);
	ASSERT_EQ(log.size(), 4u);
	EXPECT_EQ(log[2], std::make_pair(0, j0 + 30));
	EXPECT_EQ(log[3], std::make_pair(3, j0 + 40));
	EXPECT_EQ(jiffies, j0 + 129);
	EXPECT_EQ(host_timers_pending(), 0);
}

TEST_F(Host, TimerRearmedFromItsCallbackAcrossJiffiesWrap)
{
	std::vector<std::pair<int, unsigned long>> log;
	struct probe p;

	host_jiffies_set(-25UL);
	p.log = &log, p.rearm = 10;
	timer_setup(&p.t, probe_fn, 0);
	mod_timer(&p.t, jiffies + 10);
	host_jiffies_advance(45);
	ASSERT_EQ(log.size(), 4u);
	EXPECT_EQ(log[3].second, 15ul);
	EXPECT_TRUE(timer_pending(&p.t));

	/* Re-armed for the current tick: runs once per tick, no livelock. */
	p.rearm = 0;
	log.clear();
	mod_timer(&p.t, jiffies);
	host_jiffies_advance(3);
	EXPECT_EQ(log.size(), 4u);
	EXPECT_EQ(del_timer(&p.t), 1);
	EXPECT_EQ(del_timer(&p.t), 0);
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
	host_jiffies_advance(5);
	EXPECT_EQ(host_warn_count(), 0u);
	EXPECT_EQ(host_timers_pending(), 0);
}

static struct timer_list *prerun_seen;
static int prerun_pending;

static void prerun_probe(struct timer_list *t)
{
	prerun_seen = t;
	prerun_pending = timer_pending(t);
	EXPECT_TRUE(in_softirq());
}

TEST_F(Host, PrerunHookSeesTheFiredTimerBeforeItsFunction)
{
	std::vector<std::pair<int, unsigned long>> log;
	struct probe p;

	p.log = &log;
	timer_setup(&p.t, probe_fn, 0);
	mod_timer(&p.t, jiffies + 2);
	host_timer_set_prerun(prerun_probe);
	host_jiffies_advance(2);
	host_timer_set_prerun(nullptr);
	EXPECT_EQ(prerun_seen, &p.t);
	EXPECT_EQ(prerun_pending, 0);	/* fired: no longer pending */
	EXPECT_EQ(log.size(), 1u);
	EXPECT_EQ(host_timers_running(), 0);
}

TEST_F(Host, RoundJiffiesToWholeSecondsNeverIntoThePast)
{
	host_jiffies_set(1000);
	EXPECT_EQ(round_jiffies(5 * HZ + HZ / 4 - 1), 5ul * HZ);
	EXPECT_EQ(round_jiffies(5 * HZ + HZ / 4), 6ul * HZ);
	EXPECT_EQ(round_jiffies(1010), 1010ul);	/* 1000 is not ahead */
	EXPECT_EQ(round_jiffies(1070), 1250ul);
}

/* ---- user memory ---- */

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

/* ---- socket buffers ---- */

TEST_F(Host, SkbPointerOpsAndCopy)
{
	struct sk_buff *skb = alloc_skb(100, GFP_ATOMIC);

	EXPECT_FALSE(skb_mac_header_was_set(skb));
	skb_reserve(skb, 20);
	memcpy(skb_put(skb, 30), "0123456789abcdefghijklmnopqrst", 30);
	EXPECT_EQ(skb_headroom(skb), 20u);
	EXPECT_EQ(skb_tailroom(skb), 50);
	skb_reset_mac_header(skb);
	EXPECT_EQ(skb_pull(skb, 31), nullptr);
	EXPECT_EQ((char *)skb_pull(skb, 14), (char *)skb->head + 34);
	skb_reset_network_header(skb);
	EXPECT_EQ((char *)skb_push(skb, 14), (char *)skb->head + 20);
	EXPECT_EQ(skb->len, 30u);
	skb->vendor_flags = 0x11, skb->hwnat_ctrl = 0x22, skb->cb[47] = 7;

	struct sk_buff *c = skb_copy(skb, GFP_ATOMIC);
	EXPECT_NE(c->head, skb->head);
	EXPECT_EQ(skb_headroom(c), 20u);
	EXPECT_EQ(skb_tailroom(c), 50);
	EXPECT_EQ(memcmp(c->data, "0123456789abcd", 14), 0);
	EXPECT_EQ(c->mac_header, 20);
	EXPECT_EQ(c->network_header, 34);
	EXPECT_EQ(c->vendor_flags + c->hwnat_ctrl + c->cb[47], 0x11 + 0x22 + 7);
	kfree_skb(skb);
	consume_skb(c);
	kfree_skb(NULL);
}

struct sk_buff *eth_frame(unsigned int headroom)
{
	struct sk_buff *skb = alloc_skb(headroom + 20, GFP_ATOMIC);
	skb_reserve(skb, headroom);
	unsigned char *p = (unsigned char *)skb_put(skb, 20);
	for (int i = 0; i < 20; i++)
		p[i] = (unsigned char)i;
	skb_reset_mac_header(skb);
	skb_set_network_header(skb, 14);
	return skb;
}

const unsigned char tagged[24] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
	0x81, 0x00, 0x2f, 0xed, 12, 13, 14, 15, 16, 17, 18, 19 };

TEST_F(Host, VlanTagInsertedBehindMacAddresses)
{
	struct sk_buff *roomy = eth_frame(8), *tight = eth_frame(2);

	for (struct sk_buff *skb : { roomy, tight }) {
		ASSERT_EQ(jix_vlan_put_tag(skb, 0x2fed), 0);
		ASSERT_EQ(skb->len, 24u);
		EXPECT_EQ(memcmp(skb->data, tagged, 24), 0);
		EXPECT_EQ(skb_mac_header(skb), skb->data);
		EXPECT_EQ(skb_network_header(skb), skb->data + 18);
		kfree_skb(skb);
	}
}

TEST_F(Host, VlanTagFailureLeavesFrameIntact)
{
	struct sk_buff *skb = eth_frame(2);
	unsigned char *data = skb->data;

	host_alloc_fail_nth(1);
	EXPECT_EQ(jix_vlan_put_tag(skb, 5), -ENOMEM);
	EXPECT_EQ(skb->data, data);
	EXPECT_EQ(skb->len, 20u);
	EXPECT_EQ(data[12], 12);
	EXPECT_EQ(skb->mac_header, 2);
	kfree_skb(skb);
}

/* ---- network devices ---- */

struct recorder {
	struct notifier_block nb;
	std::vector<std::string> seen;	/* "<event>:<name>:<resolves>" */
};

int record_event(struct notifier_block *nb, unsigned long ev, void *data)
{
	struct recorder *r = container_of(nb, struct recorder, nb);
	struct net_device *dev =
		netdev_notifier_info_to_dev((struct netdev_notifier_info *)data);
	struct net_device *found = dev_get_by_name(&init_net, dev->name);

	dev_put(found);
	r->seen.push_back(std::to_string(ev) + ":" + dev->name +
			  (found == dev ? ":y" : ":n"));
	return NOTIFY_DONE;
}

TEST_F(Host, NotifierReplaysToTheJoiningBlockOnly)
{
	struct net_device *a = host_netdev_alloc("eth0");
	struct net_device *b = host_netdev_alloc("eth1");
	recorder r1, r2;
	r1.nb = { record_event, NULL, 0 };
	r2.nb = { record_event, NULL, 0 };

	host_netdev_register(a);
	register_netdevice_notifier(&r1.nb);
	register_netdevice_notifier(&r2.nb);
	host_netdev_register(b);
	EXPECT_EQ(r1.seen, (std::vector<std::string>{ "5:eth0:y", "5:eth1:y" }));
	EXPECT_EQ(r2.seen, r1.seen);
	unregister_netdevice_notifier(&r1.nb);
	host_netdev_unregister(a);
	EXPECT_EQ(r1.seen.size(), 4u);	/* 6:eth0, 6:eth1 on leaving */
	EXPECT_EQ(r1.seen[3], "6:eth1:y");
	EXPECT_EQ(r2.seen.back(), "6:eth0:n");	/* name gone, as in kernel */
	EXPECT_EQ(r2.seen.size(), 3u);
	unregister_netdevice_notifier(&r2.nb);
	host_netdev_unregister(b);
	host_netdev_free(a);
	host_netdev_free(b);
}

TEST_F(Host, DeviceReferencesAndDirectTransmit)
{
	struct net_device *dev = host_netdev_alloc("nas0");

	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), nullptr);
	host_netdev_register(dev);
	EXPECT_EQ(dev_get_by_name(&init_net, "nas0"), dev);
	EXPECT_EQ(host_netdev_refcnt(dev), 1);

	struct sk_buff *skb = eth_frame(4);
	skb->dev = dev;
	jix_skb_or_vendor_flags(skb, 0x4);
	EXPECT_EQ(jix_dev_xmit(skb), NETDEV_TX_OK);
	unsigned char buf[32];
	ASSERT_EQ(host_netdev_tx_count(dev), 1u);
	EXPECT_EQ(host_netdev_tx_frame(dev, 0, buf, sizeof(buf)), 20);
	EXPECT_EQ(buf[19], 19);
	EXPECT_EQ(host_netdev_tx_vendor_flags(dev, 0), 0x4u);
	EXPECT_EQ(host_netdev_tx_frame(dev, 1, buf, sizeof(buf)), -1);

	skb = eth_frame(4);			/* no device: consumed */
	EXPECT_EQ(jix_dev_xmit(skb), -ENODEV);
	dev_put(dev);
	host_netdev_unregister(dev);
	host_netdev_free(dev);
}

TEST_F(Host, DiscardingDeviceCountsAndFreesFrames)
{
	struct net_device *dev = host_netdev_alloc("nas1");
	unsigned char buf[32];

	host_netdev_register(dev);
	struct sk_buff *skb = eth_frame(4);
	skb->dev = dev;
	EXPECT_EQ(jix_dev_xmit(skb), NETDEV_TX_OK);		/* kept */
	host_netdev_tx_discard(dev, 1);
	for (int i = 0; i < 3; i++) {
		skb = eth_frame(4);
		skb->dev = dev;
		EXPECT_EQ(jix_dev_xmit(skb), NETDEV_TX_OK);	/* freed */
	}
	EXPECT_EQ(host_netdev_tx_count(dev), 4u);
	EXPECT_EQ(host_netdev_tx_frame(dev, 0, buf, sizeof(buf)), 20);
	EXPECT_EQ(host_netdev_tx_frame(dev, 1, buf, sizeof(buf)), -1);
	host_netdev_tx_clear(dev);
	EXPECT_EQ(host_netdev_tx_count(dev), 0u);
	host_netdev_tx_discard(dev, 0);
	host_netdev_unregister(dev);
	host_netdev_free(dev);
}

/* ---- proc files ---- */

const char proc_body[] = "line one\nline two is longer\n";

int read_whole(char *page, char **start, off_t off, int count, int *eof,
	       void *data)
{
	int len = sprintf(page, "%s", (const char *)data);

	if (off >= len) {
		*eof = 1;
		return 0;
	}
	*start = page + off;
	if (len - off <= count)
		*eof = 1;
	return len - off < count ? len - (int)off : count;
}

int write_sink(struct file *f, const char __user *buf, unsigned long count,
	       void *data)
{
	(void)f;
	return copy_from_user(data, buf, count) ? -EFAULT : (int)count;
}

TEST_F(Host, ProcReadWrapperServesChunksAndWritesSeeUserFaults)
{
	struct jix_proc_entry *e = jix_create_proc_entry("kv/mc", 0644);
	char sink[8] = {}, buf[64] = {};

	e->read_proc = read_whole;
	e->data = (void *)proc_body;
	EXPECT_TRUE(host_proc_exists("kv"));
	EXPECT_EQ(host_proc_read("kv/mc", buf, 4, 5), 4);
	EXPECT_EQ(std::string(buf, 4), "one\n");
	EXPECT_STREQ(host_proc_read_all("kv/mc", 3), proc_body);
	EXPECT_EQ(host_proc_write("kv/mc", "x", 1), -EIO);

	e->write_proc = write_sink;
	e->data = sink;
	EXPECT_EQ(host_proc_write("kv/mc", "abcd", 4), 4);
	EXPECT_STREQ(sink, "abcd");
	const char *user = "efgh";
	host_uaccess_add_fault(user + 2, 1);
	EXPECT_EQ(host_proc_write("kv/mc", user, 4), -EFAULT);
	EXPECT_EQ(std::string(sink, 4), std::string("ef\0\0", 4));

	host_proc_fail_next_create();
	EXPECT_EQ(jix_create_proc_entry("other", 0444), nullptr);
	jix_remove_proc_entry("kv/mc");
	EXPECT_FALSE(host_proc_exists("kv"));
	EXPECT_EQ(host_proc_count(), 0);
}

/* ---- character devices ---- */

long ioctl_echo(struct file *f, unsigned int cmd, unsigned long arg)
{
	(void)f;
	return (long)(cmd + arg);
}

TEST_F(Host, ChrdevDispatchByMajorAndMinorRange)
{
	static const struct file_operations fops = { NULL, ioctl_echo };

	host_chrdev_fail_next(-ENOMEM);
	EXPECT_EQ(__register_chrdev(220, 0, 2, "mc", &fops), -ENOMEM);
	EXPECT_EQ(__register_chrdev(220, 0, 2, "mc", &fops), 0);
	EXPECT_EQ(__register_chrdev(220, 1, 1, "x", &fops), -EBUSY);
	EXPECT_STREQ(host_chrdev_name(220), "mc");
	EXPECT_EQ(host_chrdev_ioctl(220, 1, 5, 3), 8);
	EXPECT_EQ(host_chrdev_ioctl(220, 2, 5, 3), -ENODEV);
	__unregister_chrdev(220, 0, 2, "mc");
	EXPECT_FALSE(host_chrdev_registered(220));
	EXPECT_EQ(host_chrdev_ioctl(220, 0, 5, 3), -ENODEV);
}

/* ---- vendor stand-in ---- */

int api_hook(void *data)
{
	/* Re-enters the framework, as the module's API does. */
	unsigned char rec[16] = {};
	rec[0] = 12, rec[8] = *(int *)data;
	__QUOR_HOOK(QUOR_HOOK_TYPE_SWITCH_PORT, 0, rec);
	return (signed char)rec[9];
}

TEST_F(Host, HookRegistryAndReentrantCall)
{
	struct quor_hook_ops ops = {};
	ops.hookfn = api_hook;
	ops.hook_type = QUOR_HOOK_TYPE_MULTICAST;
	ops.hook_subtype = QUOR_MC_SUBTYPE_API;

	host_quor_fail_next_register(-EINVAL);
	EXPECT_EQ(quor_register_hook(&ops), -EINVAL);
	EXPECT_EQ(quor_register_hook(&ops), 0);
	EXPECT_EQ(quor_register_hook(&ops), -EEXIST);
	EXPECT_EQ(host_quor_find(36, 2), &ops);
	host_switch_port_set(1, 3);
	int lan = 1;
	EXPECT_EQ(__QUOR_HOOK(36, 2, &lan), 3);
	lan = 2;
	EXPECT_EQ(__QUOR_HOOK(36, 2, &lan), -1);	/* unmapped port */
	quor_unregister_hook(&ops);
	EXPECT_EQ(__QUOR_HOOK(36, 2, &lan), -1);	/* no hook */
	EXPECT_EQ(host_quor_registered_count(), 0);
}

TEST_F(Host, CounterServicesUseTheRecordLayout)
{
	unsigned char pool[64] = {}, req[256] = {};
	u32 v;

	v = 19, memcpy(pool, &v, 4);
	strcpy((char *)pool + 40, "MCST_DW");
	u64 namep = (uintptr_t)(pool + 40);
	memcpy(pool + 16, &namep, 8);
	ASSERT_EQ(__QUOR_HOOK(20, 0, pool), 0);
	memcpy(&v, pool + 56, 4);
	EXPECT_EQ(v, 100u);
	ASSERT_EQ(__QUOR_HOOK(20, 0, pool), 0);
	memcpy(&v, pool + 56, 4);
	EXPECT_EQ(v, 101u);
	EXPECT_EQ(host_counters_taken(), 2);

	host_counter_set(101, 0x100000002ull, 7);
	v = 90, memcpy(req, &v, 4);
	req[80] = 101;
	ASSERT_EQ(__QUOR_HOOK(19, 0, req), 0);
	u32 w[4];
	memcpy(w, req + 104, 16);
	EXPECT_EQ(w[0], 2u);
	EXPECT_EQ(w[1], 1u);
	EXPECT_EQ(w[2], 7u);
	EXPECT_EQ(w[3], 0u);
	EXPECT_EQ(host_counter_reads(), 1ul);
	v = 91, memcpy(req, &v, 4);
	ASSERT_EQ(__QUOR_HOOK(19, 0, req), 0);
	EXPECT_EQ(host_counter_clears(101), 1ul);

	v = 20, memcpy(pool, &v, 4);		/* give back 101 */
	ASSERT_EQ(__QUOR_HOOK(20, 0, pool), 0);
	EXPECT_FALSE(host_counter_taken(101));
	EXPECT_TRUE(host_counter_taken(100));
	EXPECT_EQ(host_counters_taken(), 1);
}

} /* namespace */
