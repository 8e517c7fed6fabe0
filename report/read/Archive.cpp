// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#include "report/read/Archive.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <zstd.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace report {

namespace {

// Reads no more than `most` bytes, packed or not.
void read(FILE* file, int64_t most, const ArchiveSink& sink, ArchiveInfo& info) {
    // Enough for every level of zstd but the three of --ultra; what asks for more is no log.
    constexpr int kMostWindowLog = 23;
    const std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx*)> context(ZSTD_createDCtx(),
                                                                     ZSTD_freeDCtx);
    if (!context) throw std::bad_alloc();
    ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, kMostWindowLog);
    std::vector<char> in(ZSTD_DStreamInSize());
    std::vector<char> out(ZSTD_DStreamOutSize());
    size_t hint = 1;  // 0 once a frame has ended
    int64_t done = 0;
    while (const size_t count = fread(in.data(), 1, in.size(), file)) {
        done += static_cast<int64_t>(count);
        ZSTD_inBuffer input = {in.data(), count, 0};
        bool full = false;  // the output was filled, so zstd may hold more
        while (input.pos < input.size || full) {
            if (hint == 0) info.error = "more data after the frame";
            if (info.content >= most || done > most) {
                info.error = "is larger than " + std::to_string(most >> 20) +
                             " MiB; only its beginning was read";
            }
            if (!info.error.empty()) return;
            ZSTD_outBuffer output = {out.data(), out.size(), 0};
            hint = ZSTD_decompressStream(context.get(), &output, &input);
            if (ZSTD_isError(hint) != 0U) info.error = ZSTD_getErrorName(hint);
            full = hint != 0 && output.pos == output.size;
            info.content += static_cast<int64_t>(output.pos);
            if (!sink(out.data(), output.pos)) return;
        }
    }
    if (ferror(file) != 0) {
        info.error = strerror(errno);
    } else if (info.error.empty() && hint != 0) {
        info.error = info.size == 0 ? kEmptyArchive : "cut off";
    }
}

ArchiveInfo read(const File& file, int64_t most, const ArchiveSink& sink, std::string error) {
    ArchiveInfo info;
    info.error = std::move(error);
    struct stat status = {};
    if (!file) return info;
    if (fstat(fileno(file.get()), &status) == 0) info.size = status.st_size;
    read(file.get(), most, sink, info);
    return info;
}

}  // namespace

ArchiveInfo readArchive(const std::string& path, const ArchiveSink& sink) {
    std::string error;
    const File file = openRegular(path, error);
    return read(file, INT64_MAX, sink, error);
}

ArchiveInfo readArchive(const Folder& folder, const std::string& name, const ArchiveSink& sink) {
    std::string error;
    const File file = folder.openFile(name, error);
    return read(file, kMostOfArchive, sink, file || !error.empty() ? error : "is gone");
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
