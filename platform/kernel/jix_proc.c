// SPDX-License-Identifier: GPL-2.0
/*
 * Legacy page-filling proc files on top of proc_create_data().
 *
 * The module's proc handlers follow the old create_proc_entry() contract:
 * a read handler fills one page and says where the bytes to hand out
 * start.  Here each read() calls the handler once with the file position
 * as offset and copies what it returns.
 *
 * A name may hold one directory ("kv7730/jix_mc_debug").  A directory that
 * does not exist yet is made with the first file in it and removed with
 * the last; one that already exists (made by someone else) is used and
 * left alone.  A registry under jix_proc_lock keeps both.  Creation and
 * removal may sleep: process context only.
 */
#include "platform.h"

#include <linux/mutex.h>
#include <linux/namei.h>
#include <linux/proc_fs.h>

/*
 * The proc_dir_entry's private data moved to the inode and its accessor
 * was renamed from PDE_DATA() to pde_data() (5.17).
 */
#ifdef JIX_HAVE_PDE_DATA_LC
#define jix_pde_data(inode)	pde_data(inode)
#else
#define jix_pde_data(inode)	PDE_DATA(inode)
#endif

struct jix_proc_dir {
	struct list_head list;
	struct proc_dir_entry *pde;	/* NULL: not ours, never removed */
	unsigned int files;
	char name[];
};

struct jix_proc_file {
	struct jix_proc_entry entry;	/* what the module sees */
	struct list_head list;
	struct proc_dir_entry *pde;
	struct jix_proc_dir *dir;	/* NULL for a file in /proc itself */
	char name[];			/* full name as created */
};

static DEFINE_MUTEX(jix_proc_lock);
static LIST_HEAD(jix_proc_files);
static LIST_HEAD(jix_proc_dirs);

static ssize_t jix_proc_read(struct file *file, char __user *buf,
			     size_t count, loff_t *ppos)
{
	struct jix_proc_file *pf = jix_pde_data(file_inode(file));
	jix_read_proc_t *read_proc = READ_ONCE(pf->entry.read_proc);
	char *page, *start = NULL;
	int eof = 0;
	ssize_t ret;
	int n;

	if (!read_proc || *ppos < 0 || *ppos > INT_MAX)
		return 0;
	count = min_t(size_t, count, JIX_PROC_PAGE_SIZE);
	if (!count)
		return 0;
	page = kzalloc(JIX_PROC_PAGE_SIZE, GFP_KERNEL);
	if (!page)
		return -ENOMEM;

	n = read_proc(page, &start, (off_t)*ppos, (int)count, &eof,
		      pf->entry.data);
	if (n <= 0) {
		ret = n;
		goto out;
	}
	if (!start)
		start = page;
	n = min_t(int, n, count);
	if (WARN_ON_ONCE(start < page ||
			 start + n > page + JIX_PROC_PAGE_SIZE))
		ret = -EIO;
	else if (copy_to_user(buf, start, n))
		ret = -EFAULT;
	else
		ret = n;
	if (ret > 0)
		*ppos += ret;
out:
	kfree(page);
	return ret;
}

static ssize_t jix_proc_write(struct file *file, const char __user *buf,
			      size_t count, loff_t *ppos)
{
	struct jix_proc_file *pf = jix_pde_data(file_inode(file));
	jix_write_proc_t *write_proc = READ_ONCE(pf->entry.write_proc);

	if (!write_proc)
		return -EIO;
	return write_proc(file, buf, count, pf->entry.data);
}

/* struct proc_ops replaced struct file_operations for proc files (5.6). */
#ifdef JIX_HAVE_PROC_OPS
static const struct proc_ops jix_proc_fops = {
	.proc_read	= jix_proc_read,
	.proc_write	= jix_proc_write,
	.proc_lseek	= default_llseek,
};
#else
static const struct file_operations jix_proc_fops = {
	.owner		= THIS_MODULE,
	.read		= jix_proc_read,
	.write		= jix_proc_write,
	.llseek		= default_llseek,
};
#endif

