// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of socket buffers: linear buffers with head, data, tail
 * and end pointers as in the kernel.  The head is allocated exactly as
 * large as asked, so AddressSanitizer catches writes past the end.  One
 * skb counts as one live allocation, and every skb allocation is a
 * non-sleeping one that tests can make fail.
 */
#include "host_emul.h"

#define VLAN_HLEN	4
#define SKB_GROW_PAD	32	/* headroom added when a tag does not fit */
#define SKBMGR_HEADROOM	32
#define SKBMGR_ROOM	2048

namespace {

struct sk_buff *skb_new(unsigned int size)
{
	if (host::atomic_alloc_fails())
		return NULL;
	struct sk_buff *skb = (struct sk_buff *)calloc(1, sizeof(*skb));
	unsigned char *head = (unsigned char *)malloc(size ? size : 1);
	int *ref = (int *)malloc(sizeof(int));

	if (!skb || !head || !ref) {
		free(skb);
		free(head);
		free(ref);
		return NULL;
	}
	*ref = 1;
	skb->dataref = ref;
	skb->head = skb->data = skb->tail = head;
	skb->end = head + size;
	skb->truesize = size + sizeof(*skb);
	skb->mac_header = skb->network_header = skb->transport_header =
		(u16)~0U;
	host::live_inc();
	return skb;
}

void skb_free(struct sk_buff *skb)
{
	if (!skb)
		return;
	if (__atomic_sub_fetch(skb->dataref, 1, __ATOMIC_ACQ_REL) == 0) {
		free(skb->head);
		free(skb->dataref);
	}
	free(skb);
	host::live_dec();
}

void shift_header(u16 *hdr, unsigned int by)
{
	if (*hdr != (u16)~0U)
		*hdr = (u16)(*hdr + by);
}

/* Give @skb @extra more bytes of headroom. */
int skb_grow_head(struct sk_buff *skb, unsigned int extra)
{
	return pskb_expand_head(skb, (int)extra, 0, GFP_ATOMIC);
}

} /* namespace */

