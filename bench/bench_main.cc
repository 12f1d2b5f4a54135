// Runs every benchmark with repetitions and prints one table of medians.
//
//   jix_bench [google benchmark flags]
//   JIX_BENCH_REPS       repetitions of the per-frame benchmarks (5)
//   JIX_BENCH_SLOW_REPS  repetitions of add/delete (3)
#include "bench_env.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <thread>

namespace bench {
void register_datapath();
void register_control(int reps);
void register_hwnat();
} // namespace bench

namespace {

struct Result {
	double ns = 0;				// median real time, ns
	std::map<std::string, double> counters;	// medians
	std::string error;
};

// Keeps the medians (and errors) by benchmark name; prints one progress
// line per benchmark on stderr.
class Collect : public benchmark::BenchmarkReporter {
public:
	std::map<std::string, Result> res;

	bool ReportContext(const Context &) override { return true; }

	void ReportRuns(const std::vector<Run> &runs) override
	{
		for (const Run &r : runs) {
			std::string name = key_of(r.run_name);
			Result &x = res[name];

			if (r.error_occurred) {
				x.error = r.error_message;
				continue;
			}
			if (r.run_type == Run::RT_Aggregate &&
			    r.aggregate_name != "median")
				continue;
			if (r.run_type == Run::RT_Iteration && r.repetitions > 1)
				continue;
			x.ns = r.GetAdjustedRealTime() *
			       ns_per(r.time_unit);
			for (auto &c : r.counters)
				x.counters[c.first] = c.second.value;
			fprintf(stderr, "  %-44s %14.1f ns\n", name.c_str(), x.ns);
		}
	}

	// Name, arguments and thread count; not the min_time or time type.
	static std::string key_of(const benchmark::BenchmarkName &n)
	{
		std::string k = n.function_name;

		if (!n.args.empty())
			k += "/" + n.args;
		if (!n.threads.empty())
			k += "/" + n.threads;
		return k;
	}

	static double ns_per(benchmark::TimeUnit u)
	{
		switch (u) {
		case benchmark::kMillisecond: return 1e6;
		case benchmark::kMicrosecond: return 1e3;
		case benchmark::kSecond: return 1e9;
		default: return 1;
		}
	}

