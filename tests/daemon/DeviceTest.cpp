// SPDX-License-Identifier: Apache-2.0
// The fixture of tests that call the daemon's code; main of the tests.

#include "tests/daemon/DeviceTest.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "lab/base/Files.h"

namespace {

constexpr time_t kClock = 1794740400;  // Sun Nov 15 11:00:00 2026, UTC

std::mutex gLogLock;
std::vector<std::string> gLog;

void keepLine(const __android_logger_data* data, const char* message) {
    const std::lock_guard<std::mutex> lock(gLogLock);
    const char priority = "??VDIWEF"[data->priority];
    ASSERT_STREQ(data->tag, "BOOTVIGIL_DEBUG");
    gLog.push_back(std::string(1, priority) + " " + message);
}

}  // namespace

DeviceTest::DeviceTest() {
    mRoot = std::make_unique<lab::DeviceRoot>(mFolder.path() + "/root");
    lab::makeFolders(mRoot->at("/tmp"));  // for death tests
    unsetenv("TZ");
    setenv("PATH", "/system/bin", 1);
    setenv("TEST_TMPDIR", "/tmp", 1);
    mInside = std::make_unique<lab::InsideRoot>(*mRoot);
    __android_log_set_logger(keepLine);
    lab::vtime::start(this, nullptr, kClock);
}

DeviceTest::~DeviceTest() {
    mInside.reset();
}

void DeviceTest::write(const std::string& path, const std::string& content) {
    lab::writeFile(path, content);
}

std::string DeviceTest::read(const std::string& path) {
    return lab::readFileOr(path, "<missing>");
}

bool DeviceTest::exists(const std::string& path) {
    return lab::fileExists(path);
}

void DeviceTest::remove(const std::string& path) {
    ::remove(path.c_str());
}

int DeviceTest::modeOf(const std::string& path) {
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

void DeviceTest::setProperty(const std::string& name, const std::string& value) {
    lab::writeFile("/dev/__properties__/" + name, value);
}

std::string DeviceTest::property(const std::string& name) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(name.c_str(), value, "");
    return value;
}

std::vector<std::string> DeviceTest::takeLog() {
    const std::lock_guard<std::mutex> lock(gLogLock);
    return std::exchange(gLog, {});
}

bool DeviceTest::logged(const std::string& line) {
    const std::vector<std::string> lines = takeLog();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

int main(int argc, char** argv) {
    close_range(STDERR_FILENO + 1, ~0U, 0);  // the caller's would count as the daemon's
    lab::requireDeviceRoot(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
