#include "bench_env.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstdio>

namespace bench {

const char *const kGroupA = "239.1.1.1";
const char *const kGroupB = "239.1.1.2";
const char *const kGroupC = "239.1.1.3";

namespace {

std::vector<net_device *> devs;
u32 cur_mode = ~0u;
unsigned cur_n;
std::atomic<int> foe_idx{1};
std::atomic<unsigned> foe_next{0};
int foe_mod;

// The engine gives each programme a flow of its own: with a fixed base,
// the group MAC's last byte picks the flow (kGroupA: the base itself).
int fake_foe(struct sk_buff *skb)
{
	if (foe_mod > 0)
		return (int)(foe_next.fetch_add(1, std::memory_order_relaxed) %
			     (unsigned)foe_mod);
	return foe_idx.load(std::memory_order_relaxed) +
	       (skb_mac_header(skb)[5] & 0x0F) - 1;
}

void fill_mac(igmp_entry_info &e)
{
	const u8 *a = e.grp_ip.addr;
	const u8 m[6] = { 0x01, 0x00, 0x5e, (u8)(a[1] & 0x7f), a[2], a[3] };

	memcpy(e.grp_mac, m, 6);
}

void add_or_die(igmp_entry_info &e)
{
	if (api_ptr(QUOR_MC_API_ENTRY_ADD, &e) != QUOR_MC_API_OK) {
		fprintf(stderr, "entry add refused\n");
		abort();
	}
}

// Filler j: programme j / 4 on one of 8 ports, all 8 used evenly.
void add_filler(unsigned j)
{
	unsigned g = j / 4;
	u8 port = (u8)((j % 4) * 2 + (g % 2));
	igmp_entry_info e = filler_req(g, port);

	add_or_die(e);
}

} // namespace

igmp_entry_info filler_req(unsigned g, u8 port)
{
	igmp_entry_info e{};

	e.port = port;
	e.vlan = -1;
	g += 1;
	e.grp_ip.addr[0] = 232;
	e.grp_ip.addr[1] = (u8)(g >> 16);
	e.grp_ip.addr[2] = (u8)(g >> 8);
	e.grp_ip.addr[3] = (u8)g;
	e.src_ip.addr[0] = 10;
	e.src_ip.addr[3] = 1;
	fill_mac(e);
	return e;
}

igmp_entry_info group_req(const char *grp, u8 port)
{
	igmp_entry_info e{};

	e.port = port;
	e.vlan = -1;
	inet_pton(AF_INET, grp, e.grp_ip.addr);
	inet_pton(AF_INET, "10.0.0.1", e.src_ip.addr);
	fill_mac(e);
	return e;
}

std::vector<net_device *> &lan_devs()
{
	return devs;
}

void env_start()
{
	char name[16];

	host_reset();
	quor_mc_debug_level = 1;
	for (int i = 1; i <= 8; i++) {
		snprintf(name, sizeof(name), "eth0.%d", i);
		net_device *d = host_netdev_alloc(name);
		d->flags |= IFF_UP;
		host_netdev_tx_discard(d, 1);
		host_netdev_register(d);
		devs.push_back(d);
	}
	// The benchmarks fill the database up to 100,000 entries.
	igmp_fdb_max_entries = 1u << 20;
	if (init_module()) {
		fprintf(stderr, "module start failed\n");
		abort();
	}
	hwnat_skb_to_foe_hook = fake_foe;
	host_log_clear();
}

void env_stop()
{
	table_clear();
	cleanup_module();
	for (net_device *d : devs) {
		host_netdev_unregister(d);
		host_netdev_free(d);
	}
	devs.clear();
}

void table_clear()
{
	quor_peer_mc mc{};

	mc.api_function_id = QUOR_MC_API_CLEAR_ALL;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	cur_n = 0;
	/* Clearing every entry and flow gave every accounting slot back. */
}

void table_set(u32 mode, unsigned n)
{
	if (mode != cur_mode || n < cur_n || cur_n == 0) {
		table_clear();
		quor_igmp_set_filterMode(mode);
		cur_mode = mode;
		for (u8 p = 0; p < 8; p++) {
			igmp_entry_info e = group_req(p % 2 ? kGroupB : kGroupA, p);
			add_or_die(e);
		}
		cur_n = kTargetEntries;
	}
	for (; cur_n < n; cur_n++)
		add_filler(cur_n - kTargetEntries);
}

int api_ptr(u32 op, void *arg)
{
	quor_peer_mc mc{};

	mc.api_function_id = op;
	mc.param.ptr = arg;
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc) < 0)
		return -1;
	return mc.result;
}

int api_frame(u32 op, sk_buff *skb)
{
	quor_peer_mc mc{};

	mc.api_function_id = op;
	mc.skb = skb;
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc) < 0)
		return -1;
	return mc.result;
}

int packet_hook(sk_buff *skb)
{
	quor_peer_mc mc{};

	mc.in_function_id = 0;
	mc.skb = skb;
	local_bh_disable();
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc);
	local_bh_enable();
	return mc.result;
}

frames::Skb iptv_skb(const char *grp)
{
	using namespace frames;
	Bytes f = eth(group_mac(grp), mac("00:11:22:33:44:55"), {}, 0x0800,
		      ipv4("10.0.0.1", grp, 17,
			   udp(1234, 5001, Bytes(kPayload, 0x47))));
	return skb_from(f, 64);
}

void foe_fixed(int idx)
{
	foe_mod = 0;
	foe_idx = idx;
}

void foe_cycle(int cycle)
{
	foe_next = 0;
	foe_mod = cycle;
}

} // namespace bench
