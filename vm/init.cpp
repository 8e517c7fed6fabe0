// SPDX-License-Identifier: Apache-2.0
// The virtual device's init: makes what a platform gives the daemon, starts the shipped programs at
// the steps of their start-up files, and reboots when it is told to. It logs to the kernel log.
//
// The kernel's command line says what happens:
//   boot=stall     the framework hangs in each boot that is no recovery reboot
//   boot=loop      the framework is started again and again, in each boot
//   boot=stock     the framework writes no events: the feed takes them from its log
//   power=request  when the daemon asks for a reboot, the power cut comes before anything is done
//   end=finished   the machine is switched off when the daemon has found the boot complete
//   list=LINE      a recovery list is pushed
//   daemon=none    no daemon is started
//   monitor=PARAMETER,...  of the driver; modtest=1 runs its tests instead of a boot

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr double kBootedAt = 20;  // seconds after the framework's start
constexpr const char* kProfile = "/proc/velabootprof";
constexpr size_t kNameWidth = 16;  // of a process in the profile
constexpr uid_t kRoot = 0;
constexpr uid_t kSystem = 1000;
constexpr uid_t kLog = 1007;
constexpr const char* kLastOfHang = "AMS:systemReady";
constexpr const char* kFirstOfLoop = "Zygote:Preload Start";
constexpr const char* kLastOfLoop = "Android:PMS_scan_START";
constexpr double kLoopPeriod = 6;  // seconds
constexpr const char* kProperties = "/dev/__properties__/";
constexpr const char* kMainLog = "/dev/log/main";
constexpr const char* kEventsLog = "/dev/log/events";
constexpr const char* kRebootRequest = "sys.velas_recovery_reboot";
constexpr const char* kPowerControl = "sys.powerctl";
constexpr const char* kReasonFile = "/metadata/boot_reason";
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

[[noreturn]] void awaitPowerCut() {
    say("waiting for the power cut");
    for (;;) pause();
}

std::string readText(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeText(const std::string& path, const std::string& text,
               std::ios::openmode mode = std::ios::trunc) {
    std::ofstream file(path, std::ios::out | mode);
    file << text << std::flush;
    need(!file.fail(), path);
}

bool mountAt(const char* type, const std::string& source, const std::string& target,
             unsigned long flags = 0) {
    fs::create_directories(target);
    return mount(source.c_str(), target.c_str(), type, flags, nullptr) == 0;
}

// As the start-up files do it; a folder that is there keeps its content.
void makeFolder(const std::string& path, mode_t mode, uid_t owner) {
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
        say("mkdir %s: %s", path.c_str(), strerror(errno));
    } else if (chown(path.c_str(), owner, owner) != 0 || chmod(path.c_str(), mode) != 0) {
        say("%s: %s", path.c_str(), strerror(errno));
    }
}

void setProperty(const char* name, const char* value) {
    writeText(std::string(kProperties) + name, value);
}

std::string property(const char* name) {
    return readText(std::string(kProperties) + name);
}

// The kernel hands over the words of its command line that it doesn't know itself.
std::string option(const char* name) {
    const char* const given = getenv(name);
    return given == nullptr ? "" : given;
}

