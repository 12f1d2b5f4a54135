/* SPDX-License-Identifier: GPL-2.0 */
/* Per-port replication and transmit. */
#ifndef JIX_TRANSMIT_H
#define JIX_TRANSMIT_H

#include "jix_mc.h"

#include "vlan/vlan.h"

/* The VLAN actions of a frame's member ports, looked up in advance. */
struct jix_port_actions {
	u32 found;			/* bit p: port p has an entry */
	struct vlan_action act[32];	/* set only for the ports of @found */
};

/* One copy of @skb (Ethernet header at skb->data) per member port of @mask. */
int jix_xpon_fwd_data_to_port(struct sk_buff *skb, u64 mask);
int jix_xpon_data_vlan_handle(struct sk_buff *skb, unsigned long port);
/* As jix_xpon_fwd_data_to_port(), with each port's action taken from @pa. */
int jix_xpon_fwd_data_with_actions(struct sk_buff *skb, u64 mask,
				   const struct jix_port_actions *pa);
/* The lookup key of a frame's entries, its port left 0. */
void jix_xpon_port_key_of(struct sk_buff *skb, struct igmp_entry_info *key);
struct jix_pkt;
/* The same key from the frame's parse. */
void jix_xpon_port_key_of_pkt(const struct jix_pkt *pk,
			      struct igmp_entry_info *key);
/* 1 when the port's entry for the frame was found and copied, -1 not. */
int jix_xpon_get_port_vlan_action(u8 port, struct sk_buff *skb,
				  struct vlan_action *action);
void jix_skb_dump_all(struct sk_buff *skb);
void jix_skb_dump(struct sk_buff *skb);

#endif /* JIX_TRANSMIT_H */
