/* SPDX-License-Identifier: GPL-2.0 */
/* VLAN treatment of member ports, switch tags and the 1:N decision. */
#ifndef JIX_VLAN_H
#define JIX_VLAN_H

#include "jix_mc.h"

/* Re-decide the VLAN handling of a hardware flow after a membership
 * change; called without any of the module's locks held. */
void igmp_entry_check_vlan_mode(const struct igmp_entry_info *req, u64 mask,
				u32 flow_idx);

#define JIX_VID_NONE		0xFFF	/* no tag given for this position */
#define JIX_VLAN_TPID_8021Q	0x8100
#define VLAN_HLEN_BYTES		4

/* An entry's VLAN treatment, as the hardware-flow computations read it. */
struct vlan_action {
	u32 vlan_mode;
	u16 outer_tpid;
	u16 outer_tci;
	u16 inner_tpid;
	u16 inner_tci;
};

struct igmp_fdb_entry;
/* Copy an entry's VLAN treatment; caller holds igmp_fdb_lock. */
void jix_vlan_action_of(const struct igmp_fdb_entry *e, struct vlan_action *a);

/* Software handlers: edit the tags of one frame copy; always return 0. */
typedef int (*jix_vlan_handler_t)(struct sk_buff *skb, u64 outer_vid,
				  u64 inner_vid, u64 outer_pri, u64 inner_pri);

struct jix_vlan_handle {
	u16 mode;
	jix_vlan_handler_t handler;
};

#define JIX_VLAN_MODE_NUM	6
extern const struct jix_vlan_handle jix_vlan_handle_s[JIX_VLAN_MODE_NUM];

int jix_mcts_vlan_transparent(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			      u64 outer_pri, u64 inner_pri);
int jix_mcts_vlan_replace(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			  u64 outer_pri, u64 inner_pri);
int jix_mcts_vlan_replace_and_remark(struct sk_buff *skb, u64 outer_vid,
				     u64 inner_vid, u64 outer_pri, u64 inner_pri);
int jix_mcts_vlan_strip(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
			u64 outer_pri, u64 inner_pri);
int jix_mcts_vlan_add(struct sk_buff *skb, u64 outer_vid, u64 inner_vid,
		      u64 outer_pri, u64 inner_pri);
int jix_mcts_vlan_add_and_remark(struct sk_buff *skb, u64 outer_vid,
				 u64 inner_vid, u64 outer_pri, u64 inner_pri);
/* Apply treatment @mode (low 16 bits compared) with these tag controls. */
void jix_vlan_apply(struct sk_buff *skb, u32 mode, u16 outer_tci, u16 inner_tci);

/* Hardware-flow computations: tag words (TPID << 16 | TCI, 0 none). */
int quor_get_entry_vlan_action(u64 mask, struct vlan_action *action);
void quor_mcst_get_skb_vlan(u32 flow_idx, u32 *outer, u32 *inner, u32 *tag_num);
void quor_mcst_vlan_replace(u32 flow_idx, const struct vlan_action *act,
			    u32 *outer, u32 *inner);
void quor_mcst_vlan_replace_and_remark(u32 flow_idx, const struct vlan_action *act,
				       u32 *outer, u32 *inner);
void quor_mcst_vlan_add(u32 flow_idx, const struct vlan_action *act,
			u32 *outer, u32 *inner);
void quor_mcst_vlan_add_and_remark(u32 flow_idx, const struct vlan_action *act,
				   u32 *outer, u32 *inner);
void quor_mcst_vlan_strip(u32 flow_idx, u32 *outer, u32 *inner);
void quor_mcst_do_vlan(u32 flow_idx, u64 mask);

#endif /* JIX_VLAN_H */
