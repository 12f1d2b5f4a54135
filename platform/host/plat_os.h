/* SPDX-License-Identifier: GPL-2.0 */
/*
 * User-space emulation of exactly the kernel API the module uses.
 *
 * Module sources compile unchanged against this header in the host build.
 * The emulation is implemented in C++ (the .cc files here); tests drive
 * it through host_ctl.h.  Semantics follow the kernel, with these test
 * aids: spinlocks are real mutexes that remember how they were taken,
 * jiffies only moves when a test advances it, non-sleeping allocations
 * can be made to fail, and printk writes into a buffer.
 */
#ifndef JIX_HOST_PLAT_OS_H
#define JIX_HOST_PLAT_OS_H

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- types and compiler helpers ---- */
#include <linux/types.h>	/* __u8 .. __u64, __be16: as the kernel's */
typedef __u8 u8;
typedef __u16 u16;
typedef __u32 u32;
typedef __u64 u64;
typedef __s8 s8;
typedef __s16 s16;
typedef __s32 s32;
typedef __s64 s64;
typedef unsigned int gfp_t;
typedef unsigned short umode_t;
typedef int netdev_tx_t;

#define __user
#define __force
#define __init
#define __exit
#define __iomem
#define __maybe_unused	__attribute__((unused))
#define __packed	__attribute__((packed))
#define noinline	__attribute__((noinline))
#define __always_unused	__attribute__((unused))
#define ____cacheline_aligned_in_smp	__attribute__((aligned(64)))
#define likely(x)	__builtin_expect(!!(x), 1)
#define unlikely(x)	__builtin_expect(!!(x), 0)
#define READ_ONCE(x)	__atomic_load_n(&(x), __ATOMIC_RELAXED)
#define WRITE_ONCE(x, v) __atomic_store_n(&(x), (v), __ATOMIC_RELAXED)

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(a)	(sizeof(a) / sizeof((a)[0]))
#endif
#ifdef __cplusplus
#define BUILD_BUG_ON(c)	static_assert(!(c), #c)
#else
#define BUILD_BUG_ON(c)	_Static_assert(!(c), #c)
#endif
#ifndef container_of
#define container_of(ptr, type, member) \
	((type *)((char *)(ptr) - offsetof(type, member)))
#endif
#define min_t(t, a, b)	((t)(a) < (t)(b) ? (t)(a) : (t)(b))
#define max_t(t, a, b)	((t)(a) > (t)(b) ? (t)(a) : (t)(b))

#define GFP_ATOMIC	0x1u
#define GFP_KERNEL	0x2u
#define __GFP_ZERO	0x100u

/* A WARN fails the test run at exit (host_warn_count()); a BUG aborts. */
void host_warn(const char *file, int line, const char *cond);
#define WARN_ON(c) ({ int __w = !!(c); \
	if (__w) { host_warn(__FILE__, __LINE__, #c); } unlikely(__w); })
#define WARN_ON_ONCE(c)	WARN_ON(c)
#define BUG_ON(c) do { if (c) { host_warn(__FILE__, __LINE__, #c); \
	abort(); } } while (0)

/* ---- module metadata ---- */
struct module;
#define THIS_MODULE		((struct module *)0)
#define MODULE_LICENSE(x)
#define MODULE_DESCRIPTION(x)
#define MODULE_AUTHOR(x)
#define MODULE_VERSION(x)
#define MODULE_PARM_DESC(name, text)
#define module_param_named(name, var, type, perm)
#define EXPORT_SYMBOL(x)
#define EXPORT_SYMBOL_GPL(x)
/* The host build names the entry points as a legacy module would. */
#define module_init(fn)	int init_module(void) { return fn(); }
#define module_exit(fn)	void cleanup_module(void) { fn(); }
int init_module(void);
void cleanup_module(void);

