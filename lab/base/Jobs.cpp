// SPDX-License-Identifier: Apache-2.0
// A pool of processes that share a queue of numbered tasks.

#include "lab/base/Jobs.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "common/text/Printable.h"

namespace lab {

Jobs::Jobs(uint64_t tasks, int processes, std::function<std::string(uint64_t)> name)
    : mTasks(tasks), mName(std::move(name)), mPlaces(static_cast<size_t>(processes)) {}

Jobs::Outcome Jobs::run(const std::function<void()>& work) {
    Outcome outcome;
    std::vector<std::pair<pid_t, const Place*>> children;
    for (Place& place : mPlaces) {
        fflush(nullptr);  // else the child has it too
        const pid_t child = fork();
        if (child == 0) becomeProcess(&place, work);
        if (child > 0) {
            children.emplace_back(child, &place);
        } else {
            printError(0, strerror(errno));
            ++outcome.failed;
        }
    }
    for (const auto& [child, place] : children) {
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (status == 0) continue;
        ++outcome.failed;
        if (*place != 0) ++outcome.notRun;
        if (WIFSIGNALED(status)) {
            printError(*place, "signal " + std::to_string(WTERMSIG(status)) + " ended the job");
        }
    }
    outcome.notRun += mQueue->failed;
    if (!mQueue->stopped) outcome.notRun += mTasks - std::min(mTasks, mQueue->next.load());
    return outcome;
}

void Jobs::becomeProcess(Place* place, const std::function<void()>& work) {
    int status = 0;
    try {
        mPlace = place;
        work();
    } catch (const std::exception& error) {
        printError(*place, error.what());
        status = 1;
    }
    fflush(nullptr);
    _exit(status);
}

void Jobs::forEachTask(const std::function<void(uint64_t)>& task) {
    while (!mQueue->stopped) {
        const uint64_t number = mQueue->next++;
        if (number >= mTasks) break;
        *mPlace = number + 1;
        try {
            task(number);
        } catch (const std::exception& error) {
            printError(number + 1, error.what());
            ++mQueue->failed;
        }
        *mPlace = 0;
    }
}

// On one line, whatever the error has.
void Jobs::printError(uint64_t place, std::string error) const {
    while (!error.empty() && error.back() == '\n') error.pop_back();
    std::replace(error.begin(), error.end(), '\n', ' ');
    const std::string what = place == 0 ? "a job" : mName(place - 1);
    fprintf(stderr, "%s: cannot be run: %s\n", what.c_str(), text::printable(error).c_str());
}

}  // namespace lab
