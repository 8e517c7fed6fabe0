// SPDX-License-Identifier: Apache-2.0
// How well the daemon names what hangs, and how often it takes a slow boot for a stall: counted
// over many seeded boots whose truth is known.

#include "lab/random/Attribution.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/base/Text.h"
#include "lab/replay/RecordedRun.h"
#include "lab/rules/Milestones.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

using Events = std::vector<ProfileScript::Event>;

enum StallKind {
    BEFORE_SERVER,
    IN_SERVER,
    NOISE_BEFORE,
    STRAY_AFTER,
    COUNTING_AFTER,
    REPEATING_AFTER,
    WITHOUT_PID,
    IN_DEXOPT,
    SERVER_RESTARTED,
    LOOP,
    LOOP_AFTER_MORE
};
const char* const kStallKinds[] =
        {"before the system server, then silence",   "in the system server, then silence",
         "other processes busy before it",           "1 to 3 stray events of others after it",
         "another process counts on after it",       "another process repeats one event after it",
         "last event logged without a pid",          "in package optimisation",
         "in a system server that had restarted",    "restart loop",
         "restart loop after a run that got further"};

enum SlowKind { STRETCHED, LONG_STEP, LATE_END, SILENT_DEXOPT, COUNTING_DEXOPT };
const char* const kSlowKinds[] = {"every event later", "one long step",
                                  "late end, no event before it", "package optimisation, silent",
                                  "package optimisation, counting"};

constexpr size_t kStallRows = std::size(kStallKinds);
constexpr size_t kSlowRows = 2 * std::size(kSlowKinds);  // the second half: first boots
constexpr int64_t kSecond = 1000000;                     // us, the unit of an event's time
constexpr int64_t kLooked = 3600;  // seconds that a stalled device is left alone
constexpr int64_t kSilence = 240 * kSecond;
constexpr int kLoopRounds = 40;

// The same numbers on every machine, which the standard's distributions don't promise (SplitMix64).
class Dice {
public:
    Dice(uint64_t seed, uint64_t index) : mState(seed * 0x9e3779b97f4a7c15 ^ index) {
        mState = next();
    }
    uint64_t next() {
        uint64_t z = mState += 0x9e3779b97f4a7c15;
        z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
        z = (z ^ z >> 27) * 0x94d049bb133111eb;
        return z ^ z >> 31;
    }
    int64_t between(int64_t least, int64_t most) {
        return least + static_cast<int64_t>(next() % static_cast<uint64_t>(most - least + 1));
    }
    // From 1 to `most`, small ones as often as large ones.
    double factor(double most) {
        return std::pow(most, static_cast<double>(between(0, 1000)) / 1000);
    }

private:
    uint64_t mState;
};

// What hangs, as the generator made it.
struct Truth {
    int pid = 0;  // 0: the profile does not tell
    int phase = 0;
    int detail = 0;
    int64_t at = 0;  // us
};

enum Answer : uint8_t { RIGHT, UNKNOWN, WRONG, ANSWERS };

struct Result {
    Answer pid = UNKNOWN, phase = UNKNOWN, detail = UNKNOWN;
    int seconds = 0;  // from the hang to the record
    bool recorded = false, captured = false, requested = false, killed = false;
    bool silent = false;  // for four minutes, although healthy
};

int pidOf(const ProfileScript::Event& event) {
    return atoi(event.rest.c_str() + 1);
}

Events healthyEvents(double stretch) {
    ProfileScript profile = ProfileScript::healthy();
    profile.stretch(stretch);
    Events events = profile.events();
    // A line of the boot loader may look like an event.
    while (pidOf(events.front()) == 0) events.erase(events.begin());
    return events;
}

size_t indexOf(const Events& events, const std::string& name) {
    const auto found = std::find_if(events.begin(), events.end(),
                                    [&](const auto& event) { return event.name == name; });
    if (found == events.end()) throw std::runtime_error("no event " + name);
    return static_cast<size_t>(found - events.begin());
}

ProfileScript::Event event(int64_t us, int pid, const char* process, const std::string& name) {
    char rest[64];
    snprintf(rest, sizeof(rest), ":%5d-%-16s: ", pid, process);
    return {us, rest + name, name};
}

// An event of a process that has nothing to do with the hang.
ProfileScript::Event stray(Dice& dice, int64_t us, int truePid) {
    const int pid = static_cast<int>(dice.between(200, 9999));
    return event(us, pid == truePid ? pid + 1 : pid, "modemd",
                 "modem " + std::to_string(dice.between(1, 1000000)));
}

