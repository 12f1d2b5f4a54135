/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The kernel API subset that module code uses, for the kernel build.
 *
 * Module code is written against the kernel API of 5.4 as the host
 * emulation (platform/host/plat_os.h) spells it; this header includes the
 * real kernel headers and fills in what later kernels renamed or removed,
 * so that no other file needs to know the kernel version.
 *
 * The JIX_HAVE_* and JIX_NO_* switches come from probes of the kernel's
 * headers in Kbuild.  When a file is built without those probes (another
 * build system), they are derived from the version number instead.
 */
#ifndef JIX_KERNEL_PLAT_OS_H
#define JIX_KERNEL_PLAT_OS_H

#include <linux/atomic.h>
#include <linux/compat.h>
#include <linux/errno.h>
#include <linux/etherdevice.h>
#include <linux/fs.h>
#include <linux/if_ether.h>
#include <linux/if_vlan.h>
#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/notifier.h>
#include <linux/rculist.h>
#include <linux/rcupdate.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/string.h>
#include <linux/timer.h>
#include <linux/types.h>
#include <linux/uaccess.h>
#include <linux/version.h>

#ifndef JIX_KBUILD_PROBED
/*
 * Version fallbacks.  5.4.y sublevels pass 255 and KERNEL_VERSION()
 * saturates there, so only major.minor boundaries are compared.
 */
#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 6, 0)
#define JIX_HAVE_PROC_OPS	1
#endif
#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 17, 0)
#define JIX_HAVE_PDE_DATA_LC	1
#endif
#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 15, 0)
#define JIX_NO_DEL_TIMER	1
#endif
#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 4, 0)
#define JIX_CLASS_CREATE_NO_OWNER	1
#endif
#endif /* JIX_KBUILD_PROBED */

/*
 * del_timer() and del_timer_sync() became timer_delete() and
 * timer_delete_sync() and the old names were later dropped.  Map the old
 * names only where they are gone, so kernels that still have them see no
 * macro over their own inline functions.
 */
#ifdef JIX_NO_DEL_TIMER
#define del_timer(t)		timer_delete(t)
#define del_timer_sync(t)	timer_delete_sync(t)
#endif

/* from_timer() became timer_container_of(). */
#ifndef from_timer
#define from_timer(var, callback_timer, timer_fieldname) \
	container_of(callback_timer, typeof(*var), timer_fieldname)
#endif

#endif /* JIX_KERNEL_PLAT_OS_H */
