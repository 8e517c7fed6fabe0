// SPDX-License-Identifier: Apache-2.0
// Compresses captured logs into zstd files, one frame with a content checksum each.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "CompressZstd.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <log/log.h>
#include <zstd.h>

// Ends the process with status 1 unless `cond` holds. The build maps __FILE__ to a path relative
// to the source tree, so that the message is the same wherever it was built.
// The condition's own text is part of the message, therefore NULL.
// NOLINTBEGIN(modernize-use-nullptr)
#define CHECK(cond, ...)                                                            \
    do {                                                                            \
        if (!(cond)) {                                                              \
            fprintf(stderr, "%s:%d CHECK(%s) failed: ", __FILE__, __LINE__, #cond); \
            fprintf(stderr, __VA_ARGS__);                                           \
            fprintf(stderr, "\n");                                                  \
            exit(kExitCheck);                                                       \
        }                                                                           \
    } while (0)

#define CHECK_ZSTD(result)                                       \
    do {                                                         \
        const size_t err = (result);                             \
        CHECK(!ZSTD_isError(err), "%s", ZSTD_getErrorName(err)); \
    } while (0)

namespace bootvigil {

namespace {

constexpr int kExitCheck = 1;
constexpr int kExitOpenOutput = 2;
constexpr int kExitClose = 3;
constexpr int kExitRead = 4;
constexpr int kExitWrite = 5;
constexpr int kExitMemory = 8;

constexpr size_t kBlockSize = 65536;  // input block and output buffer of streams and commands
constexpr size_t kReadSize = 5120;    // one raw read of a stream

struct OutputPath {
    char text[256];
};

OutputPath formatOutputPath(const CompressBase& compressor, const char* fileName) {
    OutputPath path = {};
    const int length = compressor.mFileSuffix != nullptr
                               ? snprintf(path.text, sizeof(path.text), "%s/%s%s",
                                          compressor.mOutputDir, fileName, compressor.mFileSuffix)
                               : snprintf(path.text, sizeof(path.text), "%s/%s",
                                          compressor.mOutputDir, fileName);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(path.text)) abort();
    return path;
}

FILE* openOutput(const OutputPath& path) {
    FILE* output = fopen(path.text, "wb");
    if (output == nullptr) {
        perror(path.text);
        exit(kExitOpenOutput);
    }
    return output;
}

void closeFile(FILE* file) {
    if (fclose(file) != 0) {
        perror("fclose");
        exit(kExitClose);
    }
}

// By design: the carry buffer is allocated although nobody reads it, and so can fail. A compiler
// that saw through this function would leave that allocation out.
[[gnu::noinline]] char* allocate(size_t size) {
    void* memory = calloc(1, size);
    if (memory == nullptr) {
        perror("malloc");
        exit(kExitMemory);
    }
    return static_cast<char*>(memory);
}

ZSTD_CCtx* createContext(int level) {
    ZSTD_CCtx* cctx = ZSTD_createCCtx();
    CHECK(cctx != NULL, "ZSTD_createCCtx() failed!");
    CHECK_ZSTD(ZSTD_CCtx_setParameter(cctx, ZSTD_c_compressionLevel, level));
    CHECK_ZSTD(ZSTD_CCtx_setParameter(cctx, ZSTD_c_checksumFlag, 1));
    return cctx;
}

struct Buffer {
    char* data;
    size_t size;
};

// Feeds `size` bytes to the frame and writes what comes out; the last block ends the frame.
void compressBlock(ZSTD_CCtx* cctx, const char* block, size_t size, bool last, Buffer out,
                   FILE* file) {
    const ZSTD_EndDirective directive = last ? ZSTD_e_end : ZSTD_e_continue;
    ZSTD_inBuffer input = {block, size, 0};
    bool finished = false;
    while (!finished) {
        ZSTD_outBuffer output = {out.data, out.size, 0};
        const size_t remaining = ZSTD_compressStream2(cctx, &output, &input, directive);
        CHECK_ZSTD(remaining);
        if (fwrite(out.data, 1, output.pos, file) < output.pos) {
            perror("fwrite");
            exit(kExitWrite);
        }
        finished = last ? remaining == 0 : input.pos == input.size;
    }
    CHECK(input.pos == input.size,
          "Impossible: zstd only returns 0 when the input is completely consumed!");
}

// Compresses everything that buffered reads of `in.size` bytes give.
void compressBuffered(FILE* input, Buffer in, Buffer out, ZSTD_CCtx* cctx, FILE* output) {
    bool last = false;
    while (!last) {
        const size_t size = fread(in.data, 1, in.size, input);
        last = size < in.size;
        if (last && !feof(input)) {
            perror("fread");
            exit(kExitRead);
        }
        compressBlock(cctx, in.data, size, last, out, output);
    }
}

// Cuts a stream into blocks of kBlockSize.
// This system's own rule: when a read overshoots the end of a block, its surplus goes to a carry
// buffer and is never copied back. The next block begins with that many zero bytes instead, and so
// does every block after it until the next surplus is measured, also one that the end of the input
// cuts short.
class BlockReader {
public:
    BlockReader(int fd, char* block, char* readBuffer, char* carryBuffer)
        : mFd(fd), mBlock(block), mReadBuffer(readBuffer), mCarryBuffer(carryBuffer) {}

    // Fills the (cleared) block and returns its size; less than kBlockSize is the last one.
    size_t fill() {
        size_t filled = 0;
        for (;;) {
            const ssize_t count = read(mFd, mReadBuffer, kReadSize);
            if (count < 0) {
                if (errno == EINTR) continue;
                return 0;  // what was gathered for this block is dropped
            }
            if (count == 0) return mCarry + filled;
            const size_t got = static_cast<size_t>(count);
            const size_t room = kBlockSize - mCarry - filled;
            if (got <= room) {
                memcpy(mBlock + mCarry + filled, mReadBuffer, got);
                filled += got;
                continue;
            }
            memcpy(mBlock + mCarry + filled, mReadBuffer, room);
            mCarry = got - room;
            memset(mCarryBuffer, 0, kReadSize);
            memcpy(mCarryBuffer, mReadBuffer + room, mCarry);
            return kBlockSize;
        }
    }

private:
    const int mFd;
    char* const mBlock;
    char* const mReadBuffer;
    char* const mCarryBuffer;
    size_t mCarry = 0;
};

}  // namespace

int CompressZstd::compressComFile(char* input, char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    CHECK(input != NULL, "compressComFile input == NULL!");
    CHECK(fileName != NULL, "compressComFile fileName == NULL!");
    FILE* source = fopen(input, "rb");
    if (source == nullptr) {
        ALOGD("compressComFile open %s failed!!!", input);
        return -1;
    }
    FILE* output = openOutput(path);
    const Buffer in = {allocate(ZSTD_CStreamInSize()), ZSTD_CStreamInSize()};
    const Buffer out = {allocate(ZSTD_CStreamOutSize()), ZSTD_CStreamOutSize()};
    ZSTD_CCtx* cctx = createContext(level);
    compressBuffered(source, in, out, cctx, output);
    ZSTD_freeCCtx(cctx);
    closeFile(output);
    closeFile(source);
    free(in.data);
    free(out.data);
    return 0;
}

int CompressZstd::compressStreamFile(const char* input, const char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    CHECK(input != NULL, "compressStreamFile input == NULL!");
    CHECK(fileName != NULL, "compressStreamFile fileName == NULL!");
    FILE* output = openOutput(path);
    const int fd = TEMP_FAILURE_RETRY(open(input, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (fd < 0) {
        ALOGI("compressStreamFile (%s) fail,reason : %s\n", input, strerror(errno));
        closeFile(output);
        return -1;
    }
    char* block = allocate(kBlockSize);
    const Buffer out = {allocate(kBlockSize), kBlockSize};
    char* readBuffer = allocate(kReadSize);
    char* carryBuffer = allocate(kReadSize);
    ZSTD_CCtx* cctx = createContext(level);

    BlockReader reader(fd, block, readBuffer, carryBuffer);
    size_t size = kBlockSize;
    while (size == kBlockSize) {
        size = reader.fill();
        compressBlock(cctx, block, size, size < kBlockSize, out, output);
        memset(block, 0, kBlockSize);
    }

    ZSTD_freeCCtx(cctx);
    free(block);
    free(out.data);
    free(readBuffer);
    free(carryBuffer);
    closeFile(output);
    close(fd);
    return 0;
}

int CompressZstd::compressShellCmdFile(char* cmd, char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    ALOGD("compressShellCmdFile:output=%s, input=%s", path.text, cmd);
    CHECK(cmd != NULL, "compressShellCmdFile cmd == NULL!");
    CHECK(fileName != NULL, "compressShellCmdFile fileName == NULL!");
    FILE* output = openOutput(path);
    FILE* pipe = popen(cmd, "r");
    if (pipe == nullptr) {
        ALOGD("compressShellCmdFile popen cmd %s failed!!!", cmd);
        closeFile(output);
        return -1;
    }
    const Buffer in = {allocate(kBlockSize), kBlockSize};
    const Buffer out = {allocate(kBlockSize), kBlockSize};
    ZSTD_CCtx* cctx = createContext(level);
    compressBuffered(pipe, in, out, cctx, output);
    ZSTD_freeCCtx(cctx);
    free(in.data);
    free(out.data);
    closeFile(output);
    pclose(pipe);
    return 0;
}

int CompressZstd::endCompress() {
    CompressBase::endCompress();
    return 0;
}

}  // namespace bootvigil
// NOLINTEND(modernize-use-nullptr)
