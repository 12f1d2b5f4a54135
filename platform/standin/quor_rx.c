// SPDX-License-Identifier: GPL-2.0
/*
 * The network driver's part of the stand-in: every frame received on the
 * uplink interface "pon" is offered to the multicast module's per-packet
 * hook as the vendor driver offers it, before the kernel's stack sees it.
 *
 * The frame is given as it was on the wire: an outer VLAN tag that the
 * kernel moved into the socket buffer's metadata is put back into the
 * frame, the MAC header points at the destination address and the data
 * pointer lies 14 bytes past it.  The module answers 0 when it dealt with
 * the frame (the driver frees it) and -1 when the stack should have it.
 *
 * The handler follows the interface: it is attached when a device named
 * "pon" appears (or is renamed to it) and detached when it goes away or is
 * renamed.  Attachment state is changed under RTNL only.
 */
#include "quor_vendor.h"
#include "quor_peer.h"
#include "quor_rx.h"

#include <linux/if_vlan.h>
#include <linux/moduleparam.h>
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>

#define QUOR_UPLINK_NAME	"pon"

static struct net_device *quor_pon_dev;	/* RTNL */

/*
 * What a forwarding engine would be programmed from: the control word the
 * module left in the last frame it dealt with (its group's counter id in
 * bits 17 and up), and how many frames were offered and taken.  Read-only
 * parameters under /sys/module/quor_platform/parameters/.
 */
static uint rx_hwnat_ctrl;
module_param(rx_hwnat_ctrl, uint, 0444);
MODULE_PARM_DESC(rx_hwnat_ctrl, "hardware-forwarding word of the last frame the module handled");
static uint rx_offered;
module_param(rx_offered, uint, 0444);
static uint rx_handled;
module_param(rx_handled, uint, 0444);

/*
 * Put an outer tag that the kernel took out back into the frame.  Returns
 * the frame (possibly reallocated) with its data at the MAC header, or
 * NULL when it had to be freed.
 */
static struct sk_buff *quor_rx_restore_tag(struct sk_buff *skb)
{
	skb_push(skb, skb->data - skb_mac_header(skb));
	if (!skb_vlan_tag_present(skb))
		return skb;
	return __vlan_hwaccel_push_inside(skb);
}

/* The vendor words of a frame, as the forwarding engine reads them. */
static u32 *quor_rx_word(struct sk_buff *skb, unsigned int off)
{
	BUILD_BUG_ON(sizeof(skb->cb) != 48);
	return (u32 *)&skb->cb[off];
}

static rx_handler_result_t quor_rx_handler(struct sk_buff **pskb)
{
	struct sk_buff *skb = *pskb;
	struct quor_peer_mc mc = { 0 };

	skb = skb_share_check(skb, GFP_ATOMIC);
	if (!skb)
		return RX_HANDLER_CONSUMED;
	if (skb_linearize(skb))
		goto pass;
	skb = quor_rx_restore_tag(skb);
	if (!skb)
		return RX_HANDLER_CONSUMED;
	skb_reset_mac_header(skb);
	skb_reset_mac_len(skb);
	if (skb->len < ETH_HLEN)
		goto pass;
	skb_pull(skb, ETH_HLEN);
	skb_reset_network_header(skb);

	*quor_rx_word(skb, QUOR_PEER_CB_VENDOR_FLAGS) = 0;
	*quor_rx_word(skb, QUOR_PEER_CB_HWNAT_CTRL) = 0;
	/* The per-packet call: the frame in skb, the argument left clear. */
	mc.in_function_id = 0;
	mc.skb = skb;
	mc.result = -1;
	WRITE_ONCE(rx_offered, READ_ONCE(rx_offered) + 1);
	if (__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL,
			&mc) >= 0 && mc.result == 0) {
		WRITE_ONCE(rx_hwnat_ctrl,
			   *quor_rx_word(skb, QUOR_PEER_CB_HWNAT_CTRL));
		WRITE_ONCE(rx_handled, READ_ONCE(rx_handled) + 1);
		consume_skb(skb);
		return RX_HANDLER_CONSUMED;
	}
pass:
	*pskb = skb;
	return RX_HANDLER_PASS;
}

static void quor_rx_attach(struct net_device *dev)
{
	int ret;

	if (quor_pon_dev)
		return;
	ret = netdev_rx_handler_register(dev, quor_rx_handler, NULL);
	if (ret) {
		pr_warn("quor_platform: cannot take frames of %s (%d)\n",
			dev->name, ret);
		return;
	}
	quor_pon_dev = dev;
}

static void quor_rx_detach(struct net_device *dev)
{
	if (quor_pon_dev != dev)
		return;
	netdev_rx_handler_unregister(dev);
	quor_pon_dev = NULL;
}

static int quor_rx_event(struct notifier_block *nb, unsigned long event,
			 void *ptr)
{
	struct net_device *dev = netdev_notifier_info_to_dev(ptr);
	bool is_pon = !strcmp(dev->name, QUOR_UPLINK_NAME);

	switch (event) {
	case NETDEV_REGISTER:
		if (is_pon)
			quor_rx_attach(dev);
		break;
	case NETDEV_CHANGENAME:
		if (is_pon)
			quor_rx_attach(dev);
		else
			quor_rx_detach(dev);
		break;
	case NETDEV_UNREGISTER:
		quor_rx_detach(dev);
		break;
	}
	return NOTIFY_DONE;
}

static struct notifier_block quor_rx_notifier = {
	.notifier_call = quor_rx_event,
};

int quor_rx_start(void)
{
	return register_netdevice_notifier(&quor_rx_notifier);
}

void quor_rx_stop(void)
{
	/* Unregistering replays NETDEV_UNREGISTER for every device. */
	unregister_netdevice_notifier(&quor_rx_notifier);
	rtnl_lock();
	if (quor_pon_dev)
		quor_rx_detach(quor_pon_dev);
	rtnl_unlock();
}
