// SPDX-License-Identifier: Apache-2.0
// Finds the partition in a folder, and says in one line what it tells.

#include "report/read/ReadReport.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <filesystem>
#include <stdexcept>

#include "report/read/Bounds.h"
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

bool isPartition(const Folder& folder) {
    return folder.has("SDD") || folder.has("boot_vigil");
}

// The partition in a folder, which may be the partition itself.
Folder findPartition(const Folder& folder, Report& report) {
    if (isPartition(folder)) return folder;
    for (const char* name : {"root/velafs", "velafs"}) {
        std::string error;
        Folder below = folder.open(name, error);
        if (!error.empty()) report.problems.push_back({name, error});
        if (isPartition(below)) return below;
    }
    return {};
}

}  // namespace

Report readReport(const std::string& folder) {
    Report report;
    const fs::path path = fs::path(folder).lexically_normal();
    report.device = path.has_filename() ? path.filename() : path.parent_path().filename();
    std::string error;
    const Folder root(folder, error);
    if (!error.empty()) {
        report.problems.push_back({folder, error});
        return report;
    }
    report.partition = findPartition(root, report);
    readPartition(report);
    // A lab's run keeps its log beside the device root, and may have no partition at all.
    readRunLog(root, report);
    report.verdict = verdictOf(report);
    if (!report.readable && report.problems.empty()) {
        report.problems.push_back({folder, "holds nothing that the daemon writes"});
    }
    return report;
}

Comparison readComparison(const std::string& profile) {
    const File file(fopen(profile.c_str(), "re"));
    std::string content(kMostState + 1, '\0');
    if (file) content.resize(fread(content.data(), 1, content.size(), file.get()));
    if (!file || ferror(file.get()) != 0) {
        throw std::runtime_error(profile + ": " + strerror(errno));
    }
    if (content.size() > kMostState) throw std::runtime_error(profile + ": too large a profile");
    Comparison comparison = {fs::path(profile).filename(), milestonesOf(content)};
    if (comparison.milestones.empty()) throw std::runtime_error(profile + ": holds no milestone");
    return comparison;
}

}  // namespace report
