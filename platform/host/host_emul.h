/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Private glue between the pieces of the host emulation.  Module code
 * and tests never include this.
 */
#ifndef JIX_HOST_EMUL_H
#define JIX_HOST_EMUL_H

#include "host_ctl.h"

namespace host {

/* Decide whether a non-sleeping allocation fails (counts the attempt). */
bool atomic_alloc_fails();
/* Account a module-visible object (kmalloc or skb) coming and going. */
void live_inc();
void live_dec();
/* Unique non-zero id of the calling thread. */
unsigned long thread_id();

/* WARN when [p, p + n) being freed holds a pending timer or one whose
 * function runs on another thread. */
void timer_check_free(const void *p, size_t n);

/* Enter and leave a read-side section (also bottom halves disabled). */
void rcu_enter();
void rcu_exit();
bool rcu_reading();

/* Per-area resets, called by host_reset(). */
void kernel_reset();
void timer_reset();
void net_reset();
void proc_chrdev_reset();
void vendor_reset();

} /* namespace host */

#endif /* JIX_HOST_EMUL_H */
