// Any ioctl command with any record, through user memory that faults.
#include "fuzz/fuzz_support.h"

FZ_HARNESS(32, { fz::ioctl })
