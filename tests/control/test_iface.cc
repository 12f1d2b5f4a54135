// The hook entry points, the API operations, the ioctl commands and the
// proc files, as their callers see them.
#include <sys/mman.h>

#include "support/module_fixture.h"

using namespace jt;

namespace {

class Iface : public ModuleTest {
protected:
	static long ioctl(unsigned int cmd, const void *arg) { return host_chrdev_ioctl(253, 7, cmd, (unsigned long)arg); }
	static long write(const char *file, const std::string &s) { return host_proc_write(file, s.data(), s.size()); }
};

const char *const FWD = "kv7730/jix_mc_fwd_entry", *const DBG = "kv7730/jix_mc_debug",
	   *const PTYPE = "kv7730/jix_mc_port_type";

// Slot 0 of the per-packet hook is the data handler (a frame-less call
// goes to the kernel); other slots are empty or out of range, and so are
// API indexes from 15.  (API operations without their record: the
// fuzzers.)
TEST_F(Iface, HookSlots)
{
	quor_peer_mc mc{};

	quor_mc_debug_level = 0;
	for (u32 id = 0; id <= 7; id++) {
		mc.in_function_id = id, mc.result = 777;
		EXPECT_EQ(id ? -1 : 1, __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc)) << id;
		EXPECT_EQ(id ? 777 : -1, mc.result) << id;
		EXPECT_EQ(id == 0 ? "" : id == 7 ? "mc_data->in_function_id is 7, exceed max number: 7\n"
			  : "Function_id is " + std::to_string(id) + ", NULL funtion hook\n", log_take());
	}
	EXPECT_EQ(-1, api(15, nullptr).hook);
	EXPECT_EQ("mc_data->api_function_id is 15, exceed max number: 15\n", log_take());
}

// The same requests through the API hook and the ioctl: both act alike,
// each answering in its own terms (API 2/-1, ioctl 0/-1 or the mode); a
// request that changes nothing calls nothing.  Unknown commands touch
// nothing; at level 3 commands and API calls are traced.
TEST_F(Iface, ApiAndIoctlRequests)
{
	auto a = entry(1, "239.1.1.1"), a3 = a, b = entry(2, "239.1.1.1");
	u8 p1 = 1, s0 = 0;
	u32 m1 = 1, m4 = 4, out, arg = 0xDEADBEEF;
	a3.vlan_mode = 3;
	const struct { u32 api; unsigned ioc; void *arg; int api_ret; long ioc_ret; u32 out; const char *state; } rows[] = {
		{ 4, QUOR_IGMP_IOC_ADD_ENTRY, &a, 2, 0, 0, "m4 s1 1:-1:0" },
		{ 6, QUOR_IGMP_IOC_UPDATE_ENTRY, &a3, 2, 0, 0, "m4 s1 1:-1:3" },
		{ 4, QUOR_IGMP_IOC_ADD_ENTRY, &b, 2, 0, 0, "m4 s1 1:-1:3 2:-1:0" },
		{ 7, QUOR_IGMP_IOC_CLEAR_BY_PORT, &p1, 2, 0, 0, "m4 s1 2:-1:0" },
		{ 8, QUOR_IGMP_IOC_CLEAR_ALL, nullptr, 2, 0, 0, "m4 s1" },
		{ 6, QUOR_IGMP_IOC_UPDATE_ENTRY, &b, -1, -1, 0, "m4 s1" },
		{ 7, QUOR_IGMP_IOC_CLEAR_BY_PORT, &p1, 2, 0, 0, "m4 s1" },
		{ 4, QUOR_IGMP_IOC_ADD_ENTRY, &b, 2, 0, 0, "m4 s1 2:-1:0" },
		{ 5, QUOR_IGMP_IOC_DEL_ENTRY, &b, 2, 0, 0, "m4 s1" },
		{ 4, QUOR_IGMP_IOC_ADD_ENTRY, &a, 2, 0, 0, "m4 s1 1:-1:0" },
		{ 10, QUOR_IGMP_IOC_SET_FILTER_MODE, &m4, 2, 0, 0, "m4 s1 1:-1:0" },
		{ 10, QUOR_IGMP_IOC_SET_FILTER_MODE, &m1, 2, 0, 0, "m1 s1" },
		{ 11, QUOR_IGMP_IOC_GET_FILTER_MODE, &out, 2, 1, 1, "m1 s1" },
		{ 13, QUOR_IGMP_IOC_GET_SNOOPING, &out, 2, 0, 1, "m1 s1" },
		{ 12, QUOR_IGMP_IOC_SET_SNOOPING, &s0, 2, 0, 0, "m1 s0" },
	};
	for (bool by_api : { true, false }) {
		quor_igmp_set_filterMode(4);
		quor_igmp_set_snooping(1);
		for (auto &r : rows) {
			std::string before = fdb_state(), row = (by_api ? "api " : "ioctl ") + std::to_string(r.api);
			out = 0;
			fake::reset();
			if (!by_api)
				EXPECT_EQ(r.ioc_ret, ioctl(r.ioc, r.arg)) << row;
			else
				EXPECT_EQ(r.api_ret, r.api == 7 ? api_u8(7, p1).result : api(r.api, r.arg).result) << row;
			EXPECT_EQ(r.out, out) << row;
			EXPECT_EQ(r.state, fdb_state()) << row;
			EXPECT_TRUE(before != r.state || fake::calls.empty()) << row;
		}
	}
	quor_mc_debug_level = 3;
	host_log_clear();
	EXPECT_EQ(-1, ioctl(0xC0045401u, &arg));
	EXPECT_EQ(0xDEADBEEFu, arg);
	api(QUOR_MC_API_CLEAR_ALL, nullptr);
	EXPECT_EQ("[quor_igmp_ioctl]cmd = 3221509121\n[quor_jix_muliticast_api_hook]Enter, function_id=8\n"
		  "[quor_mc_hook_entry_clear_all]Enter\n", log_take());
}

