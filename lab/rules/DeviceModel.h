// SPDX-License-Identifier: Apache-2.0
// The device as the rules know it: properties, files, folders and the time of day, changed by the
// world as the trace says and by the daemon as the rules say.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "lab/rules/Evidence.h"

namespace lab {

class DeviceModel : protected Evidence {
protected:
    explicit DeviceModel(const BootObservation& boot);

    // What the world did during the message, up to that time.
    void applyChanges(int64_t until);
    void applyChange(const TraceEvent& event);

    std::string property(const std::string& name, const std::string& missing = "0") const;
    int number(const std::string& name, const char* missing = "0") const;
    std::string localTime() const;

    // Files and folders below /velafs and /data.
    bool isFolder(const std::string& path) const;
    bool exists(const std::string& path) const;
    bool hasEntry(const std::string& folder, const std::string& part) const;
    std::string content(const std::string& path, const std::string& missing = "") const;
    // Any other file.
    std::optional<std::string> worldFile(const std::string& path) const;

    // Whether something that failed excuses what the file holds.
    bool excused(const std::string& path) const;
    // Writes for the daemon; whether the file could be opened.
    bool write(const std::string& path, const std::string& text, bool append = false);
    // The same where a failure is logged: what was logged counts.
    bool writeOrLog(const std::string& path, const std::string& text, bool append);
    void remove(const std::string& path);
    // Whether the folder is there, or could be made.
    bool makeFolder(const std::string& path);
    // With those above it.
    void addFolder(const std::string& path);

    TextMap mProperties, mFiles, mWorldFiles;
    std::set<std::string> mIgnored;           // files that are the world's
    std::map<std::string, int64_t> mWritten;  // when, by the daemon
    int mKilledBy = 0;                        // signal of the world's

private:
    void changeFile(const std::string& path, int64_t when);
    bool isPossible(const std::string& path) const;

    std::set<size_t> mApplied;  // changes, by event
    int64_t mJump = 0;          // of the time of day, seconds
};

}  // namespace lab
