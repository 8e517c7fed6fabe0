// SPDX-License-Identifier: Apache-2.0
// A scenario: a device, the boots it goes through, and what must come out; read from YAML.
// docs/lab.md describes the file.

#pragma once

#include <stdint.h>
#include <time.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ProfileScript.h"
#include "VirtualTime.h"

namespace lab {

using TextMap = std::map<std::string, std::string>;

// Something that happens to the device at a time of its own.
struct Change {
    enum class Kind { SET, WRITE, REMOVE, FILL, READ_ONLY, POWER_CYCLE, PLATFORM_REBOOT, END };
    int64_t at = 0;  // device time, ms
    Kind kind = Kind::END;
    std::string name;   // property, or device path
    std::string value;  // of the property or the file
};

struct Boot {
    std::string about;
    TextMap properties;  // set when this boot starts, over the device's
    TextMap files;       // written before it starts, by device path
    ProfileScript profile;
    std::string profilePath = "/proc/bootprof";
    std::optional<std::string> profileText;  // shown all the time instead of `profile`
    std::vector<Change> changes;             // in order of time
    std::optional<int64_t> kelAnswersAfter;  // ms after a request; unset: never

    // What must come out, where the scenario says so.
    std::optional<std::vector<std::string>> timeline;  // the daemon's effects, whole
    std::vector<std::string> log;                      // "<seconds> <D|I|E> <text>", in this order
    std::vector<std::string> notLogged;                // parts that no log line may have
    std::optional<std::string> errors;                 // what the daemon wrote to standard error
};

struct Scenario {
    std::string path;
    std::string about;

    time_t clock = 0;  // time of day at the start of the first boot, UTC
    std::string commandLine;
    TextMap properties;                       // set at the start of every boot
    TextMap files;                            // on the device before the first boot, by device path
    std::map<std::string, int64_t> logSizes;  // bytes in each log buffer
    std::optional<int64_t> partitionSize;     // bytes; unset: as large as the workstation's
    bool partitionAbsent = false;
    bool logFolder = true;        // /velafs/boot_vigil/log is there at the first boot
    int64_t rebootAfter = 15000;  // ms from a request property to the platform's reboot

    std::vector<Boot> boots;

    // After the last boot; a missing value means that the file must not be there.
    std::map<std::string, std::optional<std::string>> expectedFiles;
};

// Reads a scenario. Throws std::runtime_error("FILE:LINE:COLUMN: what was expected there").
Scenario readScenario(const std::string& path);

}  // namespace lab
