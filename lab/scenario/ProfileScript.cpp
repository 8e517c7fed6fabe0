// SPDX-License-Identifier: Apache-2.0
// The boot profile that the simulated kernel shows: a real one, cut, looped, stretched or extended.

#include "lab/scenario/ProfileScript.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"

namespace lab {

namespace {

constexpr const char* kRuler = "----------------------------------------";

// "%10llu.%06lu", in milliseconds: the kernel's own layout.
std::string formatTime(int64_t us) {
    char text[32];
    snprintf(text, sizeof(text), "%10" PRId64 ".%06" PRId64, us / 1000, us % 1000 * 1000);
    return text;
}

}  // namespace

std::string ProfileScript::Event::by() const {
    const size_t first = rest.find_first_not_of(": ");
    const size_t last = rest.find_last_not_of(": ", rest.size() - name.size() - 1);
    return rest.substr(first, last + 1 - first);
}

const ProfileScript& ProfileScript::healthy() {
    static const std::string path = dataPath("profiles/healthy.txt");
    static const ProfileScript profile = parse(readFile(path), path);
    return profile;
}

ProfileScript ProfileScript::parse(const std::string& text, const std::string& source) {
    ProfileScript script;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t by = line.find(" :");
        const size_t name = by == std::string::npos ? by : line.find(": ", by + 2);
        if (name == std::string::npos) {
            if (script.mEvents.empty()) script.mHeader.push_back(line);
            continue;  // after the events come only "OFF" and the ruler
        }
        const double ms = strtod(line.c_str(), nullptr);
        script.mEvents.push_back(
                {static_cast<int64_t>(ms * 1000), line.substr(by + 1), line.substr(name + 2)});
    }
    if (script.mEvents.empty()) throw std::runtime_error(source + ": no event line");
    return script;
}

void ProfileScript::stretch(double factor) {
    for (Event& event : mEvents) event.us = static_cast<int64_t>(event.us * factor);
}

bool ProfileScript::cutAfter(const std::string& event) {
    const auto found = std::find_if(mEvents.begin(), mEvents.end(),
                                    [&](const Event& other) { return other.name == event; });
    if (found == mEvents.end()) return false;
    mEvents.erase(found + 1, mEvents.end());
    return true;
}

bool ProfileScript::loop(const std::string& from, int times, int64_t everyMs) {
    const auto found = std::find_if(mEvents.begin(), mEvents.end(),
                                    [&](const Event& other) { return other.name == from; });
    if (found == mEvents.end()) return false;
    const std::vector<Event> round(found, mEvents.end());
    for (int i = 1; i <= times; ++i) {
        for (Event event : round) {
            event.us += i * everyMs * 1000;
            mEvents.push_back(event);
        }
    }
    sort();  // a round may begin before the one before it ends
    return true;
}

ProfileScript::Event ProfileScript::eventOf(int64_t ms, const std::string& by,
                                            const std::string& name) {
    const int pid = atoi(by.c_str());
    const size_t dash = by.find('-');
    const std::string process = dash == std::string::npos ? by : by.substr(dash + 1);
    char rest[64];
    snprintf(rest, sizeof(rest), ":%5d-%-16s: ", pid, process.c_str());
    return {ms * 1000, rest + name, name};
}

void ProfileScript::add(int64_t ms, const std::string& by, const std::string& name) {
    const Event added = eventOf(ms, by, name);
    mEvents.insert(std::upper_bound(mEvents.begin(), mEvents.end(), added,
                                    [](const Event& a, const Event& b) { return a.us < b.us; }),
                   added);
}

void ProfileScript::add(std::vector<Event> events) {
    std::move(events.begin(), events.end(), std::back_inserter(mEvents));
    sort();
}

void ProfileScript::setEvents(std::vector<Event> events) {
    mHeader.clear();
    mEvents = std::move(events);
    sort();
}

void ProfileScript::sort() {
    std::stable_sort(mEvents.begin(), mEvents.end(),
                     [](const Event& a, const Event& b) { return a.us < b.us; });
}

std::string ProfileScript::at(int64_t now) const {
    std::string text;
    const size_t events = eventsBy(now);
    text.reserve(events * 80 + 1024);
    for (const std::string& line : mHeader) text.append(line).append("\n");
    for (size_t i = 0; i < events; ++i) {
        text.append(formatTime(mEvents[i].us)).append(" ").append(mEvents[i].rest).append("\n");
    }
    return text.append(formatTime(now * 1000)).append(" : OFF\n").append(kRuler).append("\n");
}

size_t ProfileScript::eventsBy(int64_t now) const {
    const auto later = std::find_if(mEvents.begin(), mEvents.end(),
                                    [&](const Event& event) { return event.us > now * 1000; });
    return static_cast<size_t>(later - mEvents.begin());
}

}  // namespace lab
