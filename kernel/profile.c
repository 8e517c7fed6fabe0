// SPDX-License-Identifier: GPL-2.0-only
/* /proc/velabootprof: keeps the events of the boot and prints them. */

#include <linux/capability.h>
#include <linux/fs.h>
#include <linux/jiffies.h>
#include <linux/ktime.h>
#include <linux/mutex.h>
#include <linux/proc_fs.h>
#include <linux/ratelimit.h>
#include <linux/sched.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>
#include <linux/user_namespace.h>

#include "bootvigilk.h"
#include "event.h"

/* The limits, which Kconfig names too. */
#define FIRST_KEPT 512
#define LAST_KEPT 3584
#define RATE_EVENTS 256 /* of one process in RATE_PERIOD */
#define RATE_PERIOD (5 * HZ)
#define RATE_PROCESSES 64 /* watched at a time */

#define PROFILE_NAME "velabootprof"
#define LINE_SIZE 80 /* of a usual line; a longer text costs a second pass over all lines */

struct event {
	u64 ns;
	pid_t pid;
	char name[EVENT_NAME_MAX + 1];
	char text[EVENT_TEXT_MAX + 1];
};

struct writer {
	pid_t process;
	unsigned long used; /* jiffies */
	struct ratelimit_state rate;
};

static struct kmem_cache *events; /* of 192 bytes; the sizes of kmalloc() differ by architecture */

/* All below is under this lock. */
static DEFINE_MUTEX(profile_lock);
static u64 started;
static struct event *first[FIRST_KEPT];
static struct event *last[LAST_KEPT]; /* a ring, filled once `first` is full */
static unsigned int first_count;
static unsigned int last_count;
static unsigned int last_next;
static u64 left_out;
static struct writer writers[RATE_PROCESSES];

/* Returns the event that had to go, NULL when there is room. */
static struct event *keep_event(struct event *event)
{
	struct event *old;

	if (first_count < FIRST_KEPT) {
		first[first_count++] = event;
		return NULL;
	}
	old = last[last_next];
	last[last_next] = event;
	last_next = (last_next + 1) % LAST_KEPT;
	if (old)
		left_out++;
	else
		last_count++;
	return old;
}

/* The process's own entry, or that of the one that has been silent for longest. */
static bool within_rate(pid_t process)
{
	struct writer *writer = &writers[0];
	struct writer *each;

	for (each = writers; each < writers + RATE_PROCESSES; each++) {
		if (each->process == process) {
			writer = each;
			break;
		}
		if (!each->process || (writer->process && time_before(each->used, writer->used)))
			writer = each;
	}
	if (writer->process != process) {
		writer->process = process;
		ratelimit_state_init(&writer->rate, RATE_PERIOD, RATE_EVENTS);
		ratelimit_set_flags(&writer->rate, RATELIMIT_MSG_ON_RELEASE);
	}
	writer->used = jiffies;
	return __ratelimit(&writer->rate);
}

static void print_event(struct seq_file *file, const struct event *event)
{
	seq_printf(file, EVENT_TIME EVENT_BY "%s\n", EVENT_TIME_OF(event->ns), event->pid,
		   event->name, event->text);
}

/* One call prints everything, which makes what a reader gets a snapshot. */
static int print_profile(struct seq_file *file, void *unused)
{
	unsigned int i;

	mutex_lock(&profile_lock);
	seq_puts(file, EVENT_HEAD);
	seq_printf(file, EVENT_TIME ": ON\n", EVENT_TIME_OF(started));
	for (i = 0; i < first_count; i++)
		print_event(file, first[i]);
	if (left_out)
		seq_printf(file, EVENT_LEFT_OUT, (unsigned long long)left_out);
	for (i = 0; i < last_count; i++)
		print_event(file, last[(last_next + LAST_KEPT - last_count + i) % LAST_KEPT]);
	seq_printf(file, EVENT_TIME ": OFF\n" EVENT_RULER, EVENT_TIME_OF(ktime_get_ns()));
	mutex_unlock(&profile_lock);
	return 0;
}

static int open_profile(struct inode *inode, struct file *file)
{
	size_t size;

	if (!(file->f_mode & FMODE_READ))
		return single_open(file, print_profile, NULL);
	mutex_lock(&profile_lock);
	size = PAGE_SIZE + (first_count + last_count) * LINE_SIZE;
	mutex_unlock(&profile_lock);
	return single_open_size(file, print_profile, NULL, size);
}

static int add_event(const struct event_line *line)
{
	struct event *event = kmem_cache_alloc(events, GFP_KERNEL);
	int error = 0;

	if (!event)
		return -ENOMEM;
	memcpy(event->text, line->text, line->size);
	event->text[line->size] = '\0';
	event->pid = line->named ? line->pid : task_pid_nr(current);
	if (line->named) {
		strscpy(event->name, line->name, sizeof(event->name));
	} else {
		get_task_comm(event->name, current);
		event_clean_name(event->name);
	}

	mutex_lock(&profile_lock);
	event->ns = ktime_get_ns(); /* under the lock: times never go back */
	if (line->named && line->ns > event->ns)
		error = -EINVAL;
	else if (!line->named && !within_rate(task_tgid_nr(current)))
		error = -EAGAIN;
	if (line->named)
		event->ns = line->ns;
	if (!error)
		event = keep_event(event);
	mutex_unlock(&profile_lock);
	if (event)
		kmem_cache_free(events, event);
	return error;
}

static ssize_t write_profile(struct file *file, const char __user *from, size_t size, loff_t *at)
{
	char line[EVENT_COLUMNS_MAX + EVENT_TEXT_MAX + 1]; /* one for the line feed */
	struct event_line event;
	int error;

	if (size > sizeof(line))
		return -EINVAL;
	if (copy_from_user(line, from, size))
		return -EFAULT;
	if (!event_read(line, size, &event))
		return -EINVAL;
	/* Of who opened the file: a privileged program may be handed it as its output. */
	if (event.named && !file_ns_capable(file, &init_user_ns, CAP_SYSLOG))
		return -EPERM;
	error = add_event(&event);
	return error ? error : size;
}

static const struct proc_ops profile_ops = {
	.proc_open = open_profile,
	.proc_read = seq_read,
	.proc_write = write_profile,
	.proc_lseek = seq_lseek,
	.proc_release = single_release,
};

int profile_start(void)
{
	started = ktime_get_ns();
	events = kmem_cache_create("bootvigilk_event", sizeof(struct event), 0, 0, NULL);
	if (!events)
		return -ENOMEM;
	/* Start-up gives it the owner, group and mode that writers and the daemon need. */
	if (proc_create(PROFILE_NAME, 0600, NULL, &profile_ops))
		return 0;
	kmem_cache_destroy(events);
	return -ENOMEM;
}

void profile_stop(void)
{
	unsigned int i;

	remove_proc_entry(PROFILE_NAME, NULL); /* waits for calls under way, closes what is open */
	for (i = 0; i < first_count; i++)
		kmem_cache_free(events, first[i]);
	for (i = 0; i < last_count; i++)
		kmem_cache_free(events, last[i]);
	kmem_cache_destroy(events);
}
