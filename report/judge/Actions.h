// SPDX-License-Identifier: Apache-2.0
// What the daemon did about the failures of an episode, as far as anything tells.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "report/judge/Episodes.h"

namespace report {

// Both arguments must outlive it.
class Actions {
public:
    Actions(const Report& report, const Notices& notices);

    // Fills in the actions of an episode that has its failures and its stamp; `newest` if there is
    // none after it, which the files of the recovery are about.
    void fill(Episode& episode, bool newest);

    // By what an episode with a stamp was ended, once it has its actions. See Episode::curedBy.
    std::string cureOf(const Episode& episode) const;

private:
    // A walk down the recovery lists, as the history keeps it.
    struct Walk {
        size_t index = 0;
        int mode = 0;
        int reason = 0;
    };

    const std::vector<int>& listFor(int reason);
    std::vector<Walk> walkOf(const Episode& episode);
    bool isIn(const Walk& walk) const;
    void takeHistory(Episode& episode, const std::vector<Walk>& walks) const;
    void takeList(Episode& episode, const std::vector<Walk>& walks) const;
    std::string whyNothing(const Failure& failure, bool last) const;

    const Report& mReport;
    const Notices& mNotices;
    std::map<int, std::vector<int>> mLists;            // by reason
    std::unordered_map<int64_t, std::string> mJudged;  // what good boots say, by their completion
};

}  // namespace report
