// mcctl's argument parsing and output formatting.
#include <gtest/gtest.h>

#include "mcctl.h"

using namespace mcctl;

namespace {

bool p(std::vector<std::string> a, Command &c, std::string &err)
{
	c = Command{};
	err.clear();
	return parse(a, c, err);
}

// Each bad input is refused with a message that names the bad word.
TEST(McctlParse, BadInputNamesTheWord)
{
	Command c;
	std::string err;
	std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
		{ {}, "no command" },
		{ { "frob" }, "'frob'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01" }, "expected <group>" },
		{ { "add", "239.1.1.300", "01:00:5e:01:01:01", "1" }, "'239.1.1.300'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01", "1" }, "'01:00:5e:01:01'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01:02", "1" }, "MAC" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:1ff", "1" }, "'01:00:5e:01:01:1ff'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "34" }, "'34': expected a port name" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "4096" }, "'4096'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "6" }, "'6'" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "1", "8100" }, "expected" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "1", "10000", "1" }, "'10000'" },
		{ { "add", "239.1.1.1", "port", "eth0.9" }, "'eth0.9': expected a port name" },
		{ { "add", "239.1.1.1", "port", "ux8" }, "'ux8'" },
		{ { "add", "239.1.1.1", "port", "eth0.1", "mode", "swap" }, "'swap': expected transparent" },
		{ { "add", "239.1.1.1", "port", "1", "mode", "add", "outer", "8100" },
		  "'8100': expected TPID:VID" },
		{ { "add", "239.1.1.1", "port", "1", "outer", "8100:4096" }, "'8100:4096'" },
		{ { "add", "239.1.1.1", "port", "1", "outer", "8100:300:p8" }, "'8100:300:p8'" },
		{ { "add", "239.1.1.1", "port", "1", "inner", "8100:0x12c:p1" }, "inner tag" },
		{ { "add", "239.1.1.1", "port", "1", "vlan" }, "'vlan' needs a value" },
		{ { "add", "239.1.1.1", "port", "1", "mode", "replace" }, "mode replace needs 'outer'" },
		{ { "add", "239.1.1.1", "port", "1", "colour", "red" }, "'colour': expected one of grp" },
		{ { "add", "239.1.1.1", "vlan", "100" }, "no port" },
		{ { "add", "port", "1" }, "no group" },
		{ { "show", "--port" }, "--port needs" },
		{ { "show", "--port", "x" }, "'x'" },
		{ { "clear", "--json" }, "'--json'" },
		{ { "flows", "--port", "1" }, "'--port': expected --json" },
		{ { "filter-mode", "6" }, "'6'" },
		{ { "filter-mode", "1", "2" }, "'2'" },
		{ { "snooping", "maybe" }, "'maybe': expected on or off" },
		{ { "debug", "-1" }, "'-1'" },
		{ { "--dev" }, "--dev" },
	};
	for (auto &b : bad) {
		EXPECT_FALSE(p(b.first, c, err)) << b.second;
		EXPECT_NE(std::string::npos, err.find(b.second)) << err;
	}
}

// Keyword and positional forms: port, mode, tags, family, given or derived MAC.
TEST(McctlParse, ByName)
{
	struct {
		std::vector<std::string> args;
		unsigned port, mode;
		int vlan;
		uint16_t otpid, otci, itpid, itci;
		uint8_t mac5, v6;
	} cases[] = {
		{ { "239.1.2.3", "01:00:5e:01:02:03", "2", "100", "4", "8100", "64", "88a8", "5" },
		  2, 4, 100, 0x8100, 0x64, 0x88a8, 5, 3, 0 },
		{ { "ff0e::1", "33:33:00:00:00:01", "16" }, 16, 0, -1, 0, 0, 0, 0, 1, 1 },
		{ { "239.1.1.1", "port", "eth0.3", "vlan", "100", "mode", "add", "outer", "8100:300" },
		  2, 4, 100, 0x8100, 300, 0x8100, 0x0fff, 1, 0 },
		{ { "grp", "239.129.2.3", "port", "uxi7", "vid", "7", "mode", "replace-remark",
		    "outer", "88a8:300:p5", "inner", "8100:0xffff" },
		  31, 2, 7, 0x88a8, 0xa12c, 0x8100, 0xffff, 3, 0 },
		{ { "ff0e::1:abcd", "port", "pon", "mode", "strip" }, 32, 3, -1, 0, 0, 0, 0, 0xcd, 1 },
		{ { "239.1.1.1", "mac", "01:00:5e:00:00:09", "port", "nas10", "vlan", "untagged" },
		  33, 0, -1, 0, 0, 0, 0, 9, 0 },
		{ { "239.1.1.1", "01:00:5e:01:01:07", "ux3", "100", "add-remark", "8100", "12c" },
		  19, 5, 100, 0x8100, 0x12c, 0, 0, 7, 0 },
	};
	Command c;
	std::string err;
	for (auto &k : cases) {
		std::vector<std::string> a = { "add" };
		a.insert(a.end(), k.args.begin(), k.args.end());
		ASSERT_TRUE(p(a, c, err)) << err;
		const igmp_entry_info &e = c.entry;
		EXPECT_EQ(k.port, e.port) << k.args[2];
		EXPECT_EQ(k.mode, e.vlan_mode) << k.args[2];
		EXPECT_EQ(k.vlan, e.vlan) << k.args[2];
		EXPECT_EQ(k.otpid, e.outer_tpid);
		EXPECT_EQ(k.otci, e.outer_tci);
		EXPECT_EQ(k.itpid, e.inner_tpid);
		EXPECT_EQ(k.itci, e.inner_tci);
		EXPECT_EQ(k.mac5, e.grp_mac[5]);
		EXPECT_EQ(k.v6, e.grp_ip.isipv6);
		EXPECT_EQ(k.v6 ? 0xff : 239, e.grp_ip.addr[0]);
	}
	ASSERT_TRUE(p({ "add", "239.129.2.3", "port", "1" }, c, err));
	EXPECT_EQ("01:00:5e:01:02:03", format_mac(c.entry.grp_mac));
	ASSERT_TRUE(p({ "show", "--port", "ux0" }, c, err));
	EXPECT_EQ(16u, *c.port);
	ASSERT_TRUE(p({ "--version" }, c, err));
	EXPECT_EQ(Op::Version, c.op);
}