/* ---- logging ---- */
#define KERN_SOH	"\001"
#define KERN_EMERG	KERN_SOH "0"
#define KERN_ALERT	KERN_SOH "1"
#define KERN_CRIT	KERN_SOH "2"
#define KERN_ERR	KERN_SOH "3"
#define KERN_WARNING	KERN_SOH "4"
#define KERN_NOTICE	KERN_SOH "5"
#define KERN_INFO	KERN_SOH "6"
#define KERN_DEBUG	KERN_SOH "7"
int printk(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

/* As the kernel's default: at most 10 messages per 5 s from one site. */
struct ratelimit_state {
	unsigned long begin;
	int printed;
	unsigned long epoch;	/* host_reset() starts every site afresh */
};
int __ratelimit(struct ratelimit_state *rs);
#define printk_ratelimited(fmt, ...) ({ \
	static struct ratelimit_state __rs; \
	if (__ratelimit(&__rs)) \
		printk(fmt, ##__VA_ARGS__); })

/* ---- lists (the kernel's circular doubly linked list) ---- */
struct list_head {
	struct list_head *next, *prev;
};

struct hlist_node {
	struct hlist_node *next, **pprev;
};

#define LIST_HEAD_INIT(name)	{ &(name), &(name) }
#define LIST_HEAD(name)		struct list_head name = LIST_HEAD_INIT(name)

/*
 * As in the kernel, the ->next stores that an unlocked list_empty() may
 * race with are WRITE_ONCE, and list_empty() reads with READ_ONCE.
 */
static inline void INIT_LIST_HEAD(struct list_head *h)
{
	WRITE_ONCE(h->next, h);
	h->prev = h;
}

static inline void __list_add(struct list_head *n, struct list_head *prev,
			      struct list_head *next)
{
	next->prev = n;
	n->next = next;
	n->prev = prev;
	WRITE_ONCE(prev->next, n);
}

static inline void list_add(struct list_head *n, struct list_head *head)
{
	__list_add(n, head, head->next);
}

static inline void list_add_tail(struct list_head *n, struct list_head *head)
{
	__list_add(n, head->prev, head);
}

static inline void list_del(struct list_head *e)
{
	e->next->prev = e->prev;
	WRITE_ONCE(e->prev->next, e->next);
	e->next = (struct list_head *)0x100;
	e->prev = (struct list_head *)0x122;
}

static inline void list_del_init(struct list_head *e)
{
	e->next->prev = e->prev;
	WRITE_ONCE(e->prev->next, e->next);
	INIT_LIST_HEAD(e);
}

static inline void list_move_tail(struct list_head *e, struct list_head *head)
{
	e->next->prev = e->prev;
	WRITE_ONCE(e->prev->next, e->next);
	list_add_tail(e, head);
}

static inline int list_empty(const struct list_head *h)
{
	return READ_ONCE(h->next) == h;
}

/* Move every element of @list to the tail of @head; @list becomes empty. */
static inline void list_splice_tail_init(struct list_head *list,
					 struct list_head *head)
{
	if (list_empty(list))
		return;
	list->next->prev = head->prev;
	head->prev->next = list->next;
	list->prev->next = head;
	head->prev = list->prev;
	INIT_LIST_HEAD(list);
}

#define list_entry(ptr, type, member)	container_of(ptr, type, member)
#define list_first_entry(ptr, type, member) \
	list_entry((ptr)->next, type, member)
#define list_next_entry(pos, member) \
	list_entry((pos)->member.next, __typeof__(*(pos)), member)
#define list_for_each_entry(pos, head, member) \
	for (pos = list_first_entry(head, __typeof__(*pos), member); \
	     &pos->member != (head); pos = list_next_entry(pos, member))
#define list_for_each_entry_safe(pos, n, head, member) \
	for (pos = list_first_entry(head, __typeof__(*pos), member), \
	     n = list_next_entry(pos, member); &pos->member != (head); \
	     pos = n, n = list_next_entry(n, member))

/* ---- hash lists (the kernel's hlist) ---- */
struct hlist_head {
	struct hlist_node *first;
};

#define HLIST_HEAD_INIT		{ .first = NULL }

static inline void INIT_HLIST_HEAD(struct hlist_head *h)
{
	WRITE_ONCE(h->first, NULL);
}

static inline void INIT_HLIST_NODE(struct hlist_node *n)
{
	n->next = NULL;
	n->pprev = NULL;
}

static inline int hlist_unhashed(const struct hlist_node *n)
{
	return !n->pprev;
}

static inline void hlist_add_head(struct hlist_node *n, struct hlist_head *h)
{
	struct hlist_node *first = h->first;

	n->next = first;
	if (first)
		first->pprev = &n->next;
	h->first = n;
	n->pprev = &h->first;
}

static inline void hlist_del_init(struct hlist_node *n)
{
	if (hlist_unhashed(n))
		return;
	*n->pprev = n->next;
	if (n->next)
		n->next->pprev = n->pprev;
	INIT_HLIST_NODE(n);
}

#define hlist_entry_safe(ptr, type, member) \
	({ __typeof__(ptr) ____p = (ptr); \
	   ____p ? container_of(____p, type, member) : NULL; })
#define hlist_for_each_entry(pos, head, member) \
	for (pos = hlist_entry_safe((head)->first, __typeof__(*(pos)), member); \
	     pos; \
	     pos = hlist_entry_safe((pos)->member.next, __typeof__(*(pos)), member))

/* RCU variants: readers may walk while a writer (holding a lock) changes. */
static inline void hlist_add_head_rcu(struct hlist_node *n, struct hlist_head *h)
{
	struct hlist_node *first = h->first;

	n->next = first;
	n->pprev = &h->first;
	__atomic_store_n(&h->first, n, __ATOMIC_RELEASE);
	if (first)
		first->pprev = &n->next;
}

/* Unlink, leaving ->next for readers standing on @n. */
static inline void hlist_del_init_rcu(struct hlist_node *n)
{
	if (hlist_unhashed(n))
		return;
	WRITE_ONCE(*n->pprev, n->next);
	if (n->next)
		n->next->pprev = n->pprev;
	n->pprev = NULL;
}

#define hlist_for_each_entry_rcu(pos, head, member) \
	for (pos = hlist_entry_safe(__atomic_load_n(&(head)->first, __ATOMIC_ACQUIRE), \
				    __typeof__(*(pos)), member); \
	     pos; \
	     pos = hlist_entry_safe(__atomic_load_n(&(pos)->member.next, __ATOMIC_ACQUIRE), \
				    __typeof__(*(pos)), member))

/* ---- spinlocks and bottom halves ---- */
/*
 * A real mutex, so ThreadSanitizer sees the critical sections.  Each lock
 * counts how it was taken; taking it plainly outside softirq context (bh
 * not disabled) is counted separately so tests can check the rules.
 */
typedef struct {
	pthread_mutex_t mutex;
	const char *name;
	unsigned long owner;		/* host thread id of the holder, 0 */
	unsigned long taken_bh;		/* spin_lock_bh */
	unsigned long taken_plain;	/* spin_lock */
	unsigned long taken_plain_bh_on; /* spin_lock with bh enabled */
} spinlock_t;

#define __SPIN_LOCK_UNLOCKED(n) { PTHREAD_MUTEX_INITIALIZER, #n, 0, 0, 0, 0 }
#define DEFINE_SPINLOCK(n)	spinlock_t n = __SPIN_LOCK_UNLOCKED(n)

void spin_lock_init(spinlock_t *lock);
void spin_lock(spinlock_t *lock);
void spin_unlock(spinlock_t *lock);
void spin_lock_bh(spinlock_t *lock);
void spin_unlock_bh(spinlock_t *lock);
void local_bh_disable(void);
void local_bh_enable(void);
/* Non-zero while the calling thread has bottom halves disabled. */
int in_softirq(void);

/* ---- atomics ---- */
typedef struct {
	int counter;
} atomic_t;

#define ATOMIC_INIT(i)	{ (i) }

static inline int atomic_read(const atomic_t *v)
{
	return __atomic_load_n(&v->counter, __ATOMIC_RELAXED);
}

static inline void atomic_set(atomic_t *v, int i)
{
	__atomic_store_n(&v->counter, i, __ATOMIC_RELAXED);
}

static inline void atomic_inc(atomic_t *v)
{
	__atomic_fetch_add(&v->counter, 1, __ATOMIC_SEQ_CST);
}

static inline void atomic_dec(atomic_t *v)
{
	__atomic_fetch_sub(&v->counter, 1, __ATOMIC_SEQ_CST);
}

static inline void atomic_add(int i, atomic_t *v)
{
	__atomic_fetch_add(&v->counter, i, __ATOMIC_SEQ_CST);
}

/* A full fence (out of line: ThreadSanitizer builds refuse fences in C). */
void smp_mb(void);
#define smp_mb__before_atomic()	smp_mb()
#define smp_mb__after_atomic()	smp_mb()

static inline void cpu_relax(void)
{
#if defined(__x86_64__) || defined(__i386__)
	__builtin_ia32_pause();
#elif defined(__aarch64__)
	__asm__ __volatile__("yield");
#endif
}

static inline int atomic_xchg(atomic_t *v, int n)
{
	return __atomic_exchange_n(&v->counter, n, __ATOMIC_SEQ_CST);
}

/* ---- memory ---- */
/*
 * Non-sleeping (GFP_ATOMIC) allocations can be made to fail by tests.
 * Every allocation is counted until freed.
 */
void *kmalloc(size_t size, gfp_t flags);
void *kzalloc(size_t size, gfp_t flags);
void *kcalloc(size_t n, size_t size, gfp_t flags);
void kfree(const void *p);
#define __GFP_NOWARN	0x200u
#define kvcalloc(n, size, flags)	kcalloc(n, size, flags)
#define kvfree(p)			kfree(p)

/* ---- time ---- */
#define HZ	250
extern volatile unsigned long jiffies;

/* Round @j to a whole second, as the kernel does (never into the past). */
unsigned long round_jiffies(unsigned long j);

#define time_after(a, b)	((long)((b) - (a)) < 0)
#define time_before(a, b)	time_after(b, a)

/* Same size and field order as the kernel's timer_list on 64-bit. */
struct timer_list {
	struct hlist_node entry;
	unsigned long expires;
	void (*function)(struct timer_list *t);
	u32 flags;
};

void timer_setup(struct timer_list *t, void (*fn)(struct timer_list *),
		 unsigned int flags);
/* Returns 1 when the timer was pending, 0 otherwise. */
int mod_timer(struct timer_list *t, unsigned long expires);
/* mod_timer() of a pending timer only; returns 0, changing nothing, else. */
int mod_timer_pending(struct timer_list *t, unsigned long expires);
int del_timer(struct timer_list *t);
/* Also waits for a run of the timer function on another thread to end. */
int del_timer_sync(struct timer_list *t);
int timer_pending(const struct timer_list *t);
#define from_timer(var, callback_timer, timer_fieldname) \
	container_of(callback_timer, __typeof__(*var), timer_fieldname)

/* ---- user memory ---- */
/*
 * Copies stop at the first byte of a range a test marked as faulting;
 * copy_from_user zero-fills what it could not copy.  Both return the
 * number of bytes not copied.
 */
unsigned long copy_from_user(void *to, const void __user *from,
			     unsigned long n);
unsigned long copy_to_user(void __user *to, const void *from,
			   unsigned long n);

/* ---- network devices ---- */
#define IFNAMSIZ	16
#define IFF_UP		0x1
#define NETDEV_TX_OK	0
#define NETDEV_TX_BUSY	0x10

#define NETDEV_UP		0x0001
#define NETDEV_DOWN		0x0002
#define NETDEV_REGISTER		0x0005
#define NETDEV_UNREGISTER	0x0006
#define NETDEV_GOING_DOWN	0x0009
#define NETDEV_CHANGENAME	0x000B

#define NOTIFY_DONE	0x0000
#define NOTIFY_OK	0x0001

#define ETH_ALEN	6
#define ETH_HLEN	14
#define ETH_P_IP	0x0800
#define ETH_P_IPV6	0x86DD
#define ETH_P_8021Q	0x8100
#define ETH_P_8021AD	0x88A8
#define ETH_P_PPP_SES	0x8864

struct net {
	int unused;
};
extern struct net init_net;

struct sk_buff;
struct net_device;

struct net_device_ops {
	netdev_tx_t (*ndo_start_xmit)(struct sk_buff *skb,
				      struct net_device *dev);
};

struct net_device {
	char name[IFNAMSIZ];
	unsigned int flags;
	const struct net_device_ops *netdev_ops;
	atomic_t refcnt;	/* references held by users of the device */
	int registered;
	struct net *nd_net;	/* &init_net unless a test moves it */
	void *host_priv;	/* emulation's own state (tx capture) */
};

static inline struct net *dev_net(const struct net_device *dev)
{
	return dev->nd_net;
}

static inline int net_eq(const struct net *a, const struct net *b)
{
	return a == b;
}

/* Returns the registered device of that name with a reference, or NULL. */
struct net_device *dev_get_by_name(struct net *net, const char *name);
void dev_hold(struct net_device *dev);
void dev_put(struct net_device *dev);

struct notifier_block {
	int (*notifier_call)(struct notifier_block *nb, unsigned long action,
			     void *data);
	struct notifier_block *next;
	int priority;
};

struct netdev_notifier_info {
	struct net_device *dev;
};

static inline struct net_device *
netdev_notifier_info_to_dev(const struct netdev_notifier_info *info)
{
	return info->dev;
}

/* Registration replays NETDEV_REGISTER for every registered device;
 * unregistration replays NETDEV_UNREGISTER, as the kernel does. */
int register_netdevice_notifier(struct notifier_block *nb);
int unregister_netdevice_notifier(struct notifier_block *nb);

/* ---- socket buffers ---- */
struct sk_buff {
	struct sk_buff *next, *prev;	/* free for the owner's queues */
	struct net_device *dev;
	char cb[48];
	unsigned int len;
	unsigned int data_len;
	u16 mac_header;			/* offsets from head; ~0 when unset */
	u16 network_header;
	u16 transport_header;
	__be16 protocol;
	unsigned int truesize;
	u32 vendor_flags;		/* vendor per-frame flags word */
	u32 hwnat_ctrl;			/* vendor forwarding control word */
	unsigned char *head, *data, *tail, *end;
	int *dataref;			/* owners of head: the skb and its clones */
};

struct sk_buff *alloc_skb(unsigned int size, gfp_t gfp);
struct sk_buff *skb_copy(const struct sk_buff *skb, gfp_t gfp);
/* A second skb sharing @skb's data, as the kernel's skb_clone(). */
struct sk_buff *skb_clone(struct sk_buff *skb, gfp_t gfp);
int skb_cloned(const struct sk_buff *skb);
/* Private data with @nhead more headroom and @ntail more tailroom. */
int pskb_expand_head(struct sk_buff *skb, int nhead, int ntail, gfp_t gfp);
/* Data of @skb's own, with at least @headroom bytes before it. */
int skb_cow(struct sk_buff *skb, unsigned int headroom);
void kfree_skb(struct sk_buff *skb);
void consume_skb(struct sk_buff *skb);
#define dev_kfree_skb_any(skb)	kfree_skb(skb)

/* Like the kernel, these BUG on an over- or underrun. */
void *skb_push(struct sk_buff *skb, unsigned int len);
void *skb_pull(struct sk_buff *skb, unsigned int len);
void *skb_put(struct sk_buff *skb, unsigned int len);
void skb_reserve(struct sk_buff *skb, int len);

static inline unsigned int skb_headroom(const struct sk_buff *skb)
{
	return (unsigned int)(skb->data - skb->head);
}

static inline int skb_tailroom(const struct sk_buff *skb)
{
	return (int)(skb->end - skb->tail);
}

/* Bytes of the frame in the linear buffer, from the data pointer. */
static inline unsigned int skb_headlen(const struct sk_buff *skb)
{
	return skb->len - skb->data_len;
}

static inline unsigned char *skb_tail_pointer(const struct sk_buff *skb)
{
	return skb->tail;
}

static inline unsigned char *skb_end_pointer(const struct sk_buff *skb)
{
	return skb->end;
}

static inline unsigned char *skb_mac_header(const struct sk_buff *skb)
{
	return skb->head + skb->mac_header;
}

static inline int skb_mac_header_was_set(const struct sk_buff *skb)
{
	return skb->mac_header != (u16)~0U;
}

static inline void skb_reset_mac_header(struct sk_buff *skb)
{
	skb->mac_header = (u16)(skb->data - skb->head);
}

static inline void skb_set_mac_header(struct sk_buff *skb, int offset)
{
	skb_reset_mac_header(skb);
	skb->mac_header = (u16)(skb->mac_header + offset);
}

static inline unsigned char *skb_network_header(const struct sk_buff *skb)
{
	return skb->head + skb->network_header;
}

static inline void skb_reset_network_header(struct sk_buff *skb)
{
	skb->network_header = (u16)(skb->data - skb->head);
}

static inline void skb_set_network_header(struct sk_buff *skb, int offset)
{
	skb_reset_network_header(skb);
	skb->network_header = (u16)(skb->network_header + offset);
}

/* ---- character devices ---- */
struct inode;
struct file {
	void *private_data;
};

struct file_operations {
	struct module *owner;
	long (*unlocked_ioctl)(struct file *f, unsigned int cmd,
			       unsigned long arg);
	long (*compat_ioctl)(struct file *f, unsigned int cmd,
			     unsigned long arg);
};

/* 32-bit callers of a 64-bit kernel: their pointers are 32 bits wide. */
#define CONFIG_COMPAT	1
typedef u32 compat_uptr_t;

static inline void __user *compat_ptr(compat_uptr_t p)
{
	return (void __user *)(uintptr_t)p;
}

int __register_chrdev(unsigned int major, unsigned int baseminor,
		      unsigned int count, const char *name,
		      const struct file_operations *fops);
void __unregister_chrdev(unsigned int major, unsigned int baseminor,
			 unsigned int count, const char *name);

/* ---- byte order (the host is little-endian, like the target) ---- */
#ifndef htons	/* the C library's, when a test includes it first */
#define htons(x)	__builtin_bswap16((u16)(x))
#define ntohs(x)	__builtin_bswap16((u16)(x))
#define htonl(x)	__builtin_bswap32((u32)(x))
#define ntohl(x)	__builtin_bswap32((u32)(x))
#endif

/* ---- bit counting ---- */
static inline unsigned int hweight32(u32 w) { return (unsigned int)__builtin_popcount(w); }
static inline unsigned int hweight64(u64 w) { return (unsigned int)__builtin_popcountll(w); }
static inline unsigned long __ffs(unsigned long w) { return (unsigned long)__builtin_ctzl(w); }

/* ---- RCU ---- */
/*
 * Real grace periods: every thread between rcu_read_lock() and
 * rcu_read_unlock(), or with bottom halves disabled (as in the kernel,
 * where softirq context is a read-side section), is a reader.
 * synchronize_rcu() waits until every reader that started before it has
 * left; call_rcu() callbacks run on a reclaim thread after such a wait,
 * in softirq context.  kfree() poisons what it frees (0x6b, as slub_debug
 * does), so a reader that outlives its object reads garbage even without
 * AddressSanitizer.  Waiting inside a read-side section is a BUG.
 */
struct rcu_head {
	struct rcu_head *next;
	void (*func)(struct rcu_head *head);
};

void rcu_read_lock(void);
void rcu_read_unlock(void);
void synchronize_rcu(void);
void call_rcu(struct rcu_head *head, void (*func)(struct rcu_head *head));
/* Wait until every callback queued so far has run. */
void rcu_barrier(void);
/* call_rcu() that kfree()s the object @head lies @offset bytes into. */
void host_kfree_rcu(struct rcu_head *head, size_t offset);
#define kfree_rcu(ptr, field) \
	host_kfree_rcu(&(ptr)->field, offsetof(__typeof__(*(ptr)), field))

#define rcu_dereference(p)	__atomic_load_n(&(p), __ATOMIC_ACQUIRE)
#define rcu_dereference_protected(p, c)	(p)
#define rcu_access_pointer(p)	__atomic_load_n(&(p), __ATOMIC_RELAXED)
#define rcu_assign_pointer(p, v) __atomic_store_n(&(p), (v), __ATOMIC_RELEASE)
#define RCU_INIT_POINTER(p, v)	__atomic_store_n(&(p), (v), __ATOMIC_RELAXED)
#define __rcu
#define synchronize_net()	synchronize_rcu()
#define lockdep_is_held(l)	1

/* List updates that readers may walk concurrently (writers hold a lock). */
static inline void list_add_tail_rcu(struct list_head *n, struct list_head *head)
{
	struct list_head *prev = head->prev;

	n->next = head;
	n->prev = prev;
	__atomic_store_n(&prev->next, n, __ATOMIC_RELEASE);
	head->prev = n;
}

/* Unlink, leaving ->next for readers standing on @e. */
static inline void list_del_rcu(struct list_head *e)
{
	e->next->prev = e->prev;
	WRITE_ONCE(e->prev->next, e->next);
	e->prev = (struct list_head *)0x122;
}

#define list_entry_rcu(ptr, type, member) \
	container_of(__atomic_load_n(&(ptr), __ATOMIC_ACQUIRE), type, member)
#define list_for_each_entry_rcu(pos, head, member) \
	for (pos = list_entry_rcu((head)->next, __typeof__(*pos), member); \
	     &pos->member != (head); \
	     pos = list_entry_rcu(pos->member.next, __typeof__(*pos), member))

/* ---- per-CPU data ---- */
/* Each thread that asks is a CPU of its own while it lives. */
#define HOST_NR_CPUS	64
int host_this_cpu(void);

/* ---- string helpers the kernel has and libc spells differently ---- */
/* sscanf, snprintf, sprintf and strnlen come from libc. */
static inline int vscnprintf(char *buf, size_t size, const char *fmt,
			     va_list ap)
{
	int n;

	if (!size)
		return 0;
	n = vsnprintf(buf, size, fmt, ap);
	if (n < 0)
		return 0;
	return (size_t)n >= size ? (int)size - 1 : n;
}

int scnprintf(char *buf, size_t size, const char *fmt, ...)
	__attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif /* JIX_HOST_PLAT_OS_H */