// Adds the events `from` to `to` of `all` at the end of `events`, `pause` after what is there.
void addRound(Events& events, const Events& all, size_t from, size_t to, int64_t pause) {
    const int64_t shift = (events.empty() ? 0 : events.back().us - all[from].us) + pause;
    for (size_t i = from; i <= to; ++i) {
        events.push_back(all[i]);
        events.back().us += shift;
    }
}

// A device whose log-capture service answers at once: the capture is not what is measured here.
Scenario device(bool firstBoot, Events events, int64_t endMs) {
    Scenario scenario;
    scenario.commandLine = "poffsts=0x09 FlashID=90014a483942 mem_index=3\n";
    scenario.properties = {{"ro.boot.mode", "normal"},
                           {"init.svc.kel", "running"},
                           {"init.svc.kelvservice", "running"}};
    scenario.logSizes = {{"main", 0}};
    if (!firstBoot) scenario.files["/data/vela_dfr/firstboot"] = "";
    Boot boot;
    boot.profile.setEvents(std::move(events));
    boot.kelAnswersAfter = 0;
    boot.changes = {{endMs, Change::Kind::END, "", ""}};
    scenario.boots.push_back(std::move(boot));
    return scenario;
}

// A boot that restarts again and again, each time at the same step.
Events loopingBoot(Dice& dice, bool afterMore, Truth& truth) {
    const Events all = healthyEvents(dice.factor(4));
    const size_t milestone = dice.between(0, kMilestones.size() - (afterMore ? 2 : 1));
    const bool last = milestone == kMilestones.size() - 1;
    const size_t reached = indexOf(all, kMilestones[milestone]);
    const size_t missed = last ? all.size() : indexOf(all, kMilestones[milestone + 1]);
    const size_t dies = dice.between(reached, missed - 1);
    const size_t from = milestone == 0 ? reached : indexOf(all, "boot_progress_start");
    const int64_t pause = dice.between(3, 60) * kSecond;
    Events events;
    addRound(events, all, 0, afterMore ? dice.between(missed, all.size() - 1) : dies, 0);
    if (afterMore) addRound(events, all, from, dies, pause);
    // The detail phases of the milestones begin at a number of their own; 255 is "none missed".
    truth = {pidOf(all[dies]), 4,
             last ? 255 : static_cast<int>(milestone) + 1 + kFirstMilestoneDetail,
             events.back().us};
    for (int i = 0; i < kLoopRounds; ++i) addRound(events, all, from, dies, pause);
    return events;
}

// A boot that hangs once, after an event anywhere in the profile.
Events hangingBoot(Dice& dice, StallKind kind, Truth& truth) {
    const Events all = healthyEvents(dice.factor(20));
    const size_t server = indexOf(all, "Android:SysServerInit_START");
    const bool early = kind == BEFORE_SERVER || (kind != IN_SERVER && kind != IN_DEXOPT &&
                                                 kind != SERVER_RESTARTED && dice.between(0, 1));
    const auto anyEvent = [&] {
        return early ? dice.between(0, server - 1) : dice.between(server, all.size() - 1);
    };
    Events events;
    size_t from = 0;
    if (kind == SERVER_RESTARTED) {
        addRound(events, all, 0, anyEvent(), 0);
        from = indexOf(all, "boot_progress_start");
    }
    const size_t hangs = kind == IN_DEXOPT ? indexOf(all, "Android:PMS_READY") : anyEvent();
    addRound(events, all, from, hangs, from == 0 ? 0 : dice.between(3, 30) * kSecond);
    truth = {pidOf(events.back()), early ? 4 : 5, early ? 1 : 2, events.back().us};
    const int64_t at = truth.at;
    if (kind == IN_DEXOPT) {
        events.push_back(event(at, truth.pid, "system_server", "performDexOpt 37/120"));
    } else if (kind == NOISE_BEFORE) {
        for (int64_t i = dice.between(5, 40); i > 0; --i) {
            events.push_back(stray(dice, dice.between(0, at - 1), truth.pid));
        }
    } else if (kind == STRAY_AFTER) {
        for (int64_t i = dice.between(1, 3); i > 0; --i) {
            events.push_back(stray(dice, at + dice.between(30, 600) * kSecond, truth.pid));
        }
    } else if (kind == COUNTING_AFTER || kind == REPEATING_AFTER) {
        const int64_t period = dice.between(5, 150);
        const ProfileScript::Event sample = stray(dice, 0, truth.pid);
        for (int64_t i = 1; i * period < kLooked; ++i) {
            events.push_back(sample);
            events.back().us = at + i * period * kSecond;
            if (kind == COUNTING_AFTER) events.back().rest += " " + std::to_string(i);
        }
    } else if (kind == WITHOUT_PID) {
        truth.pid = 0;
        events.back().rest = ":  kernel_worker       : " + events.back().name;
    }
    return events;
}

