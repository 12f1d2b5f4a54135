// The programme index against a plain walk of the entry list: random adds,
// deletes, updates, clears by port and clears of everything in all six
// filter modes, over a small domain of values so that programmes share
// ports, VLANs, MACs and address prefixes (also across families).  After
// every step the indexed lookups must answer as the walk in list order.
#include <random>

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace jt;
using namespace frames;

namespace {

int foe_next;
int counting_foe(sk_buff *) { return ++foe_next; }

const char *const kGroups[] = { "239.1.1.1", "239.1.1.2", "255.14.0.0",
				"ff0e::1", "ff0e::2", "ff0e:0:0:0:0:0:101:101" };
const char *const kSrcs[] = { "10.0.0.1", "10.0.0.2" };
const s16 kVlans[] = { -1, 100, 200 };

bool addr_eq(const mc_ip_addr &a, const mc_ip_addr &b, bool v6)
{
	return !memcmp(a.addr, b.addr, v6 ? 16 : 4);
}

// What each filter mode compares, written out plainly: VID, MAC, group,
// source.  A frame also needs the entry's family where the group counts,
// and in mode 0 a hybrid-HGU port needs no VID.
const struct {
	bool vid, mac, grp, src;
} kRules[] = {
	{ 1, 0, 1, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 1 }, { 1, 1, 0, 0 }, { 0, 1, 1, 0 },
	{ 1, 1, 1, 0 },
};

// An entry against an entry key or (@frame) a frame's key with VLAN @vid.
bool match(const igmp_fdb_entry &e, const igmp_entry_info &k, u32 mode,
	   bool frame = false, int vid = 0)
{
	const auto &r = kRules[mode];
	bool v6 = k.grp_ip.isipv6;
	bool hgu = frame && mode == 0 && e.port < 32 &&
		   PORT_TYPE[e.port] == JIX_PORT_TYPE_HYBRID_HGU;

	if (frame && r.grp && (e.grp_ip.isipv6 != 0) != v6)
		return false;
	return (!r.vid || e.vlan == (frame ? vid : k.vlan) || hgu) &&
	       (!r.mac || !memcmp(e.grp_mac, k.grp_mac, 6)) &&
	       (!r.grp || addr_eq(e.grp_ip, k.grp_ip, v6)) &&
	       (!r.src || addr_eq(e.src_ip, k.src_ip, v6));
}

class FdbIndex : public ModuleTest {
protected:
	std::mt19937 rng{ 1 };

	int pick(int n) { return (int)(rng() % (unsigned)n); }

	igmp_entry_info random_req()
	{
		const char *g = kGroups[pick(6)];
		igmp_entry_info e = entry((u8)pick(6), g, kVlans[pick(3)],
					  pick(4) ? nullptr : "01:00:5e:01:01:01");
		Bytes s = addr(kSrcs[pick(2)]);
		memcpy(e.src_ip.addr, s.data(), 4);
		e.vlan_mode = (u32)pick(6);
		return e;
	}

	void check_lookups(u32 mode)
	{
		std::vector<igmp_fdb_entry> list = fdb_entries();

		for (int i = 0; i < 8; i++) {
			igmp_entry_info k = random_req();
			// Entry lookup: the oldest match of the key's port.
			const igmp_fdb_entry *want = nullptr;
			for (auto &e : list)
				if (e.port == k.port && match(e, k, mode)) {
					want = &e;
					break;
				}
			// Programme walk: all member ports, the newest flow index.
			u64 want_mask = 0;
			s32 want_flow = -7;
			for (auto &e : list)
				if (match(e, k, mode)) {
					want_mask |= jix_port_bit(e.port);
					want_flow = e.flow_idx;
				}
			u32 op = (u32)pick(3);
			int want_ret = want_flow != -7;
			if (want_ret && op == 1)
				want_mask |= jix_port_bit(k.port);
			if (want_ret && op == 2)
				want_mask &= ~jix_port_bit(k.port);

			igmp_fdb_entry *ports[32];
			s32 flow = -7;
			u64 mask = 0;
			spin_lock_bh(&igmp_fdb_lock);
			igmp_fdb_entry *got = igmp_find_entry(&k);
			u64 got_seq = got ? got->seq : 0;
			int ret = igmp_is_programme_exist(&k, &flow, &mask, op);
			igmp_find_port_entries(&k, 0x3F, ports);
			for (u8 p = 0; p < 6; p++) {
				igmp_entry_info kp = k;
				kp.port = p;
				EXPECT_EQ(igmp_find_entry(&kp), ports[p]) << "port " << (int)p;
			}
			spin_unlock_bh(&igmp_fdb_lock);

			ASSERT_EQ(want != nullptr, got != nullptr) << "mode " << mode;
			if (want) {
				EXPECT_EQ(want->seq, got_seq) << "mode " << mode;
			}
			EXPECT_EQ(want_ret, ret);
			EXPECT_EQ(want_mask, mask);
			EXPECT_EQ(want_flow, flow);
		}
	}

