// SPDX-License-Identifier: Apache-2.0
// What the platform of a simulated device does between its boots: /dev, /proc and the properties
// are new in each, /velafs and /data stay.

#include "lab/run/Platform.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/LogText.h"
#include "lab/base/Text.h"
#include "lab/device/DeviceRoot.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

constexpr time_t kBetweenBoots = 60;  // seconds of the clock

const std::string kAway = kPartition + ".away";  // where an absent partition is kept

// The first `size` bytes of what a buffer holds, in whole lines but for the last.
std::string bufferText(const std::string& buffer, size_t size) {
    struct Made {
        LogText source;
        std::string text;
    };
    static std::map<std::string, Made> all;  // is the same for every scenario, so it is made once
    auto found = all.find(buffer);
    if (found == all.end()) {
        uint64_t seed = 0;  // so that the buffers differ
        for (const char letter : buffer) seed = 31 * seed + static_cast<unsigned char>(letter);
        const auto kind = buffer == "kernel"  ? LogText::Buffer::KERNEL
                          : buffer == "crash" ? LogText::Buffer::CRASH
                                              : LogText::Buffer::MAIN;
        found = all.emplace(buffer, Made{LogText(kind, seed), ""}).first;
    }
    Made& made = found->second;
    while (made.text.size() < size) made.source.append(made.text);
    std::string text = made.text.substr(0, size);
    if (!text.empty()) text.back() = '\n';
    return text;
}

// Text that can't be compressed much.
const std::string& noise() {
    static const std::string text = [] {
        std::string letters(300000, ' ');
        uint32_t state = 1;
        for (char& letter : letters) {
            state = state * 1664525 + 1013904223;
            letter = static_cast<char>('!' + (state >> 16) % 90);
        }
        return letters;
    }();
    return text;
}

// Whether a file of the scenario's changes what the log buffers hold.
bool spoilsLogs(const std::string& path) {
    return path == kDev || startsWith(path + "/", kLogBuffers);
}

}  // namespace

Platform::Platform(const Scenario& device, const DeviceRoot& root)
    : mDevice(device), mRoot(root), mClock(device.clock) {
    if (device.partitionSize) root.mountPartition(static_cast<size_t>(*device.partitionSize));
    const InsideRoot inside(root);
    if (device.partitionAbsent) {
        fs::remove_all(kPartition);
    } else if (device.partitionSize) {
        makeFolders(kLogs, 0777);
        makeFolders(kRecordFolder, 0777);
    }
    if (!device.logFolder) fs::remove_all(kLogs);
    makeFolders(kMarkerFolder);
    for (const auto& [path, content] : device.files) writeFile(path, content);
}

void Platform::startBoot(const Boot& boot) {
    mClock = boot.clock.value_or(mClock);
    if (mDevice.partitionSize) mRoot.makePartitionWritable();
    const InsideRoot inside(mRoot);
    clearLastBoot();
    if (boot.partitionAbsent) fs::rename(kPartition, kAway);
    writeFile(kCommandLine, mDevice.commandLine);
    writeFile(kBootMonitor, "");
    makeFolders(kKelFolder);
    makeFolders(kKeptLogs);
    if (!mLastConsole.empty()) writeFile(kPstoreConsole, mLastConsole);
    fillLogs();
    setProperties(boot);
    for (const auto& [path, content] : boot.files) writeFile(path, content);
    if (std::any_of(boot.files.begin(), boot.files.end(),
                    [](const auto& file) { return spoilsLogs(file.first); }) ||
        std::any_of(boot.changes.begin(), boot.changes.end(),
                    [](const Change& change) { return spoilsLogs(change.name); })) {
        mOwnBufferSize.reset();
    }
}

void Platform::clearLastBoot() {
    for (const std::string& folder : {kDev, kProc, kPstore}) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            const bool logs = entry.path().string() + "/" == kLogBuffers;
            if (!logs || !mOwnBufferSize) fs::remove_all(entry.path());
        }
    }
}

void Platform::setProperties(const Boot& boot) {
    TextMap properties = mPersistent;
    properties["sys.boot.reason"] = mBootReason;
    properties["ro.boot.mode"] = "normal";
    for (const TextMap* map : {&mDevice.properties, &boot.properties}) {
        for (const auto& [name, value] : *map) properties[name] = value;
    }
    for (const auto& [name, value] : properties) writeFile(kPropertyDir + name, value);
}

// The buffers stay from boot to boot, but for the daemon's own lines at the end of one.
void Platform::fillLogs() {
    if (mOwnBufferSize) return fs::resize_file(kMainLogBuffer, *mOwnBufferSize);
    for (const auto& [buffer, size] : mDevice.logSizes) {
        const bool endless = mDevice.endlessLogs.count(buffer) != 0;
        // What repeats itself would take no room.
        std::string text = endless ? noise() : bufferText(buffer, static_cast<size_t>(size));
        if (mDevice.nulLogs.count(buffer) != 0) std::fill(text.begin(), text.end(), '\0');
        writeFile(kLogBuffers + buffer, text);
        if (endless) writeFile(kLogBuffers + buffer + kEndlessMark, "");
    }
    mOwnBufferSize = fs::file_size(kMainLogBuffer);
}

TextMap Platform::properties() const {
    const InsideRoot inside(mRoot);
    return readProperties();
}

TextMap Platform::readProperties() {
    TextMap properties;
    for (const auto& entry : fs::directory_iterator(kPropertyDir)) {
        if (!entry.is_regular_file()) continue;  // of a name with "/"
        properties[entry.path().filename()] = readFile(entry.path());
    }
    return properties;
}

// The bare platform does what it is asked. Of the other init is asked, and recovery reads the rest.
bool Platform::isToReset(const TextMap& properties) const {
    if (mDevice.platform == PlatformKind::BARE) return properties.count(kResetRequest) != 0;
    return lookUp(properties, kPowerControl) == "reboot,recovery" &&
           contains(readFileOr(kRecoveryCommand, ""), "--wipe_data");
}

bool Platform::isToReboot(const TextMap& properties) const {
    if (mDevice.platform == PlatformKind::BARE) return properties.count(kRebootRequest) != 0;
    return lookUp(properties, kPowerControl) == "reboot,velarecovery";
}

void Platform::endBoot(const Boot& boot, int64_t endedAt) {
    const InsideRoot inside(mRoot);
    if (boot.partitionAbsent) {
        fs::remove_all(kPartition);
        fs::rename(kAway, kPartition);
    }
    mPersistent.clear();
    const TextMap set = readProperties();
    for (const auto& [name, value] : set) {
        if (startsWith(name, "persist.")) mPersistent[name] = value;
    }
    if (isToReset(set)) {
        mBootReason = "reboot,factory_reset";
        mPersistent.clear();
        fs::remove_all(kData);
        fs::remove(kRecoveryCommand);
        makeFolders(kMarkerFolder);
    } else if (isToReboot(set)) {
        mBootReason = "reboot,velarecovery";
    } else {
        mBootReason = "cold,powerkey";
    }
    mLastConsole = readFileOr(kKernelLogBuffer, "") + readFileOr(kKernelMessages, "");
    mClock += endedAt / 1000 + kBetweenBoots;
}

}  // namespace lab
