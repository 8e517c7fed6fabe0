// SPDX-License-Identifier: Apache-2.0
// How the daemon must read what it is given.

#include "lab/rules/Reading.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/Codes.h"
#include "lab/rules/Milestones.h"

namespace lab {

namespace {

// Of actions, a digit for each.
const std::map<int, std::string> kDefaultLists = {{kSystemError, "12500"},
                                                  {kLateSystemError, "12500"},
                                                  {kFoundByDaemon, "12500"},
                                                  {kKeyLockError, "15000"},
                                                  {21, "15000"},
                                                  {23, "15000"},
                                                  {99, "51000"}};

}  // namespace

std::vector<std::string> split(const std::string& text, const std::string& by) {
    const std::string whole = text + by;
    std::vector<std::string> fields;
    for (size_t from = 0, end = 0; (end = whole.find(by, from)) != std::string::npos;
         from = end + by.size()) {
        if (end == from) continue;
        const size_t first = whole.find_first_not_of(' ', from);
        if (first >= end) throw MustEnd{SIGABRT};
        const size_t size = whole.find_last_not_of(' ', end - 1) + 1 - from;
        fields.push_back(whole.substr(first, std::min(size, end - first)));
    }
    return fields;
}

std::optional<std::string> readOverride(const std::vector<std::string>& lines, int reason) {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, "|");
        if (fields.size() < 2 || atoi(fields[0].c_str()) != reason) continue;
        return fields[1].size() < 5 ? std::nullopt : std::optional(fields[1].substr(0, 5));
    }
    return std::nullopt;
}

std::optional<std::string> defaultActions(int reason) {
    return lookUp(kDefaultLists, reason);
}

int digitAt(const std::string& text, size_t index) {
    return static_cast<unsigned char>(text[index]) - '0';
}

std::optional<std::string> failureUpload(const std::string& line, std::vector<std::string>& notes) {
    static const char* const kMissing[] = {"not found TIME", "not found ERR_NUM",
                                           "not found ERR_INFO"};
    const std::string unknown = "BOOTVIGIL|Unknow|Unknow|Unknow";
    const std::vector<std::string> fields = split(line, ";    ");
    if (fields.size() < 3) {
        notes.emplace_back("not found enogh info");
        return unknown;
    }
    std::string values[3];  // time, code and what is said of it
    for (size_t i = 0; i < 3; ++i) {
        const std::vector<std::string> parts = split(fields[i], ":");
        if (parts.size() < 2) notes.emplace_back(kMissing[i]);
        if (parts.size() < 2 && i < 2) return unknown;  // the rest is not looked at
        values[i] = parts.size() < 2 ? "NA" : parts[1];
    }
    const auto& [time, code, info] = values;
    const char phase = code.size() < 3 ? '0' : code[2];
    if (phase == '6') notes.emplace_back("this is OOBE");
    if (phase == '7') notes.emplace_back("this is KEY lock");
    if (phase == '6' || phase == '7') return std::nullopt;
    return "BOOTVIGIL|" + code + "|" + time + "|" + info;
}

std::string eventOf(const std::string& line) {
    const std::vector<std::string> fields = split(line, " :");
    return fields.size() < 3 ? "" : fields[2];
}

bool ProfileModel::read(const std::vector<std::string>& lines) {
    if (lines.size() < 3) return false;
    counts.clear();
    for (const std::string& line : lines) {
        const std::string event = eventOf(line);
        const auto milestone = std::find(kMilestones.begin(), kMilestones.end(), event);
        if (milestone == kMilestones.end() || ++counts[event] < 5) continue;
        loop = static_cast<int>(milestone - kMilestones.begin());
        return true;
    }
    const std::vector<std::string> fields = split(lines[2], " :");
    if (fields.size() < 3) return false;
    const std::string now = fields[1] + " | " + fields[2];
    same = now == key ? same + 1 : 0;
    key = now;
    return true;
}

bool ProfileModel::optimises() const {
    return contains(key, "performDexOpt");
}

std::optional<int> ProfileModel::stuckPid() const {
    if (same < 3) return std::nullopt;
    const std::vector<std::string> fields = split(key, "-");
    const bool named =
            !fields.empty() && fields[0].find_first_not_of("0123456789") == std::string::npos;
    return named ? std::optional(atoi(fields[0].c_str())) : std::nullopt;
}

int ProfileModel::stuckDetail(int pid, bool animationStays) const {
    if (loop >= 0) {
        const auto missing =
                std::find_if(kMilestones.begin() + loop, kMilestones.end(),
                             [&](const auto& name) { return counts.count(name) == 0; });
        if (missing == kMilestones.end()) return kOtherDetail;
        return static_cast<int>(missing - kMilestones.begin()) + kFirstMilestoneDetail;
    }
    if (animationStays) return kAnimationDetail;
    if (pid == -1) return 0;
    const bool once = lookUp(counts, std::string("Android:SysServerInit_START")) == 1;
    return once ? kSystemServerDetail : kNativeDetail;
}

int64_t captureType(int detail) {
    static const std::map<int, int64_t> kMore = {{kNativeDetail, 0x400},
                                                 {kSystemServerDetail, 0x240},
                                                 {kAnimationDetail, 0x1000}};
    return kCaptureAll + lookUp(kMore, detail).value_or(0);
}

std::string capturedFiles(int detail) {
    return detail == kPackageScanDetail || detail == kPackagesReadyDetail ? kPackageFiles : "";
}

}  // namespace lab