	const Result *get(const std::string &name) const
	{
		auto it = res.find(name);
		return it == res.end() ? nullptr : &it->second;
	}
};

const char *verdict(double v, double limit, bool at_most)
{
	if (v <= 0)
		return "";
	return (at_most ? v <= limit : v >= limit) ? "ok" : "MISSED";
}

bool usable(const Result *r)
{
	return r && r->error.empty() && r->ns > 0;
}

// Rows of @what beside its copy baseline and, when it has one, its
// bare-minimum baseline (@bare), whose ratio carries the target.
void print_ratio_rows(const Collect &c, const char *what, const char *bare,
		      const std::vector<int> &modes, const std::vector<long> &sizes)
{
	for (int mode : modes) {
		for (long n : sizes) {
			std::string row = "/mode:" + std::to_string(mode) +
					  "/entries:" + std::to_string(n);
			const Result *h = c.get(std::string(what) + row);
			const Result *b = c.get(std::string(what) + "_baseline" + row);
			const Result *m = bare ? c.get(std::string(bare) + row) : nullptr;
			if (!h) {
				printf("  %4d %8ld  (not run)\n", mode, n);
				continue;
			}
			if (!h->error.empty()) {
				printf("  %4d %8ld  n/a   %s\n", mode, n, h->error.c_str());
				continue;
			}
			printf("  %4d %8ld  %10.0f", mode, n, h->ns);
			if (usable(b))
				printf(" %10.0f %6.2f", b->ns, h->ns / b->ns);
			else
				printf(" %10s %6s", "-", "-");
			if (usable(m)) {
				bool t = n == 10000 || n == 100000;
				double r = h->ns / m->ns;
				printf(" %10.0f %6.2f   %-7s %s", m->ns, r, t ? "<= 1.2" : "",
				       t ? verdict(r, 1.2, true) : "");
			}
			printf("\n");
		}
	}
}

void print_table(const Collect &c, int reps, int slow_reps)
{
	unsigned cpus = std::thread::hardware_concurrency();

	printf("\njix_xpon_multicast benchmarks: host build (Release, -O2), %u CPUs, "
	       "medians of %d repetitions (add/delete: %d)\n", cpus, reps, slow_reps);

	printf("\nData handler per frame (per-packet hook, in softirq), IPv4 UDP with "
	       "1316 bytes of payload, 4 member ports of 8, all transparent\n"
	       "  copies: skb_copy of the frame for each of the 4 ports, handed to "
	       "the same devices\n"
	       "  bare: the least for the same output, skb_clone for each port "
	       "(no port changes the bytes)\n");
	printf("  %4s %8s  %10s %10s %6s %10s %6s   %s\n", "mode", "entries",
	       "handler ns", "copies ns", "ratio", "bare ns", "ratio", "target");
	print_ratio_rows(c, "handler", "handler_bare", { 4, 0 },
			 { 16, 1000, 10000, 100000 });

	printf("\nMixed: the same frame to programme C, ports 0 and 2 transparent, "
	       "4 and 6 adding a VLAN tag\n"
	       "  bare: skb_clone for ports 0 and 2, skb_copy for 4 and 6\n");
	printf("  %4s %8s  %10s %10s %6s %10s %6s   %s\n", "mode", "entries",
	       "handler ns", "", "", "bare ns", "ratio", "target");
	print_ratio_rows(c, "handler_mixed", "handler_mixed_bare", { 4 },
			 { 10000, 100000 });

	printf("\nAPI operation 3 (software replication) per frame, same frame and "
	       "ports\n  baseline: the frame handed in, its 4 copies sent, the "
	       "frame freed\n");
	printf("  %4s %8s  %10s %10s %6s\n", "mode", "entries", "op 3 ns",
	       "copies ns", "ratio");
	print_ratio_rows(c, "op3", nullptr, { 4, 0 }, { 16, 1000, 10000, 100000 });

	printf("\nAdd, then delete, N entries (N/10 programmes x 10 ports) through "
	       "API operations 4 and 5, mode 4\n");
	printf("  %8s  %12s %12s %12s %12s\n", "N", "add ms", "add us/entry",
	       "delete ms", "del us/entry");
	double add10k = 0, add100k = 0, del10k = 0, del100k = 0;
	for (long n : { 1000L, 10000L, 100000L }) {
		const Result *r = c.get("add_delete/entries:" + std::to_string(n));
		if (!r || !r->error.empty()) {
			printf("  %8ld  %s\n", n, r ? r->error.c_str() : "(not run)");
			continue;
		}
		double a = r->counters.at("add_s"), d = r->counters.at("del_s");
		printf("  %8ld  %12.1f %12.3f %12.1f %12.3f\n", n, a * 1e3,
		       a * 1e6 / n, d * 1e3, d * 1e6 / n);
		if (n == 10000) {
			add10k = a;
			del10k = d;
		} else if (n == 100000) {
			add100k = a;
			del100k = d;
		}
	}
	if (add10k > 0 && add100k > 0) {
		double ra = add100k / add10k, rd = del100k / del10k;
		printf("  add time(100,000) / time(10,000) = %.1f   (target <= 12, "
		       "linear 10) %s\n", ra, verdict(ra, 12, true));
		printf("  delete time(100,000) / time(10,000) = %.1f\n", rd);
	}

	printf("\nPacket path throughput, 10,000 entries, mode 4, each thread its "
	       "own programme,\n  with the control plane adding and deleting an "
	       "entry every 100 us meanwhile\n");
	const Result *t1 = c.get("packet_path_threads/threads:1");
	const Result *t2 = c.get("packet_path_threads/threads:2");
	printf("  %7s  %14s  %10s\n", "threads", "frames/s", "speedup");
	if (t1 && t2 && t1->error.empty() && t2->error.empty()) {
		double f1 = t1->counters.at("items_per_second");
		double f2 = t2->counters.at("items_per_second");
		printf("  %7d  %14.0f  %10s\n", 1, f1, "1.00");
		printf("  %7d  %14.0f  %10.2f   (target >= 1.8) %s\n", 2, f2, f2 / f1,
		       verdict(f2 / f1, 1.8, false));
	} else {
		printf("  (not run)\n");
	}
	const Result *b1 = c.get("packet_path_threads_baseline/threads:1");
	const Result *b2 = c.get("packet_path_threads_baseline/threads:2");
	if (b1 && b2 && b1->error.empty() && b2->error.empty()) {
		double f1 = b1->counters.at("items_per_second");
		double f2 = b2->counters.at("items_per_second");
		printf("  baseline, the same clones only:\n");
		printf("  %7d  %14.0f  %10s\n", 1, f1, "1.00");
		printf("  %7d  %14.0f  %10.2f\n", 2, f2, f2 / f1);
	}

	printf("\nFlow binding and aging, 10,000 flow records\n");
	const Result *fb = c.get("flow_bind");
	const Result *fa = c.get("flow_aging");
	if (fb && fb->error.empty() && fa && fa->error.empty()) {
		double recs = fb->counters.count("records") ? fb->counters.at("records") : 0;
		printf("  bind one frame of a bound flow (record refreshed): %10.0f ns\n",
		       fb->ns);
		printf("  age 10,000 records (all expire in one clock step): %10.3f ms\n",
		       fa->ns / 1e6);
		if (recs < 1)
			printf("  NOTE: no flow record was kept (%.0f timers pending): "
			       "these figures measure nothing.\n", recs);
	} else {
		printf("  %s\n", fb && !fb->error.empty() ? fb->error.c_str() :
		       fa && !fa->error.empty() ? fa->error.c_str() : "(not run)");
	}
	printf("\n");
}

int env_int(const char *name, int def)
{
	const char *v = getenv(name);
	return v && atoi(v) > 0 ? atoi(v) : def;
}

} // namespace

int main(int argc, char **argv)
{
	int reps = env_int("JIX_BENCH_REPS", 5);
	int slow_reps = env_int("JIX_BENCH_SLOW_REPS", 3);
	std::vector<char *> args(argv, argv + argc);
	std::string rep_flag = "--benchmark_repetitions=" + std::to_string(reps);
	std::string agg_flag = "--benchmark_report_aggregates_only=true";

	args.insert(args.begin() + 1, (char *)agg_flag.c_str());
	args.insert(args.begin() + 1, (char *)rep_flag.c_str());
	int n = (int)args.size();
	benchmark::Initialize(&n, args.data());

	bench::env_start();
	bench::register_datapath();
	bench::register_control(slow_reps);
	bench::register_hwnat();
	Collect c;
	benchmark::RunSpecifiedBenchmarks(&c);
	print_table(c, reps, slow_reps);
	bench::env_stop();
	return 0;
}
