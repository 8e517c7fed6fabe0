// SPDX-License-Identifier: Apache-2.0
// The daemon's calls to the file system and for memory: counted, traced, and failing where a
// scenario says so. Like virtual time, libc functions are defined here, in the executable.

#include "lab/device/LibcFiles.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/base/Sanitizers.h"
#include "lab/base/Text.h"
#include "lab/device/LibcTime.h"

namespace lab::calls {

namespace {

using Call = Fault::Call;

constexpr int64_t kWriteBack = 30000;  // ms after which a kernel has written out what was written
constexpr int kMaxFd = 1024;

// A file as it was before its latest writes, which a power cut may take back.
struct Unwritten {
    std::optional<std::string> before;  // unset: it was not there
    int64_t at = 0;                     // of the last write, device time in ms
    bool whole = false;                 // what it holds was synced under another name
};

const Boot* gBoot = nullptr;
Trace* gTrace = nullptr;
std::mutex gLock;  // guards what follows
int64_t gOperations = 0;
int64_t gSpace = -1;
bool gReadOnly = false;      // the partition
std::string gPaths[kMaxFd];  // of watched descriptors
std::map<std::string, Unwritten> gUnwritten;
std::string gRequest;  // to the log-capture service, of which the end is still to come

thread_local int tUnwatched = 0;
thread_local bool tWorker = false;

// Whether a call of this thread is the daemon's.
bool watching() {
    return gBoot != nullptr && tUnwatched == 0;
}

bool onDevice(const char* path) {
    return onPartition(path) || startsWith(path, kData) || startsWith(path, kKeptLogs) ||
           startsWith(path, kMetadata) || startsWith(path, kCache);
}

bool isProperty(const std::string& path) {
    return startsWith(path, kPropertyDir);
}

// What is written there is a message to the platform, and traced as such.
bool isMessage(const std::string& path) {
    return isProperty(path) || path == kKelRequestFile;
}

// The next definition of a libc function: libc's own, or a sanitizer's, which must see the call.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

FILE* realFopen(const char* path, const char* mode) {
    static auto* const function = next<FILE*(const char*, const char*)>("fopen");
    return function(path, mode);
}

int realFclose(void* file) {
    static auto* const function = next<int(FILE*)>("fclose");
    return function(static_cast<FILE*>(file));
}

ssize_t realWrite(int fd, const void* data, size_t size) {
    static auto* const function = next<ssize_t(int, const void*, size_t)>("write");
    return function(fd, data, size);
}

int realClose(void* fd) {
    static auto* const function = next<int(int)>("close");
    return function(*static_cast<int*>(fd));
}

int realRemove(const char* path) {
    static auto* const function = next<int(const char*)>("remove");
    return function(path);
}

// The faults of one kind of call, in order, and how far the calls have come.
struct Failing {
    std::vector<Fault> faults;
    size_t next = 0;
    int64_t until = 0;  // calls below this number fail
    int64_t calls = 0;
};
Failing gFailing[std::size(kCallNames)];

// Whether the scenario lets this call fail; counts it.
bool fails(Call call) {
    Failing& failing = gFailing[static_cast<size_t>(call)];
    ++failing.calls;
    for (; failing.next < failing.faults.size(); ++failing.next) {
        const Fault& fault = failing.faults[failing.next];
        if (fault.nth > failing.calls) break;
        failing.until = std::max(failing.until, fault.nth + fault.times);
    }
    return failing.calls < failing.until;
}

void traceFault(const std::string& what) {
    gTrace->add(vtime::now(), TraceEvent::FAULT, what);
}

bool failsNow(Call call, int error, const char* path = nullptr) {
    if (!fails(call)) return false;
    const char* name = kCallNames[static_cast<size_t>(call)];
    if (path != nullptr) {
        traceFault(std::string(name) + " " + path);
    } else {
        gTrace->add(vtime::now(), TraceEvent::FAULT, name);  // allocates nothing
    }
    errno = error;
    return true;
}

// Whether the scenario lets an allocation of the daemon fail; counts it. A sanitizer's allocator is
// not to be replaced.
bool allocationFails() {
    return !kSanitized && tWorker && watching() && failsNow(Call::MALLOC, ENOMEM);
}

// Keeps what the file holds before it changes.
void keepOld(const std::string& path) {
    if (gBoot->unsynced == Unsynced::KEPT || (gReadOnly && onPartition(path))) return;
    const auto known = gUnwritten.find(path);
    if (known != gUnwritten.end() && vtime::now() - known->second.at <= kWriteBack) {
        known->second.at = vtime::now();
        known->second.whole = false;
        return;
    }
    Unwritten old;
    struct stat info = {};
    if (stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) old.before = readFile(path);
    old.at = vtime::now();
    gUnwritten[path] = old;
}

// A file operation was carried out; the power may go now.
void operationDone(const std::string& name, const std::string& path, bool succeeded) {
    const int error = errno;
    gTrace->add(vtime::now(), TraceEvent::OPERATION,
                std::to_string(++gOperations) + " " + name + " " + path +
                        (succeeded ? "" : " failed"));
    if (gBoot->cutAfter && gOperations == *gBoot->cutAfter) cutPower();
    errno = error;
}

void operationDone(Call call, const std::string& path, bool succeeded) {
    operationDone(kCallNames[static_cast<size_t>(call)], path, succeeded);
}

// Any operation but one on a descriptor; `detail` is shown after its name.
template <typename Operation>
int onPath(Call call, const char* path, Operation operation, const std::string& detail = "") {
    if (!watching() || !onDevice(path)) return operation();
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    keepOld(path);
    const int result = failsNow(call, EIO) ? -1 : operation();
    operationDone(kCallNames[static_cast<size_t>(call)] + detail, path, result == 0);
    return result;
}

// Opens for the daemon; `open` gives a descriptor.
template <typename Open>
int openWatched(const char* path, bool forWriting, Open open) {
    if (!watching()) return open();
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    const bool device = onDevice(path);
    if (device && forWriting) keepOld(path);
    const int fd = !isProperty(path) && failsNow(Call::OPEN, EMFILE, path) ? -1 : open();
    if (forWriting && fd >= 0 && fd < kMaxFd && (device || isMessage(path))) gPaths[fd] = path;
    if (device && forWriting) operationDone(Call::OPEN, path, fd >= 0);
    return fd;
}

bool isWatched(int fd) {
    if (!watching() || fd < 0 || fd >= kMaxFd) return false;
    const std::lock_guard<std::mutex> lock(gLock);
    return !gPaths[fd].empty();
}

// A request is a line; without memory for a buffer it comes byte by byte.
void endRequest() {
    if (!gRequest.empty()) gTrace->add(vtime::now(), TraceEvent::REQUEST, gRequest);
    gRequest.clear();
}

void addToRequest(const std::string& text) {
    gRequest += text;
    if (endsWith(text, "\n")) endRequest();
}

// Writes as far as there is room.
ssize_t writeWatched(int fd, const void* data, size_t size) {
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    const std::string& path = gPaths[fd];
    if (isMessage(path)) {
        const std::string text(static_cast<const char*>(data), size);
        if (isProperty(path)) {
            const std::string name = path.substr(kPropertyDir.size());
            gTrace->add(vtime::now(), TraceEvent::PROPERTY, name + " " + text);
        } else {
            addToRequest(text);
        }
        return realWrite(fd, data, size);
    }
    keepOld(path);
    ssize_t result = -1;
    if (!failsNow(Call::WRITE, EIO)) {
        const bool limited = gSpace >= 0 && onPartition(path);
        const size_t room = limited ? std::min(size, static_cast<size_t>(gSpace)) : size;
        if (room < size) traceFault("space");
        if (room == 0 && size > 0) {
            errno = ENOSPC;
        } else {
            result = realWrite(fd, data, room);
        }
        if (limited && result > 0) gSpace -= result;
    }
    operationDone(Call::WRITE, path, result == static_cast<ssize_t>(size));
    return result;
}

// The kernel has written out these files.
template <typename Matches>
void writeOut(Matches matches) {
    for (auto file = gUnwritten.begin(); file != gUnwritten.end();) {
        file = matches(file->first) ? gUnwritten.erase(file) : std::next(file);
    }
}

bool isIn(const std::string& path, const std::string& folder) {
    return path.substr(0, path.rfind('/')) == folder.substr(0, folder.find_last_not_of('/') + 1);
}

// A file that takes another's place holds what it held, if that was synced: all of it or, where the
// power cut takes back the new name, nothing of it.
int renameWatched(const char* from, const char* to, int (*rename)(const char*, const char*)) {
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    const auto source = gUnwritten.find(from);
    const bool synced = source != gUnwritten.end() && source->second.whole;
    keepOld(from);
    keepOld(to);
    const int result = rename(from, to);
    const auto target = gUnwritten.find(to);
    if (result == 0 && synced && target != gUnwritten.end()) target->second.whole = true;
    operationDone("rename", to, result == 0);
    return result;
}

int closeWatched(int fd, int (*close)(void*), void* argument) {
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    const std::string path = std::exchange(gPaths[fd], "");
    if (isMessage(path)) {
        endRequest();
        return close(argument);
    }
    const bool failing = failsNow(Call::CLOSE, EIO);
    int result = close(argument);
    if (failing) {
        errno = EIO;
        result = -1;
    }
    operationDone(Call::CLOSE, path, result == 0);
    return result;
}

// What the power cut makes of one file.
void damage(const std::string& path, const Unwritten& old) {
    uint32_t hash = 2166136261;
    for (const char c : path) hash = (hash ^ static_cast<uint8_t>(c)) * 16777619;
    std::mt19937 random(hash ^ static_cast<uint32_t>(gBoot->damageSeed));
    Unsynced how = gBoot->unsynced;
    if (old.whole && how != Unsynced::LOST && how != Unsynced::MIXED) how = Unsynced::KEPT;
    if (how == Unsynced::MIXED) {
        constexpr Unsynced kAll[] = {Unsynced::KEPT, Unsynced::LOST, Unsynced::EMPTIED,
                                     Unsynced::CUT};
        how = kAll[random() % (old.whole ? 2 : 4)];
    }
    if (std::filesystem::is_directory(path)) return;  // folders stay
    const bool present = fileExists(path);
    if (how == Unsynced::LOST || (how != Unsynced::KEPT && !present)) {
        if (old.before) {
            writeFile(path, *old.before);
        } else {
            realRemove(path.c_str());
        }
    } else if (how == Unsynced::EMPTIED) {
        writeFile(path, "");
    } else if (how == Unsynced::CUT) {
        const std::string now = readFile(path);
        const std::string& before = old.before.value_or("");
        // What was appended is cut, or else anything.
        const size_t from = now.compare(0, before.size(), before) == 0 ? before.size() : 0;
        writeFile(path, now.substr(0, from + random() % (now.size() - from + 1)));
    }
}

}  // namespace

void start(const Boot& boot, Trace& trace) {
    for (const Fault& fault : boot.faults) {
        gFailing[static_cast<size_t>(fault.call)].faults.push_back(fault);
    }
    for (Failing& failing : gFailing) {
        std::sort(failing.faults.begin(), failing.faults.end(),
                  [](const Fault& a, const Fault& b) { return a.nth < b.nth; });
    }
    gTrace = &trace;
    gSpace = boot.space.value_or(-1);
    gBoot = &boot;
}

Unwatched::Unwatched() {
    ++tUnwatched;
}

Unwatched::~Unwatched() {
    --tUnwatched;
}

int64_t spaceLeft() {
    return gSpace;
}

void partitionReadOnly() {
    const std::lock_guard<std::mutex> lock(gLock);
    gReadOnly = true;
    writeOut([](const std::string& path) { return onPartition(path); });
}

void allWrittenOut() {
    const std::lock_guard<std::mutex> lock(gLock);
    gUnwritten.clear();
}

void thisIsTheWorker() {
    tWorker = true;
}

void cutPower() {
    const Unwatched ownWork;
    traceFault("power-cut");
    if (gBoot->unsynced != Unsynced::KEPT) {
        for (const auto& [path, old] : gUnwritten) {
            if (vtime::now() - old.at <= kWriteBack) damage(path, old);
        }
    }
    _exit(kCutOff);
}

extern "C" {

int open(const char* path, int flags, ...) {
    static auto* const realOpen = next<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    // Whoever writes to a kernel's log adds to it.
    if (path == kKernelMessages) flags |= O_APPEND;
    const int fd = openWatched(path, (flags & O_ACCMODE) != O_RDONLY,
                               [&] { return realOpen(path, flags, mode); });
    if ((flags & O_DIRECTORY) != 0 && fd >= 0 && fd < kMaxFd && watching() && onDevice(path)) {
        const std::lock_guard<std::mutex> lock(gLock);
        gPaths[fd] = path;  // for fsync
    }
    return fd;
}

// libstdc++'s streams: they read and write by descriptor.
FILE* fopen64(const char* path, const char* mode) {
    FILE* file = nullptr;
    openWatched(path, *mode != 'r', [&] {
        file = realFopen(path, mode);
        return file != nullptr ? fileno(file) : -1;
    });
    return file;
}

// The C streams' own writes don't pass through write() below. A stream with our functions below it
// has the buffer of a real one. As in libc, its memory comes before the file.
FILE* fopen(const char* path, const char* mode) {
    if (allocationFails()) return nullptr;
    FILE* file = fopen64(path, mode);
    if (file == nullptr || !isWatched(fileno(file))) return file;
    const Unwatched ownWork;
    const cookie_io_functions_t functions =
            {nullptr,
             [](void* stream, const char* data, size_t size) {
                 return std::max(writeWatched(fileno(static_cast<FILE*>(stream)), data, size),
                                 ssize_t{0});
             },
             nullptr,
             [](void* stream) {
                 return closeWatched(fileno(static_cast<FILE*>(stream)), realFclose, stream);
             }};
    return fopencookie(file, mode, functions);
}

int fclose(FILE* file) {
    const int fd = fileno(file);
    if (!isWatched(fd)) return realFclose(file);
    return closeWatched(fd, realFclose, file);
}

ssize_t write(int fd, const void* data, size_t size) {
    if (!isWatched(fd)) return realWrite(fd, data, size);
    return writeWatched(fd, data, size);
}

ssize_t writev(int fd, const iovec* parts, int count) {
    static auto* const realWritev = next<ssize_t(int, const iovec*, int)>("writev");
    if (!isWatched(fd)) return realWritev(fd, parts, count);
    std::string data;
    for (int i = 0; i < count; ++i) {
        data.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    }
    return writeWatched(fd, data.data(), data.size());
}

int close(int fd) {
    if (!isWatched(fd)) return realClose(&fd);
    return closeWatched(fd, realClose, &fd);
}

int remove(const char* path) noexcept {
    return onPath(Call::REMOVE, path, [&] { return realRemove(path); });
}

int rename(const char* from, const char* to) noexcept {
    static auto* const realRename = next<int(const char*, const char*)>("rename");
    if (!watching() || !onDevice(to)) return realRename(from, to);
    return renameWatched(from, to, realRename);
}

// The workstation's own disk is not waited for: what a power cut takes is the scenario's to say.
int fsync(int fd) {
    if (!isWatched(fd)) return 0;
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    const std::string path = gPaths[fd];
    writeOut([&](const std::string& file) { return isIn(file, path); });
    const auto file = gUnwritten.find(path);
    if (file != gUnwritten.end()) file->second.whole = true;
    operationDone("fsync", path, true);
    return 0;
}

void sync() noexcept {
    if (!watching()) return;
    const std::lock_guard<std::mutex> lock(gLock);
    const Unwatched ownWork;
    gUnwritten.clear();
    operationDone("sync", "/", true);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const realMkdir = next<int(const char*, mode_t)>("mkdir");
    return onPath(Call::MKDIR, path, [&] { return realMkdir(path, mode); });
}

int chmod(const char* path, mode_t mode) noexcept {
    static auto* const realChmod = next<int(const char*, mode_t)>("chmod");
    char detail[16];
    snprintf(detail, sizeof(detail), " %04o", mode);
    return onPath(
            Call::CHMOD, path, [&] { return realChmod(path, mode); }, detail);
}

FILE* popen(const char* command, const char* mode) {
    static auto* const realOpen = next<FILE*(const char*, const char*)>("popen");
    if (watching()) {
        const std::lock_guard<std::mutex> lock(gLock);
        if (failsNow(Call::POPEN, EAGAIN)) return nullptr;
    }
    return realOpen(command, mode);
}

#if !BOOTVIGIL_SANITIZED  // a sanitizer's allocator is not to be replaced

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);

// A device has more memory than the cage, but not for any size.
static void* orOutOfMemory(void* memory, size_t size) {
    constexpr size_t kSane = size_t{1} << 32;
    if (memory == nullptr && gBoot != nullptr && size < kSane) {
        endBroken("the boot took all memory that it may have");
    }
    return memory;
}

void* malloc(size_t size) noexcept {
    if (allocationFails()) return nullptr;
    return orOutOfMemory(__libc_malloc(size), size);
}

void* calloc(size_t count, size_t size) noexcept {
    if (allocationFails()) return nullptr;
    return orOutOfMemory(__libc_calloc(count, size), count * size);
}

#endif

}  // extern "C"

}  // namespace lab::calls
