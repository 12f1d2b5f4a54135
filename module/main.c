// SPDX-License-Identifier: GPL-2.0
/*
 * Start and stop of jix_xpon_multicast.
 *
 * The module has no thread: after start everything runs on calls from the
 * hook framework, the hardware forwarding driver, the character device,
 * the proc files, the device notifier and timers.
 */
#include "jix_mc.h"
#include "acnt/acnt.h"
#include "fdb/fdb.h"
#include "hwnat/hwnat.h"
#include "jix_mc_version.h"

unsigned long quor_mc_debug_level = 1;

static struct quor_hook_ops quor_mc_interval_hook_ops = {
	.name = "quor_mc_interval_hook",
	.priority = 1,
	.hookfn = quor_jix_muliticast_interval_hook,
	.hook_type = QUOR_HOOK_TYPE_MULTICAST,
	.hook_subtype = QUOR_MC_SUBTYPE_INTERVAL,
};

static struct quor_hook_ops quor_mc_api_hook_ops = {
	.name = "quor_mc_api_hook",
	.priority = 1,
	.hookfn = quor_jix_muliticast_api_hook,
	.hook_type = QUOR_HOOK_TYPE_MULTICAST,
	.hook_subtype = QUOR_MC_SUBTYPE_API,
};

struct jix_mc_proc_file {
	const char *name;
	jix_read_proc_t *read;
	jix_write_proc_t *write;
};

/* The files of /proc/kv7730, in the order they are made. */
static const struct jix_mc_proc_file jix_mc_proc_files[] = {
	{ "jix_mc_hwnat_entry", jix_mc_hwnat_flow_read_proc, NULL },
	{ "jix_mc_acnt_mapping", jix_mc_acnt_mapping_read_proc, NULL },
	{ "jix_mc_fwd_entry", jix_mc_fwd_entry_read_proc,
	  jix_mc_fwd_entry_write_proc },
	{ "jix_mc_debug", jix_mc_debug_read_proc, jix_mc_debug_write_proc },
	{ "jix_mc_port_type", jix_mc_port_type_read_proc,
	  jix_mc_port_type_write_proc },
};

#define JIX_MC_PROC_DIR	"kv7730"

/* The module's own directory, and which files exist in it. */
static struct jix_proc_dir *jix_mc_proc_dir;
static bool jix_mc_proc_created[ARRAY_SIZE(jix_mc_proc_files)];

/* A file that cannot be created is skipped; the others still are. */
static void jix_mc_proc_init(void)
{
	const struct jix_mc_proc_file *f;
	struct jix_proc_entry *e;
	size_t i;

	jix_mc_proc_dir = jix_proc_mkdir(JIX_MC_PROC_DIR);
	if (!jix_mc_proc_dir)
		return;
	for (i = 0; i < ARRAY_SIZE(jix_mc_proc_files); i++) {
		f = &jix_mc_proc_files[i];
		e = jix_create_proc_entry(f->name, 0, jix_mc_proc_dir);
		if (!e)
			continue;
		e->read_proc = f->read;
		e->write_proc = f->write;
		jix_mc_proc_created[i] = true;
	}
}

static void jix_mc_proc_exit(void)
{
	size_t i;

	for (i = 0; i < ARRAY_SIZE(jix_mc_proc_files); i++) {
		if (!jix_mc_proc_created[i])
			continue;
		jix_remove_proc_entry(jix_mc_proc_files[i].name,
				      jix_mc_proc_dir);
		jix_mc_proc_created[i] = false;
	}
	jix_proc_rmdir(jix_mc_proc_dir);
	jix_mc_proc_dir = NULL;
}

static void jix_mc_set_driver_hooks(void)
{
	WRITE_ONCE(xpon_igmp_learn_flow_hook, jix_xpon_hwnat_learn_flow);
	WRITE_ONCE(multicast_speed_find_entry_hook,
		   jix_xpon_hwnat_find_speed_entry);
	WRITE_ONCE(multicast_hwnat_drop_entry_hook,
		   jix_xpon_hwnat_drop_multicast);
}