TEST(McctlParse, QueriesAndSwitches)
{
	Command c;
	std::string err;

	ASSERT_TRUE(p({ "del", "ff0e::1", "33:33:00:00:00:01", "16" }, c, err)) << err;
	EXPECT_EQ(Op::Del, c.op);
	EXPECT_EQ("/dev/quor_igmp", c.dev);
	ASSERT_TRUE(p({ "--dev", "/tmp/x", "show", "--port", "3", "--json" }, c, err));
	EXPECT_EQ("/tmp/x", c.dev);
	EXPECT_EQ(Op::Show, c.op);
	EXPECT_EQ(3u, *c.port);
	EXPECT_TRUE(c.json);
	ASSERT_TRUE(p({ "filter-mode" }, c, err));
	EXPECT_FALSE(c.value.has_value());
	ASSERT_TRUE(p({ "snooping", "off" }, c, err));
	EXPECT_EQ(0u, *c.value);
	ASSERT_TRUE(p({ "debug", "3" }, c, err));
	EXPECT_EQ(3u, *c.value);
	ASSERT_TRUE(p({ "add", "--help" }, c, err));
	EXPECT_EQ(Op::Help, c.op);
}

TEST(McctlDel, ProcLineNamesTheEntry)
{
	Command c;
	std::string err;

	ASSERT_TRUE(p({ "del", "239.1.2.3", "01:00:5e:01:02:03", "2", "100", "4", "8100", "64" },
		      c, err));
	EXPECT_EQ("del ipv4 239.1.2.3 01:00:5e:01:02:03 2 100 4 8100 64 0 0\n",
		  proc_del_line(c.entry));
	ASSERT_TRUE(p({ "del", "ff0e::1:abcd", "33:33:00:01:ab:cd", "16" }, c, err));
	EXPECT_EQ("del ipv6 ff0e:0:0:0:0:0:1:abcd 33:33:00:01:ab:cd 16 -1 0 0 0 0 0\n",
		  proc_del_line(c.entry));
}

TEST(McctlHelp, DocumentsEveryCommand)
{
	std::string u = usage();
	for (const char *w : { "add", "del", "update", "show", "--port", "--json", "clear",
			       "flows", "ports", "groups", "filter-mode", "snooping", "debug",
			       "--dev", "--help", "version", "exit status" })
		EXPECT_NE(std::string::npos, u.find(w)) << w;
}

igmp_entry_info rec(const char *grp_v4, uint32_t pkts, uint64_t bytes)
{
	igmp_entry_info e{};
	unsigned a, b, c2, d;
	sscanf(grp_v4, "%u.%u.%u.%u", &a, &b, &c2, &d);
	e.grp_ip.addr[0] = a;
	e.grp_ip.addr[1] = b;
	e.grp_ip.addr[2] = c2;
	e.grp_ip.addr[3] = d;
	e.vlan = -1;
	e.pkt_acnt = pkts;
	e.byte_acnt = bytes;
	e.grp_mac[0] = 1;
	e.grp_mac[2] = 0x5e;
	return e;
}

TEST(McctlFormat, TableAndTotals)
{
	std::vector<PortListing> ports = { { 0, { rec("239.1.1.1", 10, 13160) }, 12, 13400 },
					   { 1, {}, 0, 0 } };
	std::string t = format_table(ports);
	EXPECT_NE(std::string::npos, t.find("239.1.1.1")) << t;
	EXPECT_NE(std::string::npos, t.find("01:00:5e:00:00:00"));
	EXPECT_NE(std::string::npos, t.find("13160"));
	EXPECT_NE(std::string::npos, t.find("0           1           12            13400\n"))
		<< t;
	EXPECT_EQ(std::string::npos, t.find("\n1    ")); // empty port omitted from totals
}

