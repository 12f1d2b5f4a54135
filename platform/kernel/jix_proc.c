// SPDX-License-Identifier: GPL-2.0
/*
 * Legacy page-filling proc files on top of proc_create_data().
 *
 * The module's proc handlers follow the old create_proc_entry() contract:
 * a read handler fills one page and says where the bytes to hand out
 * start.  Here each read() calls the handler once with the file position
 * as offset and copies what it returns.
 *
 * A directory is made in procfs itself with proc_mkdir() and its handle
 * kept by the caller, so nothing depends on what the loading process sees
 * at /proc.  When procfs already has that name (someone else's directory;
 * the kernel warns), the files are created by their full path from the
 * procfs root instead, which still resolves inside procfs, and that
 * directory is left alone.  A registry under jix_proc_lock keeps the
 * files.  Creation and removal may sleep: process context only.
 */
#include "platform.h"

#include <linux/mutex.h>
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
	struct proc_dir_entry *pde;	/* NULL: the name is someone else's */
	char name[];
};

struct jix_proc_file {
	struct jix_proc_entry entry;	/* what the module sees */
	struct list_head list;
	struct proc_dir_entry *pde;
	struct jix_proc_dir *dir;	/* NULL: a file in /proc itself */
	char name[];
};

static DEFINE_MUTEX(jix_proc_lock);
static LIST_HEAD(jix_proc_files);

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
static struct jix_proc_file *jix_proc_find_file(const char *name,
						struct jix_proc_dir *dir)
{
	struct jix_proc_file *pf;

	list_for_each_entry(pf, &jix_proc_files, list)
		if (pf->dir == dir && !strcmp(pf->name, name))
			return pf;
	return NULL;
}

struct jix_proc_dir *jix_proc_mkdir(const char *name)
{
	struct jix_proc_dir *dir;
	size_t len;

	if (!name || !*name || strchr(name, '/'))
		return NULL;
	len = strlen(name);
	dir = kzalloc(sizeof(*dir) + len + 1, GFP_KERNEL);
	if (!dir)
		return NULL;
	memcpy(dir->name, name, len);
	dir->pde = proc_mkdir(name, NULL);
	return dir;
}

void jix_proc_rmdir(struct jix_proc_dir *dir)
{
	if (!dir)
		return;
	if (dir->pde)
		proc_remove(dir->pde);
	kfree(dir);
}

/* In someone else's directory: by full path from the procfs root. */
static struct proc_dir_entry *jix_proc_create(struct jix_proc_file *pf,
					      umode_t mode)
{
	struct proc_dir_entry *pde;
	char *path;

	if (!pf->dir)
		return proc_create_data(pf->name, mode, NULL, &jix_proc_fops, pf);
	if (pf->dir->pde)
		return proc_create_data(pf->name, mode, pf->dir->pde,
					&jix_proc_fops, pf);
	path = kasprintf(GFP_KERNEL, "%s/%s", pf->dir->name, pf->name);
	if (!path)
		return NULL;
	pde = proc_create_data(path, mode, NULL, &jix_proc_fops, pf);
	kfree(path);
	return pde;
}

struct jix_proc_entry *jix_create_proc_entry(const char *name, umode_t mode,
					     struct jix_proc_dir *parent)
{
	struct jix_proc_file *pf = NULL;
	size_t len;

	if (!name || !*name || strchr(name, '/'))
		return NULL;
	len = strlen(name);
	mutex_lock(&jix_proc_lock);
	if (jix_proc_find_file(name, parent))
		goto out;
	pf = kzalloc(sizeof(*pf) + len + 1, GFP_KERNEL);
	if (!pf)
		goto out;
	memcpy(pf->name, name, len);
	pf->dir = parent;
	pf->pde = jix_proc_create(pf, mode);
	if (!pf->pde) {
		kfree(pf);
		pf = NULL;
		goto out;
	}
	list_add_tail(&pf->list, &jix_proc_files);
out:
	mutex_unlock(&jix_proc_lock);
	return pf ? &pf->entry : NULL;
}

void jix_remove_proc_entry(const char *name, struct jix_proc_dir *parent)
{
	struct jix_proc_file *pf;

	if (!name)
		return;
	mutex_lock(&jix_proc_lock);
	pf = jix_proc_find_file(name, parent);
	if (pf) {
		list_del(&pf->list);
		/* Waits for reads and writes in progress to return. */
		proc_remove(pf->pde);
		kfree(pf);
	}
	mutex_unlock(&jix_proc_lock);
}
