// SPDX-License-Identifier: Apache-2.0
// Follows the log service through liblog's reader.

#define LOG_TAG "bootvigil_feed"

#include <string.h>

#include <memory>

#include <log/log.h>
#include <log/log_read.h>
#include <log/logprint.h>

#include "device/feed/LogLine.h"

void followLogService(const TakeLogLine& take) {
    const std::unique_ptr<logger_list, decltype(&android_logger_list_free)>
            list(android_logger_list_open(LOG_ID_EVENTS, ANDROID_LOG_RDONLY, 0, 0),
                 android_logger_list_free);
    int result = 0;
    for (log_msg read; list && (result = android_logger_list_read(list.get(), &read)) > 0;) {
        // Without the device's list of names the tags are numbers, "[3040]": the feed knows those.
        AndroidLogEntry entry = {};
        char text[LOGGER_ENTRY_MAX_LEN];
        if (android_log_processBinaryLogBuffer(&read.entry, &entry, nullptr, text, sizeof(text)) !=
            0) {
            continue;
        }
        take({static_cast<uid_t>(entry.uid), entry.pid, std::string(entry.tag, entry.tagLen),
              std::string(entry.message, entry.messageLen)});
    }
    ALOGE("the events buffer can't be read: %s", list ? strerror(-result) : "no reader");
}
