// SPDX-License-Identifier: Apache-2.0
// What was seen of one message of a boot, what excuses it, and the objections to it.
//
// The rules are in layers, each of which knows those below it: Evidence; DeviceModel, the device as
// the rules know it; DaemonModel, what each message must do; and Rules.cpp, which takes a boot
// through the model and says what must hold of it as a whole.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/rules/Observation.h"

namespace lab {

constexpr char kHandle[] = "handleMessage 2 what = ";  // the daemon got a message

class Evidence {
protected:
    using Kind = Violation::Kind;
    using End = BootObservation::End;

    explicit Evidence(const BootObservation& boot) : mSeen(boot) {}

    // The events from `from` until before `to` are those of one message.
    void openMessage(size_t from, size_t to);
    // Objects to what no rule has taken.
    void closeMessage();

    void broken(const std::string& what, Kind kind = Kind::RULE);
    // What was seen goes on; it must be what the rules say unless something excuses it.
    bool decide(bool predicted, bool observed, bool excused, const std::string& what);
    // Takes the first log line that starts so.
    std::optional<std::string> take(const std::string& start);
    // The same where there must be one.
    std::optional<std::string> expect(const std::string& start);
    // The same where the rules say whether there must be one.
    bool says(const std::string& start, bool predicted, bool excused = false);
    // Takes an act that must have been seen.
    void expectAct(TraceEvent::Kind kind, const std::string& text, bool excused = false);

    const BootObservation& mSeen;
    std::vector<Violation> mViolations;

    // The message at hand and what was seen of it.
    int64_t mNow = 0;
    size_t mFrom = 0, mTo = 0;
    std::vector<std::string> mLogs;  // without priority; taken ones are empty
    // Operations are without number and outcome.
    std::map<TraceEvent::Kind, std::multiset<std::string>> mActs;
    bool mCutShort = false;  // the process ended in the middle of it

    // What excuses deviations.
    bool mNoSpace = false;   // or no writing at all
    bool mNoMemory = false;  // for something in this message
    bool cannotOpen(const std::string& path) const {
        return mUnopened.count(path) > 0 || mNoMemory;
    }
    int mFoldersOpen = 0;  // that the rules leave open
    std::set<std::string> mFaults;
    std::set<std::string> mUnsure;    // files whose content is not known
    std::set<std::string> mUnopened;  // files that an injected fault kept shut
    std::string mArchiveFault;        // the operation on an archive that failed last

private:
    void checkOperation(std::string operation, bool injected);
    void checkIdle(const std::string& held);
};

}  // namespace lab
