// SPDX-License-Identifier: Apache-2.0
// bootvigil-fleet: what many devices left behind, as one answer.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/text/Printable.h"
#include "common/version/Version.h"
#include "fleet/intake/Intake.h"
#include "fleet/rows/Identity.h"
#include "fleet/rows/Uploads.h"
#include "fleet/show/Json.h"
#include "fleet/show/Text.h"
#include "fleet/store/ClickHouse.h"
#include "fleet/store/Sqlite.h"
#include "fleet/tables/Tables.h"

namespace {

using namespace fleet;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kStopped = 130;

struct Options {
    std::string database;
    std::string cluster;  // its URL, instead of a database
    int timeout = 300;    // seconds
    std::vector<std::string> paths;
    int jobs = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    std::string table;
    Choice choice;
    bool json = false;
    std::string csv;
};

std::string describe(const std::exception& error) {
    const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return memory ? "not enough memory" : error.what();
}

// Throws std::runtime_error when not all of it arrives.
void print(const std::string& text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0 ||
        ferror(stdout) != 0) {
        throw std::runtime_error(std::string("standard output: ") + strerror(errno));
    }
}

// A line on a terminal that says how far the intake has come.
class CountLine {
public:
    void add() {
        ++mDone;
        if (!mShown) return;
        const auto now = std::chrono::steady_clock::now();
        if (now < mNext) return;
        mNext = now + std::chrono::milliseconds(200);
        const double seconds = std::chrono::duration<double>(now - mStarted).count();
        const auto rate = static_cast<size_t>(static_cast<double>(mDone) / seconds);
        fprintf(stderr, "\r\033[K%s read, %s a second", text::grouped(mDone).c_str(),
                text::grouped(rate).c_str());
    }
    void clear() {
        if (mShown) fprintf(stderr, "\r\033[K");
    }

private:
    const bool mShown = isatty(STDERR_FILENO) != 0;
    const std::chrono::steady_clock::time_point mStarted = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mNext = mStarted + std::chrono::milliseconds(200);
    size_t mDone = 0;
};

Intake* gIntake = nullptr;  // that a signal stops

// Feeds rows to `take`; what has begun when a signal comes is finished. Gives the exit status.
int takeIn(const Options& options, const Intake::Take& take, Intake::Count& count) {
    CountLine line;
    const auto complain = [&](const std::string& what) {
        line.clear();
        fprintf(stderr, "bootvigil-fleet: %s\n", text::printable(what).c_str());
    };
    Intake intake(
            options.jobs,
            [&](const Rows& rows) {
                take(rows);
                line.add();
            },
            complain);
    gIntake = &intake;
    struct sigaction action = {};
    action.sa_handler = [](int) { gIntake->stop(); };
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one ends at once
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
    count = intake.run(options.paths);
    line.clear();
    if (intake.stopped()) return kStopped;
    return count.failed + count.refused + count.unreadable > 0 ? kFailed : 0;
}

std::string counted(uint64_t number, const char* one, const char* many) {
    return text::grouped(number) + " " + (number == 1 ? one : many);
}

int add(const Options& options) {
    constexpr size_t kBatch = 500;  // copies or lines of one transaction
    Sqlite store(options.database, Sqlite::Use::WRITE);
    size_t added = 0;
    Intake::Count count;
    const auto take = [&](const Rows& rows) {
        store.add(rows);
        if (++added % kBatch == 0) store.commit();
    };
    const int status = takeIn(options, take, count);
    store.commit();
    std::string said = counted(count.copies, "copy", "copies") + " and " +
                       counted(count.lines, "line", "lines") + " added";
    if (count.unreadable > 0) said += "; " + text::grouped(count.unreadable) + " unreadable";
    if (count.refused > 0) said += "; " + counted(count.refused, "line", "lines") + " refused";
    if (status == kStopped) said += "; stopped: the same command goes on";
    fprintf(stderr, "bootvigil-fleet: %s\n", said.c_str());
    return status;
}

int rows(const Options& options) {
    Intake::Count count;
    return takeIn(
            options,
            [&](const Rows& rows) {
                std::string lines;
                if (options.table != "episodes") {
                    for (const DeviceRow& row : rows.devices) lines += toLine(row);
                }
                if (options.table != "devices") {
                    for (const EpisodeRow& row : rows.episodes) lines += toLine(row);
                }
                print(lines);
            },
            count);
}

