/* SPDX-License-Identifier: GPL-2.0 */
/* Control API operations: 2 on success, -1 on failure. */
#ifndef JIX_MODULE_API_H
#define JIX_MODULE_API_H

#include "jix_mc.h"

int quor_mc_hook_set_recv_cb(struct mc_data *mc);
int quor_mc_hook_xmit(struct mc_data *mc);
int quor_mc_hook_entry_add(struct mc_data *mc);
int quor_mc_hook_entry_del(struct mc_data *mc);
int quor_mc_hook_entry_update(struct mc_data *mc);
int quor_mc_hook_entry_clear_by_port(struct mc_data *mc);
int quor_mc_hook_entry_clear_all(struct mc_data *mc);
int quor_mc_hook_entry_get(struct mc_data *mc);
int quor_mc_hook_set_filter_mode(struct mc_data *mc);
int quor_mc_hook_get_filter_mode(struct mc_data *mc);
int quor_mc_hook_set_snooping_mode(struct mc_data *mc);
int quor_mc_hook_get_snooping_mode(struct mc_data *mc);
int quor_mc_hook_set_port_type(struct mc_data *mc);

#endif /* JIX_MODULE_API_H */
