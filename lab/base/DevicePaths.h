// SPDX-License-Identifier: Apache-2.0
// Files, folders and properties of a device, as the lab names them.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lab/base/Text.h"

namespace lab {

inline const std::string kPartition = "/velafs";
inline const std::string kOwnFolder = "/velafs/boot_vigil";
inline const std::string kRecordFolder = "/velafs/SDD";
inline const std::string kRecord = "/velafs/SDD/bfRecord.txt";
inline const std::string kBackup = "/velafs/SDD/bfRecord_backup.txt";
inline const std::string kFlag = "/velafs/SDD/bfflag.txt";
inline const std::string kUploads = "/velafs/SDD/bf_upload";
inline const std::string kFailureUpload = "/velafs/SDD/bf_upload/boot_vigil";
inline const std::string kSuccessUpload = "/velafs/SDD/bf_upload/recovery_record";
inline const std::string kReason = "/velafs/boot_vigil/reason.txt";
inline const std::string kHistory = "/velafs/boot_vigil/recovery_flag.txt";
inline const std::string kOverride = "/velafs/boot_vigil/recoveryList";
inline const std::string kSwitch = "/velafs/boot_vigil/bfEnable";
inline const std::string kPmic = "/velafs/boot_vigil/pmic_info";
inline const std::string kHwInfo = "/velafs/boot_vigil/mem_hwinfo";
inline const std::string kLogs = "/velafs/boot_vigil/log";
inline const std::string kArchiveSuffix = ".zs";
inline const std::string kJournal = "/velafs/boot_vigil/log/info";
inline const std::string kInitLog = "/velafs/boot_vigil/init_msg";      // the platform's
inline const std::string kKernelLog = "/velafs/boot_vigil/kernel_msg";  // likewise
inline const std::string kRefusals = "/velafs/boot_vigil/refused";      // likewise
inline const std::string kOldCaptures = "/velafs/boot_vigil/captures";  // likewise
inline const std::string kData = "/data";
inline const std::string kMarkerFolder = "/data/vela_dfr";
inline const std::string kMarker = "/data/vela_dfr/firstboot";
// Asked for in one piece, with one semicolon short.
inline const std::string kPackageFiles =
        "/data/system/users/0.xml;/data/system/users/userlist.xml/data/system/packages.xml;"
        "/data/system/uiderrors.txt";
inline const std::string kDev = "/dev";
inline const std::string kBootMonitor = "/dev/bootvigilk";
inline const std::string kKernelMessages = "/dev/kmsg";
inline const std::string kMetadata = "/metadata";  // survives a data reset
inline const std::string kCache = "/cache";
inline const std::string kRecoveryCommand = "/cache/recovery/command";
inline const std::string kKeptLogs = "/dev/velarawlog/";  // the platform's
inline const std::string kProc = "/proc";
inline const std::string kBootProfile = "/proc/bootprof";
inline const std::string kVelaBootProfile = "/proc/velabootprof";
inline const std::string kCommandLine = "/proc/cmdline";
inline const std::string kHealth = "proc/vela_healthinfo/healthinfo_show";  // relative, so named
inline const std::string kPstore = "/sys/fs/pstore";
inline const std::string kPstoreConsole = "/sys/fs/pstore/console-ramoops-0";

// The log-capture service's capture is a file of its own folder with this in its name.
inline const std::string kLogServiceId = "0xffffff06";

// The simulated platform's.
inline const std::string kToolFolder = "/system/bin/";
inline const std::string kShell = "/system/bin/sh";
inline const std::string kPropertyDir = "/dev/__properties__/";
inline const std::string kKelFolder = "/dev/kel";
inline const std::string kKelRequestFile = "/dev/kel/requests";
inline const std::string kLogBuffers = "/dev/log/";
inline const std::string kMainLogBuffer = "/dev/log/main";
inline const std::string kKernelLogBuffer = "/dev/log/kernel";
inline const std::string kEndlessMark =
        ".endless";  // after a buffer's name: its command never ends

// The archives that the daemon makes itself, and the log buffer that each holds; the last one holds
// kPstoreConsole.
struct CapturedLog {
    std::string archive;
    std::string buffer;
};
inline const std::vector<CapturedLog> kCapturedLogs = {{"android_crash_log", "crash"},
                                                       {"android_main_log", "main"},
                                                       {"android_events_log", "events"},
                                                       {"android_system_log", "system"},
                                                       {"android_radio_log", "radio"},
                                                       {"sys_kernel_log", "kernel"},
                                                       {"console-ramoops-0", ""}};

inline std::string archivePath(const std::string& name) {
    return kLogs + "/" + name + kArchiveSuffix;
}

// Properties that the platform sets to "1" when the boot is done.
constexpr const char* kCompleted[] = {"sys.boot_completed", "service.bootanim.exit",
                                      "sys.vela.BOOT_COMPLETED"};

constexpr const char* kRebootRequest = "sys.velas_recovery_reboot";
constexpr const char* kResetRequest = "sys.velas_recovery_reset";
inline const std::string kPowerControl = "sys.powerctl";  // to init

inline bool onPartition(std::string_view path) {
    return startsWith(path, kPartition);
}

}  // namespace lab
