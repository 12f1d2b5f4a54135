// SPDX-License-Identifier: GPL-2.0
/*
 * jix_bridge_bench: times, in one boot, the same multicast frames handed
 * to the multicast module's per-packet hook and to a Linux bridge whose
 * MDB holds the same four member ports.  bench-init.sh builds the scene
 * before loading it:
 *
 *   in0            the port the frames arrive on (a bridge port of br0)
 *   eth0.1..eth0.4 the members: LAN ports 0..3 of the module, and bridge
 *                  ports with a permanent MDB entry for 239.1.1.1
 *   eth0.5         LAN port 4 and a bridge port without membership
 *
 * all of them dummy devices, so both paths pay the same transmit.  At
 * load it adds the module's entries for ports 0..3 through the control
 * API; then, in each of rounds rounds, it sends warmup untimed frames
 * along each path alone and checks them at the ports, then frames timed
 * frames along both paths, batch by batch in turn (the first path
 * alternating), so that both see the same machine:
 *
 *   hook:   the driver's call of the per-packet hook (type 36, sub-type
 *           0) with the frame in the argument record; the driver frees
 *           the frame that the module reports handled
 *   bridge: netif_receive_skb on in0: the kernel's receive core, the
 *           bridge's rx handler, snooping, the MDB lookup and flood
 *
 * Each frame is a fresh receive buffer as a driver fills it
 * (netdev_alloc_skb_ip_align, eth_type_trans); the buffers of a batch
 * are made outside the timed part, and each batch is timed with bottom
 * halves disabled, as in a driver's softirq.  Every member must have sent
 * every frame, eth0.5 none, and br0 must have taken none for itself, or
 * loading fails.  The figures go to the kernel log:
 *
 *   jix_bridge_bench: round <r>: hook <x> ns/frame, bridge <y> ns/frame, ratio <z>
 *   jix_bridge_bench: hook: <x> ns/frame, bridge: <y> ns/frame, ratio hook/bridge: <z>
 *
 * The module does all its work at load and stays loaded, doing nothing.
 */
#include <linux/etherdevice.h>
#include <linux/ip.h>
#include <linux/kernel.h>
#include <linux/ktime.h>
#include <linux/math64.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/skbuff.h>
#include <linux/udp.h>
#include <net/ip.h>

#include "quor_vendor.h"
#include "quor_peer.h"

static uint frames = 100000;
module_param(frames, uint, 0444);
MODULE_PARM_DESC(frames, "timed frames per path and round");
static uint warmup = 2000;
module_param(warmup, uint, 0444);
static uint rounds = 3;
module_param(rounds, uint, 0444);
static int flow_index = 1;
module_param(flow_index, int, 0444);
MODULE_PARM_DESC(flow_index, "the frame's hardware flow index (negative: none)");

#define BENCH_PORTS	5	/* eth0.1..eth0.5 */
#define BENCH_MEMBERS	4	/* eth0.1..eth0.4 */
#define BENCH_PAYLOAD	1316	/* seven MPEG-TS packets */
#define BENCH_IP_LEN	(sizeof(struct iphdr) + sizeof(struct udphdr) + BENCH_PAYLOAD)
#define BENCH_LEN	(ETH_HLEN + BENCH_IP_LEN)
#define BENCH_BATCH	64

static const __be32 bench_grp = cpu_to_be32(0xef010101);	/* 239.1.1.1 */
static u8 bench_frame[BENCH_LEN] __aligned(4);

struct bench_devs {
	struct net_device *in;
	struct net_device *br;
	struct net_device *port[BENCH_PORTS];
};

struct bench_counts {
	u64 tx[BENCH_PORTS];
	u64 br_rx;
};

/* One path: hands one prepared frame over; false when it was refused. */
struct bench_path {
	const char *name;
	bool (*send)(struct sk_buff *skb);
};

