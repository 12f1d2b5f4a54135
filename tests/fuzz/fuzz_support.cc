// Shared set-up and checks of the fuzz harnesses (see fuzz_support.h).
#include <dirent.h>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include "support/hwnat_check.h"
#include "support/image_state.h"

namespace fz {

namespace {

net_device *devs[kDevNum];
long live0;

int fake_foe(struct sk_buff *skb)
{
	driver.calls++;
	return driver.foe_index;
}

int fake_is_mc(int index, unsigned char *grp, unsigned char *src, int is_ipv6)
{
	driver.calls++;
	return driver.is_mc;
}

int fake_is_drop(int index, unsigned char *grp, unsigned char *src,
		 int is_ipv6)
{
	driver.calls++;
	return driver.is_drop;
}

int fake_set_info(int index, unsigned int mask, int flag)
{
	driver.calls++;
	return 0;
}

int fake_delete_foe(int index)
{
	driver.calls++;
	return 0;
}

int fake_update_dp(int index, int dp)
{
	driver.calls++;
	return 0;
}

int fake_update_vlan(int index, unsigned int outer, unsigned int inner)
{
	driver.calls++;
	return 0;
}

int fake_drop_packet(struct sk_buff *skb)
{
	driver.calls++;
	return driver.drop_packet;
}

} // namespace

Driver driver;
unsigned long rx_cb_calls;

const char *const kGroups4[kGroupNum] = {
	"239.1.1.1", "224.0.0.1", "239.255.255.250", "232.0.0.7",
};
const char *const kGroups6[kGroupNum] = {
	"ff0e::1", "ff02::1", "ff05::1:3", "ff3e::8000:1",
};

net_device *dev(unsigned int i)
{
	if (!devs[i])
		devs[i] = host_netdev_alloc(lan_map_data[kNamedPorts[i]].ifname);
	return devs[i];
}

void dev_register(unsigned int i)
{
	if (!dev(i)->registered)
		host_netdev_register(dev(i));
}

void dev_unregister(unsigned int i)
{
	if (dev(i)->registered)
		host_netdev_unregister(dev(i));
}

void dev_set_up(unsigned int i, bool up)
{
	if (up)
		dev(i)->flags |= IFF_UP;
	else
		dev(i)->flags &= ~IFF_UP;
}

// Only the driver's own pointers: those the module installs stay.
void driver_install(uint8_t present)
{
	hwnat_skb_to_foe_hook = present & 0x01 ? fake_foe : nullptr;
	hwnat_is_multicast_entry_hook = present & 0x02 ? fake_is_mc : nullptr;
	hwnat_is_drop_entry_hook = present & 0x04 ? fake_is_drop : nullptr;
	hwnat_multicast_set_hwnat_info_hook =
		present & 0x08 ? fake_set_info : nullptr;
	hwnat_delete_foe_entry_hook = present & 0x10 ? fake_delete_foe : nullptr;
	ux_sw_nat_hook_update_dp = present & 0x20 ? fake_update_dp : nullptr;
	ux_sw_nat_hook_update_vlan = present & 0x40 ? fake_update_vlan : nullptr;
	ux_sw_nat_hook_drop_packet = present & 0x80 ? fake_drop_packet : nullptr;
}

// Flow indexes: none (negative), 0 (none either), a few small ones that
// collide, or any value.
void driver_choose(Input &in)
{
	static const int idx[] = { -1, 0, 1, 2, 3, 7, 0x3fff, -1000 };
	uint8_t b = in.u8();

	driver.foe_index = b < 0xf0 ? idx[b % 8] : (int)in.u32();
	driver.is_mc = (int)(in.u8() % 4) - 1;
	driver.is_drop = (int)(in.u8() % 4) - 1;
	driver.drop_packet = (int)(in.u8() % 4) - 1;
}

int fake_rx_cb(u8 port, u8 *frame, u32 len)
{
	unsigned int sum = 0;

	rx_cb_calls++;
	for (u32 i = 0; i < len; i++)
		sum += frame[i];
	return (int)((sum + len) & 1);
}

int api_call(quor_peer_mc *mc)
{
	return __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, mc);
}

