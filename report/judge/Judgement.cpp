// SPDX-License-Identifier: Apache-2.0
// What the facts of a report come to: the device's state, and five answers about its last failure.

#include "report/judge/Judgement.h"

#include "report/judge/Answers.h"
#include "report/judge/Notices.h"
#include "report/judge/States.h"

namespace report {

Judgement judge(const Report& report) {
    const Notices notices(report.boots);
    Judgement judgement;
    judgement.episodes = episodesOf(report, notices);
    Decision decision = decideState(report, judgement.episodes);
    judgement.state = decision.state;
    judgement.rule = decision.rule;
    judgement.sentence = std::move(decision.sentence);
    if (judgement.headline() == nullptr) {
        if (judgement.state == State::UNCLEAR) {
            judgement.answers = answerWithoutEpisode(report, judgement);
        }
        return judgement;
    }
    Episode& last = judgement.episodes.back();
    if (judgement.state == State::UNCLEAR) last.outcome = Outcome::UNCLEAR;
    // A place in a captured log can be shown, one in a lab's own log only named.
    Notice notice = Notices(report.captured).find(last.last());
    if (!notice) notice = notices.find(last.last());
    judgement.answers = answer(report, judgement, notice);
    return judgement;
}

const char* stateName(State state) {
    constexpr const char* kNames[] = {"no-failure", "cured",   "failing",
                                      "blocked",    "unclear", "unreadable"};
    return kNames[static_cast<int>(state)];
}

}  // namespace report
