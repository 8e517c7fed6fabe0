// SPDX-License-Identifier: Apache-2.0
// The device as the rules know it.

#include "lab/rules/DeviceModel.h"

#include <stdlib.h>
#include <time.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

constexpr size_t kLongestProperty = 91;

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool isBelow(const std::string& path, const std::string& top) {
    return path == top || startsWith(path, top + "/");
}

// Of a sorted container.
template <typename Paths>
void eraseBelow(Paths& paths, const std::string& top) {
    paths.erase(top);
    paths.erase(paths.lower_bound(top + "/"), paths.lower_bound(top + char('/' + 1)));
}

}  // namespace

DeviceModel::DeviceModel(const BootObservation& boot)
    : Evidence(boot),
      mProperties(boot.properties),
      mFiles(boot.filesBefore),
      mWorldFiles(boot.boot.files) {
    mWorldFiles.insert({kCommandLine, boot.device.commandLine});
}

// ---- What the world does

void DeviceModel::applyChanges(int64_t until) {
    for (size_t i = mFrom; i < mTo; ++i) {
        const TraceEvent& event = mSeen.events[i];
        if (event.kind == TraceEvent::CHANGE && event.ms <= until && mApplied.insert(i).second) {
            applyChange(event);
        }
    }
}

void DeviceModel::applyChange(const TraceEvent& event) {
    const size_t blank = event.text.find(' ');
    const std::string verb = event.text.substr(0, blank);
    const std::string rest = event.text.substr(blank + 1);
    if (verb == "set") {
        const std::string name = rest.substr(0, rest.find(' '));
        mProperties[name] = rest.substr(std::min(name.size() + 1, rest.size()));
    } else if (verb == "clock") {
        mJump += atoll(rest.c_str());
    } else if (verb == "signal") {
        mKilledBy = atoi(rest.c_str());
    } else if (verb == "fill" || verb == "read-only") {
        mNoSpace = true;
        mIgnored.insert(rest);
    } else if (verb == "remove") {
        eraseBelow(mFiles, rest);
        eraseBelow(mWorldFiles, rest);
    } else if (verb == "write") {
        changeFile(rest, event.ms);
    }
}

void DeviceModel::changeFile(const std::string& path, int64_t when) {
    const auto& changes = mSeen.boot.changes;
    const auto change = std::find_if(changes.begin(), changes.end(), [&](const Change& one) {
        return one.kind == Change::Kind::WRITE && one.name == path && one.at <= when &&
               one.at + 2000 >= when;  // the daemon may have slept meanwhile
    });
    if (change == changes.end()) mIgnored.insert(path);  // the log-capture service's
    const bool kept = isBelow(path, kPartition) || isBelow(path, kData);
    (kept ? mFiles : mWorldFiles)[path] = change == changes.end() ? "" : change->value;
    if (kept) addFolder(folderOf(path));
}

// ---- What the daemon finds

std::string DeviceModel::property(const std::string& name, const std::string& missing) const {
    const std::string value = lookUp(mProperties, name).value_or("");
    return value.empty() ? missing : value.substr(0, kLongestProperty);
}

int DeviceModel::number(const std::string& name, const char* missing) const {
    return atoi(property(name, missing).c_str());
}

std::string DeviceModel::localTime() const {
    const time_t time = mSeen.clock + mJump + mNow / 1000;
    tm date = {};
    gmtime_r(&time, &date);
    char text[32];
    strftime(text, sizeof(text), "%a %b %e %H:%M:%S %Y", &date);
    return text;
}

bool DeviceModel::isFolder(const std::string& path) const {
    return mFiles.count(path + "/") > 0;
}

bool DeviceModel::exists(const std::string& path) const {
    return mFiles.count(path) > 0 || isFolder(path);
}

bool DeviceModel::hasEntry(const std::string& folder, const std::string& part) const {
    const size_t from = folder.size() + 1;
    return std::any_of(mFiles.begin(), mFiles.end(), [&](const auto& file) {
        const std::string& path = file.first;
        return startsWith(path, folder + "/") &&
               contains(path.substr(from, path.find('/', from) - from), part);
    });
}

std::string DeviceModel::content(const std::string& path, const std::string& missing) const {
    return lookUp(mFiles, path).value_or(missing);
}

std::optional<std::string> DeviceModel::worldFile(const std::string& path) const {
    if (auto text = lookUp(mWorldFiles, path)) return text;
    if (path != mSeen.boot.profilePath) return std::nullopt;
    return mSeen.boot.profileText ? *mSeen.boot.profileText : mSeen.boot.profile.at(mNow);
}

// ---- What the daemon writes

bool DeviceModel::excused(const std::string& path) const {
    return mUnsure.count(path) > 0 || mNoMemory || (mNoSpace && isBelow(path, kPartition));
}

bool DeviceModel::isPossible(const std::string& path) const {
    return !isFolder(path) && isFolder(folderOf(path));
}

bool DeviceModel::write(const std::string& path, const std::string& text, bool append) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (!isPossible(path)) return false;
    mWritten[path] = mNow;
    mFiles[path] = append ? mFiles[path] + text : text;
    return true;
}

bool DeviceModel::writeOrLog(const std::string& path, const std::string& text, bool append) {
    const bool failed =
            take("Save file path " + path + " fail") || take("Open file path " + path + " fail");
    if (decide(!isPossible(path), failed, excused(path), "the failure to open " + path)) {
        return false;
    }
    write(path, text, append);
    return true;
}

void DeviceModel::remove(const std::string& path) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (take("file " + path + " remove failed")) return;
    mFiles.erase(path);
    mWritten[path] = mNow;
}

bool DeviceModel::makeFolder(const std::string& path) {
    if (exists(path)) return true;
    if (says("BOOTVIGIL create " + path + " failed", !isFolder(folderOf(path)), excused(path))) {
        return false;
    }
    addFolder(path);
    if (mActs[TraceEvent::OPERATION].count("mkdir " + path) > 0) {
        expectAct(TraceEvent::OPERATION, "chmod 0777 " + path);
    } else if (mCutShort || mNoMemory) {
        mUnsure.insert(path + "/");  // the process may have ended before
    } else {
        broken("does not make " + path);
    }
    return true;
}

void DeviceModel::addFolder(const std::string& path) {
    for (std::string folder = path; !folder.empty(); folder = folderOf(folder)) {
        mFiles[folder + "/"];
    }
}

}  // namespace lab
