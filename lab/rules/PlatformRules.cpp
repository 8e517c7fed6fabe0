// SPDX-License-Identifier: Apache-2.0
// What must hold of the reference platform.

#include "lab/rules/PlatformRules.h"

#include <stdlib.h>

#include <algorithm>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

constexpr int64_t kDay = int64_t{24} * 60 * 60 * 1000;
constexpr int64_t kBetweenBoots = 60000;
constexpr size_t kKeptLines = 200;
constexpr size_t kKeptCaptures = 3;
constexpr size_t kMostRefusals = 20;

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

bool isDigit(const std::string& text, size_t at, char least, char most) {
    return at < text.size() && text[at] >= least && text[at] <= most;
}

// One that the daemon can go on from: an index, a mode, a reason's byte.
bool isPossibleHistory(const std::string& text) {
    const std::string line = firstLine(text);
    return line.size() == 3 && isDigit(line, 0, '1', '5') && isDigit(line, 1, '1', '9');
}

bool isCaptureAtTop(const std::string& path) {
    const std::string folder = kOwnFolder + "/";
    if (!startsWith(path, folder)) return false;
    const std::string below = path.substr(folder.size());
    return contains(firstLine(below.substr(0, below.find('/'))), kLogServiceId);
}

bool isKeptCapture(const std::string& path) {
    return startsWith(path, kOldCaptures + "/");
}

// The last lines of what grows.
bool isCut(const std::string& before, const std::string& after) {
    const size_t lines = linesOf(before).size();
    return lines > kKeptLines && linesOf(after).size() == kKeptLines && endsWith(before, after);
}

// Whether what was there may be gone or changed.
bool mayChange(const std::string& path, const std::string& before,
               const std::optional<std::string>& after) {
    if (path == kHistory) return !after && !isPossibleHistory(before);
    if (path == kFlag) return !after && !isDigit(before, 0, '0', '9');
    if (path == kJournal || path == kPmic) return after && isCut(before, *after);
    return isCaptureAtTop(path) || isKeptCapture(path);
}

bool spoilsPartition(const Change& change) {
    return change.kind == Change::Kind::READ_ONLY || change.kind == Change::Kind::FILL;
}

Violation broken(int64_t ms, const std::string& what) {
    return {Violation::Kind::RULE,
            formatSeconds(static_cast<double>(ms) / 1000) + " s: the platform " + what};
}

}  // namespace

PlatformRules::PlatformRules(const Scenario& device)
    : mDevice(device), mRefusals(linesOf(lookUp(device.files, kRefusals).value_or("")).size()) {}

std::vector<Violation> PlatformRules::checkPrepared(const TextMap& before,
                                                    const TextMap& after) const {
    std::vector<Violation> violations;
    const auto object = [&](const std::string& what) { violations.push_back(broken(0, what)); };
    for (const auto& [path, content] : before) {
        const auto left = lookUp(after, path);
        if (left != content && !mayChange(path, content, left)) object("changes " + path);
    }
    size_t captures = 0;
    size_t moved = 0;
    for (const auto& [path, content] : after) {
        if (path == kHistory && !isPossibleHistory(content)) object("leaves a history that blocks");
        if (path == kFlag && !isDigit(content, 0, '0', '9')) object("leaves a flag of no phase");
        if (isCaptureAtTop(path)) object("leaves " + path + " to be taken for a new one");
        captures += isKeptCapture(path) && path.back() != '/' ? 1 : 0;
    }
    for (const auto& [path, content] : before) {
        if (path.back() == '/') continue;
        moved += isCaptureAtTop(path) || isKeptCapture(path) ? 1 : 0;
    }
    if (captures != std::min(moved, kKeptCaptures)) {
        object(format("keeps %zu captures of %zu", captures, moved));
    }
    return violations;
}

int64_t PlatformRules::limit(bool reset) const {
    const std::string name = reset ? "ro.bootvigil.resets" : "ro.bootvigil.reboots";
    const auto own = lookUp(mDevice.properties, name);
    const int64_t usual = reset ? 1 : 3;
    const bool number = own && own->find_first_not_of("0123456789") == std::string::npos;
    return number ? atoll(own->c_str()) : usual;
}

// Boots that came up, after which an action counts no more.
int64_t PlatformRules::upsForNew() const {
    const auto own = lookUp(mDevice.properties, std::string("ro.bootvigil.budget_boots"));
    return own ? atoll(own->c_str()) : 10;
}

std::vector<Violation> PlatformRules::checkActs(const Boot& boot, const PlatformActs& acts,
                                                const TextMap& files) {
    std::vector<Violation> violations;
    const auto object = [&](const std::string& what) {
        violations.push_back(broken(acts.actedAt.value_or(acts.endedAt), what));
    };
    const std::string name = acts.reset ? "reset" : "reboot";
    if (acts.actedAt) {
        const int64_t at = mBoots + *acts.actedAt;
        const bool reset = acts.reset;
        const auto counts = std::count_if(mDone.begin(), mDone.end(), [&](const Done& done) {
            return done.reset == reset && at - done.at < kDay && mUps - done.ups < upsForNew();
        });
        if (counts >= limit(reset)) object("does a " + name + " beyond its budget");
        if (!acts.askedAt) object("does a " + name + " that nobody asked for");
        const bool up = acts.upAt && *acts.upAt <= *acts.actedAt;
        if (up && reset) object("wipes a device that is up");
        if (up && !(acts.declared && *acts.upAt <= *acts.askedAt)) {
            object("reboots a device that came up");
        }
        mDone.push_back({reset, at, mUps});
    }
    const std::string text = lookUp(files, kRefusals).value_or("");
    const std::vector<std::string> lines = linesOf(text);
    const bool can = files.count(kOwnFolder + "/") > 0 && !boot.partitionAbsent &&
                     std::none_of(boot.changes.begin(), boot.changes.end(), spoilsPartition);
    if (acts.refused && can && lines.size() != std::min(mRefusals + 1, kMostRefusals)) {
        object("does not note that it refused a " + name);
    }
    if (files.count(kOwnFolder + "/") > 0 && !boot.partitionAbsent) mRefusals = lines.size();
    mBoots += acts.endedAt + kBetweenBoots;
    mUps += acts.upAt && !(acts.actedAt && *acts.actedAt < *acts.upAt) ? 1 : 0;
    return violations;
}

}  // namespace lab
