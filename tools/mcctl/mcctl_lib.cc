#include "mcctl.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace mcctl {

namespace {

bool to_uint(const std::string &s, unsigned long max, unsigned long &out, int base = 0)
{
	if (s.empty() || s[0] == '-')
		return false;
	char *end = nullptr;
	errno = 0;
	unsigned long v = strtoul(s.c_str(), &end, base);
	if (errno || *end || v > max)
		return false;
	out = v;
	return true;
}

bool parse_group(const std::string &s, mc_ip_addr &a)
{
	memset(&a, 0, sizeof(a));
	if (inet_pton(AF_INET, s.c_str(), a.addr) == 1)
		return true;
	if (inet_pton(AF_INET6, s.c_str(), a.addr) == 1) {
		a.isipv6 = 1;
		return true;
	}
	return false;
}

bool parse_mac(const std::string &s, uint8_t mac[6])
{
	unsigned v[6];
	char tail;

	if (sscanf(s.c_str(), "%x:%x:%x:%x:%x:%x%c", &v[0], &v[1], &v[2], &v[3],
		   &v[4], &v[5], &tail) != 6)
		return false;
	for (int i = 0; i < 6; i++) {
		if (v[i] > 0xff)
			return false;
		mac[i] = (uint8_t)v[i];
	}
	return true;
}

// <group> <mac> <port> [vlan [mode [otpid otci [itpid itci]]]]
bool parse_entry(const std::vector<std::string> &a, igmp_entry_info &e, std::string &err)
{
	unsigned long v;

	if (a.size() < 3 || a.size() > 9 || a.size() == 6 || a.size() == 8) {
		err = "expected <group> <mac> <port> [vlan [vlan_mode [outer_tpid outer_tci [inner_tpid inner_tci]]]]";
		return false;
	}
	e = {};
	e.vlan = -1;
	if (!parse_group(a[0], e.grp_ip))
		return err = "bad group address: " + a[0], false;
	if (!parse_mac(a[1], e.grp_mac))
		return err = "bad MAC address: " + a[1], false;
	if (!to_uint(a[2], 33, v))
		return err = "bad port id (0..33): " + a[2], false;
	e.port = (uint8_t)v;
	if (a.size() > 3) {
		if (a[3] == "-1" || a[3] == "untagged")
			e.vlan = -1;
		else if (to_uint(a[3], 4095, v))
			e.vlan = (int16_t)v;
		else
			return err = "bad VLAN id (0..4095 or -1): " + a[3], false;
	}
	if (a.size() > 4) {
		if (!to_uint(a[4], 5, v))
			return err = "bad VLAN mode (0..5): " + a[4], false;
		e.vlan_mode = (uint32_t)v;
	}
	uint16_t *tags[] = { &e.outer_tpid, &e.outer_tci, &e.inner_tpid, &e.inner_tci };
	for (size_t i = 5; i < a.size(); i++) {
		if (!to_uint(a[i], 0xffff, v, 16))
			return err = "bad tag field (hex, 0..ffff): " + a[i], false;
		*tags[i - 5] = (uint16_t)v;
	}
	return true;
}

bool parse_value(const std::vector<std::string> &a, Op op, Command &c, std::string &err)
{
	unsigned long v;

	if (a.empty())
		return true;
	if (a.size() > 1)
		return err = "too many arguments", false;
	if (op == Op::Snooping) {
		if (a[0] == "on" || a[0] == "off") {
			c.value = a[0] == "on";
			return true;
		}
		return err = "snooping takes on or off", false;
	}
	unsigned long max = op == Op::FilterMode ? 5 : 0xffffffffUL;
	if (!to_uint(a[0], max, v))
		return err = op == Op::FilterMode ? "filter mode is 0..5" : "bad debug level", false;
	c.value = (uint32_t)v;
	return true;
}

bool parse_port_opts(const std::vector<std::string> &a, Op op, Command &c, std::string &err)
{
	unsigned long v;

	for (size_t i = 0; i < a.size(); i++) {
		if (a[i] == "--port" && i + 1 < a.size()) {
			if (!to_uint(a[++i], 33, v))
				return err = "bad port id (0..33): " + a[i], false;
			c.port = (unsigned)v;
		} else if (a[i] == "--json" && op == Op::Show) {
			c.json = true;
		} else {
			return err = "unexpected argument: " + a[i], false;
		}
	}
	return true;
}

} // namespace

