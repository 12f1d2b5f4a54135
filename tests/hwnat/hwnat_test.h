// The module with its real offload code, and the hardware forwarding
// driver played by the test: each pointer the driver exports answers as
// the test says and records its calls.
#pragma once

#include "support/frames.h"
#include "support/module_fixture.h"

extern "C" {
#include "datapath/datapath.h"
#include "hwnat/hwnat.h"
#include "hwnat/hwnat_flow.h"
}

namespace hw {

struct Driver {
	int foe = 7;		// hwnat_skb_to_foe_hook
	int is_mc = 1;		// hwnat_is_multicast_entry_hook
	int is_drop = 1;	// hwnat_is_drop_entry_hook
	int drop_packet = 1;	// ux_sw_nat_hook_drop_packet
	std::vector<std::string> calls;	// "set_info(7,0x2)", "delete(7)", ...
	int under_fdb_lock = 0;	// calls made while igmp_fdb_lock was held
};

extern Driver drv;

// Every driver pointer set to the test's stand-ins.
void install();
bool called(const std::string &c);
// Calls of one kind ("delete(" ...), in order.
std::vector<std::string> calls_of(const std::string &prefix);

} // namespace hw

class Hwnat : public jt::ModuleTest {
protected:
	void SetUp() override;
	void TearDown() override;

	// Copies of the records of a list, head to tail, read under its lock.
	static std::vector<hwnat_flow_entry> flows();
	static std::vector<hwnat_flow_entry> drops();
	// The data handler's binding step for @frame forwarded to @mask, in
	// softirq; returns the frame's forwarding control word.  With
	// @fail_alloc the step's own allocation fails.
	static u32 bind(const frames::Bytes &frame, u64 mask, bool fail_alloc = false);
	// The handler's drop step for a frame without members.
	static int drop(const frames::Bytes &frame, bool fail_alloc = false);
	// Member ports as the handler computes them (entries learn the index).
	static u64 members(const frames::Bytes &frame);
	static std::string proc(size_t chunk = 4096);
	static std::string hex16(const u8 *a);
};

// An IPv4 UDP data frame from 10.0.0.1 to @group.
frames::Bytes v4(const char *group, const std::vector<frames::Tag> &tags = {});
frames::Bytes v6(const char *group, const std::vector<frames::Tag> &tags = {});

inline std::vector<std::string> operator+(std::vector<std::string> a,
					  const std::vector<std::string> &b)
{
	a.insert(a.end(), b.begin(), b.end());
	return a;
}