/* Caller holds jix_proc_lock. */
static struct jix_proc_file *jix_proc_find_file(const char *name)
{
	struct jix_proc_file *pf;

	list_for_each_entry(pf, &jix_proc_files, list)
		if (!strcmp(pf->name, name))
			return pf;
	return NULL;
}

/* True when /proc/@name exists (someone else made that directory). */
static bool jix_proc_dir_exists(const char *name)
{
	struct path path;
	char *full;
	int err;

	full = kasprintf(GFP_KERNEL, "/proc/%s", name);
	if (!full)
		return false;
	err = kern_path(full, LOOKUP_DIRECTORY, &path);
	kfree(full);
	if (err)
		return false;
	path_put(&path);
	return true;
}

/*
 * Find or make the directory of the first @len bytes of @name and count
 * one more file in it.  Caller holds jix_proc_lock.  Returns NULL on
 * failure.
 */
static struct jix_proc_dir *jix_proc_get_dir(const char *name, size_t len)
{
	struct jix_proc_dir *dir;

	list_for_each_entry(dir, &jix_proc_dirs, list) {
		if (strlen(dir->name) == len && !strncmp(dir->name, name, len)) {
			dir->files++;
			return dir;
		}
	}
	dir = kzalloc(sizeof(*dir) + len + 1, GFP_KERNEL);
	if (!dir)
		return NULL;
	memcpy(dir->name, name, len);
	if (!jix_proc_dir_exists(dir->name)) {
		dir->pde = proc_mkdir(dir->name, NULL);
		if (!dir->pde) {
			kfree(dir);
			return NULL;
		}
	}
	dir->files = 1;
	list_add_tail(&dir->list, &jix_proc_dirs);
	return dir;
}

/* Caller holds jix_proc_lock. */
static void jix_proc_put_dir(struct jix_proc_dir *dir)
{
	if (!dir || --dir->files)
		return;
	list_del(&dir->list);
	if (dir->pde)
		proc_remove(dir->pde);
	kfree(dir);
}

/* One optional directory component, no empty parts. */
static bool jix_proc_name_ok(const char *name, const char **slash)
{
	*slash = strchr(name, '/');
	if (!*name || *slash == name)
		return false;
	if (*slash && (!(*slash)[1] || strchr(*slash + 1, '/')))
		return false;
	return true;
}

struct jix_proc_entry *jix_create_proc_entry(const char *name, umode_t mode)
{
	struct jix_proc_file *pf = NULL;
	const char *slash;
	size_t len;

	if (!name || !jix_proc_name_ok(name, &slash))
		return NULL;
	len = strlen(name);
	mutex_lock(&jix_proc_lock);
	if (jix_proc_find_file(name))
		goto out;
	pf = kzalloc(sizeof(*pf) + len + 1, GFP_KERNEL);
	if (!pf)
		goto out;
	memcpy(pf->name, name, len);
	if (slash) {
		pf->dir = jix_proc_get_dir(name, slash - name);
		if (!pf->dir)
			goto fail;
	}
	/* The path is resolved from /proc, ours or not. */
	pf->pde = proc_create_data(name, mode, NULL, &jix_proc_fops, pf);
	if (!pf->pde)
		goto fail_dir;
	list_add_tail(&pf->list, &jix_proc_files);
	goto out;

fail_dir:
	jix_proc_put_dir(pf->dir);
fail:
	kfree(pf);
	pf = NULL;
out:
	mutex_unlock(&jix_proc_lock);
	return pf ? &pf->entry : NULL;
}

void jix_remove_proc_entry(const char *name)
{
	struct jix_proc_file *pf;

	mutex_lock(&jix_proc_lock);
	pf = name ? jix_proc_find_file(name) : NULL;
	if (pf) {
		list_del(&pf->list);
		/* Waits for reads and writes in progress to return. */
		proc_remove(pf->pde);
		jix_proc_put_dir(pf->dir);
		kfree(pf);
	}
	mutex_unlock(&jix_proc_lock);
}
