// SPDX-License-Identifier: Apache-2.0
// Tests of the compressor, against the zstd library's own decoder and the rules of the stream case.

#include "bootvigil/compress/CompressZstd.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <zstd.h>

#include <filesystem>
#include <functional>

#include "bootvigil/Bootvigil.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/device/LibcFiles.h"
#include "lab/scenario/Scenario.h"
#include "report/read/Archive.h"
#include "tests/daemon/DeviceTest.h"
#include "tests/daemon/StreamModel.h"

namespace {

// Made while the profile that it shows by default can be read.
const lab::Boot kBoot;

constexpr const char* kOut = "/velafs/boot_vigil/log/out.zs";
// Bytes that compress, but none of whose blocks is like another.
std::string makeText(size_t size) {
    std::string text;
    text.reserve(size + 64);
    for (uint32_t i = 0; text.size() < size; ++i) {
        text += "line " + std::to_string(i * 2654435761U) + " of a log\n";
    }
    text.resize(size);
    return text;
}

// A signal interrupts the process's next wait, as any handler that does not restart calls would.
// Again and again, since on a busy machine the first may come before the read has begun.
void interruptReads() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 50000}, {0, 50000}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

class CompressZstdTest : public DeviceTest {
protected:
    CompressZstdTest() {
        mCompressor.mOutputDir = "/velafs/boot_vigil/log";
        mCompressor.mFileSuffix = ".zs";
    }

    int command(std::string line) {
        std::string name = "out";
        return mCompressor.compressShellCmdFile(line.data(), name.data(), 5);
    }

    int file(std::string path, std::string name = "out") {
        return mCompressor.compressComFile(path.data(), name.data(), 5);
    }

    int stream(const char* path) {
        return mCompressor.compressStreamFile(path, "out", 5);
    }

    // Runs a command when no descriptor is left for its pipe once the output is open; exits 42 if
    // that is reported.
    void commandWithoutDescriptors() {
        Bootvigil& monitor = *Bootvigil::createInstance();
        std::string text;
        const int next = dup(0);
        close(next);
        const rlimit files = {static_cast<rlim_t>(next) + 1, static_cast<rlim_t>(next) + 1};
        setrlimit(RLIMIT_NOFILE, &files);
        const bool failed = monitor.shellCmdFile("true", text) == -1 && command("true") == -1;
        _exit(failed && takeLog().back() == "D compressShellCmdFile popen cmd true failed!!!" ? 42
                                                                                              : 1);
    }

    bootvigil::CompressZstd mCompressor;
};

// On the workstation's own files, where the zstd command is.
class ZstdCommandTest : public testing::Test {
protected:
    ZstdCommandTest() {
        mCompressor.mOutputDir = mFolder.c_str();
        mCompressor.mFileSuffix = ".zs";
    }

    // zstd accepts the archive, which holds `expected`.
    bool holds(const std::string& expected) {
        lab::writeFile(mFolder + "/expected", expected);
        const std::string archive = mFolder + "/out.zs";
        return system(("zstd -tq " + archive).c_str()) == 0 &&
               system(("zstd -dcq " + archive + " | cmp - " + mFolder + "/expected").c_str()) == 0;
    }

    const lab::TemporaryFolder mTemporary{testing::TempDir()};
    const std::string mFolder = mTemporary.path();
    bootvigil::CompressZstd mCompressor;
};

TEST_F(ZstdCommandTest, GetsTheInputBack) {
    std::string name = "out";
    std::string path = mFolder + "/in";
    std::string command = "cat " + path;
    for (const size_t size : {size_t{0}, size_t{1}, kBlock - 1, kBlock, kBlock + 1, size_t{70000},
                              2 * kBlock, size_t{131073}, size_t{100} << 20}) {
        const std::string in = makeText(size);
        lab::writeFile(path, in);
        EXPECT_EQ(mCompressor.compressComFile(path.data(), name.data(), 5), 0);
        EXPECT_TRUE(holds(in)) << size;
        EXPECT_EQ(mCompressor.compressShellCmdFile(command.data(), name.data(), 5), 0);
        EXPECT_TRUE(holds(in)) << size;
        EXPECT_EQ(mCompressor.compressStreamFile(path.c_str(), name.c_str(), 5), 0);
        EXPECT_TRUE(holds(streamModel(readsOf(in)))) << size;
    }
}

