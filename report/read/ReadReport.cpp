// SPDX-License-Identifier: Apache-2.0
// Finds the partition in a folder, and says in one line what it tells.

#include "report/read/ReadReport.h"

#include <errno.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "report/read/Partition.h"

namespace report {

namespace {

namespace fs = std::filesystem;

// The last failure, and whether a boot has completed since.
std::string verdictOf(const Report& report) {
    std::string verdict = "no failure is recorded";
    for (const Failure& failure : report.failures) {
        const std::string situation = describeSituation(failure.number);
        if (failure.number.stamp) {
            verdict += "; " + situation;
        } else {
            verdict = situation + " (" + formatErrorNumber(failure.number) + ") on " + failure.time;
        }
    }
    const Recovery& recovery = report.recovery;
    if (recovery.lastMode == 0) return verdict;
    return verdict + "; last action: " + modeName(recovery.lastMode) + ", next: " + recovery.next;
}

bool isPartition(const fs::path& folder) {
    std::error_code error;
    return fs::exists(folder / "SDD", error) || fs::exists(folder / "boot_vigil", error);
}

}  // namespace

Report readReport(const std::string& folder) {
    Report report;
    const fs::path path = fs::path(folder).lexically_normal();
    report.device = path.has_filename() ? path.filename() : path.parent_path().filename();
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        report.problems.push_back({folder, error ? error.message() : "is not a folder"});
        return report;
    }
    // A lab's run keeps its log beside the device root, and may have no partition at all.
    const bool isRun = fs::exists(path / "run.jsonl", error);
    fs::path partition = isRun ? path / "root/velafs" : path;
    if (!isPartition(partition) && isPartition(path / "velafs")) partition = path / "velafs";
    readPartition(partition, report);
    if (isRun) readRunLog(path / "run.jsonl", report);
    report.verdict = verdictOf(report);
    if (!report.readable) {
        report.problems.push_back({folder, "holds nothing that the daemon writes"});
    }
    return report;
}

Comparison readComparison(const std::string& profile) {
    std::ifstream file(profile);
    if (!file) throw std::runtime_error(profile + ": " + strerror(errno));
    std::ostringstream content;
    content << file.rdbuf();
    Comparison comparison = {fs::path(profile).filename(), milestonesOf(content.str())};
    if (comparison.milestones.empty()) throw std::runtime_error(profile + ": holds no milestone");
    return comparison;
}

}  // namespace report
