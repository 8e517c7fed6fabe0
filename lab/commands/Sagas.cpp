// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab sagas`: runs random scenarios under faults against the rules.

#include "lab/random/Sagas.h"

#include <inttypes.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/text/Printable.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/base/Text.h"
#include "lab/commands/Commands.h"
#include "lab/scenario/ProfileScript.h"

namespace lab {

namespace {

struct Options : SagaOrder {
    std::string which = "all";
    std::string shard;               // empty: all, and no file for the result
    std::vector<std::string> merge;  // results; empty: a search
    std::string out = ".";           // for scenarios and the result
    std::string around = kPlatformNames[0];
    CageOptions cage;
};

void print(const std::string& line) {
    printf("%s\n", text::printable(line).c_str());
    fflush(stdout);
}

int wrongUsage(const std::string& why) {
    fprintf(stderr, "bootvigil-lab: %s\n", text::printable(why).c_str());
    return CommandLine::kWrongUsage;
}

// "3/8"; false for any other text.
bool readShard(const std::string& text, SagaOrder& order) {
    int read = 0;
    const bool two = sscanf(text.c_str(), "%9" SCNu64 "/%9" SCNu64 "%n", &order.part, &order.parts,
                            &read) == 2;
    return two && static_cast<size_t>(read) == text.size() && order.part >= 1 &&
           order.part <= order.parts && order.parts <= order.count;
}

// The worst finding's scenario goes to `options.out` if `run` shows there what the search has seen;
// else its seed is all that is kept.
void keepWorst(const std::string& file, const Options& options, SagaResult& result) {
    const SagaFinding worst = result.findings.front();
    if (worst.status != kSagaDifferent) {
        const Scenario scenario = readScenario(file);
        Cage cage(options.cage, 1);
        const int status =
                cage.run([&](const std::string& folder) { return runAgain(scenario, folder); });
        if (status != worst.status) {
            result.worstDoesNotRepeat();
            return print(
                    format("seed %ju is kept: its scenario does not show it again", worst.seed));
        }
    }
    const std::string path = options.out + format("/saga-%ju.yaml", worst.seed);
    writeFile(path, readFile(file));
    print(path + (worst.status == kSagaDifferent ? ": two runs of it differ"
                                                 : ": bootvigil-lab run " + path + " shows it"));
}

int finish(const SagaResult& result) {
    for (const std::string& line : result.describe()) print(line);
    return result.status();
}

int search(const Options& options) {
    ProfileScript::healthy();  // is read from a file
    Cage cage(options.cage, options.jobs);
    const int status = cage.run([&](const std::string& folder) {
        runSagas(options, folder);
        return 0;
    });
    if (status != 0) return status;
    return orLabFailed([&] {
        const TemporaryFolder left;
        cage.copyOut("out", left.path());
        SagaResult result = readResult(left.path() + "/" + kSagaResult);
        const std::string worst = left.path() + "/" + kSagaScenario;
        if (fileExists(worst)) keepWorst(worst, options, result);
        if (!options.shard.empty()) {
            const std::string path = options.out + format("/sagas-%ju-%ju-of-%ju.json", result.seed,
                                                          result.part, result.parts);
            writeResult(result, path);
            print("result: " + path);
        }
        return finish(result);
    });
}

int searchOrMerge(Options& options) {
    if (!options.merge.empty()) {
        if (!options.shard.empty()) return wrongUsage("--merge and --shard exclude one another");
        try {
            return finish(mergeResults(options.merge));
        } catch (const std::runtime_error& error) {
            return wrongUsage(error.what());
        }
    }
    if (!options.shard.empty() && !readShard(options.shard, options)) {
        return wrongUsage("--shard: \"" + options.shard +
                          "\" is no part of the scenarios, as in 3/8");
    }
    const auto* const boots =
            std::find(std::begin(kBootsNames), std::end(kBootsNames), options.which);
    options.boots = static_cast<Boots>(boots - std::begin(kBootsNames));
    if (options.around == kPlatformNames[1]) options.platform = PlatformKind::REFERENCE;
    return search(options);
}

}  // namespace

void addSagas(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    Command& command =
            line.add("sagas", "run random scenarios under faults and check what must always hold");
    command.number("--seed", options->seed, "of the first scenario")
            .number("--count", options->count, "how many scenarios")
            .count("--jobs", options->jobs, 256, "processes")
            .text("--shard", options->shard,
                  "K/N: run the Kth of N parts, and write its result to a file")
            .texts("--merge", options->merge, "add up the results of all parts instead")
            .flag("--until-broken", options->untilBroken,
                  "start no scenario after the first broken rule")
            .choice("--boots", options->which, {std::begin(kBootsNames), std::end(kBootsNames)},
                    "which kinds of boots")
            .choice("--platform", options->around, {kPlatformNames[0], kPlatformNames[1]},
                    "what runs around the daemon")
            .text("--out", options->out,
                  "where a scenario that breaks a rule is written, and the result of a part")
            .exits({{0, "every rule held"},
                    {kSagaNotRun, "no rule was broken, but a scenario could not be run"},
                    {CommandLine::kWrongUsage, "wrong usage, or results that don't add up"},
                    {kLabFailed, "the lab failed"},
                    {kSagaCrash, "a boot crashed as nothing allows"},
                    {kSagaLiveness, "a boot did not do what was due"},
                    {kSagaRule, "a boot did what it must not"},
                    {kSagaDifferent, "a second run of a scenario differed"},
                    {kSagaNotRepeated, "a rule was broken, but not when the scenario ran again"}});
    addCageOptions(command, options->cage);
    command.does([options] { return searchOrMerge(*options); });
}

}  // namespace lab
