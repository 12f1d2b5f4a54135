// SPDX-License-Identifier: GPL-2.0
/*
 * Control frames: IGMP queries handed to the control plane's receive
 * callback and relayed to the ports.
 *
 * Not built yet: a query is accepted and nothing is relayed.
 */
#include "ctrl.h"

void quor_mcst_recv_ctrl_pkt(struct sk_buff *skb, u8 kind)
{
}

void quor_mcst_send_specific_query(struct sk_buff *skb)
{
}
