// SPDX-License-Identifier: Apache-2.0
// What a boot came to, in one line.

#include "lab/run/Outcome.h"

#include <stdlib.h>

#include <algorithm>
#include <optional>
#include <set>

#include <nlohmann/json.hpp>

#include "bootvigil/FailureCodes.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/run/CodeWords.h"
#include "report/read/DaemonLog.h"
#include "report/read/ErrorNumber.h"
#include "report/read/Recovery.h"

namespace lab {

namespace {

struct Words {
    const char* start;  // of a log line
    const char* words;
};

constexpr Words kNoRecord[] = {
        {"BOOTVIGIL velafs not exist", "there is no partition"},
        {"BOOTVIGIL velafs AvailableSize not enough", "the partition is full"},
        {"BOOTVIGIL create ", "its folder can't be made"},
        {"Save file path /velafs/SDD/bfRecord.txt fail", "its file can't be written"},
};

constexpr Words kDisabled[] = {
        {"recovery is disable for rescue.", "recovery is left to the platform's rescue"},
        {"recovery is disable in config.", "recovery is switched off by the product"},
        {"recovery disable info BfRecover=NO", "recovery is switched off from outside"},
};

// What log lines say that is news whenever it comes.
constexpr Words kNews[] = {
        {"user capture log fail in boot vigil", "the captured log is gone"},
        {"BOOTVIGIL writeMonitorKey", "no logs, but a marker in the kernel log"},
        {"not found recovery list", "no recovery: no list is for this reason"},
        {"waite user reboot", "waits for the user to reboot"},
        {"not set recovery log", "the history can't be written"},
};

constexpr int kStill = 3;  // polls in a row after which a process counts as stuck

// Where a failure was, around its time.
constexpr struct {
    int type;
    int phase;
    const char* before;
    const char* after;
} kFailures[] = {
        {TYPE_STALL, PHASE_BEFORE_SYSTEM_SERVER, "stalled", ", before the system server"},
        {TYPE_STALL, PHASE_SYSTEM_SERVER, "stalled", ""},
        {TYPE_STALL, PHASE_OOBE, "stalled in the set-up wizard", ""},
        {TYPE_STALL, PHASE_KEY_LOCK, "stalled in the set-up wizard", ""},
        {TYPE_STALL, PHASE_INIT, "init log of a failed boot found", ""},
        {TYPE_KERNEL, PHASE_KERNEL, "kernel log of a failed boot found", ""},
        {TYPE_SYSTEM, PHASE_BEFORE_SYSTEM_SERVER, "restart loop found", ""},
        {TYPE_SYSTEM, PHASE_SYSTEM_SERVER, "system error declared, seen", ""},
};

template <size_t count>
const char* wordsFor(const Words (&table)[count], const std::string& line) {
    for (const Words& one : table) {
        if (startsWith(line, one.start)) return one.words;
    }
    return nullptr;
}

std::string textOf(const Record& record, const char* name) {
    const auto found = record.find(name);
    return found != record.end() && found->is_string() ? found->get<std::string>() : "";
}

// "1113-system_server  | AMS:systemReady"
std::string processOf(const std::string& key) {
    const size_t dash = key.find('-');
    const size_t bar = key.find('|');
    if (dash == std::string::npos || bar == std::string::npos || dash > bar) return "a process";
    return key.substr(dash + 1, key.find_last_not_of(" |", bar) - dash);
}

// Follows a boot, record by record.
class Outcome {
public:
    void take(const Record& record) {
        mTime = formatSeconds(record["t"]) + " s";
        const std::string kind = record["kind"];
        if (kind == "boot" && record.contains("history")) mHistory = record["history"];
        if (kind == "log") takeLine(textOf(record, "text"));
        if (kind == "read-only") mReadOnly = true;
        if (kind == "version") mNormal = true;
        if (kind == "record" && mFailure) takeRecord(textOf(record, "text"));
        static const std::set<std::string> afterRecord = {"captured", "kel",     "kmsg",
                                                          "history",  "request", "signal"};
        if (afterRecord.count(kind) != 0) closeFailure();
        if (kind == "captured" && !record.contains("removed")) {
            mKept = true;
            ++mLogs;
            const std::string error = textOf(record, "error");
            if (!error.empty() && error != "empty file") ++mDamagedLogs;
        }
        if (kind == "kel") addRequest();
        if (kind == "write" && contains(textOf(record, "path"), kLogServiceId)) answerRequest();
        if (kind == "flag" && record.contains("removed") && !mSubmitting) {
            add("the record is taken back");
        }
        if (kind == "upload") takeUpload(record);
        if (kind == "history") takeHistory(record);
        if (kind == "request") {
            addRecovery(textOf(record, "name") == "reset" ? "asks for a data reset"
                                                          : "asks for a reboot");
        }
        if (kind == "act") takeAnswer(textOf(record, "text"));
        if (kind == "signal" && record.contains("pid")) mOwnSignal = record["pid"] == 0;
        if (kind == "killed" || kind == "exit" || kind == "end") takeEnd(record);
    }

