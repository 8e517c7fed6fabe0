// SPDX-License-Identifier: Apache-2.0
// One capture as a whole process: compresses a file, or what a command prints, as the daemon does.

#include <stdio.h>
#include <string.h>

#include <android/log.h>

#include "bootvigil/compress/CompressZstd.h"

int main(int argc, char** argv) {
    if (argc != 5 || (strcmp(argv[1], "file") != 0 && strcmp(argv[1], "command") != 0)) {
        fprintf(stderr, "usage: %s file|command INPUT OUTPUT-FOLDER OUTPUT-NAME\n", argv[0]);
        return 2;
    }
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    bootvigil::CompressZstd compressor;
    compressor.mOutputDir = argv[3];
    constexpr int kLevel = 5;
    const int result = strcmp(argv[1], "file") == 0
                               ? compressor.compressComFile(argv[2], argv[4], kLevel)
                               : compressor.compressShellCmdFile(argv[2], argv[4], kLevel);
    if (result != 0) fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[2]);
    return result == 0 ? 0 : 1;
}
