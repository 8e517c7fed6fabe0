// SPDX-License-Identifier: Apache-2.0
// The world around the daemon during one boot: what changes by itself, how the platform answers the
// daemon, and what the daemon is seen to do. Runs inside the device root.

#include "lab/device/DeviceWorld.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/base/Text.h"
#include "lab/device/LibcFiles.h"
#include "report/read/Archive.h"

namespace lab {

namespace {

using How = WatchedFile::How;

std::vector<WatchedFile> watchedFiles() {
    std::vector<WatchedFile> files = {
            {kPropertyDir + "sys.bootvigil.version", "version", How::TEXT},
            {kRecord, "record", How::LINES},
            {kBackup, "backup", How::LINES},
            {kFlag, "flag", How::TEXT},
            {kReason, "reason", How::TEXT},
            {kPmic, "pmic", How::LINES},
            {kHwInfo, "hwinfo", How::TEXT},
            {kKelRequestFile, "kel", How::LINES},
            {kKernelMessages, "kmsg", How::LINES},
    };
    for (const CapturedLog& log : kCapturedLogs) {
        files.push_back({archivePath(log.archive), "captured", How::ARCHIVE, log.archive});
    }
    for (const WatchedFile& file : std::vector<WatchedFile>{
                 {kJournal, "journal", How::LINES},
                 {kHistory, "history", How::TEXT},
                 {kFailureUpload, "upload", How::TEXT, "boot_vigil"},
                 {kSuccessUpload, "upload", How::TEXT, "recovery_record"},
                 {kPropertyDir + kRebootRequest, "request", How::TEXT, "reboot"},
                 {kPropertyDir + kResetRequest, "request", How::TEXT, "reset"},
         }) {
        files.push_back(file);
    }
    return files;
}

// Changes whenever the file has been written.
std::optional<std::string> identity(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) return std::nullopt;
    return std::to_string(info.st_ino) + ":" + std::to_string(info.st_size) + ":" +
           std::to_string(info.st_mtim.tv_sec) + ":" + std::to_string(info.st_mtim.tv_nsec);
}

// The content of an ordinary file; a scenario may put a folder in its place.
std::string textOf(const std::string& path) {
    return std::filesystem::is_regular_file(path) ? readFile(path) : "";
}

std::optional<std::string> look(const WatchedFile& file) {
    if (file.how == How::ARCHIVE) return identity(file.path);
    if (!fileExists(file.path)) return std::nullopt;
    return textOf(file.path);
}

// Writes zeros until nothing more fits, byte by byte in the end.
void fillPartition(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) return;
    const std::string zeros(4096, '\0');
    for (size_t size = zeros.size(); size > 0; size /= 2) {
        while (write(fd, zeros.data(), size) == static_cast<ssize_t>(size)) {
        }
    }
    close(fd);
}

// The platform's other programs can't write to a partition that is absent or read-only either.
bool canChange(const std::string& path) {
    return !onPartition(path) || access(kPartition.c_str(), W_OK) == 0;
}

Held heldResources() {
    Held held;
    // Descriptors lie close together; a gap of some means that no more follow.
    for (int fd = 0, gap = 0; gap < 16; ++fd, ++gap) {
        struct stat info = {};
        if (fstat(fd, &info) != 0) continue;
        ++(S_ISDIR(info.st_mode) ? held.folders : held.files);
        gap = 0;
    }
    return held;
}

constexpr unsigned long kFreeBytes = 1UL << 30;  // of a partition that is no file system of its own

}  // namespace

DeviceWorld::DeviceWorld(const Scenario& device, const Boot& boot, RunLog* log, Trace& trace)
    : mBoot(boot),
      mRebootAfter(device.platform == PlatformKind::BARE ? std::optional(device.rebootAfter)
                                                         : std::nullopt),
      mOwnPartition(device.partitionSize.has_value()),
      mLog(log),
      mTrace(trace),
      mChanges(boot.changes.begin(), boot.changes.end()),
      mWatched(log != nullptr ? watchedFiles() : std::vector<WatchedFile>()) {
    for (WatchedFile& file : mWatched) file.seen = look(file);
    showProfile(0);
}

