// SPDX-License-Identifier: Apache-2.0
// The boot profile that the simulated kernel shows: a real one, cut, looped, stretched or extended.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace lab {

class ProfileScript {
public:
    // A real boot that went well: lab/data/profiles/healthy.txt.
    static const ProfileScript& healthy();

    struct Event {
        int64_t us;        // since the kernel's start
        std::string rest;  // ":  408-vold            : vold:fbeEnable:START"
        std::string name;

        // Who logged it: "408-vold".
        std::string by() const;

        bool operator==(const Event& other) const {
            return us == other.us && rest == other.rest;
        }
    };

    // A profile with no event.
    ProfileScript() = default;

    // Takes header and events from a profile as a kernel prints it; throws std::runtime_error
    // naming `source` when it has no event line.
    static ProfileScript parse(const std::string& text, const std::string& source);

    // Every event comes `factor` times later.
    void stretch(double factor);

    // No event comes after the first one of this name; false when there is none.
    bool cutAfter(const std::string& event);

    // After its last event the device starts again `times` times, `everyMs` apart, at the first
    // event called `from`; false when there is none.
    bool loop(const std::string& from, int times, int64_t everyMs);

    // An event as the kernel prints it; `by` is "pid-process".
    static Event eventOf(int64_t ms, const std::string& by, const std::string& name);

    // Adds events at their places in time, each after those of the same time.
    void add(int64_t ms, const std::string& by, const std::string& name);
    void add(std::vector<Event> events);

    // These events instead, in any order, without a header.
    void setEvents(std::vector<Event> events);

    // What the kernel shows at device time `now` (ms): header, the events so far, "OFF", ruler.
    std::string at(int64_t now) const;

    // How many events have come by then.
    size_t eventsBy(int64_t now) const;

    // In order of time.
    const std::vector<Event>& events() const {
        return mEvents;
    }

    bool operator==(const ProfileScript& other) const {
        return mHeader == other.mHeader && mEvents == other.mEvents;
    }

private:
    void sort();

    std::vector<std::string> mHeader;
    std::vector<Event> mEvents;
};

}  // namespace lab
