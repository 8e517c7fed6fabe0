// SPDX-License-Identifier: Apache-2.0
// Compresses captured logs into zstd files: one frame with a content checksum per log.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "CompressZstd.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include <android-base/unique_fd.h>
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

// An input or output, closed at the end of its scope; a failure to close ends the process.
struct CloseFile {
    void operator()(FILE* file) const {
        if (fclose(file) != 0) {
            perror("fclose");
            exit(kExitClose);
        }
    }
};
using File = std::unique_ptr<FILE, CloseFile>;

// The output of a command, whose exit status does not matter.
struct ClosePipe {
    void operator()(FILE* pipe) const {
        pclose(pipe);
    }
};

File openOutput(const OutputPath& path) {
    File output(fopen(path.text, "wb"));
    if (output == nullptr) {
        perror(path.text);
        exit(kExitOpenOutput);
    }
    return output;
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

class Buffer {
public:
    Buffer() = default;
    explicit Buffer(size_t size) : mData(allocate(size)), mSize(size) {}

    char* data() const {
        return mData.get();
    }
    size_t size() const {
        return mSize;
    }

private:
    struct Free {
        void operator()(char* data) const {
            free(data);
        }
    };
    std::unique_ptr<char, Free> mData;
    size_t mSize = 0;
};

// One frame, written to a file through an output buffer.
class Frame {
public:
    Frame(FILE* file, const Buffer& out, int level)
        : mFile(file), mOut(out), mContext(ZSTD_createCCtx()) {
        ZSTD_CCtx* const cctx = mContext.get();
        CHECK(cctx != NULL, "ZSTD_createCCtx() failed!");
        CHECK_ZSTD(ZSTD_CCtx_setParameter(cctx, ZSTD_c_compressionLevel, level));
        CHECK_ZSTD(ZSTD_CCtx_setParameter(cctx, ZSTD_c_checksumFlag, 1));
    }

    // Feeds `size` bytes to the frame and writes what comes out; the last block ends the frame.
    void add(const char* block, size_t size, bool last) {
        const ZSTD_EndDirective directive = last ? ZSTD_e_end : ZSTD_e_continue;
        ZSTD_inBuffer input = {block, size, 0};
        bool finished = false;
        while (!finished) {
            ZSTD_outBuffer output = {mOut.data(), mOut.size(), 0};
            const size_t remaining =
                    ZSTD_compressStream2(mContext.get(), &output, &input, directive);
            CHECK_ZSTD(remaining);
            if (fwrite(mOut.data(), 1, output.pos, mFile) < output.pos) {
                perror("fwrite");
                exit(kExitWrite);
            }
            finished = last ? remaining == 0 : input.pos == input.size;
        }
        CHECK(input.pos == input.size,
              "Impossible: zstd only returns 0 when the input is completely consumed!");
    }

private:
    struct FreeContext {
        void operator()(ZSTD_CCtx* context) const {
            ZSTD_freeCCtx(context);
        }
    };

    FILE* const mFile;
    const Buffer& mOut;
    const std::unique_ptr<ZSTD_CCtx, FreeContext> mContext;
};

// Compresses everything that buffered reads of the size of `in` give.
void compressBuffered(FILE* input, const Buffer& in, Frame& frame) {
    bool last = false;
    while (!last) {
        const size_t size = fread(in.data(), 1, in.size(), input);
        last = size < in.size();
        if (last && !feof(input)) {
            perror("fread");
            exit(kExitRead);
        }
        frame.add(in.data(), size, last);
    }
}

// Cuts a stream into blocks of kBlockSize.
// By design: when a read overshoots the end of a block, its surplus goes to a carry buffer and is
// never copied back. The next block begins with that many zero bytes instead, and so does every
// later block until the next surplus is measured, even one that the end of the input cuts short.
class BlockReader {
public:
    BlockReader(int fd, const Buffer& block)
        : mFd(fd), mBlock(block.data()), mReadBuffer(kReadSize), mCarryBuffer(kReadSize) {}

    // Fills the (cleared) block and returns its size; less than kBlockSize is the last one.
    size_t fill() {
        size_t filled = 0;
        for (;;) {
            const ssize_t count = read(mFd, mReadBuffer.data(), kReadSize);
            if (count < 0) {
                if (errno == EINTR) continue;
                return 0;  // what was gathered for this block is dropped
            }
            if (count == 0) return mCarry + filled;
            const size_t got = static_cast<size_t>(count);
            const size_t room = kBlockSize - mCarry - filled;
            if (got <= room) {
                memcpy(mBlock + mCarry + filled, mReadBuffer.data(), got);
                filled += got;
                continue;
            }
            memcpy(mBlock + mCarry + filled, mReadBuffer.data(), room);
            mCarry = got - room;
            memset(mCarryBuffer.data(), 0, kReadSize);
            memcpy(mCarryBuffer.data(), mReadBuffer.data() + room, mCarry);
            return kBlockSize;
        }
    }

private:
    const int mFd;
    char* const mBlock;
    const Buffer mReadBuffer;
    const Buffer mCarryBuffer;
    size_t mCarry = 0;
};

}  // namespace

