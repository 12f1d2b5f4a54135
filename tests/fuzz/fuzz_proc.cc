// Any bytes and count written to every proc file, over listings of several
// pages (read whole after each write).
#include "fuzz/fuzz_support.h"

FZ_HARNESS(32, { fz::proc_write }, fz::populate)
