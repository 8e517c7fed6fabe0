// SPDX-License-Identifier: Apache-2.0
// Turns log lines into boots: what the daemon decided and when, and the milestones it saw.

#include "report/read/Boots.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "bootvigil/BootMilestones.h"
#include "report/read/Files.h"

namespace report {

namespace {

using Json = nlohmann::json;

// How a line of the daemon begins, the kind of event it means, and the words for that. Words that
// end in a blank are followed by the rest of the line.
struct Rule {
    const char* begins;
    const char* kind;
    const char* words;
};

constexpr size_t kLongestRecord = 256 << 10;  // bytes of a run log's line

constexpr const char* kLastLine = "parseBootProf Last Line ";
constexpr const char* kLastKey = "parseBootProf Last Line key ";

constexpr Rule kRules[] = {
        {"BOOTVIGIL boot_vigil_service start", "start", "the daemon starts"},
        {"handleMessage 2 what = 20010", "poll", "poll"},
        {"handleMessage 2 what = 20020", "timeout", "boot time-out"},
        {"handleMessage 2 what = 20060", "poll", "check after boot"},
        {"first timer 8m", "other", "a first boot: eight minutes to the first time-out"},
        {"Now is perform DexOpt", "other", "package optimisation: slow, not stuck"},
        {"handleMessage is boot timeout, boot slowly", "timeout", "slow, looked at again"},
        {"checkStuckPid stuck pid = ", "verdict", "stuck process: pid "},
        {"reboot reason  = ", "verdict", "restart loop that never reaches "},
        {"errNotifyWithReason ", "verdict", ""},
        {"kel dont running so capture log by stuck", "capture", "the daemon captures the logs"},
        {"type: ", "capture", "the log-capture service is asked: type "},
        {"kel dont capture log in boot vigil", "capture", "the service has left no capture"},
        {"user capture log fail in boot vigil", "capture", "the captured main log is gone"},
        {"init:get log.", "capture", "init log kept from a failed boot"},
        {"kernel:get log: ", "capture", "kernel log kept from a failed boot: "},
        {"BOOTVIGIL writeMonitorKey key", "capture", "no partition: marker in the kernel log"},
        {"BOOTVIGIL findMonitorKey return", "capture",
         "no partition: marker left by an earlier boot"},
        {"saveBfFlag mMainPhase = ", "record", "recorded and flagged, phase "},
        {"submitInfo:info = ", "record", "submitted: "},
        {"runRecovery errCode=", "recovery", "recovery for reason "},
        {"recovery is disable", "recovery", "recovery is disabled"},
        {"not found next recovery mode", "recovery", "no further recovery action"},
        {"not found recovery list", "recovery", "no recovery list for this reason"},
        {"try to reboot", "request", "a reboot is requested"},
        {"try to data reset", "request", "a data reset is due"},
        {"waite user reboot", "request", "waits for the user to reboot"},
        {"isRecoverySuccess mode=", "success", "judges the last recovery action, mode "},
        {"Have recoveryed.", "success", "recovered"},
        {"boot finished, enter launcher.", "success", "the boot is complete"},
        {"bootvigil exit.", "exit", "the daemon exits"},
};

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, strlen(prefix), prefix) == 0;
}

std::string wordsFor(const Rule& rule, const std::string& text) {
    if (const auto notice = parseNotice(text)) return describeErrorNumber(*notice);
    std::string words = rule.words;
    if (words.empty()) return text;
    if (words.back() == ' ') words += text.substr(strlen(rule.begins));
    return words;
}

// "      4713.857088 :  408-vold            : vold:fbeEnable:START"
std::optional<Milestone> parseMilestone(const std::string& line) {
    const size_t by = line.find(" :");
    const size_t bar = by == std::string::npos ? by : line.find(" :", by + 2);
    if (bar == std::string::npos) return std::nullopt;
    const size_t begin = line.find_first_not_of(' ', bar + 2);
    if (begin == std::string::npos) return std::nullopt;
    const std::string name = line.substr(begin, line.find_last_not_of(" \r") + 1 - begin);
    if (milestoneIndex(name) < 0) return std::nullopt;
    return Milestone{strtod(line.c_str(), nullptr) / 1000, name};
}

void addMilestone(std::vector<Milestone>& milestones, const Milestone& milestone) {
    const auto same = [&](const Milestone& other) { return other.name == milestone.name; };
    if (std::none_of(milestones.begin(), milestones.end(), same)) milestones.push_back(milestone);
}

