// SPDX-License-Identifier: Apache-2.0
// Boot profiles through parseBootProf and checkReason, against the rules' reading of them.

#include <signal.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <stdexcept>

#include <utils/Looper.h>

#include "bootvigil/BootState.h"
#include "bootvigil/Bootvigil.h"
#include "bootvigil/BootvigilHandler.h"
#include "fuzz/FuzzDevice.h"
#include "lab/base/DevicePaths.h"
#include "lab/rules/Reading.h"

using namespace fuzz;

namespace {

constexpr const char* kProfile = "/data/bootprof";

// What the monitor has to decide of a profile, and to do about it.
struct Verdict {
    int pid = -1, detail = 0;
    int error = 0;  // type and phase, 0x54
    std::string files;

    Verdict() = default;
    Verdict(const lab::ProfileModel& profile, int timeouts, bool animationStays) {
        if (!profile.optimises()) pid = profile.stuckPid().value_or(timeouts > 2 ? 0 : -1);
        detail = profile.stuckDetail(pid, animationStays);
        files = lab::capturedFiles(detail);
        if (detail == 1) error = 0x54;
        if (detail == 2) error = 0x55;
        if (profile.loop >= 0) error = 0x24;
    }
};

// The one monitor, as at the start of a boot. Its messages go to a looper that doesn't run.
Bootvigil& freshMonitor(const android::sp<android::Looper>& looper) {
    static android::sp<Bootvigil> monitor;
    if (monitor == nullptr) {
        monitor = Bootvigil::createInstance();
        monitor->mHandler = new BootvigilHandler(looper, nullptr);
    }
    kBootProfPath = kProfile;
    monitor->mRestartLoop = false;
    monitor->mStuckPID = -1;
    monitor->mLastLine.clear();
    monitor->mSameLineCount = 0;
    for (auto& milestone : monitor->mMilestones) milestone.second = 0;
    monitor->mPhaseIndex = -1;
    *monitor->mErrNumInfo = ErrNumInfo();
    setBFReason(0);
    return *monitor;
}

void compareStates(const Bootvigil& monitor, const lab::ProfileModel& model) {
    expectEqual("the key", monitor.mLastLine, model.key);
    expectEqual("the count of equal polls", monitor.mSameLineCount, model.same);
    expectEqual("the loop", monitor.mRestartLoop ? monitor.mPhaseIndex : -1, model.loop);
    for (const auto& [name, count] : monitor.mMilestones) {
        expectEqual("the count of " + name, count, lab::lookUp(model.counts, name).value_or(0));
    }
}

void compareVerdicts(const Bootvigil& monitor, const Verdict& model, const Watch& watch) {
    const int error = monitor.mErrNumInfo->mErrType << 4 | monitor.mErrNumInfo->mMainPhase;
    const bool signalled = model.detail == 2;
    expectEqual("the failure's type and phase", error, model.error);
    if (error != 0) {
        expectEqual("the detail phase", monitor.mErrNumInfo->mDetailPhase, model.detail);
        if (read(lab::kRecord).find("ERR_NUM:0x") == std::string::npos) {
            fault("the failure is not recorded");
        }
    }
    expectEqual("the reason code", read(lab::kReason),
                model.detail > 0 ? std::to_string(model.detail) : "<missing>");
    expectEqual("the seconds slept", watch.slept, signalled ? 2 : 0);
    if (watch.signals != std::vector<std::pair<pid_t, int>>(signalled, {model.pid, SIGQUIT})) {
        fault("the signals sent are others");
    }
}

}  // namespace

// Texts: sys.boot_completed, service.bootanim.exit, count of time-outs, then what each poll sees.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<android::Looper> looper = new android::Looper(false);
    const std::vector<std::string> input = texts(data, size);
    if (input.size() < 4) return -1;
    setProperty("sys.boot_completed", input[0]);
    setProperty("service.bootanim.exit", input[1]);
    const int timeouts = atoi(input[2].c_str());
    write(lab::kRecord, std::nullopt);
    write(lab::kReason, std::nullopt);

    Bootvigil& monitor = freshMonitor(looper);
    monitor.mTimeoutCount = timeouts;
    Watch watch;
    lab::ProfileModel profile;
    bool shouldEnd = false;
    bool ended = false;
    const auto both = [&](const auto& daemon, const auto& expected) {
        try {
            expected();
        } catch (const lab::MustEnd&) {
            shouldEnd = true;
        }
        try {
            daemon();
        } catch (const std::out_of_range&) {
            ended = true;
        }
        if (ended != shouldEnd) fault(ended ? "the process ends" : "the process survives");
        return !ended;
    };
    for (size_t i = 3; i < input.size() && !monitor.mRestartLoop; ++i) {
        write(kProfile, input[i]);
        std::vector<std::string> lines = lab::linesOf(input[i]);
        std::reverse(lines.begin(), lines.end());
        if (!both([&] { monitor.parseBootProf(); }, [&] { profile.read(lines); })) return 0;
        compareStates(monitor, profile);
    }

    long type = -1;
    int pid = -2;
    std::string files = "untouched";
    bool stuck = false;
    const int posted = monitor.mHandler->getStrongCount();  // each message holds its handler
    const bool animationStays = atoi(propertyValue(input[0], "0").c_str()) == 1 &&
                                atoi(propertyValue(input[1], "0").c_str()) == 0;
    Verdict model;
    if (!both([&] { stuck = monitor.checkReason(type, pid, files); },
              [&] { model = Verdict(profile, timeouts, animationStays); })) {
        return 0;
    }
    expectEqual("the messages posted", monitor.mHandler->getStrongCount() - posted,
                model.error != 0 ? 1 : 0);
    looper->removeMessages(monitor.mHandler);
    expectEqual("the verdict", stuck, model.detail > 0);
    expectEqual("the mask", type, stuck ? lab::captureType(model.detail) : -1);
    expectEqual("the pid", pid, stuck ? model.pid : -2);
    expectEqual("the list of files", files, stuck ? model.files : "untouched");
    compareVerdicts(monitor, model, watch);
    return 0;
}
