// IGMP queries: the ingress port by device name, the receive callback,
// the relay to ports 0..31 through API operation 1, snooping off, and
// group-specific queries to re-mapped member ports.
#include "fixture.h"

using namespace cv;
using namespace jt;

namespace {

struct Seen {
	u8 port;
	Bytes frame;
};
std::vector<Seen> seen;
int answer;

int rx(u8 port, u8 *frame, u32 len)
{
	EXPECT_EQ(0, host_locks_held());
	seen.push_back({ port, Bytes(frame, frame + len) });
	return answer;
}

const Bytes general = frames::igmp_frame(frames::igmp_query("0.0.0.0"), "224.0.0.1");
const Bytes specific = frames::igmp_frame(frames::igmp_query("239.1.1.1"), "239.1.1.1");

size_t count(const std::string &s, const std::string &what)
{
	size_t n = 0;
	for (size_t i = s.find(what); i != std::string::npos; i = s.find(what, i + 1))
		n++;
	return n;
}

class Queries : public CtrlVlan {
protected:
	void SetUp() override
	{
		CtrlVlan::SetUp();
		seen.clear();
		answer = 1;
		quor_mc_rx_cb_t cb = rx;
		api(QUOR_MC_API_SET_RECV_CB, &cb);
	}
	// A query as the data handler passes it on: data at the network header.
	void query(const Bytes &f, u8 kind, net_device *in)
	{
		frames::Skb skb = frames::skb_from(f);
		skb->dev = in;
		quor_mcst_recv_ctrl_pkt(skb.get(), kind);
		EXPECT_EQ(skb->data, skb_mac_header(skb.get()));	// left at Ethernet
	}
	unsigned total_tx()
	{
		unsigned n = 0;
		for (auto &d : dev)
			n += tx(d.first.c_str());
		return n;
	}
	// Every port id 0..31 was asked, and each port with a device sent the
	// query marked with @ingress.
	void expect_relayed(const std::string &log, const Bytes &f, u8 ingress)
	{
		EXPECT_EQ(32u, count(log, "[quor_jix_muliticast_api_hook]Enter, function_id=1\n"));
		for (auto &d : dev) {
			ASSERT_EQ(1u, tx(d.first.c_str())) << d.first;
			EXPECT_EQ(f, sent(d.first.c_str()));
			EXPECT_EQ((u32)ingress << 1, host_netdev_tx_vendor_flags(d.second, 0));
		}
	}
};

TEST_F(Queries, CallbackGetsTheIngressPortAndTheWholeFrame)
{
	answer = 0;	// and relays nothing
	dev["pon"] = netdev("pon");
	dev["nas10"] = netdev("nas10");
	struct {
		const char *dev;
		u8 port;
	} cases[] = { { "eth0.3", 2 }, { "ux0", 16 }, { "pon", 32 }, { "nas10", 33 } };
	for (auto &c : cases) {
		seen.clear();
		query(general, JIX_QUERY_GENERAL, dev[c.dev]);
		ASSERT_EQ(1u, seen.size()) << c.dev;
		EXPECT_EQ(c.port, seen[0].port) << c.dev;
		EXPECT_EQ(general, seen[0].frame) << c.dev;
	}
	query(specific, JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	EXPECT_EQ(0u, total_tx());
}

TEST_F(Queries, UnknownIngressIsAnErrorAndCallsNothing)
{
	net_device *other = netdev("eth9");
	for (net_device *in : { other, (net_device *)nullptr }) {
		query(general, JIX_QUERY_GENERAL, in);
		EXPECT_EQ("[quor_mcst_recv_ctrl_pkt]port id is error\n", log_take());
	}
	quor_mc_debug_level = 0;
	query(general, JIX_QUERY_GENERAL, other);
	EXPECT_EQ("", log_take());
	EXPECT_TRUE(seen.empty());
	EXPECT_EQ(0u, total_tx());
}

TEST_F(Queries, GeneralQueryRelayedToEveryPortWhenTheCallbackAllows)
{
	quor_mc_debug_level = 3;
	query(general, JIX_QUERY_GENERAL, dev["ux0"]);
	EXPECT_EQ(1u, seen.size());
	expect_relayed(log_take(), general, 16);
}

TEST_F(Queries, SnoopingOffRelaysEveryQueryWithoutAsking)
{
	quor_igmp_set_snooping(0);
	quor_mc_debug_level = 3;
	log_take();
	query(specific, JIX_QUERY_SPECIFIC, dev["eth0.2"]);
	EXPECT_TRUE(seen.empty());
	expect_relayed(log_take(), specific, 1);
}

TEST_F(Queries, WithoutCallbackNothingHappens)
{
	quor_mc_rx_cb_t none = nullptr;
	api(QUOR_MC_API_SET_RECV_CB, &none);
	query(general, JIX_QUERY_GENERAL, dev["eth0.1"]);
	EXPECT_EQ("[quor_mcst_recv_ctrl_pkt]quor_mc_ctrl_packet_rx_cb_func is NULL\n",
		  log_take());
	EXPECT_EQ(0u, total_tx());
}

TEST_F(Queries, SpecificQueryGoesToReMappedMemberPorts)
{
	for (u8 p : { 0, 3, 4, 16 }) {
		igmp_entry_info e = entry(p, "239.1.1.1");
		quor_igmp_add_entry(&e);
	}
	quor_mc_debug_level = 3;
	query(specific, JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	std::string log = log_take();
	EXPECT_NE(std::string::npos, log.find("[quor_mcst_send_specific_query]before query : fwd_port_mask = 0x10019\n"));
	EXPECT_NE(std::string::npos, log.find("[quor_mcst_send_specific_query]after query : fwd_port_mask = 0x100109\n"));
	EXPECT_NE(std::string::npos, log.find("[igmp_get_fwd_portmask]239.1.1.1\n")) << log;
	// Ports 0 and 3 stay, 4 becomes 8 (no device), 16 becomes 20 (ux4).
	EXPECT_EQ(1u, tx("eth0.1"));
	EXPECT_EQ(1u, tx("eth0.4"));
	EXPECT_EQ(1u, tx("ux4"));
	EXPECT_EQ(specific, sent("ux4"));
	EXPECT_EQ(3u, total_tx());

	const Bytes other = frames::igmp_frame(frames::igmp_query("239.9.9.9"), "239.9.9.9");
	query(other, JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	query(specific, 3, dev["eth0.1"]);	// no such kind: not relayed
	EXPECT_EQ(3u, total_tx());
	EXPECT_EQ(0u, count(log_take(), "dev name"));
}

std::vector<std::string> engine;
int rec_info(int idx, unsigned mask, int)
{
	engine.push_back(std::to_string(idx) + "/" + std::to_string(mask));
	return 0;
}

// A query has no flow of its own: the data flow's index stays with the
// group's entries, so a leave after the query still reaches the engine.
TEST_F(Queries, QueryLeavesTheDataFlowIndexAlone)
{
	igmp_entry_info a = entry(0, "239.1.1.1"), b = entry(1, "239.1.1.1");
	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	foe_index = 7;
	frames::Skb data = frames::skb_from(
		frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 5000, 5001));
	int ret = -2;
	ASSERT_EQ(1, host_driver_offer(data.get(), &ret));
	ASSERT_EQ(0, ret);
	foe_index = -1;
	query(specific, JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	for (auto &e : fdb_entries())
		EXPECT_EQ(7, e.flow_idx) << (int)e.port;
	engine.clear();
	hwnat_multicast_set_hwnat_info_hook = rec_info;
	quor_igmp_del_entry(&b);
	EXPECT_EQ(std::vector<std::string>{ "7/1" }, engine);
}

} // namespace
