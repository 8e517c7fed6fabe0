// SPDX-License-Identifier: Apache-2.0
// The record of one boot failure and the record file on the persistent partition.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "ErrNumInfo.h"

#include <stdio.h>

#include <fstream>
#include <vector>

#include <log/log.h>

#include "BootState.h"
#include "FailureCodes.h"
#include "StoragePaths.h"
#include "Uploads.h"
#include "Utils.h"

namespace {

const std::string kUploadPath = "/velafs/SDD/bf_upload/boot_vigil";

constexpr size_t kMaxCoreErrInfo = 256;
constexpr int kMaxRecordFileSize = 5120;       // bytes
constexpr unsigned int kStampBase = 0xf00000;  // error number of recovery stamps, plus their code

constexpr const char* kFieldSeparator = ";    ";

// The error number: phase, detail phase, type and reason in 4, 8, 4 and 8 bits.
unsigned int packErrNum(const ErrNumInfo& info) {
    return (info.mMainPhase & 0xfu) << 20 | static_cast<unsigned int>(info.mDetailPhase) << 12 |
           (info.mErrType & 0xfu) << 8 | info.mReason;
}

std::string formatErrNum(unsigned int errNum) {
    char text[20] = {};
    snprintf(text, sizeof(text), "0x%x", errNum);
    return text;
}

// Opens the record file for one more line; a file that has grown large enough is restarted.
void openRecord(std::ofstream& file) {
    if (!exists(kBfRecordPath)) {
        file.open(kBfRecordPath);
    } else if (getFileSize(kBfRecordPath) >= kMaxRecordFileSize) {
        backupFile(kBfRecordPath, kBfRecordBackupPath);
        file.open(kBfRecordPath);
    } else {
        file.open(kBfRecordPath, std::ios::app);
    }
}

void saveBfFlag(uint8_t mainPhase) {
    char text[10] = {};
    snprintf(text, sizeof(text), "%d", mainPhase);
    ALOGE("saveBfFlag mMainPhase = %d.", mainPhase);
    ALOGE("saveBfFlag flg = %s.", text);
    std::ofstream file(kBfFlagPath);
    if (!file.is_open()) {
        ALOGE("Save file path %s fail, open fail.", kBfFlagPath);
        return;
    }
    file << text;
    file.close();
    ALOGE("saveBfFlag write flag.");
}

struct FailureSummary {
    std::string errNum;
    std::string time;
    std::string info;
};

// Takes the summary from a record line; false when it is damaged.
// By design: each value ends at its first colon, so the time loses its minutes.
bool parseFailureLine(const std::string& line, FailureSummary& summary) {
    const std::vector<std::string> fields = split(line, kFieldSeparator);
    if (fields.size() < 3) {
        ALOGE("phaseLogInfo: not found enogh info");
        return false;
    }
    const std::vector<std::string> time = split(fields[0], ":");
    if (time.size() < 2) {
        ALOGE("phaseLogInfo: not found TIME");
        return false;
    }
    const std::vector<std::string> errNum = split(fields[1], ":");
    if (errNum.size() < 2) {
        ALOGE("phaseLogInfo: not found ERR_NUM");
        return false;
    }
    const std::vector<std::string> info = split(fields[2], ":");
    if (info.size() < 2) ALOGE("phaseLogInfo: not found ERR_INFO");
    summary = {errNum[1], time[1], info.size() < 2 ? "NA" : info[1]};
    return true;
}

// True for the phases in which the device has not failed, but waits for somebody to use it.
// By design: the third character of the number's text counts as the phase, even where a phase of 0
// has made the text shorter.
bool waitsForUser(const std::string& errNum) {
    const char phase = errNum.size() >= 3 ? errNum[2] : '\0';
    if (phase == '0' + PHASE_OOBE) {
        ALOGE("phaseLogInfo: this is OOBE");
        return true;
    }
    if (phase == '0' + PHASE_KEY_LOCK) {
        ALOGE("phaseLogInfo: this is KEY lock");
        return true;
    }
    return false;
}

}  // namespace

