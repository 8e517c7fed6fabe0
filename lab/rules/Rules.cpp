// SPDX-License-Identifier: Apache-2.0
// Goes through a boot message by message, and looks at how it ended and what it left.

#include "lab/rules/Rules.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/DaemonModel.h"

namespace lab {

namespace {

bool isDelivery(const TraceEvent& event) {
    return event.kind == TraceEvent::LOG && startsWith(event.text.substr(2), kHandle);
}

// One boot against the model.
class BootCheck : DaemonModel {
public:
    BootCheck(const BootObservation& boot, Books& books) : DaemonModel(boot, books) {}

    std::vector<Violation> run();

private:
    void checkWakes();
    void deliver(size_t index);
    void checkEnd();
    void checkStatus();
    void checkSignal();
    void checkPending();
    void checkFiles();
    void checkRecords();
    void checkUploads();
    void checkArchives();
    void closeBooks();

    int64_t mLastEnd = 0;  // of a message
    int mLastWhat = 0;
    std::optional<int> mExpectedExit;
    bool mAborts = false;
};

std::vector<Violation> BootCheck::run() {
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
        } catch (const Aborted&) {
            mAborts = true;
        } catch (const Exited& exited) {
            mExpectedExit = exited.status;
        }
        closeMessage();
        mLastEnd = mNow;
        applyChanges(INT64_MAX);
    }
    checkEnd();
    checkFiles();
    closeBooks();
    return std::move(mViolations);
}

// A wake-up delivers one message, at that very time.
void BootCheck::checkWakes() {
    const TraceEvent* wake = nullptr;
    for (const TraceEvent& event : mSeen.events) {
        mNow = event.ms;
        if (event.kind == TraceEvent::WAKE) {
            if (wake != nullptr) broken("woke up twice for one message");
            wake = &event;
        } else if (wake != nullptr && isDelivery(event)) {
            if (wake->ms != event.ms) broken("a message comes late after a wake-up");
            wake = nullptr;
        }
    }
    const bool cut = mSeen.end == End::KILLED || mSeen.end == End::CUT_OFF;
    if (wake != nullptr && !cut) broken("woke up without a message");
}

void BootCheck::deliver(size_t index) {
    const TraceEvent& event = mSeen.events[index];
    const int what =
            static_cast<int>(strtol(event.text.c_str() + 2 + strlen(kHandle), nullptr, 16));
    if (mExpectedExit || mAborts) broken("goes on where it must have ended");
    const auto next =
            std::min_element(mPending.begin(), mPending.end(),
                             [](const Pending& a, const Pending& b) { return a.due < b.due; });
    const bool due = next != mPending.end() && next->what == what && next->due <= event.ms;
    if (!due && mNoMemory && what == mLastWhat && event.ms == mLastEnd) {
        // The looper's list keeps a message that it lacks the memory to take out.
    } else if (next == mPending.end() || next->what != what) {
        broken(format("delivers message %x, which is not the next one", what));
        const auto other = std::find_if(mPending.begin(), mPending.end(),
                                        [&](const Pending& one) { return one.what == what; });
        if (other != mPending.end()) mPending.erase(other);
    } else {
        if (event.ms != std::max(next->due, mLastEnd)) {
            broken(format("message %x was due at %.3f s", what,
                          static_cast<double>(next->due) / 1000.0));
        }
        size_t before = index;
        while (before > 0 && mSeen.events[before - 1].kind == TraceEvent::FAULT) --before;
        const bool woken = before > 0 && mSeen.events[before - 1].kind == TraceEvent::WAKE;
        if (!woken && event.ms != mLastEnd) broken("a message comes without a wake-up");
        mPending.erase(next);
    }
    mLastWhat = what;
    take(kHandle);
    handle(what);
}

void BootCheck::checkEnd() {
    mNow = mSeen.endedAt;
    if (mSeen.end == End::EXITED) return checkStatus();
    if (mSeen.end == End::KILLED) return checkSignal();
    if (mSeen.end == End::CUT_OFF) {
        const auto& changes = mSeen.boot.changes;
        const bool cycled = std::any_of(changes.begin(), changes.end(), [](const Change& one) {
            return one.kind == Change::Kind::POWER_CYCLE;
        });
        const bool asked = mRequest >= 0 && mNow >= mRequest + mSeen.device.rebootAfter;
        if (!cycled && !asked && mFaults.count("power-cut") == 0) {
            broken("cut off by nobody", Kind::LIVENESS);
        }
    }
    checkPending();
}

// Nothing that was due may still be to do.
void BootCheck::checkPending() {
    if (mCutShort) return;
    if (mExpectedExit || mAborts) return broken("runs on after its end", Kind::LIVENESS);
    if (mPending.empty()) return broken("nothing pending, and it has not ended", Kind::LIVENESS);
    for (const Pending& one : mPending) {
        if (one.due < mNow && mLastEnd < mNow) {
            broken(format("message %x was due at %.3f s", one.what,
                          static_cast<double>(one.due) / 1000.0),
                   Kind::LIVENESS);
        }
    }
}