extern "C" {

struct sk_buff *alloc_skb(unsigned int size, gfp_t gfp)
{
	(void)gfp;
	return skb_new(size);
}

int pskb_expand_head(struct sk_buff *skb, int nhead, int ntail, gfp_t gfp)
{
	(void)gfp;
	if (host::atomic_alloc_fails())
		return -ENOMEM;
	unsigned int size = (unsigned int)(skb->end - skb->head);
	unsigned int extra = (unsigned int)nhead;
	unsigned int nsize = size + extra + (unsigned int)ntail;
	unsigned char *head = (unsigned char *)malloc(nsize);
	int *ref = (int *)malloc(sizeof(int));

	if (!head || !ref) {
		free(head);
		free(ref);
		return -ENOMEM;
	}
	memcpy(head + extra, skb->head, size);
	skb->data = head + extra + (skb->data - skb->head);
	skb->tail = head + extra + (skb->tail - skb->head);
	skb->end = head + nsize;
	if (__atomic_sub_fetch(skb->dataref, 1, __ATOMIC_ACQ_REL) == 0) {
		free(skb->head);
		free(skb->dataref);
	}
	*ref = 1;
	skb->dataref = ref;
	skb->head = head;
	shift_header(&skb->mac_header, extra);
	shift_header(&skb->network_header, extra);
	shift_header(&skb->transport_header, extra);
	skb->truesize += extra + (unsigned int)ntail;
	return 0;
}

int skb_cloned(const struct sk_buff *skb)
{
	return __atomic_load_n(skb->dataref, __ATOMIC_ACQUIRE) > 1;
}

int skb_cow(struct sk_buff *skb, unsigned int headroom)
{
	unsigned int have = skb_headroom(skb);
	unsigned int more = headroom > have ? headroom - have : 0;

	if (!more && !skb_cloned(skb))
		return 0;
	return pskb_expand_head(skb, (int)more, 0, GFP_ATOMIC);
}

struct sk_buff *skb_clone(struct sk_buff *skb, gfp_t gfp)
{
	(void)gfp;
	if (host::atomic_alloc_fails())
		return NULL;
	struct sk_buff *n = (struct sk_buff *)malloc(sizeof(*n));

	if (!n)
		return NULL;
	*n = *skb;
	n->next = n->prev = NULL;
	__atomic_add_fetch(skb->dataref, 1, __ATOMIC_ACQ_REL);
	host::live_inc();
	return n;
}

struct sk_buff *skb_copy(const struct sk_buff *skb, gfp_t gfp)
{
	unsigned int size = (unsigned int)(skb->end - skb->head);
	struct sk_buff *n = alloc_skb(size, gfp);

	if (!n)
		return NULL;
	memcpy(n->head, skb->head, size);
	n->data = n->head + (skb->data - skb->head);
	n->tail = n->head + (skb->tail - skb->head);
	n->dev = skb->dev;
	n->protocol = skb->protocol;
	n->len = skb->len;
	n->data_len = skb->data_len;
	n->mac_header = skb->mac_header;
	n->network_header = skb->network_header;
	n->transport_header = skb->transport_header;
	memcpy(n->cb, skb->cb, sizeof(n->cb));
	n->vendor_flags = skb->vendor_flags;
	n->hwnat_ctrl = skb->hwnat_ctrl;
	n->truesize = skb->truesize;
	return n;
}

void kfree_skb(struct sk_buff *skb)
{
	skb_free(skb);
}

void consume_skb(struct sk_buff *skb)
{
	skb_free(skb);
}

void *skb_push(struct sk_buff *skb, unsigned int len)
{
	BUG_ON(len > skb_headroom(skb));	/* skb_under_panic */
	skb->data -= len;
	skb->len += len;
	return skb->data;
}

void *skb_pull(struct sk_buff *skb, unsigned int len)
{
	if (len > skb->len)
		return NULL;
	skb->len -= len;
	skb->data += len;
	return skb->data;
}

void *skb_put(struct sk_buff *skb, unsigned int len)
{
	unsigned char *tmp = skb->tail;

	BUG_ON(len > (unsigned int)skb_tailroom(skb));	/* skb_over_panic */
	skb->tail += len;
	skb->len += len;
	return tmp;
}

void skb_reserve(struct sk_buff *skb, int len)
{
	BUG_ON((long)skb_headroom(skb) + len < 0 || len > skb_tailroom(skb));
	skb->data += len;
	skb->tail += len;
}

/* ---- vendor buffer manager ---- */

struct sk_buff *skbmgr_alloc_skb2k(void)
{
	struct sk_buff *skb = skb_new(SKBMGR_HEADROOM + SKBMGR_ROOM);

	if (skb)
		skb_reserve(skb, SKBMGR_HEADROOM);
	return skb;
}

/* ---- platform helpers ---- */

int jix_vlan_put_tag(struct sk_buff *skb, u16 tci)
{
	if (WARN_ON(skb->len < 2 * ETH_ALEN))
		return -EINVAL;
	/* As skb_cow_head(): shared bytes are unshared first. */
	if ((skb_headroom(skb) < VLAN_HLEN || skb_cloned(skb)) &&
	    skb_grow_head(skb, SKB_GROW_PAD))
		return -ENOMEM;
	bool mac_at_data = skb_mac_header_was_set(skb) &&
			   skb->mac_header == skb->data - skb->head;

	skb_push(skb, VLAN_HLEN);
	memmove(skb->data, skb->data + VLAN_HLEN, 2 * ETH_ALEN);
	skb->data[12] = ETH_P_8021Q >> 8;
	skb->data[13] = ETH_P_8021Q & 0xff;
	skb->data[14] = tci >> 8;
	skb->data[15] = tci & 0xff;
	if (mac_at_data)
		skb->mac_header -= VLAN_HLEN;
	return 0;
}

void jix_skb_or_vendor_flags(struct sk_buff *skb, u32 bits)
{
	skb->vendor_flags |= bits;
}

void jix_skb_set_vendor_flags(struct sk_buff *skb, u32 val)
{
	skb->vendor_flags = val;
}

u32 jix_skb_vendor_flags(const struct sk_buff *skb)
{
	return skb->vendor_flags;
}

void jix_skb_or_hwnat_ctrl(struct sk_buff *skb, u32 bits)
{
	skb->hwnat_ctrl |= bits;
}

u32 jix_skb_hwnat_ctrl(const struct sk_buff *skb)
{
	return skb->hwnat_ctrl;
}

} /* extern "C" */
