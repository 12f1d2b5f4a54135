// Frames of any shape through the per-packet hook, the API (operations 2
// and 3 among all the others) and the hooks the module gives the driver,
// mixed with device events, time and driver changes, over a few entries.
#include "fuzz/fuzz_support.h"

FZ_HARNESS(48, { fz::frame, fz::frame, fz::frame, fz::api, fz::api, fz::hooks, fz::env },
	   fz::add_entries)
