// SPDX-License-Identifier: Apache-2.0
// The messages that the daemon handled in a recorded run, and the verdicts it came to.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "report/read/DaemonLog.h"
#include "report/read/ErrorNumber.h"

namespace lab {

// One message of the daemon's handler with the lines logged for it; the first stands for the start.
struct Message {
    unsigned int what = 0;
    int64_t seenAt = 0;  // ms
    int64_t at = 0;      // when it was due
    std::vector<std::string> lines;
};

// A verdict of the daemon, as its own log tells of it.
struct Verdict {
    size_t message = 0;                        // which of the run's messages came to it
    int64_t at = 0;                            // device time of that message as it was due, ms
    int64_t seenAt = 0;                        // as the log has it
    std::optional<report::ErrorNumber> error;  // none for an animation that stays
    std::string stuckPid;                      // empty: not asked for
    std::string reasonCode;                    // likewise
    std::string capturedBy;                    // empty: the log does not say
};

struct RecordedRun {
    std::vector<Message> messages;
    std::vector<std::string> notKnown;  // what had to be assumed
};

// Cuts a run into messages. Throws std::runtime_error for a run longer than any boot.
RecordedRun readRun(const report::DaemonRun& run);

std::vector<Verdict> verdictsOf(const std::vector<Message>& messages);
std::vector<Verdict> findVerdicts(const report::DaemonRun& run);

// "12.5 s"
std::string seconds(int64_t ms);

}  // namespace lab
