// Module state that a real load takes from the module image: the host
// build starts the module many times in one process, so every start is
// preceded by putting these back.
#pragma once

#include <arpa/inet.h>	// before plat_os.h, which defines htons() as a macro

extern "C" {
#include "jix_mc.h"
#include "fdb/fdb.h"
}

namespace jt {

inline void reset_image_state(int debug_level = 1)
{
	quor_mc_debug_level = debug_level;
	igmp_snooping_enable = 1;
	igmp_fdb_max_entries = IGMP_FDB_MAX_ENTRIES;
	quor_mc_ctrl_packet_rx_cb_func = nullptr;
	for (auto &r : lan_map_data) r.dev = nullptr;
}

} // namespace jt
