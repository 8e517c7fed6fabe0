// SPDX-License-Identifier: Apache-2.0
// Runs the boots of a scenario, one after the other, on one simulated device in virtual time.

#include "lab/run/ScenarioRun.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>

#include "Archive.h"
#include "lab/base/DataFolder.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/device/DeviceWorld.h"
#include "lab/device/LibcFiles.h"
#include "lab/rules/Rules.h"

// The daemon's own main, compiled under this name.
int bootvigilMain();

namespace lab {

namespace {

constexpr int kRealLimit = 300 * 1000;  // ms of real time for one boot
constexpr time_t kBetweenBoots = 60;    // seconds of the clock
constexpr int kDaemonPid = 398;         // in the simulated Android log
constexpr int kHandlerTid = 402;
constexpr char kLogBuffers[] = "/dev/log";
constexpr char kOwnBuffer[] = "main";

// Alive in the child that is a boot; the looper's and the logger's callbacks need them.
RunLog* gLog = nullptr;
DeviceWorld* gWorld = nullptr;
int gMainLog = -1;
Trace* gTrace = nullptr;

const char* priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_DEBUG:
            return "D";
        case ANDROID_LOG_INFO:
            return "I";
        case ANDROID_LOG_ERROR:
            return "E";
        default:
            return "?";
    }
}

// Every line goes to the run's records and, as on a device, to the main buffer.
void logLine(const __android_logger_data* data, const char* message) {
    const calls::Unwatched ownWork;
    const int64_t now = vtime::now();
    const char* priority = priorityLetter(data->priority);
    gTrace->add(now, TraceEvent::LOG, std::string(priority) + " " + message);
    if (gLog != nullptr) gLog->add(now, "log", {{"priority", priority}, {"text", message}});

    const time_t seconds = vtime::timeOfDay();
    tm date = {};
    gmtime_r(&seconds, &date);
    char head[96];
    const int tid = syscall(SYS_gettid) == getpid() ? kDaemonPid : kHandlerTid;
    snprintf(head, sizeof(head), "%02d-%02d %02d:%02d:%02d.%03d %5d %5d %s %s: ", date.tm_mon + 1,
             date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec, static_cast<int>(now % 1000),
             kDaemonPid, tid, priority, data->tag);
    std::string line = std::string(head) + message;
    if (line.back() != '\n') line += '\n';
    if (write(gMainLog, line.data(), line.size()) < 0) _exit(kBrokenLab);
}

// The lines of the sample from the `from`th byte on, `size` bytes of them.
std::string sampleLog(const std::string& sample, size_t from, int64_t size) {
    std::string text;
    while (static_cast<int64_t>(text.size()) < size) {
        text += sample.substr(from % sample.size(), static_cast<size_t>(size) - text.size());
        from = 0;
    }
    if (!text.empty()) text.back() = '\n';
    return text;
}

// Text that can't be compressed much.
const std::string& noise() {
    static const std::string text = [] {
        std::string letters(300000, ' ');
        uint32_t state = 1;
        for (char& letter : letters) {
            state = state * 1664525 + 1013904223;
            letter = static_cast<char>('!' + (state >> 16) % 90);
        }
        return letters;
    }();
    return text;
}

void redirect(const std::string& path, int target) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || dup2(fd, target) < 0) failWithErrno("cannot write", path);
    close(fd);
}

// Waits for the boot; false when it took too much real time.
bool waitForExit(pid_t child) {
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    if (fd < 0) return true;  // waitpid waits then
    pollfd exited = {fd, POLLIN, 0};
    int ready = 0;
    while ((ready = poll(&exited, 1, kRealLimit)) < 0 && errno == EINTR) {
    }
    close(fd);
    return ready > 0;
}

}  // namespace

ScenarioRun::ScenarioRun(const Scenario& scenario, std::string folder, Keep keep,
                         const std::string& tools)
    : mScenario(scenario),
      mKeep(keep),
      mFolder(std::filesystem::absolute(folder)),
      mRoot(mFolder + "/root", tools),
      mClock(scenario.clock) {
    if (keep == Keep::LOG) mLog.emplace(mFolder + "/run.jsonl");
}

