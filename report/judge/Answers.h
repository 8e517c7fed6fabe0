// SPDX-License-Identifier: Apache-2.0
// The five answers about an episode.

#pragma once

#include "report/judge/Judgement.h"

namespace report {

// About the last episode of a judgement that has its state. `notice` is where a log tells of the
// episode's last failure, if one does.
Answers answer(const Report& report, const Judgement& judgement, const Notice& notice);

}  // namespace report
