// SPDX-License-Identifier: Apache-2.0
// Tests the kernel module on a running kernel, as root and in a machine that may be lost. Each case
// loads the module anew. Results go to the kernel log.

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/klog.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char* kProfile = "/proc/velabootprof";
constexpr const char* kMonitor = "/dev/bootvigilk";
constexpr unsigned long kCancel = 0xC0046202;
constexpr int kEvents = 4500;  // more than are kept
constexpr int kFirst = 512;    // kept of them
constexpr int kLast = 3584;
constexpr int kRate = 256;  // in five seconds
constexpr uid_t kUser = 1000;

int gFailures = 0;

[[gnu::format(printf, 1, 2)]] void say(const char* format, ...) {
    char text[400];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    std::ofstream("/dev/kmsg") << std::string("<6>modtest: ") + text + "\n" << std::flush;
}

#define EXPECT_EQ(got, wanted, what)                                                               \
    do {                                                                                           \
        const auto isGot = (got);                                                                  \
        const decltype(isGot) isWanted = (wanted);                                                 \
        if (isGot == isWanted) break;                                                              \
        ++gFailures;                                                                               \
        std::ostringstream message;                                                                \
        message << "line " << __LINE__ << ": " << (what) << ": " << isGot << ", not " << isWanted; \
        say("FAILED %s", message.str().c_str());                                                   \
    } while (false)

int errorOf(long result) {
    return result < 0 ? errno : 0;
}

