// SPDX-License-Identifier: GPL-2.0
/*
 * Host emulation of legacy page-filling proc files, read through the same
 * wrapper loop the kernel used for them, and of the character device
 * registry with ioctl dispatch.
 */
#include "host_emul.h"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#define PROC_BLOCK_SIZE		(JIX_PROC_PAGE_SIZE - 1024)
#define PROC_READ_ALL_MAX	100000	/* reads before giving up */
#define CHRDEV_DYN_HIGH		254
#define CHRDEV_DYN_LOW		234

namespace {

std::mutex proc_mtx;
std::map<std::string, struct jix_proc_entry *> proc_files;	/* by path */
std::set<std::string> proc_dirs;
bool proc_fail_next;
std::string proc_text;		/* result of host_proc_read_all() */

struct chrdev_reg {
	unsigned int major, baseminor, count;
	std::string name;
	const struct file_operations *fops;
};

std::mutex chrdev_mtx;
std::vector<chrdev_reg> chrdevs;
int chrdev_fail_err;
int chrdev_fail_left;
std::map<std::string, unsigned int> chrdev_nodes;
int chrdev_node_fail_err;

struct jix_proc_entry *proc_find(const char *name)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	auto it = proc_files.find(name);

	return it == proc_files.end() ? NULL : it->second;
}

/*
 * Clamp what one read_proc call produced and find where it starts.
 * Returns the byte count to copy, or 0 to end the read.
 */
long proc_clamp(char *page, char **start, long n, off_t pos, size_t count)
{
	if (!*start) {
		/* The handler wrote the whole text from the page start. */
		if (WARN_ON(n > JIX_PROC_PAGE_SIZE))
			n = JIX_PROC_PAGE_SIZE;
		n -= pos;
		if (n <= 0)
			return 0;
		*start = page + pos;
	} else if ((uintptr_t)*start < (uintptr_t)page) {
		/* Old trick: *start is the offset increment, text at page. */
		if (n > JIX_PROC_PAGE_SIZE)
			n = JIX_PROC_PAGE_SIZE;
		return n;
	} else {
		long room = JIX_PROC_PAGE_SIZE - (*start - page);
		if (WARN_ON(n > room))
			n = room;
	}
	return n > (long)count ? (long)count : n;
}

/* One read(2) on the file, as the kernel's legacy wrapper served it. */
long proc_read(struct jix_proc_entry *e, char *buf, size_t nbytes,
	       off_t *ppos)
{
	if (!e->read_proc)
		return -EIO;
	char *page = (char *)malloc(JIX_PROC_PAGE_SIZE);
	long retval = 0;
	int eof = 0;

	memset(page, 0x5a, JIX_PROC_PAGE_SIZE);	/* not a zeroed page */
	while (nbytes > 0 && !eof) {
		size_t count = nbytes < PROC_BLOCK_SIZE ? nbytes : PROC_BLOCK_SIZE;
		char *start = NULL;
		long n = e->read_proc(page, &start, *ppos, (int)count, &eof,
				      e->data);
		if (n < 0 && !retval)
			retval = n;
		if (n <= 0)
			break;
		n = proc_clamp(page, &start, n, *ppos, count);
		if (n <= 0)
			break;
		bool trick = (uintptr_t)start < (uintptr_t)page;
		n -= copy_to_user(buf, trick ? page : start, n);
		if (n == 0) {
			if (!retval)
				retval = -EFAULT;
			break;
		}
		*ppos += trick ? (off_t)(uintptr_t)start : n;
		nbytes -= n;
		buf += n;
		retval += n;
	}
	free(page);
	return retval;
}

} /* namespace */

namespace host {

void proc_chrdev_reset()
{
	{
		std::lock_guard<std::mutex> g(proc_mtx);
		for (auto &f : proc_files)
			delete f.second;
		proc_files.clear();
		proc_dirs.clear();
		proc_fail_next = false;
	}
	std::lock_guard<std::mutex> g(chrdev_mtx);
	chrdevs.clear();
	chrdev_fail_err = 0;
	chrdev_fail_left = 0;
	chrdev_nodes.clear();
	chrdev_node_fail_err = 0;
}

} /* namespace host */