void ScenarioRun::run() {
    prepareDevice();
    int number = 0;
    for (const Boot& boot : mScenario.boots) {
        ++number;
        if (mLog) mLog->setBoot(number);
        prepareBoot(boot);
        if (mLog) {
            mLog->add(0, "boot",
                      {{"about", boot.about}, {"reason", mBootReason}, {"clock", int64_t{mClock}}});
        }
        const TextMap propertiesBefore = properties();
        // Most boots find what the one before left.
        const bool found = mFilesLeft && boot.files.empty() && !boot.partitionAbsent;
        const TextMap filesBefore = found ? std::move(*mFilesLeft) : filesKept();
        const time_t clock = mClock;
        const std::string console = mLastConsole;
        BootOutcome outcome = runBoot(boot, number);
        finishBoot(boot, outcome);
        const std::vector<TraceEvent> events = mTrace.events();
        outcome.operations =
                std::count_if(events.begin(), events.end(), [](const TraceEvent& event) {
                    return event.kind == TraceEvent::OPERATION;
                });
        mFilesLeft = filesKept();
        BootObservation observation = {mScenario,   boot,           propertiesBefore,
                                       filesBefore, *mFilesLeft,    events,
                                       outcome.end, outcome.status, outcome.endedAt,
                                       clock,       console,        {},
                                       {}};
        if (mKeep != Keep::TRACE) readArchives(observation);
        outcome.violations = checkRules(observation);
        if (mTrace.full()) throw std::runtime_error("a boot's trace is longer than expected");
        mOutcomes.push_back(std::move(outcome));
    }
    if (mScenario.partitionSize) mRoot.unmountPartition();
}

// The files that the daemon keeps its state in, and their folders, which end in "/".
TextMap ScenarioRun::filesKept() const {
    constexpr uintmax_t kLargest = 256UL * 1024;  // a file that fills the partition is none
    TextMap files;
    for (const std::string folder : {"/velafs", "/data"}) {
        std::error_code absent;
        if (std::filesystem::exists(mRoot.at(folder))) files[folder + "/"];
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(mRoot.at(folder), absent)) {
            const std::string path = entry.path().string().substr(mRoot.path().size());
            if (entry.is_directory()) files[path + "/"];
            if (!entry.is_regular_file() || entry.path().extension() == ".zs") continue;
            if (entry.file_size() <= kLargest) files[path] = readFile(entry.path());
        }
    }
    return files;
}

// A damaged one holds nothing.
void ScenarioRun::readArchives(BootObservation& boot) const {
    for (const auto& log : mScenario.logSizes) {
        const std::string path = std::string(kLogBuffers) + "/" + log.first;
        boot.logBuffers[log.first] = readFileOr(mRoot.at(path), "");
    }
    std::error_code absent;
    for (const auto& entry :
         std::filesystem::directory_iterator(mRoot.at("/velafs/boot_vigil/log"), absent)) {
        if (entry.path().extension() != ".zs") continue;
        std::string content;
        const report::ArchiveInfo info =
                report::readArchive(entry.path(), [&](const char* data, size_t size) {
                    content.append(data, size);
                    return true;
                });
        if (!info.error.empty()) content.clear();
        boot.archives[entry.path().string().substr(mRoot.path().size())] = content;
    }
}

TextMap ScenarioRun::properties() const {
    TextMap properties;
    for (const auto& entry : std::filesystem::directory_iterator(mRoot.at(kPropertyDir))) {
        properties[entry.path().filename()] = readFile(entry.path());
    }
    return properties;
}

void ScenarioRun::prepareDevice() {
    if (mScenario.partitionAbsent) {
        std::filesystem::remove_all(mRoot.at("/velafs"));
    } else if (mScenario.partitionSize) {
        mRoot.mountPartition(static_cast<size_t>(*mScenario.partitionSize));
        makeFolders(mRoot.at("/velafs/boot_vigil/log"), 0777);
        makeFolders(mRoot.at("/velafs/SDD"), 0777);
    }
    if (!mScenario.logFolder) std::filesystem::remove_all(mRoot.at("/velafs/boot_vigil/log"));
    makeFolders(mRoot.at("/data/vela_dfr"));
    for (const auto& [path, content] : mScenario.files) writeFile(mRoot.at(path), content);
}

