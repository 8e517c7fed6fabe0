// SPDX-License-Identifier: Apache-2.0
// Keeps the daemon for a week of virtual time in each state that it does not leave by itself, and
// prints what it holds then, as rows of a table: soak [LIMIT OF DESCRIPTORS].

#include <android/log.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/base/Text.h"
#include "lab/device/DeviceRoot.h"
#include "lab/device/LibcTime.h"
#include "lab/run/Platform.h"
#include "lab/scenario/Scenario.h"

int bootvigilMain();

namespace {

using namespace lab;

constexpr int64_t kHour = 3600000, kDay = 24 * kHour;  // ms
constexpr int64_t kSampled[] = {kHour, kDay, 7 * kDay};

struct State {
    const char* name;
    TextMap properties;
    TextMap files;
    const char* lastEvent;  // of the profile; null: there is none
};

const TextMap kBooted = {{"sys.boot_completed", "1"}, {"service.bootanim.exit", "1"}};
const TextMap kService = {{"init.svc.kel", "running"}, {"init.svc.kelvservice", "running"}};
const TextMap kCapture = {{kOwnFolder + "/" + kLogServiceId + ".zip", "a capture"}};

TextMap operator+(TextMap a, const TextMap& b) {
    a.insert(b.begin(), b.end());
    return a;
}

const State kStates[] = {
        {"the animation stays; logs captured by the daemon", {{"sys.boot_completed", "1"}}, {}, ""},
        {"the animation stays; captured by the service",
         kService + TextMap{{"sys.boot_completed", "1"}}, kCapture, ""},
        {"package optimisation", {}, {}, "PMS:performDexOpt:all"},
        {"booted, never complete", kBooted + TextMap{{"persist.sys.oobe", "0"}}, {}, ""},
        {"booted, at the set-up wizard", kBooted + TextMap{{"persist.sys.oobe", "1"}}, {}, ""},
        {"booted, no profile", kBooted, {}, nullptr},
        {"booted, never complete; a kept log captured by the service",
         kBooted + kService + TextMap{{"persist.sys.oobe", "0"}},
         kCapture + TextMap{{kKeptLogs + "init", "kept\n"}}, ""},
};

// Samples what the process holds, and ends it after the week.
class Watch : public World {
public:
    explicit Watch(const char* state) : mRow(std::string("| ") + state) {}

    void advanceTo(int64_t target) override {
        // Descriptors are given out from the lowest.
        const int lowest = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        if (lowest < 0 && mLimitAt < 0) mLimitAt = vtime::now();
        if (lowest >= 0) close(mHeld = lowest);
        while (mSample < std::size(kSampled) && kSampled[mSample] <= target) {
            mRow += format(" | %d, %.1f MiB", lowest < 0 ? mHeld + 1 : mHeld, memory());
            if (++mSample == std::size(kSampled)) exit(0);
        }
    }

    // When the process ends, by the watch or by itself.
    void print() {
        const auto hours = [](int64_t ms) {
            return format("%.1f h", static_cast<double>(ms) / static_cast<double>(kHour));
        };
        const bool early = mSample < std::size(kSampled);
        for (; mSample < std::size(kSampled); ++mSample) mRow += " | ended";
        printf("%s | %s%s |\n", mRow.c_str(), mLimitAt < 0 ? "never" : hours(mLimitAt).c_str(),
               early ? (", the daemon ends at " + hours(vtime::now())).c_str() : "");
        fflush(stdout);
    }

    void onSignal(pid_t, int) override {}
    int onCancelMonitor() override {
        return 0;
    }
    void onFreeSpace(const char*, struct statfs&) override {}

private:
    double memory() const {
        char text[128] = {};
        long size = 0, resident = 0;
        if (pread(mStatm, text, sizeof(text) - 1, 0) > 0) sscanf(text, "%ld %ld", &size, &resident);
        return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / (1 << 20);
    }

    std::string mRow;
    const int mStatm = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    size_t mSample = 0;
    int mHeld = 0;
    int64_t mLimitAt = -1;
};

[[noreturn]] void live(const State& state, const DeviceRoot& root, rlim_t limit) {
    static Watch watch(state.name);
    root.enter();
    umask(077);
    setpgid(0, 0);
    clearenv();
    setenv("PATH", kToolFolder.c_str(), 1);
    const rlimit descriptors = {limit, limit};
    if (setrlimit(RLIMIT_NOFILE, &descriptors) != 0) {
        perror("RLIMIT_NOFILE");
        _exit(1);
    }
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    atexit([] { watch.print(); });
    vtime::start(&watch, nullptr, Scenario::kDefaultClock);
    bootvigilMain();
    _exit(1);
}

void run(const State& state, rlim_t limit) {
    const TemporaryFolder folder(TemporaryFolder::inMemory());
    const DeviceRoot root(folder.path() + "/root");
    Scenario device;
    device.files = state.files;
    device.files[kMarker];
    Boot boot;
    boot.properties = state.properties;
    Platform platform(device, root);
    platform.startBoot(boot);
    for (const auto& [path, content] : state.files) writeFile(root.at(path), content);
    if (state.lastEvent != nullptr) {
        boot.profile.add(20000, "1113-system_server", state.lastEvent);
        if (*state.lastEvent == '\0') boot.profile = ProfileScript::healthy();
        writeFile(root.at(kBootProfile), boot.profile.at(kHour));
    }
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) live(state, root, limit);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) printf("| %s | killed by signal %d\n", state.name, WTERMSIG(status));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        close_range(STDERR_FILENO + 1, ~0U, 0);
        requireDeviceRoot(argv);
        const long limit = argc > 1 ? atol(argv[1]) : 1024;
        printf("| descriptors, memory | an hour | a day | a week | limit of %ld reached after |\n"
               "|---|---|---|---|---|\n",
               limit);
        for (const State& state : kStates) run(state, static_cast<rlim_t>(limit));
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}
