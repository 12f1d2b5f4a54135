// SPDX-License-Identifier: GPL-2.0
/*
 * The character device "quor_igmp": ioctl commands through which a
 * user-space program manages the forwarding database.
 *
 * Every command copies its argument in whole before it acts.  A copy that
 * faults makes the command fail with -EFAULT and change nothing, so a bad
 * pointer never acts on half an argument.
 */
#include "jix_mc.h"
#include "fdb/fdb.h"

#ifdef CONFIG_COMPAT
static long quor_igmp_compat_ioctl(struct file *file, unsigned int cmd,
				   unsigned long arg);
#endif

static const struct file_operations quor_igmp_fops = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = quor_igmp_ioctl,
#ifdef CONFIG_COMPAT
	.compat_ioctl = quor_igmp_compat_ioctl,
#endif
};

/*
 * Major 253 unless the "major" parameter says otherwise.  When the major
 * asked for is taken (distribution kernels hand majors out from 254
 * downwards to their own drivers), the device gets a dynamic one instead:
 * the class device below makes the node whatever the number.
 */
unsigned int quor_igmp_major = QUOR_IGMP_MAJOR;
module_param_named(major, quor_igmp_major, uint, 0444);
MODULE_PARM_DESC(major, "character major of /dev/quor_igmp (default 253; 0: dynamic; "
		 "a taken major falls back to a dynamic one)");

/* The major registered, 0 while none is; written at start and stop only. */
static unsigned int quor_igmp_cdev_major;

static int quor_igmp_register_major(unsigned int want)
{
	int ret;

	ret = __register_chrdev(want, 0, QUOR_IGMP_MINORS, QUOR_IGMP_DEV_NAME,
				&quor_igmp_fops);
	if (ret < 0 || !want)
		return ret;
	return want;
}

int quor_igmp_cdev_init(void)
{
	unsigned int want = quor_igmp_major;
	int ret;

	ret = quor_igmp_register_major(want);
	if (ret < 0 && want)
		ret = quor_igmp_register_major(0);
	if (ret < 0) {
		printk(KERN_ERR "%s: quor_igmp_cdev_init failed\n", __FILE__);
		return ret;
	}
	quor_igmp_cdev_major = ret;
	if (!want)
		printk(KERN_NOTICE "quor_igmp: dynamic major %d\n", ret);
	else if (quor_igmp_cdev_major != want)
		printk(KERN_NOTICE "quor_igmp: major %u is taken, using major %d\n",
		       want, ret);
	/* Without a node the device still works through one made by hand. */
	ret = jix_chrdev_node_create(QUOR_IGMP_DEV_NAME, quor_igmp_cdev_major);
	if (ret)
		printk(KERN_WARNING "quor_igmp: no device class (%d): make the node for major %u by hand\n",
		       ret, quor_igmp_cdev_major);
	return 0;
}

void quor_igmp_cdev_deinit(void)
{
	if (!quor_igmp_cdev_major)
		return;
	jix_chrdev_node_remove(quor_igmp_cdev_major);
	__unregister_chrdev(quor_igmp_cdev_major, 0, QUOR_IGMP_MINORS,
			    QUOR_IGMP_DEV_NAME);
	quor_igmp_cdev_major = 0;
}

static long quor_igmp_ioc_entry(unsigned int cmd, void __user *arg)
{
	struct igmp_entry_info info;

	if (copy_from_user(&info, arg, sizeof(info)))
		return -EFAULT;
	if (cmd == QUOR_IGMP_IOC_ADD_ENTRY)
		return quor_igmp_add_entry(&info);
	if (cmd == QUOR_IGMP_IOC_DEL_ENTRY)
		return quor_igmp_del_entry(&info);
	return quor_igmp_update_entry(&info);
}

/*
 * Get-entries writes its records under igmp_fdb_lock, so it is handed a
 * kernel copy of the request (@req) and room for the records, copied out
 * to @dst afterwards.  The room is bounded by the port's entries, whatever
 * capacity the caller claims.  Returns the number of records, -ENOMEM
 * when the room cannot be allocated, -EFAULT when the records cannot be
 * written out.
 */
static long quor_igmp_get_to_user(struct igmp_entry_get_req *req,
				  void __user *dst)
{
	struct igmp_entry_info *room = NULL;
	s32 cap;
	long ret;

	cap = min_t(s32, req->entry_num, igmp_count_port_entries(req->port_id));
	if (cap > 0) {
		room = kvcalloc(cap, sizeof(*room), GFP_KERNEL);
		if (!room)
			return -ENOMEM;
	}
	req->entry_num = max_t(s32, cap, 0);
	req->entries = room;
	ret = quor_igmp_get_entry(req);
	if (ret > 0 && copy_to_user(dst, room, ret * sizeof(*room)))
		ret = -EFAULT;
	kvfree(room);
	return ret;
}

/*
 * The caller's request is written back only when everything succeeded;
 * on an error it is left as it was.
 */
