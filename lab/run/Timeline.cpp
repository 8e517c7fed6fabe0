// SPDX-License-Identifier: Apache-2.0
// A run as lines of text: for a person, and to be compared with what a scenario expects.

#include "lab/run/Timeline.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <set>

#include "bootvigil/BootMilestones.h"
#include "lab/base/Files.h"
#include "report/read/ErrorNumber.h"
#include "report/show/Text.h"

namespace lab {

namespace {

std::string field(const Record& record, const char* name) {
    const auto found = record.find(name);
    if (found == record.end()) return "";
    return found->is_string() ? found->get<std::string>() : found->dump();
}

bool isLog(const Record& record) {
    return record["kind"] == "log";
}

bool isWorld(const std::string& kind) {
    static const std::set<std::string> kinds = {"boot",   "event", "set",      "write",
                                                "remove", "fill",  "read-only"};
    return kinds.count(kind) != 0;
}

std::string signalName(const Record& record) {
    const int number = record["signal"].get<int>();
    const char* name = sigabbrev_np(number);
    return name != nullptr ? std::string("SIG") + name : std::to_string(number);
}

// The fields of a record that follow its kind.
std::string details(const Record& record) {
    const std::string kind = record["kind"];
    if (kind == "signal") return signalName(record) + " to " + field(record, "pid");
    if (kind == "killed") return "by " + signalName(record);
    if (kind == "exit") return field(record, "status");
    if (kind == "end") return field(record, "why");
    std::string text = field(record, "name");
    if (record.contains("removed")) return text + (text.empty() ? "" : " ") + "removed";
    if (kind == "captured") {
        text += " " + field(record, "bytes");
        return record.contains("error") ? text + ", " + field(record, "error") : text;
    }
    if (kind == "request") return text;
    return text + (text.empty() ? "" : " ") + report::printable(field(record, "text"));
}

enum class Colour { PLAIN, GREY, GREEN, YELLOW, RED, BLUE };

Colour colourOf(const std::string& kind) {
    if (kind == "record" || kind == "killed" || kind == "verdict") return Colour::RED;
    if (kind == "request" || kind == "history" || kind == "signal") return Colour::YELLOW;
    if (kind == "upload") return Colour::GREEN;
    if (kind == "captured" || kind == "journal" || kind == "kel") return Colour::BLUE;
    return isWorld(kind) ? Colour::GREY : Colour::PLAIN;
}

std::string paint(const std::string& text, Colour colour, bool on) {
    static constexpr const char* kCodes[] = {"0", "2", "32", "33", "31", "36"};
    if (!on || colour == Colour::PLAIN) return text;
    return std::string("\033[") + kCodes[static_cast<int>(colour)] + "m" + text + "\033[0m";
}

std::string personLine(double seconds, const std::string& kind, const std::string& text,
                       bool colour) {
    char time[32];
    snprintf(time, sizeof(time), "%9.3f  ", seconds);
    char label[32];
    snprintf(label, sizeof(label), "%-9s", kind.c_str());
    return time + paint(std::string(label) + " " + text, colourOf(kind), colour);
}

std::string describeWorld(const Record& record) {
    const std::string kind = record["kind"];
    if (kind == "set")
        return field(record, "name") + " = " + report::printable(field(record, "value"));
    return field(record, kind == "event" ? "name" : "path");
}

// Sizes of a captured log and how well it compresses.
std::string describeArchive(const Record& record) {
    const auto bytes = record["bytes"].get<double>();
    const auto compressed = record["compressed"].get<double>();
    char text[128];
    snprintf(text, sizeof(text), "%-18s %8.0f bytes -> %7.0f", field(record, "name").c_str(), bytes,
             compressed);
    char ratio[32] = "";
    if (bytes > 0 && compressed > 0) snprintf(ratio, sizeof(ratio), " (%.1fx)", bytes / compressed);
    std::string line = std::string(text) + ratio;
    if (record.contains("error")) line += ", " + field(record, "error");
    return line;
}

// "pid-process | event", the last event that the daemon saw, in words.
std::string describeLastEvent(const std::string& info) {
    const size_t dash = info.find('-');
    const size_t bar = info.find(" | ");
    if (dash == std::string::npos || bar == std::string::npos || dash > bar) return info;
    const size_t end = info.find_last_not_of(' ', bar);
    return info.substr(bar + 3) + " by process " + info.substr(0, dash) + " (" +
           info.substr(dash + 1, end - dash) + ")";
}

// A failure's record line in words; nothing for a line that holds no error number.
std::string describeRecord(const std::string& line) {
    static const std::string numberKey = "ERR_NUM:";
    static const std::string infoKey = "ERR_INFO:";
    const size_t number = line.find(numberKey + "0x");
    const size_t info = line.find(infoKey);
    if (number == std::string::npos || info == std::string::npos) return "";
    const size_t start = info + infoKey.size();
    const std::string event = line.substr(start, line.find(";    ", start) - start);
    std::string text = report::describeErrorNumber(report::decodeErrorNumber(
            strtoul(line.c_str() + number + numberKey.size(), nullptr, 16)));
    if (!event.empty()) text.append("; last event: ").append(describeLastEvent(event));
    return text;
}

// Prints both sides where two lists of lines part.
void compareLines(const std::string& what, const std::vector<std::string>& expected,
                  const std::vector<std::string>& actual, std::vector<std::string>& differences) {
    if (expected == actual) return;
    const auto [e, a] =
            std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    differences.push_back(what + " differs from line " + std::to_string(e - expected.begin() + 1) +
                          " on:");
    for (auto line = e; line != expected.end(); ++line) differences.push_back("  - " + *line);
    for (auto line = a; line != actual.end(); ++line) differences.push_back("  + " + *line);
}

std::string logText(const Record& record) {
    std::string text = record["text"];
    while (!text.empty() && (text.back() == '\n')) text.pop_back();
    return formatSeconds(record["t"]) + " " + field(record, "priority") + " " + text;
}

void compareLog(const Boot& boot, const std::string& where, const std::vector<Record>& records,
                int number, std::vector<std::string>& differences) {
    size_t next = 0;
    for (const Record& record : records) {
        if (record["boot"] != number || !isLog(record)) continue;
        const std::string line = logText(record);
        if (next < boot.log.size() && line == boot.log[next]) ++next;
        for (const std::string& part : boot.notLogged) {
            if (line.find(part) != std::string::npos) {
                differences.push_back(where);
                differences.back().append(": must not be logged: ").append(line);
            }
        }
    }
    if (next < boot.log.size()) {
        differences.push_back(where + ": not logged, or not in this order: " + boot.log[next]);
    }
}

}  // namespace

std::string formatSeconds(double seconds) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", seconds);
    std::string out = text;
    out.erase(out.find_last_not_of('0') + 1);
    if (out.back() == '.') out.pop_back();
    return out;
}

