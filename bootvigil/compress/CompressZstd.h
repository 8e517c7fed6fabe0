// SPDX-License-Identifier: Apache-2.0
// Compresses captured logs into zstd files, one frame with a content checksum each.

#pragma once

#include "CompressBase.h"

namespace bootvigil {

// Memory use does not depend on the size of the input. Failures of resources end the process:
// exit status 1 a null argument or a zstd error, 2 the output can't be created, 3 closing,
// 4 reading, 5 writing, 8 memory; abort when the output path is longer than 255 characters.
class CompressZstd : public CompressBase {
public:
    // An ordinary file. Nothing is created when it can't be opened.
    int compressComFile(char* input, char* fileName, int level) override;

    // A kernel or pseudo file, read without blocking; an empty output stays when it can't be
    // opened. Inputs of more than 64 KiB lose bytes by this system's own rule (see the source).
    int compressStreamFile(const char* input, const char* fileName, int level) override;

    // The standard output of a shell command, whatever its exit status.
    int compressShellCmdFile(char* cmd, char* fileName, int level) override;

    // Always 0.
    int endCompress() override;
};

}  // namespace bootvigil
