// SPDX-License-Identifier: Apache-2.0
// A report as plain text for a person.

#include "report/show/Text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "common/text/Printable.h"

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

void printNotes(const std::vector<Note>& notes, std::string& out) {
    for (const Note& note : notes) {
        print(out, "  %s: %s\n", note.file.c_str(), printable(note.text).c_str());
    }
}

void printFailures(const Report& report, std::string& out) {
    out += "\nFailures and recovery stamps, oldest first\n";
    if (report.failures.empty()) out += "  none recorded\n";
    for (const Failure& failure : report.failures) {
        print(out, "  %s  %s\n", printable(failure.time).c_str(),
              describeErrorNumber(failure.number).c_str());
        if (!failure.lastEvent.empty()) {
            print(out, "      last event: %s\n", printable(failure.lastEvent).c_str());
        }
        if (!failure.country.empty()) {
            print(out, "      country: %s\n", printable(failure.country).c_str());
        }
    }
    if (report.pendingPhase) {
        print(out, "  a failure of phase %s is not submitted yet\n",
              printable(*report.pendingPhase).c_str());
    }
}

void printRecovery(const Recovery& recovery, std::string& out) {
    out += "\nRecovery\n";
    if (recovery.lastMode != 0) {
        print(out, "  last action: %s, for reason %d\n", modeName(recovery.lastMode).c_str(),
              recovery.lastReason);
    } else {
        out += "  no action is remembered\n";
    }
    if (recovery.reason != 0) {
        print(out, "  list for reason %d (%s):", recovery.reason,
              recovery.override ? "pushed to the device" : "default");
        for (const int mode : recovery.list) print(out, " %s;", modeName(mode).c_str());
        out += recovery.list.empty() ? " empty\n" : "\n";
    }
    print(out, "  next: %s\n", recovery.next.c_str());
}

void printCaptures(const Report& report, std::string& out) {
    out += "\nCaptured logs\n";
    if (report.captures.empty()) out += "  none\n";
    for (const Capture& capture : report.captures) {
        const ArchiveInfo& info = capture.info;
        print(out, "  %-20s %10lld bytes in %9lld", printable(capture.name).c_str(),
              static_cast<long long>(info.content), static_cast<long long>(info.size));
        if (info.ratio() > 0) print(out, "  %5.1fx", info.ratio());
        print(out, "  %s\n", info.error.empty() ? "whole" : info.error.c_str());
    }
    for (const std::string& line : report.journal) {
        print(out, "  journal: %s\n", printable(line).c_str());
    }
}

void printBoots(const Report& report, std::string& out) {
    out += "\nWhat the daemon decided\n";
    if (report.boots.empty()) out += "  nothing of its log was captured\n";
    for (const Boot& boot : report.boots) {
        print(out, "  %s, from %s\n", printable(boot.title).c_str(), printable(boot.begin).c_str());
        for (const Event& event : boot.events) {
            print(out, "  %10.3f  %-9s %s\n", event.t, event.kind.c_str(),
                  printable(event.text).c_str());
        }
    }
}

}  // namespace

std::string toText(const Report& report) {
    std::string out;
    print(out, "%s: %s\n", printable(report.device).c_str(),
          report.readable ? printable(report.verdict).c_str() : "nothing to read");
    for (const Problem& problem : report.problems) {
        print(out, "  damaged: %s: %s\n", printable(problem.file).c_str(),
              printable(problem.what).c_str());
    }
    if (!report.readable) return out;
    printFailures(report, out);
    printRecovery(report.recovery, out);
    out += "\nUploads not yet collected\n";
    if (report.uploads.empty()) out += "  none\n";
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