bool parse(const std::vector<std::string> &args, Command &c, std::string &err)
{
	std::vector<std::string> rest;

	for (size_t i = 0; i < args.size(); i++) {
		if (args[i] == "--help" || args[i] == "-h") {
			c.op = Op::Help;
			return true;
		}
		if (args[i] == "--dev") {
			if (i + 1 >= args.size())
				return err = "--dev needs a path", false;
			c.dev = args[++i];
			continue;
		}
		rest.push_back(args[i]);
	}
	if (rest.empty())
		return err = "no command given", false;
	const std::string verb = rest[0];
	std::vector<std::string> a(rest.begin() + 1, rest.end());
	if (verb == "add" || verb == "del" || verb == "update") {
		c.op = verb == "add" ? Op::Add : verb == "del" ? Op::Del : Op::Update;
		return parse_entry(a, c.entry, err);
	}
	if (verb == "show" || verb == "clear") {
		c.op = verb == "show" ? Op::Show : Op::Clear;
		return parse_port_opts(a, c.op, c, err);
	}
	if (verb == "filter-mode" || verb == "snooping" || verb == "debug") {
		c.op = verb == "filter-mode" ? Op::FilterMode :
		       verb == "snooping" ? Op::Snooping : Op::Debug;
		return parse_value(a, c.op, c, err);
	}
	err = "unknown command: " + verb;
	return false;
}

std::string usage()
{
	return
	"usage: mcctl [--dev PATH] <command> [arguments]\n"
	"\n"
	"  add    <group> <mac> <port> [vlan [vlan_mode [outer_tpid outer_tci [inner_tpid inner_tci]]]]\n"
	"                           add or refresh a forwarding entry\n"
	"  del    <group> <mac> <port> [vlan ...]   delete a forwarding entry (through\n"
	"                           /proc/kv7730/jix_mc_fwd_entry: the kernel keeps\n"
	"                           ioctl number 2 for itself)\n"
	"  update <group> <mac> <port> [vlan ...]   change an existing entry\n"
	"  show [--port N] [--json] list entries with packet and byte counts and\n"
	"                           port totals (reading resets the port's\n"
	"                           software counters)\n"
	"  clear [--port N]         delete all entries, or those of one port\n"
	"  filter-mode [N]          show or set the filter mode:\n"
	"                           0 IP&VID, 1 MAC, 2 IP&SRC_IP, 3 MAC&VID, 4 MAC&IP, 5 MAC&IP&VID\n"
	"  snooping [on|off]        show or switch IGMP snooping\n"
	"  debug [N]                show or set the module's debug level (proc file)\n"
	"\n"
	"  <group> is IPv4 or IPv6; <mac> is xx:xx:xx:xx:xx:xx; <port> is 0..33;\n"
	"  vlan is 0..4095 or -1 (untagged, the default); vlan_mode is 0 transparent,\n"
	"  1 replace, 2 replace&remark, 3 strip, 4 add, 5 add&remark; tag fields are hex.\n"
	"  --dev PATH               the device node (default /dev/quor_igmp, major 253)\n"
	"  --help                   this text\n"
	"\n"
	"exit status: 0 done, 2 usage error, 3 device missing, 4 operation refused\n";
}

