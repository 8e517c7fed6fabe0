// SPDX-License-Identifier: Apache-2.0
// How the daemon must read what it is given: lists that were pushed to the device, record lines and
// boot profiles. Whatever reads a text throws MustEnd where that ends the process.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// The process must end: by a signal, or else with an exit status.
struct MustEnd {
    int signal = 0;
    int status = 0;
};

// Fields without the blanks around them, but for as many at the end as there were in front. A field
// of blanks ends the process.
std::vector<std::string> split(const std::string& text, const std::string& by);

// The actions that the override list has for the reason, a character for each: those of its last
// line for it, if that has enough.
std::optional<std::string> readOverride(const std::vector<std::string>& lines, int reason);
// Those that a reason has where no list was pushed to the device.
std::optional<std::string> defaultActions(int reason);
int digitAt(const std::string& text, size_t index);

// What goes to the uploader of a record line, a damaged one too; nothing of one of the wizard's.
// Adds what is noted of it.
std::optional<std::string> failureUpload(const std::string& line, std::vector<std::string>& notes);

// The event of a line of the boot profile, "" for none.
std::string eventOf(const std::string& line);

// What the boot profile has told so far.
struct ProfileModel {
    std::string key;                    // process and event that came last
    int same = 0;                       // polls in a row that found it there again
    int loop = -1;                      // milestone that a restart loop repeats
    std::map<std::string, int> counts;  // of milestones

    // From the last line to the first: looks for a restart loop, or else for how long the last
    // event has stayed; false where nothing is to be learnt.
    bool read(const std::vector<std::string>& lines);

    // The last event is of package optimisation, which may take long.
    bool optimises() const;
    // The process that has stayed at one event, where it is named by its number.
    std::optional<int> stuckPid() const;
    // The detail number, 0 for none; `pid` is -1 where nothing is stuck.
    int stuckDetail(int pid, bool animationStays) const;
};

// What is to be captured of a boot that is stuck there.
int64_t captureType(int detail);
std::string capturedFiles(int detail);

}  // namespace lab
