// SPDX-License-Identifier: Apache-2.0
// The fixture of tests that call the daemon's code: a fresh device root as "/", virtual time, and
// the daemon's log lines. Paths are those of the lab, which knows none of the daemon's.

#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "lab/base/DevicePaths.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/device/DeviceRoot.h"
#include "lab/device/LibcTime.h"

// Each test is a process of its own (see CMakeLists.txt), because the daemon keeps some state for
// the life of a process.
class DeviceTest : public testing::Test, public lab::World {
protected:
    DeviceTest();
    ~DeviceTest() override;
    void TearDown() override {
        lab::vtime::stop();
    }

    void advanceTo(int64_t) override {}
    void onSignal(pid_t pid, int signal) override {
        mSignals.emplace_back(pid, signal);
    }
    int onCancelMonitor() override {
        return mCancelResult;
    }
    void onFreeSpace(const char*, struct statfs&) override {}

    static void write(const std::string& path, const std::string& content);
    static std::string read(const std::string& path);  // "<missing>" when it isn't there
    static bool exists(const std::string& path);
    static void remove(const std::string& path);  // a file or an empty folder
    static int modeOf(const std::string& path);
    static void setProperty(const std::string& name, const std::string& value);
    static std::string property(const std::string& name);  // "" when unset

    // The log lines since the last call, as "D text", "I text" or "E text".
    std::vector<std::string> takeLog();
    bool logged(const std::string& line);  // among those, which it takes

    std::vector<std::pair<pid_t, int>> mSignals;
    int mCancelResult = 0;

private:
    const lab::TemporaryFolder mFolder{testing::TempDir()};
    std::unique_ptr<lab::DeviceRoot> mRoot;
    std::unique_ptr<lab::InsideRoot> mInside;
};
