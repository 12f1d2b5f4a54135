// SPDX-License-Identifier: GPL-2.0
/*
 * Switch tags: frames that come up from the built-in switch may carry a
 * 4-byte field in the Ethernet type position.  Its first 16 bits are the
 * switch tag value; bits 9..8 of it say what the switch did with the
 * frame's own VLAN tag.  Removal gives the frame its real type field back
 * so that it can be classified; recovery puts the switch tag back.
 *
 * Both work at the frame's data start, on a frame only the caller uses,
 * and never read or write outside the linear data.
 */
#include "vlan.h"

#define STAG_TYPE_OFF	12	/* the type field, behind both addresses */
#define STAG_ADDR_LEN	(2 * ETH_ALEN)

static u16 stag_get16(const u8 *p)
{
	return (u16)(p[0] << 8 | p[1]);
}

static void stag_put16(u8 *p, u16 v)
{
	p[0] = v >> 8;
	p[1] = v & 0xff;
}

static long stag_linear_len(const struct sk_buff *skb)
{
	return skb_tail_pointer(skb) - skb->data;
}

/*
 * The type field at the data start, or -1 when the frame is too short to
 * hold a whole switch tag (both addresses and 4 bytes).
 */
int jix_stag_peek(const struct sk_buff *skb)
{
	if (stag_linear_len(skb) < STAG_TYPE_OFF + VLAN_HLEN_BYTES)
		return -1;
	return stag_get16(skb->data + STAG_TYPE_OFF);
}

static bool stag_is_real_type(u16 type)
{
	return type == ETH_P_IP || type == ETH_P_IPV6 ||
	       type == ETH_P_8021Q || type == ETH_P_8021AD;
}

/* Take the 4 bytes of a type 0 switch tag out of the frame. */
static void stag_cut(struct sk_buff *skb)
{
	memmove(skb->data + VLAN_HLEN_BYTES, skb->data, STAG_ADDR_LEN);
	skb_pull(skb, VLAN_HLEN_BYTES);
	skb->mac_header += VLAN_HLEN_BYTES;
}

s8 jix_stag_remove(struct sk_buff *skb, u16 *value)
{
	int type = jix_stag_peek(skb);
	s8 kind;

	if (type < 0)
		return JIX_STAG_NONE;
	jix_dbg(JIX_DBG_TRACE, "[%s]stag = 0x%04X\n", "quor_remove_stag", type);
	if (stag_is_real_type((u16)type))
		return JIX_STAG_NONE;
	kind = (s8)((type >> 8) & 3);
	switch (kind) {
	case JIX_STAG_UNTAGGED:
		stag_cut(skb);
		break;
	case JIX_STAG_8021Q:
		stag_put16(skb->data + STAG_TYPE_OFF, ETH_P_8021Q);
		break;
	case JIX_STAG_8021AD:
		stag_put16(skb->data + STAG_TYPE_OFF, ETH_P_8021AD);
		break;
	default:
		break;
	}
	*value = (u16)type;
	return kind;
}

void quor_remove_stag(struct sk_buff *skb, u8 *type, u16 *value)
{
	u16 v;
	s8 kind = jix_stag_remove(skb, &v);

	if (kind == JIX_STAG_NONE)
		return;
	*type = (u8)kind;
	*value = v;
}

/* Put the 4 bytes of a type 0 switch tag back: the value, then 0x0000. */
static void stag_insert(struct sk_buff *skb, u16 value)
{
	if (skb_headroom(skb) < VLAN_HLEN_BYTES ||
	    stag_linear_len(skb) < STAG_ADDR_LEN)
		return;
	skb_push(skb, VLAN_HLEN_BYTES);
	skb->mac_header -= VLAN_HLEN_BYTES;
	memmove(skb->data, skb->data + VLAN_HLEN_BYTES, STAG_ADDR_LEN);
	stag_put16(skb->data + STAG_TYPE_OFF, value);
	stag_put16(skb->data + STAG_TYPE_OFF + 2, 0);
}

void quor_recover_stag(struct sk_buff *skb, s8 type, u16 value)
{
	switch (type) {
	case JIX_STAG_UNTAGGED:
		stag_insert(skb, value);
		break;
	case JIX_STAG_8021Q:
	case JIX_STAG_8021AD:
	case JIX_STAG_OTHER:
		if (stag_linear_len(skb) >= STAG_TYPE_OFF + 2)
			stag_put16(skb->data + STAG_TYPE_OFF, value);
		break;
	default:
		break;
	}
}
