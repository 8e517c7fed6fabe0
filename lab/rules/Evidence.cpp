// SPDX-License-Identifier: Apache-2.0
// What was seen of one message of a boot, what excuses it, and the objections to it.

#include "lab/rules/Evidence.h"

#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

// Starts of log lines that only a rule may bring about.
const std::vector<std::string> kNeedARule = {"errNotify",
                                             "checkReason Reason",
                                             "first timer",
                                             "handleMessage boot",
                                             "boot finished",
                                             "handleMessage is",
                                             "enter submit",
                                             "try to ",
                                             "waite user",
                                             "saveRecoveryFlag i",
                                             "Have ",
                                             "isRecoverySuccess mode",
                                             "type: ",
                                             "clean Recovery",
                                             "kel dont ",
                                             "user capture log fail",
                                             "bootvigil exit",
                                             "BOOTVIGIL create",
                                             "BOOTVIGIL writeM",
                                             "BOOTVIGIL velafs AvailableSize n"};

}  // namespace

void Evidence::broken(const std::string& what, Kind kind) {
    std::string text = format("%.3f s: ", static_cast<double>(mNow) / 1000.0);
    for (const char c : what) {
        text += c >= ' ' && c <= '~' ? std::string(1, c)
                                     : format("\\x%02X", static_cast<unsigned char>(c));
    }
    mViolations.push_back({kind, text});
}

void Evidence::openMessage(size_t from, size_t to) {
    mFrom = from;
    mTo = to;
    mLogs.clear();
    mSets.clear();
    mSignals.clear();
    mRequests.clear();
    mMonitor.clear();
    mOperations.clear();
    mNow = from < to ? mSeen.events[from].ms : 0;
    for (size_t i = from; i < to; ++i) {
        const TraceEvent& event = mSeen.events[i];
        std::string text = event.text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        if (event.kind == TraceEvent::LOG) mLogs.push_back(text.substr(2));
        if (event.kind == TraceEvent::PROPERTY) mSets.insert(text);
        if (event.kind == TraceEvent::SIGNAL) mSignals.insert(text);
        if (event.kind == TraceEvent::REQUEST) mRequests.insert(text);
        if (event.kind == TraceEvent::MONITOR) mMonitor.insert("the boot is the daemon's");
        if (event.kind == TraceEvent::FAULT) checkFault(text);
        if (event.kind == TraceEvent::OPERATION) {
            checkOperation(text, i > 0 && mSeen.events[i - 1].kind == TraceEvent::FAULT);
        }
        if (event.kind == TraceEvent::IDLE) checkIdle(text);
    }
    const bool died = mSeen.end == End::KILLED || (mSeen.end == End::EXITED && mSeen.status != 0);
    const bool cutOff = mSeen.end == End::CUT_OFF && mSeen.endedAt <= mNow + 2000;
    mCutShort = to == mSeen.events.size() && (died || cutOff || mFaults.count("power-cut") > 0);
}

void Evidence::closeMessage() {
    for (const std::string& name : mSets) broken("sets " + name + " against the rules");
    for (const std::string& text : mSignals) broken("sends signal " + text + " against the rules");
    for (const std::string& text : mRequests) broken("asks for " + text + " against the rules");
    if (!mMonitor.empty()) broken("stops the kernel's monitor against the rules");
    if (mNoMemory) return;
    for (const std::string& line : mLogs) {
        for (const std::string& start : kNeedARule) {
            if (startsWith(line, start)) broken("says \"" + line + "\" against the rules");
        }
    }
}

std::optional<std::string> Evidence::take(const std::string& start) {
    for (std::string& line : mLogs) {
        if (!line.empty() && startsWith(line, start)) return std::exchange(line, "");
    }
    return std::nullopt;
}

std::optional<std::string> Evidence::expect(const std::string& start) {
    std::optional<std::string> line = take(start);
    if (!line && !mCutShort && !mNoMemory) broken("does not say \"" + start + "\", as it must");
    return line;
}

void Evidence::expectCall(std::multiset<std::string>& calls, const std::string& call) {
    const auto found = calls.find(call);
    if (found != calls.end()) {
        calls.erase(found);
    } else if (!mCutShort && !mNoMemory) {
        broken("does not do what it must: " + call);
    }
}

bool Evidence::decide(bool predicted, bool observed, bool excused, const std::string& what) {
    if (predicted != observed && !excused && !mNoMemory && !(mCutShort && !observed)) {
        broken(what + (observed ? ", which must not be" : " is missing"));
    }
    return observed || (mCutShort && predicted);
}

void Evidence::checkFault(const std::string& fault) {
    mFaults.insert(fault);
    if (fault == "malloc") mNoMemory = true;
    if (fault == "space") mNoSpace = true;
    const std::string open = "open ";
    if (startsWith(fault, open)) mUnopened.insert(fault.substr(open.size()));
}

// "17 write /path", maybe with " failed": only on the named paths.
void Evidence::checkOperation(const std::string& operation, bool injected) {
    const size_t verb = operation.find(' ') + 1;
    const size_t from = operation.find(" /") + 1;
    std::string path = operation.substr(from);
    const std::string failed = " failed";
    const bool archive = startsWith(path, kLogs + "/") && contains(path, ".zs");
    if (endsWith(path, failed)) {
        path.resize(path.size() - failed.size());
        // Without a fault it must be one that the model finds too.
        if (injected || mNoSpace || mSeen.device.partitionSize) {
            mUnsure.insert(path);
            if (archive) mArchiveFault = operation.substr(verb, from - verb - 1);
        }
    }
    mOperations.insert(operation.substr(verb, from - verb) + path);
    static const std::set<std::string> named = {kOwnFolder,     kRecordFolder,  kRecord,
                                                kBackup,        kFlag,          kUploads,
                                                kReason,        kFailureUpload, kHistory,
                                                kSuccessUpload, kPmic,          kHwInfo,
                                                kJournal,       kMarker,        kInitLog,
                                                kLogs};
    if (named.count(path) == 0 && !archive && !startsWith(path, kKernelLog) &&
        !startsWith(path, kKeptLogs)) {
        broken("touches " + path + ", which no rule names");
    }
}

// The folders are counted when the message is done. Where memory is short, what is open may stay
// so.
void Evidence::checkIdle(const std::string& held) {
    int files = 0;
    int folders = 0;
    int zombies = 0;
    sscanf(held.c_str(), "files=%d folders=%d zombies=%d", &files, &folders, &zombies);
    if (!mNoMemory && (files > 0 || zombies > 0 || folders > mFoldersOpen + 1)) {
        broken("leaves open or unreaped: " + held);
    }
}

}  // namespace lab