/* The frame a set-top box receives: UDP to 239.1.1.1:5001. */
static void bench_build_frame(void)
{
	static const u8 src[ETH_ALEN] = { 0x02, 0x4a, 0x49, 0x58, 0x42, 0x01 };
	struct ethhdr *eth = (struct ethhdr *)bench_frame;
	struct iphdr *ip = (struct iphdr *)(eth + 1);
	struct udphdr *udp = (struct udphdr *)(ip + 1);
	u8 *payload = (u8 *)(udp + 1);
	unsigned int i;

	ip_eth_mc_map(bench_grp, (char *)eth->h_dest);
	ether_addr_copy(eth->h_source, src);
	eth->h_proto = htons(ETH_P_IP);
	ip->version = 4;
	ip->ihl = 5;
	ip->tot_len = htons(BENCH_IP_LEN);
	ip->ttl = 16;
	ip->protocol = IPPROTO_UDP;
	ip->saddr = htonl(0x0a000001);
	ip->daddr = bench_grp;
	ip->check = ip_fast_csum(ip, ip->ihl);
	udp->source = htons(5000);
	udp->dest = htons(5001);
	udp->len = htons(sizeof(*udp) + BENCH_PAYLOAD);
	for (i = 0; i < BENCH_PAYLOAD; i++)
		payload[i] = (u8)i;
}

/* The driver's part: a receive buffer filled and typed on @in. */
static struct sk_buff *bench_rx_skb(struct net_device *in)
{
	struct sk_buff *skb = netdev_alloc_skb_ip_align(in, BENCH_LEN);

	if (!skb)
		return NULL;
	skb_put_data(skb, bench_frame, BENCH_LEN);
	skb->protocol = eth_type_trans(skb, in);
	skb_reset_network_header(skb);
	skb_reset_mac_len(skb);
	return skb;
}

static bool bench_hook_send(struct sk_buff *skb)
{
	struct quor_peer_mc mc = {};

	mc.in_function_id = 0;
	mc.skb = skb;
	mc.result = -1;
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL,
			&mc) < 0 || mc.result != 0) {
		kfree_skb(skb);
		return false;
	}
	/* Handled: the module sent copies, the frame is the driver's. */
	consume_skb(skb);
	return true;
}

static bool bench_bridge_send(struct sk_buff *skb)
{
	return netif_receive_skb(skb) == NET_RX_SUCCESS;
}

/* Index 0 and bit 0: the hook; index 1 and bit 1: the bridge. */
static const struct bench_path bench_paths[2] = {
	{ "hook", bench_hook_send },
	{ "bridge", bench_bridge_send },
};

/* The flow index the forwarding engine gives every frame. */
static int bench_foe(struct sk_buff *skb)
{
	return flow_index;
}

/*
 * One batch of @k frames along @path: the buffers are made first, then
 * handed over with bottom halves disabled; only the hand-overs are timed,
 * and added to *@ns.
 */
static int bench_batch(const struct bench_path *path, struct net_device *in,
		       unsigned int k, u64 *ns)
{
	struct sk_buff *batch[BENCH_BATCH];
	unsigned int i, refused = 0;
	u64 t0;

	for (i = 0; i < k; i++) {
		batch[i] = bench_rx_skb(in);
		if (!batch[i])
			goto nomem;
	}
	local_bh_disable();
	t0 = ktime_get_ns();
	for (i = 0; i < k; i++)
		refused += !path->send(batch[i]);
	*ns += ktime_get_ns() - t0;
	local_bh_enable();
	if (!refused)
		return 0;
	pr_err("jix_bridge_bench: %s refused %u frames\n", path->name, refused);
	return -EIO;
nomem:
	while (i--)
		kfree_skb(batch[i]);
	return -ENOMEM;
}

/*
 * @n frames along each path of @mask (bit 0 hook, bit 1 bridge), batch by
 * batch in turn, the first path alternating, so that both see the same
 * machine; the time of each path is added to @ns.
 */
