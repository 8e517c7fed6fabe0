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
#include "report/read/Times.h"

namespace report {

namespace {

using Json = nlohmann::json;

// How a line of the daemon begins, what it says, the kind of event it means, and the words for
// that. Words that end in a blank are followed by the rest of the line.
struct Rule {
    const char* begins;
    Said said;
    const char* kind;
    const char* words;
};

constexpr size_t kLongestRecord = 256 << 10;  // bytes of a run log's line

constexpr const char* kLastLine = "parseBootProf Last Line ";
constexpr const char* kLastKey = "parseBootProf Last Line key ";

constexpr const char* kFirstBoot = "first timer 8m";

constexpr Rule kRules[] = {
        {"BOOTVIGIL boot_vigil_service start", Said::OTHER, "start", "the daemon starts"},
        {"handleMessage 2 what = 20010", Said::POLL, "poll", ""},
        {"handleMessage 2 what = 20020", Said::TIMEOUT, "timeout", "boot time-out"},
        {"handleMessage 2 what = 20060", Said::OTHER, "poll", "check after boot"},
        {kFirstBoot, Said::OTHER, "other", "a first boot: eight minutes to the first time-out"},
        {"Now is perform DexOpt", Said::OTHER, "other", "package optimisation: slow, not stuck"},
        {"handleMessage is boot timeout, boot slowly", Said::OTHER, "timeout",
         "slow, looked at again"},
        {"checkStuckPid stuck pid = ", Said::STUCK_PID, "verdict", "stuck process: pid "},
        {"parseBootProf reboot reason ", Said::LOOP, "verdict", "came again and again: "},
        {"reboot reason  = ", Said::OTHER, "verdict", "restart loop that never reaches "},
        {"checkReason Reason = 3,", Said::ANIMATION, "verdict",
         "boot animation stays although the boot has completed"},
        {"errNotifyWithReason ", Said::NOTICE, "verdict", "a failure: "},
        {"kel dont running so capture log by stuck", Said::OTHER, "capture",
         "the daemon captures the logs"},
        {"type: ", Said::OTHER, "capture", "the log-capture service is asked: type "},
        {"kel dont capture log in boot vigil", Said::OTHER, "capture",
         "the service has left no capture"},
        {"user capture log fail in boot vigil", Said::OTHER, "capture",
         "the captured main log is gone"},
        {"init:get log.", Said::OTHER, "capture", "init log kept from a failed boot"},
        {"kernel:get log: ", Said::OTHER, "capture", "kernel log kept from a failed boot: "},
        {"BOOTVIGIL writeMonitorKey key", Said::OTHER, "capture",
         "no partition: marker in the kernel log"},
        {"BOOTVIGIL findMonitorKey return", Said::OTHER, "capture",
         "no partition: marker left by an earlier boot"},
        {"saveBfFlag mMainPhase = ", Said::OTHER, "record", "recorded and flagged, phase "},
        {"submitInfo:info = ", Said::OTHER, "record", "submitted: "},
        {"runRecovery errCode=", Said::OTHER, "recovery", "recovery for reason "},
        {"recovery is disable for rescue", Said::DISABLED, "recovery",
         "recovery is left to the platform's rescue mode"},
        {"recovery is disable in config", Said::DISABLED, "recovery",
         "recovery is disabled in this product"},
        {"recovery disable info BfRecover=NO", Said::DISABLED, "recovery",
         "recovery is disabled from outside"},
        {"not found next recovery mode", Said::NO_STEP, "recovery", "no further recovery action"},
        {"not found recovery list", Said::NO_STEP, "recovery", "no recovery list for this reason"},
        {"try to reboot", Said::REBOOT, "request", "a reboot is requested"},
        {"try to data reset", Said::RESET, "request", "a data reset is due"},
        {"waite user reboot", Said::WAIT, "request", "waits for the user to reboot"},
        {"isRecoverySuccess mode=", Said::JUDGED, "success",
         "judges the last recovery action, mode "},
        {"Not occue recovery", Said::NO_RECOVERY, "success", "no recovery action to judge"},
        {"Not vela reboot.", Said::NOT_BY_THAT, "success", "not the reboot that was requested"},
        {"Not factory reset.", Said::NOT_BY_THAT, "success", "not the reset that was requested"},
        {"Have recoveryed.", Said::OTHER, "success", "recovered"},
        {"boot finished, enter launcher.", Said::COMPLETE, "success", "the boot is complete"},
        {"bootvigil exit.", Said::OTHER, "exit", "the daemon exits"},
};

// What lines that follow a poll say of it.
constexpr struct {
    const char* begins;
    const char* words;
} kPollRules[] = {
        {"handleMessage booted, Anim closed.", "the framework is up"},
        {"parseBootProf Lines < 3", "no boot profile"},
};

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, strlen(prefix), prefix) == 0;
}

