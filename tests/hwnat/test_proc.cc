// /proc/kv7730/jix_mc_hwnat_entry: exact text of both lists, and a long
// table served completely over successive reads.
#include "hwnat_test.h"

using namespace frames;

namespace {

const std::string kHeader =
	"index proto wifi_num    mask    vid      src_addr\t\t\t\t\tgrp_addr \n";

TEST_F(Hwnat, ProcListsFlowsAndDropsOfEveryFamily)
{
	EXPECT_EQ(kHeader + "\ndrop list:\n", proc());
	bind(v4("239.1.1.1", { { 0x8100, 0x0064 } }), 0x30005);
	hw::drv.foe = 12;
	bind(v6("ff05::1:3"), 0x1ULL << 40 | 0x2);
	hw::drv.foe = 13;
	bind(v4("239.1.1.3"), 0x1);
	spin_lock_bh(&hwnat_flow_lock);
	list_entry(hwnat_flow_list.prev, hwnat_flow_entry, list)->proto = 7;
	spin_unlock_bh(&hwnat_flow_lock);
	hw::drv.foe = 20;
	drop(v4("239.2.2.2", { { 0x9100, 0x0005 } }));
	hw::drv.foe = 21;
	drop(v6("ff0e::abcd:1"));
	hw::drv.foe = 22;
	drop(v4("239.2.2.3"));
	spin_lock_bh(&hwnat_drop_lock);
	list_entry(hwnat_drop_list.prev, hwnat_flow_entry, list)->proto = 0;
	spin_unlock_bh(&hwnat_drop_lock);

	EXPECT_EQ(kHeader +
		"7\t2\t2\t0x30005\t100\t[10.0.0.1]\t\t\t\t\t[239.1.1.1] \n"
		"12\t16\t0\t0x10000000002\t-1"
		"\t[2001:0db8:0000:0000:0000:0000:0000:0001]"
		"\t[ff05:0000:0000:0000:0000:0000:0001:0003]\n"
		"13\t7\t0\t0x1\t-1unknown igmp_proto\n"
		"\ndrop list:\n"
		"20    [vid=5]    [239.2.2.2]\n"
		"21    [vid=-1]    [ff0e:0000:0000:0000:0000:0000:abcd:0001]\n"
		"22    [vid=-1]    unknown igmp_proto\n",
		proc());
}

TEST_F(Hwnat, LongTableIsServedWholeOverSuccessiveReads)
{
	std::string want = kHeader;
	char line[128];

	for (int i = 1; i <= 150; i++) {
		char grp[32];
		snprintf(grp, sizeof(grp), "239.3.%d.%d", i / 100, i % 100);
		hw::drv.foe = i;
		bind(v4(grp), 0xF0000 | (u64)i);
		snprintf(line, sizeof(line),
			 "%d\t2\t4\t0x%llX\t-1\t[10.0.0.1]\t\t\t\t\t[%s] \n", i,
			 0xF0000ULL | (unsigned long long)i, grp);
		want += line;
	}
	want += "\ndrop list:\n";
	for (int i = 1000; i < 1100; i++) {
		hw::drv.foe = i;
		drop(v6("ff05::1:3"));
		snprintf(line, sizeof(line),
			 "%d    [vid=-1]    [ff05:0000:0000:0000:0000:0000:0001:0003]\n", i);
		want += line;
	}
	ASSERT_GT(want.size(), 3u * JIX_PROC_PAGE_SIZE);

	EXPECT_EQ(want, proc(4096));
	EXPECT_EQ(want, proc(333));	// windows cut lines anywhere

	// One read never hands out more than asked, even near the end.
	std::vector<char> buf(64);
	EXPECT_EQ(64, host_proc_read("kv7730/jix_mc_hwnat_entry", buf.data(), 64,
				     (off_t)want.size() - 100));
	EXPECT_EQ(0, memcmp(buf.data(), want.data() + want.size() - 100, 64));
	EXPECT_EQ(0, host_proc_read("kv7730/jix_mc_hwnat_entry", buf.data(), 64,
				    (off_t)want.size()));
}

} // namespace
