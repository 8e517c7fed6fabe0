// SPDX-License-Identifier: Apache-2.0
// Replays a boot that a device recorded: boots today's daemon on it and compares the verdicts.

#include "lab/replay/Replay.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/Text.h"
#include "lab/replay/Rebuild.h"
#include "lab/run/ScenarioRun.h"
#include "report/read/Archive.h"

namespace lab {

namespace {

constexpr size_t kMostBytes = 256 << 20;  // of a captured log; real buffers have some MiB
constexpr size_t kMostProfile = 1 << 20;  // the kernel's own buffer is smaller
constexpr size_t kMostState = 1 << 16;

std::string belowPartition(const std::string& devicePath) {
    return devicePath.substr(kPartition.size());
}

// The path of a file in a partition, which comes from outside: a link on the way to it may lead
// anywhere, and is refused.
std::string pathIn(const std::string& partition, const std::string& devicePath) {
    std::string path = partition + belowPartition(devicePath);
    for (std::filesystem::path part = path; part.native().size() > partition.size();
         part = part.parent_path()) {
        if (std::filesystem::is_symlink(part)) {
            throw std::runtime_error(part.native() + ": a link, which is not followed");
        }
    }
    return path;
}

// The content of an ordinary file of no more than `most` bytes; nothing else is opened.
std::optional<std::string> readState(const std::string& path, size_t most) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(path, error)) ||
        std::filesystem::file_size(path, error) > most || error) {
        return std::nullopt;
    }
    return readFile(path);
}

Remains readRemains(const std::string& partition) {
    const auto read = [&](const std::string& path) {
        return readState(pathIn(partition, path), kMostState);
    };
    return {read(kHistory), read(kRecord), read(kSuccessUpload), read(kOverride), read(kSwitch)};
}

std::string findPartition(const std::string& folder) {
    for (const std::string& path : {folder, folder + kPartition, folder + "/root" + kPartition}) {
        for (const std::string& part : {kOwnFolder, kRecordFolder}) {
            if (std::filesystem::is_directory(path + belowPartition(part))) return path;
        }
    }
    throw NothingToReplay(folder + ": no partition (boot_vigil, SDD or velafs) in it");
}

struct MainLog {
    std::string text;
    std::string damage;  // empty: it is whole
};

MainLog readMainLog(const std::string& path) {
    if (!fileExists(path)) throw NothingToReplay(path + ": no captured main log");
    MainLog log;
    const report::ArchiveInfo info = report::readArchive(path, [&](const char* data, size_t size) {
        log.text.append(data, size);
        return log.text.size() <= kMostBytes;
    });
    if (log.text.size() > kMostBytes) throw NothingToReplay(path + ": too large for a log");
    if (log.text.empty() && !info.error.empty()) {
        throw NothingToReplay(path + ": nothing of it can be read: " + info.error);
    }
    log.damage = info.error;
    return log;
}

std::string errorText(const Verdict& verdict) {
    if (!verdict.error) return "none";
    const report::ErrorNumber& error = *verdict.error;
    return format("0x%x (type %d, phase %d, detail %d, reason %d)", error.number, error.type,
                  error.phase, error.detailPhase, error.reason);
}

// What the daemon logged in a run of the lab, as a device's log would have it.
report::DaemonRun runOf(const std::vector<Record>& records) {
    report::DaemonRun run = {true, {}};
    for (const Record& record : records) {
        if (record["kind"] != "log") continue;
        report::DaemonLine line;
        line.ms = std::llround(record["t"].get<double>() * 1000);
        const std::string text = record["text"];
        line.text = text.substr(0, text.find_last_not_of(" \r\n") + 1);
        run.lines.push_back(line);
    }
    return run;
}

std::string orNotAsked(const std::string& text) {
    return text.empty() ? "not asked" : text;
}

// What is compared of a verdict.
struct Column {
    const char* name;
    std::string (*textOf)(const Verdict& verdict);
};
constexpr Column kColumns[] = {
        {"verdict at", [](const Verdict& verdict) { return seconds(verdict.seenAt); }},
        {"error number", errorText},
        {"stuck pid", [](const Verdict& verdict) { return orNotAsked(verdict.stuckPid); }},
        {"reason code", [](const Verdict& verdict) { return orNotAsked(verdict.reasonCode); }},
        {"captured by",
         [](const Verdict& verdict) -> std::string {
             return verdict.capturedBy.empty() ? "nobody" : verdict.capturedBy;
         }},
};

