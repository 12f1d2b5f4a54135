// SPDX-License-Identifier: GPL-2.0
/*
 * The 1:N VLAN decision for hardware flows.
 *
 * Not built yet: without bound flows there is no hardware VLAN state to
 * re-decide after a membership change.
 */
#include "vlan.h"

void igmp_entry_check_vlan_mode(const struct igmp_entry_info *req, u64 mask,
				u32 flow_idx)
{
}