TEST(StreamModel, LosesTheCarriedBytes) {
    const std::string in = makeText(70000);
    EXPECT_EQ(streamModel(readsOf(in)),
              in.substr(0, kBlock) + std::string(1024, '\0') + in.substr(66560));
    // a whole number of blocks ends in zeros that the input never had
    EXPECT_EQ(streamModel(readsOf(makeText(2 * kBlock))).size(), 2 * kBlock + 1024);
}

TEST(CompressBase, CompressesNothing) {
    bootvigil::CompressBase base;
    EXPECT_EQ(base.compressComFile(nullptr, nullptr, 5), 0);
    EXPECT_EQ(base.compressStreamFile(nullptr, nullptr, 5), 0);
    EXPECT_EQ(base.compressShellCmdFile(nullptr, nullptr, 5), 0);
}

TEST_F(CompressZstdTest, FrameIsAsTheLibraryWritesIt) {
    write("/data/in", makeText(300000));
    EXPECT_EQ(command("cat /data/in; false"), 0);  // the exit status does not matter
    const std::string frame = read(kOut);
    EXPECT_EQ(frame.substr(0, 4), "\x28\xb5\x2f\xfd");
    EXPECT_EQ(frame[4] & 0x24, 0x04);  // checksum, no single segment
    EXPECT_TRUE(logged(
            "D compressShellCmdFile:output=/velafs/boot_vigil/log/out.zs, input=cat /data/in; "
            "false"));
    stream("/data/in");
    const std::string five = read(kOut);
    EXPECT_EQ(ZSTD_findFrameCompressedSize(five.data(), five.size()), five.size()) << "one frame";
    mCompressor.compressStreamFile("/data/in", "out", 6);
    EXPECT_NE(read(kOut), five) << "the level makes no difference";
}

TEST_F(CompressZstdTest, MemoryDoesNotGrowWithTheInput) {
    const auto peak = [] {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;  // KiB
    };
    EXPECT_EQ(command("yes 'a line of a log' | head -c 1048576"), 0);
    const long before = peak();
    EXPECT_EQ(command("yes 'a line of a log' | head -c 104857600"), 0);
    EXPECT_LT(peak() - before, 16384);  // a sanitizer holds freed memory back
    EXPECT_EQ(report::inspectArchive(kOut).content, 104857600);
    EXPECT_EQ(report::inspectArchive(kOut).error, "");
}

TEST_F(CompressZstdTest, InputThatCannotBeRead) {
    EXPECT_EQ(file("/data/none"), -1);
    EXPECT_FALSE(exists(kOut));
    EXPECT_TRUE(logged("D compressComFile open /data/none failed!!!"));
    write(kOut, "of an earlier capture");
    EXPECT_EQ(stream("/data/none"), -1);
    EXPECT_EQ(read(kOut), "");
    EXPECT_TRUE(
            logged("I compressStreamFile (/data/none) fail,reason : No such file or directory\n"));
    // a folder opens but can't be read, and nobody waits for who may write to a pipe
    mkfifo("/data/pipe", 0600);
    for (const char* empty : {"/data", "/data/pipe"}) {
        EXPECT_EQ(stream(empty), 0);
        EXPECT_EQ(report::readArchive(kOut), "");
    }
    EXPECT_EXIT(file("/data"), testing::ExitedWithCode(4), "fread: Is a directory");
    EXPECT_EXIT(commandWithoutDescriptors(), testing::ExitedWithCode(42), "");
}

