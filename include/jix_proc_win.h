/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Composing a proc text of any length into one page-sized read window.
 *
 * A read handler emits its whole text line by line; only the bytes that
 * fall into [off, off + count) are stored, at the start of the page.  So
 * a long listing is served completely over successive reads and never
 * written past the page.
 */
#ifndef JIX_PROC_WIN_H
#define JIX_PROC_WIN_H

#include "platform.h"

#define JIX_PROC_LINE_MAX	256

struct jix_proc_win {
	char *page;
	long off;		/* text offset of the window's first byte */
	long count;		/* window size, at most one page */
	long pos;		/* text emitted so far */
};

void jix_proc_win_init(struct jix_proc_win *w, char *page, off_t off,
		       int count);
/* Append formatted text (at most JIX_PROC_LINE_MAX bytes per call). */
void jix_proc_win_printf(struct jix_proc_win *w, const char *fmt, ...)
	__attribute__((format(printf, 2, 3)));
/* True once text went past the window: the caller may stop emitting. */
bool jix_proc_win_full(const struct jix_proc_win *w);
/* Finish the read: sets *start and *eof, returns the bytes in the window. */
int jix_proc_win_finish(struct jix_proc_win *w, char **start, int *eof);

#endif /* JIX_PROC_WIN_H */