void DeviceWorld::advanceTo(int64_t target) {
    const calls::Unwatched ownWork;
    observe();
    answerRequests();
    while (!mChanges.empty() && mChanges.front().at <= target) {
        const Change change = std::move(mChanges.front());
        mChanges.pop_front();
        vtime::setNow(std::max(vtime::now(), change.at));
        try {
            apply(change);
        } catch (const std::exception& error) {
            endBroken(error.what());
        }
    }
    if (target != kNever) showProfile(target);
}

void DeviceWorld::apply(const Change& change) {
    using Kind = Change::Kind;
    const std::string number = std::to_string(change.number);
    switch (change.kind) {
        case Kind::SET:
            writeFile(kPropertyDir + change.name, change.value);
            tell("set", change.name + " " + change.value,
                 {{"name", change.name}, {"value", change.value}});
            break;
        case Kind::WRITE:
        case Kind::REMOVE:
        case Kind::FILL:
        case Kind::READ_ONLY:
            applyToFile(change);
            break;
        case Kind::CLOCK:
            requireDate(vtime::timeOfDay() + std::clamp(change.number, -kLastDate, kLastDate));
            vtime::shiftTimeOfDay(change.number);
            tell("clock", number, {{"seconds", change.number}});
            break;
        case Kind::SIGNAL:
            tell("signal", number, {{"signal", change.number}});
            raise(static_cast<int>(change.number));  // to this thread, so that it is at once
            break;
        case Kind::POWER_CYCLE:
        case Kind::PLATFORM_REBOOT:
            // The daemon is still running.
            tell("end", "cut off", {{"why", "cut off"}});
            if (change.kind == Kind::POWER_CYCLE) calls::cutPower();
            _exit(kCutOff);
        case Kind::END:
            tell("end", "still running",
                 {{"why", "still running"},
                  {"folders", heldResources().folders - mHeldFirst.value_or(Held()).folders}});
            _exit(kStillRunning);
    }
}

void DeviceWorld::applyToFile(const Change& change) {
    using Kind = Change::Kind;
    const std::string& path = change.name;
    const bool byProgram = change.kind == Kind::WRITE || change.kind == Kind::REMOVE;
    if (byProgram && !canChange(path)) return;
    const char* what = "read-only";
    if (change.kind == Kind::WRITE) {
        what = "write";
        writeFile(path, change.value);
    } else if (change.kind == Kind::REMOVE) {
        what = "remove";
        std::filesystem::remove_all(path);
    } else if (change.kind == Kind::FILL) {
        what = "fill";
        fillPartition(path);
    } else {
        if (mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
            failWithErrno("cannot make read-only", path);
        }
        calls::partitionReadOnly();
    }
    tell(what, path, {{"path", path}});
}

void DeviceWorld::tell(const char* kind, const std::string& text, const Record& fields) {
    mTrace.add(vtime::now(), TraceEvent::CHANGE, std::string(kind) + " " + text);
    if (mLog != nullptr) mLog->add(vtime::now(), kind, fields);
}

void DeviceWorld::add(Change change) {
    const auto later =
            std::upper_bound(mChanges.begin(), mChanges.end(), change,
                             [](const Change& a, const Change& b) { return a.at < b.at; });
    mChanges.insert(later, std::move(change));
}

// What the platform does about the daemon's requests, after its own delay.
void DeviceWorld::answerRequests() {
    const int64_t now = vtime::now();
    if (!mRequestSeen &&
        (fileExists(kPropertyDir + kRebootRequest) || fileExists(kPropertyDir + kResetRequest))) {
        mRequestSeen = true;
        if (mRebootAfter) {
            add({now + *mRebootAfter, Change::Kind::PLATFORM_REBOOT, "", ""});
        } else {
            calls::allWrittenOut();  // the first thing that bootvigil-act does
        }
    }
    std::string requests = textOf(kKelRequestFile);
    if (requests != mKelRequests) {
        mKelRequests = std::move(requests);
        if (mBoot.kelAnswersAfter) {
            add({now + *mBoot.kelAnswersAfter, Change::Kind::WRITE,
                 kOwnFolder + "/" + kLogServiceId, "capture\n"});
        }
    }
}

