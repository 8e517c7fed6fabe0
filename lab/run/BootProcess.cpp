// SPDX-License-Identifier: Apache-2.0
// A boot of the daemon, in a process of its own.

#include "lab/run/BootProcess.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/base/Text.h"
#include "lab/device/Cage.h"
#include "lab/device/DeviceRoot.h"
#include "lab/device/DeviceWorld.h"
#include "lab/device/LibcFiles.h"
#include "lab/device/LibcTime.h"
#include "lab/device/RunLog.h"

// The daemon's own main, compiled under this name.
int bootvigilMain();

namespace lab {

namespace {

constexpr int kDaemonPid = 398;  // in the simulated Android log
constexpr int kHandlerTid = 402;

// Alive in the child that is a boot; the looper's and the logger's callbacks need them.
RunLog* gLog = nullptr;
DeviceWorld* gWorld = nullptr;
int gMainLog = -1;
Trace* gTrace = nullptr;

// Every line goes to the run's records and, as on a device, to the main buffer.
void logLine(const __android_logger_data* data, const char* message) {
    const calls::Unwatched ownWork;
    const int64_t now = vtime::now();
    const std::string priority(1, "??VDIWEF"[data->priority]);
    gTrace->add(now, TraceEvent::LOG, priority + " " + message);
    if (gLog != nullptr) gLog->add(now, "log", {{"priority", priority}, {"text", message}});

    const time_t seconds = vtime::timeOfDay();
    tm date = {};
    gmtime_r(&seconds, &date);
    const int tid = syscall(SYS_gettid) == getpid() ? kDaemonPid : kHandlerTid;
    std::string line =
            format("%02d-%02d %02d:%02d:%02d.%03d %5d %5d %s %s: ", date.tm_mon + 1, date.tm_mday,
                   date.tm_hour, date.tm_min, date.tm_sec, static_cast<int>(now % 1000), kDaemonPid,
                   tid, priority.c_str(), data->tag) +
            message;
    if (line.back() != '\n') line += '\n';
    if (write(gMainLog, line.data(), line.size()) < 0) endBroken("cannot write the main log");
}

void redirect(const std::string& path, int target) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || dup2(fd, target) < 0) failWithErrno("cannot write", path);
    close(fd);
}

// As init starts a service.
void becomeService() {
    setpgid(0, 0);  // a signal to the daemon's own group stays within the boot
    // A shell's background job would hand ignored signals on.
    for (const int number : {SIGINT, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
    clearenv();
    setenv("PATH", kToolFolder.c_str(), 1);
    umask(077);
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    tzset();  // else whether the daemon's first look at the time allocates depends on the lab's
    mallopt(M_ARENA_MAX, 1);  // a second arena costs more than it gains in so short a life
}

// Waits for the boot and ends what it left running; false when it took too much real time.
bool waitForEnd(pid_t child, int& status) {
    pollfd exited = {static_cast<int>(syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
    int ready = 1;  // without the descriptor waitpid waits
    while (exited.fd >= 0 && (ready = poll(&exited, 1, bootSeconds() * 1000)) < 0 &&
           errno == EINTR) {
    }
    if (exited.fd >= 0) close(exited.fd);
    if (ready <= 0) kill(-child, SIGKILL);
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // The commands that it was reading from; while one lives, it may hold a file of the partition.
    kill(-child, SIGKILL);
    while (waitpid(-child, nullptr, 0) > 0 || errno == EINTR) {
    }
    return ready > 0;
}

// No device's file system would have been full.
void requireRoom(const std::string& folder) {
    struct statvfs info = {};
    if (statvfs(folder.c_str(), &info) != 0) failWithErrno("cannot see the room in", folder);
    if (info.f_bavail > 0 && (info.f_favail > 0 || info.f_files == 0)) return;
    throw std::runtime_error(format("the boot filled the %ju MiB of files that it may have",
                                    uintmax_t{info.f_blocks} * info.f_frsize >> 20));
}

// What endBroken() said last.
std::string whyBroken(const std::string& errors) {
    const std::vector<std::string> lines = linesOf(errors);
    return lines.empty() ? "it says nothing" : lines.back();
}

}  // namespace

BootOutcome BootProcess::run(const Boot& boot, time_t clock, const std::string& errorFile) {
    requireDate(clock);
    mTrace.clear();
    const auto started = std::chrono::steady_clock::now();
    fflush(nullptr);

    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what the boot leaves running comes to this process
    const pid_t child = fork();
    if (child < 0) failWithErrno("cannot fork", "a boot");
    if (child == 0) becomeDaemon(boot, clock, errorFile);

    int status = 0;
    const bool inTime = waitForEnd(child, status);
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - started;
    requireRoom(mRoot.path());
    if (!inTime)
        throw std::runtime_error(format("the boot took over %d s of real time", bootSeconds()));
    BootOutcome outcome;
    outcome.endedAt = mTrace.clock();
    outcome.realSeconds = real.count();
    outcome.errors = readFileOr(errorFile, "");
    classify(status, outcome);
    return outcome;
}

// In the boot's own process.
void BootProcess::becomeDaemon(const Boot& boot, time_t clock, const std::string& errorFile) {
    try {
        redirect("/dev/null", STDOUT_FILENO);
        redirect(errorFile, STDERR_FILENO);
        becomeService();
        mRoot.enter();
        gLog = mLog;
        gTrace = &mTrace;
        gMainLog = open(kMainLogBuffer.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        gWorld = new DeviceWorld(mDevice, boot, mLog, mTrace);
        atexit([] { gWorld->observe(); });
        __android_log_set_logger(logLine);
        vtime::start(gWorld, &mTrace.clock(), clock);
        calls::start(boot, mTrace);
        bootvigilMain();
    } catch (const std::exception& error) {
        endBroken(error.what());
    }
    _exit(kBrokenLab);
}

// What the daemon ended as. Its own ends are recorded here; the world has recorded the others.
void BootProcess::classify(int status, BootOutcome& outcome) {
    using End = BootObservation::End;
    const int code = WEXITSTATUS(status);
    if (WIFEXITED(status) && code == kBrokenLab)
        throw std::runtime_error(whyBroken(outcome.errors));
    if (WIFSIGNALED(status)) {
        outcome.end = End::KILLED;
        outcome.status = WTERMSIG(status);
        if (mLog != nullptr) mLog->add(outcome.endedAt, "killed", {{"signal", outcome.status}});
    } else if (code == kCutOff || code == kStillRunning) {
        outcome.end = code == kCutOff ? End::CUT_OFF : End::STILL_RUNNING;
    } else {
        outcome.status = code;
        if (mLog != nullptr) mLog->add(outcome.endedAt, "exit", {{"status", code}});
    }
}

}  // namespace lab
