// SPDX-License-Identifier: Apache-2.0
// Every input of the compressor against zstd's own decompression.

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include <zstd.h>

#include "bootvigil/compress/CompressZstd.h"
#include "fuzz/FuzzDevice.h"
#include "tests/daemon/StreamModel.h"

using namespace fuzz;

namespace {

constexpr const char* kInput = "/data/input";
constexpr const char* kOutput = "/velafs/boot_vigil/log/output.zs";
constexpr size_t kMostContent = 300000;

enum Way { kFile, kStream, kCommand };

// Cuts content into reads as the script's bytes say: sizes, ends, interruptions, a failure.
std::vector<Read> scriptedReads(const std::string& content, const std::string& script) {
    std::vector<Read> reads;
    size_t at = 0;
    const auto take = [&](size_t size) {
        reads.push_back({content.substr(at, size), 0});
        at = std::min(content.size(), at + size);
    };
    for (const char c : script) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == 255) reads.push_back({"", EIO});
        if (byte == 254) reads.push_back({"", EINTR});
        if (byte == 253) reads.push_back({"", 0});
        if (byte < 253) take(byte * 20 + 1);
    }
    for (const Read& rest : readsOf(content.substr(at))) reads.push_back(rest);
    return reads;
}

// One frame with a checksum and nothing else, which holds just this.
void checkArchive(const std::string& content) {
    const std::string archive = read(kOutput);
    const size_t frame = ZSTD_findFrameCompressedSize(archive.data(), archive.size());
    if (frame != archive.size()) fault("the archive is not one frame");
    if ((archive[4] & 4) == 0) fault("the frame has no checksum");
    std::string found(content.size() + 1, '\0');
    const size_t size = ZSTD_decompress(found.data(), found.size(), archive.data(), frame);
    if (ZSTD_isError(size)) fault(std::string("zstd: ") + ZSTD_getErrorName(size));
    found.resize(size);
    if (found != content) fault("the archive holds something else");
}

int compress(Way way, char* input, int level) {
    bootvigil::CompressZstd compressor;
    compressor.mOutputDir = "/velafs/boot_vigil/log";
    compressor.mFileSuffix = ".zs";
    char name[] = "output";
    if (way == kStream) return compressor.compressStreamFile(input, name, level);
    if (way == kCommand) return compressor.compressShellCmdFile(input, name, level);
    return compressor.compressComFile(input, name, level);
}

}  // namespace

// Bytes: way and level, how often the content comes, length of a stream's script; then script and
// content.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return -1;
    // Processes are slow: a command comes once in eight.
    static constexpr Way kWays[] = {kFile,   kFile,   kFile,    kStream,
                                    kStream, kStream, kCommand, kFile};
    const Way way = kWays[data[0] % 8];
    const int level = (data[0] >> 3) % 16 - 5;
    const std::string rest(reinterpret_cast<const char*>(data) + 3, size - 3);
    const std::string script = rest.substr(0, way == kStream ? data[2] : 0);
    const std::string piece = rest.substr(script.size());
    std::string content;
    for (int i = 0; i <= data[1] && content.size() + piece.size() <= kMostContent; ++i) {
        content += piece;
        if (!piece.empty()) content.back() = static_cast<char>(content.back() + i);
    }

    write(kInput, content);
    std::string input = way == kCommand ? std::string("cat ") + kInput : kInput;
    if (way == kCommand && data[2] % 2 != 0) input += "; exit 3";
    Watch watch;
    std::vector<Read> reads;
    if (way == kStream) {
        reads = scriptedReads(content, script);
        content = streamModel(reads);
        watch.onRead = [&, next = reads.begin()](char* buffer, size_t most) mutable -> ssize_t {
            if (next == reads.end()) return 0;
            const Read& read = *next++;
            errno = read.error;
            if (read.error != 0) return -1;
            if (most != kRead) fault("a read of " + std::to_string(most) + " bytes");
            memcpy(buffer, read.bytes.data(), read.bytes.size());
            return static_cast<ssize_t>(read.bytes.size());
        };
    }
    expectEqual("the result", compress(way, input.data(), level), 0);
    watch.onRead = nullptr;
    checkArchive(content);
    return 0;
}
