// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#include "Archive.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace report {

namespace {

struct Closer {
    void operator()(FILE* file) const {
        fclose(file);
    }
    void operator()(ZSTD_DCtx* context) const {
        ZSTD_freeDCtx(context);
    }
};

// Nothing but an ordinary file is opened: a copy of a device's files comes from outside.
FILE* openOrdinary(const std::string& path, std::string& error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat info = {};
    if (fd < 0 || fstat(fd, &info) != 0) {
        error = strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        error = "no ordinary file";
    } else {
        return fdopen(fd, "rb");
    }
    if (fd >= 0) close(fd);
    return nullptr;
}

}  // namespace

ArchiveInfo readArchive(const std::string& path, const ArchiveSink& sink) {
    ArchiveInfo info;
    const std::unique_ptr<FILE, Closer> file(openOrdinary(path, info.error));
    if (!file) return info;
    const std::unique_ptr<ZSTD_DCtx, Closer> context(ZSTD_createDCtx());
    std::vector<char> in(ZSTD_DStreamInSize());
    std::vector<char> out(ZSTD_DStreamOutSize());
    size_t hint = 1;  // 0 once a frame has ended
    while (const size_t count = fread(in.data(), 1, in.size(), file.get())) {
        info.size += static_cast<int64_t>(count);
        ZSTD_inBuffer input = {in.data(), count, 0};
        bool full = false;  // there may be more to come of what was read already
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
