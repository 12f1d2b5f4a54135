// SPDX-License-Identifier: GPL-2.0
/*
 * The module's two hook entry points.  Each picks an operation from a
 * constant table by the index in its mc_data record, runs it and stores
 * its status in mc->result.  Returns 1 when an operation ran, -1 when the
 * index is out of range or names an empty slot.  No lock is held here.
 */
#include "jix_mc.h"
#include "module/api.h"
#include "datapath/datapath.h"
#include "vlan/vlan.h"
#include "jix_layout_check.h"

typedef int (*jix_mc_op_t)(struct mc_data *mc);

static const jix_mc_op_t jix_mc_operation[JIX_MC_OPERATION_NUM] = {
	[0] = jix_multicast_data_handle,
};

static const jix_mc_op_t quor_mc_api_operation[QUOR_MC_API_NUM] = {
	[QUOR_MC_API_SET_RECV_CB] = quor_mc_hook_set_recv_cb,
	[QUOR_MC_API_XMIT] = quor_mc_hook_xmit,
	[QUOR_MC_API_VLAN_IS_ONE_TO_N] = quor_mc_hook_vlan_isOneToN,
	[QUOR_MC_API_VLAN_HANDLE] = quor_mc_hook_vlan_handle,
	[QUOR_MC_API_ENTRY_ADD] = quor_mc_hook_entry_add,
	[QUOR_MC_API_ENTRY_DEL] = quor_mc_hook_entry_del,
	[QUOR_MC_API_ENTRY_UPDATE] = quor_mc_hook_entry_update,
	[QUOR_MC_API_CLEAR_BY_PORT] = quor_mc_hook_entry_clear_by_port,
	[QUOR_MC_API_CLEAR_ALL] = quor_mc_hook_entry_clear_all,
	[QUOR_MC_API_ENTRY_GET] = quor_mc_hook_entry_get,
	[QUOR_MC_API_SET_FILTER_MODE] = quor_mc_hook_set_filter_mode,
	[QUOR_MC_API_GET_FILTER_MODE] = quor_mc_hook_get_filter_mode,
	[QUOR_MC_API_SET_SNOOPING] = quor_mc_hook_set_snooping_mode,
	[QUOR_MC_API_GET_SNOOPING] = quor_mc_hook_get_snooping_mode,
	[QUOR_MC_API_SET_PORT_TYPE] = quor_mc_hook_set_port_type,
};

static int jix_mc_dispatch(struct mc_data *mc, u32 idx, const jix_mc_op_t *ops,
			   u32 num, const char *field)
{
	if (idx >= num) {
		printk("mc_data->%s is %d, exceed max number: %d\n", field, idx,
		       num);
		return -1;
	}
	if (!ops[idx]) {
		printk("Function_id is %d, NULL funtion hook\n", idx);
		return -1;
	}
	mc->result = ops[idx](mc);
	return 1;
}

int quor_jix_muliticast_interval_hook(void *data)
{
	struct mc_data *mc = data;

	jix_dbg(JIX_DBG_TRACE, "[%s]Enter, function_id=%d\n", __func__,
		mc->in_function_id);
	return jix_mc_dispatch(mc, mc->in_function_id, jix_mc_operation,
			       JIX_MC_OPERATION_NUM, "in_function_id");
}

int quor_jix_muliticast_api_hook(void *data)
{
	struct mc_data *mc = data;

	jix_dbg(JIX_DBG_TRACE, "[%s]Enter, function_id=%d\n", __func__,
		mc->api_function_id);
	return jix_mc_dispatch(mc, mc->api_function_id, quor_mc_api_operation,
			       QUOR_MC_API_NUM, "api_function_id");
}