ErrNumInfo::ErrNumInfo()
    : mTimeStamp("not set"), mMainPhase(0), mDetailPhase(0), mErrType(TYPE_NONE), mReason(0) {}

void ErrNumInfo::setLocalTimeStamp() {
    mTimeStamp = getLocalTime();
}

void ErrNumInfo::setCoreErrInfo(std::string info) {
    mCoreErrInfo = info.substr(0, kMaxCoreErrInfo);
}

bool ErrNumInfo::saveLogInfo() {
    // The reader splits at kFieldSeparator; neither ERR_EXPINFO's end nor the line's is one.
    const std::string line = "TIME:" + mTimeStamp +
                             ";    ERR_NUM:" + formatErrNum(packErrNum(*this)) +
                             ";    ERR_INFO:" + mCoreErrInfo + ";    ERR_EXPINFO:" + mExpInfo +
                             "Country(" + getCountry() + ")  " + ";\n";
    std::ofstream file;
    openRecord(file);
    if (file.fail()) {
        ALOGE("Save file path %s fail, fstream fail.", kBfRecordPath.c_str());
        return false;
    }
    if (!file.is_open()) {
        ALOGE("Save file path %s fail, open fail.", kBfRecordPath.c_str());
        return false;
    }
    file << line;
    file.close();
    saveBfFlag(mMainPhase);
    return true;
}

bool ErrNumInfo::saveRecoveryInfo(unsigned int code) {
    const std::string line = "TIME:" + getLocalTime() +
                             ";    ERR_NUM:" + formatErrNum(code + kStampBase) +
                             ";    ERR_INFO:" + ";    ERR_EXPINFO:" + ";\n";
    if (!exists(kBfRecordPath)) {
        ALOGE("not find path %s.", kBfRecordPath.c_str());
        return false;
    }
    std::ofstream file(kBfRecordPath, std::ios::app);
    if (!file.is_open()) {
        ALOGE("Save file path %s fail, open fail.", kBfRecordPath.c_str());
        return false;
    }
    file << line;
    return true;
}

bool ErrNumInfo::revertLastInfo() {
    if (!exists(kBfRecordPath)) {
        ALOGE("access /velafs/SDD/bfRecord.txt failed");
        return false;
    }
    std::ifstream in(kBfRecordPath);
    if (!in.is_open()) {
        ALOGE("read open /velafs/SDD/bfRecord.txt failed");
        return false;
    }
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line)) lines.push_back(line + "\n");
    in.close();
    if (lines.empty()) {
        ALOGE("no line in /velafs/SDD/bfRecord.txt");
        return false;
    }
    lines.pop_back();
    std::ofstream out(kBfRecordPath);
    if (!out.is_open()) {
        ALOGE("write open /velafs/SDD/bfRecord.txt failed");
        return false;
    }
    for (const std::string& kept : lines) out << kept;
    return true;
}

void ErrNumInfo::submitInfo() {
    ALOGD("enter submitInfo");
    if (!exists(kBfRecordPath)) {
        ALOGE("submitLogInfo: access /velafs/SDD/bfRecord.txt failed");
        return;
    }
    std::ifstream in(kBfRecordPath);
    if (!in.is_open()) {
        ALOGE("submitLogInfo: read open /velafs/SDD/bfRecord.txt failed");
        return;
    }
    std::string last;
    std::string line;
    while (std::getline(in, line)) last = line;
    in.close();
    ALOGD("submitInfo:info = %s", last.c_str());

    FailureSummary summary;
    const std::string payload = parseFailureLine(last, summary)
                                        ? summary.errNum + "|" + summary.time + "|" + summary.info
                                        : "Unknow|Unknow|Unknow";
    if (waitsForUser(summary.errNum)) return;
    leaveUpload(kUploadPath, "BOOTVIGIL|" + payload, ANDROID_LOG_DEBUG);
}
