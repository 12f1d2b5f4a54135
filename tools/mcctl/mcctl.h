// mcctl: the control tool of jix_xpon_multicast, over the ioctl device
// and the debug proc file.  Parsing and formatting live here, apart from
// the system calls, so that they can be tested on their own.
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

enum class Op { Help, Add, Del, Update, Show, Clear, FilterMode, Snooping, Debug };

struct Command {
	Op op = Op::Help;
	std::string dev = "/dev/quor_igmp";
	std::string debug_file = "/proc/kv7730/jix_mc_debug";
	std::string fwd_file = "/proc/kv7730/jix_mc_fwd_entry";
	igmp_entry_info entry{};		// add, del, update
	std::optional<unsigned> port;		// show, clear
	bool json = false;			// show
	std::optional<uint32_t> value;		// filter-mode, snooping, debug
};

// Parse argv (without the program name).  On error returns false and
// puts a one-line message into err.
bool parse(const std::vector<std::string> &args, Command &cmd, std::string &err);

std::string usage();

// The forwarding-entry proc command that deletes @e.  Deletion goes
// through the proc file because the kernel answers ioctl number 2
// (FIGETBSZ) itself for every file, before any driver sees it.
std::string proc_del_line(const igmp_entry_info &e);

// One port's entries as get-entries returned them, with the port totals.
struct PortListing {
	unsigned port;
	std::vector<igmp_entry_info> entries;
	uint32_t total_pkts;
	uint64_t total_bytes;
};

std::string format_addr(const mc_ip_addr &a);
std::string format_mac(const uint8_t mac[6]);
std::string format_table(const std::vector<PortListing> &ports);
std::string format_json(const std::vector<PortListing> &ports);

} // namespace mcctl
