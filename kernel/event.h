/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* One event of the boot profile: what may be written, and how it is printed. */
#ifndef BOOTVIGILK_EVENT_H
#define BOOTVIGILK_EVENT_H

/* Also compiled in user space, for the tests. */
#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stdbool.h>
#include <stddef.h>
#endif

#define EVENT_TEXT_MAX 160 /* bytes */
#define EVENT_NAME_MAX 15
#define EVENT_COLUMNS_MAX 64 /* before the text of a line that names its process */

#define EVENT_RULER "----------------------------------------\n"
#define EVENT_HEAD EVENT_RULER "0           BOOT PROF (unit:msec)\n" EVENT_RULER
#define EVENT_TIME "%10llu.%06u "
#define EVENT_TIME_OF(ns) (unsigned long long)((ns) / 1000000), (unsigned int)((ns) % 1000000)
#define EVENT_BY ":%5d-%-16s: " /* pid, name */
/* Two fields, so that no reader takes it for an event. */
#define EVENT_LEFT_OUT "       ... : %llu events left out\n"

struct event_line {
	bool named; /* the line says when and who; otherwise the next three are not set */
	unsigned long long ns;
	int pid;
	char name[EVENT_NAME_MAX + 1];
	const char *text; /* within the line, without blanks around it */
	size_t size;
};

/*
 * Reads what a process writes: "EVENT" or "@MSEC[.FRACTION] :PID-NAME :EVENT", with or without a
 * line feed. False for anything else, and where a reader that cuts lines at " :" would get a
 * blank field.
 */
bool event_read(const char *line, size_t size, struct event_line *event);

/* Replaces what must not stand in a line: any process may give itself any name. */
void event_clean_name(char name[EVENT_NAME_MAX + 1]);

#endif
