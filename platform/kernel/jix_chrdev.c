// SPDX-License-Identifier: GPL-2.0
/*
 * Device class of the module's character device, so that devtmpfs, udev
 * or mdev make its node.  class_create() lost its owner argument in 6.4;
 * the Kbuild probe (or the version number) picks the spelling.
 */
#include "platform.h"
#include <linux/device.h>
#include <linux/err.h>

/* One node per module; set and cleared at module start and stop. */
static struct class *jix_chrdev_class;

static struct class *jix_class_create(const char *name)
{
#ifdef JIX_CLASS_CREATE_NO_OWNER
	return class_create(name);
#else
	return class_create(THIS_MODULE, name);
#endif
}

int jix_chrdev_node_create(const char *name, unsigned int major)
{
	struct class *cls;
	struct device *dev;

	if (jix_chrdev_class)
		return -EEXIST;
	cls = jix_class_create(name);
	if (IS_ERR(cls))
		return PTR_ERR(cls);
	dev = device_create(cls, NULL, MKDEV(major, 0), NULL, "%s", name);
	if (IS_ERR(dev)) {
		class_destroy(cls);
		return PTR_ERR(dev);
	}
	jix_chrdev_class = cls;
	return 0;
}

void jix_chrdev_node_remove(unsigned int major)
{
	if (!jix_chrdev_class)
		return;
	device_destroy(jix_chrdev_class, MKDEV(major, 0));
	class_destroy(jix_chrdev_class);
	jix_chrdev_class = NULL;
}
