// SPDX-License-Identifier: Apache-2.0
// The five answers about an episode.

#pragma once

#include "report/judge/Judgement.h"

namespace report {

// About the headline of a judgement that has its state. `notice` is where a log tells of its last
// failure, if one does.
Answers answer(const Report& report, const Judgement& judgement, const Notice& notice);

// The same of a device whose evidence contradicts itself, without a headline.
Answers answerWithoutEpisode(const Report& report, const Judgement& judgement);

}  // namespace report
