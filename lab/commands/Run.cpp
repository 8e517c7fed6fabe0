// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab run`: runs one scenario and checks what it expects.

#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/commands/Commands.h"
#include "lab/device/DeviceRoot.h"
#include "lab/run/Expectations.h"
#include "lab/run/ScenarioRun.h"
#include "lab/run/Timeline.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

constexpr const char* kRun = "/run";  // below the cage's folder

struct Options {
    std::string file;
    std::string folder;  // empty: a temporary one
    bool quiet = false;
    bool effects = false;
    CageOptions cage;
};

void printEffects(const std::vector<Record>& records) {
    for (const Record& record : records) {
        if (record["kind"] == "boot") printf("boot %s\n", record["boot"].dump().c_str());
        if (const auto line = effectLine(record)) printf("%s\n", line->c_str());
    }
}

void printRun(const Scenario& scenario, const ScenarioRun& run) {
    printf("%s\n", scenario.about.c_str());
    const std::vector<Record> records = run.records();
    const bool colour = isatty(STDOUT_FILENO) != 0;
    for (size_t i = 0; i < run.outcomes().size(); ++i) {
        printf("\n");
        for (const std::string& line : describeBoot(records, static_cast<int>(i) + 1, colour)) {
            printf("%s\n", line.c_str());
        }
        printf("  %.3f s of device time took %.0f ms\n",
               static_cast<double>(run.outcomes()[i].endedAt) / 1000,
               run.outcomes()[i].realSeconds * 1000);
    }
}

// Everything that speaks against the run, one line each.
std::vector<std::string> objections(const Scenario& scenario, const ScenarioRun& run) {
    std::vector<std::string> errors;
    for (const BootOutcome& outcome : run.outcomes()) errors.push_back(outcome.errors);
    const std::vector<Record> records = run.records();
    std::optional<InsideRoot> inside(run.root());
    std::vector<std::string> lines = compareWithScenario(scenario, records, errors, "");
    inside.reset();
    for (size_t i = 0; i < run.outcomes().size(); ++i) {
        for (const Violation& violation : run.outcomes()[i].violations) {
            lines.push_back("boot " + std::to_string(i + 1) + ": " + violation.text);
        }
    }
    return lines;
}

// In the cage.
int runAndCompare(const Options& options, const Scenario& scenario, const std::string& folder) {
    makeFolders(folder + kRun);
    ScenarioRun run(scenario, folder + kRun, Keep::LOG, folder + "/tools");
    run.run();
    if (options.effects) {
        printEffects(run.records());
    } else if (!options.quiet) {
        printRun(scenario, run);
    }
    const std::vector<std::string> differences = objections(scenario, run);
    if (differences.empty()) return 0;
    fprintf(stderr, "%s does not hold:\n", options.file.c_str());
    for (const std::string& line : differences) fprintf(stderr, "%s\n", line.c_str());
    return kFailed;
}

int runScenario(const Options& options) {
    const Scenario scenario = readScenario(options.file);
    const std::string& named = options.folder;
    if (!named.empty() && fileExists(named) && !std::filesystem::is_empty(named)) {
        throw std::runtime_error("cannot keep a run in " + named + ": it is not empty");
    }
    Cage cage(options.cage, 1);
    const int status = cage.run(
            [&](const std::string& folder) { return runAndCompare(options, scenario, folder); });
    if (named.empty() && status != kFailed) return status;
    std::optional<TemporaryFolder> temporary;
    if (named.empty()) temporary.emplace();
    const std::string folder = named.empty() ? temporary->path() : named;
    return orLabFailed([&] {
        cage.copyOut(kRun + 1, folder);
        if (temporary) temporary->keep();
        if (status == kLabFailed) return status;
        fprintf(status == 0 ? stdout : stderr, "%swhat the daemon left behind: %s/root/velafs\n",
                status == 0 ? "\n" : "", folder.c_str());
        return status;
    });
}

}  // namespace

void addRun(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    Command& command = line.add("run", "run a scenario and check what it expects");
    command.argument("scenario", options->file, "the scenario, a YAML file")
            .text("--out", options->folder, "keep the run in this folder (missing or empty)")
            .flag("--quiet", options->quiet, "print only what does not hold")
            .flag("--effects", options->effects,
                  "print the lines that a scenario's timeline expects");
    addCageOptions(command, options->cage);
    command.does([options] { return runScenario(*options); });
}

}  // namespace lab
