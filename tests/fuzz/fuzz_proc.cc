// Any writes and reads of every proc file, over listings of several pages.
#include "fuzz/fuzz_support.h"

FZ_HARNESS(32, { fz::proc_write, fz::proc_write, fz::proc_read }, fz::populate)
