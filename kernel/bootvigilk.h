/* SPDX-License-Identifier: GPL-2.0-only */
/* What the parts of the driver give its start and its end. */
#ifndef BOOTVIGILK_H
#define BOOTVIGILK_H

/* /proc/velabootprof */
int profile_start(void);
void profile_stop(void);

/* /dev/bootvigilk and its timer */
int monitor_start(void);
void monitor_stop(void);

#endif