Scenario stalledBoot(Dice& dice, StallKind kind, Truth& truth) {
    const bool firstBoot = dice.between(1, 5) == 1;
    Events events = kind == LOOP || kind == LOOP_AFTER_MORE
                            ? loopingBoot(dice, kind == LOOP_AFTER_MORE, truth)
                            : hangingBoot(dice, kind, truth);
    return device(firstBoot, std::move(events), truth.at / 1000 + kLooked * 1000);
}

Scenario slowBoot(Dice& dice, size_t row, bool& silent) {
    const size_t kind = row % std::size(kSlowKinds);
    const int64_t end = dice.between(60, 2400) * kSecond;
    Events events = healthyEvents(1);
    const int64_t late = end - events.back().us;
    if (kind == STRETCHED) {
        events = healthyEvents(static_cast<double>(end) / static_cast<double>(events.back().us));
    } else if (kind != LATE_END) {
        const size_t ready = indexOf(events, "Android:PMS_READY");
        const size_t next = kind == LONG_STEP ? dice.between(1, events.size() - 1) : ready + 1;
        for (size_t i = next; i < events.size(); ++i) events[i].us += late;
        const int64_t step = kind == SILENT_DEXOPT ? end : dice.between(5, 60) * kSecond;
        const int64_t from = events[ready].us + 1000;
        for (int64_t at = from; kind != LONG_STEP && at < from + late; at += step) {
            events.push_back(event(at, pidOf(events[ready]), "system_server",
                                   "performDexOpt " + std::to_string((at - from) / step)));
        }
    }
    Scenario scenario =
            device(row >= std::size(kSlowKinds), std::move(events), end / 1000 + 300000);
    Boot& boot = scenario.boots.front();
    for (const char* name :
         {"service.bootanim.exit", "sys.vela.BOOT_COMPLETED", "sys.boot_completed"}) {
        boot.changes.insert(boot.changes.begin(), {end / 1000, Change::Kind::SET, name, "1"});
    }
    int64_t since = 0;
    for (const ProfileScript::Event& each : boot.profile.events()) {
        silent = silent || each.us - since >= kSilence;
        since = each.us;
    }
    silent = silent || end - since >= kSilence;
    return scenario;
}

Answer answer(int said, int truth) {
    return said <= 0 ? UNKNOWN : said == truth ? RIGHT : WRONG;
}

// What the daemon did about a boot, beside the truth of it.
Result judge(const std::vector<Record>& records, const Truth& truth) {
    Result result;
    int pid = 0;
    for (const Record& record : records) {
        const std::string kind = record["kind"];
        result.captured = result.captured || kind == "kel" || kind == "captured";
        result.requested = result.requested || kind == "request";
        result.killed = result.killed || kind == "killed";
        if (kind != "log" || result.recorded) continue;
        const std::string text = record["text"];
        if (const auto stuck = after(text, "checkStuckPid stuck pid =")) pid = atoi(stuck->c_str());
        const auto error = report::parseNotice(text);
        if (!error) continue;
        result.recorded = true;
        result.pid = answer(pid, truth.pid);
        result.phase = answer(error->phase, truth.phase);
        result.detail = answer(error->detailPhase, truth.detail);
        result.seconds = static_cast<int>(record["t"].get<double>() - truth.at / 1e6);
    }
    return result;
}

// Stalled and slow boots take turns, so that each process gets as much of both.
Result runBoot(uint64_t seed, int index, const std::string& folder) {
    Dice dice(seed, static_cast<uint64_t>(index));
    const auto number = static_cast<size_t>(index / 2);
    Truth truth;
    bool silent = false;
    const Scenario scenario =
            index % 2 == 0 ? stalledBoot(dice, static_cast<StallKind>(number % kStallRows), truth)
                           : slowBoot(dice, number % kSlowRows, silent);
    ScenarioRun run(scenario, folder);
    run.run();
    Result result = judge(run.records(), truth);
    result.silent = silent;
    std::filesystem::remove_all(folder);
    return result;
}

// Writes the results of every `jobs`th boot, from the `job`th on, to where they belong.
[[noreturn]] void work(uint64_t seed, int boots, int job, int jobs, Result* results) {
    try {
        {
            const TemporaryFolder folder(TemporaryFolder::inMemory());
            for (int i = job; i < boots; i += jobs) {
                results[i] = runBoot(seed, i, folder.path() + "/run");
            }
        }
        _exit(0);
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", error.what());
        _exit(1);
    }
}