std::vector<ReplayItem> compare(const RebuiltBoot& rebuilt, const std::optional<Verdict>& today,
                                const std::string& action) {
    const Verdict& recorded = rebuilt.recorded;
    std::vector<ReplayItem> items;
    for (const Column& column : kColumns) {
        items.push_back({column.name, column.textOf(recorded), today ? column.textOf(*today) : ""});
    }
    if (!today) items.front().today = "no verdict";
    if (recorded.capturedBy.empty()) items.back().recorded.reset();
    items.push_back({"recovery", rebuilt.action, action});
    for (ReplayItem& item : items) item.same = !item.recorded || *item.recorded == item.today;
    // A device handles each message some ms late.
    items.front().same = today && today->at == recorded.at;
    return items;
}

}  // namespace

bool ReplayResult::agrees() const {
    return std::all_of(items.begin(), items.end(),
                       [](const ReplayItem& item) { return item.same; });
}

RebuiltRecord readRecord(const std::string& folder, const std::string& profilePath) {
    const std::string partition = findPartition(folder);
    const std::string path = pathIn(partition, archivePath("android_main_log"));
    const MainLog log = readMainLog(path);
    const auto runs = report::daemonRuns(report::daemonLines(log.text));
    const Remains remains = readRemains(partition);
    std::optional<std::string> profile;
    if (!profilePath.empty()) {
        profile = readState(profilePath, kMostProfile);
        if (!profile) throw NothingToReplay(profilePath + ": no boot profile");
    }
    try {
        RebuiltRecord record = {rebuildBoot(runs, remains, profile), path};
        if (!log.damage.empty()) {
            record.boot.notKnown.push_back("what the main log held after its first " +
                                           std::to_string(log.text.size()) +
                                           " bytes, as its archive is damaged (" + log.damage +
                                           "); taken as nothing that matters");
        }
        return record;
    } catch (const std::runtime_error& error) {
        const bool inProfile = std::string(error.what()) == "no event line";
        const bool damaged = !inProfile && !log.damage.empty();
        throw NothingToReplay((inProfile ? profilePath : path) + ": " + error.what() +
                              (damaged ? ", as far as it can be read: " + log.damage : ""));
    }
}

ReplayResult replay(const RebuiltRecord& record, const std::string& folder) {
    const RebuiltBoot& rebuilt = record.boot;
    ScenarioRun run(rebuilt.scenario, folder + "/run", Keep::LOG, folder + "/tools");
    run.run();
    const std::vector<Verdict> verdicts = findVerdicts(runOf(run.records()));
    std::optional<Verdict> today;
    if (verdicts.size() >= rebuilt.number) today = verdicts[rebuilt.number - 1];
    const Remains left = readRemains(run.root().at(kPartition));
    const auto before = rebuilt.scenario.files.find(kHistory);
    const bool stepped = before == rebuilt.scenario.files.end() || left.history != before->second;

    ReplayResult result;
    result.about =
            rebuilt.scenario.about + " in " + record.log + "; boot profile: " + rebuilt.profile;
    result.items =
            compare(rebuilt, today, stepped ? actionName(left.history.value_or("")) : "none");
    for (const Record& record : run.records()) {
        if (record["kind"] != "killed") continue;
        result.items.push_back(
                {"the daemon", std::nullopt, "killed by signal " + record["signal"].dump(), true});
    }
    result.notKnown = rebuilt.notKnown;
    return result;
}

std::vector<std::string> describeReplay(const ReplayResult& result) {
    std::vector<std::string> lines = {result.about, ""};
    size_t recordedWidth = 10;
    size_t todayWidth = 10;
    std::vector<ReplayItem> items = result.items;
    for (ReplayItem& item : items) {
        if (item.recorded) item.recorded = text::printable(*item.recorded);
        item.today = text::printable(item.today);
        recordedWidth = std::max(recordedWidth, item.recorded.value_or("").size() + 2);
        todayWidth = std::max(todayWidth, item.today.size() + 2);
    }
    const auto add = [&](std::string name, std::string recorded, std::string today,
                         const char* verdict) {
        name.resize(14, ' ');
        recorded.resize(recordedWidth, ' ');
        today.resize(todayWidth, ' ');
        lines.push_back(name + recorded + today + verdict);
    };
    add("", "recorded", "today", "");
    for (const ReplayItem& item : items) {
        add(item.name, item.recorded.value_or("not known"), item.today,
            !item.recorded ? ""
            : item.same    ? "same"
                           : "DIFFERS");
    }
    lines.emplace_back();
    for (const std::string& text : result.notKnown) lines.push_back("not known: " + text);
    for (std::string& line : lines) {
        line = text::printable(line);
        line.erase(line.find_last_not_of(' ') + 1);
    }
    return lines;
}

}  // namespace lab
