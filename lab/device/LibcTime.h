// SPDX-License-Identifier: Apache-2.0
// Virtual time for a process that runs the daemon: the libc calls that tie it to time and to other
// processes are defined here, in the executable, and so serve the platform's libraries too.

#pragma once

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>

#include "lab/base/DeviceTime.h"

struct statfs;

namespace lab {

// What surrounds the daemon. Called on whichever of its threads lets time pass.
class World {
public:
    virtual ~World() = default;

    // The daemon sleeps until `target` (device time in ms, kNever when it has no timer), or looks
    // at the clock at `target`: makes everything happen that is due until then. May end the
    // process.
    virtual void advanceTo(int64_t target) = 0;

    // A signal to another process, which is never sent.
    virtual void onSignal(pid_t pid, int signal) = 0;

    // The request to the kernel-side boot monitor; gives the ioctl's result.
    virtual int onCancelMonitor() = 0;

    // The worker is about to sleep, with nothing left to do.
    virtual void onIdle() {}

    // It sleeps no more, because its timer is due.
    virtual void onWake() {}

    // The free space of the file system that holds `path` was asked for; may change the answer.
    virtual void onFreeSpace(const char* path, struct statfs& info) = 0;
};

namespace vtime {

// From here on the process runs in virtual time, which stands at 0 until letTimeFlow(). `clock`
// receives the device time in ms and may lie in shared memory; `wallClock` is the time of day at 0.
// A world of null is one where nothing happens.
void start(World* world, std::atomic<int64_t>* clock, time_t wallClock);

// Time flows once the main thread has nothing more to do: called by pause(), or by a test.
void letTimeFlow();

// Back to real time; the world is not called any more. A thread that waits for its timers waits for
// ever.
void stop();

int64_t now();
void setNow(int64_t ms);

// The time of day now; somebody sets it forward or back.
time_t timeOfDay();
void shiftTimeOfDay(time_t seconds);

}  // namespace vtime

}  // namespace lab
