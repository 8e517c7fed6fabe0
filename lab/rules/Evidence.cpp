// SPDX-License-Identifier: Apache-2.0
// What was seen of one message of a boot, what excuses it, and the objections to it.

#include "lab/rules/Evidence.h"

#include <stdio.h>

#include <regex>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

// Starts of log lines that must not be there unless a rule takes them.
const std::regex kNeedsARule(
        "errNotify|checkReason Reason|first timer|handleMessage (boot|is)|boot finished|"
        "enter submit|try to |waite user|saveRecoveryFlag i|Have |isRecoverySuccess|type: |"
        "clean Recovery|kel dont |user capture|bootvigil exit|BOOTVIGIL (create|writeM|velafs)");

// How an objection names an act of each kind.
const std::map<TraceEvent::Kind, std::string> kVerbs = {{TraceEvent::PROPERTY, "set "},
                                                        {TraceEvent::REQUEST, "ask for "},
                                                        {TraceEvent::MONITOR, "stop the monitor"},
                                                        {TraceEvent::SIGNAL, "send signal "},
                                                        {TraceEvent::OPERATION, ""}};

}  // namespace

void Evidence::broken(const std::string& what, Kind kind) {
    std::string text = format("%.3f s: ", static_cast<double>(mNow) / 1000.0);
    for (const unsigned char c : what) text += format(c < ' ' || c > '~' ? "\\x%02X" : "%c", c);
    mViolations.push_back({kind, text});
}

void Evidence::openMessage(size_t from, size_t to) {
    mFrom = from;
    mTo = to;
    mLogs.clear();
    mActs.clear();
    mNoMemory = false;
    mNow = from < to ? mSeen.events[from].ms : 0;
    for (size_t i = from; i < to; ++i) {
        const TraceEvent& event = mSeen.events[i];
        std::string text = event.text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        if (event.kind == TraceEvent::LOG) {
            mLogs.push_back(text.substr(2));
        } else if (event.kind == TraceEvent::FAULT) {
            mFaults.insert(text);
            mNoMemory |= text == "malloc";
            mNoSpace |= text == "space";
            if (const auto path = after(text, "open")) mUnopened.insert(*path);
        } else if (event.kind == TraceEvent::IDLE) {
            checkIdle(text);
        } else if (event.kind == TraceEvent::OPERATION) {
            checkOperation(text, i > 0 && mSeen.events[i - 1].kind == TraceEvent::FAULT);
        } else if (kVerbs.count(event.kind) > 0) {
            mActs[event.kind].insert(text);
        }
    }
    const bool died = mSeen.end == End::KILLED || (mSeen.end == End::EXITED && mSeen.status != 0);
    const bool cutOff = mSeen.end == End::CUT_OFF && mSeen.endedAt <= mNow + 2000;
    mCutShort = to == mSeen.events.size() && (died || cutOff || mFaults.count("power-cut") > 0);
}

void Evidence::closeMessage() {
    mActs.erase(TraceEvent::OPERATION);
    for (const auto& [kind, texts] : mActs) {
        for (const std::string& text : texts) broken("must not " + kVerbs.at(kind) + text);
    }
    for (const std::string& line : mLogs) {
        if (std::regex_search(line, kNeedsARule, std::regex_constants::match_continuous)) {
            broken("must not say \"" + line + "\"");
        }
    }
}

bool Evidence::decide(bool predicted, bool observed, bool excused, const std::string& what) {
    if (predicted != observed && !excused && !(mCutShort && !observed)) {
        broken(what + (observed ? ", which must not be" : " is missing"));
    }
    return observed || (mCutShort && predicted);
}

std::optional<std::string> Evidence::take(const std::string& start) {
    for (std::string& line : mLogs) {
        if (!line.empty() && startsWith(line, start)) return std::exchange(line, "");
    }
    return std::nullopt;
}

std::optional<std::string> Evidence::expect(const std::string& start) {
    std::optional<std::string> line = take(start);
    decide(true, line.has_value(), false, "\"" + start + "\"");
    return line;
}

bool Evidence::says(const std::string& start, bool predicted, bool excused) {
    return decide(predicted, take(start).has_value(), excused, "\"" + start + "\"");
}

void Evidence::expectAct(TraceEvent::Kind kind, const std::string& text, bool excused) {
    const auto found = mActs[kind].find(text);
    if (found != mActs[kind].end()) {
        mActs[kind].erase(found);
    } else if (!mCutShort && !excused) {
        broken("must " + kVerbs.at(kind) + text + ", and does not");
    }
}

// "17 write /path", maybe with " failed": only on the named paths.
void Evidence::checkOperation(std::string operation, bool injected) {
    static const std::set<std::string> named = {kOwnFolder,     kRecordFolder,  kRecord,
                                                kBackup,        kFlag,          kUploads,
                                                kReason,        kFailureUpload, kHistory,
                                                kSuccessUpload, kPmic,          kHwInfo,
                                                kJournal,       kMarker,        kInitLog,
                                                kLogs};
    operation.erase(0, operation.find(' ') + 1);
    const std::string failed = " failed";
    const bool fails = endsWith(operation, failed);
    if (fails) operation.resize(operation.size() - failed.size());
    mActs[TraceEvent::OPERATION].insert(operation);
    const size_t blank = operation.find(" /");
    const std::string path = operation.substr(blank + 1);
    const bool archive = startsWith(path, kLogs + "/") && contains(path, kArchiveSuffix);
    // Without a fault it must be one that the model finds too.
    if (fails && (injected || mNoSpace || mSeen.device.partitionSize)) {
        mUnsure.insert(path);
        if (archive) mArchiveFault = operation.substr(0, blank);
    }
    if (named.count(path) == 0 && !archive && !startsWith(path, kKernelLog) &&
        !startsWith(path, kKeptLogs)) {
        broken("touches " + path + ", which no rule names");
    }
}

// The folders are counted when the message is done.
void Evidence::checkIdle(const std::string& held) {
    int files = 0;
    int folders = 0;
    int zombies = 0;
    sscanf(held.c_str(), "files=%d folders=%d zombies=%d", &files, &folders, &zombies);
    if (files > 0 || zombies > 0 || folders > mFoldersOpen + 1) {
        broken("leaves open or unreaped: " + held);
    }
}

}  // namespace lab
