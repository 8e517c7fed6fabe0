// SPDX-License-Identifier: Apache-2.0
// What a run of a scenario broke, as one exit status.

#include "lab/random/Judge.h"

namespace lab {

// The kinds of violations are in the order of their statuses.
static_assert(kSagaCrash + static_cast<int>(Violation::Kind::CRASH) == kSagaCrash &&
              kSagaCrash + static_cast<int>(Violation::Kind::LIVENESS) == kSagaLiveness &&
              kSagaCrash + static_cast<int>(Violation::Kind::RULE) == kSagaRule);

std::optional<Finding> judge(const std::vector<BootOutcome>& boots) {
    std::optional<Finding> worst;
    for (size_t i = 0; i < boots.size(); ++i) {
        for (const Violation& violation : boots[i].violations) {
            const int status = kSagaCrash + static_cast<int>(violation.kind);
            if (worst && worst->status <= status) continue;
            worst = {status, static_cast<int>(i) + 1, violation.text};
        }
    }
    return worst;
}

}  // namespace lab
