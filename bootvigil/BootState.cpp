// SPDX-License-Identifier: Apache-2.0
// The probes: each reads one property or file and answers one question about the boot.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "BootState.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include <cutils/properties.h>
#include <log/log.h>

#include "StoragePaths.h"

namespace {

constexpr const char* kFirstBootMarker = "/data/vela_dfr/firstboot";

uint8_t gBFReason = 0;  // 0: not known

std::string readProperty(const char* name, const char* defaultValue) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(name, value, defaultValue);
    return value;
}

}  // namespace

bool checkBooted() {
    const std::string completed = readProperty("sys.boot_completed", "0");
    const std::string animExit = readProperty("service.bootanim.exit", "0");
    ALOGD("checkBooted get sys.boot_completed = %s ", completed.c_str());
    ALOGD("checkBooted get service.bootanim.exit = %s ", animExit.c_str());
    return atoi(completed.c_str()) != 0 && atoi(animExit.c_str()) != 0;
}

bool checkNormalBootMode() {
    const std::string mode = readProperty("ro.boot.mode", "0");
    ALOGD("checkNormalBootMode ro.boot.mode = %s \n", mode.c_str());
    return mode == "normal";
}

bool checkFirstBoot() {
    const std::string reason = readProperty("sys.boot.reason", "0");
    ALOGD("checkFirstBoot  sys.boot.reason = %s ", reason.c_str());
    return reason == "reboot,factory_reset";
}

bool checkFirstBootInNative() {
    struct stat marker = {};
    if (stat(kFirstBootMarker, &marker) == 0) {
        ALOGE("checkFirstBootInNative found file");
        return false;
    }
    std::ofstream file(kFirstBootMarker);  // the platform makes its folder
    if (!file.is_open()) {
        ALOGE("Creat file path %s fail.", kFirstBootMarker);
        return false;
    }
    file.close();
    chmod(kFirstBootMarker, 0777);
    return true;
}

std::string getCountry() {
    return readProperty("persist.sys.oobe_country", "0");
}

int getBFReason() {
    if (gBFReason != 0) return gBFReason;
    const int reason = atoi(readProperty("sys.vela.boot_fail_reason", "0").c_str());
    gBFReason = static_cast<uint8_t>(reason);
    return reason;  // the whole number, this once: later calls give the cached low byte
}

void setBFReason(uint8_t reason) {
    gBFReason = reason;
}

bool isRescueEnable() {
    return readProperty("persist.sys.enable_rescue", "false") == "true";
}

bool isBootComplete() {
    return atoi(readProperty("sys.vela.BOOT_COMPLETED", "0").c_str()) == 1;
}
