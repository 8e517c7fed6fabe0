// SPDX-License-Identifier: Apache-2.0
// Preserves the logs that explain a failure, here or through the device's log-capture service.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <cutils/properties.h>
#include <kelclient.h>
#include <log/log.h>

#include "Bootvigil.h"
#include "StoragePaths.h"
#include "Utils.h"

namespace {

constexpr const char* kCommandLine = "/proc/cmdline";
constexpr const char* kKernelLog = "/dev/kmsg";
constexpr const char* kMarker = "bootvigil init_monitor_thread_main create KE";
constexpr const char* kPowerOffKey = "poffsts=";
constexpr size_t kPowerOffLength = 4;
constexpr const char* kFlashKey = "FlashID=";
constexpr const char* kMemoryKey = "mem_index=";
constexpr int kLevel = 5;
constexpr int kExitRead = 4;
constexpr size_t kChunk = 4096;

// In this order; the previous boot's console follows. The texts are arrays because the compressor
// takes them as changeable.
struct LogCommand {
    char command[24];
    char name[24];
};
LogCommand gLogCommands[] = {
        {"logcat -d -b crash", "android_crash_log"},
        {"logcat -d -b main", "android_main_log"},
        {"logcat -d -b events", "android_events_log"},
        {"logcat -d -b system", "android_system_log"},
        {"logcat -d -b radio", "android_radio_log"},
        {"dmesg", "sys_kernel_log"},
};

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> readCommandLine() {
    std::vector<std::string> lines;
    std::ifstream file(kCommandLine);
    if (!file.is_open()) {
        ALOGE("parseCmdline open /proc/cmdline failed");
        return lines;
    }
    std::string line;
    while (std::getline(file, line)) lines.push_back(line);
    return lines;
}

// Adds the power-off reason of the last line that has one to the power-off record. The value is
// the four characters after the key, blanks or the next key included.
void savePowerOffReason(const std::vector<std::string>& commandLine) {
    for (auto line = commandLine.rbegin(); line != commandLine.rend(); ++line) {
        const size_t key = line->find(kPowerOffKey);
        if (key == std::string::npos) continue;
        const std::string reason = line->substr(key + strlen(kPowerOffKey), kPowerOffLength);
        std::ofstream file(kPmicInfoPath, std::ios::app);
        if (!file.is_open()) {
            ALOGE("Save file path %s fail, open fail.", kPmicInfoPath.c_str());
            return;
        }
        file << getLocalTime() << ": " << reason << "\n";
        return;
    }
}

void saveCurrentDevInfo(const std::string& token) {
    std::ofstream file(kMemHwInfoPath, exists(kMemHwInfoPath) ? std::ios::app : std::ios::out);
    if (!file.is_open()) {
        ALOGE("Save file path %s fail, open fail.", kMemHwInfoPath.c_str());
        return;
    }
    file << token << " ";
}

// Records the flash and memory tokens, last one first; one with both keys is recorded twice.
void saveDeviceIdentification(const std::vector<std::string>& commandLine) {
    if (commandLine.empty() || exists(kMemHwInfoPath)) return;
    for (auto line = commandLine.rbegin(); line != commandLine.rend(); ++line) {
        const std::vector<std::string> tokens = split(*line, " ");
        for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
            if (contains(*token, kFlashKey)) saveCurrentDevInfo(*token);
            if (contains(*token, kMemoryKey)) saveCurrentDevInfo(*token);
        }
    }
}

// Leaves the marker in the kernel log, which the next boot may find in the previous console.
void writeMonitorKey() {
    const android::base::unique_fd fd(TEMP_FAILURE_RETRY(
            open(kKernelLog, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)));
    if (fd < 0) {
        ALOGE("BOOTVIGIL Failed to open %s \n", kKernelLog);
        return;
    }
    if (!android::base::WriteStringToFd(kMarker, fd)) {
        ALOGE("BOOTVIGIL Failed to write %s \n", kKernelLog);
    }
    ALOGD("BOOTVIGIL writeMonitorKey key %s", kMarker);
}

