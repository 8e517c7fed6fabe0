// SPDX-License-Identifier: Apache-2.0
// Finds what the daemon's log says of a failure, and the failures that only the log tells of.

#include "report/judge/Notices.h"

#include <stdint.h>
#include <algorithm>
#include <optional>

#include "report/read/Times.h"

namespace report {

namespace {

// No boot comes to a time-out so soon after a record, so a capture within this time is its own.
constexpr int64_t kLongestCapture = 240;  // seconds
constexpr int64_t kRecordLag = 2;         // seconds from the log line to the record's time

ErrorNumber numberOf(const Event& event) {
    return event.error.value_or(animationStays());
}

std::string keyOf(const ErrorNumber& number, int64_t seconds) {
    return std::to_string(number.number) + "@" + std::to_string(seconds);
}

std::string keyOf(const std::string& file, int line) {
    return file + ":" + std::to_string(line);
}

// The poll before a notice, which it was decided by; null when the log has none.
const Event* lastPoll(const Notice& notice) {
    constexpr size_t kMostBetween = 8;  // events between a poll and the notice
    const size_t first = notice.event - std::min(notice.event, kMostBetween);
    for (size_t i = notice.event; i-- > first;) {
        if (notice.boot->events[i].said == Said::POLL) return &notice.boot->events[i];
    }
    return nullptr;
}

Failure failureOf(const Notice& notice) {
    Failure failure;
    const Event& event = *notice;
    failure.time = event.clock;
    failure.iso = event.iso.substr(0, event.iso.find('.'));
    failure.number = numberOf(event);
    failure.file = event.place.file;
    failure.line = event.place.line;
    failure.recorded = false;
    // A record of this type has what the last poll saw.
    if (isStall(failure.number)) {
        if (const Event* poll = lastPoll(notice)) failure.lastEvent = poll->rest;
    }
    return failure;
}

// The last event that says that a boot is complete; null if none does.
const Event* lastCompletion(const std::vector<Boot>& boots) {
    for (auto boot = boots.rbegin(); boot != boots.rend(); ++boot) {
        for (auto event = boot->events.rbegin(); event != boot->events.rend(); ++event) {
            if (event->said == Said::COMPLETE) return &*event;
        }
    }
    return nullptr;
}

// The reason code tells of an animation that stays; the journal says when, if no record can be
// meant.
std::optional<Failure> animationOfReasonCode(const Report& report) {
    const std::string* code = noteOf(report.notes, "reason.txt");
    if (code == nullptr || *code != "3") return std::nullopt;
    Failure failure;
    failure.number = animationStays();
    failure.file = "/boot_vigil/reason.txt";
    failure.recorded = false;
    const JournalLine* capture = lastCapture(report);
    if (capture == nullptr) return failure;
    for (const Failure& recorded : report.failures) {
        if (recorded.iso > capture->iso || isCaptureOf(*capture, recorded)) return std::nullopt;
    }
    failure.iso = capture->iso;
    failure.time = capture->text.substr(0, capture->text.find("  "));
    return failure;
}

}  // namespace

Notices::Notices(const std::vector<Boot>& boots) {
    for (const Boot& boot : boots) {
        for (size_t i = 0; i < boot.events.size(); ++i) {
            const Event& event = boot.events[i];
            if (!event.error && event.said != Said::ANIMATION) continue;
            const Notice notice = {&boot, i};
            mAll.push_back(notice);
            mByKey[keyOf(event.place.file, event.place.line)] = notice;
            const auto seconds = secondsOfIso(event.iso);
            if (seconds) mByKey[keyOf(numberOf(event), *seconds)] = notice;
        }
    }
}

Notice Notices::find(const Failure& failure) const {
    const auto look = [&](const std::string& key) {
        const auto found = mByKey.find(key);
        return found == mByKey.end() ? Notice() : found->second;
    };
    if (!failure.recorded) {
        if (const Notice notice = look(keyOf(failure.file, failure.line))) return notice;
    }
    const auto seconds = secondsOfIso(failure.iso);
    for (int64_t lag = 0; seconds && lag <= kRecordLag; ++lag) {
        if (const Notice notice = look(keyOf(failure.number, *seconds - lag))) return notice;
    }
    return {};
}

Story storyOf(const Notice& notice) {
    Story story;
    if (!notice) return story;
    const Event* last = lastPoll(notice);
    bool same = last != nullptr && !last->rest.empty();
    for (size_t i = notice.event; i-- > 0;) {
        const Event& event = notice.boot->events[i];
        if (event.error) break;  // an earlier failure of the same boot
        if (event.said == Said::TIMEOUT) {
            ++story.timeouts;
            if (story.timeout == nullptr) story.timeout = &event;
        }
        const bool decides = event.said == Said::STUCK_PID || event.said == Said::LOOP;
        if (decides && story.deciding == nullptr) story.deciding = &event;
        if (event.said != Said::POLL || !same) continue;
        same = event.rest == last->rest;
        if (!same) continue;
        story.since = &event;
        story.polls += event.count;
    }
    return story;
}

std::vector<Failure> unrecordedFailures(const Report& report) {
    const Notices notices(report.boots);
    const Event* completion = lastCompletion(report.boots);
    std::vector<const Event*> recorded;
    for (const Failure& failure : report.failures) {
        if (const Notice notice = notices.find(failure)) recorded.push_back(&*notice);
    }
    std::sort(recorded.begin(), recorded.end());
    const std::string last = report.failures.empty() ? "" : report.failures.back().iso;
    std::vector<Failure> failures;
    bool animation = false;
    for (const Notice& notice : notices.all()) {
        const Event& event = *notice;
        animation = animation || event.said == Said::ANIMATION;
        // An animation that closed after all, or a wizard that went on, has harmed nobody.
        const bool isOver = completion != nullptr && completion->place.line > event.place.line;
        const bool over = event.error ? isWizardStall(*event.error) : isOver;
        const bool old = !event.iso.empty() && event.iso < last;
        if (over || old || std::binary_search(recorded.begin(), recorded.end(), &event)) continue;
        failures.push_back(failureOf(notice));
    }
    if (animation) return failures;
    if (const auto failure = animationOfReasonCode(report)) failures.push_back(*failure);
    return failures;
}

const JournalLine* lastCapture(const Report& report) {
    for (auto line = report.journal.rbegin(); line != report.journal.rend(); ++line) {
        if (line->what == "USER capture log" || line->what == "KEL capture log") return &*line;
    }
    return nullptr;
}

bool isCaptureOf(const JournalLine& capture, const Failure& failure) {
    const auto captured = secondsOfIso(capture.iso);
    const auto failed = secondsOfIso(failure.iso);
    if (!captured || !failed || failure.number.stamp) return false;
    return *captured >= *failed && *captured <= *failed + kLongestCapture;
}

const std::string* noteOf(const std::vector<Note>& notes, const std::string& file) {
    for (const Note& note : notes) {
        if (note.file == file) return &note.text;
    }
    return nullptr;
}

}  // namespace report
