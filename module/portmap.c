// SPDX-License-Identifier: GPL-2.0
/*
 * The port map: port ids tied to interface names and, while an interface
 * exists, to its network device (one reference per bound row), plus the
 * per-port types.
 *
 * Rows change only in the notifier (process context, under RTNL) and at
 * stop.  The packet path reads dev without a lock and takes a reference
 * of its own under rcu_read_lock (quor_port_dev_hold); a row's reference
 * is dropped only after an RCU grace period, so such a reader never takes
 * a reference on a device that is being freed.
 */
#include "jix_mc.h"

#define JIX_ROW(id, name) [id] = { .port_id = (id), .ifname = (name) }
#define JIX_ANON(id) [id] = { .port_id = (id) }

struct lan_map lan_map_data[JIX_PORT_NUM] = {
	JIX_ROW(0, "eth0.1"), JIX_ROW(1, "eth0.2"), JIX_ROW(2, "eth0.3"),
	JIX_ROW(3, "eth0.4"), JIX_ROW(4, "eth0.5"), JIX_ROW(5, "eth0.6"),
	JIX_ROW(6, "eth0.7"), JIX_ROW(7, "eth0.8"),
	JIX_ANON(8), JIX_ANON(9), JIX_ANON(10), JIX_ANON(11),
	JIX_ANON(12), JIX_ANON(13), JIX_ANON(14), JIX_ANON(15),
	JIX_ROW(16, "ux0"), JIX_ROW(17, "ux1"), JIX_ROW(18, "ux2"),
	JIX_ROW(19, "ux3"), JIX_ROW(20, "ux4"), JIX_ROW(21, "ux5"),
	JIX_ROW(22, "ux6"), JIX_ROW(23, "ux7"),
	JIX_ROW(24, "uxi0"), JIX_ROW(25, "uxi1"), JIX_ROW(26, "uxi2"),
	JIX_ROW(27, "uxi3"), JIX_ROW(28, "uxi4"), JIX_ROW(29, "uxi5"),
	JIX_ROW(30, "uxi6"), JIX_ROW(31, "uxi7"),
	JIX_ROW(32, "pon"), JIX_ROW(33, "nas10"), JIX_ANON(34),
};

u32 PORT_TYPE[JIX_PORT_TYPE_NUM];

struct notifier_block quor_igmp_device_notifier = {
	.notifier_call = quor_igmp_device_event,
	.priority = 0,
};

struct net_device *get_dev_by_port(u8 port)
{
	if (port > JIX_PORT_MAX_ID)
		return NULL;
	return READ_ONCE(lan_map_data[port].dev);
}

/* The port's device with a reference of the caller's own, or NULL. */
struct net_device *quor_port_dev_hold(u8 port)
{
	struct net_device *dev;

	rcu_read_lock();
	dev = get_dev_by_port(port);
	if (dev)
		dev_hold(dev);
	rcu_read_unlock();
	return dev;
}

int get_port_id_by_name(const char *name)
{
	int i;

	if (!name)
		return -1;
	for (i = 0; i <= JIX_PORT_MAX_ID; i++) {
		if (lan_map_data[i].ifname && !strcmp(name, lan_map_data[i].ifname))
			return lan_map_data[i].port_id;
	}
	return -1;
}

/*
 * The rows are filled by the notifier: registering it replays
 * NETDEV_REGISTER for every device that exists, under RTNL, so no device
 * can come or go between a lookup and the registration.
 */
int quor_igmp_dev_map_init(void)
{
	return register_netdevice_notifier(&quor_igmp_device_notifier);
}

/*
 * Unregistering the notifier replays NETDEV_UNREGISTER, which empties
 * the rows; anything still held after that is released here.
 */
int quor_igmp_dev_map_deinit(void)
{
	struct net_device *dev;
	int i;

	unregister_netdevice_notifier(&quor_igmp_device_notifier);
	for (i = 0; i <= JIX_PORT_MAX_ID; i++) {
		dev = lan_map_data[i].dev;
		if (!dev)
			continue;
		WRITE_ONCE(lan_map_data[i].dev, NULL);
		synchronize_net();
		dev_put(dev);
	}
	return 0;
}

/*
 * The row a device name selects: ux0..ux7, uxi0..uxi7, eth0.1..eth0.8,
 * pon and nas10.  Returns -1 for any other name.
 */
static int quor_igmp_port_of_name(const char *name)
{
	size_t len = strnlen(name, IFNAMSIZ);

	if (len == 3 && !strncmp(name, "ux", 2) &&
	    name[2] >= '0' && name[2] <= '7')
		return 16 + name[2] - '0';
	if (len == 4 && !strncmp(name, "uxi", 3) &&
	    name[3] >= '0' && name[3] <= '7')
		return 24 + name[3] - '0';
	if (len == 6 && !strncmp(name, "eth0.", 5) &&
	    name[5] >= '1' && name[5] <= '8')
		return name[5] - '1';
	if (!strcmp(name, "nas10"))
		return JIX_PORT_NAS10;
	if (!strcmp(name, "pon"))
		return JIX_PORT_PON;
	return -1;
}

/*
 * Empty a row and drop its reference once no packet-path reader can
 * still be taking a reference of its own from it (quor_port_dev_hold).
 * Notifier context: process, RTNL held.
 */
static void quor_igmp_unbind_row(int port)
{
	struct net_device *old = lan_map_data[port].dev;

	if (!old)
		return;
	WRITE_ONCE(lan_map_data[port].dev, NULL);
	synchronize_net();
	dev_put(old);
}

static void quor_igmp_bind_row(int port, struct net_device *dev)
{
	if (lan_map_data[port].dev == dev)
		return;
	quor_igmp_unbind_row(port);
	dev_hold(dev);
	WRITE_ONCE(lan_map_data[port].dev, dev);
}

/* Empty every row holding @dev except @keep (-1: all of them). */
static void quor_igmp_unbind_dev(struct net_device *dev, int keep)
{
	int i;

	for (i = 0; i <= JIX_PORT_MAX_ID; i++) {
		if (i != keep && lan_map_data[i].dev == dev)
			quor_igmp_unbind_row(i);
	}
}

/*
 * Rows follow devices of the initial namespace by identity: a device
 * renamed away from a port name leaves its row, one renamed to a port
 * name joins it, and unregistration empties whatever row holds the
 * device, whatever it is called by then.
 */
int quor_igmp_device_event(struct notifier_block *nb, unsigned long event,
			   void *ptr)
{
	struct net_device *dev = netdev_notifier_info_to_dev(ptr);
	int port;

	if (!dev || !net_eq(dev_net(dev), &init_net))
		return NOTIFY_DONE;
	switch (event) {
	case NETDEV_REGISTER:
	case NETDEV_CHANGENAME:
		port = quor_igmp_port_of_name(dev->name);
		quor_igmp_unbind_dev(dev, port);
		if (port >= 0)
			quor_igmp_bind_row(port, dev);
		break;
	case NETDEV_UNREGISTER:
		quor_igmp_unbind_dev(dev, -1);
		break;
	}
	return NOTIFY_DONE;
}

u32 *port_type_init(void)
{
	int i;

	for (i = 0; i < JIX_PORT_TYPE_NUM; i++)
		WRITE_ONCE(PORT_TYPE[i], JIX_PORT_TYPE_DEFAULT);
	return PORT_TYPE;
}
