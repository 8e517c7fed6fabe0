// SPDX-License-Identifier: Apache-2.0
// The device as the rules know it.

#include "lab/rules/DeviceModel.h"

#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <iterator>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool isBelow(const std::string& path, const std::string& top) {
    return path == top || startsWith(path, top + "/");
}

}  // namespace

DeviceModel::DeviceModel(const BootObservation& boot, Books& books)
    : Evidence(boot),
      mBooks(books),
      mProperties(boot.properties),
      mFiles(boot.filesBefore),
      mWorldFiles(boot.boot.files) {
    mWorldFiles.insert({"/proc/cmdline", boot.device.commandLine});
    if (mBooks.firstBoot) {
        if (!boot.device.logFolder) mBooks.folders.erase(kLogs);
        if (boot.device.partitionAbsent) forgetFolders(kPartition);
        for (const auto& file : boot.device.files) addFoldersOf(file.first);
    }
    if (boot.boot.partitionAbsent) {
        std::copy_if(mBooks.folders.begin(), mBooks.folders.end(),
                     std::inserter(mAway, mAway.end()),
                     [](const std::string& folder) { return isBelow(folder, kPartition); });
        forgetFolders(kPartition);
    }
    for (const auto& file : mFiles) addFoldersOf(file.first);
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
    const std::string verb = event.text.substr(0, event.text.find(' '));
    const std::string rest = event.text.substr(std::min(verb.size() + 1, event.text.size()));
    if (verb == "set") {
        const size_t blank = std::min(rest.find(' '), rest.size());
        mProperties[rest.substr(0, blank)] = rest.substr(std::min(blank + 1, rest.size()));
    } else if (verb == "clock") {
        mJump += atoll(rest.c_str());
    } else if (verb == "signal") {
        mKilledBy = atoi(rest.c_str());
    } else if (verb == "fill" || verb == "read-only") {
        mNoSpace = true;
        mIgnored.insert(rest);
    } else if (verb == "remove") {
        for (TextMap* files : {&mFiles, &mWorldFiles}) {
            for (auto file = files->begin(); file != files->end();) {
                file = isBelow(file->first, rest) ? files->erase(file) : std::next(file);
            }
        }
        forgetFolders(rest);
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
    const bool kept = isBelow(path, kPartition) || isBelow(path, "/data");
    (kept ? mFiles : mWorldFiles)[path] = change == changes.end() ? "" : change->value;
    if (kept) addFoldersOf(path);
}

void DeviceModel::addFoldersOf(const std::string& path) {
    for (std::string folder = folderOf(path); !folder.empty(); folder = folderOf(folder)) {
        mBooks.folders.insert(folder);
    }
}

void DeviceModel::forgetFolders(const std::string& top) {
    for (auto folder = mBooks.folders.begin(); folder != mBooks.folders.end();) {
        folder = isBelow(*folder, top) ? mBooks.folders.erase(folder) : std::next(folder);
    }
}

// ---- What the daemon finds

std::string DeviceModel::property(const std::string& name, const std::string& missing) const {
    const auto found = mProperties.find(name);
    if (found == mProperties.end() || found->second.empty()) return missing;
    return found->second.substr(0, 91);
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
    return mBooks.folders.count(path) > 0 && mFiles.count(path) == 0;
}

bool DeviceModel::exists(const std::string& path) const {
    return mFiles.count(path) > 0 || isFolder(path);
}

bool DeviceModel::hasEntry(const std::string& folder, const std::string& part) const {
    const auto matches = [&](const std::string& path) {
        if (!startsWith(path, folder + "/")) return false;
        const size_t from = folder.size() + 1;
        return contains(path.substr(from, path.find('/', from) - from), part);
    };
    return std::any_of(mFiles.begin(), mFiles.end(),
                       [&](const auto& file) { return matches(file.first); }) ||
           std::any_of(mBooks.folders.begin(), mBooks.folders.end(), matches);
}

std::string DeviceModel::content(const std::string& path, const std::string& missing) const {
    const auto found = mFiles.find(path);
    return found == mFiles.end() ? missing : found->second;
}

std::optional<std::string> DeviceModel::worldFile(const std::string& path) const {
    const auto found = mWorldFiles.find(path);
    if (found != mWorldFiles.end()) return found->second;
    if (path != mSeen.boot.profilePath) return std::nullopt;
    return mSeen.boot.profileText ? *mSeen.boot.profileText : mSeen.boot.profile.at(mNow);
}

// ---- What the daemon writes

bool DeviceModel::excused(const std::string& path) const {
    return mUnsure.count(path) > 0 || mNoMemory || (mNoSpace && isBelow(path, kPartition));
}

bool DeviceModel::write(const std::string& path, const std::string& text, bool append) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (isFolder(path) || !isFolder(folderOf(path))) return false;
    mWritten[path] = mNow;
    std::string& file = mFiles[path];
    file = append ? file + text : text;
    return true;
}

bool DeviceModel::writeOrLog(const std::string& path, const std::string& text, bool append) {
    const bool possible = !isFolder(path) && isFolder(folderOf(path));
    const bool failed =
            take("Save file path " + path + " fail") || take("Open file path " + path + " fail");
    if (decide(!possible, failed, excused(path), "the failure to open " + path)) return false;
    write(path, text, append);
    return true;
}

void DeviceModel::remove(const std::string& path) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (take("file " + path + " remove failed")) {
        if (path == kFlag) mBooks.submitted.clear();  // it is flagged still
        return;
    }
    mFiles.erase(path);
    mWritten[path] = mNow;
}

bool DeviceModel::makeFolder(const std::string& path) {
    if (exists(path) && mBooks.unsureFolders.count(path) == 0) return true;
    const bool failed = take("BOOTVIGIL create " + path + " failed").has_value();
    const bool possible = isFolder(folderOf(path));
    if (decide(!possible, failed, excused(path), "the failure to create " + path)) return false;
    mBooks.folders.insert(path);
    if (mOperations.count("mkdir " + path) > 0) {
        mBooks.unsureFolders.erase(path);
        expectCall(mOperations, "chmod 0777 " + path);
    } else if (mCutShort || mNoMemory) {
        mBooks.unsureFolders.insert(path);  // the process may have ended before
    } else if (mBooks.unsureFolders.erase(path) == 0) {
        broken("does not make " + path);
    }
    return true;
}

}  // namespace lab
