// SPDX-License-Identifier: Apache-2.0
// The virtual device's init: provides what the platform gives the daemon, starts it, and reboots
// when it asks for that. It logs to the kernel log, as inits do.
//
// The kernel's command line says what goes wrong: "hang=cold" stalls each boot that is no recovery
// reboot; "power=cut" leaves the machine on after the daemon's end, until its power is cut.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr int kClockRate = 30;                    // seconds of the daemon in one of the kernel
constexpr int kBootedAt = 20;                     // seconds of the daemon until a good boot is up
constexpr const char* kSystemServerPid = "1113";  // as the boot profiles have it
constexpr const char* kProc = "/run/proc";        // the real procfs
constexpr const char* kProperties = "/dev/__properties__/";
constexpr const char* kMainLog = "/dev/log/main";
constexpr const char* kRebootRequest = "sys.velas_recovery_reboot";
constexpr const char* kRecoveryReason = "reboot,velarecovery";

[[gnu::format(printf, 1, 2)]] void say(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    // Without its line feed the kernel would keep the line back until the next one.
    std::ofstream("/dev/kmsg") << std::string("<6>init: ") + text + "\n" << std::flush;
}

[[noreturn]] void powerOff() {
    sync();
    reboot(RB_POWER_OFF);
    _exit(1);
}

void need(bool done, const std::string& what) {
    if (done) return;
    say("FAILED: %s: %s", what.c_str(), strerror(errno));
    powerOff();
}

std::string readText(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    need(!file.fail(), path);
}

bool mountAt(const char* type, const std::string& source, const std::string& target,
             unsigned long flags = 0) {
    fs::create_directories(target);
    return mount(source.c_str(), target.c_str(), type, flags, nullptr) == 0;
}

void setProperty(const char* name, const char* value) {
    writeText(std::string(kProperties) + name, value);
}

// A module's file name begins with its turn.
void loadModules() {
    for (const auto& module : std::set<fs::path>(fs::directory_iterator("/modules"), {})) {
        const int fd = open(module.c_str(), O_RDONLY | O_CLOEXEC);
        need(fd >= 0 && syscall(SYS_finit_module, fd, "", 0) == 0, "load " + module.string());
        close(fd);
    }
}

// The block device with this serial number, empty without one.
std::string diskNamed(const std::string& serial) {
    for (const auto& disk : fs::directory_iterator("/sys/block")) {
        const std::string name = disk.path().filename();
        if (readText(disk.path() / "serial") == serial) return "/dev/" + name;
    }
    return "";
}

// A procfs takes no new files: /proc is a tmpfs whose links lead to the real one, beside the boot
// profile. Nobody but the daemon and its commands look there.
void makeProc(bool hangs) {
    need(mountAt("tmpfs", "proc", "/proc"), "mount /proc");
    for (const auto& entry : fs::directory_iterator(kProc)) {
        const std::string name = entry.path().filename();
        if (isdigit(name[0]) == 0) fs::create_symlink(entry.path(), "/proc/" + name);
    }
    fs::copy_file(hangs ? "/profiles/hang" : "/profiles/healthy", "/proc/bootprof");
}

void makePlatform() {
    need(mountAt("devtmpfs", "dev", "/dev"), "mount /dev");
    need(mountAt("proc", "proc", kProc), "mount procfs");
    need(mountAt("sysfs", "sys", "/sys"), "mount /sys");
    need(mountAt("pstore", "pstore", "/sys/fs/pstore"), "mount /sys/fs/pstore");
    loadModules();
    for (const char* folder : {"/dev/log", "/dev/shm", kProperties}) fs::create_directories(folder);
    const bool binderfs = mountAt("binder", "binder", "/dev/binderfs");
    say("binder: driver %s, binderfs %s", fs::exists("/dev/binder") ? "loaded" : "absent",
        binderfs ? "mounted" : "not in this kernel");
    say("pstore: %zd entries", std::distance(fs::directory_iterator("/sys/fs/pstore"), {}));
}

// Mounted so that a write is on the disk when it returns: the daemon leaves that to the platform.
void mountPartition() {
    const std::string disk = diskNamed("velafs");
    if (disk.empty()) {
        say("/velafs: no such partition");
        return;
    }
    need(mountAt("ext4", disk, "/velafs", MS_SYNCHRONOUS), "mount /velafs");
    fs::create_directories("/velafs/boot_vigil/log");
    fs::create_directories("/velafs/SDD");
    say("/velafs: %s mounted", disk.c_str());
}

// What outlives a reboot beside the partition: why the machine was rebooted, and how many seconds
// the daemon's clock is ahead of the kernel's.
struct Misc {
    std::string disk = diskNamed("misc");
    std::string reason;
    long ahead = 0;

    void read() {
        std::istringstream(readText(disk)) >> reason >> ahead;
    }

    void write() const {
        const int fd = open(disk.c_str(), O_WRONLY | O_SYNC | O_CLOEXEC);
        need(fd >= 0 && dprintf(fd, "%s %ld\n", reason.c_str(), ahead) > 0, "write misc");
        close(fd);
    }
};

