// SPDX-License-Identifier: GPL-2.0
#include "jix_proc_win.h"

void jix_proc_win_init(struct jix_proc_win *w, char *page, off_t off,
		       int count)
{
	w->page = page;
	w->off = off < 0 ? 0 : off;
	w->count = count < 0 ? 0 : min_t(long, count, JIX_PROC_PAGE_SIZE);
	w->pos = 0;
}

bool jix_proc_win_full(const struct jix_proc_win *w)
{
	return w->pos > w->off + w->count;
}

void jix_proc_win_printf(struct jix_proc_win *w, const char *fmt, ...)
{
	char line[JIX_PROC_LINE_MAX];
	long from, to;
	va_list ap;
	int len;

	if (jix_proc_win_full(w))
		return;
	va_start(ap, fmt);
	len = vscnprintf(line, sizeof(line), fmt, ap);
	va_end(ap);
	/* The part of [pos, pos + len) inside [off, off + count). */
	from = max_t(long, w->pos, w->off);
	to = min_t(long, w->pos + len, w->off + w->count);
	if (from < to)
		memcpy(w->page + (from - w->off), line + (from - w->pos),
		       to - from);
	w->pos += len;
}

int jix_proc_win_finish(struct jix_proc_win *w, char **start, int *eof)
{
	long end = w->off + w->count;

	*start = w->page;
	if (w->pos <= end)
		*eof = 1;
	if (w->pos <= w->off)
		return 0;
	return (int)(min_t(long, w->pos, end) - w->off);
}
