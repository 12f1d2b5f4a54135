// The module started once on the host emulation for all benchmarks: eight
// LAN devices (eth0.1 .. eth0.8, up, counting and freeing what they are
// given), a forwarding database filled to a requested size, and frames.
#pragma once

#include "support/frames.h"	// first: <arpa/inet.h> before plat_os.h

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

extern "C" {
#include "jix_mc.h"
#include "fdb/fdb.h"
#include "datapath/datapath.h"
#include "hwnat/hwnat.h"
#include "acnt/acnt.h"
#include "host_ctl.h"
}

namespace bench {

constexpr unsigned kPayload = 1316;		// 7 MPEG-TS packets
constexpr u64 kMaskA = 0x55;			// ports 0, 2, 4, 6
constexpr u64 kMaskB = 0xAA;			// ports 1, 3, 5, 7
extern const char *const kGroupA;		// the benchmarked programme
extern const char *const kGroupB;		// the second thread's programme
extern const char *const kGroupC;		// mixed: 2 ports change tags
constexpr unsigned kTargetEntries = 8;		// both programmes, 4 ports each

void env_start();
void env_stop();
std::vector<net_device *> &lan_devs();

// The database holds exactly @n entries under filter mode @mode: the two
// programmes above (oldest) and n - 8 others, 4 ports each.  Reuses what
// is there when it can only grow.
void table_set(u32 mode, unsigned n);
void table_clear();

// An entry request for programme @g (232.x.y.z, its MAC) on @port.
igmp_entry_info filler_req(unsigned g, u8 port);
igmp_entry_info group_req(const char *grp, u8 port);

// API hook calls as the control plane makes them; return mc.result, or
// the dispatcher's -1 when no operation ran.
int api_ptr(u32 op, void *arg);
int api_frame(u32 op, sk_buff *skb);
// The per-packet hook as the driver calls it (softirq: bottom halves off).
int packet_hook(sk_buff *skb);

// An untagged IPv4 UDP frame to @grp, as the driver offers it (data
// pointer 14 bytes past the MAC header).
frames::Skb iptv_skb(const char *grp);

// Flow index the fake hardware driver gives every frame; -1 cycles over
// 0 .. cycle-1 instead.
void foe_fixed(int idx);
void foe_cycle(int cycle);

} // namespace bench
