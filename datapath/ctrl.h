/* SPDX-License-Identifier: GPL-2.0 */
/* IGMP queries: handed to the control plane and relayed to the ports. */
#ifndef JIX_CTRL_H
#define JIX_CTRL_H

#include "jix_mc.h"

/* Query kinds given by the data handler. */
#define JIX_QUERY_GENERAL	1	/* to 224.0.0.1 */
#define JIX_QUERY_SPECIFIC	2	/* any other group */

/* @skb's data begins at the network header; the data pointer is moved back
 * to the Ethernet header and left there.
 */
void quor_mcst_recv_ctrl_pkt(struct sk_buff *skb, u8 kind);
void quor_mcst_send_specific_query(struct sk_buff *skb);

#endif /* JIX_CTRL_H */