    std::string text() {
        addLogs();
        std::string all;
        for (const std::string& part : mParts) all += (all.empty() ? "" : "; ") + part;
        return all;
    }

private:
    void add(const std::string& part) {
        addSlowness(mParts.size());
        addLogs();
        mParts.push_back(part);
    }

    void insert(size_t place, const std::string& part) {
        mParts.insert(mParts.begin() + static_cast<std::ptrdiff_t>(place), part);
        for (size_t& asked : mAsked) asked += asked >= place ? 1 : 0;
    }

    // The service captures later, or never.
    void addRequest() {
        mKept = true;
        add("the log-capture service is asked and does not answer");
        mAsked.push_back(mParts.size() - 1);
    }

    void answerRequest() {
        if (mAsked.empty()) return;
        mParts[mAsked.front()] = "the log-capture service captures at " + mTime;
        mAsked.erase(mAsked.begin());
    }

    void addRecovery(const std::string& part) {
        mRecovery = true;
        add(part);
    }

    // What the reference platform makes of a request.
    void takeAnswer(const std::string& said) {
        if (said == "rebooting") add("the platform reboots at " + mTime);
        if (said == "wiping the data") add("the platform wipes the data at " + mTime);
        if (const auto refused = after(said, "refusing")) add("the platform refuses " + *refused);
    }

    void addSlowness(size_t place) {
        if (mSlow == 0) return;
        const char* why = mDexOpt                ? "slow, not stuck: in package optimisation"
                          : mLastEvent.empty()   ? "nothing to judge by: no boot profile"
                          : mSamePolls >= kStill ? "slow or stuck: the last event names no process"
                                                 : "slow, not stuck: events still come";
        insert(place, why + (mSlow == 1 ? std::string(" at 1 time-out")
                                        : " at " + std::to_string(mSlow) + " time-outs"));
        if (place <= mMessageFrom) ++mMessageFrom;
        mSlow = 0;
        mDexOpt = false;
    }

    void addLogs() {
        if (mLogs == 0) return;
        mParts.push_back(std::to_string(mLogs) + (mLogs == 1 ? " log" : " logs"));
        if (mDamagedLogs > 0) mParts.back() += ", " + std::to_string(mDamagedLogs) + " damaged";
        mLogs = mDamagedLogs = 0;
    }

    // The failure's record is due with its message.
    void closeFailure() {
        if (mFailure && !mRecorded) {
            add("no record: " +
                (mReadOnly ? std::string("the partition is read-only") : mNoRecord));
            mRecorded = true;
        }
    }

