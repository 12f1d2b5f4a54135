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

TEST(McctlParse, AddWithAllFields)
{
	Command c;
	std::string err;

	ASSERT_TRUE(p({ "--dev", "/tmp/x", "add", "239.1.2.3", "01:00:5e:01:02:03", "2",
			"100", "4", "8100", "64", "88a8", "5" }, c, err)) << err;
	EXPECT_EQ(Op::Add, c.op);
	EXPECT_EQ("/tmp/x", c.dev);
	EXPECT_EQ(2, c.entry.port);
	EXPECT_EQ(100, c.entry.vlan);
	EXPECT_EQ(4u, c.entry.vlan_mode);
	EXPECT_EQ(0x8100, c.entry.outer_tpid);
	EXPECT_EQ(0x64, c.entry.outer_tci);
	EXPECT_EQ(0x88a8, c.entry.inner_tpid);
	EXPECT_EQ(5, c.entry.inner_tci);
	EXPECT_EQ(0, c.entry.grp_ip.isipv6);
	EXPECT_EQ(239, c.entry.grp_ip.addr[0]);
	EXPECT_EQ(0, c.entry.grp_ip.addr[4]);
	EXPECT_EQ(3, c.entry.grp_mac[5]);
}

TEST(McctlParse, DefaultsAndIpv6)
{
	Command c;
	std::string err;

	ASSERT_TRUE(p({ "del", "ff0e::1", "33:33:00:00:00:01", "16" }, c, err)) << err;
	EXPECT_EQ(Op::Del, c.op);
	EXPECT_EQ(-1, c.entry.vlan);
	EXPECT_EQ(0u, c.entry.vlan_mode);
	EXPECT_EQ(1, c.entry.grp_ip.isipv6);
	EXPECT_EQ(0xff, c.entry.grp_ip.addr[0]);
	EXPECT_EQ(1, c.entry.grp_ip.addr[15]);
	EXPECT_EQ("/dev/quor_igmp", c.dev);
}

TEST(McctlParse, BadInputIsAUsageError)
{
	Command c;
	std::string err;
	std::vector<std::vector<std::string>> bad = {
		{},
		{ "frob" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01" },
		{ "add", "239.1.1.300", "01:00:5e:01:01:01", "1" },
		{ "add", "239.1.1.1", "01:00:5e:01:01", "1" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01:02", "1" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:1ff", "1" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01", "34" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "4096" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "6" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "1", "8100" },
		{ "add", "239.1.1.1", "01:00:5e:01:01:01", "1", "1", "1", "10000", "1" },
		{ "show", "--port" },
		{ "show", "--port", "x" },
		{ "clear", "--json" },
		{ "filter-mode", "6" },
		{ "filter-mode", "1", "2" },
		{ "snooping", "maybe" },
		{ "debug", "-1" },
		{ "--dev" },
	};
	for (auto &a : bad) {
		EXPECT_FALSE(p(a, c, err)) << (a.empty() ? "(none)" : a[0]);
		EXPECT_FALSE(err.empty());
	}
}

TEST(McctlParse, QueriesAndSwitches)
{
	Command c;
	std::string err;

	ASSERT_TRUE(p({ "show", "--port", "3", "--json" }, c, err));
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
			       "filter-mode", "snooping", "debug", "--dev", "--help",
			       "exit status" })
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

} // namespace
