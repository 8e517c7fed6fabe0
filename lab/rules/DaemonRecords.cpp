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
    if (!exists(kPartition)) {
        expect("BOOTVIGIL velafs not exist");
        return false;
    }
    const std::string says = "BOOTVIGIL velafs AvailableSize ";
    const std::optional<std::string> size = expect(says);
    if (!size) return false;
    if (strtoull(size->c_str() + says.size(), nullptr, 10) <= 10) {  // half of the free bytes
        expect(says + "not enough");
        mNoSpace = true;
        return false;
    }
    return makeFolder(kOwnFolder) && makeFolder(kRecordFolder);
}

void DaemonModel::notify(int type, int phase, int detail, int reason) {
    expect(format("errNotifyWithReason type = %d, phase=%d, detailPhase=%d, reason=%d", type, phase,
                  detail, reason & 255));
    mErrType = type;
    mMainPhase = phase;
    if (type == 5) mCoreText = mLastKey.substr(0, 256);
    mReason = mCachedReason = reason & 255;
    if (usable()) saveRecord(detail);
}

void DaemonModel::saveRecord(int detail) {
    const int packed =
            (mMainPhase & 15) << 20 | (detail & 255) << 12 | (mErrType & 15) << 8 | mReason;
    const std::string line = "TIME:" + localTime() + format(";    ERR_NUM:0x%x", packed) +
                             ";    ERR_INFO:" + mCoreText + ";    ERR_EXPINFO:Country(" +
                             property("persist.sys.oobe_country") + ")  ;\n";
    const bool restart = content(kRecord).size() >= 5120;
    if (restart) backUp();
    mRecordLines += line;
    const std::string flagging = format("saveBfFlag mMainPhase = %d.", mMainPhase);
    if (take(flagging)) {  // so the record was written; a failure that is logged is the stamp's
        write(kRecord, line, !restart);
    } else {
        if (writeOrLog(kRecord, line, !restart)) expect(flagging);
        return;
    }
    writeOrLog(kFlag, std::to_string(mMainPhase), false);
}

// Its size, its content and the copy are opened one after the other.
void DaemonModel::backUp() {
    const bool failed =
            take("ifile " + kRecord + " failed") || take("ofile " + kBackup + " failed");
    if (decide(false, failed, cannotOpen(kRecord) || excused(kBackup), "the failure to back up")) {
        return;
    }
    if (cannotOpen(kRecord)) {
        mUnsure.insert(kRecord);
        mUnsure.insert(kBackup);
    }
    write(kBackup, content(kRecord));
}

// The last record line goes to the uploader, short; a damaged one too, but not one of the wizard's.
void DaemonModel::submit() {
    if (!exists(kRecord)) return;
    if (decide(false, take("submitLogInfo: read open").has_value(), cannotOpen(kRecord),
               "the failure to read " + kRecord)) {
        return;
    }
    const std::string line = lastRecordLine();
    if (!line.empty() && !mBooks.submitted.insert(line).second) {
        broken("submits a second time: " + line);
    }
    std::string payload = "Unknow|Unknow|Unknow";
    const std::vector<std::string> fields = split(line, ";    ");
    if (fields.size() >= 3) {
        const std::vector<std::string> time = split(fields[0], ":");
        // A line without a time is not looked at any further.
        const std::vector<std::string> code =
                time.size() < 2 ? std::vector<std::string>() : split(fields[1], ":");
        if (code.size() >= 2) {
            const std::vector<std::string> info = split(fields[2], ":");
            payload = code[1] + "|" + time[1] + "|" + (info.size() < 2 ? "NA" : info[1]);
            if (code[1].size() >= 3 && (code[1][2] == '6' || code[1][2] == '7')) return;
        }
    }
    if (excused(kRecord)) mUnsure.insert(kFailureUpload);
    upload(kFailureUpload, "BOOTVIGIL|" + payload);
}

std::string DaemonModel::lastRecordLine() {
    const std::vector<std::string> lines = linesOf(content(kRecord));
    std::string line = lines.empty() ? "" : lines.back();
    const std::string start = "submitInfo:info = ";
    const auto shown = expect(start);
    if (shown && *shown != start + line && !excused(kRecord) && line.size() < 900) {
        broken("submits another line than the last: " + *shown);
    }
    if (shown && excused(kRecord)) line = shown->substr(start.size());  // so that is what it read
    return line;
}

// After the failure's line: a boot has been good since.
void DaemonModel::stamp(int code) {
    if (!exists(kRecord)) return;
    const std::string line = "TIME:" + localTime() + format(";    ERR_NUM:0x%x", 0xf00000 + code) +
                             ";    ERR_INFO:;    ERR_EXPINFO:;\n";
    mRecordLines += line;
    writeOrLog(kRecord, line, true);
}

// What has not been collected stays.
void DaemonModel::upload(const std::string& path, const std::string& text) {
    if (!makeFolder(kUploads) || exists(path)) return;
    if (writeOrLog(path, text, false)) expectCall(mOperations, "chmod 0777 " + path);
}

