// SPDX-License-Identifier: Apache-2.0
// Compresses captured logs into zstd files: one frame with a content checksum per log.

#pragma once

#include "CompressBase.h"

namespace bootvigil {

// Memory use does not depend on the size of the input. Failures end the process, with exit status
// 1 for a null argument or a zstd error, 2 when the output can't be created, 3 closing, 4 reading,
// 5 writing, 8 memory, or by abort() when the output path is longer than 255 characters.
class CompressZstd : public CompressBase {
public:
    // An ordinary file, which the daemon itself never asks for. Creates nothing when the file can't
    // be opened.
    int compressComFile(char* input, char* fileName, int level) override;

    // A kernel or pseudo file, read without blocking. Leaves an empty output when the file can't be
    // opened. By design: inputs of more than 64 KiB lose bytes (see the source).
    int compressStreamFile(const char* input, const char* fileName, int level) override;

    // The standard output of a shell command, whatever its exit status.
    int compressShellCmdFile(char* cmd, char* fileName, int level) override;

    // Always 0.
    int endCompress() override;
};

}  // namespace bootvigil