double seconds() {
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

int load(const char* parameters) {
    const int fd = open("/bootvigilk.ko", O_RDONLY | O_CLOEXEC);
    const int error = errorOf(syscall(SYS_finit_module, fd, parameters, 0));
    close(fd);
    return error;
}

int unload() {
    return errorOf(syscall(SYS_delete_module, "bootvigilk", O_NONBLOCK));
}

int writeEvent(const std::string& line) {
    const int fd = open(kProfile, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int error = errorOf(write(fd, line.data(), line.size()));
    close(fd);
    return error;
}

std::string readText(const char* path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// How many events the kernel holds; it counts them exactly only where it checks its caches.
int eventsHeld() {
    int held = -1;
    for (const std::string& line : linesOf(readText("/proc/slabinfo"))) {
        sscanf(line.c_str(), "bootvigilk_event %d", &held);
    }
    return held;
}

// Runs it in a process; what it returns.
pid_t start(const std::function<int()>& run) {
    const pid_t pid = fork();
    if (pid == 0) _exit(run());
    return pid;
}

int resultOf(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void testParameters() {
    for (const char* parameters : {"action=halt", "action=", "timeout=86401", "timeout=-1"}) {
        EXPECT_EQ(load(parameters), EINVAL, parameters);
    }
    EXPECT_EQ(load(""), 0, "the defaults");
}

void testLines() {
    const std::string named = "@5.25 :7-x :";
    const std::pair<std::string, int> lines[] = {
            {"an event\n", 0},
            {std::string(160, 'x'), 0},
            {std::string(161, 'x'), EINVAL},
            {std::string(1 << 20, 'x'), EINVAL},
            {"", EINVAL},
            {"  \n", EINVAL},
            {"two\nlines", EINVAL},
            {"a\tb", EINVAL},
            {"a : :b", EINVAL},
            {std::string("a\0b", 3), EINVAL},
            {named + "b", 0},
            {named + std::string(160, 'x') + "\n", 0},
            {named, EINVAL},
            {"@99999999 :7-x :not yet", EINVAL},
    };
    size_t kept = 0;
    for (const auto& [line, error] : lines) {
        EXPECT_EQ(writeEvent(line), error, line.substr(0, 40));
        if (error == 0) ++kept;
    }
    const int fd = open(kProfile, O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(errorOf(syscall(SYS_write, fd, 8L, 1L)), EFAULT, "no memory");
    close(fd);
    const pid_t pid = start([] {
        prctl(PR_SET_NAME, "a : \n :\x1b[2J");
        return writeEvent("of a strange name");
    });
    EXPECT_EQ(resultOf(pid), 0, "a strange name");
    const std::vector<std::string> profile = linesOf(readText(kProfile));
    EXPECT_EQ(profile.size(), kept + 7, "lines");
    char wanted[80];
    snprintf(wanted, sizeof(wanted), ":%5d-%-16s: of a strange name", pid, "a ? ? ??[2J");
    EXPECT_EQ(profile[profile.size() - 3].substr(18), std::string(wanted), "its line");
}

// The text is the one that the lab makes of the same events.
void testText() {
    const std::string wanted = readText("/profile.txt");
    for (const std::string& line : linesOf(wanted)) {
        if (line.find('-') > 20 && line.find('-') != std::string::npos) {
            EXPECT_EQ(writeEvent("@" + line), 0, line);
        }
    }
    // When the module was loaded, and now.
    const std::regex when(" *[0-9]+\\.[0-9]{6} : (ON|OFF)");
    EXPECT_EQ(std::regex_replace(readText(kProfile), when, "$1"),
              std::regex_replace(wanted, when, "$1"), "text");
}

void testPermissions() {
    const auto asUser = [](const char* line) {
        return resultOf(start([line] {
            return setgroups(0, nullptr) + setgid(kUser) + setuid(kUser) == 0 ? writeEvent(line)
                                                                              : 255;
        }));
    };
    struct stat status = {};
    stat(kProfile, &status);
    EXPECT_EQ(status.st_mode, S_IFREG | 0600, "mode");
    EXPECT_EQ(asUser("of a stranger"), EACCES, "a stranger");
    EXPECT_EQ(chown(kProfile, kUser, 0) + chmod(kProfile, 0660), 0, "owner and mode");
    EXPECT_EQ(asUser("of the owner"), 0, "the owner");
    EXPECT_EQ(asUser("@5 :7-x :of another"), EPERM, "another's event");
    // Who opened the file matters, not who writes.
    EXPECT_EQ(resultOf(start([] {
                  const int fd = open(kProfile, O_WRONLY | O_CLOEXEC);
                  if (setuid(kUser) != 0) return 255;
                  return errorOf(write(fd, "@5 :7-x :handed over", 20));
              })),
              0, "a file handed over");
}

// In each snapshot each writer's events are complete so far and in order, and so are the times.
void checkSnapshot(const std::string& text, const std::vector<pid_t>& writers) {
    const std::vector<std::string> lines = linesOf(text);
    EXPECT_EQ(lines.back(), std::string(40, '-'), "the ruler");
    EXPECT_EQ(lines[lines.size() - 2].substr(18), std::string(": OFF"), "the end");
    std::map<int, int> seen;
    double last = 0;
    for (size_t i = 4; i < lines.size() - 2; ++i) {
        double ms = 0;
        int pid = 0;
        int number = 0;
        int turn = 0;
        EXPECT_EQ(sscanf(lines[i].c_str(), "%lf :%d-writer%d : %d", &ms, &pid, &number, &turn), 4,
                  lines[i]);
        EXPECT_EQ(ms >= last, true, "time of " + lines[i]);
        EXPECT_EQ(pid, writers[static_cast<size_t>(number)], lines[i]);
        EXPECT_EQ(turn, seen[number]++, lines[i]);
        last = ms;
    }
}

void testWriters() {
    constexpr int kWriters = 8;
    constexpr int kTurns = 100;
    std::vector<pid_t> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(start([i] {
            prctl(PR_SET_NAME, ("writer" + std::to_string(i)).c_str());
            int failed = 0;
            for (int turn = 0; turn < kTurns; ++turn) {
                if (writeEvent(std::to_string(turn)) != 0) ++failed;
            }
            return failed;
        }));
    }
    int snapshots = 0;
    for (pid_t writer : writers) {
        int status = 0;
        for (; waitpid(writer, &status, WNOHANG) == 0; ++snapshots) {
            checkSnapshot(readText(kProfile), writers);
        }
        EXPECT_EQ(status, 0, "a writer");
    }
    const std::string text = readText(kProfile);
    checkSnapshot(text, writers);
    EXPECT_EQ(linesOf(text).size(), kWriters * kTurns + 6U, "lines");
    say("%d snapshots beside %d writers", snapshots, kWriters);
}

void testOverflow() {
    const std::string filling(150, '.');
    const int fd = open(kProfile, O_WRONLY | O_CLOEXEC);
    for (int i = 0; i < kEvents; ++i) {
        char line[200];
        const int size =
                snprintf(line, sizeof(line), "@%d :7-x :%05d%s", i % 100, i, filling.c_str());
        EXPECT_EQ(write(fd, line, static_cast<size_t>(size)), size, line);
        if (i != kFirst + kLast - 1) continue;
        EXPECT_EQ(readText(kProfile).find(" left out\n"), std::string::npos, "full");
    }
    close(fd);
    const std::vector<std::string> lines = linesOf(readText(kProfile));
    EXPECT_EQ(lines.size(), kFirst + kLast + 7U, "lines");
    EXPECT_EQ(lines[4 + kFirst], std::string("       ... : 404 events left out"),
              "the line between");
    for (int i = 0; i < kFirst + kLast; ++i) {
        const bool early = i < kFirst;
        const std::string& line = lines[static_cast<size_t>(4 + i + (early ? 0 : 1))];
        EXPECT_EQ(atoi(line.c_str() + 42), early ? i : i + kEvents - kFirst - kLast, line);
    }
    EXPECT_EQ(eventsHeld(), kFirst + kLast, "events held");
}

// Other processes may write while one may not, which may again when its five seconds are over.
void testRate() {
    const double begin = seconds();
    for (int i = 0; i < kRate; ++i) EXPECT_EQ(writeEvent("too fast"), 0, i);
    EXPECT_EQ(writeEvent("too fast"), EAGAIN, "one too many");
    EXPECT_EQ(resultOf(start([] { return writeEvent("of another"); })), 0, "another");
    EXPECT_EQ(writeEvent("@5 :7-x :of another"), 0, "in another's name");
    while (writeEvent("later") == EAGAIN && seconds() - begin < 20) usleep(100000);
    const double waited = seconds() - begin;
    EXPECT_EQ(waited > 4.9 && waited < 8, true, waited);
}

// What the request gives, with the machine word's size and with 32 bits.
void expectCancel(int error, const char* what) {
    const int fd = open(kMonitor, O_RDWR | O_CLOEXEC);
    int argument = 0;
    EXPECT_EQ(errorOf(ioctl(fd, kCancel, &argument)), error, what);
    for (unsigned long request : {kCancel + 1, kCancel ^ 0x80000000, 0UL}) {
        EXPECT_EQ(errorOf(ioctl(fd, request, &argument)), ENOTTY, request);
    }
    const pid_t pid = start([] { return execl("/compat", "compat", nullptr); });
    EXPECT_EQ(resultOf(pid), error, std::string(what) + ", 32 bits");
    close(fd);
}

int markers() {
    std::string text(1 << 20, '\0');
    const int size = klogctl(3 /* read all */, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<size_t>(size));
    int count = 0;
    const std::regex marker("\\] bootvigil init_monitor_thread_main create KE\n");
    for (std::sregex_iterator i(text.begin(), text.end(), marker), end; i != end; ++i) ++count;
    return count;
}

// Cancelled by 64 or by 32 bits, expired, unloaded: "panic" would end the machine.
void testMonitor() {
    const int before = markers();
    expectCancel(0, "armed");
    expectCancel(0, "cancelled");
    EXPECT_EQ(unload(), 0, "unload");

    EXPECT_EQ(load("timeout=1 action=panic"), 0, "load");
    EXPECT_EQ(resultOf(start([] { return execl("/compat", "compat", nullptr); })), 0, "32 bits");
    usleep(1500000);
    EXPECT_EQ(unload(), 0, "unload");
    EXPECT_EQ(load("timeout=1 action=panic"), 0, "load");
    EXPECT_EQ(unload(), 0, "unload while armed");
    EXPECT_EQ(load("timeout=0 action=panic"), 0, "load");
    usleep(1500000);
    EXPECT_EQ(markers(), before, "markers of a cancelled monitor");
    EXPECT_EQ(unload(), 0, "unload");

    EXPECT_EQ(load("timeout=1"), 0, "load");
    usleep(1500000);
    EXPECT_EQ(markers(), before + 1, "markers of an expired one");
    expectCancel(ETIME, "expired");
}

// The module stays while its device is open; its file is closed under the reader.
void testUnload() {
    const int monitor = open(kMonitor, O_RDWR | O_CLOEXEC);
    const int second = open(kMonitor, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(monitor >= 0 && second >= 0, true, "open twice");
    EXPECT_EQ(unload(), EAGAIN, "unload while open");
    close(monitor);
    close(second);
    const int profile = open(kProfile, O_RDWR | O_CLOEXEC);
    char byte;
    EXPECT_EQ(read(profile, &byte, 1), 1, "read");
    EXPECT_EQ(unload(), 0, "unload");
    EXPECT_EQ(errorOf(read(profile, &byte, 1)), EIO, "read after that");
    EXPECT_EQ(errorOf(write(profile, "x", 1)), EIO, "write after that");
    close(profile);
    EXPECT_EQ(load(""), 0, "load again");
}

}  // namespace

int main() {
    const std::pair<const char*, void (*)()> tests[] = {{"parameters", testParameters},
                                                        {"lines", testLines},
                                                        {"text", testText},
                                                        {"permissions", testPermissions},
                                                        {"writers", testWriters},
                                                        {"overflow", testOverflow},
                                                        {"rate", testRate},
                                                        {"monitor", testMonitor},
                                                        {"unload", testUnload}};
    for (const auto& [name, test] : tests) {
        const double begin = seconds();
        if (test != testParameters) EXPECT_EQ(load(""), 0, name);
        test();
        EXPECT_EQ(unload(), 0, name);
        say("%s: %.1f s", name, seconds() - begin);
    }
    say("%zu tests, %d failures", std::size(tests), gFailures);
    return gFailures == 0 ? 0 : 1;
}
