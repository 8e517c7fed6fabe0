// SPDX-License-Identifier: Apache-2.0
// The reference platform: device/prepare before the daemon, and bootvigil-act for what init starts
// it for.

#include "lab/run/ReferencePlatform.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/base/Text.h"
#include "lab/device/DeviceRoot.h"
#include "lab/device/LibcTime.h"
#include "lab/device/RunLog.h"
#include "lab/run/PrepareScript.h"

// bootvigil-act's own main, compiled under this name.
int actMain(int argc, char** argv);

namespace lab {

namespace {

using Kind = Change::Kind;

const std::string kPrepare = kToolFolder + "bootvigil-prepare";
constexpr const char* kTools[] = {"stat", "wc", "tail", "sync", "mv", "mkdir", "chmod"};
constexpr const char* kDaemonState = "init.svc.bootvigil";
constexpr const char* kUp[] = {"sys.boot_completed", "service.bootanim.exit"};
constexpr const char* kDeclared = "sys.vela.boot_fail_reason";

bool ends(const Change& change) {
    return change.kind >= Kind::POWER_CYCLE;
}

// What the kernel log has from a place on, of the two programs, as records; moves the place.
void recordKernelLog(RunLog* log, int64_t now, size_t& place) {
    const std::string text = readFileOr(kKernelMessages, "");
    const std::string mark = "<4>bootvigil-";
    for (size_t at = text.find(mark, std::min(place, text.size())); at != std::string::npos;
         at = text.find(mark, at + 1)) {
        const size_t name = at + mark.size();
        const size_t colon = text.find(": ", name);
        const size_t end = std::min(text.find('\n', name), text.size());
        if (log == nullptr || colon == std::string::npos || colon > end) continue;
        const bool act = text.compare(name, colon - name, "act") == 0;
        log->add(now, act ? "act" : "prepare", {{"text", text.substr(colon + 2, end - colon - 2)}});
    }
    place = text.size();
}

// The world around bootvigil-act, from a time on.
class InitWorld : public World {
public:
    InitWorld(const Boot& boot, int64_t from, int64_t until, RunLog* log)
        : mUntil(until), mLog(log) {
        for (const Change& change : boot.changes) {
            if (change.at > from) mChanges.push_back(change);
        }
        mPlace = readFileOr(kKernelMessages, "").size();
    }

    void advanceTo(int64_t target) override {
        observe();
        while (!mChanges.empty() && mChanges.front().at <= target) {
            const Change change = std::move(mChanges.front());
            mChanges.pop_front();
            if (change.kind == Kind::SET) writeFile(kPropertyDir + change.name, change.value);
            if (change.kind == Kind::CLOCK) vtime::shiftTimeOfDay(change.number);
        }
        if (target < mUntil) return;
        vtime::setNow(mUntil);
        _exit(kCutOff);
    }
    void observe() {
        recordKernelLog(mLog, vtime::now(), mPlace);
    }
    void onSignal(pid_t, int) override {}
    int onCancelMonitor() override {
        return 0;
    }
    void onFreeSpace(const char*, struct statfs&) override {}

private:
    std::deque<Change> mChanges;
    const int64_t mUntil;
    RunLog* const mLog;
    size_t mPlace = 0;
};

// Calls `work` in a process of its own in the device root; gives its exit status.
int runInside(const DeviceRoot& root, const std::function<int()>& work) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) failWithErrno("cannot fork", "a program of the platform");
    if (child == 0) {
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (int fd = 0; fd <= STDERR_FILENO; ++fd) dup2(null, fd);
        clearenv();
        setenv("PATH", "/system/bin", 1);
        umask(077);
        int status = kBrokenLab;
        try {
            root.enter();
            status = work();
        } catch (const std::exception&) {
            // A status says it.
        }
        _exit(status);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) == kBrokenLab) {
        throw std::runtime_error("a program of the platform could not be run");
    }
    return WEXITSTATUS(status);
}

// The value that a property has at a time.
std::string valueAt(const Scenario& device, const Boot& boot, const std::string& name,
                    int64_t time) {
    std::string value = lookUp(device.properties, name).value_or("");
    if (const auto own = lookUp(boot.properties, name)) value = *own;
    for (const Change& change : boot.changes) {
        if (change.at <= time && change.kind == Kind::SET && change.name == name) {
            value = change.value;
        }
    }
    return value;
}

bool isUp(const Scenario& device, const Boot& boot, int64_t time) {
    return atoi(valueAt(device, boot, kUp[0], time).c_str()) != 0 &&
           atoi(valueAt(device, boot, kUp[1], time).c_str()) != 0;
}

// When the framework comes up, by `last`.
std::optional<int64_t> comesUp(const Scenario& device, const Boot& boot, int64_t last) {
    if (isUp(device, boot, 0)) return 0;
    for (const Change& change : boot.changes) {
        if (change.at > last) break;
        if (change.kind == Kind::SET && isUp(device, boot, change.at)) return change.at;
    }
    return std::nullopt;
}

}  // namespace