extern "C" {

/* ---- legacy proc files ---- */

/* Directories: the caller keeps the handle, the registry its name. */
struct jix_proc_dir {
	std::string name;
};

struct jix_proc_dir *jix_proc_mkdir(const char *name)
{
	std::lock_guard<std::mutex> g(proc_mtx);

	if (WARN_ON(!name || strchr(name, '/') || proc_dirs.count(name)))
		return NULL;
	proc_dirs.insert(name);
	return new jix_proc_dir{ name };
}

void jix_proc_rmdir(struct jix_proc_dir *dir)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	std::string prefix;

	if (!dir)
		return;
	prefix = dir->name + "/";
	auto it = proc_files.lower_bound(prefix);
	/* Its files go first, as in the kernel. */
	WARN_ON(it != proc_files.end() && !it->first.compare(0, prefix.size(), prefix));
	proc_dirs.erase(dir->name);
	delete dir;
}

static std::string proc_path(const char *name, struct jix_proc_dir *parent)
{
	return parent ? parent->name + "/" + name : std::string(name);
}

struct jix_proc_entry *jix_create_proc_entry(const char *name, umode_t mode,
					     struct jix_proc_dir *parent)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	std::string path = proc_path(name, parent);

	(void)mode;
	if (proc_fail_next) {
		proc_fail_next = false;
		return NULL;
	}
	if (WARN_ON(strchr(name, '/') || proc_files.count(path) ||
		    (parent && !proc_dirs.count(parent->name))))
		return NULL;
	return proc_files[path] = new jix_proc_entry();
}

void jix_remove_proc_entry(const char *name, struct jix_proc_dir *parent)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	auto it = proc_files.find(proc_path(name, parent));

	if (WARN_ON(it == proc_files.end()))
		return;
	delete it->second;
	proc_files.erase(it);
}

/* A file, or a directory that still holds a file. */
int host_proc_exists(const char *name)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	std::string dir = std::string(name) + "/";
	auto it = proc_files.lower_bound(dir);

	if (proc_files.count(name) || proc_dirs.count(name))
		return 1;
	return it != proc_files.end() &&
	       it->first.compare(0, dir.size(), dir) == 0;
}

int host_proc_count(void)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	return (int)proc_files.size();
}

long host_proc_read(const char *name, char *buf, size_t count, off_t off)
{
	struct jix_proc_entry *e = proc_find(name);

	return e ? proc_read(e, buf, count, &off) : -ENOENT;
}

/* The text stays valid until the next call. */
const char *host_proc_read_all(const char *name, size_t chunk)
{
	struct jix_proc_entry *e = proc_find(name);
	std::vector<char> buf(chunk ? chunk : 1);
	off_t pos = 0;

	proc_text.clear();
	for (int i = 0; e && i < PROC_READ_ALL_MAX; i++) {
		long n = proc_read(e, buf.data(), chunk, &pos);
		if (n <= 0)
			return proc_text.c_str();
		proc_text.append(buf.data(), n);
	}
	WARN_ON(e);	/* the file never ended */
	return proc_text.c_str();
}

long host_proc_write(const char *name, const char *buf, size_t count)
{
	struct jix_proc_entry *e = proc_find(name);
	struct file file = { NULL };

	if (!e)
		return -ENOENT;
	if (!e->write_proc)
		return -EIO;
	return e->write_proc(&file, buf, count, e->data);
}

void host_proc_fail_next_create(void)
{
	std::lock_guard<std::mutex> g(proc_mtx);
	proc_fail_next = true;
}

/* ---- character devices ---- */

static long chrdev_ioctl(unsigned int major, unsigned int minor,
			 unsigned int cmd, unsigned long arg, bool compat);

static bool chrdev_overlaps(unsigned int major, unsigned int base,
			    unsigned int count)
{
	for (const auto &c : chrdevs)
		if (c.major == major && base < c.baseminor + c.count &&
		    c.baseminor < base + count)
			return true;
	return false;
}

