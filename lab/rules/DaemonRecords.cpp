// SPDX-License-Identifier: Apache-2.0
// What must be written and captured of a failure.

#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/DaemonModel.h"

namespace lab {

// Whether the partition can be written to.
bool DaemonModel::usable() {
    if (says("BOOTVIGIL velafs not exist", !exists(kPartition))) return false;
    const std::string start = "BOOTVIGIL velafs AvailableSize ";
    const std::optional<std::string> size = expect(start);
    if (!size) return false;
    if (strtoull(size->c_str() + start.size(), nullptr, 10) <= 10) {  // half of the free bytes
        expect(start + "not enough");
        mNoSpace = true;
        return false;
    }
    return makeFolder(kOwnFolder) && makeFolder(kRecordFolder);
}

std::string DaemonModel::recordLine(int code, const std::string& info,
                                    const std::string& extra) const {
    return "TIME:" + localTime() + format(";    ERR_NUM:0x%x", code) + ";    ERR_INFO:" + info +
           ";    ERR_EXPINFO:" + extra + ";\n";
}

void DaemonModel::notify(int type, int phase, int detail, int reason) {
    expect(format("errNotifyWithReason type = %d, phase=%d, detailPhase=%d, reason=%d", type, phase,
                  detail, reason & 255));
    mErrType = type;
    mMainPhase = phase;
    mReason = reason & 255;
    if (type == kHang) mCoreText = mProfile.key.substr(0, 256);
    if (!usable()) return;
    const int code = (phase & 15) << 20 | (detail & 255) << 12 | (type & 15) << 8 | mReason;
    const std::string country = property("persist.sys.oobe_country");
    const std::string line = recordLine(code, mCoreText, "Country(" + country + ")  ");
    mRecordLines += line;
    const bool restart = content(kRecord).size() >= 5120;
    if (restart) backUp();
    const std::string flagging = format("saveBfFlag mMainPhase = %d.", phase);
    if (take(flagging)) {  // so the record was written; a failure that is logged is the flag's
        write(kRecord, line, !restart);
        writeOrLog(kFlag, std::to_string(phase), false);
    } else if (writeOrLog(kRecord, line, !restart)) {
        expect(flagging);
    }
}

// Its size, its content and the copy are opened one after the other.
void DaemonModel::backUp() {
    const bool failed =
            take("ifile " + kRecord + " failed") || take("ofile " + kBackup + " failed");
    if (decide(false, failed, cannotOpen(kRecord) || excused(kBackup), "the failure to back up")) {
        return;
    }
    if (cannotOpen(kRecord)) mUnsure.insert({kRecord, kBackup});
    write(kBackup, content(kRecord));
}

// The wizard was slow, not stuck: the failure is taken back.
void DaemonModel::revert() {
    if (!exists(kRecord) || says("read open " + kRecord + " failed", false, cannotOpen(kRecord)) ||
        says("no line in " + kRecord, content(kRecord).empty(), excused(kRecord)) ||
        says("write open " + kRecord + " failed", false, excused(kRecord))) {
        return;
    }
    std::vector<std::string> lines = linesOf(content(kRecord));
    if (!lines.empty()) lines.pop_back();
    std::string rest;
    for (const std::string& line : lines) rest += line + "\n";
    write(kRecord, rest);
}

// The last record line goes to the uploader, short; a damaged one too, but not one of the wizard's.
void DaemonModel::submit() {
    if (!exists(kRecord)) return;
    if (says("submitLogInfo: read open", false, cannotOpen(kRecord))) return;
    const std::vector<std::string> lines = linesOf(content(kRecord));
    std::string line = lines.empty() ? "" : lines.back();
    const std::string start = "submitInfo:info = ";
    const auto shown = expect(start);
    if (shown && excused(kRecord)) {
        line = shown->substr(start.size());  // so that is what it read
    } else if (shown && *shown != start + line && line.size() < kLongestLogged) {
        broken("submits another line than the last: " + *shown);
    }
    const std::optional<std::string> text = failureUpload(line);
    if (!text) return;
    if (excused(kRecord)) mUnsure.insert(kFailureUpload);
    upload(kFailureUpload, *text);
}

// What has not been collected stays.
void DaemonModel::upload(const std::string& path, const std::string& text) {
    if (!makeFolder(kUploads) || exists(path)) return;
    if (writeOrLog(path, text, false)) expectAct(TraceEvent::OPERATION, "chmod 0777 " + path);
}

// By the log-capture service, or else by the daemon itself.
void DaemonModel::capture(Wanted wanted) {
    saveDeviceInfo();
    for (const std::string& path : {kPmic, kHwInfo, kRecord}) {
        if (exists(path)) wanted.note += path + ";";
    }
    if (!usable()) return leaveMarker();
    const bool service = number("persist.sys.bootvigil.debug") != 1 &&
                         property("init.svc.kel", " ") == "running" &&
                         property("init.svc.kelvservice", " ") == "running";
    if (says("type: ", service)) {
        const std::string start = format("%s|%lld|%d|", kLogServiceId.c_str(),
                                         static_cast<long long>(wanted.type), wanted.pid);
        auto& requests = mActs[TraceEvent::REQUEST];
        // Which files it names may depend on what failed.
        const auto made = requests.lower_bound(start);
        if ((!mFaults.empty() || mNoSpace) && made != requests.end() && startsWith(*made, start)) {
            requests.erase(made);
        } else {
            expectAct(TraceEvent::REQUEST, start + wanted.note, cannotOpen(kKelRequestFile));
        }
        journal("KEL capture log");
        mCaptureState = 1;
        return;
    }
    expect("kel dont running so capture log by stuck");
    captureSelf();
    journal("USER capture log");
    mCaptureState = 2;
}

// In the kernel log, unless the boot before has left one there.
void DaemonModel::leaveMarker() {
    const std::string marker = "bootvigil init_monitor_thread_main create KE";
    if (says("BOOTVIGIL findMonitorKey return", contains(mSeen.console, marker),
             mFaults.count("popen") > 0)) {
        return;
    }
    if (cannotOpen(kKernelMessages) && take("BOOTVIGIL Failed to open " + kKernelMessages)) return;
    expect("BOOTVIGIL writeMonitorKey key " + marker);
}

void DaemonModel::saveDeviceInfo() {
    const std::optional<std::string> text = worldFile(kCommandLine);
    if (says("parseCmdline open " + kCommandLine + " failed", !text, cannotOpen(kCommandLine))) {
        return;
    }
    std::vector<std::string> lines = linesOf(text.value_or(""));
    std::reverse(lines.begin(), lines.end());
    for (const std::string& line : lines) {
        const size_t at = line.find("poffsts=");
        if (at == std::string::npos) continue;
        writeOrLog(kPmic, localTime() + ": " + line.substr(at + 8, 4) + "\n", true);
        break;
    }
    if (exists(kHwInfo)) return;
    for (const std::string& line : lines) {
        std::vector<std::string> tokens = split(line, " ");
        std::reverse(tokens.begin(), tokens.end());
        for (const std::string& token : tokens) {
            if (contains(token, "FlashID=")) writeOrLog(kHwInfo, token + " ", true);
            if (contains(token, "mem_index=")) writeOrLog(kHwInfo, token + " ", true);
        }
    }
}

// Without the folder the compressor ends the process.
void DaemonModel::captureSelf() {
    for (const CapturedLog& log : kCapturedLogs) {
        const std::string path = archivePath(log.archive);
        if (!write(path, "")) throw MustEnd{0, 2};
        expectAct(TraceEvent::OPERATION, "open " + path);
    }
    mCaptured = true;
}

void DaemonModel::journal(const std::string& text) {
    writeOrLog(kJournal, localTime() + "  " + text + "\n", true);
}

// Whether a capture has left nothing in the folder; says so then.
bool DaemonModel::isMissing(const std::string& folder, const std::string& part,
                            const std::string& line) {
    if (!says(line, !hasEntry(folder, part), mNoSpace || mNoMemory)) {
        ++mFoldersOpen;  // the daemon's own leak
        return false;
    }
    journal(line);
    return true;
}

void DaemonModel::followCapture() {
    if (mCaptureState == 1 &&
        isMissing(kOwnFolder, kLogServiceId, "kel dont capture log in boot vigil")) {
        remove(kReason);
        captureSelf();
        mCaptureState = 2;
    } else if (mCaptureState == 2 &&
               isMissing(kLogs, "android_main_log", "user capture log fail in boot vigil")) {
        mCaptureState = 3;
    }
}

std::string DaemonModel::healthNote() const {
    return worldFile("/" + kHealth) ? kHealth + ";" : "";
}

// What the platform kept of a failed boot, once.
void DaemonModel::handleKeptLogs() {
    if (mRawDone) return;
    mRawDone = true;
    if (!says("Init:Not found log.", !worldFile(kKeptLogs + "init"))) {
        notify(kHang, kInitPhase, 1, kFoundByDaemon);
        if (take("init:get log.")) capture({kCaptureAll, 0, kInitLog + ";" + healthNote()});
        expectAct(TraceEvent::OPERATION, "remove " + kKeptLogs + "init");
    }
    if (!says("kernel:Not found log.", !worldFile(kKeptLogs + "kernel"))) {
        notify(kKernelFailure, kKernelPhase, 1, kFoundByDaemon);
        const std::string got = "kernel:get log: ";
        if (const auto line = take(got)) {
            const std::string path = line->substr(got.size(), line->size() - got.size() - 1);
            capture({kCaptureAll, 0, path + ";" + healthNote()});
        }
        expectAct(TraceEvent::OPERATION, "remove " + kKeptLogs + "kernel");
    }
}

}  // namespace lab
