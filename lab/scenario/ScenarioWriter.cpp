// SPDX-License-Identifier: Apache-2.0
// Writes a scenario as the YAML that readScenario() reads.

#include "lab/scenario/ScenarioWriter.h"

#include <yaml-cpp/yaml.h>

#include "lab/base/Files.h"

namespace lab {

namespace {

using YAML::BeginMap;
using YAML::BeginSeq;
using YAML::EndMap;
using YAML::EndSeq;
using YAML::Key;
using YAML::Value;

template <typename Content>
void field(YAML::Emitter& out, const char* key, const Content& content) {
    out << Key << key << Value << content;
}

// In quotes, so that blanks, line feeds and what looks like a number come back as they are.
void text(YAML::Emitter& out, const char* key, const std::string& content) {
    out << Key << key << Value << YAML::DoubleQuoted << content;
}

void texts(YAML::Emitter& out, const char* key, const TextMap& map) {
    if (map.empty()) return;
    out << Key << key << Value << BeginMap;
    for (const auto& [name, value] : map) {
        out << Key << name << Value << YAML::DoubleQuoted << value;
    }
    out << EndMap;
}

double seconds(int64_t ms) {
    return static_cast<double>(ms) / 1000;
}

template <typename Kind>
const std::string& nameOf(const std::map<std::string, Kind>& names, Kind kind) {
    for (const auto& [name, other] : names) {
        if (other == kind) return name;
    }
    abort();  // every kind has a name
}

void writeChange(YAML::Emitter& out, const Change& change) {
    out << YAML::Flow << BeginMap;
    field(out, "at", seconds(change.at));
    switch (change.kind) {
        case Change::Kind::SET:
            texts(out, "set", {{change.name, change.value}});
            break;
        case Change::Kind::WRITE:
            texts(out, "write", {{change.name, change.value}});
            break;
        case Change::Kind::REMOVE:
            field(out, "remove", change.name);
            break;
        case Change::Kind::FILL:
            field(out, "fill", change.name);
            break;
        case Change::Kind::READ_ONLY:
            field(out, "read_only", change.name);
            break;
        case Change::Kind::CLOCK:
            field(out, "clock", change.number);
            break;
        case Change::Kind::SIGNAL:
            field(out, "signal", change.number);
            break;
        case Change::Kind::POWER_CYCLE:
        case Change::Kind::PLATFORM_REBOOT:
        case Change::Kind::END:
            break;  // keys of the boot, or the platform's own
    }
    out << EndMap;
}

void writeProfile(YAML::Emitter& out, const Boot& boot) {
    out << Key << "profile" << Value << BeginMap;
    field(out, "path", boot.profilePath);
    if (boot.profileText) {
        text(out, "text", *boot.profileText);
    } else {
        field(out, "empty", true);
        out << Key << "events" << Value << BeginSeq;
        for (const ProfileScript::Event& event : boot.profile.events()) {
            out << YAML::Flow << BeginMap;
            field(out, "at", seconds(event.us / 1000));
            text(out, "by", event.by());
            text(out, "name", event.name);
            out << EndMap;
        }
        out << EndSeq;
    }
    out << EndMap;
}

void writeBoot(YAML::Emitter& out, const Boot& boot) {
    out << BeginMap;
    text(out, "about", boot.about);
    texts(out, "properties", boot.properties);
    texts(out, "files", boot.files);
    if (boot.partitionAbsent) field(out, "partition", "absent");
    writeProfile(out, boot);
    out << Key << "changes" << Value << BeginSeq;
    for (const Change& change : boot.changes) {
        if (change.kind < Change::Kind::POWER_CYCLE) writeChange(out, change);
    }
    out << EndSeq;
    if (boot.kelAnswersAfter) field(out, "kel_answers_after", seconds(*boot.kelAnswersAfter));
    if (boot.space) field(out, "space", *boot.space);
    if (!boot.faults.empty()) {
        out << Key << "fail" << Value << BeginSeq;
        for (const Fault& fault : boot.faults) {
            out << YAML::Flow << BeginMap;
            field(out, "call", nameOf(kCalls, fault.call));
            field(out, "nth", fault.nth);
            field(out, "times", fault.times);
            out << EndMap;
        }
        out << EndSeq;
    }
    if (boot.cutAfter) field(out, "power_cut_after", *boot.cutAfter);
    if (boot.unsynced != Unsynced::KEPT) {
        field(out, "unsynced", nameOf(kUnsynced, boot.unsynced));
        field(out, "damage_seed", boot.damageSeed);
    }
    for (const Change& change : boot.changes) {
        if (change.kind == Change::Kind::POWER_CYCLE) field(out, "power_cycle", seconds(change.at));
        if (change.kind == Change::Kind::END) field(out, "until", seconds(change.at));
    }
    out << EndMap;
}

void writeDevice(YAML::Emitter& out, const Scenario& scenario) {
    out << Key << "device" << Value << BeginMap;
    char clock[32] = {};
    tm time = {};
    gmtime_r(&scenario.clock, &time);
    strftime(clock, sizeof(clock), "%Y-%m-%d %H:%M:%S", &time);
    field(out, "clock", clock);
    text(out, "cmdline", scenario.commandLine);
    texts(out, "properties", scenario.properties);
    texts(out, "files", scenario.files);
    out << Key << "logs" << Value << BeginMap;
    for (const auto& [name, size] : scenario.logSizes) {
        out << Key << name << Value << YAML::Flow << BeginMap;
        field(out, "bytes", size);
        if (scenario.endlessLogs.count(name) != 0) field(out, "endless", true);
        if (scenario.nulLogs.count(name) != 0) field(out, "nuls", true);
        out << EndMap;
    }
    out << EndMap;
    if (scenario.partitionAbsent) field(out, "partition", "absent");
    if (scenario.partitionSize) field(out, "partition", *scenario.partitionSize);
    if (!scenario.logFolder) field(out, "log_folder", false);
    field(out, "reboot_after", seconds(scenario.rebootAfter));
    out << EndMap;
}

}  // namespace

void writeScenario(const Scenario& scenario, const std::string& path) {
    YAML::Emitter out;
    out << BeginMap;
    text(out, "about", scenario.about);
    writeDevice(out, scenario);
    out << Key << "boots" << Value << BeginSeq;
    for (const Boot& boot : scenario.boots) writeBoot(out, boot);
    out << EndSeq << EndMap;
    writeFile(path, std::string(out.c_str()) + "\n");
}

}  // namespace lab
