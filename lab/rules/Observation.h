// SPDX-License-Identifier: Apache-2.0
// What a boot was seen to do, and a rule that it broke: all that the rules learn, and all they say.

#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "lab/base/Trace.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// One boot from outside.
struct BootObservation {
    enum class End { EXITED, KILLED, CUT_OFF, STILL_RUNNING };

    BootObservation(const Scenario& scenario, const Boot& itsBoot)
        : device(scenario), boot(itsBoot) {}

    const Scenario& device;
    const Boot& boot;
    TextMap properties;  // at its start
    // By device path: the folders from /velafs and /data on, which end in "/", and the files below
    // them but for archives (.zs) and for those that only the world fills.
    TextMap filesBefore, filesAfter;
    std::vector<TraceEvent> events;
    End end = End::EXITED;
    int status = 0;       // exit status or signal
    int64_t endedAt = 0;  // device time, ms
    time_t clock = 0;     // time of day at its start, UTC
    std::string console;  // the kernel's, of the boot before
    TextMap logBuffers;   // by name, at its end; with archives only
    TextMap archives;     // what the archives hold, by device path; empty when not looked at
};

// A rule that was broken.
struct Violation {
    enum class Kind {
        CRASH,     // the process ended as nothing allows
        LIVENESS,  // it did not end, or did not do what was due
        RULE,      // it did what it must not
    };
    Kind kind = Kind::RULE;
    std::string text;  // one line: the device time in seconds, what happened, the rule
};

}  // namespace lab
