#include "fixture.h"


namespace cv {

std::vector<std::string> hw;
int foe_index = -1;

namespace {

std::string fmt(const char *f, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char *f, ...)
{
	char buf[96];
	va_list ap;

	va_start(ap, f);
	vsnprintf(buf, sizeof(buf), f, ap);
	va_end(ap);
	return buf;
}

int rec_vlan(int idx, unsigned outer, unsigned inner)
{
	EXPECT_EQ(0, host_locks_held()) << "driver hook called under a lock";
	hw.push_back(fmt("vlan(%d,0x%x,0x%x)", idx, outer, inner));
	return 0;
}

int rec_dp(int idx, int dp)
{
	EXPECT_EQ(0, host_locks_held()) << "driver hook called under a lock";
	hw.push_back(fmt("dp(%d,%d)", idx, dp));
	return 0;
}

int foe(sk_buff *) { return foe_index; }
int still_bound(int, unsigned char *, unsigned char *, int) { return 1; }
void no_timer(timer_list *) {}

} // namespace

void CtrlVlan::SetUp()
{
	ModuleTest::SetUp();
	up({ "eth0.1", "eth0.2", "eth0.3", "eth0.4", "ux0", "ux4" });
	for (net_device *d : devs)
		dev[d->name] = d;
	hw.clear();
	foe_index = -1;
	hwnat_skb_to_foe_hook = foe;
	hwnat_is_multicast_entry_hook = still_bound;
	ux_sw_nat_hook_update_vlan = rec_vlan;
	ux_sw_nat_hook_update_dp = rec_dp;
}

void CtrlVlan::TearDown()
{
	host_hwnat_reset();
	ModuleTest::TearDown();
}

void CtrlVlan::flow(s32 index, u32 tag_num, u32 outer, u32 inner)
{
	hwnat_flow_entry *f = hwnat_rec_alloc();

	f->index = index;
	f->tag_num = tag_num;
	f->outer_tag = outer;
	f->inner_tag = inner;
	f->mask = 1;
	spin_lock_bh(&hwnat_flow_lock);
	hwnat_rec_add(&hwnat_flows, f, no_timer);	// freed at module stop
	spin_unlock_bh(&hwnat_flow_lock);
}

} // namespace cv