static int bench_run(struct net_device *in, unsigned int mask, unsigned int n,
		     u64 ns[2])
{
	unsigned int i, k, p, turn = 0;
	int ret;

	for (; n; n -= k, turn ^= 1) {
		k = min_t(unsigned int, n, BENCH_BATCH);
		for (i = 0; i < 2; i++) {
			p = i ^ turn;
			if (!(mask & BIT(p)))
				continue;
			ret = bench_batch(&bench_paths[p], in, k, &ns[p]);
			if (ret)
				return ret;
		}
		cond_resched();
	}
	return 0;
}

static void bench_read_counts(const struct bench_devs *d, struct bench_counts *c)
{
	struct rtnl_link_stats64 s;
	unsigned int p;

	for (p = 0; p < BENCH_PORTS; p++)
		c->tx[p] = dev_get_stats(d->port[p], &s)->tx_packets;
	c->br_rx = dev_get_stats(d->br, &s)->rx_packets;
}

/* Every member sent @sent frames, the other port none, br0 kept none. */
static int bench_check(const char *what, const struct bench_devs *d,
		       const struct bench_counts *a, const struct bench_counts *b,
		       u64 sent)
{
	unsigned int p;
	u64 want;
	int ret = 0;

	for (p = 0; p < BENCH_PORTS; p++) {
		want = p < BENCH_MEMBERS ? sent : 0;
		if (b->tx[p] - a->tx[p] == want)
			continue;
		pr_err("jix_bridge_bench: %s: %s sent %llu frames, not %llu\n",
		       what, d->port[p]->name, b->tx[p] - a->tx[p], want);
		ret = -EIO;
	}
	if (b->br_rx != a->br_rx) {
		pr_err("jix_bridge_bench: %s: %s took %llu frames itself\n",
		       what, d->br->name, b->br_rx - a->br_rx);
		ret = -EIO;
	}
	return ret;
}

/*
 * One round: the warm-up frames along each path alone, each checked at
 * the ports on its own, then the timed frames along both paths in turn.
 */
static int bench_round(const struct bench_devs *d, u64 ns[2])
{
	u64 ignored[2] = {};
	struct bench_counts a, b;
	unsigned int p;
	int ret;

	for (p = 0; p < 2; p++) {
		bench_read_counts(d, &a);
		ret = bench_run(d->in, BIT(p), warmup, ignored);
		bench_read_counts(d, &b);
		if (!ret)
			ret = bench_check(bench_paths[p].name, d, &a, &b, warmup);
		if (ret)
			return ret;
	}
	bench_read_counts(d, &a);
	ret = bench_run(d->in, BIT(0) | BIT(1), frames, ns);
	bench_read_counts(d, &b);
	return ret ?: bench_check("hook and bridge", d, &a, &b, 2ULL * frames);
}

/* The control API call that adds the entry of 239.1.1.1 on @port. */
static int bench_add_entry(u8 port)
{
	struct quor_peer_entry e = {};
	struct quor_peer_mc mc = {};

	e.port = port;
	e.vlan = -1;
	memcpy(e.grp_ip.addr, &bench_grp, 4);
	ip_eth_mc_map(bench_grp, (char *)e.grp_mac);
	mc.api_function_id = QUOR_PEER_OP_ENTRY_ADD;
	mc.param.ptr = &e;
	mc.result = -1;
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc) != 1 ||
	    mc.result != 2) {
		pr_err("jix_bridge_bench: adding port %u failed (%d)\n", port,
		       mc.result);
		return -EIO;
	}
	return 0;
}

static void bench_clear_entries(void)
{
	struct quor_peer_mc mc = {};

	mc.api_function_id = QUOR_PEER_OP_CLEAR_ALL;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
}

/* Tenths of a nanosecond per frame, and hundredths of the ratio. */
struct bench_fig {
	u64 hook;
	u64 bridge;
	u64 ratio;
};

