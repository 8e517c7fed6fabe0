// SPDX-License-Identifier: Apache-2.0
// A scenario: a device, the boots it goes through, and what must come out; read from YAML.
// docs/lab.md describes the file.

#pragma once

#include <stdint.h>
#include <time.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/base/DeviceTime.h"
#include "lab/scenario/ProfileScript.h"

namespace lab {

using TextMap = std::map<std::string, std::string>;

// Something that happens to the device at a time of its own.
struct Change {
    enum class Kind {
        SET,
        WRITE,
        REMOVE,
        FILL,
        READ_ONLY,
        CLOCK,
        SIGNAL,
        POWER_CYCLE,
        PLATFORM_REBOOT,
        END
    };
    int64_t at = 0;  // device time, ms
    Kind kind = Kind::END;
    std::string name;    // property, or device path
    std::string value;   // of the property or the file
    int64_t number = 0;  // seconds that the time of day is set forward; signal to the daemon
};

// A call of the daemon that fails: its `nth` in a boot (from 1) and those after it.
struct Fault {
    enum class Call { OPEN, WRITE, CLOSE, REMOVE, MKDIR, CHMOD, POPEN, MALLOC };
    Call call = Call::OPEN;
    int64_t nth = 1;
    int64_t times = 1;
};

// By Fault::Call.
constexpr const char* kCallNames[] = {"open",  "write", "close", "remove",
                                      "mkdir", "chmod", "popen", "malloc"};

// What a power cut leaves of a file that was written less than half a minute before.
enum class Unsynced { KEPT, LOST, EMPTIED, CUT, MIXED };

// By Unsynced.
constexpr const char* kUnsyncedNames[] = {"kept", "lost", "emptied", "cut", "mixed"};

// What runs around the daemon.
enum class PlatformKind {
    BARE,       // does what is asked at once, and nothing before the daemon
    REFERENCE,  // device/prepare and bootvigil-act
};

// By PlatformKind.
constexpr const char* kPlatformNames[] = {"bare", "reference"};

struct Boot {
    std::string about;
    std::optional<time_t> clock;  // time of day at its start, UTC; unset: it goes on
    TextMap properties;           // set when this boot starts, over the device's
    TextMap files;                // written before it starts, by device path
    ProfileScript profile = ProfileScript::healthy();
    std::string profilePath = "/proc/bootprof";  // empty: the kernel shows none
    std::optional<std::string> profileText;      // shown all the time instead of `profile`
    std::vector<Change> changes;                 // in order of time
    std::optional<int64_t> kelAnswersAfter;      // ms after a request; unset: never

    // What goes wrong below the daemon.
    std::vector<Fault> faults;
    std::optional<int64_t> space;     // bytes that may still be written to /velafs; unset: no limit
    std::optional<int64_t> cutAfter;  // the power goes after this file operation of the daemon
    Unsynced unsynced = Unsynced::KEPT;
    int64_t damageSeed = 0;        // decides what becomes of which file, and where a cut falls
    bool partitionAbsent = false;  // in this boot; what it holds is back in the next

    // What must come out, where the scenario says so.
    std::optional<std::vector<std::string>> timeline;  // the daemon's effects, whole
    std::vector<std::string> log;                      // "<seconds> <D|I|E> <text>", in this order
    std::vector<std::string> notLogged;                // parts that no log line may have
    std::optional<std::string> errors;                 // what the daemon wrote to standard error
};

struct Scenario {
    static constexpr time_t kDefaultClock = 1794740400;  // 2026-11-15 11:00:00 UTC

    std::string path;
    std::string about;
    std::vector<std::string> warnings;  // a line each: what is there and does nothing

    PlatformKind platform = PlatformKind::BARE;
    time_t clock = kDefaultClock;  // time of day at the start of the first boot, UTC
    std::string commandLine =
            "console=ttyMSM0 androidboot.mode=normal FlashID=90014a483942 mem_index=3 poffsts=0x09 "
            "quiet\n";
    TextMap properties;  // set at the start of every boot, over ro.boot.mode normal
    TextMap files;       // on the device before the first boot, by device path
    // Bytes in each log buffer.
    std::map<std::string, int64_t> logSizes = {{"main", 40000},  {"system", 12000},
                                               {"events", 8000}, {"radio", 4000},
                                               {"crash", 0},     {"kernel", 16000}};
    std::set<std::string> endlessLogs;     // buffers whose command never ends by itself
    std::set<std::string> nulLogs;         // buffers that hold NULs
    std::optional<int64_t> partitionSize;  // bytes; unset: as large as the workstation's
    bool partitionAbsent = false;
    bool logFolder = true;        // /velafs/boot_vigil/log is there at the first boot
    int64_t rebootAfter = 15000;  // ms from a request property to the bare platform's reboot

    std::vector<Boot> boots;

    // After the last boot; a missing value means that the file must not be there.
    std::map<std::string, std::optional<std::string>> expectedFiles;
};

// Reads a scenario. Throws std::runtime_error("FILE:LINE:COLUMN: what was expected there"); what is
// too large to be read is refused at once, whatever its aliases stand for.
Scenario readScenario(const std::string& path);

// Writes a scenario as the YAML that readScenario() reads; its path is not in it. Throws
// std::runtime_error when the file can't be written.
void writeScenario(const Scenario& scenario, const std::string& path);

// Each makes of this scenario what its file says when a part is left out: a field, or some elements
// of a list. False when the file gets no shorter; throws std::runtime_error when the rest is no
// scenario.
using Omission = std::function<bool(Scenario&)>;
std::vector<Omission> omissionsOf(const Scenario& scenario);

// The fields of a scenario's file, as tables for docs/lab.md.
std::string scenarioReference();

}  // namespace lab
