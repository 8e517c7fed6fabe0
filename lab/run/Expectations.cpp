// SPDX-License-Identifier: Apache-2.0
// Compares a run with what its scenario expects.

#include "lab/run/Expectations.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "lab/base/Files.h"
#include "lab/base/Text.h"
#include "lab/run/Timeline.h"

namespace lab {

namespace {

using Lines = std::vector<std::string>;

// Both sides from the line on where they part.
Lines compareTimeline(const Lines& expected, const Lines& actual) {
    if (expected == actual) return {};
    const auto [e, a] =
            std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    Lines differences = {"timeline differs from line " + std::to_string(e - expected.begin() + 1) +
                         " on:"};
    for (auto line = e; line != expected.end(); ++line) differences.push_back("  - " + *line);
    for (auto line = a; line != actual.end(); ++line) differences.push_back("  + " + *line);
    return differences;
}

Lines compareLog(const Boot& boot, const Lines& log) {
    Lines differences;
    size_t next = 0;
    for (const std::string& line : log) {
        if (next < boot.log.size() && line == boot.log[next]) ++next;
        for (const std::string& part : boot.notLogged) {
            if (contains(line, part)) differences.push_back("must not be logged: " + line);
        }
    }
    if (next < boot.log.size()) {
        differences.push_back("not logged, or not in this order: " + boot.log[next]);
    }
    return differences;
}

std::string compareText(const std::string& expected, const std::string& actual) {
    return ": expected \"" + text::printable(expected) + "\", got \"" + text::printable(actual) +
           "\"";
}

Lines compareBoot(const Boot& boot, const std::vector<Record>& records, int number) {
    Lines effects;
    Lines log;
    for (const Record& record : recordsOfBoot(records, number)) {
        if (const auto line = effectLine(record)) effects.push_back(*line);
        if (record["kind"] != "log") continue;
        std::string text = record["text"];
        text.erase(text.find_last_not_of('\n') + 1);
        log.push_back(formatSeconds(record["t"]) + " " + record["priority"].get<std::string>() +
                      " " + text);
    }
    Lines differences = boot.timeline ? compareTimeline(*boot.timeline, effects) : Lines();
    const Lines more = compareLog(boot, log);
    differences.insert(differences.end(), more.begin(), more.end());
    return differences;
}

}  // namespace

Lines compareWithScenario(const Scenario& scenario, const std::vector<Record>& records,
                          const Lines& errors, const std::string& rootPath) {
    Lines differences;
    for (size_t i = 0; i < scenario.boots.size(); ++i) {
        const Boot& boot = scenario.boots[i];
        const std::string where = "boot " + std::to_string(i + 1) + ": ";
        for (const std::string& line : compareBoot(boot, records, static_cast<int>(i) + 1)) {
            differences.push_back(startsWith(line, "  ") ? line : where + line);
        }
        if (boot.errors && *boot.errors != errors[i]) {
            differences.push_back(where + "standard error" + compareText(*boot.errors, errors[i]));
        }
    }
    for (const auto& [path, expected] : scenario.expectedFiles) {
        const bool there = fileExists(rootPath + path);
        const std::string actual = there && expected ? readFileOr(rootPath + path, "") : "";
        if (there && !expected) differences.push_back("file " + path + ": must not be there");
        if (!there && expected) differences.push_back("file " + path + ": missing");
        if (there && expected && actual != *expected) {
            differences.push_back("file " + path + compareText(*expected, actual));
        }
    }
    return differences;
}

}  // namespace lab
