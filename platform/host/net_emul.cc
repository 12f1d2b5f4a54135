// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of network devices: a name registry, reference counts,
 * the netdevice notifier chain, and devices whose transmit routine keeps
 * a copy of every frame for tests to inspect.
 */
#include "host_emul.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#define NOTIFY_STOP_MASK	0x8000

struct net init_net;

namespace {

struct tx_frame {
	std::vector<unsigned char> bytes;
	u32 vendor_flags;
};

struct dev_priv {
	std::mutex mtx;
	std::vector<tx_frame> frames;
	std::atomic<bool> discard{false};	/* count and free, keep nothing */
	std::atomic<bool> stopped{false};	/* queue stopped or no carrier */
	std::atomic<unsigned int> discarded{0};
};

/* Held across registration changes and notifier delivery, like RTNL. */
std::recursive_mutex rtnl;
struct notifier_block *netdev_chain;	/* under rtnl */

/* Name lookup; held only briefly, never across a callback. */
std::mutex dev_mtx;
/* Names are unique within a namespace. */
using dev_key = std::pair<const struct net *, std::string>;
std::map<dev_key, struct net_device *> by_name;

dev_key key(const struct net_device *dev, const char *name)
{
	return dev_key(dev->nd_net, name);
}
std::set<struct net_device *> all_devs;	/* allocated, not yet freed */

dev_priv *priv(const struct net_device *dev)
{
	return static_cast<dev_priv *>(dev->host_priv);
}

netdev_tx_t capture_xmit(struct sk_buff *skb, struct net_device *dev)
{
	if (priv(dev)->discard.load(std::memory_order_relaxed)) {
		priv(dev)->discarded.fetch_add(1, std::memory_order_relaxed);
		consume_skb(skb);
		return NETDEV_TX_OK;
	}
	tx_frame f{std::vector<unsigned char>(skb->data, skb->data + skb->len),
		   skb->vendor_flags};
	{
		std::lock_guard<std::mutex> g(priv(dev)->mtx);
		priv(dev)->frames.push_back(std::move(f));
	}
	consume_skb(skb);
	return NETDEV_TX_OK;
}

const struct net_device_ops capture_ops = { capture_xmit };

int call_one(struct notifier_block *nb, unsigned long event,
	     struct net_device *dev)
{
	struct netdev_notifier_info info = { dev };

	return nb->notifier_call(nb, event, &info);
}

void call_chain(unsigned long event, struct net_device *dev)
{
	for (struct notifier_block *nb = netdev_chain; nb; nb = nb->next)
		if (call_one(nb, event, dev) & NOTIFY_STOP_MASK)
			break;
}

std::vector<struct net_device *> registered_devs()
{
	std::lock_guard<std::mutex> g(dev_mtx);
	std::vector<struct net_device *> v;

	for (const auto &d : by_name)
		v.push_back(d.second);
	return v;
}

} /* namespace */

namespace host {

/* Devices stay allocated (tests own them); they are only forgotten. */
void net_reset()
{
	std::lock_guard<std::recursive_mutex> r(rtnl);
	std::lock_guard<std::mutex> g(dev_mtx);

	for (const auto &d : by_name)
		d.second->registered = 0;
	by_name.clear();
	netdev_chain = NULL;
}

} /* namespace host */

