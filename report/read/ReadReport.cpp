// SPDX-License-Identifier: Apache-2.0
// Finds the partition in a folder, and names its device.

#include "report/read/ReadReport.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "report/read/Partition.h"

namespace report {

namespace {

namespace fs = std::filesystem;

bool isPartition(const fs::path& folder) {
    std::error_code error;
    return fs::exists(folder / "SDD", error) || fs::exists(folder / "boot_vigil", error);
}

// The last part of a path that tells devices apart.
std::string nameOfOne(std::vector<std::string> path) {
    while (path.size() > 1 && (path.back() == "velafs" || path.back() == "root")) path.pop_back();
    return path.back();
}

// When something was last recorded or captured; empty if that isn't known.
std::string lastTime(const Report& report) {
    std::string last;
    for (const Failure& failure : report.failures) last = std::max(last, failure.iso);
    for (const JournalLine& line : report.journal) last = std::max(last, line.iso);
    return last;
}

}  // namespace

Report readReport(const std::string& folder) {
    Report report;
    report.path = folder;
    report.device = deviceNames({folder}).front();
    const fs::path path = fs::path(folder).lexically_normal();
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        report.problems.push_back({folder, error ? error.message() : "is not a folder"});
        return report;
    }
    // A lab's run keeps its log beside the device root, and may have no partition at all.
    const bool isRun = fs::exists(path / "run.jsonl", error);
    fs::path partition = isRun ? path / "root/velafs" : path;
    if (!isPartition(partition) && isPartition(path / "velafs")) partition = path / "velafs";
    report.isPartition = isRun || isPartition(partition);
    report.partitionPath = partition;
    readPartition(partition, report);
    if (isRun) readRunLog(path / "run.jsonl", report);
    const std::string last = lastTime(report);
    giveYears(report.boots, last);
    giveYears(report.captured, last);
    if (!report.isPartition) {
        report.problems.push_back({folder, "holds no partition (SDD, boot_vigil or velafs)"});
    }
    return report;
}

std::vector<std::string> deviceNames(const std::vector<std::string>& folders) {
    std::vector<std::vector<std::string>> paths;
    for (const std::string& folder : folders) {
        std::vector<std::string> parts;
        for (const fs::path& part : fs::path(folder).lexically_normal()) {
            if (!part.empty()) parts.push_back(part);
        }
        paths.push_back(std::move(parts));
    }
    const auto allHave = [&](size_t at, bool fromEnd) {
        const auto part = [&](const std::vector<std::string>& path) {
            if (at >= path.size()) return std::string();
            return path[fromEnd ? path.size() - 1 - at : at];
        };
        const std::string first = part(paths.front());
        return !first.empty() && std::all_of(paths.begin(), paths.end(),
                                             [&](const auto& path) { return part(path) == first; });
    };
    size_t head = 0;
    size_t tail = 0;
    while (folders.size() > 1 && allHave(head, false)) ++head;
    while (folders.size() > 1 && allHave(tail, true)) ++tail;
    std::vector<std::string> names;
    for (size_t i = 0; i < folders.size(); ++i) {
        const std::vector<std::string>& path = paths[i];
        fs::path name;
        for (size_t at = head; at + tail < path.size(); ++at) name /= path[at];
        if (folders.size() == 1 && !path.empty()) name = nameOfOne(path);
        names.push_back(name.empty() ? folders[i] : name.string());
    }
    return names;
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
