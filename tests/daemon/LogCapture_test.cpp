// SPDX-License-Identifier: Apache-2.0
// Tests of the capture: what is recorded of the device, who is asked, what the shell gives.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "bootvigil/Bootvigil.h"
#include "report/read/Archive.h"
#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

constexpr const char* kConsole = "/sys/fs/pstore/console-ramoops";
constexpr const char* kMonitorKey = "bootvigil init_monitor_thread_main create KE";

// Notes the names and levels that it is asked for.
class Notes : public bootvigil::CompressBase {
public:
    int compressShellCmdFile(char* command, char* name, int level) override {
        return compressStreamFile(command, name, level);
    }
    int compressStreamFile(const char*, const char* name, int level) override {
        mText += name + (" " + std::to_string(level)) + ",";
        return 0;
    }
    std::string mText;
};

class LogCaptureTest : public DeviceTest {
protected:
    LogCaptureTest() {
        write(kKelRequestFile, "");
    }

    void capture(const std::string& note = "") {
        long type = 0x60276;
        int pid = 567;
        std::string text = note;
        mMonitor.captureLog(type, pid, text);
    }

    std::string shell(const std::string& command) {
        std::string output;
        EXPECT_EQ(mMonitor.shellCmdFile(command.c_str(), output), 0);
        return output;
    }

    Bootvigil& mMonitor = *Bootvigil::createInstance();
};

TEST_F(LogCaptureTest, RecordsWhatTheCommandLineTells) {
    const struct {
        const char* commandLine;
        const char* powerOff;  // the record's text after the time, "" for none
        const char* hwInfo;
    } cases[] = {
            {"a FlashID=A b mem_index=1 poffsts=12345 c\n", ": 1234\n", "mem_index=1 FlashID=A "},
            {"poffsts=1 x\npoffsts= 2 FlashID=B\nlast", ":  2 F\n", "FlashID=B "},
            {"poffsts=7", ": 7\n", "<missing>"},
            {"FlashID=mem_index=2", "", "FlashID=mem_index=2 FlashID=mem_index=2 "},
            {"", "", "<missing>"},
    };
    for (const auto& c : cases) {
        remove(kPmic);
        remove(kHwInfo);
        write("/proc/cmdline", c.commandLine);
        capture();
        const std::string powerOff = c.powerOff;
        EXPECT_EQ(read(kPmic),
                  powerOff.empty() ? "<missing>" : "Sun Nov 15 11:00:00 2026" + powerOff)
                << c.commandLine;
        EXPECT_EQ(read(kHwInfo), c.hwInfo) << c.commandLine;
    }
    write("/proc/cmdline", "FlashID=changed poffsts=9\n");
    write(kHwInfo, "kept");
    capture();
    capture();
    EXPECT_EQ(read(kHwInfo), "kept");
    EXPECT_EQ(read(kPmic), "Sun Nov 15 11:00:00 2026: 9\nSun Nov 15 11:00:00 2026: 9\n");
    remove(kPmic);
    mkdir(kPmic.c_str(), 0755);
    takeLog();
    capture();
    EXPECT_EQ(takeLog()[0], "E Save file path /velafs/boot_vigil/pmic_info fail, open fail.");
    remove("/proc/cmdline");
    capture();
    EXPECT_EQ(takeLog()[0], "E parseCmdline open /proc/cmdline failed");
}

TEST_F(LogCaptureTest, AsksTheServiceOnlyWhenBothPartsRun) {
    write("/proc/cmdline", "FlashID=A poffsts=1\n");
    write("/velafs/SDD/bfRecord.txt", "");
    setProperty("init.svc.kel", "running");
    capture("x;");
    EXPECT_EQ(read(kKelRequestFile), "");
    EXPECT_EQ(mMonitor.mCaptureState, 2);
    setProperty("init.svc.kelvservice", "running");
    capture("x;");
    EXPECT_EQ(read(kKelRequestFile),
              "0xffffff06|393846|567|x;/velafs/boot_vigil/pmic_info;/velafs/boot_vigil/mem_hwinfo;"
              "/velafs/SDD/bfRecord.txt;\n");
    EXPECT_EQ(mMonitor.mCaptureState, 1);
    setProperty("persist.sys.bootvigil.debug", "1");
    capture();
    EXPECT_EQ(mMonitor.mCaptureState, 2);
    EXPECT_EQ(read(kJournal),
              "Sun Nov 15 11:00:00 2026  USER capture log\n"
              "Sun Nov 15 11:00:00 2026  KEL capture log\n"
              "Sun Nov 15 11:00:00 2026  USER capture log\n");
}