extern "C" {

struct net_device *dev_get_by_name(struct net *net, const char *name)
{
	std::lock_guard<std::mutex> g(dev_mtx);
	auto it = by_name.find(dev_key(net, name));

	if (it == by_name.end())
		return NULL;
	dev_hold(it->second);
	return it->second;
}

void dev_hold(struct net_device *dev)
{
	if (dev)
		atomic_inc(&dev->refcnt);
}

void dev_put(struct net_device *dev)
{
	if (!dev)
		return;
	WARN_ON(__atomic_sub_fetch(&dev->refcnt.counter, 1,
				   __ATOMIC_SEQ_CST) < 0);
}

int register_netdevice_notifier(struct notifier_block *nb)
{
	std::lock_guard<std::recursive_mutex> r(rtnl);
	struct notifier_block **pos = &netdev_chain;

	for (; *pos; pos = &(*pos)->next) {
		if (WARN_ON(*pos == nb))
			return -EEXIST;
		if (nb->priority > (*pos)->priority)
			break;
	}
	nb->next = *pos;
	*pos = nb;
	for (struct net_device *dev : registered_devs()) {
		call_one(nb, NETDEV_REGISTER, dev);
		if (dev->flags & IFF_UP)
			call_one(nb, NETDEV_UP, dev);
	}
	return 0;
}

int unregister_netdevice_notifier(struct notifier_block *nb)
{
	std::lock_guard<std::recursive_mutex> r(rtnl);
	struct notifier_block **pos = &netdev_chain;

	while (*pos && *pos != nb)
		pos = &(*pos)->next;
	if (!*pos)
		return -ENOENT;
	*pos = nb->next;
	for (struct net_device *dev : registered_devs()) {
		if (dev->flags & IFF_UP) {
			call_one(nb, NETDEV_GOING_DOWN, dev);
			call_one(nb, NETDEV_DOWN, dev);
		}
		call_one(nb, NETDEV_UNREGISTER, dev);
	}
	return 0;
}

struct net_device *host_netdev_alloc(const char *name)
{
	struct net_device *dev =
		(struct net_device *)calloc(1, sizeof(*dev));

	snprintf(dev->name, sizeof(dev->name), "%s", name);
	dev->netdev_ops = &capture_ops;
	dev->nd_net = &init_net;
	dev->host_priv = new dev_priv;
	std::lock_guard<std::mutex> g(dev_mtx);
	all_devs.insert(dev);
	return dev;
}

int host_netdev_register(struct net_device *dev)
{
	std::lock_guard<std::recursive_mutex> r(rtnl);
	{
		std::lock_guard<std::mutex> g(dev_mtx);
		if (!by_name.emplace(key(dev, dev->name), dev).second)
			return -EEXIST;
		dev->registered = 1;
	}
	call_chain(NETDEV_REGISTER, dev);
	return 0;
}

/* As in the kernel, the new name resolves by the time the event comes. */
int host_netdev_rename(struct net_device *dev, const char *name)
{
	std::lock_guard<std::recursive_mutex> r(rtnl);
	{
		std::lock_guard<std::mutex> g(dev_mtx);
		if (!by_name.emplace(key(dev, name), dev).second)
			return -EEXIST;
		by_name.erase(key(dev, dev->name));
		snprintf(dev->name, sizeof(dev->name), "%s", name);
	}
	call_chain(NETDEV_CHANGENAME, dev);
	return 0;
}

/*
 * As in the kernel, an up device is closed first, and the name no longer
 * resolves by the time NETDEV_UNREGISTER is delivered.
 */
void host_netdev_unregister(struct net_device *dev)
{
	std::lock_guard<std::recursive_mutex> r(rtnl);

	if (WARN_ON(!dev->registered))
		return;
	if (dev->flags & IFF_UP) {
		call_chain(NETDEV_GOING_DOWN, dev);
		dev->flags &= ~IFF_UP;
		call_chain(NETDEV_DOWN, dev);
	}
	{
		std::lock_guard<std::mutex> g(dev_mtx);
		by_name.erase(key(dev, dev->name));
	}
	call_chain(NETDEV_UNREGISTER, dev);
	dev->registered = 0;
	/* As the kernel does before the last references go. */
	synchronize_rcu();
}

void host_netdev_free(struct net_device *dev)
{
	if (!dev)
		return;
	WARN_ON(atomic_read(&dev->refcnt) != 0);
	{
		std::lock_guard<std::mutex> g(dev_mtx);
		if (WARN_ON(dev->registered))
			by_name.erase(key(dev, dev->name));
		all_devs.erase(dev);
	}
	delete priv(dev);
	free(dev);
}

int host_netdev_refcnt(const struct net_device *dev)
{
	return atomic_read(&dev->refcnt);
}

unsigned int host_netdev_tx_count(const struct net_device *dev)
{
	std::lock_guard<std::mutex> g(priv(dev)->mtx);
	return (unsigned int)priv(dev)->frames.size() + priv(dev)->discarded;
}

void host_netdev_tx_stop(struct net_device *dev, int on)
{
	priv(dev)->stopped = on != 0;
}

void host_netdev_tx_discard(struct net_device *dev, int on)
{
	priv(dev)->discard = on != 0;
}

int host_netdev_tx_frame(const struct net_device *dev, unsigned int i,
			 unsigned char *buf, unsigned int size)
{
	std::lock_guard<std::mutex> g(priv(dev)->mtx);
	const auto &frames = priv(dev)->frames;

	if (i >= frames.size())
		return -1;
	const auto &b = frames[i].bytes;
	if (!b.empty())	/* an empty frame has no bytes to copy */
		memcpy(buf, b.data(), std::min<size_t>(size, b.size()));
	return (int)b.size();
}

u32 host_netdev_tx_vendor_flags(const struct net_device *dev, unsigned int i)
{
	std::lock_guard<std::mutex> g(priv(dev)->mtx);
	const auto &frames = priv(dev)->frames;

	return i < frames.size() ? frames[i].vendor_flags : 0;
}

void host_netdev_tx_clear(struct net_device *dev)
{
	std::lock_guard<std::mutex> g(priv(dev)->mtx);
	priv(dev)->frames.clear();
	priv(dev)->discarded = 0;
}

/* ---- direct transmit ---- */

int jix_dev_xmit(struct sk_buff *skb)
{
	struct net_device *dev = skb->dev;

	if (!dev || !dev->netdev_ops || !dev->netdev_ops->ndo_start_xmit) {
		kfree_skb(skb);
		return -ENODEV;
	}
	if (dev->host_priv && priv(dev)->stopped.load(std::memory_order_relaxed)) {
		kfree_skb(skb);
		return NETDEV_TX_BUSY;
	}
	local_bh_disable();
	int rc = dev->netdev_ops->ndo_start_xmit(skb, dev);
	local_bh_enable();
	if (rc == NETDEV_TX_BUSY)
		kfree_skb(skb);
	return rc;
}

} /* extern "C" */
