/* SPDX-License-Identifier: GPL-2.0 */
/* VLAN treatment of member ports, switch tags and the 1:N decision. */
#ifndef JIX_VLAN_H
#define JIX_VLAN_H

#include "jix_mc.h"

/* Re-decide the VLAN handling of a hardware flow after a membership
 * change; called without any of the module's locks held. */
void igmp_entry_check_vlan_mode(const struct igmp_entry_info *req, u64 mask,
				u32 flow_idx);

#endif /* JIX_VLAN_H */
