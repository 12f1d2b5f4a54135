// Concurrency stress over one started module for STRESS_SECONDS (default
// 5): packet-path threads (the per-packet hook, API operations 2 and 3),
// control-plane threads (every entry operation, the switches, port types,
// proc writes, get-entries), a proc reader, the driver calling the hooks
// the module gives it, and a clock expiring flow and drop timers.  Then:
// no lock held, the flow and drop tables consistent, device references as
// before, and after stop nothing left (the fixture).  Under ThreadSanitizer
// the host's spinlocks are pthread mutexes and RCU defers frees to a grace
// period, so unguarded accesses and uses after free are reported.
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>

#include "support/frames.h"
#include "support/hwnat_check.h"
#include "support/module_fixture.h"

namespace {

const char *const kGroups[] = { "239.1.1.1", "239.1.1.2", "ff0e::1", "232.0.0.7" };
const u8 kPorts[] = { 0, 1, 2, 3, 16, 17 };
const char *const kFiles[] = { "kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_hwnat_entry",
			       "kv7730/jix_mc_acnt_mapping" };
std::atomic<int> foe_index{ 1 };

// A data frame (now and then an IGMP query), data at the MAC header or 14
// bytes past it as the per-packet hook gets it.
frames::Skb frame(std::mt19937 &rng, bool at_mac)
{
	const char *g = kGroups[rng() % 4];
	std::vector<frames::Tag> tags(rng() % 2, frames::Tag{ 0x8100, 100 });
	frames::Skb skb = frames::skb_from(
		strchr(g, ':') ? frames::ipv6_udp_frame("2001:db8::1", g, 4000, 5004, tags, rng() % 2)
		: rng() % 8 ? frames::ipv4_udp_frame("10.0.0.1", g, 4000, 5004, tags)
			    : frames::igmp_frame(frames::igmp_query(g), g, tags));
	skb_push(skb.get(), at_mac ? ETH_HLEN : 0);
	return skb;
}

// A hook call as the driver makes it, in softirq context.
int hook(u32 subtype, frames::Skb &skb, u32 id)
{
	quor_peer_mc mc{};
	mc.skb = skb.get();
	mc.api_function_id = id;
	local_bh_disable();
	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, subtype, &mc);
	local_bh_enable();
	if (ret == 1 && id == QUOR_MC_API_VLAN_HANDLE && mc.result == 2)
		skb.release();	/* replication consumed it */
	return ret;
}

// The control plane, the operator's proc writes and reads, get-entries.
void control(std::mt19937 &rng)
{
	igmp_entry_info e = jt::entry(kPorts[rng() % 6], kGroups[rng() % 4], rng() % 3 ? 100 : -1),
			room[8];
	e.vlan_mode = rng() % 6;
	e.outer_tpid = 0x8100;
	e.outer_tci = rng() % 4096;
	unsigned int r = rng() % 100;
	u32 v = rng() % 6;
	u8 on = rng() % 4 != 0;
	igmp_entry_get_req req = jt::get_req(kPorts[v], room, 8);
	const char cmd[] = "add ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 3 0 0 0 0";
	char buf[5000];
	if (r < 70)
		jt::api(r < 40 ? QUOR_MC_API_ENTRY_ADD : r < 60 ? QUOR_MC_API_ENTRY_DEL
				: QUOR_MC_API_ENTRY_UPDATE, &e);
	else if (r < 78)
		jt::api_u8(r < 76 ? QUOR_MC_API_CLEAR_BY_PORT : QUOR_MC_API_CLEAR_ALL, kPorts[v]);
	else if (r < 85)
		jt::api(r < 81 ? QUOR_MC_API_SET_FILTER_MODE : QUOR_MC_API_SET_SNOOPING,
			r < 81 ? (void *)&v : &on);
	else if (r < 88)
		jt::api_u8(QUOR_MC_API_SET_PORT_TYPE, 1 + on, 0, (void *)(r % 2 ? "eth0.2" : "eth0.3"));
	else if (r < 91)
		host_proc_write("kv7730/jix_mc_fwd_entry", cmd, sizeof(cmd) - 1);
	else if (r < 96)
		host_proc_read(kFiles[v % 3], buf, 1 + rng() % 4999, rng() % 6000);
	else if (r % 2)
		jt::api(QUOR_MC_API_ENTRY_GET, &req);
	else
		host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, QUOR_IGMP_IOC_GET_ENTRY, (unsigned long)&req);
}

