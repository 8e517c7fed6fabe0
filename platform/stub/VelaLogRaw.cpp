// SPDX-License-Identifier: Apache-2.0
// libvelarawlog for a device that has none: no log was ever kept.

#include <VelaLogRaw.h>

bool VelaLogRaw::HasInitLog() {
    return false;
}

bool VelaLogRaw::GetInitLogMsg() {
    return false;
}

bool VelaLogRaw::CleanInitLog() {
    return false;
}

bool VelaLogRaw::HasKernelLog() {
    return false;
}

bool VelaLogRaw::GetKernelLogMsgAndPath(std::string& /* path */) {
    return false;
}

bool VelaLogRaw::CleanKernelLog() {
    return false;
}
