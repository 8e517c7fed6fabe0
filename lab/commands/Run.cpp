// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab run`: runs scenarios and checks what they expect.

#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/base/Files.h"
#include "lab/base/Sanitizers.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/commands/Commands.h"
#include "lab/commands/Scenarios.h"
#include "lab/device/DeviceRoot.h"
#include "lab/run/Expectations.h"
#include "lab/run/Outcome.h"
#include "lab/run/ScenarioRun.h"
#include "lab/run/Timeline.h"
#include "lab/scenario/Scenario.h"
#include "common/text/Printable.h"

namespace lab {

namespace {

using text::printable;

struct Options {
    std::vector<std::string> scenarios;
    std::string folder;  // empty: a temporary one
    bool quiet = false;
    bool effects = false;
    bool json = false;
    CageOptions cage;
};

constexpr const char* kRun = "run";  // below the cage's folder

void print(FILE* file, const std::string& line) {
    fprintf(file, "%s\n", line.c_str());
}

// One scenario's run, and all that is said of it.
class Report {
public:
    Report(const Scenario& scenario, const ScenarioRun& run)
        : mScenario(scenario), mRun(run), mRecords(run.records()) {
        std::vector<std::string> errors;
        for (const BootOutcome& outcome : run.outcomes()) errors.push_back(outcome.errors);
        std::optional<InsideRoot> inside(run.root());
        mBroken = compareWithScenario(scenario, mRecords, errors, "");
        inside.reset();
        for (size_t i = 0; i < run.outcomes().size(); ++i) {
            for (const Violation& violation : run.outcomes()[i].violations) {
                mBroken.push_back("boot " + std::to_string(i + 1) + ": " + violation.text);
            }
        }
    }

    // Everything that speaks against the run, one line each.
    const std::vector<std::string>& broken() const {
        return mBroken;
    }

    void printBoots() const {
        print(stdout, printable(mScenario.about));
        const bool colour = isatty(STDOUT_FILENO) != 0;
        for (size_t i = 0; i < mRun.outcomes().size(); ++i) {
            const int boot = static_cast<int>(i) + 1;
            print(stdout, "");
            for (const std::string& line : describeBoot(mRecords, boot, colour)) {
                print(stdout, line);
            }
            print(stdout, "outcome: " + printable(describeOutcome(mRecords, boot)));
            printf("  %.3f s of device time took %.0f ms\n",
                   static_cast<double>(mRun.outcomes()[i].endedAt) / 1000,
                   mRun.outcomes()[i].realSeconds * 1000);
        }
    }

    void printEffects() const {
        for (const Record& record : mRecords) {
            if (record["kind"] == "boot") print(stdout, "boot " + record["boot"].dump());
            if (const auto line = effectLine(record)) print(stdout, *line);
        }
    }

    // One object on one line.
    void printJson() const {
        Record boots = Record::array();
        for (size_t i = 0; i < mRun.outcomes().size(); ++i) {
            const int boot = static_cast<int>(i) + 1;
            Record effects = Record::array();
            for (const Record& record : mRecords) {
                if (record["boot"] != boot) continue;
                if (const auto line = effectLine(record)) effects.push_back(*line);
            }
            const auto ms = static_cast<double>(mRun.outcomes()[i].endedAt);
            boots.push_back({{"about", mScenario.boots[i].about},
                             {"outcome", describeOutcome(mRecords, boot)},
                             {"seconds", ms / 1000},
                             {"effects", effects}});
        }
        Record run = {{"scenario", mScenario.path},
                      {"about", mScenario.about},
                      {"holds", mBroken.empty()},
                      {"broken", mBroken},
                      {"boots", boots}};
        print(stdout, run.dump(-1, ' ', true, Record::error_handler_t::replace));
    }

