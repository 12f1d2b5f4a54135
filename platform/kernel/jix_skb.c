// SPDX-License-Identifier: GPL-2.0
/*
 * Socket-buffer services of the platform layer: VLAN tag insertion, the
 * vendor per-frame words and direct transmission.
 */
#include "platform.h"

/* Big-endian store at any alignment (asm/unaligned.h moved in 6.12). */
static void jix_put_be16(u8 *p, u16 v)
{
	p[0] = v >> 8;
	p[1] = v & 0xff;
}

int jix_vlan_put_tag(struct sk_buff *skb, u16 tci)
{
	bool mac_at_data;
	u8 *tag;

	/* The two MAC addresses must be in the linear part to be moved. */
	if (unlikely(skb_headlen(skb) < 2 * ETH_ALEN))
		return -EINVAL;
	/* Fails without touching the buffer; unshares a cloned header. */
	if (skb_cow_head(skb, VLAN_HLEN) < 0)
		return -ENOMEM;

	mac_at_data = skb_mac_header_was_set(skb) &&
		      skb_mac_header(skb) == skb->data;
	skb_push(skb, VLAN_HLEN);
	memmove(skb->data, skb->data + VLAN_HLEN, 2 * ETH_ALEN);
	tag = skb->data + 2 * ETH_ALEN;
	jix_put_be16(tag, ETH_P_8021Q);
	jix_put_be16(tag + 2, tci);
	if (mac_at_data)
		skb_reset_mac_header(skb);
	return 0;
}

#ifdef JIX_VENDOR_KERNEL
/*
 * Vendor kernel: both words are fields of struct sk_buff that its hardware
 * forwarding driver reads.  The field names are those of the vendor's
 * <linux/skbuff.h>; the vendor build passes them in as
 * JIX_VENDOR_SKB_FLAGS and JIX_VENDOR_SKB_HWNAT (Kbuild ccflags).
 */
#if !defined(JIX_VENDOR_SKB_FLAGS) || !defined(JIX_VENDOR_SKB_HWNAT)
#error "vendor kernel build: define JIX_VENDOR_SKB_FLAGS and JIX_VENDOR_SKB_HWNAT as the sk_buff field names"
#endif

void jix_skb_or_vendor_flags(struct sk_buff *skb, u32 bits)
{
	skb->JIX_VENDOR_SKB_FLAGS |= bits;
}

void jix_skb_set_vendor_flags(struct sk_buff *skb, u32 val)
{
	skb->JIX_VENDOR_SKB_FLAGS = val;
}

u32 jix_skb_vendor_flags(const struct sk_buff *skb)
{
	return skb->JIX_VENDOR_SKB_FLAGS;
}

void jix_skb_or_hwnat_ctrl(struct sk_buff *skb, u32 bits)
{
	skb->JIX_VENDOR_SKB_HWNAT |= bits;
}

u32 jix_skb_hwnat_ctrl(const struct sk_buff *skb)
{
	return skb->JIX_VENDOR_SKB_HWNAT;
}

#else /* !JIX_VENDOR_KERNEL */
/* Mainline: the words shared with the stand-in driver in skb->cb. */
static struct quor_skb_vendor_cb *jix_vendor_cb(struct sk_buff *skb)
{
	BUILD_BUG_ON(QUOR_SKB_CB_SIZE < sizeof(struct quor_skb_vendor_cb));
	BUILD_BUG_ON(QUOR_SKB_VENDOR_CB_OFF % sizeof(u32));
	return QUOR_SKB_VENDOR_CB(skb);
}

static const struct quor_skb_vendor_cb *
jix_vendor_cb_const(const struct sk_buff *skb)
{
	return QUOR_SKB_VENDOR_CB((struct sk_buff *)skb);
}

void jix_skb_or_vendor_flags(struct sk_buff *skb, u32 bits)
{
	jix_vendor_cb(skb)->vendor_flags |= bits;
}

void jix_skb_set_vendor_flags(struct sk_buff *skb, u32 val)
{
	jix_vendor_cb(skb)->vendor_flags = val;
}

u32 jix_skb_vendor_flags(const struct sk_buff *skb)
{
	return jix_vendor_cb_const(skb)->vendor_flags;
}

void jix_skb_or_hwnat_ctrl(struct sk_buff *skb, u32 bits)
{
	jix_vendor_cb(skb)->hwnat_ctrl |= bits;
}

u32 jix_skb_hwnat_ctrl(const struct sk_buff *skb)
{
	return jix_vendor_cb_const(skb)->hwnat_ctrl;
}
#endif /* JIX_VENDOR_KERNEL */

int jix_dev_xmit(struct sk_buff *skb)
{
	if (unlikely(!skb->dev)) {
		kfree_skb(skb);
		return -ENODEV;
	}
	/* Consumes the buffer whether or not the driver took it. */
	return dev_direct_xmit(skb, 0);
}
