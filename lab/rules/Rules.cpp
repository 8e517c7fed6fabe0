// SPDX-License-Identifier: Apache-2.0
// Takes a boot through the model message by message; then what must hold of it as a whole: how it
// may end, and what it may leave.

#include "lab/rules/Rules.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/DaemonModel.h"

namespace lab {

namespace {

bool isDelivery(const TraceEvent& event) {
    return event.kind == TraceEvent::LOG && startsWith(event.text.substr(2), kHandle);
}

class BootRules : DaemonModel {
public:
    explicit BootRules(const BootObservation& boot) : DaemonModel(boot) {}

    std::vector<Violation> check() {
        walk();
        mNow = mSeen.endedAt;
        checkEnd();
        mNoMemory = false;
        checkFiles();
        if (!mSeen.boot.partitionAbsent) {
            checkRecords();
            checkUploads();
            checkArchives();
        }
        return std::move(mViolations);
    }

private:
    // Message by message, of which none may come when it must not.
    void walk() {
        const auto& events = mSeen.events;
        std::vector<size_t> starts = {0};  // of what comes before the messages, and of each message
        for (size_t i = 0; i < events.size(); ++i) {
            if (isDelivery(events[i])) starts.push_back(i);
        }
        starts.push_back(events.size());
        checkWakes();
        for (size_t i = 0; i + 1 < starts.size(); ++i) {
            openMessage(starts[i], starts[i + 1]);
            try {
                i > 0 ? deliver(starts[i]) : beforeMessages();
            } catch (const MustEnd& end) {
                mMustEnd = end;
            }
            closeMessage();
            mLastEnd = mNow;
            applyChanges(INT64_MAX);
        }
    }

    // A wake-up delivers one message, at that very time.
    void checkWakes() {
        const TraceEvent* wake = nullptr;
        for (const TraceEvent& event : mSeen.events) {
            const bool wakes = event.kind == TraceEvent::WAKE;
            if (!wakes && !isDelivery(event)) continue;
            mNow = event.ms;
            if (wake != nullptr && (wakes || wake->ms != mNow)) broken("woke up without a message");
            wake = wakes ? &event : nullptr;
        }
        const bool cut = mSeen.end == End::KILLED || mSeen.end == End::CUT_OFF;
        if (wake != nullptr && !cut) broken("woke up without a message");
    }

    void deliver(size_t index) {
        const TraceEvent& event = mSeen.events[index];
        const std::string code = event.text.substr(2 + strlen(kHandle));
        const int what = static_cast<int>(strtol(code.c_str(), nullptr, 16));
        if (mMustEnd) broken("goes on where it must have ended");
        const auto next = mPending.begin();
        const bool isNext = next != mPending.end() && next->second == what;
        // The looper's list keeps a message that it lacks the memory to take out.
        const bool again = mFaults.count("malloc") > 0 && what == mLastWhat && event.ms == mLastEnd;
        if (isNext && (next->first <= event.ms || !again)) {
            checkTime(index, what, next->first);
            mPending.erase(next);
        } else if (!again) {
            broken(format("delivers message %x, which is not the next one", what));
            const auto other = std::find_if(mPending.begin(), mPending.end(),
                                            [&](const auto& one) { return one.second == what; });
            if (other != mPending.end()) mPending.erase(other);
        }
        mLastWhat = what;
        take(kHandle);
        handle(what);
    }

    // When due, or else as soon as the message before is done.
    void checkTime(size_t index, int what, int64_t due) {
        const int64_t ms = mSeen.events[index].ms;
        if (ms != std::max(due, mLastEnd)) {
            broken(format("message %x was due at %.3f s", what, static_cast<double>(due) / 1000.0));
        }
        while (index > 0 && mSeen.events[index - 1].kind == TraceEvent::FAULT) --index;
        const bool woken = index > 0 && mSeen.events[index - 1].kind == TraceEvent::WAKE;
        if (!woken && ms != mLastEnd) broken("a message comes without a wake-up");
    }

    bool anyChange(const std::function<bool(const Change&)>& matches) const {
        const auto& changes = mSeen.boot.changes;
        return std::any_of(changes.begin(), changes.end(), matches);
    }

    void checkEnd() {
        const int status = mSeen.status;
        const MustEnd due = mMustEnd.value_or(MustEnd{-1, -1});
        if (mSeen.end == End::EXITED) {
            const std::string& fault = mArchiveFault;
            const bool excuse = (due.signal == 0 && status == due.status) ||
                                (status == 2 && (fault == "open" || mNoMemory)) ||
                                (status == 3 && (fault == "close" || fault == "write")) ||
                                (status == 5 && fault == "write") ||
                                ((status == 8 || status == 1) && mNoMemory);
            if (excuse) return;
            broken(format("exits with status %d without a cause", status), Kind::CRASH);
        } else if (mSeen.end == End::KILLED) {
            const bool memory = status == SIGABRT && mNoMemory;
            if (memory || status == due.signal || status == mKilledBy) return;
            broken(format("is killed by signal %d without a cause", status), Kind::CRASH);
        } else {
            if (mSeen.end == End::CUT_OFF) checkCutOff();
            checkPending();
        }
    }

