// SPDX-License-Identifier: Apache-2.0
// How much a report holds, whatever a partition does.

#include "report/read/Bounds.h"

#include <algorithm>

#include "common/text/Printable.h"
#include "report/read/Files.h"

namespace report {

namespace {

std::string leftOut(size_t count, const char* what) {
    return "… " + text::grouped(count) + " " + what + " left out";
}

void boundEvents(std::vector<Event>& events, size_t most) {
    const size_t dropped = dropMiddle(events, most);
    if (dropped != 0) {
        const auto next = events.begin() + static_cast<ptrdiff_t>(most / 2);
        Event gap;
        gap.t = next->t;
        gap.clock = next->clock;
        gap.kind = "other";
        gap.text = leftOut(dropped, "events");
        events.insert(next, gap);
    }
    for (Event& event : events) event.text = text::shortened(event.text, kMostText);
}

}  // namespace

void boundBoots(std::vector<Boot>& boots) {
    const size_t dropped = dropMiddle(boots, kMostBoots);
    size_t events = 0;
    for (const Boot& boot : boots) events += boot.events.size();
    for (Boot& boot : boots) {
        boot.title = text::shortened(boot.title, kMostText);
        boundEvents(boot.events, events <= kMostEvents ? events : kMostEvents / boots.size());
    }
    if (dropped == 0) return;
    Boot gap;
    gap.title = leftOut(dropped, "boots");
    boots.insert(boots.begin() + kMostBoots / 2, gap);
}

}  // namespace report
