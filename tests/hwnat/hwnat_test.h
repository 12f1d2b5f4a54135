// The module with its real offload code; the hardware forwarding driver is
// played by the test: each pointer it exports answers as drv says and
// writes its call into drv.calls ("is_mc(7,0) delete(7) ...").  The clock
// starts at tick 100000, a whole second.
#pragma once

#include "support/frames.h"
#include "support/module_fixture.h"

#include <algorithm>
#include <mutex>

extern "C" {
#include "datapath/datapath.h"
#include "hwnat/hwnat.h"
#include "hwnat/hwnat_flow.h"
}

using namespace frames;
using jt::entry;
using jt::log_take;

struct Driver {
	int foe = 7, is_mc = 1, is_drop = 1, drop_packet = 1;	// answers
	std::string calls;
	int under_lock = 0;	// calls made under a lock they must not be made under
};
inline Driver drv;
inline std::mutex drv_mtx;	// stand-ins may run on a timer thread

inline int rec(int ret, const char *fmt, int a = 0, long b = 0, unsigned c = 0)
{
	char buf[64];

	snprintf(buf, sizeof(buf), fmt, a, b, c);
	std::lock_guard<std::mutex> g(drv_mtx);
	drv.calls += std::string(buf) + " ";
	// VLAN and port changes of a membership change come with no lock held.
	bool lock_free = *fmt == 'v' || (!strncmp(fmt, "dp", 2) && b != HWNAT_DROP_DP);
	drv.under_lock += lock_free ? host_locks_held() : host_lock_held_by_me(&igmp_fdb_lock);
	return ret;
}

inline void install_driver()
{
	hwnat_skb_to_foe_hook = [](sk_buff *) { return drv.foe; };
	hwnat_is_multicast_entry_hook = [](int i, u8 *, u8 *, int v6) { return rec(drv.is_mc, "is_mc(%d,%ld)", i, v6); };
	hwnat_is_drop_entry_hook = [](int i, u8 *, u8 *, int v6) { return rec(drv.is_drop, "is_drop(%d,%ld)", i, v6); };
	hwnat_multicast_set_hwnat_info_hook = [](int i, unsigned m, int f) { return rec(0, "set_info(%d,0x%lx,%u)", i, m, f); };
	hwnat_delete_foe_entry_hook = [](int i) { return rec(0, "delete(%d)", i); };
	ux_sw_nat_hook_update_dp = [](int i, int dp) { return rec(0, "dp(%d,%ld)", i, dp); };
	ux_sw_nat_hook_update_vlan = [](int i, unsigned o, unsigned in) { return rec(0, "vlan(%d,0x%lx,0x%x)", i, o, in); };
	ux_sw_nat_hook_drop_packet = [](sk_buff *) { return rec(drv.drop_packet, "drop_packet"); };
}

// The calls starting with one of @prefixes, in order.
inline std::string calls_of(std::initializer_list<std::string> prefixes)
{
	std::string out;

	for (size_t i = 0, j; i < drv.calls.size(); i = j + 1) {
		j = drv.calls.find(' ', i);
		for (const auto &p : prefixes)
			if (!drv.calls.compare(i, p.size(), p))
				out += drv.calls.substr(i, j + 1 - i);
	}
	return out;
}

// A record as "index group<source pPROTO tTAGS outer/inner vVID wWIFI
// mMASK @EXPIRY; "; an address is shown as IPv6 when the record is IPv6
// or any of its bytes 4..15 is set.
inline std::string text(const hwnat_flow_entry &e)
{
	char g[64], s[64], buf[256];
	auto show = [&e](const u8 *a, char *out) {
		bool v6 = e.proto == 16 || std::any_of(a + 4, a + 16, [](u8 b) { return b; });
		inet_ntop(v6 ? AF_INET6 : AF_INET, a, out, 64);
	};

	show(e.grp_addr, g);
	show(e.src_addr, s);
	snprintf(buf, sizeof(buf), "%d %s<%s p%u t%u %x/%x v%d w%d m%llx @%lu; ", e.index, g, s,
		 e.proto, e.tag_num, e.outer_tag, e.inner_tag, e.vid, e.wifi_num,
		 (unsigned long long)e.mask, e.timer.expires);
	return buf;
}

class Hwnat : public jt::ModuleTest {
protected:
	void SetUp() override
	{
		jt::ModuleTest::SetUp();
		drv = Driver();
		install_driver();
	}
	void TearDown() override
	{
		host_timer_set_prerun(nullptr);
		jt::ModuleTest::TearDown();
		EXPECT_EQ(0, drv.under_lock);
	}
	// A list's records, head to tail, read under its lock.
	static std::string records(spinlock_t *lock, list_head *head)
	{
		std::string s;
		hwnat_flow_entry *e;

		spin_lock_bh(lock);
		list_for_each_entry(e, head, list)
			s += text(*e);
		spin_unlock_bh(lock);
		return s;
	}
	static std::string flows() { return records(&hwnat_flow_lock, &hwnat_flow_list); }
	static std::string drops() { return records(&hwnat_drop_lock, &hwnat_drop_list); }

	// The data handler's binding step for @frame forwarded to @mask, or
	// (@mask -1) its drop step for a frame without members, in softirq.
	// Returns the frame's forwarding control word, or the drop's result.
	static int pass(const Bytes &frame, s64 mask, bool fail_alloc = false)
	{
		Skb skb = skb_from(frame);
		jix_pkt pk;
		int ret = 0;

		host_alloc_fail_nth(fail_alloc);
		local_bh_disable();
		if (mask < 0) {
			ret = jix_xpon_hwnat_drop_multicast(skb.get(), 0);
		} else {
			skb_push(skb.get(), ETH_HLEN);
			jix_xpon_parse(skb.get(), &pk);
			pk.flow_idx = hwnat_skb_to_foe_hook(skb.get());
			jix_xpon_hwnat_add_flow(skb.get(), &pk, mask);
			ret = jix_skb_hwnat_ctrl(skb.get());
		}
		local_bh_enable();
		host_alloc_fail_nth(0);
		return ret;
	}
	static u32 bind(const Bytes &frame, u64 mask, bool fail = false) { return pass(frame, mask, fail); }
	static int drop(const Bytes &frame, bool fail = false) { return pass(frame, -1, fail); }
	static std::string proc(size_t chunk = 4096) { return host_proc_read_all("kv7730/jix_mc_hwnat_entry", chunk); }
};

// UDP data frames from 10.0.0.1 (2001:db8::1) to @group.
inline Bytes v4(const char *group, const std::vector<Tag> &tags = {})
{
	return ipv4_udp_frame("10.0.0.1", group, 5000, 5001, tags);
}
inline Bytes v6(const char *group, const std::vector<Tag> &tags = {})
{
	return ipv6_udp_frame("2001:db8::1", group, 5000, 5001, tags);
}