std::string proc_del_line(const igmp_entry_info &e)
{
	char addr[64], line[256];
	const uint8_t *b = e.grp_ip.addr;

	if (e.grp_ip.isipv6)
		snprintf(addr, sizeof(addr), "ipv6 %x:%x:%x:%x:%x:%x:%x:%x",
			 b[0] << 8 | b[1], b[2] << 8 | b[3], b[4] << 8 | b[5], b[6] << 8 | b[7],
			 b[8] << 8 | b[9], b[10] << 8 | b[11], b[12] << 8 | b[13],
			 b[14] << 8 | b[15]);
	else
		snprintf(addr, sizeof(addr), "ipv4 %u.%u.%u.%u", b[0], b[1], b[2], b[3]);
	snprintf(line, sizeof(line), "del %s %s %u %d %u %x %x %x %x\n", addr,
		 format_mac(e.grp_mac).c_str(), e.port, e.vlan, e.vlan_mode, e.outer_tpid,
		 e.outer_tci, e.inner_tpid, e.inner_tci);
	return line;
}

std::string format_addr(const mc_ip_addr &a)
{
	char buf[INET6_ADDRSTRLEN];

	inet_ntop(a.isipv6 ? AF_INET6 : AF_INET, a.addr, buf, sizeof(buf));
	return buf;
}

std::string format_mac(const uint8_t m[6])
{
	char buf[18];

	snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2],
		 m[3], m[4], m[5]);
	return buf;
}

std::string format_table(const std::vector<PortListing> &ports)
{
	std::string out;
	char line[256];

	snprintf(line, sizeof(line), "%-4s %-5s %-5s %-39s %-17s %12s %16s\n", "port",
		 "vlan", "mode", "group", "mac", "packets", "bytes");
	out += line;
	for (auto &p : ports) {
		for (auto &e : p.entries) {
			snprintf(line, sizeof(line), "%-4u %-5d %-5u %-39s %-17s %12u %16llu\n",
				 p.port, e.vlan, e.vlan_mode, format_addr(e.grp_ip).c_str(),
				 format_mac(e.grp_mac).c_str(), e.pkt_acnt,
				 (unsigned long long)e.byte_acnt);
			out += line;
		}
	}
	out += "\n";
	snprintf(line, sizeof(line), "%-4s %8s %12s %16s\n", "port", "entries", "packets",
		 "bytes");
	out += line;
	for (auto &p : ports) {
		if (p.entries.empty() && !p.total_pkts && !p.total_bytes)
			continue;
		snprintf(line, sizeof(line), "%-4u %8zu %12u %16llu\n", p.port,
			 p.entries.size(), p.total_pkts, (unsigned long long)p.total_bytes);
		out += line;
	}
	return out;
}

std::string format_json(const std::vector<PortListing> &ports)
{
	std::string out = "{\"ports\":[";
	char buf[512];

	for (size_t i = 0; i < ports.size(); i++) {
		auto &p = ports[i];
		snprintf(buf, sizeof(buf), "%s{\"port\":%u,\"total_pkts\":%u,\"total_bytes\":%llu,\"entries\":[",
			 i ? "," : "", p.port, p.total_pkts, (unsigned long long)p.total_bytes);
		out += buf;
		for (size_t j = 0; j < p.entries.size(); j++) {
			auto &e = p.entries[j];
			snprintf(buf, sizeof(buf),
				 "%s{\"group\":\"%s\",\"mac\":\"%s\",\"vlan\":%d,\"vlan_mode\":%u,"
				 "\"outer_tpid\":%u,\"outer_tci\":%u,\"inner_tpid\":%u,\"inner_tci\":%u,"
				 "\"packets\":%u,\"bytes\":%llu}",
				 j ? "," : "", format_addr(e.grp_ip).c_str(), format_mac(e.grp_mac).c_str(),
				 e.vlan, e.vlan_mode, e.outer_tpid, e.outer_tci, e.inner_tpid,
				 e.inner_tci, e.pkt_acnt, (unsigned long long)e.byte_acnt);
			out += buf;
		}
		out += "]}";
	}
	return out + "]}\n";
}

} // namespace mcctl
