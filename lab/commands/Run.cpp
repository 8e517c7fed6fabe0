// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab run`: runs one scenario and checks what it expects.

#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/commands/Commands.h"
#include "lab/run/Expectations.h"
#include "lab/run/ScenarioRun.h"
#include "lab/run/Timeline.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

struct Options {
    std::string file;
    std::string folder;  // empty: a temporary one
    bool quiet = false;
    bool effects = false;
};

void printEffects(const std::vector<Record>& records) {
    for (const Record& record : records) {
        if (record["kind"] == "boot") printf("boot %s\n", record["boot"].dump().c_str());
        if (const auto line = effectLine(record)) printf("%s\n", line->c_str());
    }
}

void printRun(const Scenario& scenario, const ScenarioRun& run) {
    printf("%s\n", text::printable(scenario.about).c_str());
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
    std::vector<std::string> lines =
            compareWithScenario(scenario, run.records(), errors, run.root().path());
    for (size_t i = 0; i < run.outcomes().size(); ++i) {
        for (const Violation& violation : run.outcomes()[i].violations) {
            lines.push_back("boot " + std::to_string(i + 1) + ": " + violation.text);
        }
    }
    return lines;
}

int runScenario(const Options& options) {
    const Scenario scenario = readScenario(options.file);
    const bool named = !options.folder.empty();
    std::optional<TemporaryFolder> temporary;
    if (!named) temporary.emplace();
    const std::string folder = named ? options.folder : temporary->path();
    makeFolders(folder);
    ScenarioRun run(scenario, folder);
    run.run();
    if (options.effects) {
        printEffects(run.records());
    } else if (!options.quiet) {
        printRun(scenario, run);
    }

    const std::vector<std::string> differences = objections(scenario, run);
    const bool kept = named || !differences.empty() || !(options.quiet || options.effects);
    if (!named && kept) temporary->keep();
    if (!differences.empty()) {
        fprintf(stderr, "%s does not hold:\n", text::printable(options.file).c_str());
        for (const std::string& line : differences) {
            fprintf(stderr, "%s\n", text::printable(line).c_str());
        }
        fprintf(stderr, "what the daemon left behind: %s\n", folder.c_str());
        return kFailed;
    }
    if (kept) printf("\nwhat the daemon left behind: %s/root/velafs\n", folder.c_str());
    return 0;
}

}  // namespace

void addRun(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    line.add("run", "run a scenario and check what it expects")
            .argument("scenario", options->file, "the scenario, a YAML file")
            .text("--out", options->folder, "keep the run in this folder (missing or empty)")
            .flag("--quiet", options->quiet, "print only what does not hold")
            .flag("--effects", options->effects,
                  "print the lines that a scenario's timeline expects")
            .does([options] { return runScenario(*options); });
}

}  // namespace lab
