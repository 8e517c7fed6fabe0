// SPDX-License-Identifier: Apache-2.0
// Virtual time for a process that runs the daemon: the libc calls that tie it to time and to other
// processes are defined here, in the executable, and so serve the platform's libraries too.

#include "lab/device/LibcTime.h"

#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>

#include "lab/base/ProcessEnd.h"

namespace lab::vtime {

namespace {

constexpr unsigned long kCancelInitMonitor = 0xC0046202;

std::atomic<bool> gActive{false};
std::atomic<bool> gStopped{false};
thread_local bool tWorker = false;  // a thread that waits for its timers here
std::mutex gWorldLock;
World* gWorld = nullptr;
std::atomic<int64_t> gOwnClock{0};
std::atomic<int64_t>* gClock = &gOwnClock;
std::atomic<time_t> gWallClock{0};
int gFlowing = -1;  // eventfd, readable once time flows

// Waits until a thread may let time pass, or until `epollFd` has something; true for the former.
bool waitForFlow(int epollFd) {
    pollfd fds[] = {{gFlowing, POLLIN, 0}, {epollFd, POLLIN, 0}};
    while (poll(fds, 2, -1) < 0 && errno == EINTR) {
    }
    return (fds[1].revents & POLLIN) == 0;
}

// In real time every timer of the past would be due at once.
[[noreturn]] void waitForEver() {
    for (;;) ppoll(nullptr, 0, nullptr, nullptr);
}

// Calls `tell` with the world, if there is one.
template <typename Tell>
void withWorld(Tell tell) {
    const std::lock_guard<std::mutex> lock(gWorldLock);
    if (gWorld != nullptr) tell(*gWorld);
}

void passTime(int64_t target) {
    withWorld([&](World& world) { world.advanceTo(target); });
    if (target != kNever) setNow(target);
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void start(World* world, std::atomic<int64_t>* clock, time_t wallClock) {
    gWorld = world;
    gClock = clock != nullptr ? clock : &gOwnClock;
    *gClock = 0;
    gWallClock = wallClock;
    gFlowing = eventfd(0, EFD_CLOEXEC);
    gActive = true;
}

void letTimeFlow() {
    const uint64_t one = 1;
    if (write(gFlowing, &one, sizeof(one)) != sizeof(one)) endBroken("cannot let time flow");
}

void stop() {
    const std::lock_guard<std::mutex> lock(gWorldLock);
    gWorld = nullptr;
    gStopped = true;
    gActive = false;  // a thread may still wait for gFlowing, which therefore stays open
}

int64_t now() {
    return *gClock;
}

void setNow(int64_t ms) {
    *gClock = ms;
}

time_t timeOfDay() {
    return gWallClock + now() / 1000;
}

void shiftTimeOfDay(time_t seconds) {
    gWallClock += seconds;
}

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const bool realTime = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    const bool monotonic = clock == CLOCK_MONOTONIC || clock == CLOCK_BOOTTIME;
    const bool inVirtualTime = gActive || (gStopped && tWorker);
    if (!inVirtualTime || !(realTime || monotonic)) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    const int64_t ms = now();
    time->tv_sec = realTime ? timeOfDay() : ms / 1000;
    time->tv_nsec = ms % 1000 * 1000000;
    return 0;
}

// Looking at the time of day brings the world up to it: what another process of a device would do
// while the daemon works can be seen from there on.
time_t time(time_t* result) noexcept {
    if (gActive) passTime(now());
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) *result = now.tv_sec;
    return now.tv_sec;
}

// The looper waits here for its next timer. Nobody else can wake it once the main thread is parked,
// so the clock goes to that timer at once; timers end on whole milliseconds.
int epoll_wait(int fd, epoll_event* events, int maxEvents, int timeout) {
    static auto* const realWait = real<int(int, epoll_event*, int, int)>("epoll_wait");
    tWorker = true;
    if (gStopped) waitForEver();
    if (!gActive) return realWait(fd, events, maxEvents, timeout);
    const int ready = realWait(fd, events, maxEvents, 0);
    if (ready != 0 || timeout == 0) return ready;
    const bool flows = waitForFlow(fd);
    if (gStopped) waitForEver();
    if (!flows) return realWait(fd, events, maxEvents, 0);
    withWorld([](World& world) { world.onIdle(); });
    if (timeout < 0) {
        passTime(kNever);
        return realWait(fd, events, maxEvents, -1);
    }
    passTime(now() + timeout);
    withWorld([](World& world) { world.onWake(); });
    return 0;
}

unsigned int sleep(unsigned int seconds) {
    if (gActive) {
        passTime(now() + int64_t{seconds} * 1000);
        return 0;
    }
    timespec rest = {static_cast<time_t>(seconds), 0};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
    return 0;
}

// A simulated pid must not reach a process of the workstation; 0 is the daemon's own group.
int kill(pid_t pid, int signal) noexcept {
    if (gActive) {
        withWorld([&](World& world) { world.onSignal(pid, signal); });
        if (pid != 0) return 0;
    }
    const int result = static_cast<int>(syscall(SYS_kill, pid, signal));
    // Another thread may take the signal: virtual time must not run on before it has.
    if (gActive) poll(nullptr, 0, 1000);
    return result;
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (gActive && request == kCancelInitMonitor) {
        int result = 0;
        withWorld([&](World& world) { result = world.onCancelMonitor(); });
        return result;
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

// How much is free on the workstation's disk must not show in a run.
int statfs(const char* path, struct statfs* info) noexcept {
    const int result = static_cast<int>(syscall(SYS_statfs, path, info));
    if (gActive && result == 0) withWorld([&](World& world) { world.onFreeSpace(path, *info); });
    return result;
}

// The main thread parks in the binder pool: start-up is over.
int pause() {
    if (gActive) letTimeFlow();
    return ppoll(nullptr, 0, nullptr, nullptr);
}

}  // extern "C"

}  // namespace lab::vtime
