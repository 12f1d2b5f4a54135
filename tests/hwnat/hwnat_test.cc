#include "hwnat_test.h"

#include <mutex>

namespace hw {

Driver drv;
static std::mutex drv_mtx;	// stand-ins may run on a timer thread

static void rec(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
static void rec(const char *fmt, ...)
{
	char buf[96];
	va_list ap;

	va_start(ap, fmt);
	vsnprintf(buf, sizeof(buf), fmt, ap);
	va_end(ap);
	std::lock_guard<std::mutex> g(drv_mtx);
	drv.calls.emplace_back(buf);
	drv.under_fdb_lock += host_lock_held_by_me(&igmp_fdb_lock);
}

static int to_foe(sk_buff *) { return drv.foe; }
static int is_mc(int i, u8 *, u8 *, int v6) { rec("is_mc(%d,%d)", i, v6); return drv.is_mc; }
static int is_drop(int i, u8 *, u8 *, int v6) { rec("is_drop(%d,%d)", i, v6); return drv.is_drop; }
static int set_info(int i, unsigned int m, int f) { rec("set_info(%d,0x%x,%d)", i, m, f); return 0; }
static int del(int i) { rec("delete(%d)", i); return 0; }
static int update_dp(int i, int dp) { rec("dp(%d,%d)", i, dp); return 0; }
static int update_vlan(int i, unsigned int o, unsigned int in)
{
	rec("vlan(%d,0x%x,0x%x)", i, o, in);
	return 0;
}
static int drop_packet(sk_buff *) { rec("drop_packet"); return drv.drop_packet; }

void install()
{
	hwnat_skb_to_foe_hook = to_foe;
	hwnat_is_multicast_entry_hook = is_mc;
	hwnat_is_drop_entry_hook = is_drop;
	hwnat_multicast_set_hwnat_info_hook = set_info;
	hwnat_delete_foe_entry_hook = del;
	ux_sw_nat_hook_update_dp = update_dp;
	ux_sw_nat_hook_update_vlan = update_vlan;
	ux_sw_nat_hook_drop_packet = drop_packet;
}

bool called(const std::string &c)
{
	for (auto &x : drv.calls)
		if (x == c)
			return true;
	return false;
}

std::vector<std::string> calls_of(const std::string &prefix)
{
	std::vector<std::string> v;

	for (auto &x : drv.calls)
		if (!x.compare(0, prefix.size(), prefix))
			v.push_back(x);
	return v;
}

} // namespace hw

void Hwnat::SetUp()
{
	jt::ModuleTest::SetUp();
	hw::drv = hw::Driver();
	hw::install();
}

void Hwnat::TearDown()
{
	jt::ModuleTest::TearDown();
	EXPECT_EQ(0, hw::drv.under_fdb_lock);
}

static std::vector<hwnat_flow_entry> copy_list(spinlock_t *lock, list_head *head)
{
	std::vector<hwnat_flow_entry> v;
	hwnat_flow_entry *e;

	spin_lock_bh(lock);
	list_for_each_entry(e, head, list)
		v.push_back(*e);
	spin_unlock_bh(lock);
	return v;
}

std::vector<hwnat_flow_entry> Hwnat::flows()
{
	return copy_list(&hwnat_flow_lock, &hwnat_flow_list);
}

std::vector<hwnat_flow_entry> Hwnat::drops()
{
	return copy_list(&hwnat_drop_lock, &hwnat_drop_list);
}

u32 Hwnat::bind(const frames::Bytes &frame, u64 mask, bool fail_alloc)
{
	frames::Skb skb = frames::skb_from(frame);

	host_alloc_fail_nth(fail_alloc ? 1 : 0);
	local_bh_disable();
	skb_push(skb.get(), ETH_HLEN);
	jix_pkt pk;
	jix_xpon_parse(skb.get(), &pk);
	int (*to_foe)(struct sk_buff *) = hwnat_skb_to_foe_hook;
	pk.flow_idx = to_foe ? to_foe(skb.get()) : -1;
	jix_xpon_hwnat_add_flow(skb.get(), &pk, mask);
	skb_pull(skb.get(), ETH_HLEN);
	local_bh_enable();
	return jix_skb_hwnat_ctrl(skb.get());
}

int Hwnat::drop(const frames::Bytes &frame, bool fail_alloc)
{
	frames::Skb skb = frames::skb_from(frame);

	host_alloc_fail_nth(fail_alloc ? 1 : 0);
	local_bh_disable();
	int ret = jix_xpon_hwnat_drop_multicast(skb.get(), 0);
	local_bh_enable();
	return ret;
}

u64 Hwnat::members(const frames::Bytes &frame)
{
	frames::Skb skb = frames::skb_from(frame);
	u64 mask = 0;

	igmp_get_fwd_portmask(skb.get(), &mask);
	return mask;
}

std::string Hwnat::proc(size_t chunk)
{
	return host_proc_read_all("kv7730/jix_mc_hwnat_entry", chunk);
}

std::string Hwnat::hex16(const u8 *a)
{
	return frames::hex(frames::Bytes(a, a + 16));
}

frames::Bytes v4(const char *group, const std::vector<frames::Tag> &tags)
{
	return frames::ipv4_udp_frame("10.0.0.1", group, 5000, 5001, tags);
}

frames::Bytes v6(const char *group, const std::vector<frames::Tag> &tags)
{
	return frames::ipv6_udp_frame("2001:db8::1", group, 5000, 5001, tags);
}
