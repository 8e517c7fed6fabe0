// SPDX-License-Identifier: Apache-2.0
// The boots of a report as trace events, for the Perfetto UI.

#include "report/show/TraceEvents.h"

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

#include "report/judge/Notices.h"
#include "report/read/Times.h"
#include "report/show/Json.h"

namespace report {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kGap = 10;                  // seconds between two boots whose clock doesn't tell
constexpr double kLongestGap = 366 * 86400;  // more is a clock that was set
constexpr const char* kLanes[] = {"hang",   "milestones", "poll",     "timeout", "verdict",
                                  "record", "capture",    "recovery", "request", "success",
                                  "start",  "exit",       "other"};

// Lanes are numbered from 1.
int laneOf(const std::string& kind) {
    return static_cast<int>(std::find(std::begin(kLanes), std::end(kLanes), kind) - kLanes) + 1;
}

Json nameEvent(const char* what, int process, int lane, const std::string& name) {
    return {{"ph", "M"},
            {"name", what},
            {"pid", process},
            {"tid", lane},
            {"args", {{"name", name}}}};
}

// Seconds since 1970 of "2026-11-15T11:05:18.250".
std::optional<double> clockOf(const std::string& iso) {
    constexpr size_t kFraction = 19;
    const auto seconds = secondsOfIso(iso);
    if (!seconds) return std::nullopt;
    return static_cast<double>(*seconds) + atof(("0" + iso.substr(kFraction)).c_str());
}

// One boot as a process of the trace.
class BootTrace {
public:
    BootTrace(const Boot& boot, int process, double offset, Json& events)
        : mBoot(boot), mProcess(process), mOffset(offset), mEvents(events) {}

    // Returns the boot's length.
    double add() {
        mEvents.push_back(nameEvent("process_name", mProcess, 0, mBoot.title));
        for (const char* lane : kLanes) {
            mEvents.push_back(nameEvent("thread_name", mProcess, laneOf(lane), lane));
        }
        for (size_t i = 0; i < mBoot.milestones.size(); ++i) {
            const auto& [t, name] = mBoot.milestones[i];
            const bool last = i + 1 == mBoot.milestones.size();
            addSlice("milestones", name, t, last ? t : mBoot.milestones[i + 1].t);
        }
        for (size_t i = 0; i < mBoot.events.size(); ++i) addEvent(i);
        return mEnd;
    }

private:
    int64_t us(double seconds) const {
        constexpr double kMost = 9e12;  // seconds, which is all that fits
        return std::llround(std::clamp(seconds, -kMost, kMost) * 1e6);
    }

    void addSlice(const char* lane, const std::string& name, double from, double to) {
        mEvents.push_back({{"ph", "X"},
                           {"name", name},
                           {"pid", mProcess},
                           {"tid", laneOf(lane)},
                           {"ts", us(mOffset + from)},
                           {"dur", std::max<int64_t>(0, us(mOffset + to) - us(mOffset + from))}});
        mEnd = std::max({mEnd, from, to});
    }

    void addEvent(size_t i) {
        const Event& event = mBoot.events[i];
        if (event.error && isStall(*event.error)) {
            const Story story = storyOf({&mBoot, i});
            if (story.since != nullptr) {
                addSlice("hang", "nothing after " + story.since->rest, story.since->t, event.t);
            }
        }
        if (event.count > 1) {
            const std::string polls = std::to_string(event.count) + " polls, ";
            return addSlice("poll", polls + event.text, event.t, event.until);
        }
        mEvents.push_back({{"ph", "i"},
                           {"s", "t"},
                           {"name", event.text},
                           {"cat", event.kind},
                           {"pid", mProcess},
                           {"tid", laneOf(event.kind)},
                           {"ts", us(mOffset + event.t)},
                           {"args", {{"clock", event.clock}}}});
        mEnd = std::max(mEnd, event.t);
    }

    const Boot& mBoot;
    const int mProcess;
    const double mOffset;
    Json& mEvents;
    double mEnd = 0;
};

}  // namespace

std::string toTraceEvents(const Report& report) {
    Json events = Json::array();
    double end = 0;                // of the boot before
    std::optional<double> origin;  // the clock at 0
    int process = 0;
    for (const Boot& boot : report.boots) {
        const auto clock = clockOf(boot.beginIso);
        double offset = process == 0 ? 0 : end + kGap;
        const double told = clock && origin ? *clock - *origin : -1;
        if (told >= end && told <= end + kLongestGap) offset = told;
        if (clock) origin = *clock - offset;
        end = offset + BootTrace(boot, ++process, offset, events).add();
    }
    return dump({{"displayTimeUnit", "ms"}, {"traceEvents", events}}) + "\n";
}

}  // namespace report
