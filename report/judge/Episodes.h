// SPDX-License-Identifier: Apache-2.0
// A failure and all that followed it, until a boot completed.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "report/judge/Notices.h"
#include "report/read/Report.h"

namespace report {

// How a recovery action is known.
enum class Source {
    NONE,     // it isn't
    LOG,      // the daemon's log says so
    HISTORY,  // the recovery history does
    UPLOAD,   // the report of its success does
    LIST,     // the recovery list has it at this place; nothing tells whether it was done
};

// What the daemon did about one failure.
struct Action {
    int mode = 0;  // 0: nothing, or not known
    Source source = Source::NONE;
    std::string whyNone;       // for mode 0
    bool switchedOff = false;  // recovery, for every failure of that reason
    bool endedEarly = false;   // the daemon, as far as can be told, before it came to an action
};

enum class Outcome { OPEN, CURED, UNCLEAR };

struct Episode {
    std::vector<Failure> failures;  // one or more, oldest first
    std::vector<Action> actions;    // one for each
    std::optional<Failure> stamp;   // the end, where one is recorded
    Outcome outcome = Outcome::OPEN;
    std::string curedBy;  // itself, reboot, user, reset, unknown; empty unless cured
    int boots = 0;        // that are known to have failed, and the one that completed
    std::optional<int64_t> secondsToCure;
    bool evidenceLost = false;  // a record of it is damaged or missing

    const Failure& last() const {
        return failures.back();
    }
};

// Oldest first. `notices` are those of the report's boots.
std::vector<Episode> episodesOf(const Report& report, const Notices& notices);

const char* sourceName(Source source);
const char* outcomeName(Outcome outcome);

}  // namespace report
