// SPDX-License-Identifier: Apache-2.0
// What a boot did, event by event, and its clock, in memory that outlives the boot's process
// however it ended.

#include "lab/base/Trace.h"

#include <string.h>

#include <new>

namespace lab {

namespace {

// Before each event's text.
struct Head {
    int64_t ms;
    uint32_t size;
    TraceEvent::Kind kind;
};

}  // namespace

void Trace::clear() {
    new (mMemory.begin()) Memory;  // a boot's process may have died while it held the lock
}

void Trace::add(int64_t ms, TraceEvent::Kind kind, std::string_view text) {
    const std::lock_guard<std::mutex> lock(mMemory->lock);
    const size_t needed = sizeof(Head) + text.size();
    if (mMemory->full || mMemory->size + needed > sizeof(mMemory->data)) {
        mMemory->full = true;
        return;
    }
    Head head;
    memset(&head, 0, sizeof(head));  // the padding is compared too
    head.ms = ms;
    head.size = static_cast<uint32_t>(text.size());
    head.kind = kind;
    char* to = mMemory->data + mMemory->size;
    memcpy(to, &head, sizeof(head));
    memcpy(to + sizeof(head), text.data(), text.size());
    mMemory->size += needed;
}

std::vector<TraceEvent> Trace::events() const {
    std::vector<TraceEvent> events;
    for (size_t at = 0; at < mMemory->size;) {
        Head head;
        memcpy(&head, mMemory->data + at, sizeof(head));
        at += sizeof(head);
        events.push_back({head.ms, head.kind, std::string(mMemory->data + at, head.size)});
        at += head.size;
    }
    return events;
}

}  // namespace lab
