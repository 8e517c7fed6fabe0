// SPDX-License-Identifier: Apache-2.0
// A report as plain text for a person.

#include "report/show/Text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "common/text/Printable.h"
#include "report/judge/Judgement.h"
#include "report/judge/States.h"

namespace report {

using text::printable;

namespace {

// Appends one line like printf, cut when it is too long.
__attribute__((format(printf, 2, 3))) void print(std::string& out, const char* format, ...) {
    char line[2048];
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    const bool cut = size >= static_cast<int>(sizeof(line));
    out += cut ? text::shortened(line, sizeof(line) - 2) : line;
    if (cut && format[strlen(format) - 1] == '\n') out += '\n';
}

// Appends a text as lines that fit a terminal: `first` before the first one, blanks before the
// others.
void printText(std::string& out, const std::string& first, const std::string& text) {
    constexpr size_t kWidth = 80;
    constexpr size_t kMost = 1900;  // bytes that are shown
    // What can't be printed takes four times the room.
    const std::string all = text::shortened(printable(text::shortened(text, kMost)), kMost);
    const std::string indent(first.size(), ' ');
    size_t begin = 0;
    do {
        const size_t room = kWidth - std::min(first.size(), kWidth / 2);
        size_t end = all.size();
        if (end - begin > room) {
            end = all.rfind(' ', begin + room);
            // A word longer than a line stays whole.
            if (end == std::string::npos || end <= begin) end = all.find(' ', begin + room);
            end = std::min(end, all.size());
        }
        out += (begin == 0 ? first : indent) + all.substr(begin, end - begin) + "\n";
        begin = end + 1;
    } while (begin < all.size());
}

std::string at(const Place& place) {
    if (place.file.empty()) return "";
    return place.file + (place.line > 0 ? ":" + std::to_string(place.line) : "");
}

void printAnswers(const Answers& answers, std::string& out) {
    out += "\nWhat hung?\n";
    printText(out, "  ", answers.hung.text);
    out += "Why is that believed?\n";
    printText(out, "  ", answers.why.text);
    for (const Quote& quote : answers.why.quotes) {
        printText(out, "    ", at(quote.place) + "  " + quote.text);
    }
    out += "What did the device do?\n";
    printText(out, "  ", answers.did.text);
    out += "Did it work?\n";
    printText(out, "  ", answers.worked.text);
    out += "What next?\n";
    printText(out, "  ", answers.next.text);
    if (!answers.next.replay.empty()) printText(out, "  replay: ", answers.next.replay);
    for (const Limit& limit : answers.next.limits) {
        printText(out, "  limit: ", limit.text + ", " + limit.link);
    }
}

void printNotes(const std::vector<Note>& notes, std::string& out) {
    for (const Note& note : notes) {
        printText(out, "  " + note.file + ": ", note.text.empty() ? "empty" : note.text);
    }
}

void printFailure(const Failure& failure, std::string& out) {
    const bool hasNumber = failure.number.type != 0 || failure.number.stamp;
    const std::string number = hasNumber ? " (" + formatErrorNumber(failure.number) + ")" : "";
    printText(out, "    " + printable(timeOf(failure).substr(0, 40)) + "  ",
              describeSituation(failure.number) + number +
                      (failure.recorded ? "" : ", without a record"));
    if (!failure.lastEvent.empty()) {
        printText(out, "        last event: ", failure.lastEvent);
    }
    const bool hasCountry = !failure.country.empty() && failure.country != "0";
    if (hasCountry) printText(out, "        country: ", failure.country);
}

std::string actionOf(const Action& action) {
    if (action.mode == 0) return "none: " + action.whyNone;
    return modeName(action.mode) + ", by the " + sourceName(action.source);
}

void printEpisodes(const std::vector<Episode>& episodes, std::string& out) {
    if (!episodes.empty()) out += "\nEpisodes, oldest first\n";
    for (const Episode& episode : episodes) {
        std::string line = outcomeName(episode.outcome);
        if (!episode.curedBy.empty() && episode.curedBy != "unknown")
            line += " by " + episode.curedBy;
        if (episode.secondsToCure) line += " after " + durationOf(*episode.secondsToCure);
        line += ", " + std::to_string(episode.boots) + (episode.boots == 1 ? " boot" : " boots");
        if (episode.evidenceLost) line += ", evidence lost";
        printText(out, "  ", line);
        for (size_t i = 0; i < episode.failures.size(); ++i) {
            printFailure(episode.failures[i], out);
            printText(out, "        action: ", actionOf(episode.actions[i]));
        }
        if (episode.stamp) printFailure(*episode.stamp, out);
    }
}

void printRecovery(const Recovery& recovery, std::string& out) {
    if (recovery.lastMode == 0 && recovery.reason == 0) return;
    out += "\nRecovery\n";
    if (recovery.lastMode != 0) {
        print(out, "  remembered: %s, for reason %d\n", modeName(recovery.lastMode).c_str(),
              recovery.lastReason);
    }
    if (recovery.reason == 0) return;
    std::string list;
    for (const int mode : recovery.list) list += (list.empty() ? "" : ", ") + modeName(mode);
    printText(out,
              "  list for reason " + std::to_string(recovery.reason) +
                      (recovery.override ? " (pushed): " : " (default): "),
              list.empty() ? "empty" : list);
    printText(out, "  next: ", recovery.next);
}

void printRefusals(const std::vector<Refusal>& refusals, std::string& out) {
    if (!refusals.empty()) out += "\nRefused by the platform\n";
    for (const Refusal& refusal : refusals) {
        printText(out, "  " + printable(refusal.time) + "  ", refusal.action + ": " + refusal.why);
    }
}

void printCaptures(const Report& report, std::string& out) {
    if (!report.captures.empty() || !report.journal.empty()) out += "\nCaptured logs\n";
    for (const Capture& capture : report.captures) {
        const ArchiveInfo& info = capture.info;
        print(out, "  %-20s %10lld bytes in %9lld", printable(capture.name).c_str(),
              static_cast<long long>(info.content), static_cast<long long>(info.size));
        if (info.ratio() > 0) print(out, "  %5.1fx", info.ratio());
        // The daemon leaves an empty file for a log that it could not open, as a console that
        // isn't there.
        const char* what = info.error.empty() ? "whole" : info.error.c_str();
        print(out, "  %s\n", info.size == 0 ? "not there when it was captured" : what);
    }
    for (const JournalLine& line : report.journal) printText(out, "  journal: ", line.text);
}

void printBoots(const Report& report, std::string& out) {
    if (!report.boots.empty()) {
        out += "\nWhat the daemon decided, in seconds since its start\n";
    }
    for (const Boot& boot : report.boots) {
        printText(out, "  ", boot.title + ", from " + boot.begin);
        for (const Event& event : boot.events) {
            char time[64];
            snprintf(time, sizeof(time), "%10.3f  %-9s ", event.t, event.kind.c_str());
            if (event.count > 1) {
                snprintf(time, sizeof(time), "%10.0f to %.0f  %d polls, ", event.t, event.until,
                         event.count);
            }
            printText(out, time, event.text);
        }
    }
}

}  // namespace

std::string toText(const Report& report) {
    const Judgement judgement = judge(report);
    std::string out;
    print(out, "%s: %s\n", printable(report.device).c_str(), stateName(judgement.state));
    printText(out, "  ", judgement.sentence);
    for (const Problem& problem : report.problems) {
        const std::string line = problem.line > 0 ? " line " + std::to_string(problem.line) : "";
        printText(out, "  damaged: ", problem.file + line + ": " + problem.what);
    }
    if (!report.isPartition) return out;
    if (judgement.answers) printAnswers(*judgement.answers, out);
    printEpisodes(judgement.episodes, out);
    if (report.flag) printText(out, "  not submitted yet: a failure of phase ", *report.flag);
    printRecovery(report.recovery, out);
    printRefusals(report.refusals, out);
    if (!report.uploads.empty()) out += "\nUploads not yet collected\n";
    printNotes(report.uploads, out);
    printCaptures(report, out);
    if (!report.notes.empty()) out += "\nNotes about the device\n";
    printNotes(report.notes, out);
    printBoots(report, out);
    if (report.comparison) {
        print(out, "\nMilestones of %s\n", printable(report.comparison->name).c_str());
        for (const Milestone& milestone : report.comparison->milestones) {
            print(out, "  %10.3f  %s\n", milestone.t, milestone.name.c_str());
        }
    }
    return out;
}

}  // namespace report
