// SPDX-License-Identifier: Apache-2.0
// The report's archive reader against zstd's own decompression.

#include "report/read/Archive.h"

#define ZSTD_STATIC_LINKING_ONLY  // the frame's header
#include <zstd.h>

#include "fuzz/FuzzDevice.h"

using namespace fuzz;

namespace {

constexpr const char* kArchive = "/data/archive.zs";
constexpr size_t kMost = 1 << 20;  // bytes of content that are compared

}  // namespace

// The input is the archive.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    write(kArchive, std::string(reinterpret_cast<const char*>(data), size));
    std::string content;
    const report::ArchiveInfo info =
            report::readArchive(kArchive, [&](const char* piece, size_t length) {
                content.append(piece, length);
                return content.size() <= kMost;
            });
    if (content.size() > kMost) return 0;
    expectEqual("the size of the content", info.content, static_cast<long>(content.size()));
    expectEqual("the size of the file", info.size, static_cast<long>(size));

    static std::string expected(kMost, '\0');
    const size_t frame = ZSTD_findFrameCompressedSize(data, size);
    const size_t length = ZSTD_decompress(expected.data(), expected.size(), data, size);
    const bool whole = frame == size && !ZSTD_isError(length);
    if (info.error.empty() && !whole) fault("a damaged archive is taken for a whole one");
    // Only a reader with bounded memory refuses these: the model looks back beyond the window.
    ZSTD_frameHeader header = {};
    const bool fits =
            whole && ZSTD_getFrameHeader(&header, data, size) == 0 && length <= header.windowSize;
    if (!info.error.empty() && fits &&
        info.error != "Frame requires too much memory for decoding") {
        fault("a whole archive is refused: " + info.error);
    }
    if (info.error.empty() && content != expected.substr(0, length)) fault("the content differs");
    return 0;
}