// A frame is sent in a fresh buffer with the flags at bit 1 unless the
// port, its device, the size or the allocation says no (the bytes sent,
// and the receive callback's record: fuzz_api).
TEST_F(Iface, TransmitThroughTheApi)
{
	net_device *d = netdev("eth0.3"), *pon = netdev("pon");
	static u8 frame[2048];
	const struct { u8 port, flags; u32 len; int fail, result; net_device *dev; unsigned sent; } rows[] = {
		{ 2, 1, 60, 0, 2, d, 1 },	  { 34, 0, 60, 0, -1, pon, 0 },
		{ 0, 0, 60, 0, -1, pon, 0 },	  { 32, 0, 2048 - 64 + 1, 0, -1, pon, 0 },
		{ 32, 0, 2048 - 64, 0, 2, pon, 1 }, { 32, 0, 60, 1, -1, pon, 1 },
	};

	for (auto &r : rows) {
		host_alloc_fail_nth(r.fail);
		EXPECT_EQ(r.result, api_u8(QUOR_MC_API_XMIT, r.port, r.flags, frame, r.len).result) << (int)r.port;
		EXPECT_EQ(r.sent, host_netdev_tx_count(r.dev)) << (int)r.port;
	}
	EXPECT_EQ(2u, host_netdev_tx_vendor_flags(d, 0) & 2u);
}