    void takeLine(const std::string& whole) {
        const std::string line = whole.substr(0, whole.find_last_not_of(" \r\n") + 1);
        if (startsWith(line, "handleMessage 2 what")) beginMessage();
        if (const auto key = after(line, "parseBootProf Last Line key")) {
            mSamePolls = *key == mLastEvent ? mSamePolls + 1 : 0;
            mLastEvent = *key;
        }
        if (const auto pid = after(line, "checkStuckPid stuck pid =")) mPid = *pid;
        if (const auto error = report::parseNotice(line)) return takeFailure(*error);
        if (startsWith(line, "checkReason Reason = 3") && mNotices == 0) {
            add("the boot animation stays, found at " + mTime + " and not recorded");
        }
        if (mFailure && !mRecorded) {
            if (const char* why = wordsFor(kNoRecord, line)) mNoRecord = why;
        }
        if (const char* why = wordsFor(kDisabled, line)) mDisabled = why;
        if (const char* news = wordsFor(kNews, line)) {
            closeFailure();
            mRecovery |= startsWith(line, "waite") || startsWith(line, "not found");
            mMarker |= startsWith(line, "BOOTVIGIL writeMonitorKey");
            add(news);
        }
        takeCourse(line);
        takeRecovery(line);
    }

    void endMessage() {
        if (mReset && !mRecovery) addRecovery("no reset, as a first boot has nothing to wipe");
        if (mRecovered && !mReported) add("the recovery worked, which is not reported");
        mRecovered = mReset = false;
    }

    void beginMessage() {
        endMessage();
        mPid.clear();
        mNotices = 0;
        mMessageFrom = mParts.size();
        mSubmitting = false;
    }

    void takeCourse(const std::string& line) {
        if (line == "Now is perform DexOpt") mDexOpt = true;
        if (startsWith(line, "handleMessage is boot timeout, boot slowly")) ++mSlow;
        if (const auto mode = after(line, "checkNormalBootMode ro.boot.mode =")) mMode = *mode;
        if (line == "enter submitInfo") mSubmitting = true;
        if (line == "Have recoveryed.") mRecovered = true;
        if (startsWith(line, "kel dont capture log")) {
            add("the service is given up on at " + mTime);
        }
        mWaited |= line == "phaseLogInfo: this is OOBE" || line == "phaseLogInfo: this is KEY lock";
        if (line != "boot finished, enter launcher.") return;
        mComplete = true;
        if (mSubmitting && !mUploaded) {
            mParts.push_back(mWaited ? "the earlier failure, at the wizard, is never uploaded"
                                     : "the earlier failure is never uploaded");
        }
        addSlowness(mMessageFrom);
        insert(mMessageFrom, "boot complete at " + mTime);
    }

    void takeRecovery(const std::string& line) {
        if (startsWith(line, "try to data reset")) mReset = true;
        if (const auto saved = after(line, "saveRecoveryFlag info =")) mSaved = *saved;
        if (line == "not found next recovery mode") {
            const bool readable = mHistory && !mHistory->empty() && (*mHistory)[0] >= '0' &&
                                  (*mHistory)[0] <= '4';
            addRecovery(mHistory && !readable ? std::string("recovery blocked: the history is ") +
                                                        (mHistory->empty() ? "empty" : "damaged")
                                              : "no recovery: the list is exhausted");
        }
        if (startsWith(line, "BOOTVIGIL wrong reason to run recovery") && !mRecovery) {
            addRecovery(!mDisabled.empty() ? mDisabled
                        : mSaved.size() > 1
                                ? "recovery does nothing: no action has mode " + mSaved.substr(1, 1)
                                : "no recovery");
        }
    }

    void takeFailure(const report::ErrorNumber& error) {
        closeFailure();
        mFailure = error;
        mRecorded = false;
        mNoRecord = "why is not in the log";
        ++mNotices;
        std::string text =
                "failure " + std::to_string(error.reason) + " reported, seen at " + mTime;
        for (const auto& [type, phase, before, after] : kFailures) {
            const bool declared =
                    error.phase == PHASE_KEY_LOCK && error.reason == REASON_AFTER_BOOT;
            if (type != error.type || phase != error.phase || declared) continue;
            text = std::string(before) + " at " + mTime + where(error) + after;
        }
        add(text);
    }