TEST_F(CompressZstdTest, FaultsOfTheCallOrTheDeviceEndTheProcess) {
    std::string path = "/data/in";
    write(path, makeText(1000000));
    const auto dies = [&](auto compress, const std::string& way, const std::string& input) {
        const std::string start = "^bootvigil/compress/CompressZstd.cpp:[0-9]+ CHECK\\(";
        const std::string middle = " != NULL\\) failed: " + way + " ";
        EXPECT_EXIT((mCompressor.*compress)(nullptr, path.data(), 5), testing::ExitedWithCode(1),
                    start + input + middle + input + " == NULL!\n$");
        EXPECT_EXIT((mCompressor.*compress)(path.data(), nullptr, 5), testing::ExitedWithCode(1),
                    start + "fileName" + middle + "fileName == NULL!\n$");
        char none[] = "none/out";
        EXPECT_EXIT((mCompressor.*compress)(path.data(), none, 5), testing::ExitedWithCode(2),
                    "/velafs/boot_vigil/log/none/out.zs: No such file or directory");
        std::string name(229, 'n');  // of 255 characters with the folder and the suffix
        EXPECT_EQ((mCompressor.*compress)(path.data(), name.data(), 5), 0);
        name += 'n';
        EXPECT_EXIT((mCompressor.*compress)(path.data(), name.data(), 5),
                    testing::KilledBySignal(SIGABRT), "");
    };
    dies(&bootvigil::CompressZstd::compressComFile, "compressComFile", "input");
    dies(&bootvigil::CompressZstd::compressStreamFile, "compressStreamFile", "input");
    dies(&bootvigil::CompressZstd::compressShellCmdFile, "compressShellCmdFile", "cmd");
    // no room for what was compressed: noticed when written, or at the latest when closed
    mCompressor.mOutputDir = "/data";
    mCompressor.mFileSuffix = nullptr;
    write("/data/few", makeText(1000));  // compressed, fits into the stream's buffer
    const auto limited = [&](rlim_t bytes, const char* input) {
        const rlimit limit = {bytes, bytes};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        file(input);
    };
    EXPECT_EXIT(limited(4096, "/data/in"), testing::ExitedWithCode(5), "fwrite: File too large");
    EXPECT_EXIT(limited(64, "/data/few"), testing::ExitedWithCode(3), "fclose: File too large");
}

TEST_F(CompressZstdTest, ReadThatIsInterruptedEndsTheProcess) {
    const auto interrupted = [&](bool compressed) {
        interruptReads();
        std::string output;
        if (compressed) _exit(command("sleep 1"));
        Bootvigil::createInstance()->shellCmdFile("sleep 1", output);
    };
    for (const bool compressed : {true, false}) {
        EXPECT_EXIT(interrupted(compressed), testing::ExitedWithCode(4), "fread: Interrupted");
    }
}

TEST_F(CompressZstdTest, LackOfMemoryForAnyBufferEndsTheProcess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own allocator can't be made to fail";
#endif
    write("/data/in", "text");
    const struct {
        std::function<int()> compress;
        int buffers;
    } cases[] = {{[&] { return file("/data/in"); }, 2},
                 {[&] { return stream("/data/in"); }, 4},
                 {[&] { return command("true"); }, 2}};
    for (const auto& c : cases) {
        lab::Boot boot = kBoot;
        lab::Trace trace;
        const auto starve = [&](int nth) noexcept {
            boot.faults = {{lab::Fault::Call::MALLOC, nth, 1}};
            if (freopen("/data/errors", "w", stderr) == nullptr) _exit(1);
            lab::calls::start(boot, trace);
            lab::calls::thisIsTheWorker();
            _exit(c.compress());
        };
        int buffers = 0;
        const auto count = [&](int status) {
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 8) return true;
            ++buffers;
            return read("/data/errors") == "malloc: Cannot allocate memory\n";
        };
        for (int nth = 1; nth < 16; ++nth) EXPECT_EXIT(starve(nth), count, "");
        EXPECT_EQ(buffers, c.buffers);
    }
}

TEST_F(CompressZstdTest, ArchiveTakesTheFolderWithIt) {
    write("/velafs/boot_vigil/log/a", "text");
    mCompressor.mArchiveSuffix = ".tar";
    EXPECT_EQ(mCompressor.endCompress(), 0);
    EXPECT_FALSE(exists("/velafs/boot_vigil/log"));
    EXPECT_NE(read("/velafs/boot_vigil/log.tar").find("text"), std::string::npos);
    EXPECT_EQ(takeLog(),
              (std::vector<std::string>{"D child normal exit....", "D endCompress end"}));
    EXPECT_EQ(mCompressor.CompressBase::endCompress(), 0);
}

}  // namespace