ReferencePlatform::ReferencePlatform(const DeviceRoot& root, RunLog* log) : mRoot(root), mLog(log) {
    const InsideRoot inside(root);
    for (const char* tool : kTools) {
        std::filesystem::create_symlink("busybox", kToolFolder + tool);
    }
    writeFile(kToolFolder + "setprop",
              "#!" + kShell + "\necho -n \"$2\" >" + kPropertyDir + "$1\n");
    writeFile(kPrepare, kPrepareScript);
    for (const std::string& program : {kToolFolder + "setprop", kPrepare}) {
        chmod(program.c_str(), 0755);
    }
    // As bootvigil.rc makes them.
    makeFolders(kMetadata + "/bootvigil", 0700);
    makeFolders(kCache + "/recovery", 0770);
    chmod(kOwnFolder.c_str(), 01777);
    chmod(kLogs.c_str(), 0700);
    chmod(kRecordFolder.c_str(), 0711);
}

void ReferencePlatform::prepare(const Scenario& device, const Boot& boot, time_t clock) {
    mClock = clock;
    {
        const InsideRoot inside(mRoot);
        const bool mounted = !device.partitionAbsent && !boot.partitionAbsent;
        writeFile(kProc + "/mounts", mounted ? "/dev/block/velafs /velafs ext4 rw,sync 0 0\n" : "");
        writeFile(kKernelMessages, readFileOr(kKernelMessages, ""));
        writeFile(kPropertyDir + kDaemonState, "running");
    }
    runInside(mRoot, [] {
        execl(kShell.c_str(), "sh", kPrepare.c_str(), nullptr);
        return kBrokenLab;
    });
    act("start", 0, boot, INT64_MAX);
}

void ReferencePlatform::recordPrepared() const {
    size_t place = 0;
    const InsideRoot inside(mRoot);
    recordKernelLog(mLog, 0, place);
}

int ReferencePlatform::act(const char* verb, int64_t at, const Boot& boot, int64_t until) {
    time_t clock = mClock;
    for (const Change& change : boot.changes) {
        if (change.kind == Kind::CLOCK && change.at <= at) clock += change.number;
    }
    mTrace.clear();
    return runInside(mRoot, [&] {
        static InitWorld* world;
        world = new InitWorld(boot, at, until, at == 0 ? nullptr : mLog);
        vtime::start(world, &mTrace.clock(), clock);
        vtime::setNow(at);
        char name[] = "bootvigil-act";
        std::string argument = verb;
        char* arguments[] = {name, argument.data(), nullptr};
        const int status = actMain(2, arguments);
        world->observe();
        return status;
    });
}

PlatformActs ReferencePlatform::finish(const Scenario& device, const Boot& boot,
                                       const std::vector<TraceEvent>& events, const BootEnd& end) {
    PlatformActs acts;
    int64_t last = end.at;  // of the boot, unless the platform ends it before
    for (const Change& change : boot.changes) {
        if (ends(change) && !end.over) last = std::max(last, change.at);
    }
    for (const TraceEvent& event : events) {
        if (event.kind != TraceEvent::PROPERTY || acts.askedAt) continue;
        acts.reset = event.text == std::string(kResetRequest) + " 1";
        const bool asks = acts.reset || event.text == std::string(kRebootRequest) + " 1";
        if (asks) acts.askedAt = event.ms;
    }
    acts.upAt = comesUp(device, boot, last);
    acts.endedAt = end.at;
    const auto up = [&](const char* daemon) {
        writeInside(kPropertyDir + kDaemonState, daemon);
        act("up", *acts.upAt, boot, INT64_MAX);
    };
    if (acts.upAt && *acts.upAt <= end.at) up("running");
    if (acts.askedAt) answer(device, boot, last, acts);
    const bool late = acts.upAt && *acts.upAt > end.at;
    if (late && !(acts.actedAt && *acts.actedAt < *acts.upAt)) {
        up("stopped");
        acts.endedAt = std::max(acts.endedAt, *acts.upAt);
    }
    return acts;
}

void ReferencePlatform::answer(const Scenario& device, const Boot& boot, int64_t last,
                               PlatformActs& acts) {
    // The daemon's boot has run on to its end; here the time is that of the request.
    for (const char* name : {kUp[0], kUp[1], kDeclared}) {
        writeInside(kPropertyDir + name, valueAt(device, boot, name, *acts.askedAt));
    }
    acts.declared = atoi(valueAt(device, boot, kDeclared, *acts.askedAt).c_str()) != 0;
    const int status = act(acts.reset ? "reset" : "reboot", *acts.askedAt, boot, last);
    const int64_t now = mTrace.clock();
    acts.endedAt = std::max(acts.endedAt, now);
    if (status == 0) acts.actedAt = acts.endedAt = now;
    acts.refused = status == 1;
}

void ReferencePlatform::writeInside(const std::string& path, const std::string& content) const {
    const InsideRoot inside(mRoot);
    writeFile(path, content);
}

}  // namespace lab