// All that is left where the partition can't be used.
void leaveMarker(Bootvigil& monitor) {
    // By design: the first path has no leading "/", and the second console is read when the first
    // command could be started, not when it failed.
    std::string console;
    if (monitor.shellCmdFile("cat sys/fs/pstore/console-ramoops-0", console) == 0) {
        monitor.shellCmdFile("cat /sys/fs/pstore/console-ramoops", console);
    }
    if (contains(console, kMarker)) {
        ALOGE("BOOTVIGIL findMonitorKey return");
        return;
    }
    writeMonitorKey();
}

bool isKelRunning() {
    char kel[PROPERTY_VALUE_MAX] = {};
    char kelService[PROPERTY_VALUE_MAX] = {};
    property_get("init.svc.kel", kel, " ");
    property_get("init.svc.kelvservice", kelService, " ");
    ALOGD("checkKELRunning get init.svc.kel = %s; init.svc.kelvservice = %s ", kel, kelService);
    return strcmp(kel, "running") == 0 && strcmp(kelService, "running") == 0;
}

}  // namespace

void Bootvigil::captureLog(long& type, int& pid, std::string& note) {
    const std::vector<std::string> commandLine = readCommandLine();
    savePowerOffReason(commandLine);
    saveDeviceIdentification(commandLine);

    mCaptureNote = note;
    for (const std::string* path : {&kPmicInfoPath, &kMemHwInfoPath, &kBfRecordPath}) {
        if (exists(*path)) mCaptureNote += *path + ";";
    }

    if (!checkVelafs()) {
        leaveMarker(*this);
        return;
    }

    char debug[PROPERTY_VALUE_MAX] = {};
    property_get("persist.sys.bootvigil.debug", debug, "0");
    if (atoi(debug) != 1 && isKelRunning()) {
        ALOGD("type: %ld; pid:%d; ext:%s \n", type, pid, mCaptureNote.c_str());
        std::string id = kKelId;
        start_KEL(id.data(), type, pid, mCaptureNote.data());
        saveInfoWithTime(kLogInfoPath, "KEL capture log");
        mCaptureState = 1;
        return;
    }

    ALOGD("kel dont running so capture log by stuck");
    compressLogs();
    saveInfoWithTime(kLogInfoPath, "USER capture log");
    mCaptureState = 2;
}

void Bootvigil::captureSystem(std::string note) {
    long type = kCaptureTypeBase;
    int pid = 0;
    captureLog(type, pid, note);
}

void Bootvigil::compressLogs() {
    for (LogCommand& log : gLogCommands) {
        mCompressor->compressShellCmdFile(log.command, log.name, kLevel);
    }
    mCompressor->compressStreamFile(kPstoreConsole0, "console-ramoops-0", kLevel);
}

void Bootvigil::captureRawLog(std::string path) {
    chmod(path.c_str(), 0777);
    std::string note = path + ";";
    if (exists(kHealthInfoPath)) note += kHealthInfoPath + ";";
    captureSystem(note);
}

int Bootvigil::shellCmdFile(const char* command, std::string& output) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command, "r"), pclose);
    if (pipe == nullptr) return -1;
    // By design: the buffer is not cleared between reads and is appended as a text. So a chunk ends
    // at its first NUL, and a short last chunk drags along bytes of the one before.
    char buffer[kChunk] = {};
    bool last = false;
    while (!last) {
        const size_t size = fread(buffer, 1, kChunk, pipe.get());
        last = size < kChunk;
        if (last && !feof(pipe.get())) {
            perror("fread");
            exit(kExitRead);
        }
        output.append(buffer, strnlen(buffer, kChunk));
    }
    ALOGE("shellCmdFile %s \n", output.c_str());
    return 0;
}
