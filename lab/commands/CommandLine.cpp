// SPDX-License-Identifier: Apache-2.0
// The program's command line.

#include "lab/commands/CommandLine.h"

#include <algorithm>
#include <utility>

#include <CLI/CLI.hpp>

#include "common/text/Printable.h"
#include "common/version/Version.h"

namespace lab {

Command& Command::arguments(const std::string& name, std::vector<std::string>& values,
                            const std::string& about) {
    mApp.add_option(name, values, about)->required();
    return *this;
}

Command& Command::texts(const std::string& name, std::vector<std::string>& values,
                        const std::string& about) {
    mApp.add_option(name, values, about);
    return *this;
}

Command& Command::text(const std::string& name, std::string& value, const std::string& about) {
    mApp.add_option(name, value, about)->capture_default_str();
    return *this;
}

Command& Command::choice(const std::string& name, std::string& value,
                         const std::vector<std::string>& values, const std::string& about) {
    mApp.add_option(name, value, about)->check(CLI::IsMember(values))->capture_default_str();
    return *this;
}

Command& Command::flag(const std::string& name, bool& value, const std::string& about) {
    mApp.add_flag(name, value, about);
    return *this;
}

Command& Command::number(const std::string& name, uint64_t& value, const std::string& about) {
    mApp.add_option(name, value, about)->capture_default_str();
    return *this;
}

Command& Command::count(const std::string& name, int& value, int most, const std::string& about) {
    mApp.add_option(name, value, about)->check(CLI::Range(1, most))->capture_default_str();
    return *this;
}

Command& Command::exits(const std::vector<std::pair<int, std::string>>& statuses) {
    std::string text = "Exit status:";
    for (const auto& [status, meaning] : statuses) {
        text += "\n  " + std::to_string(status) + (status < 10 ? "   " : "  ") + meaning;
    }
    mApp.footer(text);
    return *this;
}

void Command::does(std::function<int()> action) {
    mAction = std::move(action);
}

CommandLine::CommandLine(const std::string& about) : mApp(std::make_unique<CLI::App>(about)) {
    mApp->require_subcommand(1);
    mApp->set_version_flag("--version", std::string("bootvigil-lab ") + kVersion,
                           "print the version");
    mApp->failure_message([](const CLI::App*, const CLI::Error& error) {
        return "bootvigil-lab: " + text::printable(error.what()) +
               " (--help shows what there is)\n";
    });
}

CommandLine::~CommandLine() = default;

Command& CommandLine::add(const std::string& name, const std::string& about) {
    return *mCommands.emplace_back(std::make_unique<Command>(*mApp->add_subcommand(name, about)));
}

int CommandLine::run(int argc, char** argv) {
    try {
        mApp->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return mApp->exit(error) == 0 ? 0 : kWrongUsage;
    }
    const CLI::App* called = mApp->get_subcommands().front();
    const std::vector<CLI::App*> all = mApp->get_subcommands({});
    const size_t place =
            static_cast<size_t>(std::find(all.begin(), all.end(), called) - all.begin());
    return mCommands[place]->action()();
}

}  // namespace lab
