// SPDX-License-Identifier: Apache-2.0
// What the facts of a report come to: the device's state, and five answers about its last failure.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/judge/Episodes.h"
#include "report/read/Report.h"

namespace report {

enum class State {
    NO_FAILURE,  // all evidence agrees that there was none
    CURED,       // a boot has completed since the last one
    FAILING,     // none has
    BLOCKED,     // none has, and recovery cannot go on
    UNCLEAR,     // evidence is damaged, missing or contradicts
    UNREADABLE,  // nothing here is a partition
};

// Something that a log says, and where.
struct Quote {
    std::string text;
    Place place;
};

// What hung?
struct Hung {
    std::string text;
    BootEvent event;               // the last one, and who logged it
    bool named = false;            // the daemon took that process for the stuck one
    std::string missing;           // the milestone that was not reached; empty where it isn't known
    const Event* since = nullptr;  // the poll that saw the last event first
    std::optional<double> silent;  // seconds from that poll to the verdict
};

// Why is it believed?
struct Why {
    std::string text;
    std::string rule;  // that decided
    int polls = 0;     // that saw the last event
    int timeouts = 0;  // of the boot, the deciding one included
    std::vector<Quote> quotes;
};

// What did the device do?
struct Did {
    std::string text;
    std::string signal;   // empty: none is sent after such a failure
    std::string capture;  // by whom; empty: none is known
    std::string refused;  // by the platform, and why; empty: nothing is known
    Action action;
};

// Did it work?
struct Worked {
    std::string text;
    std::string answer;  // yes, not-yet, never, unknown
};

// A known limit of the daemon that applies, and its place in the documentation.
struct Limit {
    std::string text;
    std::string link;
};

// What next?
struct Next {
    std::string text;
    Place open;          // no file: no log tells of it
    std::string replay;  // a command; empty where there is nothing to replay
    std::vector<Limit> limits;
    std::string recovery;  // what the next such failure leads to; empty where that isn't known
};

struct Answers {
    Hung hung;
    Why why;
    Did did;
    Worked worked;
    Next next;
};

// Points into the report that it is made of.
struct Judgement {
    State state = State::NO_FAILURE;
    std::string rule;      // the name of the rule that decided on the state
    std::string sentence;  // why it is this state
    std::vector<Episode> episodes;
    std::optional<Answers> answers;  // about the headline; none for a device that has not failed

    // The open episode, else the last one. Null without any, and where what is unclear came after
    // the last one's end.
    const Episode* headline() const {
        if (episodes.empty()) return nullptr;
        const bool ended = state == State::UNCLEAR && episodes.back().stamp;
        return ended ? nullptr : &episodes.back();
    }
};

// A pure function of the facts.
Judgement judge(const Report& report);

const char* stateName(State state);

}  // namespace report
