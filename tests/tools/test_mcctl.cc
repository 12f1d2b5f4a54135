// mcctl's argument parsing as its usage promises: entries in the
// positional and the keyword form (port names, VLAN modes by name, tags as
// TPID:VID[:pPRIO]), the group MAC derived when not given, and a bad word
// refused with one line that names it.  The views' JSON is checked in the
// QEMU guest against the running module.
#include <gtest/gtest.h>

#include "mcctl.h"

using namespace mcctl;

namespace {

// What a parse gives, one line: the command, the entry or the error.
std::string parsed(const std::vector<std::string> &args)
{
	Command c;
	std::string err;
	if (!parse(args, c, err))
		return "error: " + err;
	const igmp_entry_info &e = c.entry;
	char s[160];
	snprintf(s, sizeof(s), "op %d port %u mode %u vlan %d outer %04x:%04x inner %04x:%04x %s %s",
		 (int)c.op, e.port, e.vlan_mode, e.vlan, e.outer_tpid, e.outer_tci, e.inner_tpid,
		 e.inner_tci, format_addr(e.grp_ip).c_str(), format_mac(e.grp_mac).c_str());
	return c.op == Op::Add || c.op == Op::Del ? s : "op " + std::to_string((int)c.op) +
		" port " + std::to_string(c.port.value_or(99)) + " json " + std::to_string(c.json) +
		" value " + std::to_string(c.value.value_or(99)) + " " + c.dev;
}

TEST(Mcctl, ArgumentsAndUsage)
{
	const std::pair<std::vector<std::string>, std::string> cases[] = {
		{ { "add", "239.1.2.3", "01:00:5e:01:02:03", "2", "100", "4", "8100", "64", "88a8", "5" },
		  "op 2 port 2 mode 4 vlan 100 outer 8100:0064 inner 88a8:0005 239.1.2.3 01:00:5e:01:02:03" },
		{ { "add", "grp", "239.129.2.3", "port", "uxi7", "vid", "7", "mode", "replace-remark",
		    "outer", "88a8:300:p5", "inner", "8100:0xffff" },
		  "op 2 port 31 mode 2 vlan 7 outer 88a8:a12c inner 8100:ffff 239.129.2.3 01:00:5e:01:02:03" },
		{ { "add", "ff0e::1:abcd", "port", "pon", "mode", "strip" },
		  "op 2 port 32 mode 3 vlan -1 outer 0000:0000 inner 0000:0000 ff0e::1:abcd 33:33:00:01:ab:cd" },
		{ { "--dev", "/tmp/x", "show", "--port", "ux0", "--json" },
		  "op 5 port 16 json 1 value 99 /tmp/x" },
		{ { "snooping", "off" }, "op 8 port 99 json 0 value 0 /dev/quor_igmp" },
		{ {}, "error: no command" },
		{ { "frob" }, "bad command 'frob': expected add, del" },
		{ { "add", "239.1.1.300", "01:00:5e:01:01:01", "1" }, "bad group '239.1.1.300': expected an IPv4 or IPv6 multicast" },
		{ { "add", "239.1.1.1", "01:00:5e:01:01:01", "34" }, "'34': expected a port name" },
		{ { "add", "239.1.1.1", "port", "eth0.1", "mode", "swap" }, "'swap': expected transparent" },
		{ { "add", "239.1.1.1", "port", "1", "outer", "8100:4096" }, "bad outer tag '8100:4096': expected TPID:VID[:pPRIO]" },
		{ { "filter-mode", "6" }, "bad filter mode '6': expected 0..5" },
	};
	for (auto &c : cases)
		EXPECT_NE(std::string::npos, parsed(c.first).find(c.second)) << parsed(c.first);
}

} // namespace