static long quor_igmp_ioc_get(void __user *arg)
{
	struct igmp_entry_get_req req;
	void __user *dst;
	long ret;

	if (copy_from_user(&req, arg, sizeof(req)))
		return -EFAULT;
	dst = (void __user __force *)req.entries;
	ret = quor_igmp_get_to_user(&req, dst);
	if (ret < 0)
		return ret;
	req.entries = (struct igmp_entry_info __force *)dst;
	if (copy_to_user(arg, &req, sizeof(req)))
		return -EFAULT;
	return ret;
}

static long quor_igmp_ioc_set_filter(void __user *arg)
{
	u32 mode;

	if (copy_from_user(&mode, arg, sizeof(mode)))
		return -EFAULT;
	quor_igmp_set_filterMode(mode);
	return 0;
}

static long quor_igmp_ioc_get_filter(void __user *arg)
{
	u32 mode = READ_ONCE(igmp_filter_mode);

	if (copy_to_user(arg, &mode, sizeof(mode)))
		return -EFAULT;
	return mode;
}

static long quor_igmp_ioc_byte(unsigned int cmd, void __user *arg)
{
	u8 val;

	if (cmd == QUOR_IGMP_IOC_GET_SNOOPING) {
		val = quor_igmp_get_snooping();
		return copy_to_user(arg, &val, 1) ? -EFAULT : 0;
	}
	if (copy_from_user(&val, arg, 1))
		return -EFAULT;
	if (cmd == QUOR_IGMP_IOC_SET_SNOOPING)
		return quor_igmp_set_snooping(val);
	if (igmp_fdb_empty())
		return 0;
	return quor_igmp_clear_entry_by_port(val);
}

long quor_igmp_ioctl(struct file *file, unsigned int cmd, unsigned long arg)
{
	void __user *uarg = (void __user *)arg;

	jix_dbg(JIX_DBG_TRACE, "[%s]cmd = %u\n", "quor_igmp_ioctl", cmd);
	switch (cmd) {
	case QUOR_IGMP_IOC_ADD_ENTRY:
	case QUOR_IGMP_IOC_DEL_ENTRY:
	case QUOR_IGMP_IOC_UPDATE_ENTRY:
		return quor_igmp_ioc_entry(cmd, uarg);
	case QUOR_IGMP_IOC_CLEAR_BY_PORT:
	case QUOR_IGMP_IOC_SET_SNOOPING:
	case QUOR_IGMP_IOC_GET_SNOOPING:
		return quor_igmp_ioc_byte(cmd, uarg);
	case QUOR_IGMP_IOC_CLEAR_ALL:
		if (!igmp_fdb_empty())
			quor_igmp_clear_all_entry();
		return 0;
	case QUOR_IGMP_IOC_GET_ENTRY:
		return quor_igmp_ioc_get(uarg);
	case QUOR_IGMP_IOC_SET_FILTER_MODE:
		return quor_igmp_ioc_set_filter(uarg);
	case QUOR_IGMP_IOC_GET_FILTER_MODE:
		return quor_igmp_ioc_get_filter(uarg);
	default:
		return -1;
	}
}

#ifdef CONFIG_COMPAT
/*
 * 32-bit user space: every record is laid out as on 64-bit except the
 * get-entries request, whose entries pointer is 32 bits wide (28 bytes
 * are copied each way; the tail padding of some ABIs is not touched).
 */
struct igmp_entry_get_req32 {
	u8 port_id;
	u8 rsv0[3];
	s32 entry_num;
	u32 total_pkts;
	u32 rsv1;
	u64 total_bytes;
	compat_uptr_t entries;
} __packed;

static long quor_igmp_compat_get(void __user *arg)
{
	struct igmp_entry_get_req req = {};
	struct igmp_entry_get_req32 r32;
	long ret;

	BUILD_BUG_ON(offsetof(struct igmp_entry_get_req32, entry_num) != 0x04);
	BUILD_BUG_ON(offsetof(struct igmp_entry_get_req32, total_bytes) != 0x10);
	BUILD_BUG_ON(offsetof(struct igmp_entry_get_req32, entries) != 0x18);
	BUILD_BUG_ON(sizeof(r32) != 0x1c);
	if (copy_from_user(&r32, arg, sizeof(r32)))
		return -EFAULT;
	req.port_id = r32.port_id;
	req.entry_num = r32.entry_num;
	req.total_pkts = r32.total_pkts;
	req.total_bytes = r32.total_bytes;
	ret = quor_igmp_get_to_user(&req, compat_ptr(r32.entries));
	if (ret < 0)
		return ret;
	r32.entry_num = req.entry_num;
	r32.total_pkts = req.total_pkts;
	r32.total_bytes = req.total_bytes;
	if (copy_to_user(arg, &r32, sizeof(r32)))
		return -EFAULT;
	return ret;
}

static long quor_igmp_compat_ioctl(struct file *file, unsigned int cmd,
				   unsigned long arg)
{
	if (cmd == QUOR_IGMP_IOC_GET_ENTRY)
		return quor_igmp_compat_get(compat_ptr(arg));
	return quor_igmp_ioctl(file, cmd, (unsigned long)compat_ptr(arg));
}
#endif