// What a boot starts with: /dev, /proc and the properties are new, /velafs and /data stay.
void ScenarioRun::prepareBoot(const Boot& boot) {
    const std::string logs = mRoot.at(kLogBuffers);
    for (const char* folder : {"/dev", "/proc", "/sys/fs/pstore"}) {
        for (const auto& entry : std::filesystem::directory_iterator(mRoot.at(folder))) {
            if (mOwnBufferSize && entry.path() == logs) continue;
            if (entry.is_directory()) {
                std::filesystem::remove_all(entry.path());
            } else {
                std::filesystem::remove(entry.path());
            }
        }
    }
    if (boot.partitionAbsent) {
        std::filesystem::rename(mRoot.at("/velafs"), mRoot.at("/velafs.away"));
    }
    if (mScenario.partitionSize) mRoot.makePartitionWritable();
    writeFile(mRoot.at("/proc/cmdline"), mScenario.commandLine);
    writeFile(mRoot.at("/dev/bootvigilk"), "");
    makeFolders(mRoot.at("/dev/kel"));
    makeFolders(mRoot.at("/dev/velarawlog"));
    if (!mLastConsole.empty()) {
        writeFile(mRoot.at("/sys/fs/pstore/console-ramoops-0"), mLastConsole);
    }
    fillLogs();

    TextMap properties = mPersistent;
    properties["sys.boot.reason"] = mBootReason;
    for (const TextMap* map : {&mScenario.properties, &boot.properties}) {
        for (const auto& [name, value] : *map) properties[name] = value;
    }
    for (const auto& [name, value] : properties) {
        writeFile(mRoot.at(kPropertyDir + name), value);
    }
    for (const auto& [path, content] : boot.files) writeFile(mRoot.at(path), content);
    const auto spoils = [](const std::string& path) {
        return path == "/dev" || path.rfind(kLogBuffers, 0) == 0;
    };
    if (std::any_of(boot.files.begin(), boot.files.end(),
                    [&](const auto& file) { return spoils(file.first); }) ||
        std::any_of(boot.changes.begin(), boot.changes.end(),
                    [&](const Change& change) { return spoils(change.name); })) {
        mOwnBufferSize.reset();
    }
}

// The buffers stay from boot to boot, but for the daemon's own lines at the end of one.
void ScenarioRun::fillLogs() {
    static const std::string sample = readFile(dataPath("logs/logcat_sample.txt"));
    const std::string folder = mRoot.at(kLogBuffers) + "/";
    if (mOwnBufferSize) return std::filesystem::resize_file(folder + kOwnBuffer, *mOwnBufferSize);
    size_t from = 0;
    for (const auto& [buffer, size] : mScenario.logSizes) {
        const bool endless = mScenario.endlessLogs.count(buffer) != 0;
        // What repeats itself would take no room.
        std::string text = endless ? noise() : sampleLog(sample, from, size);
        if (mScenario.nulLogs.count(buffer) != 0) std::fill(text.begin(), text.end(), '\0');
        writeFile(folder + buffer, text);
        from += 20000;  // so that the buffers differ
        if (endless) writeFile(folder + buffer + ".endless", "");
    }
    mOwnBufferSize = std::filesystem::file_size(folder + kOwnBuffer);
}

