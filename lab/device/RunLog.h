// SPDX-License-Identifier: Apache-2.0
// The lab's own log of a run: JSON Lines, each with the device time "t" in seconds, the number of
// the "boot", its "kind" and that kind's fields.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lab {

using Record = nlohmann::ordered_json;

// Appends records to a file; each is one write, so that threads and processes don't mix lines.
class RunLog {
public:
    // Throws std::runtime_error when the file can't be opened. An existing one is extended.
    explicit RunLog(const std::string& path);
    ~RunLog();
    RunLog(const RunLog&) = delete;
    RunLog& operator=(const RunLog&) = delete;

    // The boot that the following records belong to, from 1.
    void setBoot(int boot) {
        mBoot = boot;
    }

    // `fields` must be an object; bytes that are no UTF-8 are replaced.
    void add(int64_t ms, const char* kind, const Record& fields);

    // Every record so far.
    std::vector<Record> read() const;

private:
    std::string mPath;
    int mFd;
    int mBoot = 0;
};

struct RecordsOfBoot {
    const Record* first;
    const Record* last;

    const Record* begin() const {
        return first;
    }
    const Record* end() const {
        return last;
    }
};

// One boot's part of a run's records, in which the boots follow each other.
RecordsOfBoot recordsOfBoot(const std::vector<Record>& records, int boot);

}  // namespace lab