    void printBroken() const {
        print(stderr, printable(mScenario.path) + " does not hold:");
        for (const std::string& line : mBroken) print(stderr, printable(line));
    }

private:
    const Scenario& mScenario;
    const ScenarioRun& mRun;
    const std::vector<Record> mRecords;
    std::vector<std::string> mBroken;
};

// In the cage, of which `cage` is the folder.
int runAndReport(const Scenario& scenario, const Options& options, const std::string& cage) {
    const std::string folder = cage + "/" + kRun;
    makeFolders(folder);
    ScenarioRun run(scenario, folder, Keep::LOG, cage + "/tools");
    run.run();
    const Report report(scenario, run);
    const bool holds = report.broken().empty();
    if (options.json) {
        report.printJson();
    } else if (options.effects) {
        report.printEffects();
    } else if (!options.quiet) {
        report.printBoots();
    }
    fflush(stdout);
    if (!holds && !options.json) report.printBroken();
    return holds ? 0 : kFailed;
}

// Gives the exit status.
int runOne(const Scenario& scenario, const std::string& named, const Options& options) {
    namespace fs = std::filesystem;
    if (!named.empty() && fs::exists(named) && !(fs::is_directory(named) && fs::is_empty(named))) {
        print(stderr, "bootvigil-lab: " + printable(named) +
                              ": cannot keep a run here: it is no empty folder");
        return CommandLine::kWrongUsage;
    }
    Cage cage(options.cage, 1);
    const int status = cage.run(
            [&](const std::string& folder) { return runAndReport(scenario, options, folder); });
    if (named.empty() && status != kFailed) return status;
    return orLabFailed([&] {
        std::optional<TemporaryFolder> temporary;
        if (named.empty()) temporary.emplace();
        const std::string folder = named.empty() ? temporary->path() : named;
        cage.copyOut(kRun, folder);
        if (temporary) temporary->keep();
        const std::string left = "what the daemon left behind: " + printable(folder);
        if (status == kFailed) print(stderr, left);
        if (status == 0 && !options.json) print(stdout, "\n" + left + "/root/velafs");
        return status;
    });
}

// A scenario that shows nothing here may show something elsewhere.
void warnOfIgnoredFaults(const Scenario& scenario) {
    for (const Boot& boot : scenario.boots) {
        for (const Fault& fault : boot.faults) {
            if (!kSanitized || fault.call != Fault::Call::MALLOC) continue;
            return print(stderr, printable(scenario.path) +
                                         ": warning: a build with sanitizers lets no malloc fail");
        }
    }
}

// All are read before the first one is run: a mistake in one shows at once.
bool readAll(const std::vector<std::string>& names, std::vector<Scenario>& scenarios) {
    bool readable = true;
    for (const std::string& name : names) {
        try {
            scenarios.push_back(readScenario(scenarioFile(name)));
            for (const std::string& line : scenarios.back().warnings) print(stderr, line);
            warnOfIgnoredFaults(scenarios.back());
        } catch (const std::runtime_error& error) {
            print(stderr, "bootvigil-lab: " + printable(error.what()));
            readable = false;
        }
    }
    return readable;
}

int runScenarios(const Options& options) {
    std::vector<Scenario> scenarios;
    if (!readAll(options.scenarios, scenarios)) return CommandLine::kWrongUsage;
    std::set<int> statuses;
    for (const Scenario& scenario : scenarios) {
        std::string folder = options.folder;
        if (scenarios.size() > 1 && !folder.empty()) {
            folder += "/" + std::filesystem::path(scenario.path).stem().string();
        }
        if (&scenario != &scenarios.front() && !options.json && !options.quiet) print(stdout, "");
        fflush(stdout);
        statuses.insert(runOne(scenario, folder, options));
    }
    return *statuses.rbegin();  // the worst
}

}  // namespace

void addRun(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    Command& command = line.add("run", "run scenarios and check what they expect");
    command.arguments("scenario", options->scenarios,
                      "YAML files, or names of shipped scenarios (see `list`)")
            .text("--out", options->folder,
                  "keep the run in this folder (missing or empty); of several scenarios, each in "
                  "a folder of its name in there")
            .flag("--quiet", options->quiet, "print only what does not hold")
            .flag("--effects", options->effects,
                  "print the lines that a scenario's timeline expects")
            .flag("--json", options->json,
                  "print one JSON object per scenario: outcomes, effects and what does not hold")
            .exits({{0, "every scenario holds"},
                    {kFailed, "a scenario does not hold"},
                    {CommandLine::kWrongUsage, "wrong usage, or a scenario can't be read"},
                    {kLabFailed, "the lab failed"}});
    addCageOptions(command, options->cage);
    command.does([options] { return runScenarios(*options); });
}

}  // namespace lab