std::unique_ptr<Store> storeOf(const Options& options) {
    if (options.cluster.empty()) {
        return std::make_unique<Sqlite>(options.database, Sqlite::Use::READ);
    }
    return std::make_unique<ClickHouse>(options.cluster, options.timeout);
}

int show(const Options& options) {
    const Tables tables = tablesOf(*storeOf(options), options.choice);
    if (options.json) {
        print(toJson(tables));
    } else if (!options.csv.empty()) {
        print(toCsv(tables, options.csv));
    } else {
        print(toText(tables));
    }
    return 0;
}

void addPaths(CLI::App& command, Options& options) {
    command.add_option("path", options.paths,
                       "a copy of a partition, a folder of copies, a file of JSON lines, or - for "
                       "standard input")
            ->required();
    command.add_option("--jobs", options.jobs, "copies that are read at the same time")
            ->check(CLI::Range(1, 1024))
            ->capture_default_str();
}

void addShow(CLI::App& command, Options& options) {
    auto* source = command.add_option_group("source", "of the rows, one of both");
    source->add_option("database", options.database, "that bootvigil-fleet add made");
    source->add_option("--clickhouse", options.cluster,
                       "the URL of a ClickHouse node instead, as http://node:8123");
    source->require_option(1);
    command.add_option("--timeout", options.timeout, "seconds that the node may be silent")
            ->check(CLI::Range(1, 86400))
            ->capture_default_str();
    Choice& choice = options.choice;
    command.add_option("--software", choice.software,
                       "the software in question; by default the newest");
    command.add_option("--against", choice.against,
                       "the software to compare it with; by default all that are older");
    command.add_option_function<std::string>(
            "--since",
            [&choice](const std::string& text) {
                choice.since = utcTime(text);
                if (choice.since.empty()) {
                    throw CLI::ValidationError("--since", "no ISO 8601 time: " + text);
                }
            },
            "only failures since this time, 2026-11-01T00:00:00 or its beginning");
    command.add_option("--country", choice.country, "only devices in this country");
    command.add_option("--signature", choice.signature, "only failures with this signature");
    command.add_option("--level", choice.level, "of error for each table of tests")
            ->check(CLI::Range(1e-9, 0.5))
            ->capture_default_str();
    auto* json = command.add_flag("--json", options.json, "print one JSON object");
    command.add_option("--csv", options.csv, "print one table as comma-separated values")
            ->check(CLI::IsMember(
                    std::vector<std::string>(std::begin(kCsvTables), std::end(kCsvTables))))
            ->excludes(json);
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Groups the failures of many devices and shows what is new.");
    app.set_version_flag("--version", std::string("bootvigil-fleet ") + kVersion,
                         "print the version");
    app.require_subcommand(1);
    app.footer(
            "Exit status:\n"
            "  0   done\n"
            "  1   a path, a copy or a line could not be read, or output not be written\n"
            "  2   wrong usage\n"
            "  130 stopped by a signal; what was read before is kept");
    Options options;
    CLI::App* addCommand = app.add_subcommand("add", "add what devices left to a database");
    addCommand->add_option("database", options.database, "is made where there is none")->required();
    addPaths(*addCommand, options);
    CLI::App* showCommand = app.add_subcommand("show", "show what a database comes to");
    addShow(*showCommand, options);
    CLI::App* rowsCommand =
            app.add_subcommand("rows", "print the rows as JSON lines, for any other engine");
    addPaths(*rowsCommand, options);
    rowsCommand->add_option("--table", options.table, "only the rows of this table")
            ->check(CLI::IsMember({"devices", "episodes"}));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    if (addCommand->parsed()) return add(options);
    return rowsCommand->parsed() ? rows(options) : show(options);
}

}  // namespace

int main(int argc, char** argv) {
    // Writing fails instead, which is said.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    // No file may get the number of a standard stream that is closed.
    int fd = open("/dev/null", O_RDONLY);
    while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_RDONLY);
    close(fd);
    try {
        const int status = runCommandLine(argc, argv);
        print("");  // what CLI11 has written
        return status;
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-fleet: %s\n", text::printable(describe(error)).c_str());
        return kFailed;
    }
}
