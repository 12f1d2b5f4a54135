/* SPDX-License-Identifier: GPL-2.0 */
/* The per-packet path: classification, member ports, replication. */
#ifndef JIX_DATAPATH_H
#define JIX_DATAPATH_H

#include "jix_mc.h"

/* Per-packet operation 0: -1 leaves the frame to the kernel, 0 handled. */
int jix_multicast_data_handle(struct mc_data *mc);

#endif /* JIX_DATAPATH_H */
