// SPDX-License-Identifier: GPL-2.0-only
/* The driver's start and end. */

#include <linux/module.h>

#include "bootvigilk.h"

static int __init bootvigilk_start(void)
{
	int error = profile_start();

	if (error)
		return error;
	error = monitor_start();
	if (error)
		profile_stop();
	return error;
}
module_init(bootvigilk_start);

static void __exit bootvigilk_stop(void)
{
	monitor_stop();
	profile_stop();
}
module_exit(bootvigilk_stop);

MODULE_DESCRIPTION("Boot profile, and a monitor that fires when no boot daemon starts");
MODULE_LICENSE("GPL");
