// SPDX-License-Identifier: Apache-2.0
// A scenario: a device, the boots it goes through, and what must come out; read from YAML.

#include "lab/scenario/Scenario.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "lab/base/Files.h"
#include "report/read/Printable.h"

namespace lab {

namespace {

constexpr int64_t kMaxSeconds = 1000000;
constexpr int64_t kMaxTimes = 1000;  // of an event or a loop
constexpr double kMaxStretch = 1000;

// The device's own log buffers, bytes in each by default.
const std::map<std::string, int64_t> kLogSizes = {{"main", 40000},  {"system", 12000},
                                                  {"events", 8000}, {"radio", 4000},
                                                  {"crash", 0},     {"kernel", 16000}};

const TextMap kProperties = {{"ro.boot.mode", "normal"}};

constexpr const char* kCommandLine =
        "console=ttyMSM0 androidboot.mode=normal FlashID=90014a483942 mem_index=3 poffsts=0x09 "
        "quiet\n";

}  // namespace

const std::map<std::string, Fault::Call> kCalls = {{"open", Fault::Call::OPEN},
                                                   {"write", Fault::Call::WRITE},
                                                   {"close", Fault::Call::CLOSE},
                                                   {"rename", Fault::Call::RENAME},
                                                   {"remove", Fault::Call::REMOVE},
                                                   {"mkdir", Fault::Call::MKDIR},
                                                   {"chmod", Fault::Call::CHMOD},
                                                   {"popen", Fault::Call::POPEN},
                                                   {"malloc", Fault::Call::MALLOC}};

const std::map<std::string, Unsynced> kUnsynced = {{"kept", Unsynced::KEPT},
                                                   {"lost", Unsynced::LOST},
                                                   {"emptied", Unsynced::EMPTIED},
                                                   {"cut", Unsynced::CUT},
                                                   {"mixed", Unsynced::MIXED}};

namespace {

// Walks a YAML document; every error names file, line and column.
class Reader {
public:
    explicit Reader(std::string path) : mPath(std::move(path)) {}

    [[noreturn]] void fail(const YAML::Mark& mark, const std::string& expected) const {
        std::ostringstream text;
        text << mPath << ":" << mark.line + 1 << ":" << mark.column + 1 << ": "
             << report::printable(expected);
        throw std::runtime_error(text.str());
    }

    [[noreturn]] void fail(const YAML::Node& node, const std::string& expected) const {
        fail(node.Mark(), expected);
    }

    std::string text(const YAML::Node& node, const std::string& what) const {
        if (!node.IsScalar()) fail(node, "expected " + what + " (a text)");
        return node.Scalar();
    }

    bool flag(const YAML::Node& node, const std::string& what) const {
        bool value = false;
        if (!node.IsScalar() || !YAML::convert<bool>::decode(node, value)) {
            fail(node, "expected " + what + " (true or false)");
        }
        return value;
    }

    int64_t whole(const YAML::Node& node, const std::string& what, int64_t least,
                  int64_t most = INT64_MAX) const {
        int64_t value = 0;
        if (!node.IsScalar() || !YAML::convert<int64_t>::decode(node, value) || value < least ||
            value > most) {
            const std::string upTo = most < INT64_MAX ? " to " + std::to_string(most) : "";
            fail(node, "expected " + what + " (a whole number from " + std::to_string(least) +
                               upTo + ")");
        }
        return value;
    }

    template <typename Value>
    Value oneOf(const YAML::Node& node, const std::string& what,
                const std::map<std::string, Value>& known) const {
        const auto found = known.find(text(node, what));
        if (found == known.end()) fail(node, "expected " + what + namesOf(known));
        return found->second;
    }

    // Seconds with up to three places, as milliseconds.
    int64_t seconds(const YAML::Node& node, const std::string& what) const {
        double value = 0;
        if (!node.IsScalar() || !YAML::convert<double>::decode(node, value) || !(value >= 0) ||
            value > kMaxSeconds) {
            fail(node, "expected " + what + " (seconds from 0)");
        }
        return std::lround(value * 1000);
    }

