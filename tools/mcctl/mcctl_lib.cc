#include "mcctl.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "jix_mc_version.h"

namespace mcctl {

namespace {

const char *const kModes[] = { "transparent", "replace", "replace-remark",
			       "strip", "add", "add-remark" };
const char *const kPortsExpected =
	"a port name (eth0.1..eth0.8, ux0..ux7, uxi0..uxi7, pon, nas10) or 0..33";
const char *const kTagExpected =
	"TPID:VID[:pPRIO], TPID:0xTCI or none (e.g. 8100:300, 8100:300:p5)";
const char *const kKeywords = "one of grp, mac, port, vlan, mode, outer, inner";

bool to_uint(const std::string &s, unsigned long max, unsigned long &out, int base = 0)
{
	if (s.empty() || s[0] == '-' || s[0] == '+' || isspace((unsigned char)s[0]))
		return false;
	char *end = nullptr;
	errno = 0;
	unsigned long v = strtoul(s.c_str(), &end, base);
	if (errno || *end || v > max)
		return false;
	out = v;
	return true;
}

bool bad(std::string &err, const char *what, const std::string &word, const char *expected)
{
	err = std::string("bad ") + what + " '" + word + "': expected " + expected;
	return false;
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

bool parse_mode(const std::string &s, uint32_t &mode)
{
	unsigned long v;

	for (uint32_t i = 0; i < 6; i++)
		if (s == kModes[i])
			return mode = i, true;
	if (!to_uint(s, 5, v))
		return false;
	mode = (uint32_t)v;
	return true;
}

bool parse_vlan(const std::string &s, int16_t &vlan)
{
	unsigned long v;

	if (s == "-1" || s == "untagged" || s == "none")
		return vlan = -1, true;
	if (!to_uint(s, 4095, v, 10))
		return false;
	vlan = (int16_t)v;
	return true;
}

bool is_keyword(const std::string &w)
{
	for (const char *k : { "grp", "group", "mac", "port", "vlan", "vid", "mode", "outer", "inner" })
		if (w == k)
			return true;
	return false;
}

// <group> <mac> <port> [vlan [vlan_mode [outer_tpid outer_tci [inner_tpid inner_tci]]]]
bool parse_positional(const std::vector<std::string> &a, igmp_entry_info &e, std::string &err)
{
	unsigned long v;
	unsigned port;

	if (a.size() < 3 || a.size() > 9 || a.size() == 6 || a.size() == 8) {
		err = "expected <group> port <port> [vlan <vid>] [mode <mode>] [outer <tag>] "
		      "[inner <tag>], or <group> <mac> <port> [vlan [mode [otpid otci [itpid itci]]]]";
		return false;
	}
	if (!parse_mac(a[1], e.grp_mac))
		return bad(err, "MAC address", a[1], "xx:xx:xx:xx:xx:xx");
	if (!parse_port(a[2], port))
		return bad(err, "port", a[2], kPortsExpected);
	e.port = (uint8_t)port;
	if (a.size() > 3 && !parse_vlan(a[3], e.vlan))
		return bad(err, "VLAN", a[3], "0..4095, -1 or untagged");
	if (a.size() > 4 && !parse_mode(a[4], e.vlan_mode))
		return bad(err, "VLAN mode", a[4],
			   "transparent, replace, replace-remark, strip, add, add-remark or 0..5");
	uint16_t *tags[] = { &e.outer_tpid, &e.outer_tci, &e.inner_tpid, &e.inner_tci };
	for (size_t i = 5; i < a.size(); i++) {
		if (!to_uint(a[i], 0xffff, v, 16))
			return bad(err, "tag field", a[i], "hex 0..ffff");
		*tags[i - 5] = (uint16_t)v;
	}
	return true;
}

// [grp] <group> [mac <mac>] port <port> [vlan <vid>] [mode <mode>] [outer <tag>] [inner <tag>]
bool parse_keywords(const std::vector<std::string> &a, igmp_entry_info &e, std::string &err)
{
	bool have_grp = false, have_mac = false, have_port = false, have_outer = false,
	     have_inner = false;
	unsigned port;
	size_t i = 0;

	if (!a.empty() && !is_keyword(a[0])) {
		if (!parse_group(a[0], e.grp_ip))
			return bad(err, "group", a[0], "an IPv4 or IPv6 multicast address");
		have_grp = true;
		i = 1;
	}
	for (; i < a.size(); i += 2) {
		const std::string &k = a[i];
		if (!is_keyword(k))
			return bad(err, "word", k, kKeywords);
		if (i + 1 >= a.size())
			return err = "'" + k + "' needs a value", false;
		const std::string &v = a[i + 1];
		if (k == "grp" || k == "group") {
			if (!parse_group(v, e.grp_ip))
				return bad(err, "group", v, "an IPv4 or IPv6 multicast address");
			have_grp = true;
		} else if (k == "mac") {
			if (!parse_mac(v, e.grp_mac))
				return bad(err, "MAC address", v, "xx:xx:xx:xx:xx:xx");
			have_mac = true;
		} else if (k == "port") {
			if (!parse_port(v, port))
				return bad(err, "port", v, kPortsExpected);
			e.port = (uint8_t)port;
			have_port = true;
		} else if (k == "vlan" || k == "vid") {
			if (!parse_vlan(v, e.vlan))
				return bad(err, "VLAN", v, "0..4095, -1 or untagged");
		} else if (k == "mode") {
			if (!parse_mode(v, e.vlan_mode))
				return bad(err, "VLAN mode", v,
					   "transparent, replace, replace-remark, strip, add, add-remark or 0..5");
		} else if (!parse_tag(v, k == "outer" ? e.outer_tpid : e.inner_tpid,
				      k == "outer" ? e.outer_tci : e.inner_tci)) {
			return bad(err, k == "outer" ? "outer tag" : "inner tag", v, kTagExpected);
		} else {
			(k == "outer" ? have_outer : have_inner) = true;
		}
	}
	if (!have_grp)
		return err = "no group: expected an IPv4 or IPv6 group address", false;
	if (!have_port)
		return err = "no port: expected 'port' and " + std::string(kPortsExpected), false;
	if (!have_mac)
		group_mac(e.grp_ip, e.grp_mac);
	// Modes that write tags take the outer one from the entry; an inner
	// tag not given is "none" (VLAN 4095), not a tag with VLAN 0.
	bool tags = e.vlan_mode != JIX_VLAN_TRANSPARENT && e.vlan_mode != JIX_VLAN_STRIP;
	if (tags && !have_outer)
		return err = std::string("mode ") + kModes[e.vlan_mode] + " needs 'outer' " +
			     kTagExpected, false;
	if (tags && !have_inner)
		parse_tag("none", e.inner_tpid, e.inner_tci);
	return true;
}

bool parse_entry(const std::vector<std::string> &a, igmp_entry_info &e, std::string &err)
{
	e = {};
	e.vlan = -1;
	if (a.empty() || is_keyword(a[0]) || (a.size() > 1 && is_keyword(a[1])))
		return parse_keywords(a, e, err);
	if (!parse_group(a[0], e.grp_ip))
		return bad(err, "group", a[0], "an IPv4 or IPv6 multicast address");
	return parse_positional(a, e, err);
}

bool parse_value(const std::vector<std::string> &a, Op op, Command &c, std::string &err)
{
	unsigned long v;

	if (a.empty())
		return true;
	if (a.size() > 1)
		return bad(err, "argument", a[1], "nothing more");
	if (op == Op::Snooping) {
		if (a[0] == "on" || a[0] == "off") {
			c.value = a[0] == "on";
			return true;
		}
		return bad(err, "snooping switch", a[0], "on or off");
	}
	unsigned long max = op == Op::FilterMode ? 5 : 0xffffffffUL;
	if (!to_uint(a[0], max, v))
		return op == Op::FilterMode ? bad(err, "filter mode", a[0], "0..5") :
					      bad(err, "debug level", a[0], "a number");
	c.value = (uint32_t)v;
	return true;
}

bool parse_list_opts(const std::vector<std::string> &a, Op op, Command &c, std::string &err)
{
	bool takes_port = op == Op::Show || op == Op::Clear;
	unsigned port;

	for (size_t i = 0; i < a.size(); i++) {
		if (a[i] == "--port" && takes_port) {
			if (i + 1 >= a.size())
				return err = "--port needs " + std::string(kPortsExpected), false;
			if (!parse_port(a[++i], port))
				return bad(err, "port", a[i], kPortsExpected);
			c.port = port;
		} else if (a[i] == "--json" && op != Op::Clear) {
			c.json = true;
		} else {
			return bad(err, "argument", a[i], takes_port && op == Op::Show ?
				   "--port or --json" : takes_port ? "--port" : "--json");
		}
	}
	return true;
}

// Left-aligned columns two spaces apart; the first row is the header.
std::string columns(const std::vector<std::vector<std::string>> &rows)
{
	std::vector<size_t> w;
	std::string out;

	for (auto &r : rows)
		for (size_t i = 0; i < r.size(); i++) {
			if (w.size() <= i)
				w.push_back(0);
			w[i] = std::max(w[i], r[i].size());
		}
	for (auto &r : rows) {
		std::string line;
		for (size_t i = 0; i < r.size(); i++) {
			line += r[i];
			if (i + 1 < r.size())
				line += std::string(w[i] - r[i].size() + 2, ' ');
		}
		out += line + "\n";
	}
	return out;
}

std::string num(unsigned long long v)
{
	return std::to_string(v);
}

std::string quoted(const std::string &s)
{
	return "\"" + s + "\"";
}

std::string mask_ports(uint64_t mask, bool json)
{
	std::string out;

	for (unsigned p = 0; p < 64; p++) {
		if (!(mask >> p & 1))
			continue;
		std::string n = port_name(p);
		if (n.empty())
			n = num(p);
		if (!out.empty())
			out += ",";
		out += json ? quoted(n) : n;
	}
	return json ? "[" + out + "]" : out.empty() ? "-" : out;
}

// An address as the proc files print it, in the usual short form.
std::string short_addr(const std::string &s)
{
	mc_ip_addr a{};

	if (!parse_group(s, a))
		return s;
	return format_addr(a);
}

const char *type_name(int t)
{
	static const char *const names[] = { "default", "hybrid-sfu", "hybrid-hgu" };
	return t >= 0 && t <= 2 ? names[t] : "-";
}

} // namespace

std::string port_name(unsigned p)
{
	char buf[16];

	if (p <= 7)
		snprintf(buf, sizeof(buf), "eth0.%u", p + 1);
	else if (p >= 16 && p <= 23)
		snprintf(buf, sizeof(buf), "ux%u", p - 16);
	else if (p >= 24 && p <= 31)
		snprintf(buf, sizeof(buf), "uxi%u", p - 24);
	else if (p == 32 || p == 33)
		return p == 32 ? "pon" : "nas10";
	else
		return "";
	return buf;
}

bool parse_port(const std::string &s, unsigned &port)
{
	unsigned long v;

	for (unsigned p = 0; p <= 33; p++)
		if (!s.empty() && port_name(p) == s)
			return port = p, true;
	if (!to_uint(s, 33, v, 10))
		return false;
	port = (unsigned)v;
	return true;
}

void group_mac(const mc_ip_addr &g, uint8_t mac[6])
{
	if (g.isipv6) {
		const uint8_t m[6] = { 0x33, 0x33, g.addr[12], g.addr[13], g.addr[14], g.addr[15] };
		memcpy(mac, m, 6);
	} else {
		const uint8_t m[6] = { 0x01, 0x00, 0x5e, (uint8_t)(g.addr[1] & 0x7f), g.addr[2],
				       g.addr[3] };
		memcpy(mac, m, 6);
	}
}

bool parse_tag(const std::string &s, uint16_t &tpid, uint16_t &tci)
{
	unsigned long t, v, prio = 0;
	size_t c1 = s.find(':');

	if (s == "none") {
		tpid = 0x8100;
		tci = 0x0fff;
		return true;
	}

	if (c1 == std::string::npos || !to_uint(s.substr(0, c1), 0xffff, t, 16))
		return false;
	std::string rest = s.substr(c1 + 1), pri;
	size_t c2 = rest.find(':');
	if (c2 != std::string::npos) {
		pri = rest.substr(c2 + 1);
		rest = rest.substr(0, c2);
		if (pri.size() < 2 || pri[0] != 'p' || !to_uint(pri.substr(1), 7, prio, 10))
			return false;
	}
	if (rest.compare(0, 2, "0x") == 0) {
		if (!pri.empty() || !to_uint(rest, 0xffff, v, 16))
			return false;
	} else if (!to_uint(rest, 4095, v, 10)) {
		return false;
	}
	tpid = (uint16_t)t;
	tci = (uint16_t)(v | prio << 13);
	return true;
}

bool parse(const std::vector<std::string> &args, Command &c, std::string &err)
{
	std::vector<std::string> rest;

	for (size_t i = 0; i < args.size(); i++) {
		if (args[i] == "--help" || args[i] == "-h") {
			c.op = Op::Help;
			return true;
		}
		if (args[i] == "--version" || args[i] == "-V") {
			c.op = Op::Version;
			return true;
		}
		if (args[i] == "--dev") {
			if (i + 1 >= args.size())
				return err = "--dev needs a path", false;
			c.dev = args[++i];
			c.dev_given = true;
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
	static const std::map<std::string, Op> lists = {
		{ "show", Op::Show }, { "clear", Op::Clear }, { "flows", Op::Flows },
		{ "ports", Op::Ports }, { "groups", Op::Groups },
	};
	if (lists.count(verb)) {
		c.op = lists.at(verb);
		return parse_list_opts(a, c.op, c, err);
	}
	if (verb == "filter-mode" || verb == "snooping" || verb == "debug") {
		c.op = verb == "filter-mode" ? Op::FilterMode :
		       verb == "snooping" ? Op::Snooping : Op::Debug;
		return parse_value(a, c.op, c, err);
	}
	if (verb == "version") {
		c.op = Op::Version;
		return true;
	}
	return bad(err, "command", verb, "add, del, update, show, clear, flows, ports, groups, "
		   "filter-mode, snooping, debug or version");
}

std::string version()
{
	return "mcctl " JIX_MC_VERSION "\n";
}

std::string usage()
{
	return
	"usage: mcctl [--dev PATH] <command> [arguments]\n"
	"\n"
	"  add    <group> [mac MAC] port PORT [vlan VID] [mode MODE] [outer TAG] [inner TAG]\n"
	"  add    <group> <mac> <port> [vlan [mode [otpid otci [itpid itci]]]]\n"
	"                           add or refresh a forwarding entry\n"
	"  del    <group> ...       delete a forwarding entry, same arguments (through\n"
	"                           /proc/kv7730/jix_mc_fwd_entry: the kernel keeps\n"
	"                           ioctl number 2 for itself)\n"
	"  update <group> ...       change an existing entry, same arguments\n"
	"  show [--port PORT] [--json]\n"
	"                           entries with packet and byte counts and port\n"
	"                           totals (reading resets the ports' software counters)\n"
	"  clear [--port PORT]      delete all entries, or those of one port\n"
	"  flows [--json]           hardware flows and drop entries\n"
	"  ports [--json]           the port map: name, type, device, entries and\n"
	"                           software counters (reading resets them)\n"
	"  groups [--json]          accounting: group, counter id, packets, bytes\n"
	"  filter-mode [N]          show or set the filter mode:\n"
	"                           0 IP&VID, 1 MAC, 2 IP&SRC_IP, 3 MAC&VID, 4 MAC&IP, 5 MAC&IP&VID\n"
	"  snooping [on|off]        show or switch IGMP snooping\n"
	"  debug [N]                show or set the module's debug level (proc file)\n"
	"  version                  the tool's version (also --version)\n"
	"\n"
	"  <group> is IPv4 or IPv6; MAC defaults to the group's MAC; PORT is a port\n"
	"  name (eth0.1..eth0.8, ux0..ux7, uxi0..uxi7, pon, nas10) or 0..33; VID is\n"
	"  0..4095 or untagged (the default); MODE is transparent, replace,\n"
	"  replace-remark, strip, add or add-remark (or 0..5); TAG is TPID:VID[:pPRIO],\n"
	"  TPID:0xTCI or none (8100:300, 8100:300:p5); modes other than transparent\n"
	"  and strip need the outer tag; the inner one defaults to none (VLAN 4095).\n"
	"  Positional tag fields are hex.\n"
	"  --dev PATH               the device node (default /dev/quor_igmp, or the\n"
	"                           node of the quor_igmp class device when missing)\n"
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


std::vector<FlowRow> parse_flows(const std::string &text)
{
	std::vector<FlowRow> rows;
	bool drops = false;
	size_t pos = 0;

	while (pos < text.size()) {
		size_t nl = text.find('\n', pos);
		std::string l = text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
		pos = nl == std::string::npos ? text.size() : nl + 1;
		if (l == "drop list:") {
			drops = true;
			continue;
		}
		FlowRow r{};
		unsigned long long mask = 0;
		int n;
		r.drop = drops;
		if (drops ? sscanf(l.c_str(), "%d [vid=%d]%n", &r.index, &r.vid, &n) != 2 :
			    sscanf(l.c_str(), "%d\t%u\t%d\t0x%llx\t%d%n", &r.index, &r.proto,
				   &r.wifi_num, &mask, &r.vid, &n) != 5)
			continue;
		r.mask = mask;
		std::vector<std::string> addrs;
		for (size_t b = l.find('[', n); b != std::string::npos; b = l.find('[', b + 1)) {
			size_t e = l.find(']', b);
			if (e == std::string::npos)
				break;
			addrs.push_back(short_addr(l.substr(b + 1, e - b - 1)));
		}
		if (drops && addrs.size() == 1) {
			r.group = addrs[0];
			r.proto = r.group.find(':') != std::string::npos ? 16 : 2;
		} else if (!drops && addrs.size() == 2) {
			r.source = addrs[0];
			r.group = addrs[1];
		}
		rows.push_back(r);
	}
	return rows;
}

std::string format_flows(const std::vector<FlowRow> &rows, bool json)
{
	if (json) {
		std::string f, d;
		for (auto &r : rows) {
			std::string proto = r.proto == 2 ? "ipv4" : r.proto == 16 ? "ipv6" : "unknown";
			if (r.drop)
				d += (d.empty() ? "" : ",") + std::string("{\"index\":") + num(r.index) +
				     ",\"proto\":" + quoted(proto) + ",\"vid\":" + std::to_string(r.vid) +
				     ",\"group\":" + quoted(r.group) + "}";
			else
				f += (f.empty() ? "" : ",") + std::string("{\"index\":") + num(r.index) +
				     ",\"proto\":" + quoted(proto) + ",\"wifi_num\":" +
				     std::to_string(r.wifi_num) + ",\"mask\":" + num(r.mask) +
				     ",\"ports\":" + mask_ports(r.mask, true) + ",\"vid\":" +
				     std::to_string(r.vid) + ",\"source\":" + quoted(r.source) +
				     ",\"group\":" + quoted(r.group) + "}";
		}
		return "{\"flows\":[" + f + "],\"drops\":[" + d + "]}\n";
	}
	std::vector<std::vector<std::string>> t = {
		{ "kind", "index", "group", "source", "vid", "mask", "ports", "wifi" }
	};
	for (auto &r : rows) {
		char mask[24];
		snprintf(mask, sizeof(mask), "0x%llx", (unsigned long long)r.mask);
		if (r.drop)
			t.push_back({ "drop", std::to_string(r.index), r.group, "-",
				      std::to_string(r.vid), "-", "-", "-" });
		else
			t.push_back({ "flow", std::to_string(r.index), r.group, r.source,
				      std::to_string(r.vid), mask, mask_ports(r.mask, false),
				      std::to_string(r.wifi_num) });
	}
	return columns(t);
}

std::vector<int> parse_port_types(const std::string &text)
{
	std::vector<int> types(32, 0);
	const char *p = text.c_str();
	int port, type;

	while ((p = strstr(p, "port:")) != nullptr) {
		if (sscanf(p, "port:%d type:%d;", &port, &type) == 2 && port >= 0 && port < 32)
			types[port] = type;
		p += 5;
	}
	return types;
}

std::string format_ports(const std::vector<PortRow> &rows, bool json)
{
	if (json) {
		std::string out;
		for (auto &r : rows)
			out += (out.empty() ? "" : ",") + std::string("{\"port\":") + num(r.port) +
			       ",\"name\":" + quoted(port_name(r.port)) + ",\"type\":" +
			       std::to_string(r.type) + ",\"device\":" + (r.device ? "true" : "false") +
			       ",\"entries\":" + num(r.listing.entries.size()) + ",\"sw_packets\":" +
			       num(r.listing.sw_pkts) + ",\"sw_bytes\":" + num(r.listing.sw_bytes) + "}";
		return "{\"ports\":[" + out + "]}\n";
	}
	std::vector<std::vector<std::string>> t = {
		{ "port", "name", "type", "device", "entries", "sw_packets", "sw_bytes" }
	};
	for (auto &r : rows)
		t.push_back({ num(r.port), port_name(r.port), type_name(r.type),
			      r.device ? "yes" : "no", num(r.listing.entries.size()),
			      num(r.listing.sw_pkts), num(r.listing.sw_bytes) });
	return columns(t);
}

std::vector<GroupRow> parse_groups(const std::string &text, const std::vector<PortListing> &ports)
{
	std::vector<GroupRow> rows;
	const char *p = text.c_str();
	int valid, id;
	unsigned b[4];

	while ((p = strchr(p, '\n')) != nullptr) {
		p++;
		if (sscanf(p, "%d\t[%u.%u.%u.%u]\t\t%d", &valid, &b[0], &b[1], &b[2], &b[3], &id) != 6 ||
		    valid)
			continue;
		GroupRow g{};
		char v4[20];
		snprintf(v4, sizeof(v4), "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
		g.group = v4;
		g.counter = (unsigned)id;
		// Every entry of the group reads the same counter since its own
		// start: the oldest entry has seen the most.
		for (auto &l : ports)
			for (auto &e : l.entries) {
				const uint8_t *a = e.grp_ip.addr;
				if (a[0] != b[0] || a[1] != b[1] || a[2] != b[2] || a[3] != b[3])
					continue;
				g.group = format_addr(e.grp_ip);
				g.entries++;
				g.packets = std::max(g.packets, e.pkt_acnt);
				g.bytes = std::max<uint64_t>(g.bytes, e.byte_acnt);
			}
		rows.push_back(g);
	}
	return rows;
}

std::string format_groups(const std::vector<GroupRow> &rows, bool json)
{
	if (json) {
		std::string out;
		for (auto &g : rows)
			out += (out.empty() ? "" : ",") + std::string("{\"group\":") + quoted(g.group) +
			       ",\"counter\":" + num(g.counter) + ",\"entries\":" + num(g.entries) +
			       ",\"packets\":" + num(g.packets) + ",\"bytes\":" + num(g.bytes) + "}";
		return "{\"groups\":[" + out + "]}\n";
	}
	std::vector<std::vector<std::string>> t = {
		{ "group", "counter", "entries", "packets", "bytes" }
	};
	for (auto &g : rows)
		t.push_back({ g.group, num(g.counter), num(g.entries), num(g.packets), num(g.bytes) });
	return columns(t);
}

} // namespace mcctl
