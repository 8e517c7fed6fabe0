// SPDX-License-Identifier: Apache-2.0
// The program's command line. Only CommandLine.cpp includes the library that reads it, because that
// takes ten seconds to compile.

#pragma once

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace lab {

// The options of one command. Each is bound to the variable that it sets and whose value is its
// default; the variable must outlive the command line.
class Command {
public:
    explicit Command(CLI::App& app) : mApp(app) {}

    // At least one has to be given, by its place.
    Command& arguments(const std::string& name, std::vector<std::string>& values,
                       const std::string& about);

    Command& texts(const std::string& name, std::vector<std::string>& values,
                   const std::string& about);
    Command& text(const std::string& name, std::string& value, const std::string& about);
    Command& choice(const std::string& name, std::string& value,
                    const std::vector<std::string>& values, const std::string& about);
    Command& flag(const std::string& name, bool& value, const std::string& about);
    Command& number(const std::string& name, uint64_t& value, const std::string& about);
    // From 1 to `most`.
    Command& count(const std::string& name, int& value, int most, const std::string& about);

    // What each exit status means, for --help.
    Command& exits(const std::vector<std::pair<int, std::string>>& statuses);

    // What the command does; gives the exit status. May throw std::exception.
    void does(std::function<int()> action);

    std::function<int()> action() const {
        return mAction;
    }

private:
    CLI::App& mApp;
    std::function<int()> mAction;
};

class CommandLine {
public:
    // Exit status of a command line that can't be understood.
    static constexpr int kWrongUsage = 2;

    explicit CommandLine(const std::string& about);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    Command& add(const std::string& name, const std::string& about);

    // Runs the command that was called and gives its exit status; says what is wrong where there is
    // none.
    int run(int argc, char** argv);

private:
    std::unique_ptr<CLI::App> mApp;
    std::vector<std::unique_ptr<Command>> mCommands;
};

}  // namespace lab