static void bench_figures(u64 hook_ns, u64 bridge_ns, u64 n,
			  struct bench_fig *f)
{
	f->hook = div64_u64(hook_ns * 10, n);
	f->bridge = div64_u64(bridge_ns * 10, n);
	f->ratio = bridge_ns ? div64_u64(hook_ns * 100, bridge_ns) : 0;
}

static int bench_rounds(const struct bench_devs *d)
{
	u64 total[2] = {};
	struct bench_fig f;
	unsigned int r;
	int ret;

	for (r = 1; r <= rounds; r++) {
		u64 ns[2] = {};

		ret = bench_round(d, ns);
		if (ret)
			return ret;
		bench_figures(ns[0], ns[1], frames, &f);
		pr_info("jix_bridge_bench: round %u: hook %llu.%llu ns/frame, bridge %llu.%llu ns/frame, ratio %llu.%02llu\n",
			r, f.hook / 10, f.hook % 10, f.bridge / 10, f.bridge % 10,
			f.ratio / 100, f.ratio % 100);
		total[0] += ns[0];
		total[1] += ns[1];
	}
	bench_figures(total[0], total[1], (u64)frames * rounds, &f);
	pr_info("jix_bridge_bench: hook: %llu.%llu ns/frame, bridge: %llu.%llu ns/frame, ratio hook/bridge: %llu.%02llu\n",
		f.hook / 10, f.hook % 10, f.bridge / 10, f.bridge % 10,
		f.ratio / 100, f.ratio % 100);
	return 0;
}

static void bench_put_devs(struct bench_devs *d)
{
	unsigned int p;

	for (p = 0; p < BENCH_PORTS; p++)
		if (d->port[p])
			dev_put(d->port[p]);
	if (d->br)
		dev_put(d->br);
	if (d->in)
		dev_put(d->in);
}

static int bench_get_devs(struct bench_devs *d)
{
	char name[IFNAMSIZ];
	unsigned int p;

	d->in = dev_get_by_name(&init_net, "in0");
	d->br = dev_get_by_name(&init_net, "br0");
	for (p = 0; p < BENCH_PORTS; p++) {
		snprintf(name, sizeof(name), "eth0.%u", p + 1);
		d->port[p] = dev_get_by_name(&init_net, name);
		if (!d->port[p])
			break;
	}
	if (d->in && d->br && p == BENCH_PORTS)
		return 0;
	pr_err("jix_bridge_bench: in0, br0 or eth0.1..eth0.5 missing\n");
	bench_put_devs(d);
	return -ENODEV;
}

static int __init jix_bridge_bench_init(void)
{
	struct bench_devs d = {};
	unsigned int p;
	int ret;

	if (!frames || !rounds)
		return -EINVAL;
	bench_build_frame();
	ret = bench_get_devs(&d);
	if (ret)
		return ret;
	for (p = 0; p < BENCH_MEMBERS && !ret; p++)
		ret = bench_add_entry(p);
	if (!ret) {
		pr_info("jix_bridge_bench: %u+%u frames of %u bytes per path and round, %u rounds, flow index %d\n",
			warmup, frames, (unsigned int)BENCH_LEN, rounds, flow_index);
		WRITE_ONCE(hwnat_skb_to_foe_hook, bench_foe);
		ret = bench_rounds(&d);
		WRITE_ONCE(hwnat_skb_to_foe_hook, NULL);
		/* The module may still be inside bench_foe on another path. */
		synchronize_rcu();
	}
	bench_clear_entries();
	bench_put_devs(&d);
	return ret;
}

static void __exit jix_bridge_bench_exit(void)
{
}

module_init(jix_bridge_bench_init);
module_exit(jix_bridge_bench_exit);
MODULE_DESCRIPTION("per-packet hook against a Linux bridge with MDB entries, timed in the QEMU guest");
MODULE_LICENSE("GPL");
