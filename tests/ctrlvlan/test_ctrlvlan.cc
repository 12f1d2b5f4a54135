// Switch tags through API operations 2 and 3, the 1:N decision, the
// hardware calls of entry add and delete, operation 3 consuming its frame,
// and IGMP queries: the ingress port, the receive callback, the relay to
// ports 0..31 and group-specific queries to re-mapped member ports.  The
// whole module runs with devices for ports 0..3 (eth0.1..eth0.4, up), 16
// (ux0) and 20 (ux4), and the driver of tests/hwnat.
#include "hwnat/hwnat_test.h"

#include <map>

extern "C" {
#include "datapath/ctrl.h"
#include "vlan/vlan.h"
}

namespace {

using jt::api;

// A frame as the driver hands it to operations 2 and 3: data at the
// Ethernet header.
sk_buff *eth_skb(const Bytes &b, unsigned headroom = 32)
{
	sk_buff *skb = alloc_skb(headroom + b.size(), GFP_ATOMIC);

	skb_reserve(skb, headroom);
	memcpy(skb_put(skb, b.size()), b.data(), b.size());
	return skb;
}

std::string data_of(const sk_buff *skb) { return hex(Bytes(skb->data, skb_tail_pointer(skb))); }

int api_skb(u32 id, sk_buff *skb)
{
	quor_peer_mc mc{};
	mc.api_function_id = id;
	mc.skb = skb;
	EXPECT_EQ(1, __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc));
	return mc.result;
}

// An entry of 239.1.1.1, VLAN 100, on @port with a VLAN treatment.
igmp_entry_info member(u8 port, u32 mode = 0, u16 otci = 0, u16 itci = 0, u16 otpid = 0x8100)
{
	igmp_entry_info e = entry(port, "239.1.1.1", 100);
	e.vlan_mode = mode;
	e.outer_tpid = otpid;
	e.outer_tci = otci;
	e.inner_tpid = 0x8100;
	e.inner_tci = itci;
	return e;
}

Bytes data(const std::vector<Tag> &tags = {}) { return v4("239.1.1.1", tags); }

// @f with bytes @at.. replaced by @b (or inserted when @insert).
Bytes edit(Bytes f, size_t at, Bytes b, bool insert = false)
{
	if (insert)
		f.insert(f.begin() + at, b.begin(), b.end());
	else
		std::copy(b.begin(), b.end(), f.begin() + at);
	return f;
}

class CtrlVlan : public Hwnat {
protected:
	std::map<std::string, net_device *> dev;

	void SetUp() override
	{
		Hwnat::SetUp();
		up({ "eth0.1", "eth0.2", "eth0.3", "eth0.4", "ux0", "ux4" });
		for (net_device *d : devs)
			dev[d->name] = d;
		drv.foe = -1;
	}
	unsigned tx(const char *name) { return host_netdev_tx_count(dev[name]); }
	unsigned total_tx()
	{
		unsigned n = 0;
		for (auto &d : dev)
			n += tx(d.first.c_str());
		return n;
	}
	static void add(igmp_entry_info e) { ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e).result); }
	static void del(igmp_entry_info e) { ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_DEL, &e).result); }
	static int one_to_n(const Bytes &f, std::string *after = nullptr)
	{
		Skb skb(eth_skb(f));
		int r = api_skb(QUOR_MC_API_VLAN_IS_ONE_TO_N, skb.get());
		if (after)
			*after = data_of(skb.get());
		return r;
	}
};

