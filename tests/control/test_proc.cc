// The proc files: exact texts, every write form, and reads in pieces.
#include "support/module_fixture.h"

using namespace jt;

namespace {

const char *const FWD = "kv7730/jix_mc_fwd_entry";
const char *const DBG = "kv7730/jix_mc_debug";
const char *const PTYPE = "kv7730/jix_mc_port_type";

const std::string fwd_head = "IGMP Snooping: on\nFilter Mode: 4\n"
	"flow_idx port\tvlan\tgrp_mac\t\t\tv_mode\to_tpid\to_tci\ti_tpid\ti_tci\tgrp_ip/src_ip\n";
const std::string fwd_tail = "\nHelp info:\n"
	"filter_mode: 0-IP&VID, 1-MAC, 2-IP&SRC_IP, 3-MAC&VID, 4-MAC&IP, 5-MAC&IP&VID\n"
	"vlan_mode: 0-transparent, 1-replace, 2-replace&remark, 3-strip, 4-add, 5-add&remark\n";
const std::string usage = "Wrong CMD! Usage:\n"
	"1.Add/Del/Update entry: echo add/del/update ipv4/ipv6 ip_addr(x.x.x.x/x:x:x:x:x:x:x:x) mac_addr(x:x:x:x:x:x) port_id vlan_id vlan_mode outer_tpid outer_tci inner_tpid inner_tci > /proc/kv7730/jix_mc_fwd_entry\n"
	"2.Del by port: echo del_by_port port_id > /proc/kv7730/jix_mc_fwd_entry\n"
	"3.Del all: echo del_all > /proc/kv7730/jix_mc_fwd_entry\n"
	"5.Set snooping mode: echo snooping mode[0~1] > /proc/kv7730/jix_mc_fwd_entry\n"
	"filter_mode: 0-IP&VID, 1-MAC, 2-IP&SRC_IP, 3-MAC&VID, 4-MAC&IP, 5-MAC&IP&VID\n"
	"vlan_mode: 0-transparent, 1-replace, 2-replace&remark, 3-strip, 4-add, 5-add&remark\n";

class Proc : public ModuleTest {
protected:
	long write(const char *file, const std::string &s)
	{
		return host_proc_write(file, s.data(), s.size());
	}
	std::string read(const char *file, size_t chunk = 4096)
	{
		return host_proc_read_all(file, chunk);
	}
};

TEST_F(Proc, EntriesTextIpv4AndIpv6)
{
	EXPECT_EQ(fwd_head + fwd_tail, read(FWD));
	std::string add4 = "add ipv4 239.1.1.1 01:00:5e:01:01:01 2 -1 4 8100 64 0 0\n";
	EXPECT_EQ((long)add4.size(), write(FWD, add4));
	host_log_clear();
	EXPECT_EQ(76, write(FWD, "add ipv6 ff0e:0:0:0:0:0:1:abcd 33:33:00:01:ab:cd 16 100 3 8100 1064 88a8 5 x"));
	EXPECT_EQ("Add entry success!\n", log_take());
	EXPECT_EQ(fwd_head +
		  "-1\t2\t-1\t01:00:5E:01:01:01\t4\t0x8100\t0x0064\t0x0000\t0x0000\t239.1.1.1/0.0.0.0\n"
		  "-1\t16\t100\t33:33:00:01:AB:CD\t3\t0x8100\t0x1064\t0x88A8\t0x0005\t"
		  "FF0E:0000:0000:0000:0000:0000:0001:ABCD/0000:0000:0000:0000:0000:0000:0000:0000\n" +
		  fwd_tail, read(FWD));
}

TEST_F(Proc, WriteForms)
{
	// Missing numbers count as zero; the family token is compared on four characters.
	write(FWD, "add ipv4xyz 239.1.1.1 01:00:5e:01:01:01");
	auto v = fdb_entries();
	ASSERT_EQ(1u, v.size());
	EXPECT_EQ(0, v[0].port);
	EXPECT_EQ(0, v[0].vlan);
	EXPECT_EQ("Add entry success!\n", log_take());
	write(FWD, "update ipv4 239.1.1.1 01:00:5e:01:01:01 0 0 5 0 0 0 0");
	EXPECT_EQ("Update entry success!\n", log_take());
	EXPECT_EQ(5u, fdb_entries()[0].vlan_mode);
	write(FWD, "update ipv4 239.9.9.9 01:00:5e:01:01:01 0 0 5 0 0 0 0");
	EXPECT_EQ("Update entry fail!\n", log_take());
	write(FWD, "del ipv4 239.7.7.7 01:00:5e:01:01:01 0 0");
	EXPECT_EQ("Del entry success!\n", log_take()); // deleting nothing succeeds
	write(FWD, "del_by_port 0");
	EXPECT_EQ("Clear entry by port success!\n", log_take());
	EXPECT_TRUE(fdb_entries().empty());
	write(FWD, "del_by_port 0"); // empty database: success, nothing done
	EXPECT_EQ("Clear entry by port success!\n", log_take());
	write(FWD, "del_all");
	EXPECT_EQ("Clear all entry success!\n", log_take());
	write(FWD, "filter_mode 7");
	EXPECT_EQ("[quor_igmp_set_filterMode]quor_igmp filter mode should be 0~5\n"
		  "Filter mode set success!\n", log_take());
	write(FWD, "filter_mode -1");
	EXPECT_EQ(4u, igmp_filter_mode);
	log_take();
	write(FWD, "filter_mode 2");
	EXPECT_EQ(2u, igmp_filter_mode);
	write(FWD, "snooping 256"); // low byte 0: off
	EXPECT_EQ(0, quor_igmp_get_snooping());
	EXPECT_EQ("Filter mode set success!\nIGMP snooping set success!\n", log_take());
	EXPECT_EQ(std::string("IGMP Snooping: off\nFilter Mode: 2\n"),
		  read(FWD).substr(0, 34));
}

TEST_F(Proc, MalformedWritesPrintUsageAndConsume)
{
	for (const char *bad : { "bogus", "", "add ipv5 1.2.3.4 1:2:3:4:5:6",
				 "add ipv4 1.2.3 1:2:3:4:5:6", "add ipv4 1.2.3.4 1:2:3:4:5",
				 "add ipv6 1:2:3 1:2:3:4:5:6", "del_by_port x", "filter_mode",
				 "snooping on", "addd ipv4 1.2.3.4 1:2:3:4:5:6",
				 "add ipv4 1.2.3.4 01:00:5e:00:00:00000000000000000000000000000000000000000000000000000001 1" }) {
		EXPECT_EQ((long)strlen(bad), write(FWD, bad)) << bad;
		EXPECT_EQ(usage, log_take()) << bad;
	}
	// A token longer than its buffer is refused, not cut.
	EXPECT_EQ(20, write(FWD, "del_by_portXXXXXXX 1"));
	EXPECT_EQ(usage, log_take());
	EXPECT_TRUE(fdb_entries().empty());
}

TEST_F(Proc, OversizedAndFaultingWrites)
{
	std::string big(256, 'a');
	EXPECT_EQ(-EINVAL, write(FWD, big));
	EXPECT_EQ(255, write(FWD, big.substr(0, 255)));
	log_take();
	static char buf[16] = "del_all";
	host_uaccess_add_fault(buf + 3, 1);
	EXPECT_EQ(-EFAULT, host_proc_write(FWD, buf, 7));
	EXPECT_EQ(-EFAULT, host_proc_write(DBG, buf, 7));
	EXPECT_EQ(-EFAULT, host_proc_write(PTYPE, buf, 7));
	EXPECT_EQ("", log_take());
	EXPECT_EQ(-EINVAL, write(DBG, std::string(32, '1')));
	EXPECT_EQ(-EINVAL, write(PTYPE, std::string(64, '1')));
	EXPECT_EQ(1u, quor_mc_debug_level);
}

TEST_F(Proc, LongListingReadInPiecesMatchesOneRead)
{
	char grp[32];
	for (int i = 0; i < 300; i++) {
		snprintf(grp, sizeof(grp), "239.%d.%d.%d", i / 100, i % 100, i % 7);
		auto e = entry((u8)(i % 8), grp);
		quor_igmp_add_entry(&e);
	}
	std::string whole = read(FWD, 1 << 20);
	EXPECT_GT(whole.size(), 20000u); // far beyond one page
	for (size_t chunk : { 13, 100, 4095, 4096 }) {
		unsigned long walks = igmp_fdb_lock.taken_bh;
		EXPECT_EQ(whole, read(FWD, chunk)) << chunk;
		EXPECT_EQ(1u, igmp_fdb_lock.taken_bh - walks) << "one walk per pass";
	}
	EXPECT_NE(std::string::npos, whole.find("\t239.2.99.5/0.0.0.0\n" + fwd_tail));
}

TEST_F(Proc, DebugLevelFile)
{
	EXPECT_EQ("1\n", read(DBG));
	EXPECT_EQ(2, write(DBG, "3\n"));
	EXPECT_EQ(3u, quor_mc_debug_level);
	EXPECT_EQ("3\n", read(DBG, 1));
	EXPECT_EQ(3, write(DBG, "abc"));
	EXPECT_EQ("usage: <debuglevel>\n", log_take());
	EXPECT_EQ(3u, quor_mc_debug_level);
	write(DBG, "0");
	write(FWD, "filter_mode 9"); // level-1 message silenced
	EXPECT_EQ("Filter mode set success!\n", log_take());
}

TEST_F(Proc, PortTypeFile)
{
	std::string want = "port type (0:default mode type, 1:hybrid sfu, 2:hybrid hgu)\n";
	for (int i = 0; i < 32; i++)
		want += "port:" + std::to_string(i) + " type:" + std::to_string(i == 1 ? 2 : 0) + "; \n";
	EXPECT_EQ(60u, want.find("port:0 "));
	EXPECT_EQ(9, write(PTYPE, "eth0.2 2\n"));
	EXPECT_EQ("portName:eth0.2 portType:2\n", log_take());
	EXPECT_EQ(want, read(PTYPE));
	EXPECT_EQ(want, read(PTYPE, 13));
	write(PTYPE, "eth0.2 0"); // echoed, refused by the API
	EXPECT_EQ("portName:eth0.2 portType:0\n", log_take());
	EXPECT_EQ(2u, PORT_TYPE[1]);
	for (const char *bad : { "eth0.2", "", "eth0.2 x", "abcdefghijklmnopq 1" }) {
		EXPECT_EQ((long)strlen(bad), write(PTYPE, bad));
		EXPECT_EQ("usage: <portName portType>\n", log_take()) << bad;
	}
	EXPECT_EQ(17, write(PTYPE, "abcdefghijklmno 1")); // 15 characters fit
	EXPECT_EQ("portName:abcdefghijklmno portType:1\n", log_take());
}

} // namespace