    std::string where(const report::ErrorNumber& error) const {
        const std::string missing = report::missingMilestone(error);
        if (!missing.empty()) return ", which never reaches " + missing;
        const bool stall = error.type == TYPE_STALL && (error.phase == PHASE_SYSTEM_SERVER ||
                                                        error.phase == PHASE_BEFORE_SYSTEM_SERVER);
        if (!stall) return "";
        if (mPid.empty()) return " in an unknown process";
        return " in " + processOf(mLastEvent) + " (pid " + mPid + ")";
    }

    void takeRecord(const std::string& line) {
        if (mRecorded) return;
        const bool whole = contains(line, "ERR_NUM:" + report::formatErrorNumber(*mFailure) + ";");
        if (!whole && !startsWith(line, "TIME:")) return;
        mRecorded = true;
        add(whole ? "recorded" : "its record is cut short");
    }

    // "BOOTVIGIL|0x502564|...", "BFRECOVERY|1|..."
    void takeUpload(const Record& record) {
        const std::string text = textOf(record, "text");
        const size_t bar = std::min(text.find('|'), text.size() - 1) + 1;
        const std::string field = text.substr(bar, text.find('|', bar) - bar);
        if (textOf(record, "name") == "boot_vigil") {
            mUploaded = true;
            add("leaves failure " + field + " to the uploader");
        } else {
            mReported = true;
            add("leaves the success of its " + report::modeName(atoi(field.c_str())) +
                " to the uploader");
        }
    }

    void takeHistory(const Record& record) {
        mHistory.reset();
        if (record.contains("removed")) return;
        mHistory = textOf(record, "text");
        if (mHistory->empty()) add("the history is left empty");
    }

    void takeEnd(const Record& record) {
        closeFailure();
        endMessage();
        const std::string kind = record["kind"];
        const int status = record.value(kind == "killed" ? "signal" : "status", 0);
        if (kind == "killed") {
            add("the daemon is killed at " + mTime + " by " +
                (mOwnSignal ? "its own signal to pid 0" : signalName(status)));
        } else if (kind == "exit" && status != 0) {
            const std::string cause = exitCause(status);
            add("the daemon exits with status " + std::to_string(status) +
                (cause.empty() ? "" : ": " + cause));
        } else if (kind == "end") {
            if (!mComplete && mParts.empty() && mSlow == 0) add("nothing found");
            const int folders = record.value("folders", 0);
            add(textOf(record, "why") + " at " + mTime +
                (folders > 1 ? " with " + std::to_string(folders) + " folders left open" : ""));
        } else if (!mNormal) {
            add("nothing to watch: the boot mode is " + (mMode.empty() ? "not set" : mMode));
        } else if (mFailure && !mComplete) {
            if (!mKept && !mMarker) add("no logs");
            if (!mRecovery) add("nothing is asked for");
        }
    }

    std::vector<std::string> mParts;
    std::string mTime;
    // Of the message at hand.
    std::string mPid;
    int mNotices = 0;
    size_t mMessageFrom = 0;
    bool mSubmitting = false;
    // Of the boot so far.
    std::string mLastEvent, mMode, mNoRecord, mDisabled, mSaved;
    std::vector<size_t> mAsked;  // parts that tell of a request to the service
    std::optional<std::string> mHistory;
    std::optional<report::ErrorNumber> mFailure;  // the last
    bool mRecorded = false, mRecovery = false, mReset = false, mComplete = false;
    bool mNormal = false, mReadOnly = false, mOwnSignal = false, mDexOpt = false;
    bool mUploaded = false, mWaited = false;
    bool mKept = false, mMarker = false, mRecovered = false, mReported = false;
    int mSlow = 0;       // time-outs
    int mSamePolls = 0;  // that saw the last event after the first one that did
    int mLogs = 0, mDamagedLogs = 0;
};

}  // namespace

std::string describeOutcome(const std::vector<Record>& records, int boot) {
    Outcome outcome;
    for (const Record& record : records) {
        if (record["boot"] == boot) outcome.take(record);
    }
    return outcome.text();
}

}  // namespace lab
