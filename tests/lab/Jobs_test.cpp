// SPDX-License-Identifier: Apache-2.0
// Tests of the pool of processes: what fails is named and counted, and costs nothing else.

#include "lab/base/Jobs.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <stdexcept>

#include "lab/base/Text.h"

namespace {

using namespace lab;

// Task 3 throws, task 7 kills its process, and task `last` stops the pool.
Jobs::Outcome runTwentyTasks(int processes, uint64_t last, Shared<int>& ran) {
    Jobs jobs(20, processes, [](uint64_t task) { return "task " + std::to_string(task); });
    return jobs.run([&] {
        jobs.forEachTask([&](uint64_t task) {
            if (task == 3) throw std::runtime_error("no\nroom\n");
            if (task == 7) raise(SIGKILL);
            if (task == last) jobs.stop();
            ++ran[task];
        });
    });
}

TEST(JobsTest, NoTaskIsLost) {
    const struct {
        int processes;
        uint64_t last;
        long ran;
        uint64_t notRun;
        int failed;
    } cases[] = {{3, 20, 18, 2, 1}, {1, 20, 6, 14, 1}, {1, 5, 5, 1, 0}};
    for (const auto& each : cases) {
        Shared<int> ran(20);
        testing::internal::CaptureStderr();
        const Jobs::Outcome outcome = runTwentyTasks(each.processes, each.last, ran);
        std::vector<std::string> errors = linesOf(testing::internal::GetCapturedStderr());
        std::sort(errors.begin(), errors.end());  // several processes come in any order
        EXPECT_EQ(std::count(ran.begin(), ran.end(), 1), each.ran);
        EXPECT_EQ(outcome.notRun, each.notRun);
        EXPECT_EQ(outcome.failed, each.failed);
        std::vector<std::string> expected = {"task 3: cannot be run: no room"};
        if (each.failed > 0) expected.push_back("task 7: cannot be run: signal 9 ended the job");
        EXPECT_EQ(errors, expected);
    }
}

}  // namespace
