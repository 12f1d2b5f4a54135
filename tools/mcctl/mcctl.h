// mcctl: the control tool of jix_xpon_multicast, over the ioctl device
// and the proc files.  Parsing and formatting live here, apart from the
// system calls, so that they can be tested on their own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include "uapi/jix_mc_uapi.h"
}

namespace mcctl {

// Exit codes.
enum Exit {
	EXIT_OK = 0,
	EXIT_USAGE = 2,
	EXIT_NO_DEVICE = 3,
	EXIT_REFUSED = 4,
};

enum class Op {
	Help, Version, Add, Del, Update, Show, Clear, FilterMode, Snooping, Debug,
	Flows, Ports, Groups,
};

struct Command {
	Op op = Op::Help;
	std::string dev = "/dev/quor_igmp";
	bool dev_given = false;			// --dev: no search for the node
	std::string proc_dir = "/proc/kv7730";
	igmp_entry_info entry{};		// add, del, update
	std::optional<unsigned> port;		// show, clear
	bool json = false;			// show, flows, ports, groups
	std::optional<uint32_t> value;		// filter-mode, snooping, debug
};

// Parse argv (without the program name).  On error returns false and
// puts a one-line message into err naming the bad word and what was
// expected.
bool parse(const std::vector<std::string> &args, Command &cmd, std::string &err);

std::string usage();
std::string version();

// The port map's names: eth0.1..eth0.8 (0..7), ux0..ux7 (16..23),
// uxi0..uxi7 (24..31), pon (32), nas10 (33); "" for 8..15.
std::string port_name(unsigned port);
bool parse_port(const std::string &s, unsigned &port);
// The group MAC of an IPv4 (01:00:5e + low 23 bits) or IPv6 (33:33 +
// last 4 bytes) group.
void group_mac(const mc_ip_addr &grp, uint8_t mac[6]);
// TPID:VID[:pPRIO], TPID:0xTCI (TPID in hex, VID decimal) or none
// (8100:0x0fff, VLAN 4095: no tag).
bool parse_tag(const std::string &s, uint16_t &tpid, uint16_t &tci);

// The forwarding-entry proc command that deletes @e.  Deletion goes
// through the proc file because the kernel answers ioctl number 2
// (FIGETBSZ) itself for every file, before any driver sees it.
std::string proc_del_line(const igmp_entry_info &e);

// One port's entries as get-entries returned them, with the port totals
// and the software part of them.
struct PortListing {
	unsigned port;
	std::vector<igmp_entry_info> entries;
	uint32_t total_pkts;
	uint64_t total_bytes;
	uint32_t sw_pkts = 0;
	uint64_t sw_bytes = 0;
};

std::string format_addr(const mc_ip_addr &a);
std::string format_mac(const uint8_t mac[6]);
std::string format_table(const std::vector<PortListing> &ports);
std::string format_json(const std::vector<PortListing> &ports);

// ---- views over the proc files ----

struct FlowRow {
	bool drop;
	int index;
	unsigned proto;		// 2 IPv4, 16 IPv6
	int wifi_num;
	uint64_t mask;
	int vid;
	std::string source, group;
};
// /proc/kv7730/jix_mc_hwnat_entry: flows, then the drop list.
std::vector<FlowRow> parse_flows(const std::string &text);
std::string format_flows(const std::vector<FlowRow> &rows, bool json);

// One port map row as `mcctl ports` shows it.
struct PortRow {
	unsigned port;
	int type;		// -1: the port has no type (32, 33)
	bool device;
	PortListing listing;
};
// /proc/kv7730/jix_mc_port_type: the type of each port 0..31.
std::vector<int> parse_port_types(const std::string &text);
std::string format_ports(const std::vector<PortRow> &rows, bool json);

// /proc/kv7730/jix_mc_acnt_mapping: the bound slots (group's first four
// bytes, counter id); counts come from the entries of that group.
struct GroupRow {
	std::string group;
	unsigned counter;
	unsigned entries;
	uint32_t packets;
	uint64_t bytes;
};
std::vector<GroupRow> parse_groups(const std::string &text,
				   const std::vector<PortListing> &ports);
std::string format_groups(const std::vector<GroupRow> &rows, bool json);

} // namespace mcctl