TEST(McctlFormat, Json)
{
	std::vector<PortListing> ports = { { 5, { rec("239.1.1.1", 1, 2) }, 1, 2 } };
	EXPECT_EQ("{\"ports\":[{\"port\":5,\"total_pkts\":1,\"total_bytes\":2,\"entries\":["
		  "{\"group\":\"239.1.1.1\",\"mac\":\"01:00:5e:00:00:00\",\"vlan\":-1,"
		  "\"vlan_mode\":0,\"outer_tpid\":0,\"outer_tci\":0,\"inner_tpid\":0,"
		  "\"inner_tci\":0,\"packets\":1,\"bytes\":2}]}]}\n",
		  format_json(ports));
	mc_ip_addr v6{};
	v6.isipv6 = 1;
	v6.addr[0] = 0xff;
	v6.addr[1] = 0x0e;
	v6.addr[15] = 1;
	EXPECT_EQ("ff0e::1", format_addr(v6));
}

// The views parse the proc texts as the module prints them and line up.
TEST(McctlViews, FlowsPortsGroups)
{
	std::string hw = "index proto wifi_num    mask    vid      src_addr\t\t\t\t\tgrp_addr \n"
			 "110\t2\t1\t0x10005\t100\t[10.0.0.1]\t\t\t\t\t[239.1.1.1] \n"
			 "111\t16\t0\t0x2\t-1\t[fe80:0000:0000:0000:0000:0000:0000:0001]\t"
			 "[ff05:0000:0000:0000:0000:0000:0001:0003]\n"
			 "\ndrop list:\n199    [vid=100]    [239.99.99.99]\n";
	auto flows = parse_flows(hw);
	EXPECT_EQ("{\"flows\":[{\"index\":110,\"proto\":\"ipv4\",\"wifi_num\":1,\"mask\":65541,"
		  "\"ports\":[\"eth0.1\",\"eth0.3\",\"ux0\"],\"vid\":100,\"source\":\"10.0.0.1\","
		  "\"group\":\"239.1.1.1\"},{\"index\":111,\"proto\":\"ipv6\",\"wifi_num\":0,"
		  "\"mask\":2,\"ports\":[\"eth0.2\"],\"vid\":-1,\"source\":\"fe80::1\","
		  "\"group\":\"ff05::1:3\"}],\"drops\":[{\"index\":199,\"proto\":\"ipv4\","
		  "\"vid\":100,\"group\":\"239.99.99.99\"}]}\n",
		  format_flows(flows, true));
	EXPECT_EQ("kind  index  group         source    vid  mask     ports              wifi\n"
		  "flow  110    239.1.1.1     10.0.0.1  100  0x10005  eth0.1,eth0.3,ux0  1\n"
		  "flow  111    ff05::1:3     fe80::1   -1   0x2      eth0.2             0\n"
		  "drop  199    239.99.99.99  -         100  -        -                  -\n",
		  format_flows(flows, false));
	auto types = parse_port_types("port type (0:default mode type, 1:hybrid sfu, 2:hybrid hgu)\n"
				      "port:0 type:0; \nport:1 type:2; \n");
	PortListing l{ 1, { rec("239.1.1.1", 5, 50) }, 9, 90, 4, 40 };
	std::vector<PortRow> rows = { { 1, types[1], true, l }, { 32, -1, false, {} } };
	EXPECT_EQ("{\"ports\":[{\"port\":1,\"name\":\"eth0.2\",\"type\":2,\"device\":true,"
		  "\"entries\":1,\"sw_packets\":4,\"sw_bytes\":40},{\"port\":32,\"name\":\"pon\","
		  "\"type\":-1,\"device\":false,\"entries\":0,\"sw_packets\":0,\"sw_bytes\":0}]}\n",
		  format_ports(rows, true));
	EXPECT_EQ("port  name    type        device  entries  sw_packets  sw_bytes\n"
		  "1     eth0.2  hybrid-hgu  yes     1        4           40\n"
		  "32    pon     -           no      0        0           0\n",
		  format_ports(rows, false));
	PortListing l2{ 2, { rec("239.1.1.1", 7, 70) }, 0, 0 };
	auto groups = parse_groups("valid\tgrp_addr\t\tacnt_id\n0\t[239.1.1.1]\t\t3\n"
				   "1\t[0.0.0.0]\t\t4\n0\t[239.2.2.2]\t\t5\n", { l, l2 });
	EXPECT_EQ("{\"groups\":[{\"group\":\"239.1.1.1\",\"counter\":3,\"entries\":2,"
		  "\"packets\":7,\"bytes\":70},{\"group\":\"239.2.2.2\",\"counter\":5,"
		  "\"entries\":0,\"packets\":0,\"bytes\":0}]}\n",
		  format_groups(groups, true));
	EXPECT_EQ("group      counter  entries  packets  bytes\n"
		  "239.1.1.1  3        2        7        70\n"
		  "239.2.2.2  5        0        0        0\n",
		  format_groups(groups, false));
}

} // namespace
