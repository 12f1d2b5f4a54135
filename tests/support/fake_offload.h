// The calls the forwarding database made into hardware-flow, drop and VLAN
// code, as "name(args)" strings in order.
#pragma once
#include <string>
#include <vector>

namespace fake {
extern std::vector<std::string> calls;
// Calls made while igmp_fdb_lock was held by the caller (must stay 0).
extern int calls_under_fdb_lock;
// What the fake drop operation answers.
extern int drop_result;

inline void reset()
{
	calls.clear();
	calls_under_fdb_lock = 0;
	drop_result = -1;
}
} // namespace fake