	void check_frame(u32 mode)
	{
		igmp_entry_info f = random_req();
		int vid = kVlans[pick(3)];
		char g[64], s[64];
		bool v6 = f.grp_ip.isipv6;

		inet_ntop(v6 ? AF_INET6 : AF_INET, f.grp_ip.addr, g, sizeof(g));
		f.src_ip.isipv6 = v6;
		if (v6)
			strcpy(s, "2001:db8::1");
		else
			inet_ntop(AF_INET, f.src_ip.addr, s, sizeof(s));
		if (v6)
			inet_pton(AF_INET6, s, f.src_ip.addr);
		std::vector<Tag> tags;
		if (vid >= 0)
			tags.push_back({ 0x8100, (uint16_t)vid });
		Bytes fr = v6 ? ipv6_udp_frame(s, g, 1, 5001, tags) :
				ipv4_udp_frame(s, g, 1, 5001, tags);
		memcpy(&fr[0], f.grp_mac, 6);	// the entry's MAC, whatever the group

		std::vector<igmp_fdb_entry> before = fdb_entries();
		u64 want = 0;
		for (auto &e : before)
			if (match(e, f, mode, true, vid))
				want |= jix_port_bit(e.port);
		Skb skb = skb_from(fr);
		u64 got = 0;
		igmp_get_fwd_portmask(skb.get(), &got);
		EXPECT_EQ(want, got) << "mode " << mode << " frame to " << g;
		std::vector<igmp_fdb_entry> after = fdb_entries();
		ASSERT_EQ(before.size(), after.size());
		for (size_t i = 0; i < before.size(); i++)
			EXPECT_EQ(match(before[i], f, mode, true, vid) ? foe_next :
				  before[i].flow_idx, after[i].flow_idx);
	}

	void step(u32 mode)
	{
		igmp_entry_info r = random_req();
		int op = pick(40);

		if (op < 20)
			quor_igmp_add_entry(&r);
		else if (op < 30)
			quor_igmp_del_entry(&r);
		else if (op < 36)
			quor_igmp_update_entry(&r);
		else if (op < 39)
			quor_igmp_clear_entry_by_port(r.port);
		else
			igmp_clear_entry();
		check_lookups(mode);
		check_frame(mode);
	}
};

TEST_F(FdbIndex, AgreesWithAListWalkInEveryFilterMode)
{
	hwnat_skb_to_foe_hook = counting_foe;
	PORT_TYPE[3] = JIX_PORT_TYPE_HYBRID_HGU;
	for (u32 mode = 0; mode <= IGMP_FILTER_MAX; mode++) {
		quor_igmp_set_filterMode(mode);
		for (int i = 0; i < 400; i++) {
			step(mode);
			if (HasFatalFailure())
				return;
		}
	}
	// A filter mode written behind the index's back is followed too.
	quor_igmp_set_filterMode(4);
	for (int i = 0; i < 50; i++) {
		igmp_entry_info r = random_req();
		quor_igmp_add_entry(&r);
	}
	WRITE_ONCE(igmp_filter_mode, 1u);
	check_lookups(1);
	check_frame(1);
	WRITE_ONCE(igmp_filter_mode, 4u);
	check_lookups(4);
	PORT_TYPE[3] = 0;
	hwnat_skb_to_foe_hook = nullptr;
}

} // namespace
