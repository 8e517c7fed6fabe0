// SPDX-License-Identifier: Apache-2.0
// The rules by which a device's state is decided.

#include "report/judge/States.h"

#include <stdlib.h>

#include <algorithm>
#include <optional>

#include "bootvigil/FailureCodes.h"

namespace report {

namespace {

constexpr const char* kBackup = "/SDD/bfRecord_backup.txt";

struct Facts {
    const Report& report;
    const std::vector<Episode>& episodes;

    const Episode* last() const {
        return episodes.empty() ? nullptr : &episodes.back();
    }
    bool isOpen() const {
        return last() != nullptr && !last()->stamp;
    }
    // A record that was read, of a failure that nothing has followed but other failures.
    bool isOpenRecord() const {
        return isOpen() && last()->last().recorded;
    }
    bool isFlagged() const {
        const std::string flag = report.flag.value_or("");
        return !flag.empty() && static_cast<unsigned char>(flag[0]) >= '1';
    }
};

// What a rule says if it applies.
using Sentence = std::optional<std::string>;

const Problem* problemOf(const Report& report, const std::vector<std::string>& files) {
    for (const Problem& problem : report.problems) {
        const bool named = std::find(files.begin(), files.end(), problem.file) != files.end();
        if (named && problem.line == 0) return &problem;
    }
    return nullptr;
}

Sentence notPartition(const Facts& facts) {
    if (facts.report.isPartition) return std::nullopt;
    return "this is no copy of the daemon's partition";
}

Sentence unreadFile(const Facts& facts) {
    const Problem* problem =
            problemOf(facts.report,
                      {"SDD", "boot_vigil", "/SDD/bfRecord.txt", kBackup, "/SDD/bfflag.txt",
                       "/boot_vigil/recovery_flag.txt", "/boot_vigil/reason.txt", "/boot_vigil/log",
                       "/boot_vigil/log/info"});
    if (problem == nullptr) return std::nullopt;
    return problem->file + ": " + problem->what + ", so what it tells is not known";
}

Sentence animation(const Facts& facts) {
    if (!facts.isOpen() || facts.last()->last().number.type != TYPE_NONE) return std::nullopt;
    const std::string time = timeOf(facts.last()->last());
    return "the boot animation stayed although the boot had completed" +
           (time.empty() ? "" : " on " + time) +
           "; the daemon captures that and records nothing, so what became of it is not known";
}

Sentence onlyLogged(const Facts& facts) {
    if (!facts.isOpen() || facts.last()->last().recorded) return std::nullopt;
    const Failure& failure = facts.last()->last();
    return failure.file + " line " + std::to_string(failure.line) + " tells of a failure on " +
           timeOf(failure) + ", and no record does";
}

Sentence damagedRecord(const Facts& facts) {
    const Episode* last = facts.last();
    const bool stampDamaged = last != nullptr && last->stamp && last->stamp->afterDamage;
    if (!facts.report.recordsEndDamaged && !stampDamaged) return std::nullopt;
    return "a line of the records is damaged, and no whole failure follows it";
}

Sentence lonelyStamp(const Facts& facts) {
    const std::vector<Failure>& records = facts.report.failures;
    if (records.empty() || !records.back().number.stamp) return std::nullopt;
    if (records.size() > 1 && !records[records.size() - 2].number.stamp) return std::nullopt;
    return "a stamp of " + timeOf(records.back()) + " says that a boot completed after a failure" +
           ", and no record tells of that failure";
}

// The daemon makes a backup just before it begins the file again.
Sentence onlyBackup(const Facts& facts) {
    const std::vector<Failure>& records = facts.report.failures;
    if (records.empty() || records.back().file != kBackup) return std::nullopt;
    return "there is a backup of the record file, and no record in the file itself";
}

Sentence damagedFlag(const Facts& facts) {
    if (!facts.report.flag || facts.isFlagged()) return std::nullopt;
    return "the flag of a failure that is not submitted is there, but empty or damaged";
}

Sentence flagAlone(const Facts& facts) {
    if (!facts.isFlagged()) return std::nullopt;
    const int phase = atoi(facts.report.flag->c_str());
    const bool told = facts.isOpenRecord() && facts.last()->last().number.phase == (phase & 0xf);
    if (told) return std::nullopt;
    return "a failure of phase " + std::to_string(phase) +
           " is flagged as not submitted, and no record tells of it";
}

Sentence flagMissing(const Facts& facts) {
    if (!facts.isOpenRecord() || facts.report.flag) return std::nullopt;
    return "the failure on " + timeOf(facts.last()->last()) +
           " has neither the flag of one not submitted nor a stamp that a boot completed";
}

Sentence captureAlone(const Facts& facts) {
    const JournalLine* capture = lastCapture(facts.report);
    if (capture == nullptr || capture->iso.empty()) return std::nullopt;
    for (const Failure& failure : facts.report.failures) {
        if (isCaptureOf(*capture, failure)) return std::nullopt;
    }
    for (const Episode& episode : facts.episodes) {
        if (episode.failures.back().iso > capture->iso) return std::nullopt;
    }
    return "logs were captured on " + capture->text.substr(0, capture->text.find("  ")) +
           ", and no record tells of a failure then";
}

Sentence reasonCodeAlone(const Facts& facts) {
    const std::string* code = noteOf(facts.report.notes, "reason.txt");
    if (code == nullptr || *code == "3") return std::nullopt;
    const auto wroteCode = [](const Failure& failure) {
        return isStall(failure.number) || isRestartLoop(failure.number);
    };
    const auto& failures = facts.report.failures;
    const auto last = std::find_if(failures.rbegin(), failures.rend(), wroteCode);
    if (last != failures.rend() && std::to_string(last->number.detailPhase) == *code) {
        return std::nullopt;
    }
    if (last != failures.rend() && code->empty()) return std::nullopt;  // lost, no other one
    if (last == failures.rend()) return "there is a reason code of a stall, and no record of one";
    return "the reason code is not that of the stall recorded last";
}

Sentence historyAlone(const Facts& facts) {
    const Recovery& recovery = facts.report.recovery;
    if (!facts.report.recoveryFiles.history || facts.isOpen()) return std::nullopt;
    if (facts.last() == nullptr) {
        return "the history of a recovery is there, and no record tells of a failure";
    }
    if (recovery.blocked == Blocked::DAMAGED_HISTORY) {
        return "a boot has completed since the failure, but the history of the recovery is " +
               std::string(recovery.history.empty() ? "empty" : "damaged") +
               ", which blocks every later recovery";
    }
    // A good boot leaves the history of larger reasons to its check two minutes later.
    if (recovery.disabled || recovery.lastReason > REASON_STUCK) return std::nullopt;
    return "the history of a recovery is there, which a completed boot would have removed";
}

Sentence leftovers(const Facts& facts) {
    const Report& report = facts.report;
    if (facts.last() != nullptr) return std::nullopt;
    if (!report.captures.empty()) return "there are captured logs, and no record of a failure";
    if (!report.journal.empty())
        return "there is a journal of captures, and no record of a failure";
    if (!report.uploads.empty()) return "there is a report to upload, and no record of a failure";
    if (report.notes.empty()) return std::nullopt;
    return "there is a capture's " + report.notes.front().file + ", and no record of a failure";
}

// A lab's log tells how the last boot ended.
Sentence unfinishedBoot(const Facts& facts) {
    if (!facts.report.hasRunLog || facts.report.boots.empty() || facts.isOpen()) {
        return std::nullopt;
    }
    const Boot& boot = facts.report.boots.back();
    bool polled = false;
    for (const Event& event : boot.events) {
        if (event.said == Said::COMPLETE) return std::nullopt;
        if (event.said == Said::ENDED_EARLY) {
            return "in the last boot the daemon ended before anything was decided: " + event.text;
        }
        polled = polled || event.said == Said::POLL;
    }
    if (!polled) return std::nullopt;  // the daemon leaves a device that only charges alone
    return "the last boot had not completed when the log ended";
}

Sentence anyProblem(const Facts& facts) {
    if (facts.last() != nullptr || facts.report.problems.empty()) return std::nullopt;
    const Problem& problem = facts.report.problems.front();
    return problem.file + " is damaged: " + problem.what;
}

std::string whatFailed(const Facts& facts) {
    const Failure& failure = facts.last()->last();
    return describeSituation(failure.number) + " on " + timeOf(failure);
}

Sentence blocked(const Facts& facts) {
    if (!facts.isOpen()) return std::nullopt;
    const Recovery& recovery = facts.report.recovery;
    const Action& last = facts.last()->actions.back();
    if (!isRecovered(facts.last()->last().number)) return std::nullopt;
    if (recovery.blocked == Blocked::NO && !last.switchedOff) return std::nullopt;
    return whatFailed(facts) + "; no boot has completed since, and recovery cannot go on: " +
           (last.switchedOff ? last.whyNone : recovery.next.substr(recovery.next.find(": ") + 2));
}

Sentence open(const Facts& facts) {
    if (!facts.isOpen()) return std::nullopt;
    return whatFailed(facts) + "; no boot has completed since";
}

Sentence cured(const Facts& facts) {
    if (facts.last() == nullptr) return std::nullopt;
    const auto& seconds = facts.last()->secondsToCure;
    return whatFailed(facts) + "; a boot has completed since" +
           (seconds ? ", " + durationOf(*seconds) + " after it began" : "");
}

Sentence otherwise(const Facts&) {
    return "no failure is recorded, and nothing contradicts that";
}

// The first one that applies decides: green is what is left when nothing speaks against it.
constexpr struct {
    State state;
    const char* name;
    Sentence (*says)(const Facts& facts);
} kRules[] = {
        {State::UNREADABLE, "not-a-partition", notPartition},
        {State::UNCLEAR, "file-unread", unreadFile},
        {State::UNCLEAR, "animation-stays", animation},
        {State::UNCLEAR, "only-logged", onlyLogged},
        {State::UNCLEAR, "record-damaged", damagedRecord},
        {State::UNCLEAR, "stamp-alone", lonelyStamp},
        {State::UNCLEAR, "backup-alone", onlyBackup},
        {State::UNCLEAR, "flag-damaged", damagedFlag},
        {State::UNCLEAR, "flag-alone", flagAlone},
        {State::UNCLEAR, "flag-missing", flagMissing},
        {State::UNCLEAR, "capture-alone", captureAlone},
        {State::UNCLEAR, "reason-code-alone", reasonCodeAlone},
        {State::UNCLEAR, "history-alone", historyAlone},
        {State::UNCLEAR, "leftovers", leftovers},
        {State::UNCLEAR, "unfinished-boot", unfinishedBoot},
        {State::UNCLEAR, "damaged", anyProblem},
        {State::BLOCKED, "blocked", blocked},
        {State::FAILING, "open", open},
        {State::CURED, "stamped", cured},
        {State::NO_FAILURE, "no-failure", otherwise},
};

}  // namespace

Decision decideState(const Report& report, const std::vector<Episode>& episodes) {
    const Facts facts = {report, episodes};
    for (const auto& [state, name, says] : kRules) {
        if (const Sentence sentence = says(facts)) return {state, name, *sentence};
    }
    abort();  // the last rule always applies
}

std::string timeOf(const Failure& failure) {
    std::string time = failure.iso;
    if (time.empty()) return failure.time;
    time[time.find('T')] = ' ';
    return time;
}

std::string durationOf(int64_t seconds) {
    constexpr int64_t kMinute = 60;
    constexpr int64_t kHour = 60 * kMinute;
    constexpr int64_t kDay = 24 * kHour;
    const auto two = [](int64_t large, const char* unit, int64_t small, const char* smallUnit) {
        const std::string text = std::to_string(large) + unit;
        return small == 0 ? text : text + " " + std::to_string(small) + smallUnit;
    };
    if (seconds < kMinute) return std::to_string(seconds) + " s";
    if (seconds < kHour) return two(seconds / kMinute, " min", seconds % kMinute, " s");
    if (seconds < kDay) return two(seconds / kHour, " h", seconds % kHour / kMinute, " min");
    return two(seconds / kDay, seconds < 2 * kDay ? " day" : " days", seconds % kDay / kHour, " h");
}

}  // namespace report
