// SPDX-License-Identifier: Apache-2.0
// bootvigil-lab: runs scenarios of simulated devices, and replays what a real one recorded.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "Attribution.h"
#include "DeviceRoot.h"
#include "Files.h"
#include "Replay.h"
#include "Saga.h"
#include "SagaRunner.h"
#include "Scenario.h"
#include "Timeline.h"

namespace {

using namespace lab;

constexpr int kFailed = 1;  // what was expected or recorded does not hold, or nothing can be run
constexpr int kWrongUsage = 2;

// A folder for a run that names none; kept, because it holds what the daemon wrote.
std::string makeRunFolder() {
    const char* base = getenv("TMPDIR");
    std::string path = std::string(base != nullptr ? base : "/tmp") + "/bootvigil-lab-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) failWithErrno("cannot make", path);
    return path;
}

void printEffects(const std::vector<Record>& records) {
    for (const Record& record : records) {
        if (record["kind"] == "boot") printf("boot %s\n", record["boot"].dump().c_str());
        if (const auto line = effectLine(record)) printf("%s\n", line->c_str());
    }
}

int run(const std::string& file, std::string folder, bool quiet, bool effects) {
    const Scenario scenario = readScenario(file);
    const bool named = !folder.empty();
    if (!named) folder = makeRunFolder();
    makeFolders(folder);
    Saga saga(scenario, folder);
    saga.run();
    const std::vector<Record> records = saga.records();

    if (effects) {
        printEffects(records);
    } else if (!quiet) {
        printf("%s\n", scenario.about.c_str());
        const bool colour = isatty(STDOUT_FILENO) != 0;
        for (size_t i = 0; i < saga.outcomes().size(); ++i) {
            printf("\n");
            for (const std::string& line : describeBoot(records, static_cast<int>(i) + 1, colour)) {
                printf("%s\n", line.c_str());
            }
            printf("  %.3f s of device time took %.0f ms\n",
                   static_cast<double>(saga.outcomes()[i].endedAt) / 1000,
                   saga.outcomes()[i].realSeconds * 1000);
        }
    }

    std::vector<std::string> errors;
    for (const BootOutcome& outcome : saga.outcomes()) errors.push_back(outcome.errors);
    std::vector<std::string> differences =
            compareWithScenario(scenario, records, errors, saga.root().path());
    for (size_t i = 0; i < saga.outcomes().size(); ++i) {
        for (const Violation& violation : saga.outcomes()[i].violations) {
            differences.push_back("boot " + std::to_string(i + 1) + ": " + violation.text);
        }
    }
    if (!differences.empty()) {
        fprintf(stderr, "%s does not hold:\n", file.c_str());
        for (const std::string& line : differences) fprintf(stderr, "%s\n", line.c_str());
        fprintf(stderr, "what the daemon left behind: %s\n", folder.c_str());
        return kFailed;
    }
    if (quiet && !named) {
        std::filesystem::remove_all(folder);
    } else {
        printf("\nwhat the daemon left behind: %s/root/velafs\n", folder.c_str());
    }
    return 0;
}

// A line for each shipped scenario, in order of their names.
int listScenarios() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(LAB_DATA_DIR "/scenarios")) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
        printf("%-28s %s\n", file.stem().c_str(), readScenario(file).about.c_str());
    }
    printf("\nthey are in %s\n", LAB_DATA_DIR "/scenarios");
    return 0;
}

int replayRecord(const std::string& folder, const std::string& profile) {
    const ReplayResult result = replay(folder, profile);
    for (const std::string& line : describeReplay(result)) printf("%s\n", line.c_str());
    return result.agrees() ? 0 : kFailed;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Boots the daemon on simulated devices, in virtual time.");
    app.require_subcommand(1);
    CLI::App* runCommand = app.add_subcommand("run", "run a scenario and check what it expects");
    std::string file;
    std::string folder;
    bool quiet = false;
    bool effects = false;
    runCommand->add_option("scenario", file, "the scenario, a YAML file")->required();
    runCommand->add_option("--out", folder, "keep the run in this folder (missing or empty)");
    runCommand->add_flag("--quiet", quiet, "print only what does not hold");
    runCommand->add_flag("--effects", effects,
                         "print the lines that a scenario's timeline expects");
    CLI::App* listCommand = app.add_subcommand("list", "list the shipped scenarios");
    CLI::App* sagaCommand =
            app.add_subcommand("saga",
                               "run random scenarios under faults and check what must always hold");
    SagaOrder order;
    order.folder = ".";
    std::string boots = "all";
    sagaCommand->add_option("--seed", order.seed, "of the first scenario")->capture_default_str();
    sagaCommand->add_option("--count", order.count, "how many scenarios")->required();
    sagaCommand->add_option("--jobs", order.jobs, "processes")
            ->check(CLI::Range(1, 256))
            ->capture_default_str();
    sagaCommand->add_flag("--until-broken", order.untilBroken,
                          "end each process at its first broken rule");
    sagaCommand->add_option("--boots", boots, "all kinds, or only 'healthy' or 'stalled' ones")
            ->check(CLI::IsMember({"all", "healthy", "stalled"}))
            ->capture_default_str();
    sagaCommand->add_option("--out", order.folder, "where a scenario that breaks a rule is written")
            ->capture_default_str();
    CLI::App* replayCommand =
            app.add_subcommand("replay", "boot today's daemon on what a device recorded");
    std::string left;
    std::string profile;
    replayCommand->add_option("folder", left, "a copy of the device's persistent partition")
            ->required();
    replayCommand->add_option("--profile", profile, "the device's boot profile, if it was pulled");
    CLI::App* attributionCommand = app.add_subcommand("attribution",
                                                      "count how often the daemon names what "
                                                      "hangs, and acts on a slow boot");
    uint64_t seed = 1;
    int count = 2000;
    int jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    bool markdown = false;
    attributionCommand->add_option("--seed", seed, "of the boots; 1 if not said");
    attributionCommand
            ->add_option("--count", count, "of stalls, and of slow boots; 2000 if not said")
            ->check(CLI::Range(1, 1000000));
    attributionCommand->add_option("--jobs", jobs, "processes at a time; one a core if not said")
            ->check(CLI::Range(1, 1000000));
    attributionCommand->add_flag("--markdown", markdown, "print the tables as Markdown");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    if (listCommand->parsed()) return listScenarios();
    if (sagaCommand->parsed()) {
        if (boots == "healthy") order.boots = Boots::HEALTHY;
        if (boots == "stalled") order.boots = Boots::STALLED;
        return runSagas(order);
    }
    if (replayCommand->parsed()) return replayRecord(left, profile);
    if (attributionCommand->parsed()) {
        for (const std::string& line : measureAttribution(seed, count, jobs, markdown)) {
            printf("%s\n", line.c_str());
        }
        return 0;
    }
    return run(file, folder, quiet || effects, effects);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        lab::requireDeviceRoot(argv);
        return runCommandLine(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", error.what());
        return kFailed;
    }
}
