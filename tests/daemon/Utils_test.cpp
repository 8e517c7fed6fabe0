// SPDX-License-Identifier: Apache-2.0
// Tests of the file, time and string helpers.

#include "bootvigil/Utils.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "tests/daemon/DeviceTest.h"

namespace {
int gReadError = 0;  // of the next read, instead of it
}

extern "C" ssize_t read(int fd, void* data, size_t size) {
    static auto* const next =
            reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
    if (gReadError == 0) return next(fd, data, size);
    errno = std::exchange(gReadError, 0);
    return -1;
}

namespace {

using Fields = std::vector<std::string>;

class UtilsTest : public DeviceTest {};

int openFiles() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) ++count;
    }
    return count;
}

TEST_F(UtilsTest, EventIsTheThirdPiece) {
    // The text, or that it threw, and what was logged.
    const auto outcomeOf = [this](auto read) {
        Fields outcome;
        try {
            outcome.emplace_back(read());
        } catch (const std::out_of_range&) {
            outcome.emplace_back("throws");
        }
        const Fields log = takeLog();
        outcome.insert(outcome.end(), log.begin(), log.end());
        return outcome;
    };
    // Every text of up to six of these three, alone and where the line is long.
    const std::string letters = " :a";
    for (int i = 0; i < 1 << 12; ++i) {
        std::string text;
        for (int k = 0; k < 12; k += 2) text += letters.substr(i >> k & 3, 1);
        for (const char* before : {"", "  12.345 : 408-vold  : b"}) {
            const std::string line = before + text;
            const Fields expected = outcomeOf([&] {
                const Fields pieces = split(line, " :");
                return pieces.size() < 3 ? "" : pieces[2];
            });
            EXPECT_EQ(outcomeOf([&] { return eventOf(line); }), expected) << line;
        }
    }
}

