// SPDX-License-Identifier: Apache-2.0
// The lab's own log of a run: JSON Lines, each with the device time "t" in seconds, the number of
// the "boot", its "kind" and that kind's fields.

#include "lab/device/RunLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include <nlohmann/json.hpp>

#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"

namespace lab {

RunLog::RunLog(const std::string& path)
    : mPath(path), mFd(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {
    if (mFd < 0) failWithErrno("cannot write", path);
}

RunLog::~RunLog() {
    close(mFd);
}

void RunLog::add(int64_t ms, const char* kind, const Record& fields) {
    // Put together by hand, as there are hundreds a boot.
    std::string line = "{\"t\":" + Record(static_cast<double>(ms) / 1000).dump() +
                       ",\"boot\":" + std::to_string(mBoot) + ",\"kind\":\"" + kind + "\"";
    const std::string rest = fields.dump(-1, ' ', false, Record::error_handler_t::replace);
    line += fields.empty() ? "}" : "," + rest.substr(1);
    line += '\n';
    if (write(mFd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        endBroken(("cannot write " + mPath).c_str());
    }
}

std::vector<Record> RunLog::read() const {
    std::vector<Record> records;
    std::ifstream file(mPath);
    std::string line;
    while (std::getline(file, line)) records.push_back(Record::parse(line));
    return records;
}

RecordsOfBoot recordsOfBoot(const std::vector<Record>& records, int boot) {
    const auto first = std::partition_point(records.begin(), records.end(),
                                            [&](const Record& one) { return one["boot"] < boot; });
    const auto last = std::partition_point(first, records.end(),
                                           [&](const Record& one) { return one["boot"] == boot; });
    return {records.data() + (first - records.begin()), records.data() + (last - records.begin())};
}

}  // namespace lab
