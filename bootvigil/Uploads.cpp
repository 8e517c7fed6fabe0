// SPDX-License-Identifier: Apache-2.0
// Leaves reports where the uploader collects them.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "Uploads.h"

#include <sys/stat.h>

#include <fstream>

#include <log/log.h>

#include "StoragePaths.h"
#include "Utils.h"

void leaveUpload(const std::string& path, const std::string& text, int priority) {
    if (!exists(kBfUploadDir)) {
        LOG_PRI(priority, LOG_TAG, "BOOTVIGIL /velafs/SDD/bf_upload not exist \n");
        if (!makeDirectory(kBfUploadDir)) return;
    }
    if (exists(path)) {
        // By design: the text names the failure report, also where the recovery report is meant.
        LOG_PRI(priority, LOG_TAG, "BOOTVIGIL /velafs/SDD/bf_upload/boot_vigil exist \n");
        return;
    }
    std::ofstream file(path);
    if (!file.is_open()) {
        ALOGE("Open file path %s fail.", path.c_str());
        return;
    }
    file << text;
    file.close();
    chmod(path.c_str(), 0777);
}