    void checkCutOff() {
        const bool cycled =
                anyChange([](const Change& one) { return one.kind == Change::Kind::POWER_CYCLE; });
        const bool asked = mRequest >= 0 && mNow >= mRequest + mSeen.device.rebootAfter;
        if (cycled || asked || mFaults.count("power-cut") > 0) return;
        broken("cut off by nobody", Kind::LIVENESS);
    }

    // Nothing that was due may still be to do.
    void checkPending() {
        if (mCutShort) return;
        if (mMustEnd) return broken("runs on after its end", Kind::LIVENESS);
        if (mPending.empty()) return broken("has not ended, with nothing to do", Kind::LIVENESS);
        for (const auto& [due, what] : mPending) {
            if (due < mNow && mLastEnd < mNow) {
                broken(format("message %x was due at %.3f s", what,
                              static_cast<double>(due) / 1000.0),
                       Kind::LIVENESS);
            }
        }
    }

    void checkFiles() {
        // The bare platform's answer; the reference platform gives its own later.
        if (mReset && mSeen.device.platform == PlatformKind::BARE) {
            applyChange({mNow, TraceEvent::CHANGE, "remove " + kData});
            addFolder(kMarkerFolder);
        }
        const bool lost = mFaults.count("power-cut") > 0 && mSeen.boot.unsynced != Unsynced::KEPT;
        for (const auto& [path, when] : mWritten) {
            if (lost && when + 30000 >= mSeen.endedAt) mUnsure.insert(path);
        }
        TextMap paths = mFiles;
        paths.insert(mSeen.filesAfter.begin(), mSeen.filesAfter.end());
        for (const auto& [path, any] : paths) {
            const bool away = mSeen.boot.partitionAbsent && onPartition(path);
            if (away || mIgnored.count(path) > 0 || startsWith(path, kInitLog) ||
                startsWith(path, kKernelLog) || endsWith(path, kArchiveSuffix) || excused(path)) {
                continue;
            }
            const auto is = lookUp(mSeen.filesAfter, path);
            const auto should = lookUp(mFiles, path);
            if (!should) {
                broken(path + " must not be there");
            } else if (!is) {
                broken(path + " is missing");
            } else if (*is != *should) {
                broken(path + " holds \"" + *is + "\", not \"" + *should + "\"");
            }
        }
    }

    // Even where something failed, a line is an earlier one or a new one, and whole; the last may
    // be cut. What was cut in an earlier boot may have been written on.
    void checkRecords() {
        const auto after = lookUp(mSeen.filesAfter, kRecord);
        if (!after || mIgnored.count(kRecord) > 0) return;
        const std::string old = lookUp(mSeen.filesBefore, kRecord).value_or("");
        const std::string cut = old.substr(old.rfind('\n') + 1);
        // The world may have written it too.
        const std::vector<std::string> allowed =
                linesOf(old + "\n" + content(kRecord) + "\n" + mRecordLines);
        const std::vector<std::string> lines = linesOf(*after);
        for (const std::string& line : lines) {
            const bool last = &line == &lines.back();
            const bool explained =
                    std::any_of(allowed.begin(), allowed.end(), [&](const std::string& one) {
                        return line == one || line == cut + one ||
                               (last && (startsWith(one, line) || startsWith(cut + one, line)));
                    });
            if (!explained) broken(kRecord + " holds a line of nobody: " + line);
        }
    }

    // What the uploader has not taken stays as it is, whatever failed.
    void checkUploads() {
        for (const std::string& path : {kFailureUpload, kSuccessUpload}) {
            const bool worlds = anyChange([&](const Change& one) {
                return startsWith(path, one.name) && !one.name.empty();
            });
            const auto before = lookUp(mSeen.filesBefore, path);
            if (before && !worlds && lookUp(mSeen.filesAfter, path) != before) {
                broken(path + " was changed before it was collected");
            }
        }
    }

    // Each holds its own log, of which only the main one goes on.
    void checkArchives() {
        if (!mCaptured || mSeen.archives.empty() || !mFaults.empty() || mNoSpace) return;
        for (const auto& [name, buffer] : kCapturedLogs) {
            const auto archive = lookUp(mSeen.archives, archivePath(name));
            const auto log = lookUp(mSeen.logBuffers, buffer);
            if (!archive || !log) continue;
            const bool main = kLogBuffers + buffer == kMainLogBuffer;
            const bool same =
                    main ? startsWith(*log, *archive) && !archive->empty() : *log == *archive;
            if (!same) broken(name + " does not hold the " + buffer + " log");
        }
    }

    int64_t mLastEnd = 0;  // of a message
    int mLastWhat = 0;
    std::optional<MustEnd> mMustEnd;  // since it was due
};

}  // namespace

std::vector<Violation> checkRules(const BootObservation& boot) {
    return BootRules(boot).check();
}

}  // namespace lab
