// Member ports of a frame under each filter mode, the flow index learned
// by matching entries, and the debug trace of the frame key.
#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
}

using namespace jt;
using namespace frames;

namespace {

const Tag vid100{ 0x8100, 0x2064 };	// priority 1, VLAN 100
const char *kSrc = "10.0.0.1";

int foe_index;
int foe_calls_under_lock;
sk_buff *foe_seen;

int fake_foe(sk_buff *skb)
{
	foe_seen = skb;
	foe_calls_under_lock += host_lock_held_by_me(&igmp_fdb_lock);
	return foe_index;
}

class PortMask : public ModuleTest {
protected:
	void TearDown() override
	{
		hwnat_skb_to_foe_hook = nullptr;
		EXPECT_EQ(0, foe_calls_under_lock);
		ModuleTest::TearDown();
	}

	void mode(u32 m) { quor_igmp_set_filterMode(m); }

	void add(igmp_entry_info e, const char *src = kSrc)
	{
		Bytes a = addr(src);
		memcpy(e.src_ip.addr, a.data(), a.size());
		e.src_ip.isipv6 = a.size() == 16;
		ASSERT_EQ(0, quor_igmp_add_entry(&e));
	}

	static u64 mask(const Bytes &frame, u64 start = 0)
	{
		Skb skb = skb_from(frame);
		igmp_get_fwd_portmask(skb.get(), &start);
		return start;
	}

	static u64 mask_vid(const Bytes &frame, u32 vid)
	{
		Skb skb = skb_from(frame);
		u64 m = 0;
		quor_mcst_get_fwd_mask(skb.get(), vid, &m);
		return m;
	}

	static std::vector<s32> flows()
	{
		std::vector<s32> v;
		for (auto &e : fdb_entries())
			v.push_back(e.flow_idx);
		return v;
	}
};

TEST_F(PortMask, IpVidModeExemptsHybridHguPortsFromTheVid)
{
	mode(IGMP_FILTER_IP_VID);
	add(entry(2, "239.1.1.1", 100));
	add(entry(3, "239.1.1.1", 200));
	Bytes f = ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, { vid100 });
	EXPECT_EQ(0x4u, mask(f));
	PORT_TYPE[3] = JIX_PORT_TYPE_HYBRID_HGU;
	EXPECT_EQ(0xCu, mask(f));
	PORT_TYPE[3] = JIX_PORT_TYPE_HYBRID_SFU;
	EXPECT_EQ(0x4u, mask(f));

	// Only mode 0 knows the exemption.
	PORT_TYPE[3] = JIX_PORT_TYPE_HYBRID_HGU;
	mode(IGMP_FILTER_MAC_IP_VID);
	add(entry(2, "239.1.1.1", 100));
	add(entry(3, "239.1.1.1", 200));
	EXPECT_EQ(0x4u, mask(f));
}

TEST_F(PortMask, FamiliesNeverMeet)
{
	Bytes f6 = ipv6_udp_frame("2001:db8::1", "ff0e::1", 1, 2);
	for (u32 m : { IGMP_FILTER_IP_VID, IGMP_FILTER_IP_SRC_IP, IGMP_FILTER_MAC_IP,
		       IGMP_FILTER_MAC_IP_VID }) {
		mode(m);
		add(entry(1, "255.14.0.0", -1, "33:33:00:00:00:01"), "32.1.13.184");
		add(entry(2, "ff0e::1"), "2001:db8::1");
		EXPECT_EQ(0x4u, mask(f6)) << m;
		quor_igmp_clear_all_entry();
	}
	// IPv4 compares four bytes: the other twelve of the entry do not count.
	add(entry(1, "239.1.1.1"));
	spin_lock_bh(&igmp_fdb_lock);
	list_first_entry(igmp_get_fdb_list(), igmp_fdb_entry, list)->grp_ip.addr[9] = 7;
	spin_unlock_bh(&igmp_fdb_lock);
	EXPECT_EQ(0x2u, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2)));
}

TEST_F(PortMask, OnlyAnOuter8100Or88a8TagGivesAVid)
{
	mode(IGMP_FILTER_MAC_VID);
	add(entry(0, "239.1.1.1", -1));
	add(entry(1, "239.1.1.1", 100));
	add(entry(2, "239.1.1.1", 0x123));
	EXPECT_EQ(0x1u, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2)));
	EXPECT_EQ(0x1u, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, { { 0x9100, 100 } })));
	EXPECT_EQ(0x2u, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, { vid100 })));
	EXPECT_EQ(0x4u, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2,
					   { { 0x88a8, 0xf123 }, vid100 })));

	// The twin takes the caller's VID, low 16 bits signed, not the tag.
	Bytes f = ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, { vid100 });
	EXPECT_EQ(0x4u, mask_vid(f, 0x123));
	EXPECT_EQ(0x2u, mask_vid(f, 0x10064));
	EXPECT_EQ(0x1u, mask_vid(f, 0xffff));
	EXPECT_EQ(0x1u, mask_vid(f, 0xffffffff));
	EXPECT_EQ(0x0u, mask_vid(f, 0x7fff));
}

TEST_F(PortMask, BitsAreOredIntoTheCallersMaskAsPortBits)
{
	mode(IGMP_FILTER_MAC);
	add(entry(31, "239.1.1.1"));
	add(entry(33, "239.1.1.1"));
	EXPECT_EQ(0xffffffff80000002ull | 0x100, mask(ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2), 0x100));
}

