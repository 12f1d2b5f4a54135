// SPDX-License-Identifier: GPL-2.0
/* The module's tracepoints (platform/kernel/jix_mc_trace.h) are defined here. */
#include "jix_mc.h"

#define CREATE_TRACE_POINTS
#include "jix_mc_trace.h"