// Operation 2 decides on the real type field and gives the frame back as
// it came (type 0 without the switch tag's second half); operation 3 sends
// copies with the real type, treated for their port (here VID 300).  Neither changes the data of a clone's other
// owner.
TEST_F(CtrlVlan, SwitchTagsInOperationsTwoAndThree)
{
	const struct { const char *name; Bytes in, back, real; } cases[] = {
		{ "type 0", edit(data(), 12, { 0x00, 0x05, 0xab, 0xcd }, true),
		  edit(data(), 12, { 0x00, 0x05, 0, 0 }, true), data() },
		{ "type 1", edit(data({ { 0x8100, 100 } }), 12, { 0x01, 0x00 }), {}, data({ { 0x8100, 300 } }) },
		{ "type 2", edit(data({ { 0x88a8, 100 } }), 12, { 0x02, 0x00 }), {}, data({ { 0x88a8, 300 } }) },
		{ "type 3", edit(data(), 12, { 0x03, 0x00 }), {}, {} },	// not data: sent as it is
	};
	quor_igmp_set_filterMode(IGMP_FILTER_MAC);	// type 3 has no readable IP
	add(member(0, 1, 300));
	add(member(1, 1, 200));
	for (const auto &c : cases) {
		std::string after;
		EXPECT_EQ(c.real.empty() ? -1 : 2, one_to_n(c.in, &after)) << c.name;
		EXPECT_EQ(hex(c.back.empty() ? c.in : c.back), after) << c.name;
		host_netdev_tx_clear(dev["eth0.1"]);
		host_netdev_tx_clear(dev["eth0.2"]);
		EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, eth_skb(c.in)));
		EXPECT_EQ(1u, tx("eth0.2")) << c.name;
		EXPECT_EQ(hex(c.real.empty() ? c.in : c.real), hex(jt::sent(dev["eth0.1"]))) << c.name;
		for (u32 op : { QUOR_MC_API_VLAN_IS_ONE_TO_N, QUOR_MC_API_VLAN_HANDLE }) {
			Skb other(eth_skb(c.in));
			sk_buff *mine = skb_clone(other.get(), GFP_ATOMIC);
			api_skb(op, mine);
			if (op == QUOR_MC_API_VLAN_IS_ONE_TO_N)
				kfree_skb(mine);	// given back
			EXPECT_EQ(hex(c.in), data_of(other.get())) << op << c.name;
		}
	}
	// A frame just long enough to hold a switch tag (addresses, 4 bytes).
	Bytes shortest = edit(data(), 12, { 0x00, 0x05, 0xab, 0xcd });
	std::string after;
	shortest.resize(16);
	EXPECT_EQ(-1, one_to_n(shortest, &after));
	EXPECT_EQ(hex(edit(shortest, 14, { 0, 0 })), after);
	// Type 0 goes back only with 4 bytes of headroom.
	Skb tight(eth_skb(data(), 3));
	quor_recover_stag(tight.get(), 0, 0x0005);
	EXPECT_EQ(hex(data()), data_of(tight.get()));
}

TEST_F(CtrlVlan, OneToNDecision)
{
	const struct { const char *what; std::vector<igmp_entry_info> members; int result; } cases[] = {
		{ "LAN, only TPIDs differ", { member(0, 1, 100, 5, 0x8100), member(1, 1, 100, 5, 0x88a8) }, -1 },
		{ "LAN, outer TCI differs", { member(0, 1, 100), member(1, 1, 200) }, 2 },
		{ "LAN, inner TCI differs", { member(0, 4, 100, 5), member(1, 4, 100, 6) }, 2 },
		{ "LAN, mode differs", { member(0, 1, 100), member(1, 2, 100) }, 2 },
	};
	for (const auto &c : cases) {
		api(QUOR_MC_API_CLEAR_ALL, nullptr);
		for (const auto &m : c.members)
			add(m);
		EXPECT_EQ(c.result, one_to_n(data())) << c.what;
	}
	// Snooping off floods to the Wi-Fi ports with a device: 1:N, and the
	// flow gets its learned tags back.
	quor_igmp_set_snooping(0);
	drv.foe = 9;
	bind(data({ { 0x88a8, 0x64 }, { 0x8100, 0xc8 } }), 0x1);
	EXPECT_EQ(2, one_to_n(data()));
	EXPECT_EQ("vlan(9,0x88a80064,0x810000c8) ", calls_of({ "vlan(", "dp(" }));
}