TEST_F(PortMask, EveryMatchLearnsTheFlowIndex)
{
	mode(IGMP_FILTER_MAC_IP);
	add(entry(1, "239.1.1.1"));
	add(entry(2, "239.1.1.2"));
	add(entry(3, "239.1.1.1"));
	Bytes f = ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2);

	hwnat_skb_to_foe_hook = fake_foe;
	foe_index = 7;
	Skb skb = skb_from(f);
	u64 m = 0;
	igmp_get_fwd_portmask(skb.get(), &m);
	EXPECT_EQ(skb.get(), foe_seen);
	EXPECT_EQ((std::vector<s32>{ 7, -1, 7 }), flows());

	foe_index = -5;
	mask_vid(f, 0);
	EXPECT_EQ((std::vector<s32>{ -5, -1, -5 }), flows());

	foe_index = 9;
	mask(f);
	hwnat_skb_to_foe_hook = nullptr;
	mask(f);
	EXPECT_EQ((std::vector<s32>{ -1, -1, -1 }), flows());
}

TEST_F(PortMask, UnknownModeOrEmptyTableTouchesNothing)
{
	Bytes f = ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2);
	hwnat_skb_to_foe_hook = fake_foe;
	foe_index = 3;
	unsigned long bh = igmp_fdb_lock.taken_bh, plain = igmp_fdb_lock.taken_plain;
	EXPECT_EQ(0x8000u, mask(f, 0x8000));	// empty: not even the lock
	EXPECT_EQ(bh, igmp_fdb_lock.taken_bh);

	add(entry(1, "239.1.1.1"));
	igmp_filter_mode = 6;
	EXPECT_EQ(0x8000u, mask(f, 0x8000));
	EXPECT_EQ((std::vector<s32>{ -1 }), flows());
	igmp_filter_mode = IGMP_FILTER_MAC_IP;

	// Otherwise the walk takes the lock once, bottom halves disabled.
	bh = igmp_fdb_lock.taken_bh;
	EXPECT_EQ(0x2u, mask(f));
	EXPECT_EQ(bh + 1, igmp_fdb_lock.taken_bh);
	EXPECT_EQ(plain, igmp_fdb_lock.taken_plain);
}

TEST_F(PortMask, PrefixesOfAFrameAreReadWithinBounds)
{
	mode(IGMP_FILTER_MAC);
	add(entry(4, "239.1.1.1", 100));
	Bytes f = ipv4_udp_frame(kSrc, "239.1.1.1", 1, 2, { vid100 });
	for (size_t n = 0; n <= f.size(); n++) {
		Bytes p(f.begin(), f.begin() + n);
		EXPECT_EQ(n >= 6 ? 0x10u : 0u, mask(p)) << n;
		EXPECT_EQ(n >= 6 ? 0x10u : 0u, mask_vid(p, 100)) << n;
	}
}

TEST_F(PortMask, KeyTraceAboveLevelTwo)
{
	mode(IGMP_FILTER_MAC);
	hwnat_skb_to_foe_hook = fake_foe;
	foe_index = 12;
	Bytes v4 = ipv4_udp_frame("192.168.1.20", "239.1.2.3", 1, 2, { vid100 });
	Bytes v6 = ipv6_udp_frame("2001:db8::1", "ff0e::1:2", 1, 2);

	quor_mc_debug_level = 2;
	mask(v4);
	mask(v6);
	mask_vid(v6, 5);
	EXPECT_EQ("", log_take());

	quor_mc_debug_level = 3;
	mask(v4);
	EXPECT_EQ("[igmp_get_fwd_portmask]vid = 100\n"
		  "[igmp_get_fwd_portmask]grp_mac = 01:00:5E:01:02:03\n"
		  "[igmp_get_fwd_portmask]src_ip.isipv6 = 0\n"
		  "[igmp_get_fwd_portmask]192.168.1.20\n"
		  "[igmp_get_fwd_portmask]grp_ip.isipv6 = 0\n"
		  "[igmp_get_fwd_portmask]239.1.2.3\n"
		  "[igmp_get_fwd_portmask]flow index = 12\n",
		  log_take());

	hwnat_skb_to_foe_hook = nullptr;
	mask(v6);
	EXPECT_EQ("[igmp_get_fwd_portmask]vid = -1\n"
		  "[igmp_get_fwd_portmask]grp_mac = 33:33:00:01:00:02\n"
		  "[igmp_get_fwd_portmask]src_ip.isipv6 = 1\n"
		  "[igmp_get_fwd_portmask]2001:0DB8:0000:0000:0000:0000:0000:0001\n"
		  "[igmp_get_fwd_portmask]grp_ip.isipv6 = 1\n"
		  "[igmp_get_fwd_portmask]FF0E:0000:0000:0000:0000:0000:0001:0002\n"
		  "[igmp_get_fwd_portmask]flow index = -1\n",
		  log_take());

	// The twin prefixes each byte and each colon of an address.
	mask_vid(v6, 0xffff);
	std::string log = log_take(), t = "[quor_mcst_get_fwd_mask]", bare;
	size_t n = 0;
	for (size_t i = 0; i < log.size();)
		if (!log.compare(i, t.size(), t))
			i += t.size(), n++;
		else
			bare += log[i++];
	EXPECT_EQ(5u + 2 * 23, n) << log;
	EXPECT_EQ("vid = -1\ngrp_mac = 33:33:00:01:00:02\nsrc_ip.isipv6 = 1\n"
		  "2001:0DB8:0000:0000:0000:0000:0000:0001\ngrp_ip.isipv6 = 1\n"
		  "FF0E:0000:0000:0000:0000:0000:0001:0002\nflow index = -1\n", bare);
}

} // namespace