TEST_F(LogCaptureTest, CapturesSevenLogsInOrder) {
    const auto contentOf = [](const CapturedLog& log) { return "the " + log.buffer + " log\n"; };
    for (const CapturedLog& log : kCapturedLogs) {
        write(log.buffer.empty() ? kPstoreConsole : kLogBuffers + log.buffer, contentOf(log));
    }
    capture();
    for (const CapturedLog& log : kCapturedLogs) {
        EXPECT_EQ(report::readArchive(archivePath(log.archive)), contentOf(log));
    }
    Notes notes;
    bootvigil::CompressBase* const real = std::exchange(mMonitor.mCompressor, &notes);
    mMonitor.compressLogs();
    mMonitor.mCompressor = real;
    EXPECT_EQ(notes.mText,
              "android_crash_log 5,android_main_log 5,android_events_log 5,android_system_log 5,"
              "android_radio_log 5,sys_kernel_log 5,console-ramoops-0 5,");
    std::filesystem::remove_all("/velafs/boot_vigil/log");
    EXPECT_EXIT(capture(), testing::ExitedWithCode(2), "android_crash_log.zs: No such file");
}

TEST_F(LogCaptureTest, WithoutAPartitionTheMarkerIsWrittenOnce) {
    std::filesystem::remove_all("/velafs");
    capture();
    EXPECT_EQ(read("/dev/kmsg"), kMonitorKey);
    EXPECT_EQ(modeOf("/dev/kmsg"), 0600);
    EXPECT_EQ(mMonitor.mCaptureState, 0);
    const std::string said = std::string("D BOOTVIGIL writeMonitorKey key ") + kMonitorKey;
    EXPECT_TRUE(logged(said));
    for (const char* console : {"-0", ""}) {  // either console may hold it
        remove("/dev/kmsg");
        write(std::string(kConsole) + console, std::string("...") + kMonitorKey + "...");
        capture();
        EXPECT_FALSE(exists("/dev/kmsg"));
        EXPECT_TRUE(logged("E BOOTVIGIL findMonitorKey return"));
        remove((std::string(kConsole) + console).c_str());
    }
    write("/data/a", "");
    symlink("/data/a", "/dev/kmsg");
    capture();
    EXPECT_EQ(read("/data/a"), "");
    EXPECT_TRUE(logged("E BOOTVIGIL Failed to open /dev/kmsg \n"));
}

TEST_F(LogCaptureTest, ShellOutputKeepsWhatTheBufferHeld) {
    EXPECT_EQ(shell("printf 'some text'; false"), "some text");
    EXPECT_TRUE(logged("E shellCmdFile some text \n"));
    EXPECT_EQ(shell("true"), "");
    EXPECT_EQ(shell("printf 'cut\\0off'"), "cut");
    // a whole chunk is capped at its size, and comes again with the empty read that ends it
    const std::string chunk(4096, 'a');
    write("/data/a", chunk);
    EXPECT_EQ(shell("cat /data/a"), chunk + chunk);
    // a short last chunk drags the rest of the one before along
    EXPECT_EQ(shell("cat /data/a; printf bbb"), chunk + "bbb" + chunk.substr(3));
    // up to the first NUL that is still in the buffer
    write("/data/b", std::string(10, 'c') + '\0' + std::string(4085, 'd'));
    EXPECT_EQ(shell("cat /data/b; printf bbb"), std::string(10, 'c') + "bbb" + std::string(7, 'c'));
}

TEST_F(LogCaptureTest, RawLogIsMadeReadable) {
    write(kInitLog, "text");
    mMonitor.captureRawLog(kInitLog);
    EXPECT_EQ(modeOf(kInitLog), 0777);
}

}  // namespace
