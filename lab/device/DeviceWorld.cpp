// SPDX-License-Identifier: Apache-2.0
// The world around the daemon during one boot: what changes by itself, how the platform answers the
// daemon, and what the daemon is seen to do. Runs inside the device root.

#include "lab/device/DeviceWorld.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/device/LibcFiles.h"
#include "report/read/Archive.h"

namespace lab {

namespace {

using How = WatchedFile::How;

constexpr const char* kKelCapture = "/velafs/boot_vigil/0xffffff06";

std::vector<WatchedFile> watchedFiles() {
    std::vector<WatchedFile> files = {
            {std::string(kPropertyDir) + "sys.bootvigil.version", "version", How::TEXT, "", ""},
            {"/velafs/SDD/bfRecord.txt", "record", How::LINES, "", ""},
            {"/velafs/SDD/bfRecord_backup.txt", "backup", How::LINES, "", ""},
            {"/velafs/SDD/bfflag.txt", "flag", How::TEXT, "", ""},
            {"/velafs/boot_vigil/reason.txt", "reason", How::TEXT, "", ""},
            {"/velafs/boot_vigil/pmic_info", "pmic", How::LINES, "", ""},
            {"/velafs/boot_vigil/mem_hwinfo", "hwinfo", How::TEXT, "", ""},
            {kKelRequestFile, "kel", How::LINES, "", ""},
            {"/dev/kmsg", "kmsg", How::TEXT, "", ""},
    };
    for (const char* name :
         {"android_crash_log", "android_main_log", "android_events_log", "android_system_log",
          "android_radio_log", "sys_kernel_log", "console-ramoops-0"}) {
        files.push_back({std::string("/velafs/boot_vigil/log/") + name + ".zs", "captured",
                         How::ARCHIVE, name, ""});
    }
    files.push_back({"/velafs/boot_vigil/log/info", "journal", How::LINES, "", ""});
    files.push_back({"/velafs/boot_vigil/recovery_flag.txt", "history", How::TEXT, "", ""});
    for (const char* name : {"boot_vigil", "recovery_record"}) {
        files.push_back(
                {std::string("/velafs/SDD/bf_upload/") + name, "upload", How::TEXT, name, ""});
    }
    files.push_back(
            {std::string(kPropertyDir) + kRebootRequest, "request", How::TEXT, "reboot", ""});
    files.push_back({std::string(kPropertyDir) + kResetRequest, "request", How::TEXT, "reset", ""});
    return files;
}

// Changes whenever the file has been written; empty when it isn't there.
std::string identity(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) return "";
    return std::to_string(info.st_ino) + ":" + std::to_string(info.st_size) + ":" +
           std::to_string(info.st_mtim.tv_sec) + ":" + std::to_string(info.st_mtim.tv_nsec);
}

// The content of an ordinary file; a scenario may put a folder in its place.
std::string textOf(const std::string& path) {
    return std::filesystem::is_regular_file(path) ? readFile(path) : "";
}

// Takes the next line off `text`.
std::string takeLine(std::string& text) {
    const size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
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
    const bool partition = path.rfind("/velafs", 0) == 0;
    return !partition || access("/velafs", W_OK) == 0;
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
      mRebootAfter(device.rebootAfter),
      mOwnPartition(device.partitionSize.has_value()),
      mLog(log),
      mTrace(trace),
      mChanges(boot.changes),
      mWatched(log != nullptr ? watchedFiles() : std::vector<WatchedFile>()) {
    for (WatchedFile& file : mWatched) report(file, /* silent= */ true);
    showProfile(0);
}

void DeviceWorld::advanceTo(int64_t target) {
    const calls::Unwatched ownWork;
    observe();
    answerRequests();
    while (!mChanges.empty() && mChanges.front().at <= target) {
        const Change change = mChanges.front();
        mChanges.erase(mChanges.begin());
        vtime::setNow(std::max(vtime::now(), change.at));
        try {
            apply(change);
        } catch (const std::exception& error) {
            fprintf(stderr, "lab: %s\n", error.what());
            _exit(kBrokenLab);
        }
    }
    if (target != kNever) showProfile(target);
}

void DeviceWorld::apply(const Change& change) {
    const bool file = change.kind == Change::Kind::WRITE || change.kind == Change::Kind::REMOVE;
    if (file && !canChange(change.name)) return;
    const std::string number = std::to_string(change.number);
    switch (change.kind) {
        case Change::Kind::SET:
            writeFile(kPropertyDir + change.name, change.value);
            tell("set", change.name + " " + change.value,
                 {{"name", change.name}, {"value", change.value}});
            break;
        case Change::Kind::WRITE:
            writeFile(change.name, change.value);
            tell("write", change.name, {{"path", change.name}});
            break;
        case Change::Kind::REMOVE:
            std::filesystem::remove_all(change.name);
            tell("remove", change.name, {{"path", change.name}});
            break;
        case Change::Kind::FILL:
            fillPartition(change.name);
            tell("fill", change.name, {{"path", change.name}});
            break;
        case Change::Kind::READ_ONLY:
            if (mount(nullptr, change.name.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) !=
                0) {
                failWithErrno("cannot make read-only", change.name);
            }
            calls::partitionReadOnly();
            tell("read-only", change.name, {{"path", change.name}});
            break;
        case Change::Kind::CLOCK:
            vtime::shiftTimeOfDay(change.number);
            tell("clock", number, {{"seconds", change.number}});
            break;
        case Change::Kind::SIGNAL:
            tell("signal", number, {{"signal", change.number}});
            raise(static_cast<int>(change.number));  // to this thread, so that it is at once
            break;
        case Change::Kind::POWER_CYCLE:
        case Change::Kind::PLATFORM_REBOOT:
            // The daemon is still running.
            tell("end", "cut off", {{"why", "cut off"}});
            if (change.kind == Change::Kind::POWER_CYCLE) calls::cutPower();
            _exit(kCutOff);
        case Change::Kind::END:
            tell("end", "still running", {{"why", "still running"}});
            _exit(kStillRunning);
    }
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
    if (!mRequestSeen && (fileExists(std::string(kPropertyDir) + kRebootRequest) ||
                          fileExists(std::string(kPropertyDir) + kResetRequest))) {
        mRequestSeen = true;
        add({now + mRebootAfter, Change::Kind::PLATFORM_REBOOT, "", ""});
    }
    std::string requests = textOf(kKelRequestFile);
    if (requests != mKelRequests) {
        mKelRequests = std::move(requests);
        if (mBoot.kelAnswersAfter) {
            add({now + *mBoot.kelAnswersAfter, Change::Kind::WRITE, kKelCapture, "capture\n"});
        }
    }
}

void DeviceWorld::showProfile(int64_t now) {
    if (mBoot.profileText) {
        if (now == 0) writeFile(mBoot.profilePath, *mBoot.profileText);
        return;
    }
    const size_t events = mBoot.profile.eventsBy(now);
    if (events == mEventsShown && now != 0) return;
    for (; mEventsShown < events; ++mEventsShown) {
        const ProfileScript::Event& event = mBoot.profile.events()[mEventsShown];
        if (mLog != nullptr) mLog->add(event.us / 1000, "event", {{"name", event.name}});
    }
    writeFile(mBoot.profilePath, mBoot.profile.at(now));
}

void DeviceWorld::observe() {
    const calls::Unwatched ownWork;
    for (WatchedFile& file : mWatched) report(file, /* silent= */ false);
}

void DeviceWorld::report(WatchedFile& file, bool silent) {
    const bool archive = file.how == How::ARCHIVE;
    std::string content;
    if (fileExists(file.path)) {
        // An empty file differs from none.
        content = archive ? identity(file.path) : textOf(file.path) + '\0';
    }
    if (content == file.seen) return;
    const std::string before = std::exchange(file.seen, content);
    if (silent) return;

    Record fields = Record::object();
    if (!file.name.empty()) fields["name"] = file.name;
    if (content.empty()) {
        fields["removed"] = true;
        mLog->add(vtime::now(), file.kind, fields);
        return;
    }
    if (archive) {
        const report::ArchiveInfo info = report::inspectArchive(file.path);
        fields["bytes"] = info.content;
        fields["compressed"] = info.size;
        if (!info.error.empty()) fields["error"] = info.error;
        mLog->add(vtime::now(), file.kind, fields);
        return;
    }
    content.pop_back();
    if (file.how == How::TEXT) {
        fields["text"] = content;
        mLog->add(vtime::now(), file.kind, fields);
        return;
    }
    const std::string old = before.empty() ? before : before.substr(0, before.size() - 1);
    const bool extended = content.compare(0, old.size(), old) == 0;
    if (!extended) fields["rewritten"] = true;
    std::string lines = extended ? content.substr(old.size()) : content;
    if (extended && lines.empty()) return;  // created, and nothing written yet
    do {
        fields["text"] = takeLine(lines);
        mLog->add(vtime::now(), file.kind, fields);
    } while (!lines.empty());
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
    const bool partition = strncmp(path, "/velafs", 7) == 0;
    if (partition && calls::spaceLeft() >= 0) {
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