    TextMap texts(const YAML::Node& node, const std::string& what) const {
        if (!node.IsMap()) fail(node, "expected " + what + " (a map of texts)");
        TextMap map;
        for (const auto& entry : node) {
            map[text(entry.first, "a name")] = text(entry.second, "a value");
        }
        return map;
    }

    std::vector<std::string> lines(const YAML::Node& node, const std::string& what) const {
        std::vector<std::string> list;
        if (!node.IsSequence()) fail(node, "expected " + what + " (a list of texts)");
        for (const auto& entry : node) list.push_back(text(entry, "a line"));
        return list;
    }

    using Field = std::function<void(const YAML::Node&)>;

    // Gives each key of a map to its function; a key without one is an error.
    void fields(const YAML::Node& node, const std::string& what,
                const std::map<std::string, Field>& known) const {
        if (!node.IsMap()) fail(node, "expected " + what + " (a map)");
        std::set<std::string> seen;
        for (const auto& entry : node) {
            const std::string key = text(entry.first, "a key");
            const auto field = known.find(key);
            if (field == known.end()) {
                fail(entry.first, "unknown key '" + key + "' in " + what + namesOf(known));
            }
            if (!seen.insert(key).second) fail(entry.first, "key '" + key + "' is there twice");
            field->second(entry.second);
        }
    }

private:
    template <typename Value>
    static std::string namesOf(const std::map<std::string, Value>& known) {
        std::string names;
        for (const auto& other : known)
            names.append(names.empty() ? "; known: " : ", ").append(other.first);
        return names;
    }

    std::string mPath;
};

// "a: b" and "- a" blocks of golden lines: one line each, without the blanks in front.
std::vector<std::string> splitBlock(const std::string& block) {
    std::vector<std::string> lines;
    std::istringstream in(block);
    std::string line;
    while (std::getline(in, line)) {
        const size_t first = line.find_first_not_of(' ');
        if (first != std::string::npos) lines.push_back(line.substr(first));
    }
    return lines;
}

// Reads the boots of one scenario.
class BootReader {
public:
    BootReader(const Reader& reader, Boot& boot) : mReader(reader), mBoot(boot) {}