void DeviceWorld::showProfile(int64_t now) {
    const bool shown = !mBoot.profilePath.empty();
    if (mBoot.profileText) {
        if (now == 0 && shown) writeFile(mBoot.profilePath, *mBoot.profileText);
        return;
    }
    const size_t events = mBoot.profile.eventsBy(now);
    if (events == mEventsShown && now != 0) return;
    for (; mEventsShown < events; ++mEventsShown) {
        const ProfileScript::Event& event = mBoot.profile.events()[mEventsShown];
        if (mLog != nullptr) mLog->add(event.us / 1000, "event", {{"name", event.name}});
    }
    if (shown) writeFile(mBoot.profilePath, mBoot.profile.at(now));
}

void DeviceWorld::observe() {
    const calls::Unwatched ownWork;
    for (WatchedFile& file : mWatched) {
        std::optional<std::string> now = look(file);
        if (now == file.seen) continue;
        now.swap(file.seen);
        recordChange(file, now.value_or(""));
    }
}

void DeviceWorld::recordChange(const WatchedFile& file, const std::string& before) {
    Record fields = Record::object();
    if (!file.name.empty()) fields["name"] = file.name;
    if (!file.seen) {
        fields["removed"] = true;
    } else if (file.how == How::LINES) {
        return recordLines(file, before, std::move(fields));
    } else if (file.how == How::TEXT) {
        fields["text"] = *file.seen;
    } else {
        const report::ArchiveInfo info = report::inspectArchive(file.path);
        fields["bytes"] = info.content;
        fields["compressed"] = info.size;
        if (!info.error.empty()) fields["error"] = info.error;
    }
    mLog->add(vtime::now(), file.kind, fields);
}

void DeviceWorld::recordLines(const WatchedFile& file, const std::string& before, Record fields) {
    std::string text = *file.seen;
    if (startsWith(text, before)) {
        text.erase(0, before.size());
        if (text.empty()) return;  // created, and nothing written yet
    } else {
        fields["rewritten"] = true;
    }
    // A file that was emptied is one empty line.
    for (const std::string& line : text.empty() ? std::vector<std::string>(1) : linesOf(text)) {
        fields["text"] = line;
        mLog->add(vtime::now(), file.kind, fields);
    }
}

void DeviceWorld::onIdle() {
    calls::thisIsTheWorker();
    const calls::Unwatched ownWork;
    // Descriptors are given out from the lowest: as long as that is the same, none has been kept.
    const int lowest = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    close(lowest);
    siginfo_t child = {};
    const bool noZombie =
            waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0 || child.si_pid == 0;
    if (lowest == mLowestFree && noZombie) return;
    mLowestFree = lowest;

    const Held now = heldResources();
    const Held first = mHeldFirst.value_or(now);
    mHeldFirst = first;
    std::string held = "files=" + std::to_string(now.files - first.files) +
                       " folders=" + std::to_string(now.folders - first.folders) +
                       " zombies=" + (noZombie ? "0" : "1");
    if (held == mHeld) return;
    if (!mHeld.empty()) mTrace.add(vtime::now(), TraceEvent::IDLE, held);
    mHeld = std::move(held);
}

void DeviceWorld::onWake() {
    const calls::Unwatched ownWork;
    mTrace.add(vtime::now(), TraceEvent::WAKE, "");
}

void DeviceWorld::onSignal(pid_t pid, int signal) {
    const calls::Unwatched ownWork;
    observe();  // the daemon may not come to sleep again
    mTrace.add(vtime::now(), TraceEvent::SIGNAL,
               std::to_string(signal) + " " + std::to_string(pid));
    if (mLog != nullptr) mLog->add(vtime::now(), "signal", {{"signal", signal}, {"pid", pid}});
}

void DeviceWorld::onFreeSpace(const char* path, struct statfs& info) {
    if (onPartition(path) && calls::spaceLeft() >= 0) {
        info.f_bsize = 1;
        info.f_bavail = static_cast<fsblkcnt_t>(calls::spaceLeft());
    } else if (!mOwnPartition) {
        info.f_bsize = 4096;
        info.f_bavail = kFreeBytes / 4096;
    }
}

int DeviceWorld::onCancelMonitor() {
    const calls::Unwatched ownWork;
    mTrace.add(vtime::now(), TraceEvent::MONITOR, "");
    if (mLog != nullptr) mLog->add(vtime::now(), "monitor", {{"text", "cancelled"}});
    return 0;
}

}  // namespace lab
