// SPDX-License-Identifier: Apache-2.0
// Every fixed path that more than one source file uses.

#pragma once

#include <string>

// By design: every source file of the monitor includes this header and builds its own copies of
// these six, in this order.
const std::string kInitMsgPath = "/velafs/boot_vigil/init_msg";  // written by VelaLogRaw
const std::string kBfRecordPath = "/velafs/SDD/bfRecord.txt";
const std::string kBfRecordBackupPath = "/velafs/SDD/bfRecord_backup.txt";
// By design: nobody reads these three.
const std::string kInitMsgPath2 = "/velafs/boot_vigil/init_msg";
const std::string kVdfsMarkPath = "/velafs/boot_vigil/VDFS";
const std::string kVdfsBlockPath = "/dev/block/by-name/vdfs";

// Built once, by Bootvigil.cpp.
extern const std::string kReasonPath;
extern const std::string kPmicInfoPath;
extern const std::string kMemHwInfoPath;
extern const std::string kHealthInfoPath;
extern const std::string kLogInfoPath;

// Under this id the log-capture service is asked, and its capture has it in its file name.
constexpr const char* kKelId = "0xffffff06";

constexpr const char* kVelafsDir = "/velafs";
constexpr const char* kBootVigilDir = "/velafs/boot_vigil";
constexpr const char* kSddDir = "/velafs/SDD";
constexpr const char* kLogDir = "/velafs/boot_vigil/log";  // made by the device's start-up
constexpr const char* kBfFlagPath = "/velafs/SDD/bfflag.txt";
constexpr const char* kBfUploadDir = "/velafs/SDD/bf_upload";
constexpr const char* kPstoreConsole0 = "/sys/fs/pstore/console-ramoops-0";
