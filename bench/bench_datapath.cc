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

// What the handler must do at least: one copy per member port, handed to
// the port's device.
void copy_and_send(sk_buff *skb, u64 mask)
{
	for (unsigned p = 0; p < 8; p++) {
		if (!((mask >> p) & 1))
			continue;
		sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
		copy->dev = lan_devs()[p];
		jix_dev_xmit(copy);
	}
}

void BM_Handler(benchmark::State &state, long mode, long n)
{
	table_set((u32)mode, (unsigned)n);
	foe_fixed(1);
	frames::Skb skb = iptv_skb(kGroupA);
	unsigned before = host_netdev_tx_count(lan_devs()[0]);

	for (auto _ : state)
		benchmark::DoNotOptimize(packet_hook(skb.get()));
	if (host_netdev_tx_count(lan_devs()[0]) - before != state.iterations())
		state.SkipWithError("the handler did not send to port 0");
}

// The same copies, made from the frame as the handler sees it (Ethernet
// header at the data pointer).
void BM_HandlerBaseline(benchmark::State &state)
{
	frames::Skb skb = iptv_skb(kGroupA);

	skb_push(skb.get(), ETH_HLEN);
	for (auto _ : state)
		copy_and_send(skb.get(), kMaskA);
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

// Handler and baseline alternate row by row, so that both see the same
// machine load.
void register_rows()
{
	for (long mode : { 4, 0 }) {
		for (long n : kSizes) {
			std::string row = "/mode:" + std::to_string(mode) +
					  "/entries:" + std::to_string(n);
			benchmark::RegisterBenchmark(("handler" + row).c_str(),
				[mode, n](benchmark::State &s) { BM_Handler(s, mode, n); })
				->MinTime(0.2);
			benchmark::RegisterBenchmark(("handler_baseline" + row).c_str(),
						     BM_HandlerBaseline)->MinTime(0.2);
		}
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
// its programme's copies and hands them to its ports' devices.
void BM_ThreadsBaseline(benchmark::State &state)
{
	bool b = state.thread_index() % 2;
	frames::Skb skb = iptv_skb(b ? kGroupB : kGroupA);

	skb_push(skb.get(), ETH_HLEN);
	for (auto _ : state)
		copy_and_send(skb.get(), b ? kMaskB : kMaskA);
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
