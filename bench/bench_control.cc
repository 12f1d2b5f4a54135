// Adding and then deleting N entries (N / 10 programmes on 10 ports each)
// through API operations 4 and 5, starting from an empty database.
#include "bench_env.h"

#include <chrono>

namespace bench {
namespace {

using clk = std::chrono::steady_clock;

double since(clk::time_point t0)
{
	return std::chrono::duration<double>(clk::now() - t0).count();
}

void BM_AddDelete(benchmark::State &state)
{
	unsigned n = (unsigned)state.range(0);
	std::vector<igmp_entry_info> reqs;
	double add_s = 0, del_s = 0;

	for (unsigned i = 0; i < n; i++)
		reqs.push_back(filler_req(i / 10, (u8)(i % 10)));
	table_clear();
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP);
	for (auto _ : state) {
		/* Untimed: the frees of earlier runs are done first. */
		rcu_barrier();
		clk::time_point t0 = clk::now();
		for (auto &r : reqs)
			api_ptr(QUOR_MC_API_ENTRY_ADD, &r);
		double a = since(t0);

		t0 = clk::now();
		for (auto &r : reqs)
			api_ptr(QUOR_MC_API_ENTRY_DEL, &r);
		double d = since(t0);

		state.SetIterationTime(a + d);
		add_s += a;
		del_s += d;
	}
	if (!igmp_fdb_empty())
		state.SkipWithError("entries left after deleting them all");
	state.counters["add_s"] = add_s / (double)state.iterations();
	state.counters["del_s"] = del_s / (double)state.iterations();
	table_clear();
}

} // namespace

void register_control(int reps)
{
	benchmark::RegisterBenchmark("add_delete", BM_AddDelete)
		->ArgName("entries")->Arg(1000)->Arg(10000)->Arg(100000)
		->UseManualTime()->Iterations(1)->Repetitions(reps)->Unit(benchmark::kMillisecond);
}

} // namespace bench
