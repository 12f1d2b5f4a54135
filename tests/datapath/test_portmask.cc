// Member ports of a frame under each filter mode, the flow index learned
// by matching entries, the debug trace of the frame key, and the
// programme index against a plain walk of the entry list.
#include <random>
#include <regex>

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace jt;
using namespace frames;

namespace {

const Tag vid100{ 0x8100, 0x2064 };	// priority 1, VLAN 100
int foe_index, foe_under_lock;
int fake_foe(sk_buff *) { foe_under_lock += host_lock_held_by_me(&igmp_fdb_lock); return foe_index; }
int counting_foe(sk_buff *) { return ++foe_index; }

class PortMask : public ModuleTest {
protected:
	void TearDown() override
	{
		hwnat_skb_to_foe_hook = nullptr;
		PORT_TYPE[3] = 0;
		EXPECT_EQ(0, foe_under_lock);
		ModuleTest::TearDown();
	}

	// The frame's mask, from @start, or from the twin with the caller's VID.
	static u64 mask(const Bytes &frame, u64 start = 0, const u32 *vid = nullptr)
	{
		Skb skb = skb_from(frame);
		if (vid)
			quor_mcst_get_fwd_mask(skb.get(), *vid, &start);
		else igmp_get_fwd_portmask(skb.get(), &start);
		return start;
	}

	static std::string flows()
	{
		std::string s;
		for (auto &e : fdb_entries()) s += std::to_string(e.flow_idx) + " ";
		return s;
	}
};

Bytes v4(std::vector<Tag> tags = {}) { return ipv4_udp_frame("10.0.0.1", "239.1.1.1", 1, 2, tags); }

TEST_F(PortMask, MatchesLearnTheFlowIndexAndTakeTheLockOnce)
{
	unsigned long bh = igmp_fdb_lock.taken_bh;

	hwnat_skb_to_foe_hook = fake_foe;
	foe_index = 3;
	EXPECT_EQ(0x8000u, mask(v4(), 0x8000));	// empty: not even the lock
	EXPECT_EQ(bh, igmp_fdb_lock.taken_bh);
	add_entry(1, "239.1.1.1"), add_entry(2, "239.1.1.2"), add_entry(3, "239.1.1.1");
	igmp_filter_mode = 6;
	EXPECT_EQ(0x8000u, mask(v4(), 0x8000));
	EXPECT_EQ("-1 -1 -1 ", flows());
	igmp_filter_mode = IGMP_FILTER_MAC_IP;
	bh = igmp_fdb_lock.taken_bh;
	foe_index = 7;
	EXPECT_EQ(0xau, mask(v4()));
	EXPECT_EQ(bh + 1, igmp_fdb_lock.taken_bh);
	EXPECT_EQ("7 -1 7 ", flows());
	hwnat_skb_to_foe_hook = nullptr;
	mask(v4());
	EXPECT_EQ("-1 -1 -1 ", flows());
}

TEST_F(PortMask, KeyTraceAboveLevelTwo)
{
	const std::string k = "[igmp_get_fwd_portmask]";
	Bytes f4 = ipv4_udp_frame("192.168.1.20", "239.1.2.3", 1, 2, { vid100 }),
	      f6 = ipv6_udp_frame("2001:db8::1", "ff0e::1:2", 1, 2);
	u32 vid = 0xffff;

	hwnat_skb_to_foe_hook = fake_foe;
	foe_index = 12;
	quor_mc_debug_level = 2;
	mask(f4), mask(f6), mask(f6, 0, &vid);
	EXPECT_EQ("", log_take());
	quor_mc_debug_level = 3;
	mask(f4);
	EXPECT_EQ(k + "vid = 100\n" + k + "grp_mac = 01:00:5E:01:02:03\n" + k + "src_ip.isipv6 = 0\n" + k +
		  "192.168.1.20\n" + k + "grp_ip.isipv6 = 0\n" + k + "239.1.2.3\n" + k + "flow index = 12\n",
		  log_take());
	// The twin prefixes each byte and each colon of an address.
	mask(f6, 0, &vid);
	std::string log = log_take(), t = "[quor_mcst_get_fwd_mask]";
	std::string bare = std::regex_replace(log, std::regex("\\[quor_mcst_get_fwd_mask\\]"), "");
	EXPECT_EQ((5 + 2 * 23) * t.size(), log.size() - bare.size()) << log;
	EXPECT_EQ("vid = -1\ngrp_mac = 33:33:00:01:00:02\nsrc_ip.isipv6 = 1\n"
		  "2001:0DB8:0000:0000:0000:0000:0000:0001\ngrp_ip.isipv6 = 1\n"
		  "FF0E:0000:0000:0000:0000:0000:0001:0002\nflow index = 12\n", bare);
}

// What each filter mode compares, written out plainly: VID, MAC, group,
// source.  A frame also needs the entry's family where the group counts,
// and in mode 0 a hybrid-HGU port needs no VID.
const struct { bool vid, mac, grp, src; } kRules[] = { { 1, 0, 1, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 1 }, { 1, 1, 0, 0 }, { 0, 1, 1, 0 }, { 1, 1, 1, 0 } };

bool match(const igmp_fdb_entry &e, const igmp_entry_info &k, u32 mode, bool frame = false, int vid = 0)
{
	const auto &r = kRules[mode];
	size_t w = k.grp_ip.isipv6 ? 16 : 4;
	bool hgu = frame && mode == 0 && e.port < 32 && PORT_TYPE[e.port] == JIX_PORT_TYPE_HYBRID_HGU;

	if (frame && r.grp && (e.grp_ip.isipv6 != 0) != (k.grp_ip.isipv6 != 0)) return false;
	return (!r.vid || e.vlan == (frame ? vid : k.vlan) || hgu) && (!r.mac || !memcmp(e.grp_mac, k.grp_mac, 6)) &&
	       (!r.grp || !memcmp(e.grp_ip.addr, k.grp_ip.addr, w)) && (!r.src || !memcmp(e.src_ip.addr, k.src_ip.addr, w));
}

// Random adds, deletes, updates and clears in all six filter modes, over a
// small domain of values so that programmes share ports, VLANs, MACs and
// address prefixes (also across families); after every step the indexed
// lookups and the frame walk must answer as a walk in list order.
class FdbIndex : public PortMask {
protected:
	std::mt19937 rng{ 2 };
	int pick(int n) { return (int)(rng() % (unsigned)n); }

