// A started module on the host emulation, torn down after each test with
// checks that nothing leaked: allocations, device references, pending
// timers, warnings, and calls into offload code made under the
// forwarding-database lock.
#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <initializer_list>
#include <string>
#include <vector>

extern "C" {
#include "jix_mc.h"
#include "fdb/fdb.h"
#include "acnt/acnt.h"
#include "host_ctl.h"
}
#include "support/fake_offload.h"
#include "support/image_state.h"

namespace jt {

// An IPv4 (or IPv6, when the address has a colon) entry request, laid out
// as the control plane lays it out; the group MAC follows the group
// (01:00:5E + low 23 bits, 33:33 + last 4 bytes) unless @mac is given.
inline igmp_entry_info entry(u8 port, const char *grp, s16 vlan = -1, const char *mac = nullptr)
{
	quor_peer_entry e{};
	igmp_entry_info out;
	u8 *a = e.grp_ip.addr, *m = e.grp_mac;

	e.port = port;
	e.vlan = vlan;
	e.grp_ip.isipv6 = strchr(grp, ':') != nullptr;
	inet_pton(e.grp_ip.isipv6 ? AF_INET6 : AF_INET, grp, a);
	if (mac)
		sscanf(mac, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]);
	else if (e.grp_ip.isipv6)
		m[0] = m[1] = 0x33, memcpy(m + 2, a + 12, 4);
	else m[0] = 0x01, m[1] = 0, m[2] = 0x5e, m[3] = a[1] & 0x7f, m[4] = a[2], m[5] = a[3];
	static_assert(sizeof(e) == sizeof(out), "entry record");
	memcpy(&out, &e, sizeof(out));
	return out;
}

// Adds an entry of @port to @grp through the database, as the API does.
inline int add_entry(u8 port, const char *grp, s16 vlan = -1)
{
	igmp_entry_info e = entry(port, grp, vlan);
	return quor_igmp_add_entry(&e);
}

// One API call through the hook framework, as the control plane makes it:
// the dispatcher's return and the record's result.
struct ApiResult {
	int hook, result;
};

inline ApiResult api_call(quor_peer_mc &mc, u32 id, void *param2, u32 param3)
{
	mc.api_function_id = id, mc.param2 = param2, mc.param3 = param3, mc.result = 12345;
	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	return { ret, mc.result };
}

inline ApiResult api(u32 id, void *param, void *param2 = nullptr, u32 param3 = 0)
{
	quor_peer_mc mc{};
	mc.param.ptr = param;
	return api_call(mc, id, param2, param3);
}

inline ApiResult api_u8(u32 id, u8 b0, u8 b1 = 0, void *param2 = nullptr, u32 param3 = 0)
{
	quor_peer_mc mc{};
	mc.param.bytes[0] = b0, mc.param.bytes[1] = b1;
	return api_call(mc, id, param2, param3);
}

// A request for up to @n entries of @port, answered into @recs.
inline igmp_entry_get_req get_req(u8 port, igmp_entry_info *recs, s32 n)
{
	quor_peer_get_req req{};
	igmp_entry_get_req out;

	req.port_id = port, req.entry_num = n, req.entries = (quor_peer_entry *)recs;
	static_assert(sizeof(req) == sizeof(out), "request record");
	memcpy(&out, &req, sizeof(out));
	return out;
}

// Entries of the database in list order (read under the lock).
inline std::vector<igmp_fdb_entry> fdb_entries()
{
	std::vector<igmp_fdb_entry> v;
	igmp_fdb_entry *e;

	spin_lock_bh(&igmp_fdb_lock);
	list_for_each_entry(e, igmp_get_fdb_list(), list)
		v.push_back(*e);
	spin_unlock_bh(&igmp_fdb_lock);
	return v;
}

// The database in short: "m<filter mode> s<snooping>" and per entry
// " port:flow_idx:vlan_mode".
inline std::string fdb_state()
{
	std::string s = "m" + std::to_string(igmp_filter_mode) + " s" +
			std::to_string(quor_igmp_get_snooping());
	for (auto &e : fdb_entries())
		s += " " + std::to_string(e.port) + ":" + std::to_string(e.flow_idx) + ":" +
		     std::to_string(e.vlan_mode);
	return s;
}

// The @i-th frame @d transmitted (empty when there is none).
inline std::vector<u8> sent(net_device *d, unsigned i = 0)
{
	std::vector<u8> b(2048);
	int n = host_netdev_tx_frame(d, i, b.data(), b.size());

	b.resize(n < 0 ? 0 : n);
	return b;
}

inline std::string log_take() { std::string s = host_log_text(); host_log_clear(); return s; }

class ModuleTest : public ::testing::Test {
protected:
	long live0 = 0;
	bool loaded = false;
	std::vector<net_device *> devs;

	static void reset_image_state() { jt::reset_image_state(); }
	virtual void before_start() {}

	void SetUp() override
	{
		host_reset();
		fake::reset();
		reset_image_state();
		live0 = host_alloc_live();
		before_start();
		ASSERT_EQ(0, init_module());
		loaded = true;
		host_log_clear();
		fake::reset();
	}

	void stop()
	{
		if (loaded) cleanup_module();
		loaded = false;
	}

	void TearDown() override
	{
		stop();
		for (auto *d : devs) {
			EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name;
			if (d->registered) host_netdev_unregister(d);
			host_netdev_free(d);
		}
		EXPECT_EQ(live0, host_alloc_live());
		EXPECT_EQ(0, host_timers_pending());
		EXPECT_EQ(0u, host_warn_count());
		EXPECT_EQ(0, fake::calls_under_fdb_lock);
		EXPECT_EQ(0, host_locks_held());
		// The database lock is only ever taken with bottom halves off.
		EXPECT_EQ(0u, igmp_fdb_lock.taken_plain);
	}

	net_device *netdev(const char *name, bool reg = true)
	{
		net_device *d = host_netdev_alloc(name);
		devs.push_back(d);
		if (reg) host_netdev_register(d);
		return d;
	}

	// Registered devices that are up, one per name.
	void up(std::initializer_list<const char *> names)
	{
		for (const char *n : names) netdev(n)->flags |= IFF_UP;
	}
};

} // namespace jt
