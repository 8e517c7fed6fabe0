// SPDX-License-Identifier: Apache-2.0
// Which recovery action must come next, and when one has worked.

#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/DaemonModel.h"

namespace lab {

const std::vector<int>* defaultRecoveryList(int reason) {
    static const std::map<int, std::vector<int>> lists = {{100, {1, 2, 5, 0, 0}},
                                                          {20, {1, 2, 5, 0, 0}},
                                                          {21, {1, 5, 0, 0, 0}},
                                                          {23, {1, 5, 0, 0, 0}},
                                                          {22, {1, 5, 0, 0, 0}},
                                                          {99, {5, 1, 0, 0, 0}},
                                                          {120, {1, 2, 5, 0, 0}}};
    const auto found = lists.find(reason);
    return found == lists.end() ? nullptr : &found->second;
}

void readOverrideList(const std::vector<std::string>& lines, int reason, std::vector<int>& modes) {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, "|");
        if (fields.size() < 2 || atoi(fields[0].c_str()) != reason) continue;
        for (size_t i = 0; i < 5 && fields[1].size() > 4; ++i) {
            modes[i] = static_cast<unsigned char>(fields[1][i]) - '0';
        }
        return;
    }
}

// The first answer holds, but for that to the rescue.
bool DaemonModel::disabled() {
    const int low = reason() & 255;
    if (property("persist.sys.enable_rescue", "false") == "true" && (low == 20 || low == 120)) {
        return true;
    }
    if (mDisabled >= 0) return mDisabled == 1;
    mDisabled = 1;
    if (number("ro.vela.bfRecovery.support", "1") != 1) return true;
    std::vector<std::string> lines;
    if (exists(kSwitch)) lines = read(kSwitch);
    mDisabled = std::find(lines.begin(), lines.end(), "BfRecover=NO") != lines.end() ? 1 : 0;
    return mDisabled == 1;
}

// The last action's, 0 for none.
int DaemonModel::recoveryMode() const {
    const std::string line = firstLine(content(kHistory, "0"));
    return line.size() < 2 ? 0 : (line[1] - '0') & 255;
}

void DaemonModel::removeHistory() {
    if (exists(kHistory)) remove(kHistory);
}

void DaemonModel::chooseList(int error) {
    if (exists(kOverride)) {
        mList = &mTable;
        readOverrideList(read(kOverride), error, mTable);
    } else if (const std::vector<int>* list = defaultRecoveryList(error)) {
        mList = list;
    }
}

// The list's entry that the history points at.
int DaemonModel::nextMode() const {
    const std::string line = firstLine(content(kHistory, "0"));
    const int index = line.empty() ? -1 : line[0] - '0';
    return mList != nullptr && index >= 0 && index <= 4 ? (*mList)[index] : 0;
}

// The next step of the ladder, and only that.
bool DaemonModel::runRecovery(int error) {
    const bool allowed = !disabled() && error != 0;
    const bool known = mUnsure.count(kHistory) == 0 && !mNoMemory;  // how far the walk is
    const bool unread = cannotOpen(kHistory) && take("read open " + kHistory + " failed");
    if (allowed && !mFirstBoot &&
        decide(recoveryMode() == 5, take("clean Recovery History.").has_value(), !known || unread,
               "a new walk after a reset")) {
        removeHistory();
    }
    if (allowed) chooseList(error);
    const int predicted = allowed ? nextMode() : 0;
    const int mode = take("try to data reset")   ? 5
                     : take("waite user reboot") ? 2
                     : take("try to reboot")     ? 1
                                                 : 0;
    const bool acts = predicted == 1 || predicted == 2 || predicted == 5;
    const bool listed = allowed && mList != nullptr &&
                        std::find(mList->begin(), mList->end(), mode) != mList->end();
    // Where the history can't be read, it counts as none: the walk is at its top.
    const bool right = mode == (acts ? predicted : 0) ||
                       (unread && (mode == 0 || (mList != nullptr && mode == mList->front())));
    if ((mode != 0 && !listed) || (!right && known && !mCutShort)) {
        broken(format("recovery mode %d where the list says %d", mode, predicted));
    }
    const std::string saving = "saveRecoveryFlag info = ";
    const auto saved = take(saving);
    const bool sure = known && !unread;  // else what was seen tells
    const bool steps = sure || mCutShort ? predicted > 0 : saved || mode > 0;
    if (steps) {
        const std::string line = firstLine(content(kHistory, "0"));
        const int next = line.empty() ? 0 : line[0] - '0' + 1;
        const auto history = [&](int step, int action) {
            return format("%d%d%c", step, action, reason() & 255);
        };
        std::string text = history(next, predicted);
        if (!sure && saved) {
            text = saved->substr(saving.size(), saved->size() - saving.size() - 1);
            const int top = mList != nullptr ? mList->front() : 0;
            const std::set<std::string> possible = {history(next, predicted), history(1, predicted),
                                                    history(next, top), history(1, top)};
            if (known && possible.count(text) == 0) broken("writes the history " + text);
        }
        writeOrLog(kHistory, text, false);
    }
    act(mode);
    return mode != 0;
}

// What a recovery asks of the platform.
void DaemonModel::act(int mode) {
    if (mode == 5 && mFirstBoot) {  // the device is fresh already
        expect("clean Recovery History.");
        return removeHistory();
    }
    if (mode != 1 && mode != 5) return;
    expectCall(mSets, mode == 5 ? "sys.velas_recovery_reset 1" : "sys.velas_recovery_reboot 1");
    mRequest = mNow;
    mReset |= mode == 5;
}

// `kind`: 1 at the end of the boot, 2 when it has been good for a while.
bool DaemonModel::checkSuccess(int kind) {
    if (disabled()) return false;
    const int mode = recoveryMode();
    const std::string line = firstLine(content(kHistory, "0"));
    const int last = line.size() < 3 ? 0 : static_cast<unsigned char>(line[2]);
    const bool judged = mode != 0 && !(kind == 1 && last > 100);
    const bool unsure = mUnsure.count(kHistory) > 0 || cannotOpen(kHistory);
    const bool seen = take("isRecoverySuccess mode=").has_value();
    if (!decide(judged, seen, unsure, "the verdict on a recovery")) return false;
    const char* cause = mode == 1 ? "reboot,velarecovery" : "reboot,factory_reset";
    const bool reports = mode == 1 || mode == 5;
    const bool success = !reports || property("sys.boot.reason") == cause;
    if (success && reports) {
        expect("enter submitSuccessInfo");
        if (unsure) mUnsure.insert(kSuccessUpload);
        upload(kSuccessUpload, format("BFRECOVERY|%d|%s|%d", mode, localTime().c_str(), last));
    }
    expect("clean Recovery History.");
    removeHistory();
    return success;
}

}  // namespace lab