// By the log-capture service, or else by the daemon itself.
void DaemonModel::capture(int64_t type, int pid, std::string note) {
    saveDeviceInfo();
    for (const std::string& path : {kPmic, kHwInfo, kRecord}) {
        if (exists(path)) note += path + ";";
    }
    if (!usable()) return leaveMarker();
    const bool service = number("persist.sys.bootvigil.debug") != 1 &&
                         property("init.svc.kel", " ") == "running" &&
                         property("init.svc.kelvservice", " ") == "running";
    const auto asked = take("type: ");
    if (decide(service, asked.has_value(), false, "a request to the log-capture service")) {
        const std::string line = format("type: %lld; pid:%d; ext:%s ", static_cast<long long>(type),
                                        pid, note.c_str());
        if (asked && *asked != line && mFaults.empty() && !mNoSpace) {
            broken("asks the log-capture service \"" + *asked + "\", not \"" + line);
        }
        expectRequest(type, pid, note);
        writeOrLog(kJournal, localTime() + "  KEL capture log\n", true);
        mCaptureState = 1;
        return;
    }
    expect("kel dont running so capture log by stuck");
    captureSelf();
    writeOrLog(kJournal, localTime() + "  USER capture log\n", true);
    mCaptureState = 2;
}

void DaemonModel::expectRequest(int64_t type, int pid, const std::string& note) {
    const std::string request = format("0xffffff06|%lld|%d|", static_cast<long long>(type), pid);
    if (mFaults.empty() && !mNoSpace) return expectCall(mRequests, request + note);
    // Which files it names may depend on what failed.
    const auto made = std::find_if(mRequests.begin(), mRequests.end(), [&](const std::string& one) {
        return startsWith(one, request);
    });
    if (made != mRequests.end()) {
        mRequests.erase(made);
    } else if (!cannotOpen("/dev/kel/requests")) {
        expectCall(mRequests, request + note);
    }
}

// In the kernel log, unless the boot before has left one there.
void DaemonModel::leaveMarker() {
    const std::string marker = "bootvigil init_monitor_thread_main create KE";
    const bool failed = mFaults.count("popen") > 0;
    if (decide(contains(mSeen.console, marker), take("BOOTVIGIL findMonitorKey return").has_value(),
               failed, "the marker of an earlier boot")) {
        return;
    }
    if (cannotOpen("/dev/kmsg") && take("BOOTVIGIL Failed to open /dev/kmsg")) return;
    expect("BOOTVIGIL writeMonitorKey key " + marker);
}

void DaemonModel::saveDeviceInfo() {
    const std::optional<std::string> text = worldFile("/proc/cmdline");
    const bool failed = take("parseCmdline open /proc/cmdline failed").has_value();
    if (decide(!text, failed, cannotOpen("/proc/cmdline"), "the failure to open /proc/cmdline")) {
        return;
    }
    const std::vector<std::string> lines = linesOf(text.value_or(""));
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const size_t at = line->find("poffsts=");
        if (at == std::string::npos) continue;
        writeOrLog(kPmic, localTime() + ": " + line->substr(at + 8, 4) + "\n", true);
        break;
    }
    if (exists(kHwInfo)) return;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        std::vector<std::string> tokens = split(*line, " ");
        std::reverse(tokens.begin(), tokens.end());
        for (const std::string& token : tokens) {
            if (contains(token, "FlashID=")) writeOrLog(kHwInfo, token + " ", true);
            if (contains(token, "mem_index=")) writeOrLog(kHwInfo, token + " ", true);
        }
    }
}

// Without the folder the compressor ends the process.
void DaemonModel::captureSelf() {
    for (const char* name :
         {"android_crash_log", "android_main_log", "android_events_log", "android_system_log",
          "android_radio_log", "sys_kernel_log", "console-ramoops-0"}) {
        const std::string path = kLogs + "/" + name + ".zs";
        if (!write(path, "")) throw Exited{2};
        expectCall(mOperations, "open " + path);
    }
    mCaptured = true;
}

// Whether a capture has left nothing in the folder; says so then.
bool DaemonModel::isMissing(const std::string& folder, const std::string& part,
                            const std::string& line) {
    const bool missing = !hasEntry(folder, part);
    if (!decide(missing, take(line).has_value(), mNoSpace, "\"" + line + "\"")) {
        ++mFoldersOpen;  // the daemon's own leak
        return false;
    }
    writeOrLog(kJournal, localTime() + "  " + line + "\n", true);
    return true;
}

void DaemonModel::followCapture() {
    if (mCaptureState == 1 &&
        isMissing(kOwnFolder, "0xffffff06", "kel dont capture log in boot vigil")) {
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
    if (keeps("init", "Init:Not found log.")) {
        notify(5, 8, 1, 100);
        if (take("init:get log.")) capture(0x60036, 0, kInitLog + ";" + healthNote());
        expectCall(mOperations, "remove " + kKeptLogs + "init");
    }
    if (keeps("kernel", "kernel:Not found log.")) {
        notify(1, 3, 1, 100);
        const std::string got = "kernel:get log: ";
        if (const auto line = take(got)) {
            const std::string path = line->substr(got.size(), line->size() - got.size() - 1);
            capture(0x60036, 0, path + ";" + healthNote());
        }
        expectCall(mOperations, "remove " + kKeptLogs + "kernel");
    }
}

bool DaemonModel::keeps(const std::string& log, const std::string& line) {
    return decide(worldFile(kKeptLogs + log).has_value(), !take(line), mCutShort,
                  "a kept " + log + " log");
}

}  // namespace lab
