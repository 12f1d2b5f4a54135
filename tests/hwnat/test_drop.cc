// Drop records: made from frames of every supported kind, refreshed by
// later frames, removed when the group gains a member, aged while the
// engine keeps dropping, cleared.
#include "hwnat_test.h"

using namespace frames;
using jt::entry;

namespace {

const Bytes kDst = mac("01:00:5e:01:01:01"), kSrcMac = mac("00:11:22:33:44:55");

Bytes ppp_frame(u16 proto, const Bytes &ip, const std::vector<Tag> &tags = {})
{
	return eth(kDst, kSrcMac, tags, 0x8864, pppoe(proto, ip));
}

struct FrameCase {
	const char *name;
	Bytes frame;
	u32 proto;
	s16 vid;
	const char *group;
};

TEST_F(Hwnat, DropsMadeFromFramesOfEveryKind)
{
	const Bytes ip4 = ipv4("10.0.0.1", "239.1.1.1", 17, udp(5000, 5001));
	const Bytes ip6 = ipv6("2001:db8::1", "ff05::1:3", 17, udp(5000, 5001));
	const FrameCase cases[] = {
		{ "untagged", v4("239.1.1.1"), 2, -1, "239.1.1.1" },
		{ "8100", v4("239.1.1.1", { { 0x8100, 0x2064 } }), 2, 100, "239.1.1.1" },
		{ "9100", v4("239.1.1.1", { { 0x9100, 0x0005 } }), 2, 5, "239.1.1.1" },
		{ "88a8+8100", v4("239.1.1.1", { { 0x88A8, 0x0BB8 }, { 0x8100, 7 } }), 2,
		  0xBB8, "239.1.1.1" },
		{ "ipv6", v6("ff05::1:3", { { 0x8100, 0x0009 } }), 16, 9, "ff05::1:3" },
		{ "pppoe ipv4", ppp_frame(0x0021, ip4), 2, -1, "239.1.1.1" },
		{ "pppoe ipv6", ppp_frame(0x0057, ip6, { { 0x8100, 0x000A } }), 16, 10,
		  "ff05::1:3" },
	};

	for (const FrameCase &c : cases) {
		SCOPED_TRACE(c.name);
		jix_xpon_hwnat_clear_all_drop();
		EXPECT_EQ(0, drop(c.frame));
		auto d = drops();
		ASSERT_EQ(1u, d.size());
		EXPECT_EQ(c.proto, d[0].proto);
		EXPECT_EQ(c.vid, d[0].vid);
		EXPECT_EQ(7, d[0].index);
		EXPECT_EQ(0u, d[0].mask);
		Bytes g = addr(c.group), s = addr(c.proto == 2 ? "10.0.0.1" : "2001:db8::1");
		g.resize(16, 0);
		s.resize(16, 0);
		EXPECT_EQ(hex(g), hex16(d[0].grp_addr));
		EXPECT_EQ(hex(s), hex16(d[0].src_addr));
		EXPECT_EQ(jiffies + 3000, d[0].timer.expires);
	}
}

TEST_F(Hwnat, FramesTheDriverCannotDropAreLeftToTheCaller)
{
	const Bytes ip4 = ipv4("10.0.0.1", "239.1.1.1", 17, udp(5000, 5001));
	Bytes cut = v6("ff05::1:3");
	cut.resize(14 + 39);

	EXPECT_EQ(-1, drop(eth(kDst, kSrcMac, {}, 0x0806, Bytes(28, 0))));
	EXPECT_EQ(-1, drop(ppp_frame(0xC021, ip4)));	// LCP in the session
	EXPECT_EQ(-1, drop(cut));
	hw::drv.foe = 0;
	EXPECT_EQ(-1, drop(v4("239.1.1.1")));
	hw::drv.foe = -1;
	EXPECT_EQ(-1, drop(v4("239.1.1.1")));
	hwnat_skb_to_foe_hook = nullptr;
	EXPECT_EQ(-1, drop(v4("239.1.1.1")));
	local_bh_disable();
	EXPECT_EQ(-1, multicast_hwnat_drop_entry_hook(nullptr, 0));
	local_bh_enable();
	EXPECT_TRUE(hw::drv.calls.empty());	// not even asked to drop
	EXPECT_TRUE(drops().empty());
}

TEST_F(Hwnat, NoRecordWhenTheDriverDeclinesOrMemoryRunsOut)
{
	bind(v4("239.1.1.1"), 0x1);
	hw::drv.drop_packet = 0;
	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	ux_sw_nat_hook_drop_packet = nullptr;
	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	hw::install();
	EXPECT_EQ(0, drop(v4("239.1.1.1"), true));
	EXPECT_TRUE(drops().empty());
	EXPECT_EQ(1u, flows().size());	// the flow stays when nothing was made
}

TEST_F(Hwnat, FrameDropRemovesTheFlowOfItsIndexQuietly)
{
	bind(v4("239.1.1.1"), 0x1);
	hw::drv.foe = 8;
	bind(v4("239.1.1.2"), 0x1);
	hw::drv.foe = 7;
	EXPECT_EQ(0, drop(v4("239.1.1.1")));
	ASSERT_EQ(1u, flows().size());
	EXPECT_EQ(8, flows()[0].index);
	EXPECT_EQ(std::vector<std::string>{ "drop_packet" }, hw::drv.calls);
	EXPECT_EQ(1, mcst_acnt[0].valid);	// the slot went with its last user
}

TEST_F(Hwnat, LaterFramesRefreshTheRecordButNotItsTimer)
{
	drop(v4("239.1.1.1", { { 0x8100, 100 } }));
	host_jiffies_advance(1000);
	drop(v4("239.1.1.2", { { 0x8100, 200 } }));
	auto d = drops();
	ASSERT_EQ(1u, d.size());
	EXPECT_EQ(200, d[0].vid);
	EXPECT_EQ(0, memcmp(d[0].grp_addr, addr("239.1.1.2").data(), 4));
	EXPECT_EQ(103000ul, d[0].timer.expires);	// from the first frame

	// An IPv6 record takes all 16 bytes of the frame's group buffer; a
	// record of no known family keeps its address.
	jix_xpon_hwnat_clear_all_drop();
	drop(v6("ff05::1:3"));
	drop(v4("239.1.1.2", { { 0x8100, 300 } }));
	d = drops();
	EXPECT_EQ(300, d[0].vid);
	Bytes g = addr("239.1.1.2");
	g.resize(16, 0);
	EXPECT_EQ(hex(g), hex16(d[0].grp_addr));
	spin_lock_bh(&hwnat_drop_lock);
	list_first_entry(&hwnat_drop_list, hwnat_flow_entry, list)->proto = 3;
	spin_unlock_bh(&hwnat_drop_lock);
	drop(v4("239.1.1.3", { { 0x8100, 400 } }));
	d = drops();
	EXPECT_EQ(400, d[0].vid);
	EXPECT_EQ(hex(g), hex16(d[0].grp_addr));
}

TEST_F(Hwnat, FirstMemberOfAGroupRemovesItsFirstDropRecord)
{
	// An IPv6 record whose first four bytes spell 239.1.1.1 comes first.
	drop(v6("ef01:101::5"));
	hw::drv.foe = 8;
	drop(v4("239.1.1.1"));
	hw::drv.calls.clear();

	auto e = entry(1, "239.1.1.1");
	ASSERT_EQ(0, quor_igmp_add_entry(&e));
	EXPECT_EQ(std::vector<std::string>{ "delete(7)" }, hw::drv.calls);
	auto d = drops();
	ASSERT_EQ(1u, d.size());
	EXPECT_EQ(8, d[0].index);

	auto e6 = entry(2, "ef01:101::6");	// IPv6 compares all 16 bytes
	ASSERT_EQ(0, quor_igmp_add_entry(&e6));
	EXPECT_EQ(1u, drops().size());
	auto e2 = entry(3, "239.1.1.1");	// not the first member
	ASSERT_EQ(0, quor_igmp_add_entry(&e2));
	EXPECT_EQ(1u, drops().size());
}

TEST_F(Hwnat, DropLivesOnWhileTheDriverAnswersAboveZero)
{
	drop(v6("ff05::1:3"));
	hw::drv.is_drop = 5;
	host_jiffies_advance(3000);
	ASSERT_EQ(1u, drops().size());
	EXPECT_EQ((std::vector<std::string>{ "drop_packet", "is_drop(7,1)" }), hw::drv.calls);
	hw::drv.is_drop = 0;
	host_jiffies_advance(3000);
	EXPECT_TRUE(drops().empty());
	EXPECT_TRUE(hw::called("delete(7)"));

	drop(v4("239.1.1.1"));
	hwnat_is_drop_entry_hook = nullptr;
	host_jiffies_advance(3000);
	EXPECT_TRUE(drops().empty());
	EXPECT_EQ(0, host_timers_pending());
}

TEST_F(Hwnat, ClearingAndSnoopingOffRemoveEveryDrop)
{
	drop(v4("239.1.1.1"));
	hw::drv.foe = 8;
	drop(v4("239.1.1.2"));
	hw::drv.calls.clear();
	jix_xpon_hwnat_clear_all_drop();
	EXPECT_EQ((std::vector<std::string>{ "delete(7)", "delete(8)" }), hw::drv.calls);
	EXPECT_EQ(0, host_timers_pending());

	drop(v4("239.1.1.2"));
	hw::drv.foe = 9;
	bind(v4("239.1.1.3"), 0x1);
	ASSERT_EQ(0, quor_igmp_set_snooping(0));
	EXPECT_TRUE(drops().empty());
	EXPECT_TRUE(flows().empty());
	EXPECT_EQ(0, host_timers_pending());
}

} // namespace