/* Caller holds chrdev_mtx. */
static bool chrdev_major_used(unsigned int major)
{
	for (const auto &c : chrdevs)
		if (c.major == major)
			return true;
	return false;
}

static int chrdev_dynamic_major(void)
{
	for (unsigned int m = CHRDEV_DYN_HIGH; m >= CHRDEV_DYN_LOW; m--)
		if (!chrdev_major_used(m))
			return (int)m;
	return -EBUSY;
}

int __register_chrdev(unsigned int major, unsigned int baseminor,
		      unsigned int count, const char *name,
		      const struct file_operations *fops)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	int ret = 0;

	if (chrdev_fail_left > 0) {
		chrdev_fail_left--;
		return chrdev_fail_err;
	}
	if (!major) {
		ret = chrdev_dynamic_major();
		if (ret < 0)
			return ret;
		major = (unsigned int)ret;
	}
	if (chrdev_overlaps(major, baseminor, count))
		return -EBUSY;
	chrdevs.push_back({major, baseminor, count, name, fops});
	return ret;
}

void __unregister_chrdev(unsigned int major, unsigned int baseminor,
			 unsigned int count, const char *name)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);

	(void)name;
	for (auto it = chrdevs.begin(); it != chrdevs.end(); ++it) {
		if (it->major == major && it->baseminor == baseminor &&
		    it->count == count) {
			chrdevs.erase(it);
			return;
		}
	}
}

int host_chrdev_registered(unsigned int major)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	return chrdev_major_used(major);
}

const char *host_chrdev_name(unsigned int major)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);

	for (const auto &c : chrdevs)
		if (c.major == major)
			return c.name.c_str();
	return NULL;
}

long host_chrdev_ioctl(unsigned int major, unsigned int minor,
		       unsigned int cmd, unsigned long arg)
{
	return chrdev_ioctl(major, minor, cmd, arg, false);
}

long host_chrdev_compat_ioctl(unsigned int major, unsigned int minor,
			      unsigned int cmd, u32 arg)
{
	return chrdev_ioctl(major, minor, cmd, arg, true);
}

static long chrdev_ioctl(unsigned int major, unsigned int minor,
			 unsigned int cmd, unsigned long arg, bool compat)
{
	const struct file_operations *fops = NULL;
	struct file file = { NULL };

	{
		std::lock_guard<std::mutex> g(chrdev_mtx);
		for (const auto &c : chrdevs)
			if (c.major == major && minor >= c.baseminor &&
			    minor - c.baseminor < c.count)
				fops = c.fops;
	}
	if (!fops)
		return -ENODEV;
	if (compat)
		return fops->compat_ioctl ? fops->compat_ioctl(&file, cmd, arg)
					  : -ENOTTY;
	if (!fops->unlocked_ioctl)
		return -ENOTTY;
	return fops->unlocked_ioctl(&file, cmd, arg);
}

void host_chrdev_fail_next(int err, int n)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	chrdev_fail_err = err;
	chrdev_fail_left = n;
}

/* The class device: recorded by name, as devtmpfs would make the node. */
int jix_chrdev_node_create(const char *name, unsigned int major)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	int err = chrdev_node_fail_err;

	chrdev_node_fail_err = 0;
	if (err)
		return err;
	if (chrdev_nodes.count(name))
		return -EEXIST;
	chrdev_nodes[name] = major;
	return 0;
}

void jix_chrdev_node_remove(unsigned int major)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);

	for (auto it = chrdev_nodes.begin(); it != chrdev_nodes.end(); ++it) {
		if (it->second == major) {
			chrdev_nodes.erase(it);
			return;
		}
	}
}

unsigned int host_chrdev_node_major(const char *name)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	auto it = chrdev_nodes.find(name);

	return it == chrdev_nodes.end() ? 0 : it->second;
}

void host_chrdev_node_fail_next(int err)
{
	std::lock_guard<std::mutex> g(chrdev_mtx);
	chrdev_node_fail_err = err;
}

} /* extern "C" */
