// SPDX-License-Identifier: Apache-2.0
// Boot profiles through parseBootProf and checkReason, against a model of both.

#include <signal.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include <utils/Looper.h>

#include "bootvigil/BootMilestones.h"
#include "bootvigil/BootState.h"
#include "bootvigil/Bootvigil.h"
#include "bootvigil/BootvigilHandler.h"
#include "fuzz/FuzzDevice.h"
#include "fuzz/SplitModel.h"

using namespace fuzz;

namespace {

constexpr const char* kProfile = "/data/bootprof";
constexpr int kLoop = 5;

// A text that ends the process has come.
struct Ended {};

std::vector<std::string> fieldsOf(const std::string& text, const std::string& pattern) {
    const Fields fields = splitModel(text, pattern);
    if (!fields) throw Ended();
    return *fields;
}

// What the monitor has to know, and to do about it.
struct Model {
    std::string key;
    int same = 0;
    int loop = -1;  // milestone
    std::map<std::string, int> counts;

    bool stuck = false;
    int pid = -1;
    int detail = 0;
    int error = 0;  // type and phase, 0x54
    long mask = 0x60036;
    std::string files;

    void poll(const std::string& profile) {
        const std::vector<std::string> lines = linesOf(profile);
        if (lines.size() < 3) return;
        counts.clear();
        for (size_t i = lines.size(); i-- > 0;) {
            const std::vector<std::string> fields = fieldsOf(lines[i], " :");
            const int milestone = fields.size() < 3 ? -1 : milestoneIndex(fields[2]);
            if (milestone >= 0 && ++counts[fields[2]] == kLoop) {
                loop = milestone;
                return;
            }
        }
        const std::vector<std::string> last = fieldsOf(lines[lines.size() - 3], " :");
        if (last.size() < 3) return;
        const std::string now = last[1] + " | " + last[2];
        same = now == key ? same + 1 : 0;
        key = now;
    }

    void findPid(int timeouts) {
        if (key.find("performDexOpt") != std::string::npos) return;
        pid = timeouts >= 3 ? 0 : -1;
        if (same < 3) return;
        const std::vector<std::string> parts = fieldsOf(key, "-");
        const auto digit = [](char c) { return c >= '0' && c <= '9'; };
        if (!parts.empty() && std::all_of(parts[0].begin(), parts[0].end(), digit)) {
            pid = atoi(parts[0].c_str());
        }
    }

    void judge(int timeouts, int completed, int animationExited) {
        findPid(timeouts);
        stuck = true;
        if (loop >= 0) {
            const auto end = std::end(kBootMilestones);
            const auto missing = std::find_if(std::begin(kBootMilestones) + loop, end,
                                              [&](const auto& name) { return counts[name] == 0; });
            detail = missing == end ? 255
                                    : static_cast<int>(missing - std::begin(kBootMilestones)) + 4;
            error = 0x24;
        } else if (completed == 1 && animationExited == 0) {
            detail = 3;
        } else if (pid == -1) {
            stuck = false;
        } else if (counts["Android:SysServerInit_START"] == 1) {
            detail = 2;
            error = 0x55;
        } else {
            detail = 1;
            error = 0x54;
        }
        if (detail == 1) mask = 0x60436;
        if (detail == 2) mask = 0x60276;
        if (detail == 3) mask = 0x61036;
        if (detail == 10 || detail == 11) {
            files = "/data/system/users/0.xml;/data/system/users/userlist.xml"
                    "/data/system/packages.xml;/data/system/uiderrors.txt";
        }
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

void compareStates(const Bootvigil& monitor, const Model& model) {
    expectEqual("the key", monitor.mLastLine, model.key);
    expectEqual("the count of equal polls", monitor.mSameLineCount, model.same);
    expectEqual("the loop", monitor.mRestartLoop ? monitor.mPhaseIndex : -1, model.loop);
    for (const auto& [name, count] : monitor.mMilestones) {
        const auto known = model.counts.find(name);
        expectEqual("the count of " + name, count, known == model.counts.end() ? 0 : known->second);
    }
}

void compareVerdicts(const Bootvigil& monitor, const Model& model, const Watch& watch) {
    const int error = monitor.mErrNumInfo->mErrType << 4 | monitor.mErrNumInfo->mMainPhase;
    const bool signalled = model.detail == 2;
    expectEqual("the failure's type and phase", error, model.error);
    if (error != 0) {
        expectEqual("the detail phase", monitor.mErrNumInfo->mDetailPhase, model.detail);
        if (read("/velafs/SDD/bfRecord.txt").find("ERR_NUM:0x") == std::string::npos) {
            fault("the failure is not recorded");
        }
    }
    expectEqual("the reason code", read("/velafs/boot_vigil/reason.txt"),
                model.stuck ? std::to_string(model.detail) : "<missing>");
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
    write("/velafs/SDD/bfRecord.txt", std::nullopt);
    write("/velafs/boot_vigil/reason.txt", std::nullopt);

    Bootvigil& monitor = freshMonitor(looper);
    monitor.mTimeoutCount = timeouts;
    Watch watch;
    Model model;
    bool shouldEnd = false;
    bool ended = false;
    const auto both = [&](const auto& daemon, const auto& expected) {
        try {
            expected();
        } catch (const Ended&) {
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
        if (!both([&] { monitor.parseBootProf(); }, [&] { model.poll(input[i]); })) return 0;
        compareStates(monitor, model);
    }

    long type = -1;
    int pid = -2;
    std::string files = "untouched";
    bool stuck = false;
    const int posted = monitor.mHandler->getStrongCount();  // each message holds its handler
    if (!both([&] { stuck = monitor.checkReason(type, pid, files); },
              [&] {
                  model.judge(timeouts, atoi(propertyValue(input[0], "0").c_str()),
                              atoi(propertyValue(input[1], "0").c_str()));
              })) {
        return 0;
    }
    expectEqual("the messages posted", monitor.mHandler->getStrongCount() - posted,
                model.error != 0 ? 1 : 0);
    looper->removeMessages(monitor.mHandler);
    expectEqual("the verdict", stuck, model.stuck);
    expectEqual("the mask", type, model.stuck ? model.mask : -1);
    expectEqual("the pid", pid, model.stuck ? model.pid : -2);
    expectEqual("the list of files", files, model.stuck ? model.files : "untouched");
    compareVerdicts(monitor, model, watch);
    return 0;
}
