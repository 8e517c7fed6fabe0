// SPDX-License-Identifier: Apache-2.0
// Files, folders and properties of a device, as the lab names them.

#pragma once

#include <string>

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
inline const std::string kJournal = "/velafs/boot_vigil/log/info";
inline const std::string kInitLog = "/velafs/boot_vigil/init_msg";      // the platform's
inline const std::string kKernelLog = "/velafs/boot_vigil/kernel_msg";  // likewise
inline const std::string kKeptLogs = "/dev/velarawlog/";                // likewise
inline const std::string kMarker = "/data/vela_dfr/firstboot";
inline const std::string kHealth = "proc/vela_healthinfo/healthinfo_show";  // relative, so named

// The simulated platform's.
constexpr const char* kPropertyDir = "/dev/__properties__/";
constexpr char kKelRequestFile[] = "/dev/kel/requests";

// Properties that the platform sets to "1" when the boot is done.
constexpr const char* kCompleted[] = {"sys.boot_completed", "service.bootanim.exit",
                                      "sys.vela.BOOT_COMPLETED"};

constexpr const char* kRebootRequest = "sys.velas_recovery_reboot";
constexpr const char* kResetRequest = "sys.velas_recovery_reset";

}  // namespace lab
