// SPDX-License-Identifier: Apache-2.0
// What the daemon did about the failures of an episode, as far as anything tells.

#include "report/judge/Actions.h"

#include <stdlib.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "bootvigil/FailureCodes.h"
#include "bootvigil/RecoveryLists.h"
#include "report/read/Times.h"

namespace report {

namespace {

// The check after boot, the later of the two that judge a recovery, comes so soon after a stamp.
constexpr int64_t kLongestJudging = 600;  // seconds, with something to spare

constexpr const char* kNotKnown = "not known";
constexpr const char* kEndedInCapture = "the daemon seems to have ended in the capture";

Action none(const std::string& why) {
    return {0, Source::NONE, why};
}

// What the log of the failure's own boot says after the notice.
std::optional<Action> actionOfLog(const Notice& notice) {
    if (!notice) return std::nullopt;
    const std::vector<Event>& events = notice.boot->events;
    for (size_t i = notice.event + 1; i < events.size(); ++i) {
        switch (events[i].said) {
            case Said::REBOOT:
                return Action{RECOVERY_REBOOT, Source::LOG, ""};
            case Said::WAIT:
                return Action{RECOVERY_WAIT_USER, Source::LOG, ""};
            case Said::RESET:
                if (notice.boot->first) return Action{0, Source::LOG, "the data is fresh already"};
                return Action{RECOVERY_DATA_RESET, Source::LOG, ""};
            case Said::DISABLED:
                return Action{0, Source::LOG, events[i].text, true};
            case Said::NO_STEP:
                return Action{0, Source::LOG, events[i].text};
            case Said::ENDED_EARLY:
                return Action{0, Source::LOG, "the daemon ended before it: " + events[i].text,
                              false, true};
            case Said::NOTICE:  // of the next failure
                return std::nullopt;
            default:
                break;
        }
    }
    return std::nullopt;
}

// What a step of that mode has done to a device that came up after it.
std::string cureOfMode(int mode) {
    if (mode == RECOVERY_REBOOT) return "reboot";
    return mode == RECOVERY_DATA_RESET ? "reset" : "user";
}

// The mode of "BFRECOVERY|1|Sun Nov 15 11:05:18 2026|100" if it is about this stamp, else 0.
int modeOfUpload(const Report& report, const Failure& stamp) {
    const std::string* text = noteOf(report.uploads, "recovery_record");
    if (text == nullptr) return 0;
    const size_t mode = text->find('|');
    const size_t time = mode == std::string::npos ? mode : text->find('|', mode + 1);
    if (time == std::string::npos) return 0;
    const auto judged = parseTime(text->substr(time + 1, text->find('|', time + 1) - time - 1));
    const auto stamped = secondsOfIso(stamp.iso);
    const bool same =
            judged && stamped && *judged >= *stamped && *judged <= *stamped + kLongestJudging;
    return same ? atoi(text->c_str() + mode + 1) : 0;
}

}  // namespace

Actions::Actions(const Report& report, const Notices& notices)
    : mReport(report), mNotices(notices) {
    for (const Boot& boot : report.boots) {
        std::optional<int64_t> completed;
        std::string cure;  // empty: not judged, as in a good boot that was short
        for (const Event& event : boot.events) {
            if (event.said == Said::COMPLETE) completed = secondsOfIso(event.iso);
            if (event.said == Said::JUDGED) cure = cureOfMode(atoi(event.rest.c_str()));
            if (event.said == Said::NOT_BY_THAT) cure = "user";
            const bool none = event.said == Said::NO_RECOVERY || event.said == Said::DISABLED;
            if (none && cure.empty()) cure = "user";
        }
        if (completed && !cure.empty()) mJudged[*completed] = cure;
    }
}

const std::vector<int>& Actions::listFor(int reason) {
    const auto [entry, isNew] = mLists.try_emplace(reason);
    try {
        if (isNew) entry->second = recoveryModes(reason, mReport.recoveryFiles.list);
    } catch (const std::out_of_range&) {  // ends the daemon before any step
    }
    return entry->second;
}

// What is due for each failure of a walk that begins at the top, and where the walk is after it.
// The boot after a reset is the first one on fresh data, which goes on where the walk is.
std::vector<Actions::Walk> Actions::walkOf(const Episode& episode) {
    static const std::vector<int> nothing;
    std::vector<Walk> walks;
    Walk walk;
    bool firstBoot = false;
    for (const Failure& failure : episode.failures) {
        const int reason = failure.number.reason;
        const std::vector<int>& list = isRecovered(failure.number) ? listFor(reason) : nothing;
        if (walk.mode == RECOVERY_DATA_RESET && !firstBoot) walk.index = 0;
        const bool there = walk.index < list.size() && list[walk.index] > 0;
        if (there) walk = {walk.index + 1, list[walk.index], reason};
        firstBoot = there && walk.mode == RECOVERY_DATA_RESET;
        walks.push_back(walk);
    }
    return walks;
}

bool Actions::isIn(const Walk& walk) const {
    const Recovery& recovery = mReport.recovery;
    return !recovery.history.empty() &&
           recovery.history[0] == static_cast<char>('0' + walk.index) &&
           recovery.lastMode == walk.mode && recovery.lastReason == walk.reason;
}

// Why a failure of an open episode has led to nothing, from what the partition holds.
std::string Actions::whyNothing(const Failure& failure, bool last) const {
    const Recovery& recovery = mReport.recovery;
    if (!isRecovered(failure.number)) return "the daemon does not recover from this";
    if (recovery.blocked == Blocked::DEADLY_LIST || recovery.blocked == Blocked::DISABLED ||
        recovery.blocked == Blocked::DAMAGED_HISTORY) {
        return recovery.next.substr(recovery.next.find(": ") + 2);
    }
    const bool captured =
            std::any_of(mReport.journal.begin(),
                        last ? mReport.journal.end() : mReport.journal.begin(),
                        [&](const JournalLine& line) { return isCaptureOf(line, failure); });
    if (last && !captured) return kEndedInCapture;
    return "no action is remembered";
}

// Of an open episode: as many failures as the history has steps have led to one each.
void Actions::takeHistory(Episode& episode, const std::vector<Walk>& walks) const {
    const Recovery& recovery = mReport.recovery;
    size_t steps = episode.failures.size();
    while (steps > 0 && !isIn(walks[steps - 1])) --steps;
    for (size_t i = 0; i < episode.failures.size(); ++i) {
        const bool acted = i == 0 ? walks[i].index > 0 : walks[i].index != walks[i - 1].index;
        if (i < steps && acted) {
            episode.actions[i] = {walks[i].mode, Source::HISTORY, ""};
        } else if (i < steps && isRecovered(episode.failures[i].number)) {
            episode.actions[i] = none("the list is exhausted in the first boot after a reset");
        } else {
            const bool last = i + 1 == episode.failures.size();
            episode.actions[i] = none(whyNothing(episode.failures[i], last));
            episode.actions[i].endedEarly = episode.actions[i].whyNone == kEndedInCapture;
        }
    }
    // Steps of failures that no record tells of: the last one is still the last failure's.
    const bool own = recovery.lastReason == episode.last().number.reason;
    if (steps == 0 && own && recovery.lastMode != 0) {
        episode.actions.back() = {recovery.lastMode, Source::HISTORY, ""};
    }
}

// Of an episode that has ended the history is gone; what was due is still known. Only the history
// of larger reasons may outlast an episode, so that the next one goes on in the list.
void Actions::takeList(Episode& episode, const std::vector<Walk>& walks) const {
    for (size_t i = 0; i < episode.failures.size(); ++i) {
        const bool due = i == 0 ? walks[i].index > 0 : walks[i].index != walks[i - 1].index;
        if (!isRecovered(episode.failures[i].number)) {
            episode.actions[i] = none("the daemon does not recover from this");
        } else if (mReport.recovery.disabled) {
            episode.actions[i] = none("recovery is disabled from outside");
        } else if (episode.failures[i].number.reason > REASON_STUCK) {
            episode.actions[i] = none(kNotKnown);
        } else if (due) {
            episode.actions[i] = {walks[i].mode, Source::LIST, ""};
        } else {
            episode.actions[i] = none("the list has no step");
        }
    }
}

void Actions::fill(Episode& episode, bool newest) {
    const std::vector<Walk> walks = walkOf(episode);
    episode.actions.resize(episode.failures.size());
    if (episode.stamp || !newest) {
        takeList(episode, walks);
    } else {
        takeHistory(episode, walks);
    }
    for (size_t i = 0; i < episode.failures.size(); ++i) {
        const auto action = actionOfLog(mNotices.find(episode.failures[i]));
        if (action) episode.actions[i] = *action;
    }
    const int mode = episode.stamp ? modeOfUpload(mReport, *episode.stamp) : 0;
    if (mode != 0) episode.actions.back() = {mode, Source::UPLOAD, ""};
}

std::string Actions::cureOf(const Episode& episode) const {
    constexpr int kSameBoot = 1;
    constexpr int64_t kLag = 2;  // seconds from the stamp to the boot's completion in the log
    if (episode.stamp->number.reason == kSameBoot) {
        return isKeptLog(episode.last().number) ? "unknown" : "itself";
    }
    const Action& last = episode.actions.back();
    if (last.source == Source::UPLOAD) return cureOfMode(last.mode);
    const auto stamped = secondsOfIso(episode.stamp->iso);
    for (int64_t lag = 0; stamped && lag <= kLag; ++lag) {
        const auto judged = mJudged.find(*stamped + lag);
        if (judged != mJudged.end()) return judged->second;
    }
    const bool nothing = last.mode == 0 && !last.whyNone.empty() && last.whyNone != kNotKnown;
    return nothing || last.mode == RECOVERY_WAIT_USER ? "user" : "unknown";
}

}  // namespace report
