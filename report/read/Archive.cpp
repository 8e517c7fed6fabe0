// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#include "report/read/Archive.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <zstd.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "report/read/Files.h"

namespace report {

ArchiveInfo readArchive(const std::string& path, const ArchiveSink& sink) {
    ArchiveInfo info;
    const File file = openRegular(path, info.error);
    if (!file) return info;
    const std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx*)> context(ZSTD_createDCtx(),
                                                                     ZSTD_freeDCtx);
    std::vector<char> in(ZSTD_DStreamInSize());
    std::vector<char> out(ZSTD_DStreamOutSize());
    size_t hint = 1;  // 0 once a frame has ended
    while (const size_t count = fread(in.data(), 1, in.size(), file.get())) {
        info.size += static_cast<int64_t>(count);
        ZSTD_inBuffer input = {in.data(), count, 0};
        bool full = false;  // the output was filled, so zstd may hold more
        while (info.error.empty() && (input.pos < input.size || full)) {
            if (hint == 0) info.error = "more data after the frame";
            ZSTD_outBuffer output = {out.data(), out.size(), 0};
            hint = ZSTD_decompressStream(context.get(), &output, &input);
            if (ZSTD_isError(hint) != 0U) info.error = ZSTD_getErrorName(hint);
            full = hint != 0 && output.pos == output.size;
            info.content += static_cast<int64_t>(output.pos);
            if (!sink(out.data(), output.pos)) return info;
        }
    }
    if (ferror(file.get()) != 0) {
        info.error = strerror(errno);
    } else if (info.error.empty() && hint != 0) {
        info.error = info.size == 0 ? "empty file" : "cut off";
    }
    return info;
}

ArchiveInfo inspectArchive(const std::string& path) {
    return readArchive(path, [](const char*, size_t) { return true; });
}

std::string readArchive(const std::string& path) {
    std::string content;
    const ArchiveInfo info = readArchive(path, [&](const char* data, size_t size) {
        content.append(data, size);
        return true;
    });
    if (!info.error.empty()) throw std::runtime_error(path + ": " + info.error);
    return content;
}

}  // namespace report
