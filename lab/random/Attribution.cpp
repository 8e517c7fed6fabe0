// SPDX-License-Identifier: Apache-2.0
// How well the daemon names what hangs, and how often it takes a slow boot for a stall: counted
// over many seeded boots whose truth is known.

#include "lab/random/Attribution.h"

#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "lab/base/Jobs.h"
#include "lab/base/Progress.h"
#include "lab/base/Shared.h"
#include "lab/base/Text.h"
#include "lab/random/KnownBoots.h"
#include "lab/run/Workshop.h"
#include "report/read/DaemonLog.h"

namespace lab {

namespace {

enum Answer : uint8_t { RIGHT, UNKNOWN, WRONG, ANSWERS };

// What the daemon did about a boot, beside the truth of it.
struct Result {
    Answer pid = UNKNOWN, phase = UNKNOWN, detail = UNKNOWN;
    int seconds = 0;  // from the hang to the record
    bool recorded = false, captured = false, requested = false, killed = false;
    bool silent = false;  // for four minutes, although healthy
    // Whether three boots like it in a row end in a data reset, by platform.
    bool wiped[std::size(kPlatformNames)] = {};
};
using Results = std::vector<Result>;

Answer answer(int said, int truth) {
    return said <= 0 ? UNKNOWN : said == truth ? RIGHT : WRONG;
}

Result compare(const std::vector<Record>& records, const KnownBoot& boot) {
    Result result;
    result.silent = boot.silent;
    int pid = 0;
    for (const Record& record : records) {
        const std::string kind = record["kind"];
        result.captured = result.captured || kind == "kel" || kind == "captured";
        result.requested = result.requested || kind == "request";
        result.killed = result.killed || kind == "killed";
        if (kind != "log" || result.recorded) continue;
        const std::string text = record["text"];
        if (const auto stuck = after(text, "checkStuckPid stuck pid =")) pid = atoi(stuck->c_str());
        const auto error = report::parseNotice(text);
        if (!error) continue;
        result.recorded = true;
        result.pid = answer(pid, boot.truth.pid);
        result.phase = answer(error->phase, boot.truth.phase);
        result.detail = answer(error->detailPhase, boot.truth.detail);
        result.seconds = static_cast<int>(record["t"].get<double>() -
                                          static_cast<double>(boot.truth.at) / 1e6);
    }
    return result;
}

// What becomes of a device that boots like this three times in a row.
bool isWiped(Workshop& workshop, const Scenario& once, PlatformKind platform) {
    Scenario scenario = once;
    scenario.platform = platform;
    scenario.boots.assign(3, once.boots.front());
    const std::vector<Record> records = workshop.run(scenario, Keep::LOG).records();
    return std::any_of(records.begin(), records.end(), [&](const Record& record) {
        const bool bare = platform == PlatformKind::BARE;
        return bare ? record["kind"] == "request" && record["name"] == "reset"
                    : record["kind"] == "act" && record["text"] == "wiping the data";
    });
}

// Stalled and slow boots take turns.
Results runBoots(const AttributionOrder& order, const std::string& folder) {
    const size_t stalls = stallKinds().size();
    const size_t slow = slowKinds().size();
    Shared<Result> results(2 * static_cast<size_t>(order.count));
    Jobs pool(results.size(), order.jobs, [](uint64_t index) {
        return (index % 2 == 0 ? "stall " : "slow boot ") + std::to_string(index / 2);
    });
    Progress progress("boots", results.size());
    const Jobs::Outcome outcome = pool.run([&] {
        Workshop workshop(folder);
        pool.forEachTask([&](uint64_t index) {
            QuickDraw draw(order.seed, index);
            const KnownBoot boot = index % 2 == 0 ? makeStall(draw, index / 2 % stalls)
                                                  : makeSlowBoot(draw, index / 2 % slow);
            const ScenarioRun& run = workshop.run(boot.scenario, Keep::LOG);
            results[index] = compare(run.records(), boot);
            for (const BootOutcome& boot : run.outcomes()) {
                if (!boot.violations.empty()) progress.object();
            }
            for (const auto platform : {PlatformKind::BARE, PlatformKind::REFERENCE}) {
                // A boot that asks for nothing leads to nothing, however often it comes.
                if (index % 2 == 0 || !results[index].requested) break;
                results[index].wiped[static_cast<size_t>(platform)] =
                        isWiped(workshop, boot.scenario, platform);
            }
            progress.add();
        });
    });
    progress.clear();
    if (!outcome.allRun()) throw std::runtime_error("not every boot could be run");
    return {results.begin(), results.end()};
}

struct Column {
    const char* head;
    std::function<std::string(const Results&)> cell;
};

template <Answer Result::*item>
std::string answers(const Results& results) {
    int count[ANSWERS] = {};
    for (const Result& result : results) ++count[result.*item];
    return format("%d / %d / %d", count[RIGHT], count[UNKNOWN], count[WRONG]);
}

auto count(std::function<bool(const Result&)> matches) {
    return [matches](const Results& results) {
        return std::to_string(std::count_if(results.begin(), results.end(), matches));
    };
}

std::string quantiles(const Results& results) {
    std::vector<int> seconds;
    for (const Result& result : results) {
        if (result.recorded) seconds.push_back(result.seconds);
    }
    if (seconds.empty()) return "-, -, -";
    std::sort(seconds.begin(), seconds.end());
    const auto quantile = [&](size_t percent) {
        return seconds[(seconds.size() * percent + 99) / 100 - 1];
    };
    return format("%d, %d, %d", quantile(50), quantile(90), quantile(100));
}

const std::vector<Column> kStallColumns = {
        {"boots", count([](const Result&) { return true; })},
        {"pid: right / unknown / wrong", answers<&Result::pid>},
        {"phase", answers<&Result::phase>},
        {"detail", answers<&Result::detail>},
        {"seconds: median, p90, max", quantiles},
        {"daemon died", count(&Result::killed)},
};
std::string resets(const Results& results) {
    int count[std::size(kPlatformNames)] = {};
    for (const Result& result : results) {
        for (size_t i = 0; i < std::size(count); ++i) count[i] += result.wiped[i] ? 1 : 0;
    }
    return format("%d / %d", count[0], count[1]);
}

const std::vector<Column> kSlowColumns = {
        {"boots", count([](const Result&) { return true; })},
        {"recorded", count(&Result::recorded)},
        {"captured", count(&Result::captured)},
        {"restart asked for", count(&Result::requested)},
        {"daemon died", count(&Result::killed)},
        {"with 4 min of silence", count(&Result::silent)},
        {"of these recorded", count([](const Result& one) { return one.silent && one.recorded; })},
        {"three in a row: device reset, bare / reference", resets},
};

using Row = std::vector<std::string>;

// One row for each kind, and one for all. The results are of the kinds in turn.
std::vector<Row> table(const std::string& subject, std::vector<std::string> kinds,
                       const std::vector<Column>& columns, const Results& results) {
    std::vector<Results> groups(kinds.size());
    for (size_t i = 0; i < results.size(); ++i) groups[i % kinds.size()].push_back(results[i]);
    kinds.emplace_back("all");
    groups.push_back(results);
    std::vector<Row> rows = {{subject}};
    for (const Column& column : columns) rows[0].emplace_back(column.head);
    for (size_t i = 0; i < kinds.size(); ++i) {
        rows.push_back({kinds[i]});
        for (const Column& column : columns) rows.back().push_back(column.cell(groups[i]));
    }
    return rows;
}

void print(const std::vector<Row>& rows, bool markdown, std::vector<std::string>& lines) {
    Row padded(rows.size(), markdown ? "|" : "");
    std::string rule = "|";
    for (size_t column = 0; column < rows.front().size(); ++column) {
        size_t width = 0;
        for (const Row& row : rows) width = std::max(width, row[column].size());
        rule += std::string(width + 2, '-') + "|";
        for (size_t i = 0; i < rows.size(); ++i) {
            std::string cell = rows[i][column];
            cell.resize(width, ' ');
            padded[i] += markdown ? " " + cell + " |" : cell + "  ";
        }
    }
    if (markdown) padded.insert(padded.begin() + 1, rule);
    for (const std::string& line : padded) {
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

}  // namespace

std::vector<std::string> measureAttribution(const AttributionOrder& order,
                                            const std::string& folder) {
    Results stalls, slow;
    for (const Result& result : runBoots(order, folder)) {
        (stalls.size() == slow.size() ? stalls : slow).push_back(result);
    }
    std::vector<std::string> lines;
    print(table("stall", stallKinds(), kStallColumns, stalls), order.markdown, lines);
    lines.emplace_back();
    print(table("slow but healthy boot", slowKinds(), kSlowColumns, slow), order.markdown, lines);
    return lines;
}

}  // namespace lab
