/* SPDX-License-Identifier: GPL-2.0 */
/*
 * mc_data: the argument record of the module's two hook entry points
 * (hook type 36; sub-type 0 per-packet, sub-type 2 control API).  It is
 * shared with the kernel modules that call the hooks, so its layout is
 * fixed (88 bytes, little-endian, checked in jix_layout_check.h).
 */
#ifndef JIX_MC_DATA_H
#define JIX_MC_DATA_H

#include "platform.h"

/* Control API operations (api_function_id). */
enum quor_mc_api_id {
	QUOR_MC_API_SET_RECV_CB = 0,
	QUOR_MC_API_XMIT = 1,
	QUOR_MC_API_VLAN_IS_ONE_TO_N = 2,
	QUOR_MC_API_VLAN_HANDLE = 3,
	QUOR_MC_API_ENTRY_ADD = 4,
	QUOR_MC_API_ENTRY_DEL = 5,
	QUOR_MC_API_ENTRY_UPDATE = 6,
	QUOR_MC_API_CLEAR_BY_PORT = 7,
	QUOR_MC_API_CLEAR_ALL = 8,
	QUOR_MC_API_ENTRY_GET = 9,
	QUOR_MC_API_SET_FILTER_MODE = 10,
	QUOR_MC_API_GET_FILTER_MODE = 11,
	QUOR_MC_API_SET_SNOOPING = 12,
	QUOR_MC_API_GET_SNOOPING = 13,
	QUOR_MC_API_SET_PORT_TYPE = 14,
	QUOR_MC_API_NUM = 15,
};

#define JIX_MC_OPERATION_NUM	7	/* per-packet operation slots */

/* API results. */
#define QUOR_MC_API_OK		2
#define QUOR_MC_API_FAIL	(-1)

struct mc_data {
	u32 in_function_id;		/* 0x00 */
	u32 rsv0;
	u32 api_function_id;		/* 0x08 */
	u32 rsv1;
	struct sk_buff *skb;		/* 0x10 */
	union {				/* 0x18: per-operation argument */
		void *ptr;
		u8 bytes[8];		/* op 1: port id, transmit flags */
		u32 val;		/* op 14: port type */
	} param;
	void *param2;			/* 0x20: op 1 frame bytes, op 14 name */
	u32 param3;			/* 0x28: op 1 frame length */
	u8 rsv2[0x50 - 0x2C];
	s32 result;			/* 0x50 */
	u32 rsv3;
};

#endif /* JIX_MC_DATA_H */
