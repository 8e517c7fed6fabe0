// SPDX-License-Identifier: Apache-2.0
// A run as lines of text.

#include "lab/run/Timeline.h"

#include <stdlib.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "bootvigil/BootMilestones.h"
#include "common/text/Printable.h"
#include "lab/base/Text.h"
#include "lab/run/CodeWords.h"
#include "report/read/ErrorNumber.h"

namespace lab {

namespace {

std::string field(const Record& record, const char* name) {
    const auto found = record.find(name);
    if (found == record.end()) return "";
    return found->is_string() ? found->get<std::string>() : found->dump();
}

bool isWorld(const std::string& kind) {
    static const std::set<std::string> kinds = {"boot",   "event", "set",      "write",
                                                "remove", "fill",  "read-only"};
    return kinds.count(kind) != 0;
}

// The fields of a record that follow its kind.
std::string details(const Record& record) {
    const std::string kind = record["kind"];
    if (kind == "signal") return signalName(record["signal"]) + " to " + field(record, "pid");
    if (kind == "killed") return "by " + signalName(record["signal"]);
    if (kind == "exit") return field(record, "status");
    if (kind == "end") return field(record, "why");
    std::string text = field(record, "name");
    if (record.contains("removed")) return text + (text.empty() ? "" : " ") + "removed";
    if (kind == "captured") {
        text += " " + field(record, "bytes");
        return record.contains("error") ? text + ", " + field(record, "error") : text;
    }
    if (kind == "request") return text;
    return text + (text.empty() ? "" : " ") + field(record, "text");
}

// The code by which a terminal shows a kind of record; none for the others.
const char* colourOf(const std::string& kind) {
    static const std::map<std::string, const char*> codes = {
            {"record", "31"},  {"killed", "31"}, {"verdict", "31"}, {"request", "33"},
            {"history", "33"}, {"signal", "33"}, {"upload", "32"},  {"captured", "36"},
            {"journal", "36"}, {"kel", "36"},    {"act", "33"},     {"prepare", "36"},
    };
    const auto found = codes.find(kind);
    return found != codes.end() ? found->second : isWorld(kind) ? "2" : nullptr;
}

std::string personLine(double seconds, const std::string& kind, const std::string& text,
                       bool colour) {
    const std::string line = format("%-9s ", kind.c_str()) + text::printable(text);
    const char* code = colour ? colourOf(kind) : nullptr;
    return format("%9.3f  ", seconds) +
           (code != nullptr ? format("\033[%sm", code) + line + "\033[0m" : line);
}

std::string describeWorld(const Record& record) {
    const std::string kind = record["kind"];
    const std::string name = field(record, kind == "set" || kind == "event" ? "name" : "path");
    return text::printable(kind == "set" ? name + " = " + field(record, "value") : name);
}

// Sizes of a captured log and how well it compresses.
std::string describeArchive(const Record& record) {
    const auto bytes = record["bytes"].get<double>();
    const auto compressed = record["compressed"].get<double>();
    std::string line =
            format("%-18s %8.0f bytes -> %7.0f", field(record, "name").c_str(), bytes, compressed);
    if (bytes > 0 && compressed > 0) line += format(" (%.1fx)", bytes / compressed);
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

std::string describeForPerson(const Record& record) {
    const std::string kind = record["kind"];
    if (isWorld(kind)) return describeWorld(record);
    if (kind == "captured" && record.contains("bytes")) return describeArchive(record);
    const std::string text = details(record);
    const std::string code = field(record, kind == "exit" ? "status" : "text");
    const std::string meaning = record.contains("removed") ? "" : meaningOf(kind, code);
    return meaning.empty() ? text : text + " (" + meaning + ")";
}

}  // namespace

std::optional<std::string> effectLine(const Record& record) {
    const std::string kind = record["kind"];
    if (kind == "log" || isWorld(kind)) return std::nullopt;
    std::string line = formatSeconds(record["t"]) + " " + kind;
    const std::string more = details(record);
    return text::printable(more.empty() ? line : line + " " + more);
}

std::vector<std::string> describeBoot(const std::vector<Record>& records, int boot, bool colour) {
    std::vector<std::pair<double, std::string>> lines;  // by time
    std::string title;
    for (const Record& record : recordsOfBoot(records, boot)) {
        const std::string kind = record["kind"];
        if (kind == "log") continue;
        const double seconds = record["t"];
        const auto add = [&](const std::string& what, const std::string& text) {
            lines.emplace_back(seconds, personLine(seconds, what, text, colour));
        };
        if (kind == "boot") {
            const std::string about = text::printable(field(record, "about"));
            title = "boot " + std::to_string(boot) + (about.empty() ? "" : ": " + about) +
                    " (sys.boot.reason " + field(record, "reason") + ")";
            continue;
        }
        if (kind == "record") {
            const std::string verdict = describeRecord(field(record, "text"));
            if (!verdict.empty()) add("verdict", text::printable(verdict));
        }
        if (kind == "event" && milestoneIndex(field(record, "name")) < 0) continue;
        add(kind, describeForPerson(record));
    }
    // The profile's events are in the records when the daemon could first see them.
    std::stable_sort(lines.begin(), lines.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> texts = {title};
    for (auto& [seconds, line] : lines) texts.push_back(std::move(line));
    return texts;
}

}  // namespace lab