// A flow is in hardware with the first member's treatment while all
// members want the same one; otherwise (1:N) it gets its learned tags back
// and goes to software.
TEST_F(CtrlVlan, EntryAddAndDeleteMoveTheFlowBetweenHardwareAndSoftware)
{
	const char *hw = "vlan(7,0x8100012c,0x0) dp(7,1) ", *sw = "vlan(7,0x81000064,0x0) dp(7,0) ";
	const struct { bool add; igmp_entry_info m; std::string calls; } steps[] = {
		{ true, member(1, 1, 300), hw }, { true, member(2, 1, 400), sw },
		{ false, member(2), hw }, { true, member(16, 1, 300), sw },
		{ false, member(16), hw }, { false, member(1), hw },	// one member left: not 1:N
	};
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP_VID);	// the entries' VID is a key
	add(member(0, 1, 300));
	// A frame of the group passes the data path, so that the entries learn
	// flow 7, which the hardware learned with VID 100.
	drv.foe = 7;
	u64 m = 0;
	igmp_get_fwd_portmask(skb_from(data({ { 0x8100, 100 } })).get(), &m);
	// marked with the counter of the group's entries
	EXPECT_EQ((u32)jt::fdb_entries()[0].acnt.acnt_id << 17, bind(data({ { 0x8100, 100 } }), m));
	for (const auto &s : steps) {
		drv.calls.clear();
		s.add ? add(s.m) : del(s.m);
		EXPECT_EQ(s.calls, calls_of({ "vlan(", "dp(" })) << s.add << (int)s.m.port;
	}
	ux_sw_nat_hook_update_vlan = nullptr;
	ux_sw_nat_hook_update_dp = nullptr;
	drv.calls.clear();
	add(member(2, 1, 300));
	del(member(2));
	EXPECT_EQ("", calls_of({ "vlan(", "dp(" }));
}

TEST_F(CtrlVlan, OperationThreeConsumesItsFrameAndSendsToPortsUp)
{
	// A shared frame that cannot get data of its own goes, nothing sent.
	long live = host_alloc_live();
	Skb other(eth_skb(data()));
	sk_buff *mine = skb_clone(other.get(), GFP_ATOMIC);
	host_alloc_fail_all(1);
	EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, mine));
	host_alloc_fail_all(0);
	other.reset();
	EXPECT_EQ(live, host_alloc_live());
	dev["eth0.2"]->flags &= ~IFF_UP;
	auto run = [&](const char *what, bool fail_copies, unsigned sent) {
		long live = host_alloc_live();
		unsigned before = total_tx();
		sk_buff *skb = eth_skb(data());
		host_alloc_fail_all(fail_copies);
		EXPECT_EQ(2, api_skb(QUOR_MC_API_VLAN_HANDLE, skb)) << what;
		host_alloc_fail_all(0);
		EXPECT_EQ(live, host_alloc_live()) << what;
		EXPECT_EQ(sent, total_tx() - before) << what;
	};
	quor_mc_debug_level = 3;
	run("no member", false, 0);
	EXPECT_NE(std::string::npos, log_take().find("[quor_mcst_vlan_handle]dev = NULL\n"));
	add(member(1));		// device down
	add(member(5));		// no device
	add(member(0));
	run("copies cannot be made", true, 0);
	add(member(16));
	run("to 0 and 16", false, 2);
	EXPECT_EQ(1u, tx("ux0"));
	quor_igmp_set_snooping(0);	// every port with a device up
	run("snooping off", false, 5);
	EXPECT_EQ(0x011u, tx("eth0.2") << 8 | tx("eth0.3") << 4 | tx("ux4"));
}

// ---- IGMP queries ----

std::vector<std::pair<u8, Bytes>> seen;	// the callback's port and frame
const Bytes general = igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1");
const Bytes specific = igmp_frame(igmp_query("239.1.1.1"), "239.1.1.1");

