// SPDX-License-Identifier: Apache-2.0
// The five answers about an episode.

#include "report/judge/Answers.h"

#include <stdlib.h>

#include <algorithm>
#include <utility>

#include "bootvigil/FailureCodes.h"
#include "bootvigil/RecoveryLists.h"
#include "report/judge/States.h"
#include "report/read/Times.h"

namespace report {

namespace {

std::string plural(int count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string secondsOf(double seconds) {
    return durationOf(static_cast<int64_t>(seconds));
}

// "2026-11-15 11:08:10", or without the year where it isn't known.
std::string clockOf(const Event& event) {
    std::string clock = event.iso.empty() ? event.clock : event.iso;
    if (!event.iso.empty()) clock[clock.find('T')] = ' ';
    return clock.substr(0, clock.find('.'));
}

std::string phaseOf(const ErrorNumber& number) {
    const std::string detail = detailName(number);
    return "phase: " + phaseName(number) + (detail == "none" ? "" : ", " + detail);
}

Hung whatHung(const Failure& failure, const Notice& notice, const Story& story) {
    Hung hung;
    const ErrorNumber& number = failure.number;
    if (isStall(number)) hung.event = parseBootEvent(failure.lastEvent);
    hung.missing = missingMilestone(failure);
    hung.named = story.deciding != nullptr && story.deciding->said == Said::STUCK_PID;
    if (isStall(number) && story.since != nullptr) {
        hung.since = story.since;
        hung.silent = (*notice).t - story.since->t;
    }
    const BootEvent& event = hung.event;
    const std::string who = event.process + (event.pid.empty() ? "" : " (pid " + event.pid + ")");
    if (event.process.empty()) {
        hung.text = describeSituation(number);
    } else if (notice && !hung.named) {
        hung.text = "not known which process; the last event, " + event.name + ", is of " + who;
    } else {
        hung.text = who + ": nothing after " + event.name;
    }
    if (hung.since != nullptr) {
        // The event may have come any time before the first poll that saw it.
        hung.text += " since " + clockOf(*hung.since) + ", at least " + secondsOf(*hung.silent) +
                     " of silence";
    }
    if (isStall(number) && !hung.missing.empty()) hung.text += "; never reached " + hung.missing;
    if (!event.process.empty()) hung.text += "; " + phaseOf(number);
    return hung;
}

// The rule of the daemon that such a failure comes from.
std::string ruleOf(const ErrorNumber& number, bool named, bool logged) {
    if (number.type == TYPE_NONE) return "the framework is complete, the animation is not closed";
    if (isRestartLoop(number)) return "one milestone came five times";
    if (isWizardStall(number)) return "four checks saw the same phase of the set-up wizard";
    if (isKeptLog(number)) return "the platform kept a log of a failed boot";
    if (isStall(number) && named) return "four or more polls in a row saw the same last event";
    if (isStall(number) && logged) return "the third time-out, whatever events came";
    if (isStall(number)) return "a time-out, and no progress";
    return "the platform declared failure " + std::to_string(number.reason);
}

Why whyBelieved(const Failure& failure, const Notice& notice, const Story& story) {
    Why why;
    const bool named = story.deciding != nullptr && story.deciding->said == Said::STUCK_PID;
    why.rule = ruleOf(failure.number, named, bool(notice));
    why.polls = story.polls;
    why.timeouts = story.timeouts;
    why.text = why.rule;
    const auto quote = [&](const Event* event, const std::string& text) {
        if (event != nullptr) why.quotes.push_back({text, event->place});
    };
    if (!notice) {
        why.text += "; the daemon's log of it was not captured";
        why.quotes.push_back(
                {failure.recorded ? "record" : "reason code", {failure.file, failure.line}});
        return why;
    }
    quote(story.since, "first poll with this last event");
    quote(story.timeout, "time-out " + std::to_string(story.timeouts));
    quote(story.deciding, story.deciding == nullptr ? "" : story.deciding->text);
    quote(&*notice,
          "verdict" + (failure.number.type == TYPE_NONE ? ""
                                                        : " " + formatErrorNumber(failure.number)));
    if (story.polls > 0) why.text += "; " + plural(story.polls, "poll") + " saw it";
    if (story.timeouts > 0) why.text += "; decided at time-out " + std::to_string(story.timeouts);
    return why;
}

constexpr const char* kService = "the log-capture service";

// By whom the logs of a failure were captured, as the journal has it.
std::string capturedBy(const Report& report, const Failure& failure) {
    std::string by;
    for (const JournalLine& line : report.journal) {
        const bool own = failure.recorded ? isCaptureOf(line, failure) : line.iso == failure.iso;
        if (!own) continue;
        if (line.what == "USER capture log") by = "the daemon";
        if (line.what == "KEL capture log") by = kService;
        if (by.empty() || line.what.find("kel dont") != 0) continue;
        by = "the daemon, as the service left nothing";
    }
    return by;
}

std::string describeAction(const Action& action) {
    if (action.mode == 0) return "no action: " + action.whyNone;
    std::string name = modeName(action.mode);
    switch (action.source) {
        case Source::LOG:
            return name;
        case Source::HISTORY:
            return name + ", as its history says";
        case Source::UPLOAD:
            return name + ", as its report of success says";
        default:
            return name + " was due; nothing tells whether it was done";
    }
}

// What the platform refused after a failure, the last of it.
std::string refusedAfter(const Report& report, const Failure& failure) {
    constexpr std::pair<const char*, const char*> kReasons[] = {
            {"came-up", "the framework had come up"},
            {"in-use", "the device was in use"},
            {"slow", "the boot before had come up, only late"},
            {"spent", "its budget was spent"},
            {"uncounted", "its budget could not be written"},
            {"no-command", "recovery could not be told"},
    };
    if (report.refusals.empty() || failure.iso.empty()) return "";
    const Refusal& last = report.refusals.back();
    if (last.iso < failure.iso) return "";
    std::string why = "for a reason of its own, " + last.why;
    for (const auto& [code, words] : kReasons) {
        if (last.why == code) why = words;
    }
    return "the platform refused the " + last.action + ": " + why;
}

Did whatDone(const Report& report, const Episode& episode, const Story& story) {
    Did did;
    const Failure& failure = episode.last();
    const ErrorNumber& number = failure.number;
    if (isStall(number) && number.detailPhase == DETAIL_IN_SYSTEM_SERVER) {
        const bool named = story.deciding != nullptr && story.deciding->said == Said::STUCK_PID;
        did.signal = "SIGQUIT to " + (named ? story.deciding->rest : "the stuck process");
        if (story.timeouts > 0 && !named) did.signal = "SIGQUIT to pid 0, the daemon's own group";
    }
    did.capture = capturedBy(report, failure);
    did.action = episode.actions.back();
    did.text = did.signal.empty() ? "" : did.signal + "; ";
    if (did.capture.empty()) {
        did.text += "no capture is journaled";
    } else if (did.capture == kService) {
        did.text += did.capture + " was asked for the logs";
    } else {
        did.text += "logs captured by " + did.capture;
    }
    did.text += "; " + describeAction(did.action);
    did.refused = refusedAfter(report, failure);
    if (!did.refused.empty()) did.text += "; " + did.refused;
    if (episode.failures.size() > 1) {
        did.text += "; " + std::to_string(episode.failures.size()) + " failures in a row";
    }
    return did;
}

std::string describeCure(const std::string& by) {
    if (by == "itself") return "yes, by itself: the boot that failed completed after all";
    if (by == "reboot") return "yes, cured by the reboot";
    if (by == "reset") return "yes, cured by the data reset";
    if (by == "user") return "yes, after somebody rebooted it, and not at the daemon's request";
    return "yes, a boot has completed; by what cannot be told";
}

Worked didItWork(const Judgement& judgement) {
    switch (judgement.state) {
        case State::CURED:
            break;
        case State::FAILING:
            return {"not yet: no boot has completed since", "not-yet"};
        case State::BLOCKED:
            return {"never, as it is: no boot has completed, and recovery cannot go on", "never"};
        default:
            return {"cannot be told: " + judgement.sentence, "unknown"};
    }
    const Episode& episode = *judgement.headline();
    std::string text = describeCure(episode.curedBy);
    if (episode.secondsToCure) text += ", after " + durationOf(*episode.secondsToCure);
    return {text + ", in " + plural(episode.boots, "boot"), "yes"};
}

// A known limit, when it applies, and its anchor.
struct LimitFacts {
    const Report& report;
    const Judgement& judgement;
    const Story& story;

    const Episode& episode() const {
        return *judgement.headline();
    }
    const ErrorNumber& number() const {
        return episode().last().number;
    }
    bool isOpen() const {
        return !episode().stamp;
    }
};
constexpr struct {
    bool (*applies)(const LimitFacts& facts);
    const char* anchor;
    const char* text;
} kLimits[] = {
        {[](const LimitFacts& facts) {
             return facts.report.recovery.blocked == Blocked::DAMAGED_HISTORY;
         },
         "empty-history", "an empty history blocks recovery for good"},
        {[](const LimitFacts& facts) {
             return facts.report.recovery.blocked == Blocked::DEADLY_LIST;
         },
         "blank-field", "a blank field ends the daemon"},
        {[](const LimitFacts& facts) { return facts.number().type == TYPE_NONE; },
         "animation-stays", "a boot animation that stays is never recovered"},
        {[](const LimitFacts& facts) { return isWizardStall(facts.number()); }, "setup-wizard",
         "a hang in the set-up wizard is never recovered or uploaded"},
        {[](const LimitFacts& facts) {
             return facts.story.timeouts > 2 && facts.story.deciding == nullptr &&
                    facts.number().detailPhase == DETAIL_IN_SYSTEM_SERVER;
         },
         "pid-0", "pid 0 in the system server kills the daemon"},
        {[](const LimitFacts& facts) {
             return facts.isOpen() && isRecovered(facts.number()) &&
                    facts.episode().actions.back().mode == 0 &&
                    capturedBy(facts.report, facts.episode().last()).empty();
         },
         "capture-ends-daemon",
         "what ends the daemon during a capture ends it before the recovery"},
        {[](const LimitFacts& facts) {
             return facts.judgement.state == State::UNCLEAR && facts.number().type != TYPE_NONE;
         },
         "nothing-is-synced", "a power cut can lose what was just written"},
        {[](const LimitFacts& facts) {
             return capturedBy(facts.report, facts.episode().last()) == kService;
         },
         "stale-capture", "an earlier capture of the service counts as this one"},
        {[](const LimitFacts& facts) {
             return facts.isOpen() && facts.episode().actions.back().mode == RECOVERY_WAIT_USER;
         },
         "waiting", "waiting for the user tells nobody"},
        {[](const LimitFacts& facts) {
             return facts.number().reason == REASON_SYSTEM_ERROR_BOOTED;
         },
         "late-errors", "errors of a working device end in a data reset"},
        {[](const LimitFacts& facts) {
             return isRestartLoop(facts.number()) &&
                    facts.number().detailPhase == DETAIL_NO_MILESTONE;
         },
         "restarts-twice", "a framework that restarts twice and then comes up is taken for a loop"},
        {[](const LimitFacts& facts) { return isStall(facts.number()); }, "slow-boots",
         "a slow but healthy boot is taken for a stall"},
        {[](const LimitFacts& facts) { return isStall(facts.number()); }, "stuck-process",
         "the stuck process is often unknown or wrong"},
};

// As a shell takes it for one word.
std::string quoted(const std::string& path) {
    const bool plain = path.find_first_not_of(
                               "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                               "0123456789_./+:@%-") == std::string::npos;
    if (plain && !path.empty() && path[0] != '-') return path;
    std::string out = "'";
    for (const char c : path) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// The log that an engineer opens first, and what is to be seen there.
Place firstToOpen(const Report& report, const Notice& notice, const Story& story) {
    if (story.since != nullptr) return story.since->place;
    if (notice) return (*notice).place;
    for (const char* name : {"android_main_log", "sys_kernel_log"}) {
        for (const Capture& capture : report.captures) {
            if (capture.name == name && capture.info.content > 0) return {name, 1};
        }
    }
    return {};
}

std::string linkTo(const char* anchor) {
    return std::string("docs/known-limits.md#") + anchor;
}

std::string describeNext(const Next& next) {
    const std::string open = next.open.file + " at line " + std::to_string(next.open.line);
    return (next.open.file.empty() ? "no log to open" : "open " + open) +
           (next.recovery.empty() ? "" : "; the next such failure leads to: " + next.recovery);
}

Next whatNext(const LimitFacts& facts, const Notice& notice) {
    Next next;
    const Report& report = facts.report;
    next.open = firstToOpen(report, notice, facts.story);
    const std::vector<Boot>& captured = report.hasRunLog ? report.captured : report.boots;
    const Notice recorded = Notices(captured).find(facts.episode().last());
    if (recorded && (*recorded).place.file == "android_main_log") {
        next.replay = "bootvigil-lab replay " + quoted(report.partitionPath);
    }
    next.recovery = isRecovered(facts.number()) ? report.recovery.next
                                                : "nothing: the daemon does not recover from this";
    for (const auto& [applies, anchor, text] : kLimits) {
        constexpr size_t kMost = 2;
        if (next.limits.size() == kMost || !applies(facts)) continue;
        next.limits.push_back({text, linkTo(anchor)});
    }
    next.text = describeNext(next);
    return next;
}

}  // namespace

Answers answerWithoutEpisode(const Report& report, const Judgement& judgement) {
    Answers answers;
    answers.hung.text = "not known: no record and no log tells of it";
    answers.why.text = judgement.sentence;
    answers.why.rule = "none";
    const JournalLine* capture = lastCapture(report);
    answers.did.text =
            capture == nullptr ? "no capture is journaled" : "logs captured: " + capture->text;
    if (report.recovery.lastMode != 0) {
        answers.did.action = {report.recovery.lastMode, Source::HISTORY, ""};
        answers.did.text += "; " + describeAction(answers.did.action);
    }
    answers.worked = didItWork(judgement);
    Next& next = answers.next;
    next.open = firstToOpen(report, {}, {});
    if (report.recovery.reason != 0) next.recovery = report.recovery.next;
    next.text = describeNext(next);
    next.limits = {{"a power cut can lose what was just written", linkTo("nothing-is-synced")}};
    return answers;
}

Answers answer(const Report& report, const Judgement& judgement, const Notice& notice) {
    const Episode& episode = *judgement.headline();
    const Story story = storyOf(notice);
    return {whatHung(episode.last(), notice, story), whyBelieved(episode.last(), notice, story),
            whatDone(report, episode, story), didItWork(judgement),
            whatNext({report, judgement, story}, notice)};
}

}  // namespace report
