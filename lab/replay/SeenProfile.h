// SPDX-License-Identifier: Apache-2.0
// The boot profile of a recorded boot: what the polls saw of it, and what it may have been.

#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/replay/RebuiltBoot.h"

namespace lab {

class SeenProfile {
public:
    // Takes a line of the daemon's log; whether it shows that a poll read the profile.
    bool readLine(const std::string& line, int64_t at);

    // Gives the boot a profile of the last lines that the polls saw.
    void compose(RebuiltBoot& rebuilt, bool beginningKept,
                 std::optional<int64_t> completedAt) const;

    // Gives it the pulled one, by time where the polls agree with one start of the daemon, else as
    // it stands. Throws std::runtime_error when that has no event.
    void cut(RebuiltBoot& rebuilt, const std::string& text) const;

private:
    struct Line {
        int64_t at;        // when it is shown, or was seen
        std::string text;  // as the kernel prints it
        std::string rest;  // what follows its time; empty in another layout
    };

    static Line lineOf(int64_t at, const std::string& text);
    static ProfileScript scriptOf(const std::vector<Line>& lines, int64_t start);
    static void addServerStart(std::vector<Line>& lines, RebuiltBoot& rebuilt);
    void addLoop(std::vector<Line>& lines) const;
    std::optional<int64_t> findStart(const std::vector<Line>& lines) const;

    std::vector<Line> mLast;  // the last line at each poll
    std::optional<int64_t> mLoopAt;
    std::string mLoopMilestone;
    std::map<std::string, int> mLoopCounts;
};

}  // namespace lab
