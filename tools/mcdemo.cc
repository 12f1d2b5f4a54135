// mcdemo: the module started on the host emulation, driven as the
// snooping control plane drives it: entries added through the control
// API hook, then the forwarding database shown as an operator sees it.
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" {
#include "jix_mc.h"
#include "host_ctl.h"
}

namespace {

int api(u32 id, void *param)
{
	quor_peer_mc mc{};
	mc.api_function_id = id;
	mc.param.ptr = param;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	return mc.result;
}

igmp_entry_info join(u8 port, const char *grp, u32 vlan_mode, u16 tci)
{
	igmp_entry_info e{};
	e.port = port;
	e.vlan = -1;
	inet_pton(AF_INET, grp, e.grp_ip.addr);
	const u8 mac[6] = { 0x01, 0x00, 0x5e, (u8)(e.grp_ip.addr[1] & 0x7f),
			    e.grp_ip.addr[2], e.grp_ip.addr[3] };
	memcpy(e.grp_mac, mac, 6);
	e.vlan_mode = vlan_mode;
	e.outer_tpid = vlan_mode ? 0x8100 : 0;
	e.outer_tci = tci;
	return e;
}

void show(const char *name)
{
	printf("---- /proc/%s\n%s", name, host_proc_read_all(name, 512));
}

} // namespace

int main()
{
	std::vector<net_device *> devs;
	for (const char *n : { "pon", "eth0.1", "eth0.2", "eth0.3", "eth0.4", "ux0" }) {
		devs.push_back(host_netdev_alloc(n));
		host_netdev_register(devs.back());
	}
	if (init_module()) {
		fprintf(stderr, "mcdemo: module start failed\n");
		return 1;
	}
	printf("%s", host_log_text());
	host_log_clear();

	igmp_entry_info joins[] = {
		join(0, "239.1.1.1", JIX_VLAN_TRANSPARENT, 0),
		join(1, "239.1.1.1", JIX_VLAN_STRIP, 0),
		join(2, "239.1.1.1", JIX_VLAN_ADD, 0x0064),
		join(16, "239.1.1.2", JIX_VLAN_TRANSPARENT, 0),
	};
	for (auto &j : joins) {
		char grp[INET_ADDRSTRLEN];
		inet_ntop(AF_INET, j.grp_ip.addr, grp, sizeof(grp));
		printf("API add %-10s port %2d vlan_mode %u -> %d\n", grp, j.port,
		       j.vlan_mode, api(QUOR_MC_API_ENTRY_ADD, &j));
	}
	show("kv7730/jix_mc_fwd_entry");
	show("kv7730/jix_mc_acnt_mapping");

	igmp_entry_info recs[8]{};
	igmp_entry_get_req req{};
	req.port_id = 1;
	req.entry_num = 8;
	req.entries = recs;
	api(QUOR_MC_API_ENTRY_GET, &req);
	printf("---- API get-entries, port 1: %d entr%s, %u packets, %llu bytes\n",
	       req.entry_num, req.entry_num == 1 ? "y" : "ies", req.total_pkts,
	       (unsigned long long)req.total_bytes);

	cleanup_module();
	printf("%s", host_log_text());
	for (auto *d : devs) {
		host_netdev_unregister(d);
		host_netdev_free(d);
	}
	return host_alloc_live() == 0 && host_warn_count() == 0 ? 0 : 2;
}