// Each of the three operations declares what it owns so that the context is freed first, then the
// output is closed, then the input. An ordinary file's buffers are freed last, other buffers before
// the output is closed.

int CompressZstd::compressComFile(char* input, char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    CHECK(input != NULL, "compressComFile input == NULL!");
    CHECK(fileName != NULL, "compressComFile fileName == NULL!");
    Buffer out;
    Buffer in;
    const File source(fopen(input, "rb"));
    if (source == nullptr) {
        ALOGD("compressComFile open %s failed!!!", input);
        return -1;
    }
    File output = openOutput(path);
    in = Buffer(ZSTD_CStreamInSize());
    out = Buffer(ZSTD_CStreamOutSize());
    Frame frame(output.get(), out, level);
    compressBuffered(source.get(), in, frame);
    return 0;
}

int CompressZstd::compressStreamFile(const char* input, const char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    CHECK(input != NULL, "compressStreamFile input == NULL!");
    CHECK(fileName != NULL, "compressStreamFile fileName == NULL!");
    android::base::unique_fd fd;
    File output = openOutput(path);
    fd.reset(TEMP_FAILURE_RETRY(open(input, O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
    if (fd < 0) {
        ALOGI("compressStreamFile (%s) fail,reason : %s\n", input, strerror(errno));
        return -1;
    }
    const Buffer block(kBlockSize);
    const Buffer out(kBlockSize);
    BlockReader reader(fd.get(), block);
    Frame frame(output.get(), out, level);
    size_t size = kBlockSize;
    while (size == kBlockSize) {
        size = reader.fill();
        frame.add(block.data(), size, size < kBlockSize);
        memset(block.data(), 0, kBlockSize);
    }
    return 0;
}

int CompressZstd::compressShellCmdFile(char* cmd, char* fileName, int level) {
    const OutputPath path = formatOutputPath(*this, fileName);
    ALOGD("compressShellCmdFile:output=%s, input=%s", path.text, cmd);
    CHECK(cmd != NULL, "compressShellCmdFile cmd == NULL!");
    CHECK(fileName != NULL, "compressShellCmdFile fileName == NULL!");
    std::unique_ptr<FILE, ClosePipe> pipe;
    File output = openOutput(path);
    pipe.reset(popen(cmd, "r"));
    if (pipe == nullptr) {
        ALOGD("compressShellCmdFile popen cmd %s failed!!!", cmd);
        return -1;
    }
    const Buffer in(kBlockSize);
    const Buffer out(kBlockSize);
    Frame frame(output.get(), out, level);
    compressBuffered(pipe.get(), in, frame);
    return 0;
}

int CompressZstd::endCompress() {
    CompressBase::endCompress();
    return 0;
}

}  // namespace bootvigil
// NOLINTEND(modernize-use-nullptr)