/*
 * The driver calls its hooks in softirq, an RCU read-side section: once
 * they are cleared, wait for the calls in progress to return before the
 * state they use goes away.
 */
static void jix_mc_clear_driver_hooks(void)
{
	WRITE_ONCE(xpon_igmp_learn_flow_hook, NULL);
	WRITE_ONCE(multicast_hwnat_drop_entry_hook, NULL);
	WRITE_ONCE(multicast_speed_find_entry_hook, NULL);
	synchronize_rcu();
}

/*
 * Frames and API calls may arrive as soon as the hook entry points are
 * registered, so that happens once the port map and the accounting slots
 * are ready.  A failed registration undoes everything and fails the load.
 */
static int jix_mc_register_hooks(void)
{
	int ret;

	ret = quor_register_hook(&quor_mc_interval_hook_ops);
	if (ret) {
		printk(KERN_ERR "jix_xpon_multicast: hook %s not registered (%d)\n",
		       quor_mc_interval_hook_ops.name, ret);
		return ret;
	}
	ret = quor_register_hook(&quor_mc_api_hook_ops);
	if (ret) {
		printk(KERN_ERR "jix_xpon_multicast: hook %s not registered (%d)\n",
		       quor_mc_api_hook_ops.name, ret);
		quor_unregister_hook(&quor_mc_interval_hook_ops);
	}
	return ret;
}

static void jix_mc_unregister_hooks(void)
{
	quor_unregister_hook(&quor_mc_interval_hook_ops);
	quor_unregister_hook(&quor_mc_api_hook_ops);
}

/*
 * The port map comes first (the notifier's replay fills it), then the
 * accounting slots, then the hook entry points; the character device goes
 * live last, so a start that fails has served no ioctl.  A failed start
 * still removes whatever frames and API calls created meanwhile.
 */
static int __init jix_xpon_multicast_init(void)
{
	int ret;

	printk("jix xpon multcast init\n");
	jix_init_hwnat_list();
	port_type_init();
	igmp_init_fdb();
	igmp_init_fdb_tmp();
	jix_mc_set_driver_hooks();

	ret = quor_igmp_dev_map_init();
	if (ret)
		goto undo_driver_hooks;
	ret = quor_mcst_acnt_init();
	if (ret)
		goto undo_map;
	ret = jix_mc_register_hooks();
	if (ret)
		goto undo_acnt;
	jix_mc_proc_init();
	quor_igmp_cdev_init();
	return 0;

undo_acnt:
	jix_mc_clear_driver_hooks();
	quor_igmp_remove_list();
	jix_hwnat_release_all();
	quor_mcst_acnt_deinit();
	quor_igmp_dev_map_deinit();
	return ret;
undo_map:
	quor_igmp_dev_map_deinit();
undo_driver_hooks:
	jix_mc_clear_driver_hooks();
	jix_hwnat_release_all();
	return ret;
}

/*
 * The reverse of start.  The hook entry points go before the database is
 * emptied, so no frame or API call can add a record behind the final
 * clean-up; every flow and drop record, with its timer, is gone before
 * the module's code is.
 */
static void __exit jix_xpon_multicast_exit(void)
{
	printk("quor igmp module exit\n");
	jix_mc_clear_driver_hooks();
	quor_igmp_cdev_deinit();
	jix_mc_proc_exit();
	jix_mc_unregister_hooks();
	quor_igmp_remove_list();
	jix_hwnat_release_all();
	quor_mcst_acnt_deinit();
	quor_igmp_dev_map_deinit();
}

module_init(jix_xpon_multicast_init);
module_exit(jix_xpon_multicast_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("IGMP Snooping data flow forward control driver");
MODULE_VERSION(JIX_MC_VERSION);