void BootCheck::checkStatus() {
    const int status = mSeen.status;
    if (mExpectedExit == status) return;
    if (status == 0) return broken("exits although messages are pending", Kind::CRASH);
    const bool excuse = (status == 2 && (mArchiveFault == "open" || mNoMemory)) ||
                        (status == 3 && (mArchiveFault == "close" || mArchiveFault == "write")) ||
                        (status == 5 && mArchiveFault == "write") ||
                        ((status == 8 || status == 1) && mNoMemory);
    if (!excuse) broken(format("exits with status %d without a cause", status), Kind::CRASH);
}

void BootCheck::checkSignal() {
    const int number = mSeen.status;
    const bool excuse = (number == SIGABRT && ((mAborts && !mQuits) || mNoMemory)) ||
                        (number == SIGQUIT && mQuits) || number == mKilledBy;
    if (!excuse) broken(format("is killed by signal %d without a cause", number), Kind::CRASH);
}

void BootCheck::checkFiles() {
    if (mReset) applyChange({mNow, TraceEvent::CHANGE, "remove /data"});  // the platform's answer
    const bool lost = mFaults.count("power-cut") > 0 && mSeen.boot.unsynced != Unsynced::KEPT;
    for (const auto& [path, when] : mWritten) {
        if (lost && when + 30000 >= mSeen.endedAt) mUnsure.insert(path);
    }
    TextMap paths = mFiles;
    paths.insert(mSeen.filesAfter.begin(), mSeen.filesAfter.end());
    for (const auto& [path, any] : paths) {
        const bool away = mSeen.boot.partitionAbsent && startsWith(path, kPartition);
        if (away || mIgnored.count(path) > 0 || startsWith(path, kInitLog) ||
            startsWith(path, kKernelLog) || endsWith(path, ".zs") || excused(path)) {
            continue;
        }
        const auto is = mSeen.filesAfter.find(path);
        const auto should = mFiles.find(path);
        if (should == mFiles.end()) {
            broken(path + " must not be there");
        } else if (is == mSeen.filesAfter.end()) {
            broken(path + " is missing");
        } else if (is->second != should->second) {
            broken(path + " holds \"" + is->second + "\", not \"" + should->second + "\"");
        }
    }
    if (mSeen.boot.partitionAbsent) return;
    checkRecords();
    checkUploads();
    checkArchives();
}

// Even where something failed, a line is an earlier one, a new one, or one of these cut; what was
// cut in an earlier boot may have been written on.
void BootCheck::checkRecords() {
    const auto after = mSeen.filesAfter.find(kRecord);
    if (after == mSeen.filesAfter.end() || mIgnored.count(kRecord) > 0) return;
    const auto before = mSeen.filesBefore.find(kRecord);
    const std::string old = before == mSeen.filesBefore.end() ? "" : before->second;
    const std::string cut = old.substr(old.rfind('\n') + 1);
    // The world may have written it too.
    const std::vector<std::string> allowed =
            linesOf(old + "\n" + content(kRecord) + "\n" + mRecordLines);
    for (const std::string& line : linesOf(after->second)) {
        const bool explained =
                std::any_of(allowed.begin(), allowed.end(), [&](const std::string& one) {
                    return startsWith(one, line) || startsWith(cut + one, line);
                });
        if (!explained) broken(kRecord + " holds a line of nobody: " + line);
    }
}

// What the uploader has not taken stays as it is, whatever failed.
void BootCheck::checkUploads() {
    const auto& changes = mSeen.boot.changes;
    for (const std::string& path : {kFailureUpload, kSuccessUpload}) {
        const auto before = mSeen.filesBefore.find(path);
        const bool worlds = std::any_of(changes.begin(), changes.end(), [&](const Change& one) {
            return startsWith(path, one.name) && !one.name.empty();
        });
        if (before == mSeen.filesBefore.end() || worlds) continue;
        const auto after = mSeen.filesAfter.find(path);
        if (after == mSeen.filesAfter.end() || after->second != before->second) {
            broken(path + " was changed before it was collected");
        }
    }
}

// Each holds its own log, of which only the main one goes on.
void BootCheck::checkArchives() {
    static const TextMap kBuffers = {{"android_crash_log", "crash"},
                                     {"android_main_log", "main"},
                                     {"android_events_log", "events"},
                                     {"android_system_log", "system"},
                                     {"android_radio_log", "radio"},
                                     {"sys_kernel_log", "kernel"}};
    if (!mCaptured || mSeen.archives.empty() || !mFaults.empty() || mNoSpace) return;
    for (const auto& [name, buffer] : kBuffers) {
        const auto archive = mSeen.archives.find(kLogs + "/" + name + ".zs");
        const auto log = mSeen.logBuffers.find(buffer);
        if (archive == mSeen.archives.end() || log == mSeen.logBuffers.end()) continue;
        const bool same = buffer == "main" ? startsWith(log->second, archive->second) &&
                                                     !archive->second.empty()
                                           : log->second == archive->second;
        if (!same) broken(archive->first + " does not hold the " + buffer + " log");
    }
}

void BootCheck::closeBooks() {
    mBooks.firstBoot = false;
    if (mReset) mBooks.folders.insert("/data/vela_dfr");
    mBooks.folders.insert(mAway.begin(), mAway.end());
    // Whatever ended the process in the middle of a submission left the failure flagged.
    if (!mFaults.empty() || mSeen.end == End::CUT_OFF || mAborts) mBooks.submitted.clear();
}

}  // namespace

std::vector<Violation> Rules::check(const BootObservation& boot) {
    return BootCheck(boot, mBooks).run();
}

}  // namespace lab
