/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Build-time check of every record that crosses the module's boundary
 * against the offsets its peers use: the hook argument record, the
 * forwarding-entry records of the control API and the ioctl, the hardware
 * flow record that the forwarding driver reads, and the frame's vendor
 * words.  The expected numbers are written out as the interface documents
 * them, never computed from our own declarations, so a wrong field in a
 * header fails the build of both the kernel module and the host library.
 *
 * Included from module/dispatch.c only; it defines nothing.
 */
#ifndef JIX_LAYOUT_CHECK_H
#define JIX_LAYOUT_CHECK_H

#include "jix_mc.h"
#include "hwnat/hwnat_flow.h"

#define JIX_AT(type, field, off) \
	_Static_assert(offsetof(struct type, field) == (off), \
		       #type "." #field " is not at " #off)
#define JIX_SIZE(type, size) \
	_Static_assert(sizeof(struct type) == (size), \
		       #type " is not " #size " bytes")

/* The hook argument record, 88 bytes. */
JIX_AT(mc_data, in_function_id, 0x00);
JIX_AT(mc_data, api_function_id, 0x08);
JIX_AT(mc_data, skb, 0x10);
JIX_AT(mc_data, param, 0x18);
JIX_AT(mc_data, param.bytes[1], 0x19);
JIX_AT(mc_data, param2, 0x20);
JIX_AT(mc_data, param3, 0x28);
JIX_AT(mc_data, result, 0x50);
JIX_SIZE(mc_data, 88);

/* One forwarding entry, 80 bytes. */
JIX_AT(igmp_entry_info, port, 0x00);
JIX_AT(igmp_entry_info, vlan, 0x02);
JIX_AT(igmp_entry_info, pkt_acnt, 0x04);
JIX_AT(igmp_entry_info, byte_acnt, 0x08);
JIX_AT(igmp_entry_info, grp_ip.addr, 0x10);
JIX_AT(igmp_entry_info, grp_ip.isipv6, 0x20);
JIX_AT(igmp_entry_info, src_ip.addr, 0x24);
JIX_AT(igmp_entry_info, src_ip.isipv6, 0x34);
JIX_AT(igmp_entry_info, grp_mac, 0x38);
JIX_AT(igmp_entry_info, vlan_mode, 0x40);
JIX_AT(igmp_entry_info, outer_tpid, 0x44);
JIX_AT(igmp_entry_info, outer_tci, 0x46);
JIX_AT(igmp_entry_info, inner_tpid, 0x48);
JIX_AT(igmp_entry_info, inner_tci, 0x4A);
JIX_SIZE(igmp_entry_info, 80);

/* The get-entries request, 32 bytes. */
JIX_AT(igmp_entry_get_req, port_id, 0x00);
JIX_AT(igmp_entry_get_req, entry_num, 0x04);
JIX_AT(igmp_entry_get_req, total_pkts, 0x08);
JIX_AT(igmp_entry_get_req, total_bytes, 0x10);
JIX_AT(igmp_entry_get_req, entries, 0x18);
JIX_SIZE(igmp_entry_get_req, 32);

/*
 * The hardware flow record as far as the driver may read it: up to and
 * including the start of the timer.  The timer's own size and what the
 * module keeps behind it are the module's business.
 */
JIX_AT(hwnat_flow_entry, list.next, 0);
JIX_AT(hwnat_flow_entry, list.prev, 8);
JIX_AT(hwnat_flow_entry, proto, 32);
JIX_AT(hwnat_flow_entry, index, 36);
JIX_AT(hwnat_flow_entry, tag_num, 40);
JIX_AT(hwnat_flow_entry, outer_tag, 44);
JIX_AT(hwnat_flow_entry, inner_tag, 48);
JIX_AT(hwnat_flow_entry, vid, 56);
JIX_AT(hwnat_flow_entry, wifi_num, 58);
JIX_AT(hwnat_flow_entry, mask, 64);
JIX_AT(hwnat_flow_entry, grp_addr, 96);
JIX_AT(hwnat_flow_entry, src_addr, 112);
JIX_AT(hwnat_flow_entry, timer, 136);

#ifndef JIX_VENDOR_KERNEL
/*
 * The frame's vendor words on a kernel without them: the flags word in
 * bytes 40..43 of the 48-byte control buffer, the forwarding control word
 * in bytes 44..47, where the stand-in driver reads and clears them.
 */
_Static_assert(sizeof(((struct sk_buff *)NULL)->cb) == 48, "skb->cb is not 48 bytes");
_Static_assert(QUOR_SKB_VENDOR_CB_OFF == 40, "vendor words are not at cb[40]");
JIX_AT(quor_skb_vendor_cb, vendor_flags, 0);
JIX_AT(quor_skb_vendor_cb, hwnat_ctrl, 4);
#endif

#undef JIX_AT
#undef JIX_SIZE

#endif /* JIX_LAYOUT_CHECK_H */
