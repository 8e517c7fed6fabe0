// SPDX-License-Identifier: Apache-2.0
// The daemon's calls to the file system and for memory: counted, traced, and failing where a
// scenario says so. Like virtual time, libc functions are defined here, in the executable.

#pragma once

#include "lab/base/Trace.h"
#include "lab/scenario/Scenario.h"

namespace lab::calls {

// From here on the daemon's calls on /velafs, /data and what the
// platform keeps raw logs in are watched, in this process and only once.
// Both must outlive it.
void start(const Boot& boot, Trace& trace);

// While one of these lives, what its thread does is the lab's own work and not watched.
class Unwatched {
public:
    Unwatched();
    ~Unwatched();
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;
};

// Room left on /velafs in bytes; negative when the scenario sets no limit.
int64_t spaceLeft();

// The partition has become read-only, for which the kernel wrote out what was written to it.
void partitionReadOnly();

// The kernel wrote out everything that was written: somebody has synced.
void allWrittenOut();

// The calling thread is the one whose allocations are counted.
void thisIsTheWorker();

// The power goes now: files written less than half a minute before suffer what the scenario says,
// and the process ends as cut off.
[[noreturn]] void cutPower();

}  // namespace lab::calls
