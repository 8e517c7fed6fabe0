// SPDX-License-Identifier: Apache-2.0
// device/prepare in a device root, under each shell that there is.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/device/DeviceRoot.h"
#include "lab/run/ReferencePlatform.h"

namespace {

namespace fs = std::filesystem;
using namespace lab;

struct Shell {
    const char* name;
    const char* host;                    // the workstation's program
    std::vector<const char*> arguments;  // before the script's
};

const Shell kShells[] = {{"Klibc", "/usr/lib/klibc/bin/sh", {}},
                         {"Busybox", "/bin/busybox", {"sh"}},
                         {"Mksh", "/usr/lib/klibc/bin/mksh", {}}};

std::string linesFrom(int first, int last) {
    std::string text;
    for (int i = first; i <= last; ++i) {
        text += "Sun Nov 15 11:08:12 2026  USER capture log " + std::to_string(i) + "\n";
    }
    return text;
}

class PrepareTest : public testing::TestWithParam<Shell> {
protected:
    PrepareTest() : mRoot(mFolder.path() + "/root"), mPlatform(mRoot, nullptr) {
        fs::copy_file(GetParam().host, mRoot.at("/shell"));
        const InsideRoot inside(mRoot);
        makeFolders(kPropertyDir);
        newBoot("rw,sync");
    }

    static void newBoot(const std::string& options) {
        writeFile("/proc/mounts", "proc /proc proc rw 0 0\nx /velafs ext4 " + options + " 0 0\n");
        writeFile(kKernelMessages, "");
    }

    // Gives the lines of the kernel log.
    std::vector<std::string> prepare() {
        const pid_t child = fork();
        if (child == 0) {
            setpgid(0, 0);
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDERR_FILENO);
            mRoot.enter();
            clearenv();
            setenv("PATH", "/system/bin", 1);
            std::vector<const char*> arguments = {"sh"};
            for (const char* argument : GetParam().arguments) arguments[0] = argument;
            arguments.push_back("/system/bin/bootvigil-prepare");
            arguments.push_back(nullptr);
            execv("/shell", const_cast<char**>(arguments.data()));
            _exit(127);
        }
        waitpid(child, &mStatus, 0);
        const InsideRoot inside(mRoot);
        const std::string mark = "<4>bootvigil-prepare: ";
        std::vector<std::string> lines = linesOf(readFile(kKernelMessages));
        for (std::string& line : lines) {
            EXPECT_EQ(line.substr(0, mark.size()), mark);
            line.erase(0, mark.size());
        }
        writeFile(kKernelMessages, "");
        return lines;
    }

    // Everything below /velafs, with contents.
    TextMap partition() const {
        const InsideRoot inside(mRoot);
        TextMap files;
        for (const auto& entry : fs::recursive_directory_iterator(kPartition)) {
            const std::string path = entry.path();
            files[path] = entry.is_regular_file() ? readFile(path) : "folder";
        }
        return files;
    }

    void put(const TextMap& files) const {
        const InsideRoot inside(mRoot);
        for (const auto& [path, content] : files) writeFile(path, content);
    }

    const TemporaryFolder mFolder{TemporaryFolder::inMemory()};
    DeviceRoot mRoot;
    ReferencePlatform mPlatform;
    int mStatus = 0;
};

using Lines = std::vector<std::string>;

TEST_P(PrepareTest, LeavesAHealthyPartitionAsItIs) {
    put({{kRecord, "TIME:x;    ERR_NUM:0x502564;\n"},
         {kHistory, "11\x14"},
         {kFlag, "5"},
         {kJournal, linesFrom(1, 200)},
         {archivePath("sys_kernel_log"), "zstd"},
         {kOldCaptures + "/7-0xffffff06.zip", "old"},
         {kSwitch, ""}});
    const TextMap before = partition();
    EXPECT_EQ(prepare(), Lines{});
    EXPECT_EQ(mStatus, 0);
    EXPECT_EQ(partition(), before);
}

