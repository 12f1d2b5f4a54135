/* SPDX-License-Identifier: GPL-2.0 */
/* VLAN treatment of member ports, switch tags and the 1:N decision. */
#ifndef JIX_VLAN_H
#define JIX_VLAN_H

#include "jix_mc.h"

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
/* Whether jix_vlan_apply() would leave @skb exactly as it is. */
bool jix_vlan_keeps(const struct sk_buff *skb, u32 mode, u16 outer_tci,
		    u16 inner_tci);

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

/* ---- switch tags (vlan_stag.c) ---- */
/* Switch tag types: bits 9..8 of the switch tag value. */
#define JIX_STAG_NONE		(-1)	/* the type field is a real one */
#define JIX_STAG_UNTAGGED	0	/* 4 bytes of switch tag, no VLAN tag */
#define JIX_STAG_8021Q		1	/* replaced the TPID 0x8100 */
#define JIX_STAG_8021AD		2	/* replaced the TPID 0x88A8 */
#define JIX_STAG_OTHER		3

/* The type field at skb->data + 12, or -1 when the frame is too short. */
int jix_stag_peek(const struct sk_buff *skb);
/*
 * Give the frame at skb->data its real type field back; returns the
 * switch tag type and stores its value, or JIX_STAG_NONE (value not
 * written) when there is none.  Type 0 takes 4 bytes out of the frame and
 * moves the MAC header with it.
 */
s8 jix_stag_remove(struct sk_buff *skb, u16 *value);
void quor_remove_stag(struct sk_buff *skb, u8 *type, u16 *value);
/* Undo jix_stag_remove; type 0 needs 4 bytes of headroom, other types
 * than 0..3 do nothing. */
void quor_recover_stag(struct sk_buff *skb, s8 type, u16 value);

/* ---- the 1:N decision (vlan_mode.c) ---- */
/* VID of the outer tag the frame's hardware flow was learned with, 0. */
u32 quor_get_skb_original_vid(struct sk_buff *skb);
/* Give the frame's hardware flow back the tags it was learned with. */
void quor_mcst_update_vlan(struct sk_buff *skb);
/* Give hardware flow @flow_idx back the tags it was learned with. */
/*
 * 1 when the members of @mask want different VLAN treatments (or one of
 * them is a Wi-Fi port), else 0.  The treatments are looked up with the
 * frame's key if @skb is given, else with the record's.  Takes
 * igmp_fdb_lock (bottom halves disabled) for each lookup.
 */
int quor_vlan_IsOneToN(u64 mask, struct sk_buff *skb,
		       const struct igmp_entry_info *req, u32 vid);
void igmp_get_port_vlan_action(u8 port, struct sk_buff *skb,
			       const struct igmp_entry_info *req, s32 vid,
			       struct vlan_action *slot);
/* Re-decide the VLAN handling of a hardware flow after a membership
 * change; called without any of the module's locks held. */
void igmp_entry_check_vlan_mode(const struct igmp_entry_info *req, u64 mask,
				u32 flow_idx);

/* ---- API operations 2 and 3, software replication (vlan_api.c) ---- */
/* Mask of every member when snooping is off: Wi-Fi ports with a device
 * and all eight LAN ports. */
u64 jix_vlan_flood_mask(u64 mask);
int quor_mc_hook_vlan_isOneToN(struct mc_data *mc);
int quor_mc_hook_vlan_handle(struct mc_data *mc);
/* One copy per member port with its VLAN treatment; consumes @skb. */
int quor_mcst_vlan_handle(struct sk_buff *skb, u64 mask);

#endif /* JIX_VLAN_H */