double seconds() {
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void sleepUntil(double end) {
    const double left = end - seconds();
    if (left > 0) usleep(static_cast<useconds_t>(left * 1e6));
}

// ---- What the platform gives.

void loadModule(const fs::path& module, const std::string& parameters = "") {
    const int fd = open(module.c_str(), O_RDONLY | O_CLOEXEC);
    need(fd >= 0 && syscall(SYS_finit_module, fd, parameters.c_str(), 0) == 0,
         "load " + module.string());
    close(fd);
}

// A module's file name begins with its turn.
void loadModules() {
    for (const auto& module : std::set<fs::path>(fs::directory_iterator("/modules"), {})) {
        loadModule(module);
    }
}

// With the owners and modes that start-up gives.
void loadDriver() {
    std::string parameters = option("monitor");
    std::replace(parameters.begin(), parameters.end(), ',', ' ');
    const double start = seconds();
    loadModule("/bootvigilk.ko", parameters);
    say("bootvigilk: loaded in %.1f ms", (seconds() - start) * 1000);
    need(chown(kProfile, kSystem, kRoot) == 0 && chmod(kProfile, 0660) == 0, kProfile);
    need(chown("/dev/bootvigilk", kLog, kLog) == 0, "/dev/bootvigilk");
    need(chmod("/dev/kmsg", 0620) == 0, "/dev/kmsg");
}

// The block device with this serial number, empty without one.
std::string diskNamed(const std::string& serial) {
    for (const auto& disk : fs::directory_iterator("/sys/block")) {
        const std::string name = disk.path().filename();
        if (readText(disk.path() / "serial") == serial) return "/dev/" + name;
    }
    return "";
}

void makePlatform() {
    need(mountAt("devtmpfs", "dev", "/dev"), "mount /dev");
    need(mountAt("proc", "proc", "/proc"), "mount /proc");
    need(mountAt("sysfs", "sys", "/sys"), "mount /sys");
    need(mountAt("pstore", "pstore", "/sys/fs/pstore"), "mount /sys/fs/pstore");
    loadModules();
    for (const char* folder : {"/dev/log", "/dev/shm", kProperties}) fs::create_directories(folder);
    need(chmod(kProperties, 0777) == 0, kProperties);  // init's own on a device, behind a socket
    const bool binderfs = mountAt("binder", "binder", "/dev/binderfs");
    say("binder: driver %s, binderfs %s", fs::exists("/dev/binder") ? "loaded" : "absent",
        binderfs ? "mounted" : "not in this kernel");
    say("pstore: %zd entries", std::distance(fs::directory_iterator("/sys/fs/pstore"), {}));
}

// One that can't be written is mounted all the same, as start-up does. Not with "sync": that is
// left to the program that answers the daemon. False without the partition.
bool mountPartition(const char* name, const std::string& folder) {
    const std::string disk = diskNamed(name);
    if (disk.empty()) {
        say("%s: no such partition", folder.c_str());
        return false;
    }
    need(mountAt("ext4", disk, folder), "mount " + folder);
    const bool writable = access(folder.c_str(), W_OK) == 0;
    say("%s: %s mounted%s", folder.c_str(), disk.c_str(), writable ? "" : ", read-only");
    return true;
}

// Why the machine was started. A start without a reason is a cold one.
std::string takeBootReason() {
    const std::string reason = readText(kReasonFile);
    unlink(kReasonFile);
    return reason.empty() ? "cold" : reason;
}

// ---- Programs.

struct Service {
    std::vector<const char*> command;
    uid_t user = kRoot;  // with a group of the same number, and "root"
    std::vector<int> capabilities = {};
};

// Gives this process the service's user, its groups, and no capability but the service's.
void become(const Service& service) {
    if (service.user == kRoot) return;
    const gid_t groups[] = {service.user, kRoot};
    struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct sets[2] = {};
    for (int capability : service.capabilities) {
        const uint32_t bit = 1U << (capability % 32);
        auto& set = sets[capability / 32];
        set.effective = set.permitted = set.inheritable = set.inheritable | bit;
    }
    need(setgroups(2, groups) == 0 && prctl(PR_SET_KEEPCAPS, 1) == 0 &&
                 setresgid(service.user, service.user, service.user) == 0 &&
                 setresuid(service.user, service.user, service.user) == 0 &&
                 syscall(SYS_capset, &header, sets) == 0,
         "become a service");
    for (int capability : service.capabilities) {
        need(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) == 0, "capability");
    }
}

// `errors` becomes the program's standard error, unless it is -1.
pid_t start(const Service& service, int errors = -1) {
    const pid_t pid = fork();
    if (pid != 0) {
        say("starting '%s', process %d", service.command[0], pid);
        return pid;
    }
    setsid();
    umask(0077);
    if (errors >= 0) dup2(errors, STDERR_FILENO);
    become(service);
    std::vector<char*> words;
    for (const char* word : service.command) words.push_back(const_cast<char*>(word));
    words.push_back(nullptr);
    const char* const environment[] = {"PATH=/system/bin", nullptr};
    execve(words[0], words.data(), const_cast<char**>(environment));
    _exit(127);
}

