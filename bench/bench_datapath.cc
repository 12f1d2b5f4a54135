// The per-frame cost of the data handler and of API operation 3, each
// beside the bare cost of the copies they make and hand to the devices;
// and packet-path throughput of one and two threads over a shared table
// while the control plane changes it.
#include "bench_env.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace bench {
namespace {

const std::vector<long> kSizes = { 16, 1000, 10000, 100000 };

// What the handler sends, at the least: for each member port of @mask a
// clone when the port leaves the bytes as they are, a copy when it changes
// them (@changed), handed to the port's device.  The copy baseline copies
// for every port.
void send_min(sk_buff *skb, u64 mask, u64 changed)
{
	for (unsigned p = 0; p < 8; p++) {
		if (!((mask >> p) & 1))
			continue;
		sk_buff *copy = (changed >> p) & 1 ? skb_copy(skb, GFP_ATOMIC) :
						     skb_clone(skb, GFP_ATOMIC);
		copy->dev = lan_devs()[p];
		jix_dev_xmit(copy);
	}
}

void copy_and_send(sk_buff *skb, u64 mask)
{
	send_min(skb, mask, mask);
}

// Programme C: ports 0 and 2 transparent, 4 and 6 add a VLAN tag.
constexpr u64 kMixedChanged = 0x50;

void mixed_entries(u32 op)
{
	for (u8 p : { 0, 2, 4, 6 }) {
		igmp_entry_info e = group_req(kGroupC, p);
		if ((kMixedChanged >> p) & 1) {
			e.vlan_mode = JIX_VLAN_ADD;
			e.outer_tci = 100;
			e.inner_tci = 0xFFF;
		}
		api_ptr(op, &e);
	}
}

void BM_Handler(benchmark::State &state, long mode, long n, const char *grp)
{
	table_set((u32)mode, (unsigned)n);
	foe_fixed(1);
	if (grp == kGroupC)
		mixed_entries(QUOR_MC_API_ENTRY_ADD);
	frames::Skb skb = iptv_skb(grp);
	unsigned before = host_netdev_tx_count(lan_devs()[0]);

	for (auto _ : state)
		benchmark::DoNotOptimize(packet_hook(skb.get()));
	if (host_netdev_tx_count(lan_devs()[0]) - before != state.iterations())
		state.SkipWithError("the handler did not send to port 0");
	if (grp == kGroupC)
		mixed_entries(QUOR_MC_API_ENTRY_DEL);
}

// The baselines, made from the frame as the handler sees it (Ethernet
// header at the data pointer), in the driver's context (softirq).
void BM_HandlerBaseline(benchmark::State &state, u64 changed)
{
	frames::Skb skb = iptv_skb(kGroupA);

	skb_push(skb.get(), ETH_HLEN);
	for (auto _ : state) {
		local_bh_disable();
		send_min(skb.get(), kMaskA, changed);
		local_bh_enable();
	}
}

// Operation 3 is handed a frame (data at its Ethernet header) that it
// frees after replicating; each call gets a fresh copy.
void BM_VlanHandle(benchmark::State &state, long mode, long n)
{
	table_set((u32)mode, (unsigned)n);
	foe_fixed(1);
	frames::Skb proto = iptv_skb(kGroupA);

	skb_push(proto.get(), ETH_HLEN);
	sk_buff *probe = skb_copy(proto.get(), GFP_ATOMIC);
	if (api_frame(QUOR_MC_API_VLAN_HANDLE, probe) != QUOR_MC_API_OK) {
		kfree_skb(probe);
		host_log_clear();
		state.SkipWithError("n/a: operation 3 answers NULL funtion hook");
		return;
	}
	for (auto _ : state)
		api_frame(QUOR_MC_API_VLAN_HANDLE, skb_copy(proto.get(), GFP_ATOMIC));
}

void BM_VlanHandleBaseline(benchmark::State &state)
{
	frames::Skb proto = iptv_skb(kGroupA);

	skb_push(proto.get(), ETH_HLEN);
	for (auto _ : state) {
		sk_buff *in = skb_copy(proto.get(), GFP_ATOMIC);

		copy_and_send(in, kMaskA);
		kfree_skb(in);
	}
}

// Handler and baselines alternate row by row, so that they see the same
// machine load.
void register_rows()
{
	for (long mode : { 4, 0 }) {
		for (long n : kSizes) {
			std::string row = "/mode:" + std::to_string(mode) +
					  "/entries:" + std::to_string(n);
			benchmark::RegisterBenchmark(("handler" + row).c_str(),
				[mode, n](benchmark::State &s) { BM_Handler(s, mode, n, kGroupA); })
				->MinTime(0.2);
			benchmark::RegisterBenchmark(("handler_baseline" + row).c_str(),
				[](benchmark::State &s) { BM_HandlerBaseline(s, kMaskA); })
				->MinTime(0.2);
			benchmark::RegisterBenchmark(("handler_bare" + row).c_str(),
				[](benchmark::State &s) { BM_HandlerBaseline(s, 0); })
				->MinTime(0.2);
		}
	}
	for (long n : { 10000L, 100000L }) {
		std::string row = "/mode:4/entries:" + std::to_string(n);
		benchmark::RegisterBenchmark(("handler_mixed" + row).c_str(),
			[n](benchmark::State &s) { BM_Handler(s, 4, n, kGroupC); })
			->MinTime(0.2);
		benchmark::RegisterBenchmark(("handler_mixed_bare" + row).c_str(),
			[](benchmark::State &s) { BM_HandlerBaseline(s, kMixedChanged); })
			->MinTime(0.2);
	}
	for (long mode : { 4, 0 }) {
		for (long n : kSizes) {
			std::string row = "/mode:" + std::to_string(mode) +
					  "/entries:" + std::to_string(n);
			benchmark::RegisterBenchmark(("op3" + row).c_str(),
				[mode, n](benchmark::State &s) { BM_VlanHandle(s, mode, n); })
				->MinTime(0.2);
			benchmark::RegisterBenchmark(("op3_baseline" + row).c_str(),
						     BM_VlanHandleBaseline)->MinTime(0.2);
		}
	}
}

// ---- one thread against two ----

constexpr unsigned kThreadTable = 10000;
std::atomic<bool> churn_stop;
std::atomic<unsigned long> churn_ops;
std::atomic<int> ready;
std::thread churn;

// An operator joining and leaving programmes of their own, about 5,000
// changes a second.
void churn_loop()
{
	unsigned g = 900000;

	while (!churn_stop.load()) {
		igmp_entry_info e = filler_req(g, 9);

		api_ptr(QUOR_MC_API_ENTRY_ADD, &e);
		std::this_thread::sleep_for(std::chrono::microseconds(100));
		api_ptr(QUOR_MC_API_ENTRY_DEL, &e);
		std::this_thread::sleep_for(std::chrono::microseconds(100));
		churn_ops += 2;
		g = g == 900999 ? 900000 : g + 1;
	}
}

void BM_Threads(benchmark::State &state)
{
	if (state.thread_index() == 0) {
		table_set(IGMP_FILTER_MAC_IP, kThreadTable);
		foe_fixed(1);
		churn_stop = false;
		churn_ops = 0;
		churn = std::thread(churn_loop);
		ready = 1;
	}
	while (!ready.load())
		std::this_thread::yield();
	frames::Skb skb = iptv_skb(state.thread_index() % 2 ? kGroupB : kGroupA);

	for (auto _ : state)
		benchmark::DoNotOptimize(packet_hook(skb.get()));
	state.SetItemsProcessed(state.iterations());
	if (state.thread_index() == 0) {
		churn_stop = true;
		churn.join();
		ready = 0;
		state.counters["churn_ops"] = benchmark::Counter(
			(double)churn_ops, benchmark::Counter::kIsRate);
	}
}

// The ceiling of the row above on this machine: each thread only makes
// its programme's clones (what the handler sends for transparent ports)
// and hands them to its ports' devices.
void BM_ThreadsBaseline(benchmark::State &state)
{
	bool b = state.thread_index() % 2;
	frames::Skb skb = iptv_skb(b ? kGroupB : kGroupA);

	skb_push(skb.get(), ETH_HLEN);
	for (auto _ : state) {
		local_bh_disable();
		send_min(skb.get(), b ? kMaskB : kMaskA, 0);
		local_bh_enable();
	}
	state.SetItemsProcessed(state.iterations());
}

} // namespace

void register_datapath()
{
	register_rows();
	benchmark::RegisterBenchmark("packet_path_threads", BM_Threads)
		->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.5);
	benchmark::RegisterBenchmark("packet_path_threads_baseline",
				     BM_ThreadsBaseline)
		->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.5);
}

} // namespace bench
