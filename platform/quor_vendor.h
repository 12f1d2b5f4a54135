/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Interfaces of the vendor platform that the multicast module uses: the
 * hook framework, the hardware forwarding (FOE) driver's function pointers,
 * and the socket-buffer manager.  On a vendor kernel these symbols come
 * from the kernel image; on a mainline kernel from the quor_platform
 * stand-in module; in the host build from platform/host.
 */
#ifndef JIX_QUOR_VENDOR_H
#define JIX_QUOR_VENDOR_H

#include "plat_os.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Hook types of the framework that this module calls or serves. */
#define QUOR_HOOK_TYPE_CNT_REQ		19	/* hardware counter read/clear */
#define QUOR_HOOK_TYPE_CNT_POOL		20	/* hardware counter take/give */
#define QUOR_HOOK_TYPE_SWITCH_PORT	23	/* switch port of a LAN port */
#define QUOR_HOOK_TYPE_MULTICAST	36	/* this module's own hooks */

#define QUOR_MC_SUBTYPE_INTERVAL	0	/* per-packet hook */
#define QUOR_MC_SUBTYPE_API		2	/* control API hook */

/*
 * A hook registration record.  The framework owns @list; @priority is the
 * framework field that follows the name.
 */
struct quor_hook_ops {
	struct list_head list;
	const char *name;
	int priority;
	int (*hookfn)(void *data);
	unsigned int hook_type;
	unsigned int hook_subtype;
};

int quor_register_hook(struct quor_hook_ops *ops);
void quor_unregister_hook(struct quor_hook_ops *ops);
/*
 * Call the hook registered for (type, subtype) with @data.  Returns the
 * hook's result, or -1 when no hook of that type is registered.  Never
 * sleeps: callers may hold spinlocks with bottom halves disabled.
 */
int __QUOR_HOOK(unsigned int type, unsigned int subtype, void *data);

#ifdef JIX_VENDOR_KERNEL
/*
 * The vendor's forwarding driver reads flow records in the layout of its
 * own kernel, whose timer is 40 bytes: 184 bytes in all.
 */
#define QUOR_FLOW_RECORD_SIZE	184
#endif

#ifndef JIX_VENDOR_KERNEL
/*
 * Mainline kernels: sk_buff has no vendor fields, so the driver and the
 * module keep the two vendor per-frame words in the last 8 bytes of
 * skb->cb (bytes 40..47 of the 48).  skb_copy() and skb_clone() carry
 * them along; the stand-in driver clears them before offering a frame.
 */
struct quor_skb_vendor_cb {
	u32 vendor_flags;
	u32 hwnat_ctrl;		/* accounting id << 17 and driver bits */
};

#define QUOR_SKB_CB_SIZE	sizeof(((struct sk_buff *)NULL)->cb)
#define QUOR_SKB_VENDOR_CB_OFF	(QUOR_SKB_CB_SIZE - sizeof(struct quor_skb_vendor_cb))
#define QUOR_SKB_VENDOR_CB(skb) \
	((struct quor_skb_vendor_cb *)&(skb)->cb[QUOR_SKB_VENDOR_CB_OFF])
#endif

/* A buffer with 2 KiB of data room, from the vendor buffer manager. */
struct sk_buff *skbmgr_alloc_skb2k(void);

struct hwnat_flow_entry;

/* Exported by the hardware forwarding driver; each may be NULL. */
extern int (*hwnat_skb_to_foe_hook)(struct sk_buff *skb);
extern int (*hwnat_is_multicast_entry_hook)(int index, unsigned char *grp,
					    unsigned char *src, int is_ipv6);
extern int (*hwnat_is_drop_entry_hook)(int index, unsigned char *grp,
				       unsigned char *src, int is_ipv6);
extern int (*hwnat_multicast_set_hwnat_info_hook)(int index, unsigned int mask,
						  int flag);
extern int (*hwnat_delete_foe_entry_hook)(int index);
extern int (*ux_sw_nat_hook_update_dp)(int index, int dp);
extern int (*ux_sw_nat_hook_update_vlan)(int index, unsigned int outer_tag,
					 unsigned int inner_tag);
extern int (*ux_sw_nat_hook_drop_packet)(struct sk_buff *skb);

/* Installed by this module at start, cleared at stop. */
extern int (*xpon_igmp_learn_flow_hook)(struct sk_buff *skb);
extern struct hwnat_flow_entry *(*multicast_speed_find_entry_hook)(int index);
extern int (*multicast_hwnat_drop_entry_hook)(struct sk_buff *skb,
					      unsigned long long mask);

#ifdef __cplusplus
}
#endif

#endif /* JIX_QUOR_VENDOR_H */
