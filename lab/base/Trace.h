// SPDX-License-Identifier: Apache-2.0
// What a boot did, event by event, and its clock, in memory that outlives the boot's process
// however it ended.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "lab/base/Shared.h"

namespace lab {

struct TraceEvent {
    enum Kind : char {
        LOG = 'L',        // "D text": a line of the daemon's log after its priority's letter
        WAKE = 'W',       // the daemon's worker woke up because its timer was due
        OPERATION = 'O',  // "17 write /velafs/SDD/bfflag.txt", "18 chmod 0777 /velafs/SDD", with
                          // " failed" after one that failed
        PROPERTY = 'P',   // "sys.bootvigil.version 3.365": a property that the daemon set
        REQUEST = 'R',    // "id|type|pid|files": what it asked of the log-capture service
        MONITOR = 'M',    // it told the kernel-side boot monitor to leave the boot to it
        SIGNAL = 'S',     // "3 567": signal and pid that the daemon meant
        CHANGE = 'C',     // "set NAME VALUE", "write PATH", "remove PATH", "fill PATH",
                          // "read-only PATH", "clock SECONDS", "signal NUMBER": by the world
        FAULT = 'F',      // "popen", "open /proc/cmdline": an injected failure of this call;
                          // "space": no room any more;
                          // "power-cut": the power went in the middle of the daemon's work
        IDLE = 'I',       // "files=0 folders=2 zombies=0": what the sleeping daemon holds open more
                          // than at its first sleep, when that has changed
    };
    int64_t ms;  // device time
    Kind kind;
    std::string text;
};

class Trace {
public:
    void clear();

    // By any thread of a process that was forked after the trace was made. What no longer fits is
    // dropped, and full() says so.
    void add(int64_t ms, TraceEvent::Kind kind, std::string_view text);

    // Device time in ms, for the boot's process to set; 0 after clear().
    std::atomic<int64_t>& clock() {
        return mMemory->clock;
    }

    bool full() const {
        return mMemory->full;
    }
    std::vector<TraceEvent> events() const;

    // The events as they lie in memory: equal for runs that did the same.
    std::string_view bytes() const {
        return {mMemory->data, mMemory->size};
    }

private:
    struct Memory {
        Memory() {}       // touches no page of the data
        std::mutex lock;  // between the threads of one process
        std::atomic<int64_t> clock{0};
        size_t size = 0;
        bool full = false;
        char data[8 << 20];
    };
    Shared<Memory> mMemory;
};

}  // namespace lab
