// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
/* One event of the boot profile: what may be written, and how it is printed. */

#include "event.h"

#ifdef __KERNEL__
#include <linux/string.h>
#else
#include <string.h>
#endif

#define PID_LIMIT (4 * 1024 * 1024) /* of any kernel */

struct span {
	const char *at;
	size_t size;
};

static bool is_control(char c)
{
	return (unsigned char)c < ' ' || c == 0x7f;
}

static struct span trim(struct span field)
{
	while (field.size > 0 && field.at[0] == ' ') {
		field.at++;
		field.size--;
	}
	while (field.size > 0 && field.at[field.size - 1] == ' ')
		field.size--;
	return field;
}

/* Takes what comes before the next " :" out of the rest; false when there is no " :". */
static bool take_field(struct span *rest, struct span *field)
{
	size_t i;

	for (i = 0; i + 1 < rest->size; i++) {
		if (rest->at[i] != ' ' || rest->at[i + 1] != ':')
			continue;
		*field = trim((struct span){ rest->at, i });
		rest->at += i + 2;
		rest->size -= i + 2;
		return true;
	}
	return false;
}

/* Takes up to `most` decimal digits out of the rest; how many there were. */
static int take_number(struct span *rest, int most, unsigned long long *number)
{
	int digits = 0;

	*number = 0;
	while (digits < most && rest->size > 0 && rest->at[0] >= '0' && rest->at[0] <= '9') {
		*number = *number * 10 + (unsigned int)(rest->at[0] - '0');
		rest->at++;
		rest->size--;
		digits++;
	}
	return digits;
}

static bool read_time(struct span field, unsigned long long *ns)
{
	unsigned long long fraction = 0;
	int digits = 6;

	if (take_number(&field, 10, ns) == 0)
		return false;
	if (field.size > 0 && field.at[0] == '.') {
		field.at++;
		field.size--;
		digits = take_number(&field, 6, &fraction);
	}
	if (digits == 0 || field.size > 0)
		return false;
	for (; digits < 6; digits++)
		fraction *= 10;
	*ns = *ns * 1000000 + fraction;
	return true;
}

static bool read_process(struct span field, struct event_line *event)
{
	unsigned long long pid;

	if (take_number(&field, 7, &pid) == 0 || pid == 0 || pid > PID_LIMIT)
		return false;
	if (field.size < 2 || field.size - 1 > EVENT_NAME_MAX || field.at[0] != '-')
		return false;
	event->pid = (int)pid;
	memcpy(event->name, field.at + 1, field.size - 1);
	event->name[field.size - 1] = '\0';
	return true;
}

/* The text follows ": ", so that a colon in front would make a separator. */
static bool read_text(struct span rest, struct event_line *event)
{
	struct span field;

	rest = trim(rest);
	event->text = rest.at;
	event->size = rest.size;
	if (rest.size == 0 || rest.size > EVENT_TEXT_MAX || rest.at[0] == ':')
		return false;
	while (take_field(&rest, &field)) {
		if (field.size == 0)
			return false;
	}
	return trim(rest).size > 0;
}

bool event_read(const char *line, size_t size, struct event_line *event)
{
	struct span rest = { line, size };
	struct span field;
	size_t i;

	if (size > 0 && line[size - 1] == '\n')
		rest.size--;
	for (i = 0; i < rest.size; i++) {
		if (is_control(line[i]))
			return false;
	}
	rest = trim(rest);
	event->named = rest.size > 0 && rest.at[0] == '@';
	if (event->named) {
		rest.at++;
		rest.size--;
		if (!take_field(&rest, &field) || !read_time(field, &event->ns) ||
		    !take_field(&rest, &field) || !read_process(field, event))
			return false;
	}
	return read_text(rest, event);
}

void event_clean_name(char name[EVENT_NAME_MAX + 1])
{
	size_t i;

	if (name[0] == '\0')
		memcpy(name, "?", 2);
	for (i = 0; name[i] != '\0'; i++) {
		if (is_control(name[i]) || (i > 0 && name[i] == ':' && name[i - 1] == ' '))
			name[i] = '?';
	}
}