	igmp_entry_info random_req()
	{
		static const char *const groups[] = { "239.1.1.1", "239.1.1.2", "255.14.0.0", "ff0e::1", "ff0e::2",
						      "ff0e:0:0:0:0:0:101:101" };
		static const s16 vlans[] = { -1, 100, 200 };
		igmp_entry_info e = entry((u8)pick(6), groups[pick(6)], vlans[pick(3)],
					  pick(4) ? nullptr : "01:00:5e:01:01:01");
		memcpy(e.src_ip.addr, addr(pick(2) ? "10.0.0.1" : "10.0.0.2").data(), 4);
		e.vlan_mode = (u32)pick(6);
		return e;
	}

	void check_lookups(u32 mode)
	{
		std::vector<igmp_fdb_entry> list = fdb_entries();
		igmp_entry_info k = random_req();
		const igmp_fdb_entry *want = nullptr;	// the oldest match of the key's port
		u64 want_mask = 0, mask = 0;
		s32 want_flow = -7, flow = -7;	// the newest member's
		igmp_fdb_entry *ports[32];

		for (auto &e : list) {
			if (!match(e, k, mode)) continue;
			want = want || e.port != k.port ? want : &e;
			want_mask |= jix_port_bit(e.port);
			want_flow = e.flow_idx;
		}
		spin_lock_bh(&igmp_fdb_lock);
		igmp_fdb_entry *got = igmp_find_entry(&k);
		u64 got_seq = got ? got->seq : 0;
		int ret = igmp_is_programme_exist(&k, &flow, &mask, 0);
		igmp_find_port_entries(&k, 0x3F, ports);
		for (u8 p = 0; p < 6; p++) {
			igmp_entry_info kp = k;
			kp.port = p;
			EXPECT_EQ(igmp_find_entry(&kp), ports[p]) << "port " << (int)p;
		}
		spin_unlock_bh(&igmp_fdb_lock);
		ASSERT_EQ(want != nullptr, got != nullptr) << "mode " << mode;
		EXPECT_EQ(want ? want->seq : 0, got_seq) << "mode " << mode;
		EXPECT_EQ(want_flow != -7, ret) << "mode " << mode;
		EXPECT_EQ(want_mask, mask) << "mode " << mode;
		EXPECT_EQ(want_flow, flow) << "mode " << mode;
	}

	void check_frame(u32 mode)
	{
		igmp_entry_info f = random_req();
		bool v6 = f.grp_ip.isipv6;
		static const int vids[] = { -1, 100, 200 };
		int vid = vids[pick(3)];
		char g[64], s[64] = "2001:db8::1";

		inet_ntop(v6 ? AF_INET6 : AF_INET, f.grp_ip.addr, g, sizeof(g));
		if (v6)
			inet_pton(AF_INET6, s, f.src_ip.addr);
		else inet_ntop(AF_INET, f.src_ip.addr, s, sizeof(s));
		std::vector<Tag> tags;
		if (vid >= 0) tags.push_back({ 0x8100, (uint16_t)vid });
		Bytes fr = v6 ? ipv6_udp_frame(s, g, 1, 5001, tags) : ipv4_udp_frame(s, g, 1, 5001, tags);
		memcpy(&fr[0], f.grp_mac, 6);	// the entry's MAC, whatever the group
		u64 want = 0;
		for (auto &e : fdb_entries()) want |= match(e, f, mode, true, vid) ? jix_port_bit(e.port) : 0;
		EXPECT_EQ(want, mask(fr)) << "mode " << mode << " frame to " << g;
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
		else igmp_clear_entry();
		for (int i = 0; i < 8; i++) check_lookups(mode);
		check_frame(mode);
	}
};

TEST_F(FdbIndex, AgreesWithAListWalkInEveryFilterMode)
{
	hwnat_skb_to_foe_hook = counting_foe;	// frames bind flows, which updates must remove
	PORT_TYPE[3] = JIX_PORT_TYPE_HYBRID_HGU;
	for (u32 mode = 0; mode <= IGMP_FILTER_MAX; mode++) {
		quor_igmp_set_filterMode(mode);
		for (int i = 0; i < 400 && !HasFatalFailure(); i++) step(mode);
	}
	// A filter mode written behind the index's back is followed too.
	WRITE_ONCE(igmp_filter_mode, 1u);
	check_lookups(1);
}

} // namespace
