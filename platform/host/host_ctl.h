/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What tests use to drive and observe the host emulation of the kernel
 * and of the vendor platform.  Not visible to module code.
 */
#ifndef JIX_HOST_CTL_H
#define JIX_HOST_CTL_H

#include "plat_os.h"

#ifdef __cplusplus
extern "C" {
#endif

/* platform.h and quor_vendor.h carry no C++ linkage guard of their own. */
#include "../platform.h"
/* The records as the module's peers fill them. */
#include "../quor_peer.h"

/* Put every emulated facility back to its initial state.  Devices and
 * pending timers left over are dropped; counters are zeroed. */
void host_reset(void);

/* ---- WARN_ON ---- */
unsigned long host_warn_count(void);

/* ---- log capture ---- */
/* Everything printed since the last clear, level prefixes removed. */
const char *host_log_text(void);
void host_log_clear(void);
/* Number of messages printed at that level (0..7) since the last clear;
 * a message without a level prefix counts as level 4 (default). */
unsigned long host_log_count_level(int level);

/* ---- allocation ---- */
/* Make the n-th following non-sleeping allocation fail (n >= 1); 0 turns
 * injection off.  skb allocations count as non-sleeping allocations. */
void host_alloc_fail_nth(unsigned long n);
/* Make every non-sleeping allocation fail while @on is set. */
void host_alloc_fail_all(int on);
/* Make every sleeping (GFP_KERNEL) allocation fail while @on is set. */
void host_alloc_fail_sleeping(int on);
/* Objects allocated (kmalloc/kzalloc/kcalloc and skbs) and not yet freed,
 * after the RCU callbacks queued so far have run. */
long host_alloc_live(void);
/* Number of non-sleeping allocations attempted since the last reset. */
unsigned long host_alloc_atomic_attempts(void);

/* ---- bottom halves and locks ---- */
/* Non-zero when the calling thread holds @lock. */
int host_lock_held_by_me(const spinlock_t *lock);
/* Number of spinlocks the calling thread holds. */
int host_locks_held(void);

/* ---- virtual clock and timers ---- */
/* Move jiffies forward by @n, running (in softirq context, bh disabled)
 * every timer that expires on the way, in expiry order. */
void host_jiffies_advance(unsigned long n);
void host_jiffies_set(unsigned long j);
/* Number of timers pending. */
int host_timers_pending(void);
/* Number of timer functions running now (on any thread). */
int host_timers_running(void);
/* Call @fn (NULL: nothing) on the timer thread, in softirq context, just
 * before each timer function: it stands for what another processor does
 * after the timer fired and before its function got anywhere.  kfree()
 * WARNs when the memory holds a pending timer, or a timer whose function
 * runs on another thread. */
void host_timer_set_prerun(void (*fn)(struct timer_list *t));

/* ---- user memory ---- */
/* Mark [addr, addr+len) as unreadable and unwritable user memory. */
void host_uaccess_add_fault(const void *addr, size_t len);
void host_uaccess_clear_faults(void);

/* ---- network devices ---- */
/* A device with a capturing transmit routine, not yet registered. */
struct net_device *host_netdev_alloc(const char *name);
/* Register/unregister: deliver NETDEV_REGISTER / NETDEV_UNREGISTER to
 * the notifier chain.  Unregister does not free the device. */
int host_netdev_register(struct net_device *dev);
void host_netdev_unregister(struct net_device *dev);
/* Rename a registered device and deliver NETDEV_CHANGENAME; -EEXIST when
 * the name is taken. */
int host_netdev_rename(struct net_device *dev, const char *name);
/* Free a device that is not registered.  Its reference count must be 0. */
void host_netdev_free(struct net_device *dev);
int host_netdev_refcnt(const struct net_device *dev);
/* Frames handed to the device's transmit routine (kept or discarded). */
unsigned int host_netdev_tx_count(const struct net_device *dev);
/* With @on, the transmit routine only counts and frees each frame (no copy
 * kept, no lock taken): for benchmarks.  host_netdev_tx_frame() then finds
 * only the frames kept before. */
void host_netdev_tx_discard(struct net_device *dev, int on);
/* With @on, the device's queue is stopped (or its carrier is off):
 * jix_dev_xmit() frees what it is given and answers NETDEV_TX_BUSY. */
void host_netdev_tx_stop(struct net_device *dev, int on);
/* Copy the bytes (from skb->data) of frame @i into @buf; returns the
 * frame's length, or -1 when there is no such frame. */
int host_netdev_tx_frame(const struct net_device *dev, unsigned int i,
			 unsigned char *buf, unsigned int size);
/* Vendor flags word of frame @i as it reached the device. */
u32 host_netdev_tx_vendor_flags(const struct net_device *dev, unsigned int i);
void host_netdev_tx_clear(struct net_device *dev);

/* ---- legacy proc files ---- */
int host_proc_exists(const char *name);
/* Number of proc files present. */
int host_proc_count(void);
/* One read call as the kernel's wrapper makes it: returns bytes copied
 * into @buf (at most @count) from offset @off, or a negative errno. */
long host_proc_read(const char *name, char *buf, size_t count, off_t off);
/* Read the whole file with reads of @chunk bytes; returns the text. */
const char *host_proc_read_all(const char *name, size_t chunk);
/* One write call; @buf is treated as user memory. */
long host_proc_write(const char *name, const char *buf, size_t count);
/* Make the next proc-entry creation fail. */
void host_proc_fail_next_create(void);

/* ---- character devices ---- */
int host_chrdev_registered(unsigned int major);
const char *host_chrdev_name(unsigned int major);
/* ioctl on a node of (major, minor); -ENODEV when nothing serves it. */
long host_chrdev_ioctl(unsigned int major, unsigned int minor,
		       unsigned int cmd, unsigned long arg);
/* Make the next @n calls of __register_chrdev return @err (negative). */
void host_chrdev_fail_next(int err, int n);
/* Major of the device node @name that the module created, 0 for none. */
unsigned int host_chrdev_node_major(const char *name);
/* Make the next jix_chrdev_node_create fail with @err. */
void host_chrdev_node_fail_next(int err);

/* ---- tracepoints ---- */
/* Switch the module's tracepoints on (the text starts empty) or off. */
void host_trace_enable(int on);
/* The event lines since tracing was switched on, one per line. */
const char *host_trace_text(void);
/* The same from a 32-bit caller: @arg is a 32-bit user address. */
long host_chrdev_compat_ioctl(unsigned int major, unsigned int minor,
			      unsigned int cmd, u32 arg);

/* ---- vendor stand-in ---- */
/* Make the next quor_register_hook fail with @err. */
void host_quor_fail_next_register(int err);
/*
 * Offer @skb to the per-packet hook as the network driver does: a hook
 * record with in_function_id 0 and the frame in skb, nothing else set.
 * Returns the hook's return; the module's answer goes to *result (-1, the
 * driver's default, when no operation ran).
 */
int host_driver_offer(struct sk_buff *skb, int *result);
/* Call @fn (NULL: nothing) after each successful registration, as the
 * first caller of the new hook would come in. */
void host_quor_on_register(void (*fn)(struct quor_hook_ops *ops));
/* Registered hook ops of (type, subtype), or NULL. */
struct quor_hook_ops *host_quor_find(unsigned int type, unsigned int subtype);
int host_quor_registered_count(void);
/* Hardware counters (hooks 19 and 20). Ids handed out start at 100. */
int host_counter_taken(unsigned int id);
int host_counters_taken(void);
void host_counter_set(unsigned int id, u64 bytes, u64 pkts);
unsigned long host_counter_clears(unsigned int id);
unsigned long host_counter_reads(void);
/* Counter reads made while the caller held a spinlock. */
unsigned long host_counter_reads_locked(void);
/* Switch port answered by hook 23 for a LAN port (-1: none). */
void host_switch_port_set(unsigned int lan_port, int switch_port);
/* Put every hardware-driver pointer (both directions) back to NULL. */
void host_hwnat_reset(void);

#ifdef __cplusplus
}
#endif

#endif /* JIX_HOST_CTL_H */
