// SPDX-License-Identifier: GPL-2.0-only
/* /dev/bootvigilk: a timer that fires unless the boot daemon cancels it. */

#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/atomic.h>
#include <linux/fs.h>
#include <linux/ioctl.h>
#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/reboot.h>
#include <linux/sched.h>
#include <linux/string.h>
#include <linux/timer.h>
#include <linux/version.h>

#include "bootvigilk.h"

#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 2, 0)
#define timer_delete_sync del_timer_sync
#endif

#define CANCEL_MONITOR _IOWR('b', 2, int) /* 0xC0046202; the number behind it is not used */
#define TIMEOUT_MAX (24 * 60 * 60)

static unsigned int timeout = 600;
module_param(timeout, uint, 0444);
MODULE_PARM_DESC(timeout, "Seconds until the monitor fires (default 600, 0: never)");

static char *action = "log";
module_param(action, charp, 0444);
MODULE_PARM_DESC(action, "What follows the line in the kernel log: log (nothing), reboot, panic");

static const char *const actions[] = { "log", "reboot", "panic" };

enum { ARMED, CANCELLED, EXPIRED };
static atomic_t state = ATOMIC_INIT(CANCELLED);

/* A timer and no work item: it fires though every worker hangs. */
static void expire(struct timer_list *timer)
{
	if (atomic_cmpxchg(&state, ARMED, EXPIRED) != ARMED)
		return;
	/* The daemon looks for this in the previous boot's console, which leaves out low levels. */
	printk(KERN_EMERG "bootvigil init_monitor_thread_main create KE\n");
	if (!strcmp(action, "reboot"))
		emergency_restart(); /* asks no driver: one of them may be what hangs */
	else if (!strcmp(action, "panic"))
		panic("bootvigil: no daemon in %u s", timeout);
}
static DEFINE_TIMER(timer, expire);

static long monitor_ioctl(struct file *file, unsigned int request, unsigned long argument)
{
	if (request != CANCEL_MONITOR)
		return -ENOTTY;
	switch (atomic_cmpxchg(&state, ARMED, CANCELLED)) {
	case ARMED:
		timer_delete_sync(&timer);
		pr_info("cancelled by %s, process %d\n", current->comm, task_pid_nr(current));
		return 0;
	case EXPIRED:
		return -ETIME;
	default: /* a daemon that has been started again */
		return 0;
	}
}

/* Any number may have it open: one that never closes it must not shut out the daemon. */
static const struct file_operations monitor_ops = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = monitor_ioctl,
	.compat_ioctl = compat_ptr_ioctl,
	.llseek = noop_llseek,
};

static struct miscdevice monitor_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "bootvigilk",
	.fops = &monitor_ops,
	.mode = 0600,
};

int monitor_start(void)
{
	int error;

	if (match_string(actions, ARRAY_SIZE(actions), action) < 0 || timeout > TIMEOUT_MAX) {
		pr_err("action %s, timeout %u: want log, reboot or panic, and at most %u s\n",
		       action, timeout, TIMEOUT_MAX);
		return -EINVAL;
	}
	if (timeout) { /* before anybody can cancel it */
		atomic_set(&state, ARMED);
		mod_timer(&timer, jiffies + timeout * HZ);
		pr_info("armed: %u s, then %s\n", timeout, action);
	}
	error = misc_register(&monitor_device);
	if (error)
		timer_delete_sync(&timer);
	return error;
}

void monitor_stop(void)
{
	misc_deregister(&monitor_device);
	timer_delete_sync(&timer);
	if (atomic_read(&state) == ARMED)
		pr_info("unloaded while armed\n");
}
