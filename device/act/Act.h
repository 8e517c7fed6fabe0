// SPDX-License-Identifier: Apache-2.0
// What the platform does about the daemon's requests: reads the device's state, lets Budget.h
// decide, and carries it out.

#pragma once

#include "device/act/Budget.h"

namespace act {

// Before the daemon, once a boot: keeps what tells later whether the clock was set, and takes back
// a wipe that was never begun.
void start();

// The framework is up. Counts the boot where an earlier action still does, and notes a boot that
// came up after the daemon's end.
void cameUp();

// The daemon's request. Waits, so that a slow boot may still come up; what is decided is in the
// kernel log, and a refusal in a file of the partition.
Verdict answer(Action action);

}  // namespace act
