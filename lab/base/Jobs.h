// SPDX-License-Identifier: Apache-2.0
// A pool of processes that share a queue of numbered tasks.

#pragma once

#include <stdint.h>

#include <atomic>
#include <functional>
#include <string>

#include "lab/base/Shared.h"

namespace lab {

// Processes and not threads: a task may fork boots, mount file systems and wait for its children.
class Jobs {
public:
    struct Outcome {
        uint64_t notRun = 0;  // tasks that failed, or that no process was left for
        int failed = 0;       // processes

        bool allRun() const {
            return notRun == 0 && failed == 0;
        }
    };

    // Tasks from 0 to below `tasks`; `name` is what an error message calls one. Throws
    // std::runtime_error without memory.
    Jobs(uint64_t tasks, int processes, std::function<std::string(uint64_t)> name);

    // Calls `work` in each process, and returns when all have ended. What a process has to set up,
    // `work` does before it calls forEachTask(). An exception that leaves `work`, or a signal, ends
    // this process and no other. Prints a line to standard error for each task or process that
    // failed. To be called once.
    Outcome run(const std::function<void()>& work);

    // In a process of the pool: takes the next task as long as there is one. A task that throws has
    // failed, and the process goes on.
    void forEachTask(const std::function<void(uint64_t)>& task);

    // No further task is started; those under way are finished.
    void stop() {
        mQueue->stopped = true;
    }

private:
    struct Queue {
        std::atomic<uint64_t> next;
        std::atomic<uint64_t> failed;
        std::atomic<bool> stopped;
    };
    // The number of the task that a process is at, counted from 1; 0: none.
    using Place = std::atomic<uint64_t>;

    [[noreturn]] void becomeProcess(Place* place, const std::function<void()>& work);
    void printError(uint64_t place, std::string error) const;

    const uint64_t mTasks;
    const std::function<std::string(uint64_t)> mName;
    Shared<Queue> mQueue;
    Shared<Place> mPlaces;
    Place* mPlace = nullptr;  // of this process of the pool
};

}  // namespace lab
