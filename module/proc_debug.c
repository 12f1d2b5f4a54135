// SPDX-License-Identifier: GPL-2.0
/*
 * /proc/kv7730/jix_mc_debug and /proc/kv7730/jix_mc_port_type.
 *
 * Both follow the page-filling contract: the read handler composes the
 * whole text at @page and hands out the part from @off.
 */
#include "jix_mc.h"

#define JIX_DEBUG_WRITE_MAX	32
#define JIX_PORT_TYPE_WRITE_MAX	64

int jix_proc_read_finish(char *page, char **start, off_t off, int count,
			 int *eof, int len)
{
	long remaining = (long)len - off;

	if (off > len)
		off = len;
	*start = page + off;
	if (remaining > count)
		return count < 0 ? 0 : count;
	*eof = 1;
	return remaining < 0 ? 0 : (int)remaining;
}

int jix_mc_debug_read_proc(char *page, char **start, off_t off, int count,
			   int *eof, void *data)
{
	int len = scnprintf(page, JIX_PROC_PAGE_SIZE, "%lu\n",
			    READ_ONCE(quor_mc_debug_level));

	return jix_proc_read_finish(page, start, off, count, eof, len);
}

/*
 * Copy a short write into @buf (NUL-terminated).  Returns 0, -EINVAL when
 * it does not fit, -EFAULT when the user buffer cannot be read.
 */
static int jix_proc_copy_in(char *buf, size_t size, const char __user *ubuf,
			    unsigned long count)
{
	if (count >= size)
		return -EINVAL;
	if (copy_from_user(buf, ubuf, count))
		return -EFAULT;
	buf[count] = '\0';
	return 0;
}

int jix_mc_debug_write_proc(struct file *file, const char __user *buffer,
			    unsigned long count, void *data)
{
	char buf[JIX_DEBUG_WRITE_MAX];
	unsigned long level;
	int ret;

	ret = jix_proc_copy_in(buf, sizeof(buf), buffer, count);
	if (ret)
		return ret;
	if (sscanf(buf, "%lu", &level) == 1)
		WRITE_ONCE(quor_mc_debug_level, level);
	else
		printk("usage: <debuglevel>\n");
	return count;
}

int jix_mc_port_type_read_proc(char *page, char **start, off_t off, int count,
			       int *eof, void *data)
{
	int i, len;

	len = scnprintf(page, JIX_PROC_PAGE_SIZE,
			"port type (0:default mode type, 1:hybrid sfu, 2:hybrid hgu)\n");
	for (i = 0; i < JIX_PORT_TYPE_NUM; i++)
		len += scnprintf(page + len, JIX_PROC_PAGE_SIZE - len,
				 "port:%d type:%d; \n", i,
				 READ_ONCE(PORT_TYPE[i]));
	return jix_proc_read_finish(page, start, off, count, eof, len);
}

/* Set a port's type through the module's own API hook. */
int quor_igmp_proc_set_port_type(const char *name, u32 type)
{
	struct mc_data mc;

	memset(&mc, 0, sizeof(mc));
	mc.api_function_id = QUOR_MC_API_SET_PORT_TYPE;
	mc.param.val = type;
	mc.param2 = (void *)name;
	__QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	return 0;
}

/* "<name> <type>"; a name longer than 15 characters is refused. */
int jix_mc_port_type_write_proc(struct file *file, const char __user *buffer,
				unsigned long count, void *data)
{
	char buf[JIX_PORT_TYPE_WRITE_MAX];
	char name[IFNAMSIZ + 1];
	int type, ret;

	ret = jix_proc_copy_in(buf, sizeof(buf), buffer, count);
	if (ret)
		return ret;
	if (sscanf(buf, "%16s %d", name, &type) == 2 &&
	    strlen(name) < IFNAMSIZ) {
		printk("portName:%s portType:%d\n", name, type);
		quor_igmp_proc_set_port_type(name, (u32)type);
	} else {
		printk("usage: <portName portType>\n");
	}
	return count;
}
