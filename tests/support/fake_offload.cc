// Recording stand-ins for the hardware-flow, drop and VLAN code, linked
// instead of the real subsystems so that tests see exactly which calls the
// forwarding database makes, with which arguments, and under which locks.
#include "support/fake_offload.h"

#include <cstdio>

extern "C" {
#include "hwnat/hwnat.h"
#include "vlan/vlan.h"
#include "fdb/fdb.h"
#include "host_ctl.h"
}

static void record(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
static void record(const char *fmt, ...)
{
	char buf[128];
	va_list ap;

	va_start(ap, fmt);
	vsnprintf(buf, sizeof(buf), fmt, ap);
	va_end(ap);
	fake::calls.emplace_back(buf);
	fake::calls_under_fdb_lock += host_lock_held_by_me(&igmp_fdb_lock);
}

using ull = unsigned long long;

extern "C" {

void jix_init_hwnat_list(void) { record("init_hwnat"); }
void jix_hwnat_release_all(void) { record("release_all"); }
void quor_update_hwnat_entry(u32 idx, u64 mask) { record("update_hwnat(%d,0x%llx)", (int)idx, (ull)mask); }
void jix_xpon_hwnat_del_flow_by_index(s32 idx) { record("del_flow(%d)", idx); }
int jix_update_iptv_table_entry(s32 idx) { record("update_iptv(%d)", idx); return 0; }
int jix_remove_iptv_table_entry(void) { record("remove_iptv"); return 0; }
void jix_xpon_hwnat_clear_flows(void) { record("clear_flows"); }
int jix_xpon_hwnat_learn_flow(struct sk_buff *) { return 0; }
void jix_xpon_hwnat_add_flow(struct sk_buff *, const struct jix_pkt *, u64 mask) { record("add_flow(0x%llx)", (ull)mask); }
struct hwnat_flow_entry *jix_xpon_hwnat_find_speed_entry(int) { return nullptr; }
int jix_mc_hwnat_flow_read_proc(char *page, char **start, off_t off, int count, int *eof, void *)
{
	return jix_proc_read_finish(page, start, off, count, eof, 0);
}
int jix_add_iptv_table_entry(const struct igmp_entry_info *req)
{
	const u8 *a = req->grp_ip.addr;
	record("add_iptv(%d.%d.%d.%d)", a[0], a[1], a[2], a[3]);
	return 0;
}
void jix_xpon_hwnat_clear_all_drop(void) { record("clear_drop"); }
int jix_xpon_hwnat_drop_multicast(struct sk_buff *, ull mask) { record("drop(0x%llx)", mask); return fake::drop_result; }
int jix_xpon_hwnat_drop_pkt(struct sk_buff *skb, const struct jix_pkt *) { return jix_xpon_hwnat_drop_multicast(skb, 0); }
void igmp_entry_check_vlan_mode(const struct igmp_entry_info *, u64 mask, u32 idx)
{
	record("check_vlan(%d,0x%llx)", (int)idx, (ull)mask);
}

// API operations 2 and 3 stand in for the VLAN code too; operation 3
// keeps its contract of consuming the frame.
int quor_mc_hook_vlan_isOneToN(struct mc_data *mc)
{
	record("vlan_is_one_to_n");
	return mc->skb ? QUOR_MC_API_OK : QUOR_MC_API_FAIL;
}

int quor_mc_hook_vlan_handle(struct mc_data *mc)
{
	record("vlan_handle");
	if (!mc->skb) return QUOR_MC_API_FAIL;
	kfree_skb(mc->skb);
	return QUOR_MC_API_OK;
}

} // extern "C"