// In the boot's own process.
void ScenarioRun::becomeDaemon(const Boot& boot, const std::string& errors,
                               std::atomic<int64_t>* clock) {
    try {
        setpgid(0, 0);  // a signal to the daemon's own group stays within the boot
        redirect("/dev/null", STDOUT_FILENO);
        redirect(errors, STDERR_FILENO);
        gLog = mLog ? &*mLog : nullptr;
        gTrace = &mTrace;
        // As init starts a service; a shell's background job would hand ignored signals on.
        for (const int number : {SIGINT, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
        clearenv();
        setenv("PATH", "/system/bin", 1);
        umask(077);
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        mallopt(M_ARENA_MAX, 1);  // a second arena costs more than it gains in so short a life
        mRoot.enter();
        gMainLog = open((std::string(kLogBuffers) + "/" + kOwnBuffer).c_str(),
                        O_WRONLY | O_APPEND | O_CLOEXEC);
        gWorld = new DeviceWorld(mScenario, boot, gLog, mTrace);
        atexit([] { gWorld->observe(); });
        __android_log_set_logger(logLine);
        vtime::start(gWorld, clock, mClock);
        calls::start(boot, mTrace);
        bootvigilMain();
    } catch (const std::exception& error) {
        fprintf(stderr, "lab: %s\n", error.what());
    }
    _exit(kBrokenLab);
}

BootOutcome ScenarioRun::runBoot(const Boot& boot, int number) {
    using End = BootObservation::End;
    const std::string errors =
            mFolder + (mLog ? "/boot-" + std::to_string(number) + ".stderr" : "/boot.stderr");
    // The clock is shared, so that it can be read when the daemon was killed.
    void* shared = mmap(nullptr, sizeof(std::atomic<int64_t>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) failWithErrno("cannot map", "a clock");
    auto* clock = new (shared) std::atomic<int64_t>(0);
    mTrace.clear();
    const auto started = std::chrono::steady_clock::now();
    fflush(nullptr);

    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what the boot leaves running comes to this process
    const pid_t child = fork();
    if (child < 0) failWithErrno("cannot fork", "a boot");
    if (child == 0) becomeDaemon(boot, errors, clock);

    const bool inTime = waitForExit(child);
    if (!inTime) kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // The commands that it was reading from; while one lives, it may hold a file of the partition.
    kill(-child, SIGKILL);
    while (waitpid(-child, nullptr, 0) > 0 || errno == EINTR) {
    }
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - started;
    BootOutcome outcome;
    outcome.endedAt = *clock;
    outcome.realSeconds = real.count();
    outcome.errors = readFileOr(errors, "");
    munmap(shared, sizeof(std::atomic<int64_t>));
    if (!inTime) throw std::runtime_error("a boot took too much real time; see " + mFolder);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kBrokenLab) {
        throw std::runtime_error(outcome.errors);
    }
    if (WIFSIGNALED(status)) {
        outcome.end = End::KILLED;
        outcome.status = WTERMSIG(status);
        if (mLog) mLog->add(outcome.endedAt, "killed", {{"signal", outcome.status}});
    } else if (WEXITSTATUS(status) == kCutOff) {
        outcome.end = End::CUT_OFF;
    } else if (WEXITSTATUS(status) == kStillRunning) {
        outcome.end = End::STILL_RUNNING;
    } else {
        outcome.status = WEXITSTATUS(status);
        if (mLog) mLog->add(outcome.endedAt, "exit", {{"status", outcome.status}});
    }
    return outcome;
}

// What the platform makes of the boot before the next one.
void ScenarioRun::finishBoot(const Boot& boot, const BootOutcome& outcome) {
    if (boot.partitionAbsent) {
        std::filesystem::remove_all(mRoot.at("/velafs"));
        std::filesystem::rename(mRoot.at("/velafs.away"), mRoot.at("/velafs"));
    }
    if (mKeep == Keep::FINGERPRINT) {
        addToFingerprint(mTrace.bytes());
        std::map<std::string, std::string> files;  // in an order of their own
        for (const char* folder : {"/velafs", "/data"}) {
            for (const auto& entry :
                 std::filesystem::recursive_directory_iterator(mRoot.at(folder))) {
                if (entry.is_regular_file()) files[entry.path()] = readFile(entry.path());
            }
        }
        for (const auto& [path, content] : files) {
            addToFingerprint(path.substr(mRoot.path().size()));
            addToFingerprint(content);
        }
    }
    mPersistent.clear();
    const TextMap set = properties();
    for (const auto& [name, value] : set) {
        if (name.rfind("persist.", 0) == 0) mPersistent[name] = value;
    }
    if (set.count(kResetRequest) != 0) {
        mBootReason = "reboot,factory_reset";
        mPersistent.clear();
        std::filesystem::remove_all(mRoot.at("/data"));
        makeFolders(mRoot.at("/data/vela_dfr"));
    } else if (set.count(kRebootRequest) != 0) {
        mBootReason = "reboot,velarecovery";
    } else {
        mBootReason = "cold,powerkey";
    }
    mLastConsole =
            readFileOr(mRoot.at("/dev/log/kernel"), "") + readFileOr(mRoot.at("/dev/kmsg"), "");
    mClock += outcome.endedAt / 1000 + kBetweenBoots;
}

void ScenarioRun::addToFingerprint(std::string_view bytes) {
    for (const char c : bytes) {
        mFingerprint = (mFingerprint ^ static_cast<uint8_t>(c)) * 0x100000001b3;
    }
}

}  // namespace lab
