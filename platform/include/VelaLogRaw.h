// SPDX-License-Identifier: Apache-2.0
// Declarations of libvelarawlog: the raw init and kernel logs that the platform keeps from a failed
// boot. Closed on a device; the host's implementation is platform/host/VelaLogRaw.cpp.

#pragma once

#include <string>

class VelaLogRaw {
public:
    static bool HasInitLog();
    // Writes the kept init log to the file "/velafs/boot_vigil/init_msg".
    static bool GetInitLogMsg();
    static bool CleanInitLog();

    static bool HasKernelLog();
    // Writes the kept kernel log to a file of the library's choice and stores its path.
    static bool GetKernelLogMsgAndPath(std::string& path);
    static bool CleanKernelLog();
};