// A 32-bit caller on a 64-bit kernel: its get-entries request has a
// 4-byte entries pointer at 0x18 and is 28 bytes long; the other
// commands only need the pointer widened.
TEST_F(Iface, RequestsOfA32BitCaller)
{
	u8 *req = (u8 *)mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
	if (req == MAP_FAILED) GTEST_SKIP() << "no memory below 4 GiB";
	auto a = entry(1, "239.1.1.1"), b = entry(1, "239.1.1.2");
	const u32 req32 = (u32)(uintptr_t)req, recs32 = req32 + 256;
	// Port 1, capacity 8, total_pkts 5, total_bytes 7, the records at 256;
	// back: 2 records, the totals and the pointer kept, nothing past 28.
	u32 in[8] = { 0xeeeeee01, 8, 5, 0xeeeeeeee, 7, 0, recs32, 0xeeeeeeee };
	const u32 want[8] = { 0xeeeeee01, 2, 5, 0xeeeeeeee, 7, 0, recs32, 0xeeeeeeee };

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	memcpy(req, in, sizeof(in));
	EXPECT_EQ(2, host_chrdev_compat_ioctl(253, 0, QUOR_IGMP_IOC_GET_ENTRY, req32));
	EXPECT_EQ(0, memcmp(want, req, sizeof(want)));
	EXPECT_EQ(0, memcmp(req + 256 + 0x10, a.grp_ip.addr, 4));
	EXPECT_EQ(0, memcmp(req + 256 + 80 + 0x10, b.grp_ip.addr, 4));
	EXPECT_EQ(4, host_chrdev_compat_ioctl(253, 0, QUOR_IGMP_IOC_GET_FILTER_MODE, req32 + 64));
	EXPECT_EQ(4, req[64]);
	munmap(req, 4096);
}

const std::string fwd_head = "IGMP Snooping: on\nFilter Mode: 4\n"
	"flow_idx port\tvlan\tgrp_mac\t\t\tv_mode\to_tpid\to_tci\ti_tpid\ti_tci\tgrp_ip/src_ip\n";
const std::string fwd_help = "filter_mode: 0-IP&VID, 1-MAC, 2-IP&SRC_IP, 3-MAC&VID, 4-MAC&IP, 5-MAC&IP&VID\n"
	"vlan_mode: 0-transparent, 1-replace, 2-replace&remark, 3-strip, 4-add, 5-add&remark\n";
const std::string fwd_tail = "\nHelp info:\n" + fwd_help;

// The entries file: exact text, and a long table read in pieces of any
// size gives the text of one walk.
TEST_F(Iface, EntriesFileText)
{
	char grp[32];

	EXPECT_EQ(fwd_head + fwd_tail, host_proc_read_all(FWD, 4096));
	write(FWD, "add ipv4 239.1.1.1 01:00:5e:01:01:01 2 -1 4 8100 64 0 0\n");
	write(FWD, "add ipv6 ff0e:0:0:0:0:102:1:abcd 33:33:00:01:ab:cd 16 100 3 8100 1064 88a8 5 x");
	EXPECT_EQ(fwd_head + "-1\t2\t-1\t01:00:5E:01:01:01\t4\t0x8100\t0x0064\t0x0000\t0x0000\t239.1.1.1/0.0.0.0\n"
		  "-1\t16\t100\t33:33:00:01:AB:CD\t3\t0x8100\t0x1064\t0x88A8\t0x0005\t"
		  "FF0E:0000:0000:0000:0000:0102:0001:ABCD/0000:0000:0000:0000:0000:0000:0000:0000\n" + fwd_tail,
		  host_proc_read_all(FWD, 4096));
	for (int i = 0; i < 300; i++) {
		snprintf(grp, sizeof(grp), "239.%d.%d.%d", i / 100, i % 100, i % 7);
		add_entry((u8)(i % 8), grp);
	}
	std::string whole = host_proc_read_all(FWD, 1 << 20);
	EXPECT_NE(std::string::npos, whole.find("\t239.2.99.5/0.0.0.0\n" + fwd_tail));
	for (size_t chunk : { 13, 4095, 4096 }) {
		unsigned long walks = igmp_fdb_lock.taken_bh;
		EXPECT_EQ(whole, host_proc_read_all(FWD, chunk)) << chunk;
		EXPECT_EQ(1u, igmp_fdb_lock.taken_bh - walks) << "one walk per pass";
	}
}

