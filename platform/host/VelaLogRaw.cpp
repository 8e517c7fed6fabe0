// SPDX-License-Identifier: Apache-2.0
// libvelarawlog on a workstation: a kept log is the file /dev/velarawlog/init or .../kernel.

#include <VelaLogRaw.h>

#include <stdio.h>
#include <unistd.h>

#include <fstream>

namespace {

constexpr const char* kKeptInitLog = "/dev/velarawlog/init";
constexpr const char* kKeptKernelLog = "/dev/velarawlog/kernel";
constexpr const char* kInitMessage = "/velafs/boot_vigil/init_msg";
constexpr const char* kKernelMessage = "/velafs/boot_vigil/kernel_msg";

bool copyFile(const char* from, const char* to) {
    std::ifstream in(from, std::ios::binary);
    if (!in) return false;
    std::ofstream out(to, std::ios::binary);
    // Copying nothing at all would count as a failure of the output.
    if (in.peek() != std::ifstream::traits_type::eof()) out << in.rdbuf();
    out.close();
    return !out.fail();
}

}  // namespace

bool VelaLogRaw::HasInitLog() {
    return access(kKeptInitLog, F_OK) == 0;
}

bool VelaLogRaw::GetInitLogMsg() {
    return copyFile(kKeptInitLog, kInitMessage);
}

bool VelaLogRaw::CleanInitLog() {
    return remove(kKeptInitLog) == 0;
}

bool VelaLogRaw::HasKernelLog() {
    return access(kKeptKernelLog, F_OK) == 0;
}

bool VelaLogRaw::GetKernelLogMsgAndPath(std::string& path) {
    if (!copyFile(kKeptKernelLog, kKernelMessage)) return false;
    path = kKernelMessage;
    return true;
}

bool VelaLogRaw::CleanKernelLog() {
    return remove(kKeptKernelLog) == 0;
}
