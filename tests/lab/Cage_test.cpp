// SPDX-License-Identifier: Apache-2.0
// Tests of the cage: the program on hostile scenarios, and what is left of it when it is killed.

#include "lab/device/Cage.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/Sanitizers.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/base/Text.h"

namespace {

namespace fs = std::filesystem;
using namespace lab;

// Whether a process has this word as an argument.
bool runs(const std::string& word) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
        try {
            if (contains(readFile(entry.path() / "cmdline"), word)) return true;
        } catch (const std::runtime_error&) {  // no process, or gone
        }
    }
    return false;
}

bool waitUntil(const std::function<bool()>& holds) {
    for (int tries = 0; tries < 600; ++tries) {
        if (holds()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

class CageTest : public testing::Test {
protected:
    CageTest() {
        writeFile(mCanary, "alive");
        makeFolders(mFolder + "/tmp");
        setenv("TMPDIR", (mFolder + "/tmp").c_str(), 1);
    }
    ~CageTest() override {
        unsetenv("TMPDIR");
    }

    // The command that runs a scenario, in which "CANARY" is a file outside, reached by "..", and
    // "MARK" a number that no other process has as an argument.
    std::string command(std::string yaml) {
        for (const auto& [word, text] :
             {std::pair<std::string, std::string>{"CANARY", "/../../../../../../.." + mCanary},
              {"MARK", mMark}}) {
            for (size_t at = 0; (at = yaml.find(word)) != std::string::npos;) {
                yaml.replace(at, word.size(), text);
            }
        }
        writeFile(mFolder + "/s.yaml", yaml);
        return LAB_PROGRAM " run --quiet --cage-size 64 " + mFolder + "/s.yaml";
    }

    // What a command prints; `status` is its exit status.
    std::string output(const std::string& command, int& status) {
        status = system((command + " >" + mFolder + "/printed 2>&1").c_str());
        status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return readFile(mFolder + "/printed");
    }

    const TemporaryFolder mTemporary{testing::TempDir()};
    const std::string mFolder = mTemporary.path();
    const std::string mCanary = mFolder + "/canary";
    const std::string mMark = std::to_string(100000000 + getpid());
};

constexpr const char* kProgram = R"(
device:
  files:
    /system/bin/logcat: |
      #!/system/bin/sh
      b=/system/bin/busybox
      : >/dev/null
      $b setsid $b sleep MARK >&2 &
      echo dead > CANARY
      $b mount -t tmpfs none /data || $b chroot . || $b unshare -r $b true || echo held
      $b ls / >&2
boots:
- {profile: {until: AMS:systemReady}, until: 600,
   expect: {timeline: ""}}
)";

constexpr const char* kFiller = R"(
device: {files: {/system/bin/logcat: "#!/system/bin/sh\nexec /system/bin/busybox yes >/data/x"}}
boots: [{profile: {until: AMS:systemReady}, until: 600}]
)";

TEST_F(CageTest, HostileScenariosReachNothing) {
    const std::string asUser = "unshare --user --map-user=1234 --map-group=1234 ";
    const std::string noSpaces = "echo 0 >/proc/sys/user/max_user_namespaces && ";
    const std::string good = readFile(dataPath("scenarios/partition-full.yaml"));
    const std::string written = "{CANARY: dead, " + mCanary + ": dead}";
    const std::string everywhere =
            "device: {files: " + written +
            "}\nboots: [{completes: 9, until: 60, files: " + written +
            ", changes: [{at: 1, write: " + written +
            "}, {at: 2, remove: CANARY}, {at: 3, write: {/system/bin/busybox: dead, " +
            "/system/bin/sh: dead}}]}]\nfiles_after: {CANARY: null, /bin/sh: dead}\n";
    const auto change = [](const std::string& what) {
        return "boots: [{completes: 9, until: 60, changes: [{at: 1, " + what + "}]}]\n";
    };
    struct Case {
        std::string prefix;
        std::string yaml;
        int status;
        std::string message;
    };
    std::vector<Case> cases = {
            {"", good, 0, ""},
            {asUser, good, 0, ""},
            {"", everywhere, 0, ""},
            {asUser, everywhere, 0, ""},
            {"", kProgram, 1, "timeline differs"},
            {asUser, kProgram, 1, "timeline differs"},
            {"", change("set: {CANARY: dead}"), 2, "expected a name (a property's name)"},
            {"", change("fill: CANARY"), 2, "expected a path below /velafs"},
            {"", kFiller, kLabFailed, "boot 1: the boot filled the 64 MiB of files"},
            {asUser, "device: {partition: 200000000}\n" + change("signal: 9"), kLabFailed,
             "a partition of 200000000 bytes is larger than"},
            {"prlimit --nofile=6 ", good, kLabFailed, "a limit of 6 is too low for open files"},
            {"unshare --user --map-root-user sh -c '" + noSpaces + "exec \"$@\"' -- ", good,
             kLabFailed, "cannot make a cage: clone: No space left on device; allow user name"},
    };
    // Sanitizers need more.
    if (!kSanitized) {
        cases.push_back({"prlimit --data=100000000 ",
                         "device: {logs: {main: 268000000}}\n" + change("signal: 9"), kLabFailed,
                         "out of memory"});
    }
    const std::string busybox = readFile("/bin/busybox");
    for (const auto& each : cases) {
        SCOPED_TRACE(each.prefix + each.yaml);
        int status = 0;
        const std::string said = output(each.prefix + command(each.yaml), status);
        EXPECT_EQ(status, each.status) << said;
        EXPECT_TRUE(contains(said, each.message)) << said;
        EXPECT_EQ(contains(said, "bootvigil-lab: the lab failed: "), status == kLabFailed) << said;
        EXPECT_EQ(readFile(mCanary), "alive");
        EXPECT_TRUE(readFile("/bin/busybox") == busybox);
        EXPECT_FALSE(runs(mMark));
        // Only what does not hold is kept.
        EXPECT_EQ(fs::is_empty(mFolder + "/tmp"), status != 1 || said.empty());
        fs::remove_all(mFolder + "/tmp");
        makeFolders(mFolder + "/tmp", 0777);
    }
}

TEST_F(CageTest, WhatAProgramTriesFails) {
    int status = 0;
    output(command(kProgram) + " --out " + mFolder + "/out", status);
    const std::string log = mFolder + "/out/boot-1.stderr";
    EXPECT_EQ(status, 1);
    for (const char* text : {"Directory nonexistent", "mount: permission denied",
                             "chroot: can't change root", "unshare: ", "\nvelafs\n"}) {
        EXPECT_TRUE(contains(readFile(log), text)) << text << readFile(log);
    }
}

TEST_F(CageTest, NothingIsLeftOfAKilledLab) {
    const std::string mounts = readFile("/proc/mounts");
    const std::string line = "exec " + command(R"(
device: {files: {/system/bin/logcat: "#!/system/bin/sh\nexec /system/bin/busybox sleep MARK"}}
boots: [{profile: {until: AMS:systemReady}}]
)");
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        const pid_t lab = fork();
        if (lab == 0) {
            execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            _exit(127);
        }
        EXPECT_TRUE(waitUntil([&] { return runs(mMark); }));
        kill(lab, number);
        int status = 0;
        waitpid(lab, &status, 0);
        EXPECT_EQ(WTERMSIG(status), number);
        EXPECT_TRUE(waitUntil([&] { return !runs(mMark); }));
        EXPECT_EQ(readFile("/proc/mounts"), mounts);
        EXPECT_TRUE(fs::is_empty(mFolder + "/tmp"));
    }
}

}  // namespace