// Every write form of the three files: what it answers, logs and leaves
// (the refusals of long and unreadable writes: fuzz_proc)
// ("m<mode> s<snooping>", entries, " d<debug level>", " t<types of ports 0..7>").
// Malformed commands print the usage and are consumed.  A port type is
// set through the API: "eth?.N" names index N - 1 (character 3 is not
// looked at); any other name, or one too short, index 0; indexes outside
// the table and types other than 1 and 2 are refused.  A change clears
// that port's entries; setting the stored value clears nothing.
TEST_F(Iface, ProcWrites)
{
	const std::string usage = "Wrong CMD! Usage:\n"
		"1.Add/Del/Update entry: echo add/del/update ipv4/ipv6 ip_addr(x.x.x.x/x:x:x:x:x:x:x:x) mac_addr(x:x:x:x:x:x) port_id vlan_id vlan_mode outer_tpid outer_tci inner_tpid inner_tci > /proc/kv7730/jix_mc_fwd_entry\n"
		"2.Del by port: echo del_by_port port_id > /proc/kv7730/jix_mc_fwd_entry\n"
		"3.Del all: echo del_all > /proc/kv7730/jix_mc_fwd_entry\n"
		"5.Set snooping mode: echo snooping mode[0~1] > /proc/kv7730/jix_mc_fwd_entry\n" + fwd_help;
	const std::string refused = "[quor_igmp_set_filterMode]quor_igmp filter mode should be 0~5\n",
			  pt_usage = "usage: <portName portType>\n", mode_ok = "Filter mode set success!\n";
	const struct { const char *file; std::string text, log; const char *state; } rows[] = {
		// Missing numbers count as zero; the family is compared on four characters.
		{ FWD, "add ipv4xyz 239.1.1.1 01:00:5e:01:01:01", "Add entry success!\n", "m4 s1 0:-1:0" },
		{ FWD, "update ipv4 239.1.1.1 01:00:5e:01:01:01 0 0 5 0 0 0 0", "Update entry success!\n", "m4 s1 0:-1:5" },
		{ FWD, "update ipv4 239.9.9.9 01:00:5e:01:01:01 0 0 5", "Update entry fail!\n", "m4 s1 0:-1:5" },
		{ FWD, "del ipv4 239.7.7.7 01:00:5e:01:01:01 0 0", "Del entry success!\n", "m4 s1 0:-1:5" },
		{ FWD, "del_by_port 0", "Clear entry by port success!\n", "m4 s1" },
		{ PTYPE, "eth0.2 2\n", "portName:eth0.2 portType:2\n", "m4 s1 t02000000" },
		{ FWD, "add ipv4 239.1.1.1 01:00:5e:01:01:01 1", "Add entry success!\n", "m4 s1 1:-1:0" },
		// MAC tokens of the longest length and one longer
		{ FWD, "add ipv4 239.1.1.1 01:00:5e:01:01:01" + std::string(46, 'z') + " 2", "Add entry success!\n",
		  "m4 s1 1:-1:0 2:-1:0" },
		{ FWD, "add ipv4 239.1.1.1 01:00:5e:01:01:01" + std::string(47, 'z') + " 3", usage, "m4 s1 1:-1:0 2:-1:0" },
		{ PTYPE, "eth0.2 2", "portName:eth0.2 portType:2\n", "m4 s1 1:-1:0 2:-1:0 t02000000" },
		{ PTYPE, "eth0.2 0", "portName:eth0.2 portType:0\n", "m4 s1 1:-1:0 2:-1:0 t02000000" },
		{ PTYPE, "eth0.2 3", "portName:eth0.2 portType:3\n", "m4 s1 1:-1:0 2:-1:0 t02000000" },
		{ PTYPE, "ethX.8 1", "portName:ethX.8 portType:1\n", "m4 s1 1:-1:0 2:-1:0 t02000001" },
		{ PTYPE, "abcdefghijklmno 1", "portName:abcdefghijklmno portType:1\n",
		  "m4 s1 1:-1:0 2:-1:0 t12000001" },
		{ PTYPE, "eth 2", "portName:eth portType:2\n", "m4 s1 1:-1:0 2:-1:0 t22000001" },
		{ PTYPE, "eth0.0 1", "portName:eth0.0 portType:1\n", "m4 s1 1:-1:0 2:-1:0 t22000001" },
		{ FWD, "filter_mode -1", refused + mode_ok, "m4 s1 1:-1:0 2:-1:0" },
		{ DBG, "3\n", "", "m4 s1 1:-1:0 2:-1:0 d3" },
		{ DBG, "abc", "usage: <debuglevel>\n", "m4 s1 1:-1:0 2:-1:0 d3" },
		{ PTYPE, "eth0.2 1", "portName:eth0.2 portType:1\n"
		  "[quor_jix_muliticast_api_hook]Enter, function_id=14\n[quor_mc_hook_set_port_type]Enter\n"
		  "[quor_igmp_set_port_type]portName:eth0.2 portType:1\n"
		  "[quor_igmp_del_entry]flow_idx = -1, port_mask = 0x4\n", "m4 s1 2:-1:0 d3 t21000001" },
		{ FWD, "add ipv4 239.1.1.3 01:00:5e:01:01:03 3", "[quor_igmp_add_entry]delete drop entry\n"
		  "[quor_mcst_match_group]set the group ip to acnt table\n[igmp_set_entry_base_acnt]acnt grp_101: "
		  "byte_base=0\n[igmp_set_entry_base_acnt]acnt grp_101: pkt_base=0\nAdd entry success!\n",
		  "m4 s1 2:-1:0 3:-1:0 d3" },
		{ DBG, "0", "", "m4 s1 2:-1:0 3:-1:0 d0" },
		{ FWD, "filter_mode 6", mode_ok, "m4 s1 2:-1:0 3:-1:0 d0" },	// the error is silenced
		{ FWD, "del_all", "Clear all entry success!\n", "m4 s1" },
		{ FWD, "filter_mode 2", mode_ok, "m2 s1" },
		{ FWD, "snooping 256", "IGMP snooping set success!\n", "m2 s0" },	// low byte 0: off
		{ FWD, "snooping 1", "IGMP snooping set success!\n", "m2 s1" },
	};
	for (auto &r : rows) {
		std::string st = fdb_state(), row = std::string(r.file) + " <- " + r.text;
		EXPECT_EQ((long)r.text.size(), write(r.file, r.text)) << row;
		EXPECT_EQ(r.log, log_take()) << row;
		st = fdb_state() + (strstr(r.state, " d") ? " d" + std::to_string(quor_mc_debug_level) : "");
		for (int i = 0; strstr(r.state, " t") && i < 8; i++)
			st += (i ? "" : " t") + std::to_string(PORT_TYPE[i]);
		EXPECT_EQ(r.state, st) << row;
	}
	std::string types = "port type (0:default mode type, 1:hybrid sfu, 2:hybrid hgu)\n";
	for (int i = 0; i < 32; i++)
		types += "port:" + std::to_string(i) + " type:" + std::to_string(PORT_TYPE[i]) + "; \n";
	EXPECT_EQ(types, host_proc_read_all(PTYPE, 13));	// read in pieces
	EXPECT_EQ("0\n", std::string(host_proc_read_all(DBG, 1)));
	quor_mc_debug_level = 1;
	for (const std::string &bad : std::vector<std::string>{ "bogus", "", "add ipv5 1.2.3.4 1:2:3:4:5:6", "add ipv4 1.2.3 1:2:3:4:5:6",
				 "add ipv4 1.2.3.4 1:2:3:4:5", "add ipv6 1:2:3 1:2:3:4:5:6", "del_by_port x",
				 "filter_mode", "snooping on", "addd ipv4 1.2.3.4 1:2:3:4:5:6", std::string(255, 'a'),
				 "add ipv4 1.2.3.4 01:00:5e:00:00:" + std::string(60, '0') + "1 1",
				 "del_by_portXXXXXXX 1" /* a token too long is refused, not cut */ }) {
		EXPECT_EQ((long)bad.size(), write(FWD, bad)) << bad;
		EXPECT_EQ(usage, log_take()) << bad;
	}
	for (const char *bad : { "eth0.2", "", "eth0.2 x", "abcdefghijklmnop 1" }) {
		EXPECT_EQ((long)strlen(bad), write(PTYPE, bad)) << bad;
		EXPECT_EQ(pt_usage, log_take()) << bad;
	}
	EXPECT_EQ("m2 s1", fdb_state());
	EXPECT_EQ(-1, api_u8(QUOR_MC_API_SET_PORT_TYPE, 1).result) << "no name";
}

} // namespace
