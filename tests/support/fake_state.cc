// What the recording fakes share with the fixture; linked by every test,
// with or without the fakes themselves.
#include "support/fake_offload.h"

namespace fake {
std::vector<std::string> calls;
int calls_under_fdb_lock;
int drop_result = -1;
} // namespace fake
