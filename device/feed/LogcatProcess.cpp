// SPDX-License-Identifier: Apache-2.0
// Follows the log service through a logcat of its own, where liblog has no reader.

#define LOG_TAG "bootvigil_feed"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <log/log.h>

#include "device/feed/LogLine.h"

void followLogService(const TakeLogLine& take) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ALOGE("pipe: %s", strerror(errno));
        return;
    }
    const pid_t logcat = fork();
    if (logcat == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execlp("logcat", "logcat", "-b", "events", "-v", "threadtime,uid", nullptr);
        _exit(127);
    }
    close(ends[1]);
    if (logcat > 0) followText(ends[0], take);
    close(ends[0]);
    int status = 0;
    if (logcat < 0 || TEMP_FAILURE_RETRY(waitpid(logcat, &status, 0)) != logcat) {
        ALOGE("logcat: %s", strerror(errno));
    } else {
        ALOGE("logcat ended with %s %d", WIFEXITED(status) ? "status" : "signal",
              WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
    }
}
