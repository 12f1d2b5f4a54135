// ioctl commands of the character device, including faulting pointers.
#include <sys/mman.h>

#include "support/module_fixture.h"

using namespace jt;

namespace {

class Cdev : public ModuleTest {
protected:
	long ioctl(unsigned int cmd, const void *arg)
	{
		return host_chrdev_ioctl(253, 7, cmd, (unsigned long)arg);
	}
};

TEST_F(Cdev, EntryCommands)
{
	auto a = entry(1, "239.1.1.1");

	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &a));
	EXPECT_EQ(1u, fdb_entries().size());
	a.vlan_mode = 3;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_UPDATE_ENTRY, &a));
	EXPECT_EQ(3u, fdb_entries()[0].vlan_mode);
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_DEL_ENTRY, &a));
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_EQ(-1, ioctl(QUOR_IGMP_IOC_UPDATE_ENTRY, &a)); // none matches
}

TEST_F(Cdev, ClearCommands)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.1");
	u8 port = 1;

	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_CLEAR_BY_PORT, &port)); // empty
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_CLEAR_ALL, nullptr));
	EXPECT_TRUE(fake::calls.empty());
	ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &a);
	ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &b);
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_CLEAR_BY_PORT, &port));
	EXPECT_EQ(1u, fdb_entries().size());
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_CLEAR_ALL, nullptr));
	EXPECT_TRUE(fdb_entries().empty());
}

TEST_F(Cdev, FilterModeAndSnoopingCommands)
{
	u32 mode = 0;
	auto a = entry(1, "239.1.1.1");

	EXPECT_EQ(4, ioctl(QUOR_IGMP_IOC_GET_FILTER_MODE, &mode));
	EXPECT_EQ(4u, mode);
	ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &a);
	mode = 6;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_SET_FILTER_MODE, &mode));
	mode = 4;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_SET_FILTER_MODE, &mode));
	EXPECT_EQ(1u, fdb_entries().size());
	mode = 1;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_SET_FILTER_MODE, &mode));
	EXPECT_TRUE(fdb_entries().empty());
	EXPECT_EQ(1, ioctl(QUOR_IGMP_IOC_GET_FILTER_MODE, &mode));

	u8 v = 0xEE;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_GET_SNOOPING, &v));
	EXPECT_EQ(1, v);
	v = 0;
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_SET_SNOOPING, &v));
	EXPECT_EQ(0, ioctl(QUOR_IGMP_IOC_GET_SNOOPING, &v));
	EXPECT_EQ(0, v);
}

TEST_F(Cdev, UnknownCommandsTouchNothing)
{
	u32 arg = 0xDEADBEEF;

	quor_mc_debug_level = 3;
	for (unsigned cmd : { 0u, 11u, 0xC0045401u })
		EXPECT_EQ(-1, ioctl(cmd, &arg));
	EXPECT_EQ(0xDEADBEEFu, arg);
	EXPECT_EQ("[quor_igmp_ioctl]cmd = 0\n[quor_igmp_ioctl]cmd = 11\n"
		  "[quor_igmp_ioctl]cmd = 3221509121\n", log_take());
}

class CdevGet : public Cdev {
protected:
	void SetUp() override
	{
		Cdev::SetUp();
		for (const char *g : { "239.1.1.1", "239.1.1.2", "239.1.1.3" }) {
			auto e = entry(5, g);
			ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &e);
		}
		auto other = entry(6, "239.1.1.1");
		ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &other);
	}

	long get(igmp_entry_get_req &req, igmp_entry_info *recs, s32 cap)
	{
		req = get_req(5, recs, cap);
		return ioctl(QUOR_IGMP_IOC_GET_ENTRY, &req);
	}
};

TEST_F(CdevGet, CapacityZeroSmallerAndLarger)
{
	igmp_entry_info recs[8]{};
	igmp_entry_get_req req;

	memset(recs, 0xAB, sizeof(recs));
	EXPECT_EQ(0, get(req, recs, 0));
	EXPECT_EQ(0, req.entry_num);
	EXPECT_EQ(0xAB, recs[0].port);

	EXPECT_EQ(2, get(req, recs, 2));
	EXPECT_EQ(2, req.entry_num);
	EXPECT_EQ(recs, req.entries); // the caller's pointer is given back
	EXPECT_EQ(3, recs[1].grp_ip.addr[3] + 1);
	EXPECT_EQ(0xAB, recs[2].port);

	EXPECT_EQ(3, get(req, recs, 8));
	EXPECT_EQ(3, req.entry_num);
	EXPECT_EQ(5, recs[2].port);
	EXPECT_EQ(0xAB, recs[3].port);
}

TEST_F(CdevGet, HugeCapacityIsBoundedByTheTable)
{
	igmp_entry_info recs[3];
	igmp_entry_get_req req;

	EXPECT_EQ(3, get(req, recs, 0x7fffffff));
	EXPECT_EQ(0, get(req, recs, -5)); // negative: nothing written
	EXPECT_EQ(0, req.entry_num);
}

// A 32-bit caller on a 64-bit kernel: its get-entries request has a
// 4-byte entries pointer at 0x18 and is 28 bytes long; the other
// commands only need the pointer widened.
TEST_F(Cdev, RequestsOfA32BitCaller)
{
	u8 *low = (u8 *)mmap(nullptr, 4096, PROT_READ | PROT_WRITE,
			     MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
	if (low == MAP_FAILED)
		GTEST_SKIP() << "no memory below 4 GiB";
	auto a = entry(1, "239.1.1.1"), b = entry(1, "239.1.1.2");
	ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &a);
	ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &b);
	u8 *req = low, *recs = low + 256;
	const u32 recs32 = (u32)(uintptr_t)recs, req32 = (u32)(uintptr_t)req;
	const u32 in[] = { 8, 5 };	// capacity, total_pkts
	const u64 total_bytes = 7;
	memset(req, 0xee, 32);
	req[0x00] = 1;
	memcpy(req + 0x04, in, 8);
	memcpy(req + 0x10, &total_bytes, 8);
	memcpy(req + 0x18, &recs32, 4);
	EXPECT_EQ(2, host_chrdev_compat_ioctl(253, 0, QUOR_IGMP_IOC_GET_ENTRY, req32));
	u32 out[2], ptr;
	u64 bytes;
	memcpy(out, req + 0x04, 8);
	memcpy(&bytes, req + 0x10, 8);
	memcpy(&ptr, req + 0x18, 4);
	EXPECT_EQ(2u, out[0]);
	EXPECT_EQ(5u, out[1]);
	EXPECT_EQ(7u, bytes);
	EXPECT_EQ(recs32, ptr);
	EXPECT_EQ(0xee, req[0x1c]) << "nothing written past the 28 bytes";
	EXPECT_EQ(0, memcmp(recs + 0x10, a.grp_ip.addr, 4));
	EXPECT_EQ(0, memcmp(recs + 80 + 0x10, b.grp_ip.addr, 4));
	EXPECT_EQ(4, host_chrdev_compat_ioctl(253, 0, QUOR_IGMP_IOC_GET_FILTER_MODE,
					      req32 + 64));
	EXPECT_EQ(4, req[64]);
	munmap(low, 4096);
}

} // namespace
