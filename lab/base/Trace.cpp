// SPDX-License-Identifier: Apache-2.0
// What a boot did, event by event, and its clock, in memory that outlives the boot's process
// however it ended.

#include "lab/base/Trace.h"

#include <string.h>
#include <sys/mman.h>

#include <mutex>
#include <stdexcept>

namespace lab {

namespace {

constexpr size_t kCapacity = size_t{8} << 20;  // pages are taken when they are first written

// Before each event's text.
struct Head {
    int64_t ms;
    uint32_t size;
    TraceEvent::Kind kind;
};

}  // namespace

struct Trace::Memory {
    std::mutex lock;  // between the threads of one process
    std::atomic<int64_t> clock;
    size_t size;
    bool full;
    char data[kCapacity];
};

Trace::Trace() {
    void* memory = mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("cannot map memory for a boot's trace");
    mMemory = static_cast<Memory*>(memory);
    clear();
}

Trace::~Trace() {
    munmap(mMemory, sizeof(Memory));
}

void Trace::clear() {
    // A boot's process may have died while it held the lock.
    new (&mMemory->lock) std::mutex;
    mMemory->clock = 0;
    mMemory->size = 0;
    mMemory->full = false;
}

void Trace::add(int64_t ms, TraceEvent::Kind kind, std::string_view text) {
    const std::lock_guard<std::mutex> lock(mMemory->lock);
    const size_t needed = sizeof(Head) + text.size();
    if (mMemory->full || mMemory->size + needed > kCapacity) {
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

std::atomic<int64_t>& Trace::clock() {
    return mMemory->clock;
}

bool Trace::full() const {
    return mMemory->full;
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

std::string_view Trace::bytes() const {
    return {mMemory->data, mMemory->size};
}

}  // namespace lab
