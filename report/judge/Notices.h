// SPDX-License-Identifier: Apache-2.0
// Finds what the daemon's log says of a failure, and the failures that only the log tells of.

#pragma once

#include <stddef.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "report/read/Report.h"

namespace report {

// Where a log gives notice of a failure.
struct Notice {
    const Boot* boot = nullptr;
    size_t event = 0;

    explicit operator bool() const {
        return boot != nullptr;
    }
    const Event& operator*() const {
        return boot->events[event];
    }
};

// The notices of some boots, which must outlive it.
class Notices {
public:
    explicit Notices(const std::vector<Boot>& boots);

    // The notice of a failure; none where the log does not reach it.
    Notice find(const Failure& failure) const;

    // All of them, oldest first.
    const std::vector<Notice>& all() const {
        return mAll;
    }

private:
    std::vector<Notice> mAll;
    std::unordered_map<std::string, Notice> mByKey;
};

// What the log of a boot says before a notice.
struct Story {
    const Event* since = nullptr;     // the first of the last polls that saw the same event
    const Event* deciding = nullptr;  // that names the stuck process or the loop
    int polls = 0;
    int timeouts = 0;
    const Event* timeout = nullptr;  // the last one
};
Story storyOf(const Notice& notice);

// Failures of which a log or the reason code tells, and no record: those after the last record.
std::vector<Failure> unrecordedFailures(const Report& report);

// The last capture that the journal tells of; null when there is none.
const JournalLine* lastCapture(const Report& report);

// Whether a capture of that time may be the one of a recorded failure.
bool isCaptureOf(const JournalLine& capture, const Failure& failure);

// The content of a small file, null when it isn't there.
const std::string* noteOf(const std::vector<Note>& notes, const std::string& file);

}  // namespace report