// A process that hangs, with the pid that the profile names.
void startSystemServer() {
    writeText(std::string(kProc) + "/sys/kernel/ns_last_pid",
              std::to_string(atoi(kSystemServerPid) - 1));
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_NAME, "system_server");
        sigset_t quit;
        sigemptyset(&quit);
        sigaddset(&quit, SIGQUIT);
        sigprocmask(SIG_BLOCK, &quit, nullptr);
        for (;;) {
            siginfo_t info = {};
            if (sigwaitinfo(&quit, &info) < 0) continue;
            say("system_server: signal %d from process %d", info.si_signo, info.si_pid);
        }
    }
    need(std::to_string(pid) == kSystemServerPid, "start system_server");
}

// The daemon's standard error, which is its log on a workstation's liblog, comes through `log`.
pid_t startDaemon(int& log, long ahead) {
    int ends[2];
    need(pipe2(ends, O_CLOEXEC) == 0, "pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        setsid();
        umask(0077);
        dup2(ends[1], STDERR_FILENO);
        const std::string clock =
                "FAKETIME=+" + std::to_string(ahead) + "s x" + std::to_string(kClockRate);
        const char* const environment[] = {"PATH=/system/bin", clock.c_str(),
                                           "FAKETIME_DONT_FAKE_MONOTONIC=0",
                                           "LD_PRELOAD=/lib/aarch64-linux-gnu/libfaketime.so.1",
                                           nullptr};
        execle("/system/bin/bootvigil", "bootvigil", nullptr, environment);
        _exit(127);
    }
    close(ends[1]);
    log = ends[0];
    say("starting service 'bootvigil', process %d", pid);
    return pid;
}

// Brings a line of the host's liblog into the form that logcat prints.
std::string asLogcat(const std::string& line) {
    char tag[32];
    char priority;
    char day[8];
    char time[16];
    int pid;
    int tid;
    int text = 0;
    if (sscanf(line.c_str(), "%31s %c %7s %15s %d %d %n", tag, &priority, day, time, &pid, &tid,
               &text) != 6) {
        return line;
    }
    char head[128];
    snprintf(head, sizeof(head), "%s %s.000 %5d %5d %c %s: ", day, time, pid, tid, priority, tag);
    return head + line.substr(text);
}

// The framework of a good boot; it comes up while the daemon waits for it.
void startFramework() {
    if (fork() != 0) return;
    usleep(kBootedAt * 1000000 / kClockRate);
    for (const char* name :
         {"sys.boot_completed", "service.bootanim.exit", "sys.vela.BOOT_COMPLETED"}) {
        setProperty(name, "1");
    }
    say("framework: boot completed");
    _exit(0);
}

// Keeps the daemon's log until the daemon has left, and prints it.
void superviseDaemon(pid_t pid, int log) {
    std::ofstream mainLog(kMainLog);
    FILE* lines = fdopen(log, "r");
    char* line = nullptr;
    size_t capacity = 0;
    while (getline(&line, &capacity, lines) > 0) {
        if (*line != '\n') mainLog << asLogcat(line) << std::flush;
    }
    int status = 0;
    struct rusage used = {};
    need(wait4(pid, &status, 0, &used) == pid, "wait for bootvigil");
    std::ifstream kept(kMainLog);
    std::cout << kept.rdbuf() << std::flush;
    need(WIFEXITED(status), "bootvigil was killed");
    say("bootvigil exited with status %d, peak memory %ld KiB", WEXITSTATUS(status),
        used.ru_maxrss);
}

bool isGiven(const char* option, const char* value) {
    const char* const given = getenv(option);  // the kernel hands over what it doesn't know itself
    return given != nullptr && strcmp(given, value) == 0;
}

}  // namespace

int main() {
    makePlatform();
    Misc misc;
    misc.read();
    const bool hangs = isGiven("hang", "cold") && misc.reason != kRecoveryReason;
    say("sys.boot.reason %s; this boot %s", misc.reason.c_str(), hangs ? "hangs" : "is good");
    setProperty("sys.boot.reason", misc.reason.c_str());
    setProperty("ro.boot.mode", "normal");
    misc.reason = "cold";
    misc.write();
    makeProc(hangs);
    mountPartition();

    const time_t start = time(nullptr);
    hangs ? startSystemServer() : startFramework();
    int log = -1;
    const pid_t daemon = startDaemon(log, misc.ahead);
    superviseDaemon(daemon, log);

    const bool cut = isGiven("power", "cut");
    const bool reboots = !cut && readText(std::string(kProperties) + kRebootRequest) == "1";
    if (reboots) misc.reason = kRecoveryReason;
    misc.ahead += (time(nullptr) - start + 1) * kClockRate;
    misc.write();
    if (cut) {
        say("waiting for the power cut");
        for (;;) pause();
    }
    umount("/velafs");
    if (!reboots) powerOff();
    say("%s is 1: rebooting", kRebootRequest);
    sync();
    reboot(RB_AUTOBOOT);
}
