// SPDX-License-Identifier: Apache-2.0
// The messages that the daemon handled in a recorded run, and the verdicts it came to.

#include "lab/replay/RecordedRun.h"

#include <stdio.h>

#include <algorithm>
#include <stdexcept>

#include "bootvigil/Messages.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

constexpr int64_t kTick = 10000;          // ms; every message of the daemon falls due at a multiple
constexpr int64_t kLongestWait = 130000;  // ms between two of its lines, with something to spare
constexpr size_t kMostMessages = 10000;   // a day has 3240
constexpr size_t kLongestLine = 4096;     // Android's log cuts at less

// When a message seen at `ms` was due: a device is late by some ms at each.
int64_t dueAt(int64_t ms) {
    return (ms + kTick / 2) / kTick * kTick;
}

// How long before the first line kept the daemon started, when its own first line is gone.
int64_t missingTime(const std::vector<Message>& messages) {
    const auto first = [&](unsigned int what) {
        return std::find_if(messages.begin(), messages.end(),
                            [&](const Message& message) { return message.what == what; });
    };
    const auto poll = first(MSG_POLL);
    const int64_t least = poll == messages.end() ? 0 : kTick * 4 - dueAt(poll->seenAt);
    const auto timeout = first(MSG_BOOT_TIMEOUT);
    if (timeout == messages.end()) return std::max<int64_t>(least, 0);
    int64_t start = kTick * 25 - timeout->seenAt;
    while (start < std::max<int64_t>(least, 0) - kTick / 2) start += kTick * 24;
    return start;
}

}  // namespace

std::string seconds(int64_t ms) {
    return formatSeconds(static_cast<double>(ms) / 1000) + " s";
}

RecordedRun readRun(const report::DaemonRun& run) {
    std::vector<Message> messages(1);
    std::vector<std::string> notKnown;
    int64_t skipped = 0;
    int steps = 0;
    int tooLong = 0;
    for (size_t i = 0; i < run.lines.size(); ++i) {
        const report::DaemonLine& line = run.lines[i];
        const int64_t waited = i == 0 ? 0 : line.ms - run.lines[i - 1].ms;
        if (waited > kLongestWait) {
            skipped += waited - kPollPeriod / 1000000;
            ++steps;
        }
        if (line.text.size() > kLongestLine) {
            ++tooLong;
            continue;
        }
        unsigned int what = 0;
        if (sscanf(line.text.c_str(), "handleMessage 2 what = %6x", &what) == 1) {
            messages.push_back({what, line.ms - run.lines.front().ms - skipped, 0, {}});
            if (messages.size() > kMostMessages) {
                throw std::runtime_error("no boot has so many polls");
            }
        } else {
            messages.back().lines.push_back(line.text);
        }
    }
    const int64_t missing = run.beginningKept ? 0 : missingTime(messages);
    for (size_t i = 1; i < messages.size(); ++i) {
        messages[i].seenAt += missing;
        messages[i].at = dueAt(messages[i].seenAt);
    }
    if (!run.beginningKept) {
        notKnown.push_back("when the daemon started, as its first lines are gone; taken as " +
                           seconds(missing) + " before the first one kept");
    }
    if (steps > 0) {
        notKnown.push_back("the time when the clock was set forward (" + std::to_string(steps) +
                           " times); each taken as one poll period");
    }
    if (tooLong > 0) {
        notKnown.push_back("what " + std::to_string(tooLong) +
                           " lines say that are longer than Android's log allows; passed over");
    }
    return {std::move(messages), std::move(notKnown)};
}

std::vector<Verdict> verdictsOf(const std::vector<Message>& messages) {
    std::vector<Verdict> verdicts;
    for (size_t i = 0; i < messages.size(); ++i) {
        std::string pid = "none named";
        const auto add = [&] {
            verdicts.push_back({i, messages[i].at, messages[i].seenAt, {}, "", "", ""});
        };
        for (const std::string& line : messages[i].lines) {
            if (const auto stuck = after(line, "checkStuckPid stuck pid =")) {
                pid = *stuck;
            } else if (const auto error = report::parseNotice(line)) {
                add();
                verdicts.back().error = error;
            } else if (const auto code = after(line, "checkReason Reason =")) {
                // An animation that stays is captured without a record.
                if (verdicts.empty() || verdicts.back().message != i) add();
                verdicts.back().stuckPid = pid;
                verdicts.back().reasonCode = code->substr(0, code->find(','));
            } else if (verdicts.empty()) {
                continue;
            } else if (line == "kel dont running so capture log by stuck") {
                verdicts.back().capturedBy = "the daemon";
            } else if (after(line, "type:") && contains(line, "; pid:")) {
                verdicts.back().capturedBy = "the service";
            } else if (line == "kel dont capture log in boot vigil") {
                verdicts.back().capturedBy = "the daemon, as the service had not";
            }
        }
    }
    return verdicts;
}

std::vector<Verdict> findVerdicts(const report::DaemonRun& run) {
    if (run.lines.empty()) return {};
    return verdictsOf(readRun(run).messages);
}

}  // namespace lab