    void read(const YAML::Node& node) {
        mBoot.profile = ProfileScript::healthy();
        mReader.fields(node, "a boot",
                       {{"about", [&](const auto& n) { mBoot.about = mReader.text(n, "a title"); }},
                        {"properties",
                         [&](const auto& n) { mBoot.properties = mReader.texts(n, "properties"); }},
                        {"files", [&](const auto& n) { mBoot.files = mReader.texts(n, "files"); }},
                        {"profile", [&](const auto& n) { readProfile(n); }},
                        {"completes", [&](const auto& n) { readCompletion(n); }},
                        {"changes", [&](const auto& n) { readChanges(n); }},
                        {"kel_answers_after",
                         [&](const auto& n) {
                             mBoot.kelAnswersAfter = mReader.seconds(n, "a delay");
                         }},
                        {"partition",
                         [&](const auto& n) {
                             mBoot.partitionAbsent = mReader.text(n, "'absent'") == "absent";
                             if (!mBoot.partitionAbsent) mReader.fail(n, "expected 'absent'");
                         }},
                        {"space",
                         [&](const auto& n) { mBoot.space = mReader.whole(n, "bytes", 0); }},
                        {"fail", [&](const auto& n) { readFaults(n); }},
                        {"power_cut_after",
                         [&](const auto& n) {
                             mBoot.cutAfter = mReader.whole(n, "the number of an operation", 1);
                         }},
                        {"unsynced",
                         [&](const auto& n) {
                             mBoot.unsynced = mReader.oneOf(n, "what becomes of files", kUnsynced);
                         }},
                        {"damage_seed",
                         [&](const auto& n) { mBoot.damageSeed = mReader.whole(n, "a seed", 0); }},
                        {"power_cycle",
                         [&](const auto& n) { addEnd(n, Change::Kind::POWER_CYCLE); }},
                        {"until", [&](const auto& n) { addEnd(n, Change::Kind::END); }},
                        {"expect", [&](const auto& n) { readExpectations(n); }}});
        if (!mEnds) mBoot.changes.push_back({kDefaultEnd, Change::Kind::END, "", "", 0});
        std::stable_sort(mBoot.changes.begin(), mBoot.changes.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
    }

private:
    static constexpr int64_t kDefaultEnd = 7200000;  // ms

    void addEnd(const YAML::Node& node, Change::Kind kind) {
        mBoot.changes.push_back({mReader.seconds(node, "when the boot ends"), kind, "", "", 0});
        mEnds = true;
    }

    // What a framework that boots sets, all at once.
    void readCompletion(const YAML::Node& node) {
        const int64_t at = mReader.seconds(node, "when the boot completes");
        for (const char* name :
             {"sys.boot_completed", "service.bootanim.exit", "sys.vela.BOOT_COMPLETED"}) {
            mBoot.changes.push_back({at, Change::Kind::SET, name, "1", 0});
        }
    }

    void readProfile(const YAML::Node& node) {
        // Order matters: first what comes, then what becomes of it.
        std::optional<YAML::Node> until;
        std::optional<YAML::Node> loop;
        std::optional<YAML::Node> events;
        double stretch = 1;
        mReader.fields(node, "a profile",
                       {{"path",
                         [&](const auto& n) { mBoot.profilePath = mReader.text(n, "a path"); }},
                        {"text",
                         [&](const auto& n) { mBoot.profileText = mReader.text(n, "a profile"); }},
                        {"empty",
                         [&](const auto& n) {
                             if (mReader.flag(n, "whether it is empty"))
                                 mBoot.profile = ProfileScript();
                         }},
                        {"stretch",
                         [&](const auto& n) {
                             if (!n.IsScalar() || !YAML::convert<double>::decode(n, stretch) ||
                                 !(stretch > 0 && stretch <= kMaxStretch)) {
                                 mReader.fail(n, "expected a factor above 0, up to 1000");
                             }
                         }},
                        {"until", [&](const auto& n) { until = n; }},
                        {"loop", [&](const auto& n) { loop = n; }},
                        {"events", [&](const auto& n) { events = n; }}});
        mBoot.profile.stretch(stretch);
        if (until && !mBoot.profile.cutAfter(mReader.text(*until, "an event"))) {
            mReader.fail(*until, "expected an event of the profile");
        }
        if (loop) readLoop(*loop);
        if (events) readEvents(*events);
    }

    void readLoop(const YAML::Node& node) {
        std::string from;
        int64_t times = 0;
        int64_t every = 0;
        mReader.fields(node, "a loop",
                       {{"from", [&](const auto& n) { from = mReader.text(n, "an event"); }},
                        {"times",
                         [&](const auto& n) { times = mReader.whole(n, "a count", 1, kMaxTimes); }},
                        {"every", [&](const auto& n) { every = mReader.seconds(n, "a period"); }}});
        if (every == 0) mReader.fail(node, "expected 'every', a period above 0");
        if (!mBoot.profile.loop(from, static_cast<int>(times), every)) {
            mReader.fail(node, "expected 'from', an event of the profile that is not cut off");
        }
    }

    void readEvents(const YAML::Node& node) {
        if (!node.IsSequence()) mReader.fail(node, "expected a list of events");
        for (const auto& entry : node) {
            std::string by;
            std::string name;
            int64_t at = 0;
            int64_t every = 0;
            int64_t times = 1;
            bool numbered = false;
            mReader.fields(entry, "an event",
                           {{"at", [&](const auto& n) { at = mReader.seconds(n, "a time"); }},
                            {"by", [&](const auto& n) { by = mReader.text(n, "pid-process"); }},
                            {"name",
                             [&](const auto& n) { name = mReader.text(n, "an event name"); }},
                            {"every",
                             [&](const auto& n) { every = mReader.seconds(n, "a period"); }},
                            {"times",
                             [&](const auto& n) {
                                 times = mReader.whole(n, "a count", 1, kMaxTimes);
                             }},
                            {"numbered", [&](const auto& n) {
                                 numbered = mReader.flag(n, "whether it counts");
                             }}});
            for (int64_t i = 0; i < times; ++i) {
                // A number makes each of several events a new one.
                const std::string suffix = numbered ? " " + std::to_string(i + 1) : "";
                mBoot.profile.add(at + i * every, by, name + suffix);
            }
        }
    }

    void readChanges(const YAML::Node& node) {
        if (!node.IsSequence()) mReader.fail(node, "expected a list of changes");
        for (const auto& entry : node) {
            int64_t at = -1;
            std::vector<Change> changes;
            const auto path = [&](Change::Kind kind) {
                return [&changes, kind, this](const YAML::Node& n) {
                    changes.push_back({0, kind, mReader.text(n, "a device path"), "", 0});
                };
            };
            const auto pairs = [&](Change::Kind kind) {
                return [&changes, kind, this](const YAML::Node& n) {
                    for (const auto& [name, value] : mReader.texts(n, "names and values")) {
                        changes.push_back({0, kind, name, value, 0});
                    }
                };
            };
            const auto number = [&](Change::Kind kind, const char* what, int64_t least) {
                return [&changes, kind, what, least, this](const YAML::Node& n) {
                    changes.push_back({0, kind, "", "", mReader.whole(n, what, least)});
                };
            };
            mReader.fields(entry, "a change",
                           {{"at", [&](const auto& n) { at = mReader.seconds(n, "a time"); }},
                            {"set", pairs(Change::Kind::SET)},
                            {"write", pairs(Change::Kind::WRITE)},
                            {"remove", path(Change::Kind::REMOVE)},
                            {"fill", path(Change::Kind::FILL)},
                            {"read_only", path(Change::Kind::READ_ONLY)},
                            {"clock", number(Change::Kind::CLOCK, "seconds", -kMaxSeconds)},
                            {"signal", number(Change::Kind::SIGNAL, "a signal's number", 1)}});
            if (at < 0) mReader.fail(entry, "expected 'at', the time of the change in seconds");
            for (Change& change : changes) {
                change.at = at;
                mBoot.changes.push_back(std::move(change));
            }
        }
    }

    void readFaults(const YAML::Node& node) {
        if (!node.IsSequence()) mReader.fail(node, "expected a list of failing calls");
        for (const auto& entry : node) {
            Fault fault;
            mReader.fields(entry, "a failing call",
                           {{"call",
                             [&](const auto& n) {
                                 fault.call = mReader.oneOf(n, "a call", kCalls);
                             }},
                            {"nth",
                             [&](const auto& n) { fault.nth = mReader.whole(n, "which one", 1); }},
                            {"times", [&](const auto& n) {
                                 fault.times = mReader.whole(n, "a count", 1);
                             }}});
            mBoot.faults.push_back(fault);
        }
    }

    void readExpectations(const YAML::Node& node) {
        mReader.fields(node, "expectations",
                       {{"timeline",
                         [&](const auto& n) {
                             mBoot.timeline = splitBlock(mReader.text(n, "lines of a timeline"));
                         }},
                        {"log", [&](const auto& n) { mBoot.log = mReader.lines(n, "log lines"); }},
                        {"not_logged",
                         [&](const auto& n) { mBoot.notLogged = mReader.lines(n, "log texts"); }},
                        {"errors", [&](const auto& n) {
                             mBoot.errors = mReader.text(n, "the text on standard error");
                         }}});
    }

    const Reader& mReader;
    Boot& mBoot;
    bool mEnds = false;
};

// A number of bytes, or a map with more to say.
void readLog(const Reader& reader, const YAML::Node& node, const std::string& name,
             Scenario& scenario) {
    const auto size = [&](const YAML::Node& n) {
        scenario.logSizes[name] = reader.whole(n, "bytes", 0);
    };
    if (node.IsScalar()) return size(node);
    reader.fields(node, "a log buffer",
                  {{"bytes", size},
                   {"endless",
                    [&](const auto& n) {
                        if (reader.flag(n, "whether it never ends"))
                            scenario.endlessLogs.insert(name);
                    }},
                   {"nuls", [&](const auto& n) {
                        if (reader.flag(n, "whether it holds NULs")) scenario.nulLogs.insert(name);
                    }}});
}

void readDevice(const Reader& reader, const YAML::Node& node, Scenario& scenario) {
    reader.fields(node, "a device",
                  {{"clock",
                    [&](const auto& n) {
                        tm time = {};
                        const std::string text = reader.text(n, "a time of day");
                        const char* end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &time);
                        if (end == nullptr || *end != '\0') {
                            reader.fail(n, "expected a time of day like 2026-11-15 11:05:18");
                        }
                        scenario.clock = timegm(&time);
                    }},
                   {"cmdline",
                    [&](const auto& n) {
                        scenario.commandLine = reader.text(n, "a command line");
                    }},
                   {"properties",
                    [&](const auto& n) {
                        for (const auto& [name, value] : reader.texts(n, "properties")) {
                            scenario.properties[name] = value;
                        }
                    }},
                   {"files", [&](const auto& n) { scenario.files = reader.texts(n, "files"); }},
                   {"logs",
                    [&](const auto& n) {
                        std::map<std::string, Reader::Field> buffers;
                        for (const auto& [name, size] : kLogSizes) {
                            buffers[name] = [&, name = name](const YAML::Node& log) {
                                readLog(reader, log, name, scenario);
                            };
                        }
                        reader.fields(n, "log buffers", buffers);
                    }},
                   {"partition",
                    [&](const auto& n) {
                        if (n.IsScalar() && n.Scalar() == "absent") {
                            scenario.partitionAbsent = true;
                        } else {
                            scenario.partitionSize = reader.whole(n, "'absent', or bytes", 4096);
                        }
                    }},
                   {"log_folder",
                    [&](const auto& n) {
                        scenario.logFolder = reader.flag(n, "whether it is there");
                    }},
                   {"reboot_after", [&](const auto& n) {
                        scenario.rebootAfter = reader.seconds(n, "the platform's delay");
                    }}});
}

void readExpectedFiles(const Reader& reader, const YAML::Node& node, Scenario& scenario) {
    if (!node.IsMap()) reader.fail(node, "expected files (a map)");
    for (const auto& entry : node) {
        const std::string path = reader.text(entry.first, "a device path");
        if (entry.second.IsNull()) {
            scenario.expectedFiles[path] = std::nullopt;
        } else {
            scenario.expectedFiles[path] = reader.text(entry.second, "a content, or nothing");
        }
    }
}

}  // namespace

Scenario readScenario(const std::string& path) {
    const Reader reader(path);
    YAML::Node document;
    try {
        document = YAML::Load(readFile(path));
    } catch (const YAML::ParserException& error) {
        reader.fail(error.mark, "expected YAML: " + error.msg);
    }
    Scenario scenario;
    scenario.path = path;
    scenario.commandLine = kCommandLine;
    scenario.properties = kProperties;
    scenario.logSizes = kLogSizes;
    reader.fields(document, "a scenario",
                  {{"about",
                    [&](const auto& n) { scenario.about = reader.text(n, "a line about it"); }},
                   {"device", [&](const auto& n) { readDevice(reader, n, scenario); }},
                   {"boots",
                    [&](const auto& n) {
                        if (!n.IsSequence()) reader.fail(n, "expected a list of boots");
                        for (const auto& boot : n) {
                            scenario.boots.emplace_back();
                            BootReader(reader, scenario.boots.back()).read(boot);
                        }
                    }},
                   {"files_after",
                    [&](const auto& n) { readExpectedFiles(reader, n, scenario); }}});
    for (const Boot& boot : scenario.boots) {
        // A mounted file system can't be moved away.
        if (boot.partitionAbsent && (scenario.partitionSize || scenario.partitionAbsent)) {
            reader.fail(document,
                        "expected no 'partition' of a boot where the device's is " +
                                std::string(scenario.partitionAbsent ? "absent"
                                                                     : "a file system of its own"));
        }
    }
    if (scenario.boots.empty()) reader.fail(document, "expected 'boots', a list of at least one");
    return scenario;
}

}  // namespace lab
