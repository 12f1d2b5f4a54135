// Any mc_data record through the control API hook.
#include "fuzz/fuzz_support.h"

FZ_HARNESS(32, { fz::api })
