// SPDX-License-Identifier: Apache-2.0
// Which recovery action must come next, and when one has worked.

#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/DaemonModel.h"

namespace lab {

namespace {

// How the daemon says that it takes an action.
const std::map<int, std::string> kActions = {{kReboot, "try to reboot"},
                                             {kWaitForUser, "waite user reboot"},
                                             {kReset, "try to data reset"}};

}  // namespace

// The first answer holds, but for that to the rescue.
bool DaemonModel::disabled() {
    const int low = reason() & 255;
    if (property("persist.sys.enable_rescue", "false") == "true" &&
        (low == kSystemError || low == kLateSystemError)) {
        return true;
    }
    if (mDisabled) return *mDisabled;
    mDisabled = number("ro.vela.bfRecovery.support", "1") != 1;
    if (!*mDisabled && exists(kSwitch)) {
        const std::vector<std::string> lines = read(kSwitch);
        mDisabled = std::find(lines.begin(), lines.end(), "BfRecover=NO") != lines.end();
    }
    return *mDisabled;
}

std::string DaemonModel::historyLine() const {
    return firstLine(content(kHistory, "0"));
}

// 0 for none.
int DaemonModel::lastAction() const {
    const std::string line = historyLine();
    return line.size() < 2 ? 0 : digitAt(line, 1) & 255;
}

void DaemonModel::removeHistory() {
    if (exists(kHistory)) remove(kHistory);
}

// The next step of the ladder, and only that.
bool DaemonModel::runRecovery() {
    const bool allowed = !disabled() && mReason != 0;
    const bool unread = cannotOpen(kHistory) && take("read open " + kHistory + " failed");
    const bool known = mUnsure.count(kHistory) == 0;  // how far the walk is
    // After a reset the walk starts again.
    if (allowed && !mFirstBoot &&
        says("clean Recovery History.", lastAction() == kReset, !known || unread)) {
        removeHistory();
    }
    if (allowed && exists(kOverride)) {
        mList = mTable = readOverride(read(kOverride), mReason).value_or(mTable);
    } else if (allowed) {
        mList = defaultActions(mReason).value_or(mList);
    }
    Step step = observe();
    if (allowed) {
        step = reconcile(step, unread, known);
    } else if (step.action != 0) {
        broken(format("recovery action %d where none is allowed", step.action));
    }
    if (!step.history.empty()) writeOrLog(kHistory, step.history, false);
    act(step.action);
    return step.action != 0;
}

// From the history as it was read for the place in the list, and again for what to write.
DaemonModel::Step DaemonModel::predict(const std::string& place, const std::string& last) const {
    const size_t index = place.empty() ? mList.size() : digitAt(place, 0);
    const int action = index < mList.size() ? digitAt(mList, index) : 0;
    if (action <= 0) return {};
    const int next = last.empty() ? 0 : digitAt(last, 0) + 1;
    return {kActions.count(action) > 0 ? action : 0, format("%d%d%c", next, action, mReason)};
}

DaemonModel::Step DaemonModel::observe() {
    Step step;
    for (const auto& [action, line] : kActions) {
        if (take(line)) step.action = action;
    }
    const std::string saving = "saveRecoveryFlag info = ";
    if (const auto saved = take(saving)) {
        step.history = saved->substr(saving.size(), saved->size() - saving.size() - 1);
    }
    return step;
}

// The step that goes on: as predicted, or as seen where it is not known how far the walk is.
// A history that can't be read counts as none, which puts the walk at its top.
DaemonModel::Step DaemonModel::reconcile(const Step& seen, bool unread, bool known) {
    const std::string line = historyLine(), top = unread ? "0" : line;
    for (const std::string& place : {line, top}) {
        for (const std::string& last : {line, top}) {
            const Step step = predict(place, last);
            const bool acts = seen.action == step.action || (mCutShort && seen.action == 0);
            if (acts && (seen.history.empty() || seen.history == step.history)) {
                return {seen.action, step.history};
            }
        }
    }
    const char digit = static_cast<char>('0' + seen.action);
    if (known || (seen.action != 0 && !contains(mList, std::string(1, digit)))) {
        const Step step = predict(line, line);
        broken(format("recovery action %d, history \"%s\" where the rules say %d, \"%s\"",
                      seen.action, seen.history.c_str(), step.action, step.history.c_str()));
    }
    return seen;
}

// What a recovery asks of the platform.
void DaemonModel::act(int action) {
    if (action == kReset && mFirstBoot) {  // the device is fresh already
        expect("clean Recovery History.");
        return removeHistory();
    }
    if (action != kReboot && action != kReset) return;
    const std::string request = action == kReset ? kResetRequest : kRebootRequest;
    expectAct(TraceEvent::PROPERTY, request + " 1");
    mRequest = mNow;
    mReset |= action == kReset;
}

// At the end of the boot, or `late`, when it has been good for a while.
bool DaemonModel::checkSuccess(bool late) {
    if (disabled()) return false;
    const int action = lastAction();
    const std::string line = historyLine();
    const int last = line.size() < 3 ? 0 : static_cast<unsigned char>(line[2]);
    const bool judged = action != 0 && (late || last <= kFoundByDaemon);
    const bool unsure = mUnsure.count(kHistory) > 0 || cannotOpen(kHistory);
    if (!says("isRecoverySuccess mode=", judged, unsure)) return false;
    const bool reports = action == kReboot || action == kReset;
    const bool success =
            !reports || property("sys.boot.reason") == (action == kReboot ? "reboot,velarecovery"
                                                                          : "reboot,factory_reset");
    if (success && reports) {
        expect("enter submitSuccessInfo");
        if (unsure) mUnsure.insert(kSuccessUpload);
        upload(kSuccessUpload, format("BFRECOVERY|%d|%s|%d", action, localTime().c_str(), last));
    }
    expect("clean Recovery History.");
    removeHistory();
    return success;
}

}  // namespace lab
