// SPDX-License-Identifier: Apache-2.0
// What a scenario's file says: the one table of its fields.

#include "lab/scenario/ScenarioFields.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>

#include "lab/base/Text.h"
#include "lab/scenario/Checks.h"

namespace lab {

using namespace fields;

namespace {

using Kind = Change::Kind;
using Texts = std::vector<std::string>;

constexpr int64_t kMaxTimes = 1000;  // of an event or a loop
constexpr int64_t kMaxCalls = 1000000;
constexpr int64_t kMaxJump = 10000000000;  // seconds that a clock is set on or back: 317 years
constexpr int64_t kMaxSignal = 64;
constexpr int64_t kLeastPartition = 4096;
constexpr int64_t kMostSpace = 1 << 30;   // bytes that a partition can be given
constexpr int64_t kDefaultEnd = 7200000;  // ms
constexpr const char* kClockFormat = "%Y-%m-%d %H:%M:%S";
const std::string kAbsent = "absent";

// ---- Types that only one field has.

// 0 where it is absent.
const Type<int64_t> kPartition = {
        whole(kLeastPartition, kMostSpace).name + ", or 'absent'",
        [](const Node& node) {
            const bool absent = node.Scalar() == kAbsent;
            return absent ? std::optional<int64_t>(0)
                          : whole(kLeastPartition, kMostSpace).read(node);
        },
        [](int64_t bytes) { return bytes == 0 ? Node(kAbsent) : Node(bytes); },
        {},
        {kAbsent},
};

// A text that a rule holds for.
Type<std::string> textThat(const std::string& name, bool (*holds)(const std::string&)) {
    return {name,
            [=](const Node& node) {
                const auto text = kText.read(node);
                return text && holds(*text) ? text : std::nullopt;
            },
            [](const std::string& text) { return Node(text); }};
}

const Type<std::string> kPath = textThat("an absolute path", [](const std::string& path) {
    return startsWith(path, "/") && path.find('\0') == std::string::npos;
});

// Each is a file of the device root.
const Type<std::string> kProperty = textThat("a property's name", [](const std::string& name) {
    return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
});

// Empty where it is absent.
const Type<std::string> kProfilePath = {
        kPath.name + ", or 'absent'",
        [](const Node& node) {
            return node.Scalar() == kAbsent ? std::optional<std::string>("") : kPath.read(node);
        },
        [](const std::string& path) { return Node(path.empty() ? kAbsent : path); },
};

const Type<time_t> kClock = {
        "a text",
        [](const Node& node) -> std::optional<time_t> {
            tm time = {};
            const char* end = strptime(node.Scalar().c_str(), kClockFormat, &time);
            if (end == nullptr || *end != '\0') return std::nullopt;
            const tm said = time;
            const time_t clock = timegm(&time);  // makes March of the 30th of February
            const bool there = time.tm_mday == said.tm_mday && time.tm_sec == said.tm_sec;
            return there ? std::optional(clock) : std::nullopt;
        },
        [](time_t clock) {
            char text[32] = {};
            tm time = {};
            strftime(text, sizeof(text), kClockFormat, gmtime_r(&clock, &time));
            return Node(text);
        },
};

// Lines in one text, without the blanks in front of each.
const Type<Texts> kBlock = {
        "a text of lines",
        [](const Node& node) -> std::optional<Texts> {
            if (!node.IsScalar()) return std::nullopt;
            Texts lines;
            for (const std::string& line : linesOf(node.Scalar())) {
                const size_t first = line.find_first_not_of(' ');
                if (first != std::string::npos) lines.push_back(line.substr(first));
            }
            return lines;
        },
        [](const Texts& lines) {
            std::string text;
            for (const std::string& line : lines) text += line + "\n";
            return Node(text);
        },
};

const Type<std::optional<std::string>> kContent = {
        "a text or null",
        [](const Node& node) {
            return node.IsNull() ? std::optional(std::optional<std::string>()) : kText.read(node);
        },
        [](const std::optional<std::string>& content) { return kText.nodeOf(content); },
};

[[noreturn]] void expected(const std::string& what) {
    throw std::invalid_argument("expected " + what);
}

Fields<Fault> faultFields() {
    Fields<Fault> fault("a failing call", YAML::EmitterStyle::Flow);
    fault.add("call", &Fault::call, choice<Fault::Call>(kCallNames), "a call");
    fault.add("nth", &Fault::nth, whole(1, kMaxCalls),
              "which one; of the calls in this boot, from 1");
    fault.add("times", &Fault::times, whole(1, kMaxCalls), "a count; of calls that fail");
    return fault;
}

// ---- Changes, and the end of a boot, which is one.

// What happens at one time: one change as written, any number as read.
struct Moment {
    std::optional<int64_t> at;
    TextMap set;
    TextMap write;
    std::optional<std::string> remove;
    std::optional<std::string> fill;
    std::optional<std::string> readOnly;
    std::optional<int64_t> clock;
    std::optional<int64_t> signal;
};

Fields<Moment> momentFields() {
    Fields<Moment> change("a change", YAML::EmitterStyle::Flow);
    change.add("at", &Moment::at, kSeconds, "a time; required");
    change.add("set", &Moment::set, mapOf(kProperty, kText), "names and values; of properties");
    change.add("write", &Moment::write, mapOf(kPath, kText), "device paths and contents; of files");
    change.add("remove", &Moment::remove, kPath, "a device path");
    change.add("fill", &Moment::fill, kPath,
               "a device path; takes the room of a `partition` to the last byte");
    change.add("read_only", &Moment::readOnly, kPath,
               "a device path; `/velafs`, where it is a `partition`");
    change.add("clock", &Moment::clock, whole(-kMaxJump, kMaxJump),
               "seconds; that the time of day jumps");
    change.add("signal", &Moment::signal, whole(1, kMaxSignal), "a signal's number; to the daemon");
    change.atLast([](Moment& moment, const Node& node) {
        if (!moment.at) expected("'at', the time of the change in seconds");
        if (node.size() == 1) expected("what happens then: 'set', 'write', 'remove' and so on");
    });
    return change;
}

void addChanges(Boot& boot, const std::vector<Moment>& moments) {
    for (const Moment& moment : moments) {
        const auto add = [&](Kind kind, const std::string& name, const std::string& value,
                             int64_t number) {
            boot.changes.push_back({*moment.at, kind, name, value, number});
        };
        for (const auto& [name, value] : moment.set) add(Kind::SET, name, value, 0);
        for (const auto& [path, content] : moment.write) add(Kind::WRITE, path, content, 0);
        if (moment.remove) add(Kind::REMOVE, *moment.remove, "", 0);
        if (moment.fill) add(Kind::FILL, *moment.fill, "", 0);
        if (moment.readOnly) add(Kind::READ_ONLY, *moment.readOnly, "", 0);
        if (moment.clock) add(Kind::CLOCK, "", "", *moment.clock);
        if (moment.signal) add(Kind::SIGNAL, "", "", *moment.signal);
    }
}

bool ends(const Change& change) {
    return change.kind >= Kind::POWER_CYCLE;
}

std::vector<Moment> momentsOf(const Boot& boot) {
    std::vector<Moment> moments;
    for (const auto& [at, kind, name, value, number] : boot.changes) {
        if (kind >= Kind::POWER_CYCLE) continue;
        Moment& moment = moments.emplace_back();
        moment.at = at;
        if (kind == Kind::SET) moment.set = {{name, value}};
        if (kind == Kind::WRITE) moment.write = {{name, value}};
        if (kind == Kind::REMOVE) moment.remove = name;
        if (kind == Kind::FILL) moment.fill = name;
        if (kind == Kind::READ_ONLY) moment.readOnly = name;
        if (kind == Kind::CLOCK) moment.clock = number;
        if (kind == Kind::SIGNAL) moment.signal = number;
    }
    return moments;
}

// When the boot ends; nothing where it does as by default.
Part<Boot, std::optional<int64_t>> end(Kind kind) {
    return {[=](const Boot& boot) {
                std::optional<int64_t> at;
                for (const Change& change : boot.changes) {
                    if (change.kind == kind) at = change.at;
                }
                const auto& all = boot.changes;
                const bool only = std::count_if(all.begin(), all.end(), ends) == 1;
                return only && kind == Kind::END && at == kDefaultEnd ? std::nullopt : at;
            },
            [=](Boot& boot, std::optional<int64_t> at) {
                boot.changes.push_back({*at, kind, "", "", 0});
            }};
}

// In order of time, with an end; what else happens then comes before it.
void arrangeChanges(Boot& boot, const Node&) {
    std::vector<Change>& all = boot.changes;
    if (std::none_of(all.begin(), all.end(), ends)) {
        all.push_back({kDefaultEnd, Kind::END, "", "", 0});
    }
    std::stable_sort(all.begin(), all.end(), [](const Change& a, const Change& b) {
        return std::pair(a.at, ends(a)) < std::pair(b.at, ends(b));
    });
}

// What is only read: it stands for other things.
template <typename Value>
Part<Boot, Value> shorthand(void (*set)(Boot&, Value)) {
    return {[](const Boot&) { return Value(); }, set};
}

// What a framework that boots sets, all at once.
void complete(Boot& boot, std::optional<int64_t> at) {
    for (const char* name :
         {"sys.boot_completed", "service.bootanim.exit", "sys.vela.BOOT_COMPLETED"}) {
        boot.changes.push_back({*at, Kind::SET, name, "1", 0});
    }
}

// ---- The profile.

// An event, or several that follow each other.
struct Event {
    int64_t at = 0;
    std::string by;
    std::string name;
    int64_t every = 0;
    int64_t times = 1;
    bool numbered = false;
};

Fields<Event> eventFields() {
    Fields<Event> event("an event", YAML::EmitterStyle::Flow);
    event.add("at", &Event::at, kSeconds, "a time");
    event.add("by", &Event::by, kText, "pid-process; like 1113-system_server");
    event.add("name", &Event::name, kText, "an event name");
    event.add("every", &Event::every, kSeconds, "a period; from one of these events to the next");
    event.add("times", &Event::times, whole(1, kMaxTimes), "a count; of these events");
    event.add("numbered", &Event::numbered, kFlag,
              "whether it counts; the number follows the name");
    return event;
}

void addEvents(Boot& boot, const std::vector<Event>& events) {
    std::vector<ProfileScript::Event> added;
    for (const Event& event : events) {
        for (int64_t i = 0; i < event.times; ++i) {
            // A number makes each of several events a new one.
            const std::string suffix = event.numbered ? " " + std::to_string(i + 1) : "";
            added.push_back(ProfileScript::eventOf(event.at + i * event.every, event.by,
                                                   event.name + suffix));
        }
    }
    boot.profile.add(std::move(added));
}

bool hasOwnEvents(const Boot& boot) {
    return !boot.profileText && !(boot.profile == ProfileScript::healthy());
}

std::vector<Event> eventsOf(const Boot& boot) {
    std::vector<Event> events;
    if (!hasOwnEvents(boot)) return events;
    for (const ProfileScript::Event& event : boot.profile.events()) {
        events.push_back({event.us / 1000, event.by(), event.name});
    }
    return events;
}

[[noreturn]] void expectedEvent(const std::string& what, const std::string& said,
                                const Boot& boot) {
    Texts names;
    for (const ProfileScript::Event& event : boot.profile.events()) names.push_back(event.name);
    expected(what + didYouMean(said, names));
}

void empty(Boot& boot, bool isEmpty) {
    if (isEmpty) boot.profile = ProfileScript();
}

void stretch(Boot& boot, std::optional<double> factor) {
    if (!(*factor > 0 && *factor <= 1000)) expected("a factor above 0, up to 1000");
    boot.profile.stretch(*factor);
}

void cut(Boot& boot, std::optional<std::string> last) {
    if (!boot.profile.cutAfter(*last)) expectedEvent("an event of the profile", *last, boot);
}

struct Loop {
    std::string from;
    int64_t times = 1;
    std::optional<int64_t> every;
};

Fields<Loop> loopFields() {
    Fields<Loop> loop("a loop");
    loop.add("from", &Loop::from, kText, "an event; the first that comes again, required");
    loop.add("times", &Loop::times, whole(1, kMaxTimes), "a count; of repetitions");
    loop.add("every", &Loop::every, kSeconds, "a period; above 0, required");
    return loop;
}

void repeat(Boot& boot, std::optional<Loop> loop) {
    if (loop->every.value_or(0) == 0) expected("'every', a period above 0");
    if (!boot.profile.loop(loop->from, static_cast<int>(loop->times), *loop->every)) {
        expectedEvent("'from', an event of the profile that is not cut off", loop->from, boot);
    }
}

Fields<Boot> profileFields() {
    Fields<Boot> profile("a profile");
    profile.add("path", &Boot::profilePath, kProfilePath,
                "a path; `/proc/velabootprof` is the other");
    profile.add("text", &Boot::profileText, kText, "a profile; exactly this, all the time");
    profile.add("empty", Part<Boot, bool>{hasOwnEvents, empty}, kFlag,
                "whether it is empty; otherwise it is a real healthy one");
    profile.add("stretch", shorthand(stretch), kNumber,
                "a factor above 0, up to 1000; every event comes later by it");
    profile.add("until", shorthand(cut), kText, "an event; the last that comes");
    profile.add("loop", shorthand(repeat), loopFields().type(),
                "a loop; what came is repeated after the last event");
    profile.add("events", Part<Boot, std::vector<Event>>{eventsOf, addEvents},
                listOf(eventFields().type()), "a list of events; on top of what the rest leaves");
    return profile;
}

// ---- Boots.

Fields<Boot> expectationFields() {
    Fields<Boot> expect("expectations");
    expect.add("timeline", &Boot::timeline, kBlock,
               "everything the daemon does; in order, see below");
    expect.add("log", &Boot::log, listOf(kText),
               "log lines; in this order, others may come between");
    expect.add("not_logged", &Boot::notLogged, listOf(kText),
               "log texts; parts of lines that must not be there");
    expect.add("errors", &Boot::errors, kText, "the text on standard error; whole");
    return expect;
}

Fields<Boot> bootFields() {
    const Part<Boot, std::optional<int64_t>> partition =
            {[](const Boot& boot) {
                 return boot.partitionAbsent ? std::optional<int64_t>(0) : std::nullopt;
             },
             [](Boot& boot, std::optional<int64_t> bytes) {
                 if (bytes != 0) expected("'absent'");
                 boot.partitionAbsent = true;
             }};
    const Type<int64_t> absent = {"'absent'", kPartition.read, kPartition.write, {}, {kAbsent}};
    Fields<Boot> boot("a boot");
    boot.add("about", &Boot::about, kText, "a title");
    boot.add("clock", &Boot::clock, kClock,
             "a time of day like 2026-11-15 11:05:18; at its start, by default a minute after the "
             "end of the boot before");
    boot.add("properties", &Boot::properties, mapOf(kProperty, kText),
             "properties; for this boot, over the device's");
    boot.add("files", &Boot::files, mapOf(kPath, kText), "files; written before the boot starts");
    boot.add("profile", profileFields(), "what the kernel shows");
    boot.add("completes", shorthand(complete), kSeconds,
             "when the boot completes; sets all three properties of a framework that is up");
    boot.add("changes", Part<Boot, std::vector<Moment>>{momentsOf, addChanges},
             listOf(momentFields().type()), "a list of changes; what else happens, and when");
    boot.add("kel_answers_after", &Boot::kelAnswersAfter, kSeconds,
             "a delay; without it the log-capture service never answers");
    boot.add("power_cycle", end(Kind::POWER_CYCLE), kSeconds,
             "when the boot ends; by a power cycle");
    boot.add("until", end(Kind::END), kSeconds,
             "when the boot ends; the run stops, at 7200 by default");
    boot.add("partition", partition, absent,
             "'absent'; in this boot only, what it holds is back in the next");
    boot.add("space", &Boot::space, whole(0, kMostSpace),
             "bytes; that the daemon may still write to `/velafs`");
    boot.add("fail", &Boot::faults, listOf(faultFields().type()), "a list of failing calls");
    boot.add("power_cut_after", &Boot::cutAfter, whole(1),
             "the number of an operation; by the daemon on a file of `/velafs` or `/data`");
    boot.add("unsynced", &Boot::unsynced, choice<Unsynced>(kUnsyncedNames),
             "what becomes of files; written in the last 30 s before a power cut, see below");
    boot.add("damage_seed", &Boot::damageSeed, whole(0),
             "a seed; decides which file suffers what if `mixed`, and where a `cut` falls");
    boot.add("expect", expectationFields(), "what must come out");
    boot.atLast(arrangeChanges);
    return boot;
}

// ---- The device, and all of it.

const Type<int64_t> kLogBytes = whole(0, kMostLogs);

struct Log {
    std::optional<int64_t> bytes;
    bool endless = false;
    bool nuls = false;
};

Type<Log> logType() {
    Fields<Log> log("a log buffer", YAML::EmitterStyle::Flow);
    log.add("bytes", &Log::bytes, kLogBytes, "bytes");
    log.add("endless", &Log::endless, kFlag,
            "whether it never ends; its command repeats the content, which needs `space` or "
            "`partition`");
    log.add("nuls", &Log::nuls, kFlag, "whether it holds NULs; instead of text");
    Type<Log> type = log.type();
    type.name += ", or its bytes";
    type.read = [map = type.read](const Node& node) {
        return node.IsScalar() ? std::optional(Log{kLogBytes.of(node, "bytes")}) : map(node);
    };
    return type;
}

Fields<Scenario> logsFields() {
    Fields<Scenario> logs("log buffers");
    for (const auto& log : Scenario().logSizes) {
        const auto& [name, usual] = log;
        const Part<Scenario, Log> part = {[name = name, usual = usual](const Scenario& s) {
                                              const int64_t bytes = s.logSizes.at(name);
                                              return Log{bytes == usual ? std::nullopt
                                                                        : std::optional(bytes),
                                                         s.endlessLogs.count(name) != 0,
                                                         s.nulLogs.count(name) != 0};
                                          },
                                          [name = name, usual = usual](Scenario& s,
                                                                       const Log& log) {
                                              s.logSizes[name] = log.bytes.value_or(usual);
                                              if (log.endless) s.endlessLogs.insert(name);
                                              if (log.nuls) s.nulLogs.insert(name);
                                          }};
        logs.add(name, part, logType(), std::to_string(usual) + " bytes by default");
    }
    return logs;
}

Fields<Scenario> deviceFields() {
    const Part<Scenario, std::optional<int64_t>> partition =
            {[](const Scenario& s) { return s.partitionAbsent ? 0 : s.partitionSize; },
             [](Scenario& s, std::optional<int64_t> bytes) {
                 s.partitionAbsent = bytes == 0;
                 if (bytes != 0) s.partitionSize = bytes;
             }};
    Fields<Scenario> device("a device");
    device.add("platform", &Scenario::platform, choice<PlatformKind>(kPlatformNames),
               "a platform; what runs before the daemon and answers it, see below");
    device.add("clock", &Scenario::clock, kClock,
               "a time of day like 2026-11-15 11:05:18; at the first boot, UTC");
    device.add("cmdline", &Scenario::commandLine, kText, "a command line; the kernel's");
    device.add("properties", &Scenario::properties, mapOf(kProperty, kText),
               "properties; set at every boot, `ro.boot.mode` is `normal` by default");
    device.add("files", &Scenario::files, mapOf(kPath, kText),
               "files; there before the first boot");
    device.add("logs", logsFields(), "what the log buffers hold");
    device.add("partition", partition, kPartition,
               "'absent', or bytes; of a real file system at `/velafs`");
    device.add("log_folder", &Scenario::logFolder, kFlag,
               "whether it is there; `/velafs/boot_vigil/log`");
    device.add("reboot_after", &Scenario::rebootAfter, kSeconds,
               "the bare platform's delay; from a request property to its reboot");
    return device;
}

}  // namespace

const Fields<Scenario>& scenarioFields() {
    static const Fields<Scenario> fields = [] {
        Fields<Scenario> scenario("a scenario");
        scenario.add("about", &Scenario::about, kText, "a line about it");
        scenario.add("device", deviceFields(), "a device");
        scenario.add("boots", &Scenario::boots, listOf(bootFields().type()),
                     "a list of boots; at least one");
        scenario.add("files_after", &Scenario::expectedFiles, mapOf(kPath, kContent),
                     "files; after the last boot, null: must not be there");
        scenario.atLast(checkScenario);
        return scenario;
    }();
    return fields;
}

}  // namespace lab
