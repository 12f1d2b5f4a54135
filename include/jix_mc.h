/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Module-wide state shared by every subsystem: the debug level and its
 * gates, the port map and the port types.
 */
#ifndef JIX_MC_H
#define JIX_MC_H

#include "platform.h"
#include "jix_mc_data.h"
#include "uapi/jix_mc_uapi.h"
#include "jix_mc_trace.h"

/*
 * Debug level: 0 silences every conditional message; 1 errors and refused
 * input; 2 accounting traces and unsupported frames; 3 function entry and
 * step traces; exactly 4 adds whole-frame dumps.
 */
extern unsigned long quor_mc_debug_level;

#define JIX_DBG_ERR	1
#define JIX_DBG_ACNT	2
#define JIX_DBG_TRACE	3
#define JIX_DBG_DUMP	4

#define jix_dbg(level, fmt, ...) do { \
	if (READ_ONCE(quor_mc_debug_level) >= (level)) \
		printk(fmt, ##__VA_ARGS__); \
} while (0)

#define jix_enter() jix_dbg(JIX_DBG_TRACE, "[%s]Enter\n", __func__)

/* ---- port map ---- */
#define JIX_PORT_NUM		35	/* rows of lan_map_data */
#define JIX_PORT_MAX_ID		33	/* highest port id usable by id */
#define JIX_PORT_WIFI_FIRST	16
#define JIX_PORT_PON		32
#define JIX_PORT_NAS10		33
#define JIX_PORT_TYPE_NUM	32

#define JIX_PORT_TYPE_DEFAULT	0
#define JIX_PORT_TYPE_HYBRID_SFU 1
#define JIX_PORT_TYPE_HYBRID_HGU 2

/* The software counters of a port are per CPU (acnt/). */
struct lan_map {
	u32 port_id;
	const char *ifname;
	struct net_device *dev;	/* holds one reference while set */
};

extern struct lan_map lan_map_data[JIX_PORT_NUM];
extern u32 PORT_TYPE[JIX_PORT_TYPE_NUM];

/*
 * The port bit of a port id: a 32-bit 1 shifted by id modulo 32, widened
 * with sign extension, so port 31 also sets bits 32..63 and ports 32..34
 * share the bits of ports 0..2.
 */
static inline u64 jix_port_bit(unsigned int port)
{
	return (u64)(s64)(s32)(1U << (port % 32));
}

struct net_device *get_dev_by_port(u8 port);
int get_port_id_by_name(const char *name);
struct net_device *quor_port_dev_hold(u8 port);
int quor_igmp_dev_map_init(void);
int quor_igmp_dev_map_deinit(void);
int quor_igmp_device_event(struct notifier_block *nb, unsigned long event,
			   void *ptr);
extern struct notifier_block quor_igmp_device_notifier;
u32 *port_type_init(void);

/* ---- hook entry points and API ---- */
int quor_jix_muliticast_interval_hook(void *data);
int quor_jix_muliticast_api_hook(void *data);
/* Receive callback of the control plane: (ingress port, frame, length);
 * 0 means the query is not to be relayed. */
typedef int (*quor_mc_rx_cb_t)(u8 port, u8 *frame, u32 len);
/* Published with RCU; called only through quor_mc_rx_cb_call(). */
extern quor_mc_rx_cb_t __rcu quor_mc_ctrl_packet_rx_cb_func;
int quor_mc_rx_cb_call(u8 port, u8 *frame, u32 len);
int quor_igmp_set_port_type(struct mc_data *mc);

/* ---- character device ---- */
/* Major asked for at load (module parameter "major"; 0: dynamic). */
extern unsigned int quor_igmp_major;
int quor_igmp_cdev_init(void);
void quor_igmp_cdev_deinit(void);
long quor_igmp_ioctl(struct file *file, unsigned int cmd, unsigned long arg);

/* ---- debug and port-type proc files ---- */
int jix_mc_debug_read_proc(char *page, char **start, off_t off, int count,
			   int *eof, void *data);
int jix_mc_debug_write_proc(struct file *file, const char __user *buffer,
			    unsigned long count, void *data);
int jix_mc_port_type_read_proc(char *page, char **start, off_t off, int count,
			       int *eof, void *data);
int jix_mc_port_type_write_proc(struct file *file, const char __user *buffer,
				unsigned long count, void *data);
int quor_igmp_proc_set_port_type(const char *name, u32 type);

/* Finish a page-filling read of a text of @len bytes composed at @page. */
int jix_proc_read_finish(char *page, char **start, off_t off, int count,
			 int *eof, int len);

#endif /* JIX_MC_H */
