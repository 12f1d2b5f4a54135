/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The one header through which the module reaches the outside world.
 *
 * "plat_os.h" is found on the include path: platform/kernel/ for the
 * kernel module build, platform/host/ for the user-space build.  Both give
 * the same subset of the kernel API; module code uses nothing else.
 */
#ifndef JIX_PLATFORM_H
#define JIX_PLATFORM_H

#include "plat_os.h"
#include "quor_vendor.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The device node of a character device: a device class of @name with one
 * device (@name, minor 0 of @major), so that devtmpfs, udev or mdev make
 * /dev/@name by themselves.  One node per module.  Returns 0 or a
 * negative errno; process context.
 */
int jix_chrdev_node_create(const char *name, unsigned int major);
void jix_chrdev_node_remove(unsigned int major);

/*
 * Legacy page-filling proc files.
 *
 * A read handler writes its text into @page (JIX_PROC_PAGE_SIZE bytes),
 * points *@start at the bytes to hand out (page + off for handlers that
 * compose the whole text), returns how many bytes are available there (at
 * most @count) and sets *@eof when the text ends within them.
 *
 * A write handler receives the caller's user buffer and returns the count
 * consumed or a negative errno.
 */
#define JIX_PROC_PAGE_SIZE	4096

typedef int (jix_read_proc_t)(char *page, char **start, off_t off, int count,
			      int *eof, void *data);
typedef int (jix_write_proc_t)(struct file *file, const char __user *buffer,
			       unsigned long count, void *data);

struct jix_proc_entry {
	jix_read_proc_t *read_proc;
	jix_write_proc_t *write_proc;
	void *data;
};

/*
 * A directory in /proc of the caller's own, made in procfs itself (not
 * looked up through any process's view of /proc).  Returns NULL on
 * failure.  Removed by jix_proc_rmdir() after its files.
 */
struct jix_proc_dir;
struct jix_proc_dir *jix_proc_mkdir(const char *name);
void jix_proc_rmdir(struct jix_proc_dir *dir);

/*
 * Create a proc file in @parent (NULL: /proc itself).  Handlers are set
 * on the returned entry afterwards.  Returns NULL on failure.  Creation
 * and removal may sleep: process context only.
 */
struct jix_proc_entry *jix_create_proc_entry(const char *name, umode_t mode,
					     struct jix_proc_dir *parent);
void jix_remove_proc_entry(const char *name, struct jix_proc_dir *parent);

/*
 * Insert an 802.1Q tag (TPID 0x8100, @tci) as the outermost tag, behind
 * the source MAC address at skb->data, growing the buffer at the front.
 * Returns 0, or -ENOMEM with the buffer unchanged and still valid.
 */
int jix_vlan_put_tag(struct sk_buff *skb, u16 tci);

/* Vendor per-frame words that the hardware forwarding driver reads. */
void jix_skb_or_vendor_flags(struct sk_buff *skb, u32 bits);
void jix_skb_set_vendor_flags(struct sk_buff *skb, u32 val);
u32 jix_skb_vendor_flags(const struct sk_buff *skb);
void jix_skb_or_hwnat_ctrl(struct sk_buff *skb, u32 bits);
u32 jix_skb_hwnat_ctrl(const struct sk_buff *skb);

/*
 * Hand @skb to skb->dev's driver transmit routine directly, bypassing the
 * queueing layer.  The buffer is consumed whatever happens.  Returns 0
 * (NETDEV_TX_OK) only when the driver took it; a stopped queue, a device
 * without carrier or a busy driver drop it and answer non-zero.
 */
int jix_dev_xmit(struct sk_buff *skb);

/*
 * Per-CPU packet and byte counts in @rows rows (u64_stats): added on the
 * packet path from any context, without a shared cache line or an atomic
 * operation; summed over every CPU when read.  Allocation may sleep.
 */
struct jix_pcpu_stats;
struct jix_pcpu_stats *jix_pcpu_stats_alloc(unsigned int rows);
void jix_pcpu_stats_free(struct jix_pcpu_stats *s);
void jix_pcpu_stats_add(struct jix_pcpu_stats *s, unsigned int row, u32 bytes);
void jix_pcpu_stats_sum(struct jix_pcpu_stats *s, unsigned int row, u64 *pkts,
			u64 *bytes);

#ifdef __cplusplus
}
#endif

#endif /* JIX_PLATFORM_H */
