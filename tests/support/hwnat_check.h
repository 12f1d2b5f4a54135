// The flow and drop tables' invariants, for tests that end in a quiet
// state (no timer function running): at most one flow record per flow
// index; every record on a list has its timer pending and is reachable
// through its table's index; the index holds exactly the listed records.
#pragma once

#include <arpa/inet.h>	// before plat_os.h, which defines htons() as a macro

#include <set>
#include <string>

extern "C" {
#include "hwnat/hwnat_flow.h"
}

namespace jt {

// "" when every invariant holds, else the first one broken.
inline std::string hwnat_table_fault()
{
	std::multiset<s32> flow_idx;
	std::string fault;
	auto note = [&fault](const std::string &what) { fault = fault.empty() ? what : fault; };

	for (hwnat_table *t : { &hwnat_flows, &hwnat_drops }) {
		const std::string name = t == &hwnat_flows ? "flow " : "drop ";
		size_t listed = 0, indexed = 0;
		struct hwnat_flow_entry *e;
		struct hwnat_rec *r, *n;

		spin_lock_bh(t->lock);
		list_for_each_entry(e, t->list, list) {
			bool found = false;
			std::string rec = name + "record " + std::to_string(e->index);

			listed++;
			if (t == &hwnat_flows) flow_idx.insert(e->index);
			if (!timer_pending(&e->timer)) note(rec + " has no pending timer");
			hwnat_for_each_of_index(t, r, n, e->index)
				found |= &r->e == e;
			if (!found) note(rec + " is missing from the index");
		}
		for (auto &bucket : t->index)
			list_for_each_entry(r, &bucket, by_index)
				indexed++;
		if (indexed != listed || t->count != listed)
			note(name + "table lists " + std::to_string(listed) + ", indexes " +
			     std::to_string(indexed) + ", counts " + std::to_string(t->count));
		spin_unlock_bh(t->lock);
	}
	for (s32 i : flow_idx)
		if (flow_idx.count(i) > 1)
			note(std::to_string(flow_idx.count(i)) + " flow records for index " + std::to_string(i));
	return fault;
}

} // namespace jt