std::string wordsFor(const Rule& rule, const std::string& rest) {
    const std::string words = rule.words;
    return !words.empty() && words.back() == ' ' ? words + rest : words;
}

bool isBarePoll(const Event& event) {
    return event.said == Said::POLL && event.text.empty();
}

// A poll that nothing more was logged of says nothing.
void dropBarePoll(Boot& boot) {
    if (!boot.events.empty() && isBarePoll(boot.events.back())) boot.events.pop_back();
}

void addEvent(Boot& boot, Event event) {
    dropBarePoll(boot);
    event.until = event.t;
    event.iso = isoClock(event.clock, boot.year);
    boot.events.push_back(std::move(event));
}

// Says what the last poll saw, and joins it to the one before that saw the same.
void describePoll(Boot& boot, const std::string& text, const std::string& lastEvent) {
    std::vector<Event>& events = boot.events;
    if (events.empty() || !isBarePoll(events.back())) return;
    events.back().text = text;
    events.back().rest = lastEvent;
    if (events.size() < 2) return;
    Event& before = events[events.size() - 2];
    if (before.said != Said::POLL || before.text != text) return;
    before.until = events.back().t;
    ++before.count;
    events.pop_back();
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

bool hasMilestone(const std::vector<Milestone>& milestones, const std::string& name) {
    const auto same = [&](const Milestone& other) { return other.name == name; };
    return std::any_of(milestones.begin(), milestones.end(), same);
}

void addMilestone(std::vector<Milestone>& milestones, const Milestone& milestone) {
    if (!hasMilestone(milestones, milestone.name)) milestones.push_back(milestone);
}

// A milestone that comes again after later ones begins a round of a loop.
void addMilestone(Boot& boot, const Milestone& milestone) {
    const int index = milestoneIndex(milestone.name);
    if (index < boot.lastMilestone && hasMilestone(boot.milestones, milestone.name)) {
        boot.rounds.push_back(milestone.t);
    }
    // The last of the table ends before some of those above it.
    if (index + 1 < kMilestoneCount) boot.lastMilestone = index;
    addMilestone(boot.milestones, milestone);
}

// A line with its time; most lines mean nothing here.
void addLine(Boot& boot, double t, const DaemonLine& line) {
    const std::string& text = line.text;
    if (startsWith(text, kLastKey)) {
        const std::string key = text.substr(strlen(kLastKey));
        return describePoll(boot, "last event: " + key, key);
    }
    if (startsWith(text, kLastLine)) {
        const auto milestone = parseMilestone(text.substr(strlen(kLastLine)));
        if (milestone) addMilestone(boot, *milestone);
        return;
    }
    if (startsWith(text, kFirstBoot)) boot.first = true;
    for (const auto& [begins, words] : kPollRules) {
        if (startsWith(text, begins)) return describePoll(boot, words, "");
    }
    for (const Rule& rule : kRules) {
        if (!startsWith(text, rule.begins)) continue;
        Event event;
        event.t = t;
        event.clock = line.clock;
        event.kind = rule.kind;
        event.said = rule.said;
        event.rest = text.substr(strlen(rule.begins));
        event.error = parseNotice(text);
        event.text = event.error ? describeErrorNumber(*event.error) : wordsFor(rule, event.rest);
        event.place = {line.file, line.number};
        return addEvent(boot, std::move(event));
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

// A lab's run log, record by record.
struct RunLog {
    std::vector<Boot> boots;
    time_t start = 0;  // of the boot, by the device's clock
    int line = 0;

    // Throws an exception for anything but a record.
    void add(const Json& record);
    void addBoot(const Json& record);
    void addEnd(double t, const std::string& text, Said said);
};

void RunLog::addBoot(const Json& record) {
    Boot boot;
    boot.title = "boot " + whole(record.at("boot"));
    const std::string about = record.value("about", "");
    if (!about.empty()) boot.title += ": " + about;
    start = static_cast<time_t>(number(record.value("clock", Json(0))));
    tm date = {};
    if (gmtime_r(&start, &date) != nullptr) boot.year = date.tm_year + 1900;
    boot.begin = clockAfter(start, 0);
    boot.kernelStart = 0;  // both start together in the lab
    boot.beginIso = isoClock(boot.begin, boot.year);
    boots.push_back(std::move(boot));
}

void RunLog::addEnd(double t, const std::string& text, Said said) {
    Event event;
    event.t = t;
    event.clock = clockAfter(start, t);
    event.kind = "exit";
    event.text = text;
    event.said = said;
    event.place = {"run.jsonl", line};
    addEvent(boots.back(), std::move(event));
}

void RunLog::add(const Json& record) {
    const double t = number(record.at("t"));
    const std::string kind = record.at("kind");
    if (kind == "boot") return addBoot(record);
    if (boots.empty()) return;
    if (kind == "log") {
        std::string text = record.at("text");
        text.erase(text.find_last_not_of(" \n") + 1);
        addLine(boots.back(), t, {clockAfter(start, t), 0, text, line, "run.jsonl"});
    } else if (kind == "event") {
        const std::string name = record.at("name");
        if (milestoneIndex(name) >= 0) addMilestone(boots.back(), {t, name});
    } else if (kind == "clock") {
        start += static_cast<time_t>(number(record.at("seconds")));
    } else if (kind == "killed") {
        addEnd(t, "killed by signal " + whole(record.at("signal")), Said::ENDED_EARLY);
    } else if (kind == "exit" && record.at("status") != 0) {
        addEnd(t, "exit status " + whole(record.at("status")), Said::ENDED_EARLY);
    } else if (kind == "end") {
        addEnd(t, record.at("why"), Said::OTHER);
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
        for (const DaemonLine& line : run.lines) addLine(boot, run.secondsOf(line), line);
        dropBarePoll(boot);
        boots.push_back(std::move(boot));
    }
    return boots;
}

void giveYears(std::vector<Boot>& boots, const std::string& last) {
    if (!secondsOfIso(last)) return;
    for (Boot& boot : boots) {
        if (boot.year != 0) continue;
        boot.year = atoi(last.c_str());
        // A log that is of a later day than its capture is of the year before.
        if (boot.begin.compare(0, 5, last, 5, 5) > 0) --boot.year;
        boot.beginIso = isoClock(boot.begin, boot.year);
        for (Event& event : boot.events) event.iso = isoClock(event.clock, boot.year);
    }
}

std::vector<Boot> bootsOfRunLog(const std::string& jsonLines, size_t& broken) {
    RunLog log;
    broken = 0;
    LineCutter cutter(kLongestRecord, [&](std::string_view line) {
        ++log.line;
        if (broken == kMostBroken) return;
        try {
            log.add(parseRecord(line));
        } catch (const std::exception&) {
            ++broken;
        }
    });
    cutter.add(jsonLines);
    cutter.finish();
    for (Boot& boot : log.boots) dropBarePoll(boot);
    return log.boots;
}

std::vector<Milestone> milestonesOf(const std::string& profile) {
    std::vector<Milestone> milestones;
    for (const std::string& line : linesOf(profile)) {
        if (const auto milestone = parseMilestone(line)) addMilestone(milestones, *milestone);
    }
    return milestones;
}

}  // namespace report
