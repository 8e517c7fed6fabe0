// SPDX-License-Identifier: Apache-2.0
// What was seen of one message of a boot, what excuses it, and the objections to it.
//
// The rules are in layers, each of which knows those below it: Evidence; DeviceModel, the device as
// the rules know it; DaemonModel, what each message must do; and Rules.cpp, which goes through a
// boot message by message and looks at its end.

#pragma once

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
    // What no rule has taken must not have been.
    void closeMessage();

    void broken(const std::string& what, Kind kind = Kind::RULE);
    // Takes the first log line that starts so.
    std::optional<std::string> take(const std::string& start);
    // The same where there must be one.
    std::optional<std::string> expect(const std::string& start);
    // Takes a call that must have been seen.
    void expectCall(std::multiset<std::string>& calls, const std::string& call);
    // What was seen goes on; it must be what the rules say unless something excuses it.
    bool decide(bool predicted, bool observed, bool excused, const std::string& what);

    const BootObservation& mSeen;
    std::vector<Violation> mViolations;

    // The message at hand and what was seen of it.
    int64_t mNow = 0;
    size_t mFrom = 0, mTo = 0;
    std::vector<std::string> mLogs;  // without priority; taken ones are empty
    std::multiset<std::string> mSets, mSignals, mRequests, mMonitor;
    std::multiset<std::string> mOperations;  // without number and outcome
    bool mCutShort = false;                  // the process ended in the middle of it

    // What excuses deviations.
    bool mNoSpace = false;  // or no writing at all
    bool mNoMemory = false;
    bool cannotOpen(const std::string& path) const {
        return mUnopened.count(path) > 0 || mNoMemory;
    }
    int mFoldersOpen = 0;  // that the rules leave open
    std::set<std::string> mFaults;
    std::set<std::string> mUnsure;    // files whose content is not known
    std::set<std::string> mUnopened;  // files that an injected fault kept shut
    std::string mArchiveFault;        // the operation on an archive that failed last

private:
    void checkFault(const std::string& fault);
    void checkOperation(const std::string& operation, bool injected);
    void checkIdle(const std::string& held);
};

}  // namespace lab