std::optional<std::string> effectLine(const Record& record) {
    const std::string kind = record["kind"];
    if (isLog(record) || isWorld(kind)) return std::nullopt;
    std::string line = formatSeconds(record["t"]) + " " + kind;
    const std::string more = details(record);
    return more.empty() ? line : line + " " + more;
}

std::vector<std::string> describeBoot(const std::vector<Record>& records, int boot, bool colour) {
    std::vector<std::string> lines;
    for (const Record& record : records) {
        if (record["boot"] != boot || isLog(record)) continue;
        const std::string kind = record["kind"];
        const double seconds = record["t"];
        if (kind == "boot") {
            const std::string about = field(record, "about");
            lines.push_back(paint("boot " + std::to_string(boot), Colour::PLAIN, colour) +
                            (about.empty() ? "" : ": " + about) + " (sys.boot.reason " +
                            field(record, "reason") + ")");
            continue;
        }
        if (kind == "record") {
            const std::string verdict = describeRecord(field(record, "text"));
            if (!verdict.empty()) lines.push_back(personLine(seconds, "verdict", verdict, colour));
        }
        if (kind == "event" && milestoneIndex(field(record, "name")) < 0) continue;
        std::string text = details(record);
        if (isWorld(kind)) text = describeWorld(record);
        if (kind == "captured" && record.contains("bytes")) text = describeArchive(record);
        lines.push_back(personLine(seconds, kind, text, colour));
    }
    return lines;
}

std::vector<std::string> compareWithScenario(const Scenario& scenario,
                                             const std::vector<Record>& records,
                                             const std::vector<std::string>& errors,
                                             const std::string& rootPath) {
    std::vector<std::string> differences;
    for (size_t i = 0; i < scenario.boots.size(); ++i) {
        const Boot& boot = scenario.boots[i];
        const int number = static_cast<int>(i) + 1;
        const std::string where = "boot " + std::to_string(number);
        if (boot.timeline) {
            std::vector<std::string> effects;
            for (const Record& record : records) {
                if (record["boot"] != number) continue;
                if (const auto line = effectLine(record)) effects.push_back(*line);
            }
            compareLines(where + ": timeline", *boot.timeline, effects, differences);
        }
        compareLog(boot, where, records, number, differences);
        if (boot.errors && *boot.errors != errors[i]) {
            differences.push_back(where + ": standard error: expected \"" +
                                  report::printable(*boot.errors) + "\", got \"" +
                                  report::printable(errors[i]) + "\"");
        }
    }
    for (const auto& [path, content] : scenario.expectedFiles) {
        const bool there = fileExists(rootPath + path);
        if (!content) {
            if (there) differences.push_back("file " + path + ": must not be there");
        } else if (!there) {
            differences.push_back("file " + path + ": missing");
        } else if (const std::string actual = readFile(rootPath + path); actual != *content) {
            differences.push_back("file " + path + ": expected \"" + report::printable(*content) +
                                  "\", got \"" + report::printable(actual) + "\"");
        }
    }
    return differences;
}

}  // namespace lab