class Queries : public CtrlVlan {
protected:
	void SetUp() override
	{
		CtrlVlan::SetUp();
		seen.clear();
		quor_mc_rx_cb_t cb = [](u8 port, u8 *frame, u32 len) {
			EXPECT_EQ(0, host_locks_held());
			seen.push_back({ port, Bytes(frame, frame + len) });
			return 1;
		};
		api(QUOR_MC_API_SET_RECV_CB, &cb);
	}
	// A query as the data handler passes it on: data at the network header.
	static void query(const Bytes &f, u8 kind, net_device *in)
	{
		Skb skb = skb_from(f);
		skb->dev = in;
		quor_mcst_recv_ctrl_pkt(skb.get(), kind);
		EXPECT_EQ(skb->data, skb_mac_header(skb.get()));	// left at Ethernet
	}
};

// A general query the callback allows, and every query while snooping is
// off (without asking), goes to every port id 0..31, each port with a
// device sending it marked with the ingress port.
TEST_F(Queries, QueriesRelayedToEveryPort)
{
	const struct { bool snooping; const Bytes &frame; u8 kind; const char *in; u8 ingress; } cases[] = {
		{ true, general, JIX_QUERY_GENERAL, "ux0", 16 },
		{ false, specific, JIX_QUERY_SPECIFIC, "eth0.2", 1 } };
	quor_mc_debug_level = 3;
	for (const auto &c : cases) {
		quor_igmp_set_snooping(c.snooping);
		for (auto &d : dev)
			host_netdev_tx_clear(d.second);
		seen.clear();
		query(c.frame, c.kind, dev[c.in]);
		EXPECT_EQ(c.snooping ? 1u : 0u, seen.size()) << c.in;
		for (auto &d : dev) {
			ASSERT_EQ(1u, tx(d.first.c_str())) << d.first;
			EXPECT_EQ(c.frame, jt::sent(d.second));
			EXPECT_EQ((u32)c.ingress << 1, host_netdev_tx_vendor_flags(d.second, 0));
		}
	}
	quor_mc_rx_cb_t none = nullptr;
	api(QUOR_MC_API_SET_RECV_CB, &none);
	quor_igmp_set_snooping(1);
	query(general, JIX_QUERY_GENERAL, dev["eth0.1"]);
	EXPECT_NE(std::string::npos, log_take().find("[quor_mcst_recv_ctrl_pkt]quor_mc_ctrl_packet_rx_cb_func is NULL\n"));
	EXPECT_EQ(dev.size(), total_tx());
	query(general, JIX_QUERY_GENERAL, nullptr);	// from no port
	EXPECT_EQ("[quor_mcst_recv_ctrl_pkt]port id is error\n", log_take());
	EXPECT_EQ(dev.size(), total_tx());
}

// A specific query goes to the members, ports re-mapped; it has no flow
// of its own: the data flow's index stays with the group's entries, so a
// leave after the query still reaches the engine.
TEST_F(Queries, SpecificQueryGoesToReMappedMemberPortsAndKeepsTheFlowIndex)
{
	for (u8 p : { 0, 3, 4, 16 })
		add(entry(p, "239.1.1.1"));
	drv.foe = 7;
	Skb frame = skb_from(data());
	int ret = -2;
	ASSERT_EQ(1, host_driver_offer(frame.get(), &ret));
	ASSERT_EQ(0, ret);
	drv.foe = -1;
	for (auto &d : dev)
		host_netdev_tx_clear(d.second);
	query(specific, JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	// Ports 0 and 3 stay, 4 becomes 8 (no device), 16 becomes 20 (ux4).
	EXPECT_EQ(3u, tx("eth0.1") + tx("eth0.4") + tx("ux4"));
	EXPECT_EQ(specific, jt::sent(dev["ux4"]));
	EXPECT_EQ(3u, total_tx());
	query(igmp_frame(igmp_query("239.9.9.9"), "239.9.9.9"), JIX_QUERY_SPECIFIC, dev["eth0.1"]);
	query(specific, 3, dev["eth0.1"]);	// no such kind: not relayed
	EXPECT_EQ(3u, total_tx());

	for (const auto &e : jt::fdb_entries())
		EXPECT_EQ(7, e.flow_idx) << (int)e.port;
	drv.calls.clear();
	del(entry(16, "239.1.1.1"));
	EXPECT_EQ("set_info(7,0x19,0) ", calls_of({ "set_info(" }));
}

} // namespace
