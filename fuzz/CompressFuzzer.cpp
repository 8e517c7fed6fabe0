// SPDX-License-Identifier: Apache-2.0
// Every input of the compressor against zstd's own decompression, and its fixed exit statuses.

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include <zstd.h>

#include "bootvigil/compress/CompressZstd.h"
#include "fuzz/FuzzDevice.h"

using namespace fuzz;

namespace {

constexpr const char* kInput = "/data/input";
constexpr const char* kOutput = "/velafs/boot_vigil/log/output.zs";
constexpr size_t kBlock = 65536;
constexpr size_t kRead = 5120;
constexpr size_t kMostContent = 300000;

enum Way { kFile, kStream, kCommand };

// One answer to read(2): bytes (none: the end), or an error.
struct Read {
    std::string bytes;
    int error = 0;
};

// What a stream's archive has to hold: bytes over a block's end come back as zeros, at the head of
// each block from there on.
std::string streamModel(const std::vector<Read>& reads) {
    std::string content;
    size_t zeros = 0;
    auto next = reads.begin();
    std::string block;
    do {
        block.assign(zeros, '\0');
        while (next != reads.end() && block.size() <= kBlock) {
            const Read& read = *next++;
            if (read.error == EINTR) continue;
            if (read.error != 0) return content;
            if (read.bytes.empty()) break;
            block += read.bytes;
        }
        if (block.size() > kBlock) {
            zeros = block.size() - kBlock;
            block.resize(kBlock);
        }
        content += block;
    } while (block.size() == kBlock);
    return content;
}

// Cuts content into reads as the script's bytes say: sizes, ends, interruptions, a failure.
std::vector<Read> readsOf(const std::string& content, const std::string& script) {
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
    while (at < content.size()) take(kRead);
    return reads;
}

std::string runCommand(const char* command) {
    FILE* pipe = popen(command, "r");
    if (pipe == nullptr) fault("cannot run zstd");
    std::string output;
    char buffer[kBlock];
    while (const size_t size = fread(buffer, 1, sizeof(buffer), pipe)) output.append(buffer, size);
    if (pclose(pipe) != 0) fault("zstd -d fails on the archive");
    return output;
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
    static const bool useCommand = getenv("FUZZ_ZSTD_COMMAND") != nullptr;
    if (useCommand && runCommand("zstd -dcq /velafs/boot_vigil/log/output.zs") != content) {
        fault("zstd -d finds something else");
    }
}

struct Call {
    Way way = kFile;
    const char* input = kInput;
    const char* name = "output";
    const char* folder = "/velafs/boot_vigil/log";
    const char* suffix = ".zs";
    int level = 5;

    int operator()() const {
        bootvigil::CompressZstd compressor;
        compressor.mOutputDir = folder;
        compressor.mFileSuffix = suffix;
        char* in = const_cast<char*>(input);
        char* out = const_cast<char*>(name);
        if (way == kStream) return compressor.compressStreamFile(in, out, level);
        if (way == kCommand) return compressor.compressShellCmdFile(in, out, level);
        return compressor.compressComFile(in, out, level);
    }
};

// The ways to end that are laid down, by a fault of the call or the device.
void checkEnding(Call call, int kind) {
    std::string name(240, 'n');
    int expected = 0;
    switch (kind) {
        case 0:
            call.input = nullptr;
            expected = 1;
            break;
        case 1:
            call.name = nullptr;
            expected = 1;
            break;
        case 2:
            call.folder = "/velafs/none";
            expected = 2;
            break;
        case 3: {
            // A full device shows once a buffer of output is written, at the latest at the close.
            struct stat archive = {};
            struct stat full = {};
            if (call() != 0 || stat(kOutput, &archive) != 0 || stat("/dev/full", &full) != 0) {
                fault("no archive to measure");
            }
            if (archive.st_size == full.st_blksize) return;
            expected = archive.st_size < full.st_blksize ? 3 : 5;
            call.folder = "/dev";
            call.name = "full";
            call.suffix = nullptr;
            break;
        }
        case 4:
            call.input = call.way == kCommand ? "cat /velafs 2>&-" : "/velafs";
            expected = call.way == kFile ? 4 : 0;
            break;
        default:
            name.resize(size_t{253} - strlen(call.folder) - strlen(call.suffix) +
                        static_cast<size_t>(kind - 4));
            call.name = name.c_str();
            expected = 128 + SIGABRT;
            if (kind == 5) expected = 0;  // 255 characters
    }
    expectEqual("the exit status", Watch::statusOf([&] { _Exit(call()); }), expected);
    if (kind >= 5) unlink((std::string(call.folder) + "/" + name + call.suffix).c_str());
}

}  // namespace

// Bytes: way and level, how often the content comes, length of the script (for a stream) or the
// kind of ending; then script and content.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return -1;
    Call call;
    // Processes are slow: a command comes once in eight, and so does an ending.
    static constexpr Way kWays[] = {kFile, kFile, kFile, kStream, kStream, kStream, kCommand};
    const bool ends = data[0] % 8 == 7;
    call.way = ends ? static_cast<Way>((data[0] >> 3) % 3) : kWays[data[0] % 8];
    call.level = (data[0] >> 3) % 16 - 5;
    const std::string rest(reinterpret_cast<const char*>(data) + 3, size - 3);
    const std::string script = rest.substr(0, call.way == kStream && !ends ? data[2] : 0);
    const std::string piece = rest.substr(script.size());
    std::string content;
    for (int i = 0; i <= data[1] && content.size() + piece.size() <= kMostContent; ++i) {
        content += piece;
        if (!piece.empty()) content.back() = static_cast<char>(content.back() + i);
    }

    write(kInput, content);
    Watch watch;
    if (call.way == kCommand)
        call.input = data[2] % 2 == 0 ? "cat /data/input" : "cat /data/input; exit 3";
    if (ends) {
        checkEnding(call, data[2] % 7);
        return 0;
    }
    if (call.way == kStream) {
        const std::vector<Read> reads = readsOf(content, script);
        content = streamModel(reads);
        auto next = reads.begin();
        watch.onRead = [&](char* buffer, size_t most) -> ssize_t {
            if (next == reads.end()) return 0;
            const Read& read = *next++;
            errno = read.error;
            if (read.error != 0) return -1;
            if (most != kRead) fault("a read of " + std::to_string(most) + " bytes");
            memcpy(buffer, read.bytes.data(), read.bytes.size());
            return static_cast<ssize_t>(read.bytes.size());
        };
        expectEqual("the result", call(), 0);
        watch.onRead = nullptr;
    } else {
        expectEqual("the result", call(), 0);
    }
    checkArchive(content);
    return 0;
}
