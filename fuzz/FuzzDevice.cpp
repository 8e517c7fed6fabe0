// SPDX-License-Identifier: Apache-2.0
// What every fuzzer stands on: a device's folders beside the workstation's own, the calls by which
// the daemon would end or reach other processes, and its log.

#include "fuzz/FuzzDevice.h"

#include <android/log.h>
#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <exception>
#include <filesystem>

#include "lab/base/Files.h"
#include "lab/device/DeviceRoot.h"

namespace fuzz {

namespace {

namespace fs = std::filesystem;

// The new root is made here, where each system has a folder that no fuzzer needs.
const fs::path kRoot = "/sys";

constexpr time_t kClock = 1794740400;  // Sun Nov 15 11:00:00 2026, UTC

thread_local Watch* gWatch = nullptr;

// Shows a folder or device of the workstation at the same place in the new root.
void show(const fs::path& path) {
    const fs::path place = kRoot / path.relative_path();
    if (fs::is_symlink(path)) {
        fs::copy_symlink(path, place);
        return;
    }
    if (fs::is_directory(path)) {
        fs::create_directory(place);
    } else {
        lab::writeFile(place, "");
    }
    if (mount(path.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        lab::failWithErrno("cannot show", path);
    }
}

// libFuzzer, its corpus and the sanitizers' symbolizer need the workstation's files, the daemon a
// device's: "/" becomes a file system in memory that has both, for this process alone. Nothing is
// left behind.
void enterDevice() {
    const fs::path folder = fs::current_path();
    // Inside a chroot "/" is no mount that could be made private; the new root's place may be one.
    if (unshare(CLONE_NEWNS) != 0 ||
        (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 &&
         mount(nullptr, kRoot.c_str(), nullptr, MS_PRIVATE, nullptr) != 0 && errno != EINVAL) ||
        mount("device", kRoot.c_str(), "tmpfs", 0, "mode=0755,size=256m") != 0) {
        lab::failWithErrno("cannot mount a device's root at", kRoot);
    }
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        const std::string name = entry.path().filename();
        const bool ofDevice = name == "dev" || name == "sys" || name == "velafs" || name == "data";
        if (!ofDevice && entry.is_directory()) show(entry.path());
    }
    for (const char* made :
         {"/dev/__properties__", "/data", "/velafs/boot_vigil/log", "/velafs/SDD", "/new"}) {
        lab::makeFolders(kRoot.string() + made);
    }
    for (const char* device :
         {"null", "zero", "full", "random", "urandom", "fd", "stdin", "stdout", "stderr", "shm"}) {
        if (fs::exists(fs::symlink_status(fs::path("/dev") / device)))
            show(fs::path("/dev") / device);
    }
    if (chroot(kRoot.c_str()) != 0 || chdir(folder.c_str()) != 0) {
        lab::failWithErrno("cannot enter", kRoot);
    }
}

// libFuzzer's timer must not interrupt what the daemon, or this, waits for.
bool restartCalls() {
    struct sigaction action = {};
    sigaction(SIGALRM, nullptr, &action);
    action.sa_flags |= SA_RESTART;
    return sigaction(SIGALRM, &action, nullptr) == 0;
}

void keepLine(const __android_logger_data*, const char* message) {
    if (gWatch != nullptr && gWatch->keepLog) gWatch->log.emplace_back(message);
}

}  // namespace

void fault(const std::string& what) {
    fprintf(stderr, "FAULT: %s\n", what.c_str());
    abort();
}

void expectEqual(const std::string& what, const std::string& is, const std::string& shouldBe) {
    if (is != shouldBe) fault(what + " is '" + is + "', should be '" + shouldBe + "'");
}

void expectEqual(const std::string& what, long is, long shouldBe) {
    expectEqual(what, std::to_string(is), std::to_string(shouldBe));
}

std::vector<std::string> texts(const uint8_t* data, size_t size) {
    const std::string separator = "\n==\n";
    std::string rest(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> list;
    for (size_t end = 0; (end = rest.find(separator)) != std::string::npos;) {
        list.push_back(rest.substr(0, end));
        rest.erase(0, end + separator.size());
    }
    list.push_back(rest);
    return list;
}

void write(const std::string& path, const std::optional<std::string>& content) {
    if (content) {
        lab::writeFile(path, *content);
    } else {
        unlink(path.c_str());
    }
}

std::string read(const std::string& path) {
    return lab::readFileOr(path, "<missing>");
}

void setProperty(const std::string& name, const std::optional<std::string>& value) {
    write("/dev/__properties__/" + name, value);
}

std::string propertyValue(const std::optional<std::string>& value, const std::string& ifEmpty) {
    const std::string kept = value.value_or("").substr(0, 91).c_str();  // up to its first NUL
    return kept.empty() ? ifEmpty : kept;
}

Watch::Watch() {
    static const bool ready = restartCalls();
    gWatch = ready ? this : nullptr;
}

Watch::~Watch() {
    gWatch = nullptr;
}

extern "C" {

// Freed memory is watched for a shorter time than by default, which makes the runs twice as fast.
const char* __asan_default_options() {
    return "quarantine_size_mb=16:malloc_context_size=8";
}

int LLVMFuzzerInitialize(int* /* argc */, char*** argv) {
    lab::requireDeviceRoot(*argv);
    try {
        enterDevice();
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", **argv, error.what());
        _exit(1);
    }
    setenv("TZ", "UTC", 1);
    __android_log_set_logger(keepLine);
    return 0;
}

// The linker gives these for the functions of libc (--wrap). They serve libFuzzer too, which runs
// when nothing is watched. No signal is ever sent.

[[noreturn]] void __real_exit(int status);
unsigned int __real_sleep(unsigned int seconds);
time_t __real_time(time_t* result);
ssize_t __real_read(int fd, void* buffer, size_t size);

void __wrap_exit(int status) {
    if (gWatch == nullptr) __real_exit(status);
    fault("the daemon exits with status " + std::to_string(status));
}

int __wrap_kill(pid_t pid, int signal) {
    if (gWatch == nullptr) fault("a signal is sent by other code than the daemon's");
    gWatch->signals.emplace_back(pid, signal);
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    if (gWatch == nullptr) return __real_sleep(seconds);
    gWatch->slept += seconds;
    return 0;
}

time_t __wrap_time(time_t* result) {
    if (gWatch == nullptr) return __real_time(result);
    if (result != nullptr) *result = kClock;
    return kClock;
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    if (gWatch == nullptr || !gWatch->onRead) return __real_read(fd, buffer, size);
    return gWatch->onRead(static_cast<char*>(buffer), size);
}

}  // extern "C"

}  // namespace fuzz
