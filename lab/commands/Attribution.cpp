// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab attribution`: counts how often the daemon names what hangs.

#include "lab/random/Attribution.h"

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

#include <CLI/CLI.hpp>

#include "lab/commands/Commands.h"

namespace lab {

namespace {

struct Options {
    uint64_t seed = 1;
    int count = 2000;
    int jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    bool markdown = false;
};

void printAttribution(const Options& options) {
    const auto lines =
            measureAttribution(options.seed, options.count, options.jobs, options.markdown);
    for (const std::string& line : lines) printf("%s\n", line.c_str());
}

}  // namespace

void addAttribution(CLI::App& app, int& /* status */) {
    CLI::App* command = app.add_subcommand("attribution",
                                           "count how often the daemon names what hangs, and acts "
                                           "on a slow boot");
    const auto options = std::make_shared<Options>();
    const CLI::Range positive(1, 1000000);
    command->add_option("--seed", options->seed, "of the boots")->capture_default_str();
    command->add_option("--count", options->count, "of stalls, and of slow boots")
            ->check(positive)
            ->capture_default_str();
    command->add_option("--jobs", options->jobs, "processes at a time; by default one per core")
            ->check(positive);
    command->add_flag("--markdown", options->markdown, "print the tables as Markdown");
    command->callback([options] { printAttribution(*options); });
}

}  // namespace lab