void start(Input &in, bool choose_modes)
{
	host_reset();
	host_hwnat_reset();
	jt::reset_image_state();
	driver = Driver{};
	rx_cb_calls = 0;
	live0 = host_alloc_live();

	uint32_t present = in.u32(), up = in.u32();
	for (unsigned int i = 0; i < kDevNum; i++) {
		dev_set_up(i, up & (1u << i));
		if (present & (1u << i))
			dev_register(i);
	}
	driver_install(in.u8());
	driver_choose(in);

	int ret = init_module();
	FZ_CHECK(ret == 0, "init_module %d", ret);
	if (!choose_modes)
		return;
	u32 mode = in.u8() % 7;		/* 6: out of range, refused */
	api(QUOR_MC_API_SET_FILTER_MODE, &mode);
	u8 snoop = in.u8() & 1 ? 0 : 1;
	api(QUOR_MC_API_SET_SNOOPING, &snoop);
	uint8_t dbg = in.u8();
	/* Mostly quiet; the traces and frame dumps now and then. */
	quor_mc_debug_level = dbg < 0xe0 ? (dbg & 1) : (dbg & 7);
}

void check_quiet()
{
	FZ_CHECK(host_locks_held() == 0, "%d locks held", host_locks_held());
	FZ_CHECK(host_warn_count() == 0, "%lu warnings", host_warn_count());

	std::string fault = jt::hwnat_table_fault();
	FZ_CHECK(fault.empty(), "%s", fault.c_str());
	/* A bound row holds a reference on a registered device. */
	for (unsigned int i = 0; i < kDevNum; i++) {
		net_device *d = lan_map_data[kNamedPorts[i]].dev;
		if (d)
			FZ_CHECK(d->registered && host_netdev_refcnt(d) > 0,
				 "port %u bound to %s (refs %d)", kNamedPorts[i],
				 d->name, host_netdev_refcnt(d));
	}
}

void stop()
{
	/* The listings of whatever state was reached. */
	host_proc_read_all("kv7730/jix_mc_fwd_entry", 4096);
	host_proc_read_all("kv7730/jix_mc_hwnat_entry", 4096);
	host_proc_read_all("kv7730/jix_mc_acnt_mapping", 4096);
	check_quiet();
	cleanup_module();
	for (unsigned int i = 0; i < kDevNum; i++) {
		if (!devs[i])
			continue;
		dev_unregister(i);
		host_netdev_tx_clear(devs[i]);
		FZ_CHECK(host_netdev_refcnt(devs[i]) == 0, "%s keeps %d refs",
			 devs[i]->name, host_netdev_refcnt(devs[i]));
	}
	FZ_CHECK(host_alloc_live() == live0, "%ld objects leaked",
		 host_alloc_live() - live0);
	FZ_CHECK(host_timers_pending() == 0, "%d timers left",
		 host_timers_pending());
	FZ_CHECK(host_locks_held() == 0, "%d locks held", host_locks_held());
	FZ_CHECK(host_proc_count() == 0, "%d proc files left", host_proc_count());
	FZ_CHECK(host_quor_registered_count() == 0, "hooks left registered");
	FZ_CHECK(host_counters_taken() == 0, "%d hardware counters kept",
		 host_counters_taken());
	FZ_CHECK(!host_chrdev_registered(QUOR_IGMP_MAJOR), "chrdev left");
	FZ_CHECK(!xpon_igmp_learn_flow_hook && !multicast_speed_find_entry_hook &&
		 !multicast_hwnat_drop_entry_hook, "driver hooks left set");
	FZ_CHECK(host_warn_count() == 0, "%lu warnings", host_warn_count());
	host_hwnat_reset();
}