std::vector<Result> runBoots(uint64_t seed, int boots, int jobs) {
    void* shared = mmap(nullptr, sizeof(Result) * static_cast<size_t>(boots),
                        PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) failWithErrno("cannot map", "the results");
    auto* results = static_cast<Result*>(shared);
    fflush(nullptr);
    for (int job = 0; job < jobs; ++job) {
        const pid_t worker = fork();
        if (worker < 0) failWithErrno("cannot fork", "a worker");
        if (worker == 0) work(seed, boots, job, jobs, results);
    }
    bool failed = false;
    for (int status = 0; wait(&status) > 0;) failed = failed || status != 0;
    if (failed) throw std::runtime_error("not every boot could be run");
    std::vector<Result> all(results, results + boots);
    munmap(shared, sizeof(Result) * static_cast<size_t>(boots));
    return all;
}

using Row = std::vector<std::string>;

std::string counts(const std::vector<Result>& results, Answer Result::*item) {
    int count[ANSWERS] = {};
    for (const Result& result : results) ++count[result.*item];
    return std::to_string(count[RIGHT]) + " / " + std::to_string(count[UNKNOWN]) + " / " +
           std::to_string(count[WRONG]);
}

std::string count(const std::vector<Result>& results, bool Result::*item) {
    return std::to_string(std::count_if(results.begin(), results.end(),
                                        [&](const Result& result) { return result.*item; }));
}

Row stallRow(const std::string& kind, const std::vector<Result>& results) {
    std::vector<int> seconds;
    for (const Result& result : results) {
        if (result.recorded) seconds.push_back(result.seconds);
    }
    std::sort(seconds.begin(), seconds.end());
    const auto quantile = [&](size_t percent) {
        if (seconds.empty()) return std::string("-");
        return std::to_string(seconds[(seconds.size() * percent + 99) / 100 - 1]);
    };
    return {kind,
            std::to_string(results.size()),
            counts(results, &Result::pid),
            counts(results, &Result::phase),
            counts(results, &Result::detail),
            quantile(50) + ", " + quantile(90) + ", " + quantile(100),
            count(results, &Result::killed)};
}

Row slowRow(const std::string& kind, const std::vector<Result>& results) {
    std::vector<Result> silent;
    for (const Result& result : results) {
        if (result.silent) silent.push_back(result);
    }
    return {kind,
            std::to_string(results.size()),
            count(results, &Result::recorded),
            count(results, &Result::captured),
            count(results, &Result::requested),
            count(results, &Result::killed),
            std::to_string(silent.size()),
            count(silent, &Result::recorded)};
}

void print(const std::vector<Row>& rows, bool markdown, std::vector<std::string>& lines) {
    Row padded(rows.size(), markdown ? "|" : "");
    std::string rule = "|";
    for (size_t column = 0; column < rows.front().size(); ++column) {
        size_t width = 0;
        for (const Row& row : rows) width = std::max(width, row[column].size());
        rule += std::string(width + 2, '-') + "|";
        for (size_t i = 0; i < rows.size(); ++i) {
            std::string cell = rows[i][column];
            cell.resize(width, ' ');
            padded[i] += markdown ? " " + cell + " |" : cell + "  ";
        }
    }
    if (markdown) padded.insert(padded.begin() + 1, rule);
    for (const std::string& line : padded) {
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

}  // namespace

std::vector<std::string> measureAttribution(uint64_t seed, int count, int jobs, bool markdown) {
    std::vector<Result> stalls[kStallRows + 1];  // the last one: all
    std::vector<Result> slow[kSlowRows + 1];
    const std::vector<Result> results = runBoots(seed, 2 * count, jobs);
    for (size_t i = 0; i < results.size(); ++i) {
        auto* rows = i % 2 == 0 ? stalls : slow;
        const size_t kinds = i % 2 == 0 ? kStallRows : kSlowRows;
        rows[i / 2 % kinds].push_back(results[i]);
        rows[kinds].push_back(results[i]);
    }
    std::vector<std::string> lines;
    std::vector<Row> rows = {{"stall", "boots", "pid: right / unknown / wrong", "phase", "detail",
                              "seconds: median, p90, max", "daemon died"}};
    for (size_t i = 0; i < kStallRows; ++i) rows.push_back(stallRow(kStallKinds[i], stalls[i]));
    rows.push_back(stallRow("all", stalls[kStallRows]));
    print(rows, markdown, lines);
    lines.emplace_back();
    rows = {{"slow but healthy boot", "boots", "recorded", "captured", "restart asked for",
             "daemon died", "with 4 min of silence", "of these recorded"}};
    for (size_t i = 0; i < kSlowRows; ++i) {
        const size_t kind = i % std::size(kSlowKinds);
        rows.push_back(slowRow((i == kind ? "" : "first boot: ") + std::string(kSlowKinds[kind]),
                               slow[i]));
    }
    rows.push_back(slowRow("all", slow[kSlowRows]));
    print(rows, markdown, lines);
    return lines;
}

}  // namespace lab