TEST_P(PrepareTest, RemovesWhatBlocks) {
    const std::pair<const char*, const char*> histories[] = {{"", "it is empty"},
                                                             {"\n", "it is empty"},
                                                             {"1", "no history is like that"},
                                                             {"01d", "no history "},
                                                             {"172d", "no history is"},
                                                             {"61d", "no history is like that"},
                                                             {"x1d", "no history "},
                                                             {"1xd", "no history is"},
                                                             {"110", ""},
                                                             {"59x", ""},
                                                             {"22\x16", ""}};
    for (const auto& [history, why] : histories) {
        SCOPED_TRACE(history);
        put({{kHistory, history}});
        const Lines said = prepare();
        EXPECT_EQ(partition().count(kHistory), *why == '\0' ? 1U : 0U);
        ASSERT_EQ(said.size(), *why == '\0' ? 0U : 1U);
        if (*why == '\0') continue;
        const std::string start = "removed " + kHistory + ": " + why;
        EXPECT_EQ(said[0].substr(0, start.size()), start);
    }
    put({{kFlag, ""}, {kRecord, "kept"}});
    EXPECT_EQ(prepare(), Lines{"removed " + kFlag + ": it names no phase"});
    EXPECT_EQ(partition().count(kFlag), 0U);
    EXPECT_EQ(partition()[kRecord], "kept");
}

