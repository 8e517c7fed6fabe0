// SPDX-License-Identifier: Apache-2.0
// Takes a boot through the model message by message, and objects to messages that come when they
// must not.

#pragma once

#include <optional>

#include "lab/rules/DaemonModel.h"

namespace lab {

class BootWalk : protected DaemonModel {
protected:
    using DaemonModel::DaemonModel;

    void walk();

    int64_t mLastEnd = 0;  // of a message
    std::optional<MustEnd> mMustEnd;

private:
    void checkWakes();
    void deliver(size_t index);
    void checkTime(size_t index, int what, int64_t due);

    int mLastWhat = 0;
};

}  // namespace lab