class Stress : public jt::ModuleTest {
	void before_start() override
	{
		quor_mc_debug_level = 0;
		up({ "eth0.1", "eth0.2", "eth0.3", "eth0.4", "ux0", "ux1" });
	}
};

TEST_F(Stress, SharedStateUnderAllCallers)
{
	using G = unsigned char *;
	hwnat_skb_to_foe_hook = [](sk_buff *) { return foe_index.load() % 6; };
	hwnat_is_multicast_entry_hook = [](int, G, G, int) { return 1; };
	hwnat_is_drop_entry_hook = [](int, G, G, int) { return 1; };
	hwnat_multicast_set_hwnat_info_hook = [](int, unsigned int, int) { return 0; };
	hwnat_delete_foe_entry_hook = [](int) { return 0; };
	ux_sw_nat_hook_update_dp = [](int, int) { return 0; };
	ux_sw_nat_hook_update_vlan = [](int, unsigned int, unsigned int) { return 0; };
	ux_sw_nat_hook_drop_packet = [](sk_buff *) { return 1; };
	quor_mc_rx_cb_t cb = [](u8, u8 *frame, u32 len) { return len ? frame[0] & 1 : 0; };
	jt::api(QUOR_MC_API_SET_RECV_CB, &cb);
	std::vector<int> refs0(devs.size());
	std::transform(devs.begin(), devs.end(), refs0.begin(), host_netdev_refcnt);

	/* The per-packet hook, API operations 2 and 3, the driver's hooks. */
	auto packet = [](std::mt19937 &rng) {
		u32 id = rng() % 5;
		frames::Skb skb = frame(rng, id >= 2);
		if (id < 4) {
			hook(id < 2 ? QUOR_MC_SUBTYPE_INTERVAL : QUOR_MC_SUBTYPE_API, skb, id);
		} else {
			local_bh_disable();
			xpon_igmp_learn_flow_hook(skb.get());
			multicast_speed_find_entry_hook(rng() % 6);
			multicast_hwnat_drop_entry_hook(skb.get(), 0);
			local_bh_enable();
		}
		foe_index++;
	};
	const std::function<void(std::mt19937 &)> bodies[] = {
		packet, packet, packet, packet, control, control, control,
	};
	std::atomic<bool> stop{ false };
	std::vector<unsigned long> runs(std::size(bodies));
	std::vector<std::thread> th;
	for (size_t i = 0; i < std::size(bodies); i++)
		th.emplace_back([&, i] {
			std::mt19937 rng(100 + i);
			for (; !stop; runs[i]++)
				bodies[i](rng);
		});
	const char *s = getenv("STRESS_SECONDS");
	auto until = std::chrono::steady_clock::now() +
		     std::chrono::duration<double>(s && atof(s) > 0 ? atof(s) : 5.0);
	std::mt19937 rng(1);
	for (unsigned int n = 0; std::chrono::steady_clock::now() < until; n++) {	/* the clock */
		host_jiffies_advance(1 + rng() % 400);
		std::this_thread::sleep_for(std::chrono::microseconds(200));
		for (net_device *d : devs)
			if (n % 250 == 0)
				host_netdev_tx_clear(d);
	}
	stop = true;
	for (auto &t : th)
		t.join();

	for (size_t i = 0; i < runs.size(); i++)
		EXPECT_GT(runs[i], 0u) << "thread " << i;
	EXPECT_EQ(0, host_locks_held());
	EXPECT_EQ(0u, host_warn_count());
	EXPECT_EQ("", jt::hwnat_table_fault());
	for (size_t i = 0; i < devs.size(); i++)
		EXPECT_EQ(refs0[i], host_netdev_refcnt(devs[i])) << devs[i]->name;
	host_jiffies_advance(20000);	/* everything ages out */
}

} // namespace