TEST_P(PrepareTest, MendsFoldersAndModes) {
    {
        const InsideRoot inside(mRoot);
        fs::remove(kLogs);
        chmod(kOwnFolder.c_str(), 0777);
    }
    EXPECT_EQ(prepare(), (Lines{"gave " + kOwnFolder + " mode 1777, not 777", "made " + kLogs}));
    struct stat info = {};
    const InsideRoot inside(mRoot);
    EXPECT_EQ(stat(kLogs.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U);
    EXPECT_EQ(stat(kOwnFolder.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 01777U);
}

TEST_P(PrepareTest, MovesCapturesAndKeepsTheLast) {
    put({{kOwnFolder + "/0xffffff06.zip", "new"},
         {kOwnFolder + "/a b 0xffffff06", "newer"},
         {kOldCaptures + "/9-0xffffff06", "old"},
         {kOldCaptures + "/10-0xffffff06", "later"},
         {kOldCaptures + "/readme", "not ours"}});
    EXPECT_EQ(prepare().size(), 3U);
    TextMap files = partition();
    EXPECT_EQ(files[kOldCaptures + "/11-0xffffff06.zip"], "new");
    EXPECT_EQ(files[kOldCaptures + "/12-a b 0xffffff06"], "newer");
    EXPECT_EQ(files[kOldCaptures + "/10-0xffffff06"], "later");
    EXPECT_EQ(files[kOldCaptures + "/readme"], "not ours");
    EXPECT_EQ(files.count(kOldCaptures + "/9-0xffffff06"), 0U);
    EXPECT_EQ(files.count(kOwnFolder + "/0xffffff06.zip"), 0U);
    EXPECT_EQ(prepare(), Lines{});
}

TEST_P(PrepareTest, CutsWhatGrows) {
    put({{kJournal, linesFrom(1, 201)}, {kPmic, linesFrom(1, 900) + "cut o"}});
    EXPECT_EQ(prepare(), (Lines{"cut " + kJournal + " to its last 200 lines",
                                "cut " + kPmic + " to its last 200 lines"}));
    TextMap files = partition();
    EXPECT_EQ(files[kJournal], linesFrom(2, 201));
    EXPECT_EQ(files[kPmic], linesFrom(702, 900) + "cut o");
    EXPECT_EQ(prepare(), Lines{});
}

TEST_P(PrepareTest, MakesRoomOrSaysThatThereIsNone) {
    mRoot.mountPartition(1 << 20);
    const std::string large(300 << 10, 'x');
    put({{kOldCaptures + "/1-0xffffff06", large},
         {kOldCaptures + "/2-0xffffff06", large},
         {kOldCaptures + "/3-0xffffff06", "x"}});
    prepare();
    EXPECT_EQ(partition().count(kOldCaptures + "/1-0xffffff06"), 0U);
    EXPECT_EQ(partition().count(kOldCaptures + "/2-0xffffff06"), 1U);
    put({{kPartition + "/others", large + large}});
    EXPECT_EQ(prepare().back().substr(0, 5), "only ");
    EXPECT_EQ(partition().count(kPartition + "/others"), 1U);
    EXPECT_EQ(partition().count(kOldCaptures + "/3-0xffffff06"), 0U);
    umount2(mRoot.at(kPartition).c_str(), MNT_DETACH);
}

TEST_P(PrepareTest, HandsABadPartitionToThePlatform) {
    put({{kHistory, ""}});
    const std::string property = mRoot.at(kPropertyDir + "sys.bootvigil.partition");
    prepare();
    EXPECT_FALSE(fileExists(property));
    put({{kHistory, ""}, {"/proc/mounts", "x /velafs ext4 sync,ro,noatime 0 0\n"}});
    EXPECT_EQ(prepare(), Lines{"/velafs is read-only"});
    EXPECT_EQ(readFile(property), "read-only");
    put({{"/proc/mounts", "x /velafs/boot ext4 rw 0 0\n"}});
    EXPECT_EQ(prepare(), Lines{"/velafs is not mounted"});
    EXPECT_EQ(readFile(property), "missing");
    EXPECT_EQ(WEXITSTATUS(mStatus), 1);
    EXPECT_EQ(partition().count(kHistory), 1U);
}

// The power goes at each command that it runs: another run then comes to the same end.
TEST_P(PrepareTest, CutAtEveryCommandLosesNothing) {
    const TextMap before = {{kJournal, linesFrom(1, 300)},
                            {kPmic, linesFrom(1, 300)},
                            {kHistory, ""},
                            {kFlag, "x"},
                            {kRecord, "record"},
                            {kOwnFolder + "/0xffffff06.zip", "new"},
                            {kOldCaptures + "/5-0xffffff06", "old"}};
    put(before);
    prepare();
    const TextMap whole = partition();
    for (const char* tool : {"stat", "wc", "tail", "sync", "mv", "mkdir", "chmod", "rm"}) {
        const InsideRoot inside(mRoot);
        fs::remove(kToolFolder + tool);
        const std::string busybox = "/system/bin/busybox ";
        writeFile(kToolFolder + tool, "#!/system/bin/sh\nread -r left </left\n[ $left != 0 ] || " +
                                              busybox +
                                              "kill -9 0\necho $((left - 1)) >/left\nexec " +
                                              busybox + tool + " \"$@\"\n");
        chmod((kToolFolder + tool).c_str(), 0755);
    }
    int commands = 0;
    do {
        SCOPED_TRACE(commands);
        fs::remove_all(mRoot.at(kOldCaptures));
        put(before);
        put({{"/left", std::to_string(commands++) + "\n"}});
        prepare();
        TextMap cut = partition();
        EXPECT_TRUE(cut[kJournal] == before.at(kJournal) || cut[kJournal] == whole.at(kJournal));
        EXPECT_EQ(cut[kRecord], "record");
        put({{"/left", "1000\n"}});
        const int status = mStatus;
        prepare();
        EXPECT_EQ(partition(), whole);
        mStatus = status;
    } while (WIFSIGNALED(mStatus));
    // Busybox's own shell runs most of them without a start.
    EXPECT_GE(commands, 4);
}

INSTANTIATE_TEST_SUITE_P(Shells, PrepareTest, testing::ValuesIn(kShells),
                         [](const auto& shell) { return shell.param.name; });

}  // namespace