// Adds what a line means to a boot; most lines mean nothing here.
void addLine(Boot& boot, double t, const std::string& clock, const std::string& text) {
    if (startsWith(text, kLastKey)) {
        // The daemon logs what a poll saw after the poll itself.
        if (!boot.events.empty() && boot.events.back().kind == "poll") {
            boot.events.back().text = "last event: " + text.substr(strlen(kLastKey));
        }
        return;
    }
    if (startsWith(text, kLastLine)) {
        const auto milestone = parseMilestone(text.substr(strlen(kLastLine)));
        if (milestone) addMilestone(boot.milestones, *milestone);
        return;
    }
    for (const Rule& rule : kRules) {
        if (startsWith(text, rule.begins)) {
            boot.events.push_back({t, clock, rule.kind, wordsFor(rule, text)});
            return;
        }
    }
}

std::string clockAfter(time_t start, double seconds) {
    double whole = 0;
    const int ms = static_cast<int>(std::modf(seconds, &whole) * 1000);
    const time_t at = start + static_cast<time_t>(whole);
    tm date = {};
    gmtime_r(&at, &date);
    char text[32];
    const size_t size = strftime(text, sizeof(text), "%m-%d %H:%M:%S", &date);
    snprintf(text + size, sizeof(text) - size, ".%03d", ms);
    return text;
}

// Throws an exception for what is no JSON, or nests deeper than a record does.
Json parseRecord(std::string_view line) {
    constexpr int kMostDepth = 8;
    return Json::parse(line, [](int depth, Json::parse_event_t, const Json&) {
        if (depth > kMostDepth) throw std::out_of_range("the depth of a record");
        return true;
    });
}

// A number of a record. No run has larger ones, and they would not fit into whole seconds.
double number(const Json& value) {
    constexpr double kMost = 1e12;
    const double number = value;
    if (!(std::abs(number) <= kMost)) throw std::out_of_range("a number of a record");
    return number;
}

std::string whole(const Json& value) {
    return std::to_string(static_cast<int64_t>(number(value)));
}

// Adds one record of a run log; throws an exception for anything else.
void addRecord(std::vector<Boot>& boots, time_t& start, const Json& record) {
    const double t = number(record.at("t"));
    const std::string kind = record.at("kind");
    if (kind == "boot") {
        Boot boot;
        boot.title = "boot " + whole(record.at("boot"));
        const std::string about = record.value("about", "");
        if (!about.empty()) boot.title += ": " + about;
        start = static_cast<time_t>(number(record.value("clock", Json(0))));
        boot.begin = clockAfter(start, 0);
        boots.push_back(std::move(boot));
        return;
    }
    if (boots.empty()) return;
    Boot& boot = boots.back();
    const std::string clock = clockAfter(start, t);
    if (kind == "log") {
        std::string text = record.at("text");
        text.erase(text.find_last_not_of(" \n") + 1);
        addLine(boot, t, clock, text);
    } else if (kind == "event") {
        const std::string name = record.at("name");
        if (milestoneIndex(name) >= 0) addMilestone(boot.milestones, {t, name});
    } else if (kind == "killed") {
        boot.events.push_back({t, clock, "exit", "killed by signal " + whole(record.at("signal"))});
    } else if (kind == "exit" && record.at("status") != 0) {
        boot.events.push_back({t, clock, "exit", "exit status " + whole(record.at("status"))});
    } else if (kind == "end") {
        boot.events.push_back({t, clock, "exit", record.at("why")});
    }
}

}  // namespace

std::vector<Boot> bootsOfLines(const std::vector<DaemonLine>& lines) {
    std::vector<Boot> boots;
    for (const DaemonRun& run : daemonRuns(lines)) {
        Boot boot;
        boot.title = "boot " + std::to_string(boots.size() + 1);
        if (!run.beginningKept) boot.title += " (its beginning was not kept)";
        boot.begin = run.lines.front().clock;
        for (const DaemonLine& line : run.lines) {
            addLine(boot, run.secondsOf(line), line.clock, line.text);
        }
        boots.push_back(std::move(boot));
    }
    return boots;
}

std::vector<Boot> bootsOfRunLog(const std::string& jsonLines, size_t& broken) {
    std::vector<Boot> boots;
    time_t start = 0;
    broken = 0;
    LineCutter cutter(kLongestRecord, [&](std::string_view line) {
        if (broken == kMostBroken) return;
        try {
            addRecord(boots, start, parseRecord(line));
        } catch (const std::exception&) {
            ++broken;
        }
    });
    cutter.add(jsonLines);
    cutter.finish();
    return boots;
}

std::vector<Milestone> milestonesOf(const std::string& profile) {
    std::vector<Milestone> milestones;
    for (const std::string& line : linesOf(profile)) {
        if (const auto milestone = parseMilestone(line)) addMilestone(milestones, *milestone);
    }
    return milestones;
}

}  // namespace report
