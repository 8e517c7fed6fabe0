// SPDX-License-Identifier: Apache-2.0
// The feed: whatever the events buffer holds, the driver takes each line that it writes, for who
// logged it, and nothing is written twice.

#include <stdint.h>
#include <stdio.h>

#include <set>

#include "device/feed/Feed.h"
#include "fuzz/FuzzDevice.h"
#include "lab/base/Text.h"

extern "C" {
#include "kernel/event.h"
}

using namespace fuzz;

namespace {

constexpr uint64_t kStep = 400;  // ms between two lines

std::string print(const event_line& event) {
    char columns[EVENT_COLUMNS_MAX];
    snprintf(columns, sizeof(columns), EVENT_TIME EVENT_BY, EVENT_TIME_OF(event.ns), event.pid,
             event.name);
    return columns + std::string(event.text, event.size) + "\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> lines =
            lab::linesOf(std::string(reinterpret_cast<const char*>(data), size));
    Feed feed("");
    std::string profile = EVENT_HEAD;
    std::set<std::string> printed;
    uint64_t now = 1000;
    for (const std::string& text : lines) {
        LogLine line;
        now += kStep;
        if (!readLogcatLine(text, line)) continue;
        for (const std::string& written : feed.eventsOf(line, now)) {
            event_line event = {};
            if (!event_read(written.data(), written.size(), &event) || !event.named) {
                fault("the driver refuses: " + written);
            }
            if (event.pid != line.pid) fault("another's pid: " + written);
            if (event.ns > now * 1000000) fault("from the future: " + written);
            if (line.uid != 0 && line.uid != 1000) fault("a stranger's: " + written);
            if (!printed.insert(print(event)).second) fault("a second time: " + written);
            profile += print(event);
        }
    }
    Feed again(profile);
    for (const std::string& text : lines) {
        LogLine line;
        if (!readLogcatLine(text, line)) continue;
        for (const std::string& written : again.eventsOf(line, now)) {
            event_line event = {};
            event_read(written.data(), written.size(), &event);
            if (printed.count(print(event)) != 0) fault("again: " + written);
        }
    }
    return 0;
}
