// SPDX-License-Identifier: Apache-2.0
// Takes a boot through the model message by message.

#include "lab/rules/BootWalk.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "lab/base/Text.h"

namespace lab {

namespace {

bool isDelivery(const TraceEvent& event) {
    return event.kind == TraceEvent::LOG && startsWith(event.text.substr(2), kHandle);
}

}  // namespace

void BootWalk::walk() {
    const auto& events = mSeen.events;
    std::vector<size_t> starts = {0};  // of what comes before the messages, and of each message
    for (size_t i = 0; i < events.size(); ++i) {
        if (isDelivery(events[i])) starts.push_back(i);
    }
    starts.push_back(events.size());
    checkWakes();
    for (size_t i = 0; i + 1 < starts.size(); ++i) {
        openMessage(starts[i], starts[i + 1]);
        try {
            i > 0 ? deliver(starts[i]) : beforeMessages();
        } catch (const MustEnd& end) {
            mMustEnd = end;
        }
        closeMessage();
        mLastEnd = mNow;
        applyChanges(INT64_MAX);
    }
}

// A wake-up delivers one message, at that very time.
void BootWalk::checkWakes() {
    const TraceEvent* wake = nullptr;
    for (const TraceEvent& event : mSeen.events) {
        const bool wakes = event.kind == TraceEvent::WAKE;
        if (!wakes && !isDelivery(event)) continue;
        mNow = event.ms;
        if (wake != nullptr && (wakes || wake->ms != mNow)) broken("woke up without a message");
        wake = wakes ? &event : nullptr;
    }
    const bool cut = mSeen.end == End::KILLED || mSeen.end == End::CUT_OFF;
    if (wake != nullptr && !cut) broken("woke up without a message");
}

void BootWalk::deliver(size_t index) {
    const TraceEvent& event = mSeen.events[index];
    const std::string code = event.text.substr(2 + strlen(kHandle));
    const int what = static_cast<int>(strtol(code.c_str(), nullptr, 16));
    if (mMustEnd) broken("goes on where it must have ended");
    const auto next = mPending.begin();
    const bool isNext = next != mPending.end() && next->second == what;
    // The looper's list keeps a message that it lacks the memory to take out.
    const bool again = mNoMemory && what == mLastWhat && event.ms == mLastEnd;
    if (isNext && (next->first <= event.ms || !again)) {
        checkTime(index, what, next->first);
        mPending.erase(next);
    } else if (!again) {
        broken(format("delivers message %x, which is not the next one", what));
        const auto other = std::find_if(mPending.begin(), mPending.end(),
                                        [&](const auto& one) { return one.second == what; });
        if (other != mPending.end()) mPending.erase(other);
    }
    mLastWhat = what;
    take(kHandle);
    handle(what);
}

// When due, or else as soon as the message before is done.
void BootWalk::checkTime(size_t index, int what, int64_t due) {
    const int64_t ms = mSeen.events[index].ms;
    if (ms != std::max(due, mLastEnd)) {
        broken(format("message %x was due at %.3f s", what, static_cast<double>(due) / 1000.0));
    }
    while (index > 0 && mSeen.events[index - 1].kind == TraceEvent::FAULT) --index;
    const bool woken = index > 0 && mSeen.events[index - 1].kind == TraceEvent::WAKE;
    if (!woken && ms != mLastEnd) broken("a message comes without a wake-up");
}

}  // namespace lab
