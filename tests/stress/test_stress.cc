// Concurrency stress over one started module: packet-path threads (the
// per-packet hook and API operations 2 and 3), control-plane threads
// (add, delete, update, clear by port, clear all, filter-mode and
// snooping switches, port types), proc readers, hardware-driver hook
// callers and a thread advancing the virtual clock so flow and drop
// timers expire.  Runs STRESS_SECONDS (default 5) and then checks that
// every invariant holds: no lock held, at most one flow record per flow
// index, device references back to one per bound row, and after stop no
// allocation, timer or reference left.  Under ThreadSanitizer the host's
// spinlocks are pthread mutexes, so unguarded accesses are reported.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "support/frames.h"

extern "C" {
#include "jix_mc.h"
#include "fdb/fdb.h"
#include "hwnat/hwnat_flow.h"
#include "host_ctl.h"
}
#include "support/hwnat_check.h"
#include "support/image_state.h"

namespace {

const char *const kGroups[] = { "239.1.1.1", "239.1.1.2", "ff0e::1", "232.0.0.7" };
const u8 kPorts[] = { 0, 1, 2, 3, 16, 17 };
const char *const kDevNames[] = { "eth0.1", "eth0.2", "eth0.3", "eth0.4", "ux0", "ux1" };

std::atomic<int> foe_index{1};
std::atomic<unsigned long> driver_calls{0};

int fake_foe(struct sk_buff *skb) { driver_calls++; return foe_index.load() % 6; }
int fake_is_mc(int, unsigned char *, unsigned char *, int) { driver_calls++; return 1; }
int fake_is_drop(int, unsigned char *, unsigned char *, int) { driver_calls++; return 1; }
int fake_set_info(int, unsigned int, int) { driver_calls++; return 0; }
int fake_delete(int) { driver_calls++; return 0; }
int fake_dp(int, int) { driver_calls++; return 0; }
int fake_vlan(int, unsigned int, unsigned int) { driver_calls++; return 0; }
int fake_drop_pkt(struct sk_buff *) { driver_calls++; return 1; }
int rx_cb(u8, u8 *frame, u32 len) { return len ? frame[0] & 1 : 0; }

double stress_seconds()
{
	const char *s = getenv("STRESS_SECONDS");
	double v = s ? atof(s) : 5.0;
	return v > 0 ? v : 5.0;
}

igmp_entry_info entry(std::mt19937 &rng)
{
	igmp_entry_info e{};
	const char *g = kGroups[rng() % 4];
	frames::Bytes a = frames::addr(g), m = frames::group_mac(g);

	e.port = kPorts[rng() % 6];
	e.vlan = (s16)(rng() % 3 ? 100 : -1);
	memcpy(e.grp_ip.addr, a.data(), a.size());
	e.grp_ip.isipv6 = a.size() == 16;
	memcpy(e.grp_mac, m.data(), 6);
	e.vlan_mode = rng() % 6;
	e.outer_tpid = 0x8100;
	e.outer_tci = (u16)(rng() % 4096);
	return e;
}

frames::Bytes frame(std::mt19937 &rng)
{
	const char *g = kGroups[rng() % 4];
	std::vector<frames::Tag> tags;

	if (rng() % 2)
		tags.push_back({ 0x8100, 100 });
	if (strchr(g, ':'))
		return frames::ipv6_udp_frame("2001:db8::1", g, 4000, 5004, tags,
					      rng() % 2);
	if (rng() % 8 == 0)
		return frames::igmp_frame(frames::igmp_query(g), g, tags);
	return frames::ipv4_udp_frame("10.0.0.1", g, 4000, 5004, tags);
}

int api(u32 id, void *param, u8 b0 = 0)
{
	quor_peer_mc mc{};

	mc.api_function_id = id;
	mc.param.ptr = param;
	if (!param)
		mc.param.bytes[0] = b0;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	return mc.result;
}

struct Counts {
	std::atomic<unsigned long> frames{0}, api23{0}, control{0}, proc{0},
		hooks{0}, ticks{0};
};

TEST(Stress, SharedStateUnderAllCallers)
{
	host_reset();
	jt::reset_image_state(0);
	long live0 = host_alloc_live();
	std::vector<net_device *> devs;
	for (const char *n : kDevNames) {
		net_device *d = host_netdev_alloc(n);
		d->flags |= IFF_UP;
		host_netdev_register(d);
		devs.push_back(d);
	}
	ASSERT_EQ(0, init_module());
	std::vector<int> refs0;
	for (net_device *d : devs)
		refs0.push_back(host_netdev_refcnt(d));
	hwnat_skb_to_foe_hook = fake_foe;
	hwnat_is_multicast_entry_hook = fake_is_mc;
	hwnat_is_drop_entry_hook = fake_is_drop;
	hwnat_multicast_set_hwnat_info_hook = fake_set_info;
	hwnat_delete_foe_entry_hook = fake_delete;
	ux_sw_nat_hook_update_dp = fake_dp;
	ux_sw_nat_hook_update_vlan = fake_vlan;
	ux_sw_nat_hook_drop_packet = fake_drop_pkt;
	quor_mc_rx_cb_t cb = rx_cb;
	api(QUOR_MC_API_SET_RECV_CB, &cb);

	std::atomic<bool> stop{false};
	Counts n;
	std::vector<std::thread> th;

	for (int t = 0; t < 3; t++)	/* packet path */
		th.emplace_back([&, t] {
			std::mt19937 rng(100 + t);
			while (!stop) {
				frames::Bytes f = frame(rng);
				frames::Skb skb = frames::skb_from(f);
				quor_peer_mc mc{};
				mc.skb = skb.get();
				local_bh_disable();
				__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST,
					    QUOR_MC_SUBTYPE_INTERVAL, &mc);
				local_bh_enable();
				foe_index++;
				n.frames++;
			}
		});
	th.emplace_back([&] {	/* API 2 and 3, as the driver calls them */
		std::mt19937 rng(7);
		while (!stop) {
			frames::Bytes f = frame(rng);
			sk_buff *skb = alloc_skb(32 + (unsigned int)f.size(), GFP_ATOMIC);
			skb_reserve(skb, 32);
			memcpy(skb_put(skb, (unsigned int)f.size()), f.data(), f.size());
			skb_reset_mac_header(skb);
			quor_peer_mc mc{};
			mc.skb = skb;
			mc.api_function_id = rng() % 2 ? QUOR_MC_API_VLAN_IS_ONE_TO_N
						       : QUOR_MC_API_VLAN_HANDLE;
			local_bh_disable();
			int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST,
					      QUOR_MC_SUBTYPE_API, &mc);
			local_bh_enable();
			if (!(ret == 1 && mc.api_function_id == QUOR_MC_API_VLAN_HANDLE &&
			      mc.result == 2))
				kfree_skb(skb);
			n.api23++;
		}
	});
	for (int t = 0; t < 2; t++)	/* control plane */
		th.emplace_back([&, t] {
			std::mt19937 rng(200 + t);
			while (!stop) {
				igmp_entry_info e = entry(rng);
				unsigned int r = rng() % 100;
				if (r < 40) {
					api(QUOR_MC_API_ENTRY_ADD, &e);
				} else if (r < 60) {
					api(QUOR_MC_API_ENTRY_DEL, &e);
				} else if (r < 70) {
					api(QUOR_MC_API_ENTRY_UPDATE, &e);
				} else if (r < 76) {
					api(QUOR_MC_API_CLEAR_BY_PORT, nullptr, kPorts[rng() % 6]);
				} else if (r < 78) {
					api(QUOR_MC_API_CLEAR_ALL, nullptr);
				} else if (r < 81) {
					u32 m = rng() % 6;
					api(QUOR_MC_API_SET_FILTER_MODE, &m);
				} else if (r < 85) {
					u8 on = rng() % 4 != 0;
					api(QUOR_MC_API_SET_SNOOPING, &on);
				} else if (r < 88) {
					quor_peer_mc mc{};
					mc.api_function_id = QUOR_MC_API_SET_PORT_TYPE;
					mc.param.val = 1 + rng() % 2;
					mc.param2 = (void *)(rng() % 2 ? "eth0.2" : "eth0.3");
					__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST,
						    QUOR_MC_SUBTYPE_API, &mc);
				} else if (r < 94) {
					const char cmd[] = "add ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 3 0 0 0 0";
					host_proc_write("kv7730/jix_mc_fwd_entry", cmd, sizeof(cmd) - 1);
				} else {
					igmp_entry_info room[8];
					igmp_entry_get_req req{};
					req.port_id = kPorts[rng() % 6];
					req.entry_num = 8;
					req.entries = room;
					if (rng() % 2)
						api(QUOR_MC_API_ENTRY_GET, &req);
					else
						host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0,
								  QUOR_IGMP_IOC_GET_ENTRY,
								  (unsigned long)&req);
				}
				n.control++;
			}
		});
	th.emplace_back([&] {	/* proc readers */
		std::mt19937 rng(300);
		const char *files[] = { "kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_hwnat_entry",
					"kv7730/jix_mc_acnt_mapping", "kv7730/jix_mc_port_type",
					"kv7730/jix_mc_debug" };
		std::vector<char> buf(5000);
		while (!stop) {
			host_proc_read(files[rng() % 5], buf.data(), 1 + rng() % 4999,
				       rng() % 6000);
			n.proc++;
		}
	});
	th.emplace_back([&] {	/* the driver calling the module's hooks */
		std::mt19937 rng(400);
		while (!stop) {
			frames::Bytes f = frame(rng);
			frames::Skb skb = frames::skb_from(f);
			skb_push(skb.get(), (unsigned int)std::min<size_t>(f.size(), ETH_HLEN));
			local_bh_disable();
			auto learn = READ_ONCE(xpon_igmp_learn_flow_hook);
			auto find = READ_ONCE(multicast_speed_find_entry_hook);
			auto drop = READ_ONCE(multicast_hwnat_drop_entry_hook);
			if (learn)
				learn(skb.get());
			if (find)
				(void)find((int)(rng() % 6));
			if (drop)
				drop(skb.get(), 0);
			local_bh_enable();
			n.hooks++;
		}
	});
	th.emplace_back([&] {	/* the clock */
		std::mt19937 rng(500);
		while (!stop) {
			host_jiffies_advance(1 + rng() % 400);
			n.ticks++;
			std::this_thread::sleep_for(std::chrono::microseconds(200));
		}
	});

	auto until = std::chrono::steady_clock::now() +
		     std::chrono::duration<double>(stress_seconds());
	while (std::chrono::steady_clock::now() < until) {
		std::this_thread::sleep_for(std::chrono::milliseconds(50));
		for (net_device *d : devs)
			host_netdev_tx_clear(d);
	}
	stop = true;
	for (auto &t : th)
		t.join();

	printf("stress %.1f s: %lu frames, %lu API 2/3, %lu control, %lu proc reads, "
	       "%lu driver-hook rounds, %lu clock steps, %lu driver calls\n",
	       stress_seconds(), n.frames.load(), n.api23.load(), n.control.load(),
	       n.proc.load(), n.hooks.load(), n.ticks.load(), driver_calls.load());
	RecordProperty("frames", (int)n.frames.load());
	RecordProperty("control", (int)n.control.load());
	EXPECT_GT(n.frames.load(), 0u);
	EXPECT_GT(n.control.load(), 0u);
	EXPECT_GT(n.proc.load(), 0u);

	/* Quiet now: the invariants. */
	EXPECT_EQ(0, host_locks_held());
	EXPECT_EQ(0u, host_warn_count());
	EXPECT_EQ("", jt::hwnat_table_fault());
	std::string hw = host_proc_read_all("kv7730/jix_mc_hwnat_entry", 4096);
	std::string fwd = host_proc_read_all("kv7730/jix_mc_fwd_entry", 4096);
	EXPECT_NE(std::string::npos, fwd.find("Help info:"));
	for (size_t i = 0; i < devs.size(); i++)
		EXPECT_EQ(refs0[i], host_netdev_refcnt(devs[i])) << devs[i]->name;

	/* Everything ages out, then stop leaves nothing behind. */
	host_jiffies_advance(20000);
	cleanup_module();
	for (net_device *d : devs) {
		host_netdev_unregister(d);
		EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name;
		host_netdev_tx_clear(d);
		host_netdev_free(d);
	}
	host_hwnat_reset();
	EXPECT_EQ(live0, host_alloc_live());
	EXPECT_EQ(0, host_timers_pending());
	EXPECT_EQ(0, host_proc_count());
	EXPECT_EQ(0, host_quor_registered_count());
	EXPECT_EQ(0, host_counters_taken());
}

} // namespace