TEST_F(UtilsTest, SplitCutsTrimsAndDrops) {
    const struct {
        const char* text;
        const char* pattern;
        Fields fields;
        Fields log;
    } cases[] = {
            {"1 2 3", " ", {"1", "2", "3"}, {}},
            {"x::y", "::", {"x", "y"}, {}},
            {"a,b,,c", ",", {"a", "b", "c"}, {"E split err, str=a,b,,c,, pos=4;\n"}},
            {",a", ",", {"a"}, {"E split err, str=,a,, pos=0;\n"}},
            {"", ",", {}, {"E split err, str=,, pos=0;\n"}},
            // the length kept is that of the text up to its last non-blank, leading blanks included
            {" ab ,cd  , ef", ",", {"ab ", "cd", "ef"}, {}},
            {"   ab     ", ",", {"ab   "}, {}},
            {"\tab\t", ",", {"\tab\t"}, {}},
            // a pattern that overlaps itself is found from the left, and its rest is lost
            {"a:", "::", {"a"}, {}},
            {"  12.3 :  408-vold    : vold:fbeEnable:END, rtn =1",
             " :",
             {"12.3", "408-vold  ", "vold:fbeEnable:END, rtn =1"},
             {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(split(c.text, c.pattern), c.fields) << "'" << c.text << "'";
        EXPECT_EQ(takeLog(), c.log) << "'" << c.text << "'";
    }
}

// Nothing in the daemon catches it.
TEST_F(UtilsTest, FieldOfBlanksThrows) {
    EXPECT_THROW(split("a,   ,b", ","), std::out_of_range);
    EXPECT_THROW(split("     12.3 :  408-vold : ", " :"), std::out_of_range);
    const auto end = []() noexcept { split("100| ", "|"); };
    EXPECT_EXIT(end(), testing::KilledBySignal(SIGABRT), "basic_string::substr");
}

TEST_F(UtilsTest, DigitsOnly) {
    for (const char* text : {"", "0", "0123456789"}) EXPECT_TRUE(isallnum(text)) << text;
    for (const char* text : {"12a", "-1", " 1", "1\n", "1.5", "\xb2"}) {
        EXPECT_FALSE(isallnum(text)) << text;
    }
}

TEST_F(UtilsTest, ReadsLines) {
    write("/data/lines", std::string("a\n\nb\r\n\0c\nlast", 13));
    EXPECT_EQ(getFileLines("/data/lines"), (Fields{"a", "", "b\r", std::string("\0c", 2), "last"}));
    write("/data/lines", "one\n");
    close(0);  // whose number is as good as any
    EXPECT_EQ(getFileLines("/data/lines"), Fields{"one"});
    EXPECT_TRUE(takeLog().empty());
    EXPECT_EQ(getFileLines("/data/none"), Fields{});
    EXPECT_EQ(takeLog(), Fields{"E parseBootProf open /data/none failed"});

    EXPECT_EQ(getFirstLine("/data/none"), "0");
    EXPECT_EQ(takeLog(), Fields{"E access /data/none failed"});
    write("/data/first", "");
    EXPECT_EQ(getFirstLine("/data/first"), "");
    write("/data/first", "11d\r\nrest");
    EXPECT_EQ(getFirstLine("/data/first"), "11d\r");
    // a folder opens but can't be read, and counts as one empty line
    EXPECT_EQ(getFirstLine("/data"), "");
    mknod("/data/socket", S_IFSOCK | 0600, 0);  // is there, but can't be opened
    EXPECT_EQ(getFirstLine("/data/socket"), "0");
    EXPECT_EQ(takeLog().back(), "E read open /data/socket failed");
    EXPECT_EQ(getFileLines("/data"), Fields{});
}

TEST_F(UtilsTest, FailedReadIsNeitherPreparedForNorTriedAgain) {
    write("/data/sparse", "");
    ASSERT_EQ(truncate("/data/sparse", int64_t{8} << 40), 0);
    for (const int error : {EIO, EINTR}) {
        gReadError = error;
        EXPECT_EQ(getFileLines("/data/sparse"), Fields{});
    }
}

TEST_F(UtilsTest, SizesCopiesAndRemoves) {
    EXPECT_EQ(getFileSize("/data/none"), -1);
    EXPECT_TRUE(takeLog().empty());
    write("/data/a", std::string(5120, 'a'));
    EXPECT_EQ(getFileSize("/data/a"), 5120);
    EXPECT_EQ(takeLog(), Fields{"D file /data/a lenth = 5120 ."});

    write("/data/b", std::string(9000, 'b'));
    EXPECT_TRUE(backupFile("/data/a", "/data/b"));
    EXPECT_EQ(read("/data/b"), read("/data/a"));
    write("/data/empty", "");
    EXPECT_TRUE(backupFile("/data/empty", "/data/b"));
    EXPECT_EQ(read("/data/b"), "");
    EXPECT_FALSE(backupFile("/data/none", "/data/b"));
    EXPECT_FALSE(backupFile("/data/a", "/none/b"));
    EXPECT_EQ(takeLog(), (Fields{"E ifile /data/none failed.", "E ofile /none/b failed."}));

    EXPECT_TRUE(removeFile("/data/a"));
    EXPECT_FALSE(removeFile("/data/a"));
    EXPECT_EQ(takeLog(), Fields{"D file /data/a remove failed."});
}

TEST_F(UtilsTest, FindsNamesAndLeavesTheFolderOpen) {
    write("/data/logs/android_main_log.zs", "");
    const int before = openFiles();
    EXPECT_FALSE(isFileExitInPath("/data/logs", "Main"));
    EXPECT_EQ(openFiles(), before);
    // in a process of its own, because what a match leaves open is a leak
    const auto match = [] {
        const int unmatched = openFiles();
        const bool found =
                isFileExitInPath("/data/logs", "main_log") && isFileExitInPath("/data/logs", "");
        _exit(found && openFiles() == unmatched + 2 ? 42 : 1);
    };
    EXPECT_EXIT(match(), testing::ExitedWithCode(42), "");
    EXPECT_FALSE(isFileExitInPath("/data/none", "x"));
    EXPECT_EQ(takeLog(), Fields{"E open dir failed."});
}

TEST_F(UtilsTest, StampsLinesWithTheLocalTime) {
    lab::vtime::setNow(5 * 86400 * 1000 + 18999);
    EXPECT_EQ(getLocalTime(), "Fri Nov 20 11:00:18 2026");
    lab::vtime::setNow(17 * 86400 * 1000);
    EXPECT_EQ(getLocalTime(), "Wed Dec  2 11:00:00 2026");
    EXPECT_TRUE(saveInfoWithTime("/data/journal", "one"));
    EXPECT_TRUE(saveInfoWithTime("/data/journal", "two"));
    EXPECT_EQ(read("/data/journal"),
              "Wed Dec  2 11:00:00 2026  one\nWed Dec  2 11:00:00 2026  two\n");
    EXPECT_FALSE(saveInfoWithTime("/none/journal", "one"));
    EXPECT_EQ(takeLog(), Fields{"E Save file path /none/journal fail, open fail."});
}

class FreeSpaceTest : public UtilsTest {
protected:
    void onFreeSpace(const char*, struct statfs& info) override {
        info.f_bavail = mBytes;
        info.f_bsize = 1;
    }
    unsigned long mBytes = 0;
};

TEST_F(FreeSpaceTest, NeedsTwentyTwoBytes) {
    mBytes = 21;
    EXPECT_FALSE(getAvailableSize("/velafs"));
    mBytes = 22;
    EXPECT_TRUE(getAvailableSize("/velafs"));
    mBytes = 1UL << 33;
    EXPECT_TRUE(getAvailableSize("/velafs"));
    EXPECT_FALSE(getAvailableSize("/none"));
    EXPECT_EQ(takeLog(), (Fields{"D BOOTVIGIL velafs AvailableSize 10 MB \n",
                                 "D BOOTVIGIL velafs AvailableSize 11 MB \n",
                                 "D BOOTVIGIL velafs AvailableSize 4294967296 MB \n"}));
}

}  // namespace