igmp_entry_info entry_from(Input &in)
{
	static const s16 vlans[] = { -1, 0, 1, 100, 300, 4094, 4095, -2 };
	static const unsigned int tpids[] = { 0, 0x8100, 0x88a8, 0x9100 };
	quor_peer_entry e{};	/* laid out as the control plane does */
	igmp_entry_info out;
	uint8_t how = in.u8();

	static_assert(sizeof(e) == sizeof(out), "entry record");
	if (how >= 0xf0) {	/* any record at all */
		in.fill(&out, sizeof(out));
		return out;
	}
	uint8_t p = in.u8();
	e.port = p < 0xe0 ? kNamedPorts[p % kDevNum] : p;
	uint8_t v = in.u8();
	e.vlan = v < 0xf0 ? vlans[v % 8] : (s16)in.u16();
	const char *g = (how & 1) ? kGroups6[(how >> 1) % kGroupNum]
				  : kGroups4[(how >> 1) % kGroupNum];
	frames::Bytes a = frames::addr(g);
	memcpy(e.grp_ip.addr, a.data(), a.size());
	e.grp_ip.isipv6 = how & 1;
	frames::Bytes m = frames::group_mac(g);
	memcpy(e.grp_mac, m.data(), 6);
	if (how & 0x20) {
		frames::Bytes s = frames::addr(how & 1 ? "2001:db8::1" : "10.0.0.1");
		memcpy(e.src_ip.addr, s.data(), s.size());
		e.src_ip.isipv6 = how & 1;
	}
	uint8_t vm = in.u8();
	e.vlan_mode = vm < 0xf0 ? vm % 6 : in.u32();
	e.outer_tpid = (u16)tpids[in.u8() % 4];
	e.outer_tci = in.u16();
	e.inner_tpid = (u16)tpids[in.u8() % 4];
	e.inner_tci = in.u16();
	memcpy(&out, &e, sizeof(out));
	return out;
}

int api(u32 id, void *ptr)
{
	quor_peer_mc mc{};

	mc.api_function_id = id;
	mc.param.ptr = ptr;
	return api_call(&mc);
}

int run(const uint8_t *data, size_t size, unsigned int max_ops,
	std::initializer_list<Op> ops, Op prelude)
{
	Input in(data, size);

	start(in);
	if (prelude)
		prelude(in);
	for (unsigned int n = 0; n < max_ops && !in.empty(); n++) {
		ops.begin()[ops.size() > 1 ? in.u8() % ops.size() : 0](in);
		check_quiet();
	}
	stop();
	return 0;
}

} // namespace fz

#ifndef JIX_LIBFUZZER
// Without libFuzzer: run the harness once per file in the directories (the
// committed corpus) or files named, so seeds and past findings run as a
// plain test.  Each input sits in a buffer exactly its own size.
int main(int argc, char **argv)
{
	std::vector<std::string> names;

	for (int i = 1; i < argc; i++) {
		DIR *d = opendir(argv[i]);
		if (!d)
			names.push_back(argv[i]);
		for (struct dirent *e; d && (e = readdir(d));)
			if (e->d_name[0] != '.')
				names.push_back(std::string(argv[i]) + "/" + e->d_name);
		if (d)
			closedir(d);
	}
	std::sort(names.begin(), names.end());
	for (const auto &n : names) {
		std::ifstream f(n, std::ios::binary);
		FZ_CHECK(f, "cannot read %s", n.c_str());
		std::vector<uint8_t> b((std::istreambuf_iterator<char>(f)), {});
		std::unique_ptr<uint8_t[]> copy(new uint8_t[b.size() + !b.size()]);
		std::copy(b.begin(), b.end(), copy.get());
		LLVMFuzzerTestOneInput(copy.get(), b.size());
	}
	printf("replayed %zu inputs\n", names.size());
	return names.empty();
}
#endif