int statusOf(pid_t pid) {
    int status = 0;
    need(waitpid(pid, &status, 0) == pid, "wait");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// ---- The framework.

struct Event {
    double at;  // seconds after the framework's start
    std::string process;
    std::string text;
};

// The events of a real boot: "  14355.576572 : 1113-system_server   : AMS:systemReady".
std::vector<Event> eventsOfBoot() {
    std::vector<Event> events;
    std::ifstream file("/healthy.txt");
    std::string line;
    double first = 0;
    while (std::getline(file, line)) {
        const size_t name = line.find('-', line.find(" :")) + 1;
        if (line.size() < name + kNameWidth + 3 || line.compare(name + kNameWidth, 2, ": ") != 0) {
            continue;
        }
        std::string process = line.substr(name, kNameWidth);
        process.erase(process.find_last_not_of(' ') + 1);
        const double at = strtod(line.c_str(), nullptr) / 1000;
        if (events.empty()) first = at;
        events.push_back({at - first, process, line.substr(name + kNameWidth + 2)});
    }
    need(!events.empty(), "read /healthy.txt");
    return events;
}

// A process of the platform: writes what it is told to, and tells of a signal. It never ends.
struct Process {
    pid_t pid;
    int told;
};

// To its file, whose lines are the process's own; the users are those of a device.
Process startProcess(const std::string& name, const char* path) {
    int ends[2];
    need(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0, "socketpair");
    const pid_t pid = fork();
    if (pid != 0) {
        close(ends[0]);
        return {pid, ends[1]};
    }
    close(ends[1]);
    prctl(PR_SET_NAME, name.c_str());
    const bool isRoot =
            std::set<std::string>{"init", "vold", "main", "zygote64", "zygote"}.count(name);
    become({{}, isRoot ? kRoot : kSystem, {}});
    sigset_t quit;
    sigemptyset(&quit);
    sigaddset(&quit, SIGQUIT);
    sigprocmask(SIG_BLOCK, &quit, nullptr);
    struct pollfd ready[] = {{ends[0], POLLIN, 0}, {signalfd(-1, &quit, 0), POLLIN, 0}};
    const int file = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    for (;;) {
        poll(ready, 2, -1);
        char event[256];
        if (ready[0].revents != 0) {
            const ssize_t size = recv(ends[0], event, sizeof(event), 0);
            if (size == 0) _exit(0);
            need(size > 0 && write(file, event, static_cast<size_t>(size)) == size,
                 name + ": write an event");
            send(ends[0], "", 1, 0);
        }
        struct signalfd_siginfo info;
        if (ready[1].revents != 0 && read(ready[1].fd, &info, sizeof(info)) > 0) {
            say("%s: signal %u from process %u", name.c_str(), info.ssi_signo, info.ssi_pid);
        }
    }
}

class Framework {
public:
    void write(const std::string& process, const std::string& text, const char* path = kProfile) {
        if (mProcesses.count(process) == 0) mProcesses[process] = startProcess(process, path);
        const int told = mProcesses[process].told;
        char done;
        need(send(told, text.data(), text.size(), 0) > 0 && recv(told, &done, 1, 0) == 1,
             "tell " + process);
    }

    pid_t pidOf(const std::string& process, const char* path) {
        if (mProcesses.count(process) == 0) mProcesses[process] = startProcess(process, path);
        return mProcesses[process].pid;
    }

    // What is started next has other pids.
    void kill() {
        for (const char* name : {"main", "system_server"}) {
            if (mProcesses.count(name) == 0) continue;
            ::kill(mProcesses[name].pid, SIGKILL);
            statusOf(mProcesses[name].pid);
            mProcesses.erase(name);
        }
    }

private:
    std::map<std::string, Process> mProcesses;
};

// The processes log the events of a real boot, at its times, and up to the last of a hang.
void boot(Framework& framework, bool hangs) {
    const double start = seconds();
    for (const Event& event : eventsOfBoot()) {
        sleepUntil(start + event.at);
        framework.write(event.process, event.text);
        if (hangs && event.text == kLastOfHang) return;
    }
}

void bootForEver(Framework& framework) {
    double start = seconds();
    const std::vector<Event> events = eventsOfBoot();
    const auto first = std::find_if(events.begin(), events.end(),
                                    [](const Event& event) { return event.text == kFirstOfLoop; });
    for (auto event = events.begin();; ++event) {
        sleepUntil(start + event->at);
        framework.write(event->process, event->text);
        if (event->text != kLastOfLoop) continue;
        start += kLoopPeriod;
        framework.kill();
        event = first - 1;
    }
}

// A stock framework: lines of a recorded events buffer at their times, logged by processes of this
// machine. What init itself knows, it writes as bootvigil-feed.rc has it.
void bootStock(Framework& framework) {
    std::ifstream file("/feed-events.txt");
    std::string line;
    const double start = seconds();
    writeText(kProfile, "vold:fbeEnable:START");
    while (std::getline(file, line)) {
        char user[16];
        double second = 0;
        int pid = 0;
        int tag = 0;
        if (sscanf(line.c_str(), "%*s %*d:%*d:%lf %15s %d %*d I %n", &second, user, &pid, &tag) !=
            3) {
            continue;
        }
        sleepUntil(start + second);
        std::string text = line.substr(static_cast<size_t>(tag));
        if (text.compare(0, 13, "boot_progress") == 0) {
            text = text.substr(0, text.find(' ') + 1) +
                   std::to_string(static_cast<int>(seconds() * 1000));
        }
        const std::string process = pid == 1113 ? "system_server" : pid == 512 ? "main" : "other";
        const int own = framework.pidOf(process, kEventsLog);
        char head[80];
        snprintf(head, sizeof(head), "%.18s %5s %5d %5d I ", line.c_str(), user, own, own);
        framework.write(process, head + text + "\n", kEventsLog);
    }
}

// A good boot comes up while the daemon waits for it.
void startFramework(const std::string& how) {
    if (fork() != 0) return;
    const double start = seconds();
    Framework framework;
    if (how == "loop") {
        bootForEver(framework);
    } else if (how == "stock") {
        bootStock(framework);
    } else {
        boot(framework, how == "stall");
    }
    sleepUntil(start + kBootedAt);
    if (how != "stall") {
        setProperty("service.bootanim.exit", "1");
        setProperty("sys.boot_completed", "1");
        if (how == "stock") writeText(kProfile, "Post BOOT_COMPLETED");
        if (how != "stock") setProperty("sys.vela.BOOT_COMPLETED", "1");
        say("framework: boot completed");
    }
    for (;;) pause();
}

// ---- The daemon's log, which a workstation's liblog writes to standard error.

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

// ---- The boot.

class Init {
public:
    void run() {
        makePartitions();
        const std::string reason = takeBootReason();
        std::string how = option("boot");
        if (how == "stall" && reason == kRecoveryReason) how = "good";
        say("sys.boot.reason %s; boot=%s", reason.c_str(), how.c_str());
        setProperty("sys.boot.reason", reason.c_str());
        setProperty("ro.boot.mode", "normal");
        setProperty("ro.bootvigil.reboot_wait", "5");
        if (option("daemon") == "none") {
            startFramework(how);
            say("no daemon is started");
            for (;;) pause();
        }
        say("prepare: status %d", statusOf(start({{"/system/bin/bootvigil-prepare"}, kLog})));
        start({{"/system/bin/bootvigil-act", "start"}, kSystem});
        startDaemon();
        if (how == "stock") {
            writeText(kEventsLog, "");
            need(chmod(kEventsLog, 0666) == 0, kEventsLog);
            start({{"/system/bin/bootvigil-feed"}, kLog, {CAP_SYSLOG}});
        }
        startFramework(how);
        for (;;) {
            readLog();
            reap();
            act();
        }
    }

private:
    void makePartitions() {
        if (mountPartition("metadata", "/metadata")) {
            makeFolder("/metadata/bootvigil", 0700, kSystem);
        }
        makeFolder("/data/vela_dfr", 0700, kLog);
        writeText("/data/vela_dfr/firstboot", "");
        if (!mountPartition("velafs", "/velafs")) return;
        makeFolder("/velafs/boot_vigil", 01777, kLog);
        makeFolder("/velafs/boot_vigil/log", 0700, kLog);
        makeFolder("/velafs/SDD", 0711, kLog);
        if (!option("list").empty()) {
            writeText("/velafs/boot_vigil/recoveryList", option("list") + "\n");
        }
    }

    void startDaemon() {
        int ends[2];
        need(pipe2(ends, O_CLOEXEC) == 0, "pipe");
        mDaemon = start({{"/system/bin/bootvigil"}, kLog, {CAP_KILL, CAP_SYSLOG}}, ends[1]);
        setProperty("init.svc.bootvigil", "running");
        close(ends[1]);
        mLog = fdopen(ends[0], "r");
        setvbuf(mLog, nullptr, _IONBF, 0);
    }

    // What has come of the daemon's log, and otherwise waits a little.
    void readLog() {
        struct pollfd ready = {mLog == nullptr ? -1 : fileno(mLog), POLLIN, 0};
        if (poll(&ready, 1, 200) <= 0) return;
        char* line = nullptr;
        size_t capacity = 0;
        if (getline(&line, &capacity, mLog) > 0) {
            const std::string text = asLogcat(line);
            if (*line != '\n') writeText(kMainLog, text, std::ios::app);
            std::cout << text << std::flush;
            mFinished = mFinished || text.find("boot finished, enter launcher") != text.npos;
        } else {
            fclose(mLog);
            mLog = nullptr;
        }
        free(line);
    }

    void reap() {
        int status = 0;
        struct rusage used = {};
        const pid_t pid = wait4(-1, &status, WNOHANG, &used);
        if (pid == mDaemon && pid > 0) {
            need(WIFEXITED(status), "bootvigil was killed");
            say("bootvigil exited with status %d, peak memory %ld KiB", WEXITSTATUS(status),
                used.ru_maxrss);
            setProperty("init.svc.bootvigil", "stopped");
            mDaemon = 0;
        } else if (pid == mAct && pid > 0) {
            say("act: status %d", WEXITSTATUS(status));
            mAct = 0;
        }
    }

    // What the triggers of the start-up files do.
    void act() {
        if (!mUp && property("sys.boot_completed") == "1") {
            mUp = true;
            start({{"/system/bin/bootvigil-act", "up"}, kSystem});
        }
        if (!mRequested && property(kRebootRequest) == "1") {
            mRequested = true;
            say("%s is 1", kRebootRequest);
            if (option("power") == "request") awaitPowerCut();
            mAct = start({{"/system/bin/bootvigil-act", "reboot"}, kSystem});
        }
        const std::string control = property(kPowerControl);
        const bool isOver = mDaemon == 0 && mLog == nullptr && mAct == 0;
        if (!isOver && control.empty() && !(mFinished && option("end") == "finished")) return;
        if (mFinished) usleep(1000000);  // what the same poll does after it has said so
        leave(control);
    }

    [[noreturn]] void leave(const std::string& control) {
        const std::string profile = readText(kProfile);
        if (fs::exists("/velafs/SDD") && access("/velafs", W_OK) == 0) {
            writeText("/velafs/profile", profile);
        } else {
            std::cout << profile << std::flush;
        }
        if (control.empty()) powerOff();
        say("%s is %s", kPowerControl, control.c_str());
        if (fs::exists("/metadata/bootvigil")) writeText(kReasonFile, control);
        sync();
        umount("/velafs");
        umount("/metadata");
        reboot(RB_AUTOBOOT);
        _exit(1);
    }

    pid_t mDaemon = 0;
    pid_t mAct = 0;
    FILE* mLog = nullptr;
    bool mUp = false;
    bool mRequested = false;
    bool mFinished = false;
};

// In a process of its own: whatever a test does, the machine is switched off.
[[noreturn]] void runModuleTests() {
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/modtest", "modtest", nullptr);
        _exit(127);
    }
    int status = 0;
    need(waitpid(pid, &status, 0) == pid && status == 0, "modtest");
    powerOff();
}

}  // namespace

int main() {
    makePlatform();
    if (option("modtest") == "1") runModuleTests();
    loadDriver();
    Init().run();
}
