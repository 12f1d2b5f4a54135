// Flow binding and aging with 10,000 flow records: each frame of the
// benchmark carries another flow index (0 .. 9,999, as a fake hardware
// driver gives them), and aging lets every record expire at once.
#include "bench_env.h"

namespace bench {
namespace {

constexpr int kFlows = 10000;

int never_in_hw(int, unsigned char *, unsigned char *, int)
{
	return 0;
}

// The frame as the handler passes it on: Ethernet header at the data.
frames::Skb bound_frame()
{
	frames::Skb skb = iptv_skb(kGroupA);

	skb_push(skb.get(), ETH_HLEN);
	return skb;
}

// Every record and timer gone, the tables open again for the next run.
void reopen_tables()
{
	jix_hwnat_release_all();
	jix_init_hwnat_list();
}

// One frame's binding: its parse is the handler's, its flow index the
// driver's next one.
void bind_one(sk_buff *skb, jix_pkt *pk)
{
	pk->flow_idx = hwnat_skb_to_foe_hook(skb);
	jix_xpon_hwnat_add_flow(skb, pk, kMaskA);
}

void bind_all(sk_buff *skb, jix_pkt *pk)
{
	foe_cycle(kFlows);
	for (int i = 0; i < kFlows; i++)
		bind_one(skb, pk);
}

void BM_FlowBind(benchmark::State &state)
{
	frames::Skb skb = bound_frame();
	jix_pkt pk;

	jix_xpon_parse(skb.get(), &pk);
	table_set(IGMP_FILTER_MAC_IP, 16);
	bind_all(skb.get(), &pk);
	state.counters["records"] = host_timers_pending();
	if (host_timers_pending() != kFlows)
		state.SkipWithError("the flow table did not keep every record");
	for (auto _ : state)
		bind_one(skb.get(), &pk);
	jix_xpon_hwnat_clear_flows();
	reopen_tables();
	foe_fixed(1);
}

// One pass of the clock over the expiry of 10,000 records.
void BM_FlowAging(benchmark::State &state)
{
	frames::Skb skb = bound_frame();
	double records = 0;
	jix_pkt pk;

	jix_xpon_parse(skb.get(), &pk);
	table_set(IGMP_FILTER_MAC_IP, 16);
	hwnat_is_multicast_entry_hook = never_in_hw;
	for (auto _ : state) {
		state.PauseTiming();
		bind_all(skb.get(), &pk);
		records = host_timers_pending();
		state.ResumeTiming();
		host_jiffies_advance(3000 + 2 * HZ);
	}
	state.counters["records"] = records;
	if (host_timers_pending())
		state.SkipWithError("records left after aging");
	hwnat_is_multicast_entry_hook = nullptr;
	reopen_tables();
	foe_fixed(1);
}

} // namespace

void register_hwnat()
{
	benchmark::RegisterBenchmark("flow_bind", BM_FlowBind)->MinTime(0.2);
	benchmark::RegisterBenchmark("flow_aging", BM_FlowAging)
		->Unit(benchmark::kMillisecond)->Iterations(5);	/* each sets up 10,000 records untimed */
}

} // namespace bench
