// SPDX-License-Identifier: Apache-2.0
// bootvigil-report: shows what the daemon left on a device's persistent partition.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <exception>
#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/text/Printable.h"
#include "common/version/Version.h"
#include "report/read/ReadReport.h"
#include "report/show/Json.h"
#include "report/show/Page.h"
#include "report/show/Text.h"
#include "report/show/TraceEvents.h"
#include "report/show/WholeFile.h"

namespace {

using namespace report;

constexpr int kNothingReadable = 1;
constexpr int kWrongUsage = 2;

struct Options {
    std::vector<std::string> folders;
    std::string html;
    std::string perfetto;
    std::string compare;
    bool json = false;
    size_t htmlLimit = kMostOfPage >> 20;
};

// Throws std::runtime_error when not all of it arrives.
void print(const std::string& text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0 ||
        ferror(stdout) != 0) {
        throw std::runtime_error(std::string("standard output: ") + strerror(errno));
    }
}

std::string describe(const std::exception& error) {
    const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return memory ? "not enough memory" : error.what();
}

// A folder's line of JSON, and whether the folder was readable.
std::pair<std::string, bool> readLine(const std::string& folder, const std::string& device) {
    Report report;
    try {
        report = readReport(folder);
    } catch (const std::exception& error) {
        report.path = folder;
        report.problems = {{folder, describe(error)}};
    }
    report.device = device;
    return {dump(toJson(report)) + "\n", report.isPartition};
}

void showProgress(size_t done, size_t all) {
    if (isatty(STDERR_FILENO) == 0) return;
    static constexpr size_t kWidth = 20;
    const size_t filled = done * kWidth / all;
    fprintf(stderr, "\r[%s%s] %zu of %zu", std::string(filled, '#').c_str(),
            std::string(kWidth - filled, ' ').c_str(), done, all);
    if (done == all) fprintf(stderr, "\r%*s\r", 40, "");
}

// Prints one line of JSON per folder, in the order given. Twice as many folders as processors are
// read at a time: a slow one keeps no processor waiting, and memory has a bound.
int showFleet(const std::vector<std::string>& folders) {
    // Where no further thread can be had, the main one reads.
    constexpr auto kHow = std::launch::async | std::launch::deferred;
    const size_t most = 2UL * std::max(1U, std::thread::hardware_concurrency());
    std::deque<std::future<std::pair<std::string, bool>>> lines;
    const std::vector<std::string> devices = deviceNames(folders);
    bool readable = true;
    for (size_t started = 0, done = 0; done < folders.size(); ++done) {
        while (started < folders.size() && lines.size() < most) {
            lines.push_back(std::async(kHow, readLine, folders[started], devices[started]));
            ++started;
        }
        const auto [line, wasReadable] = lines.front().get();
        lines.pop_front();
        print(line);
        readable = readable && wasReadable;
        showProgress(done + 1, folders.size());
    }
    return readable ? 0 : kNothingReadable;
}

int showOne(const Options& options) {
    Report report = readReport(options.folders.front());
    if (!options.compare.empty()) report.comparison = readComparison(options.compare);
    if (!options.html.empty()) writePage(report, options.html, options.htmlLimit << 20);
    if (!options.perfetto.empty()) writeWhole(options.perfetto, toTraceEvents(report));
    if (options.json) {
        print(dump(toJson(report)) + "\n");
    } else if (options.html.empty() && options.perfetto.empty()) {
        print(toText(report));
    }
    return report.isPartition ? 0 : kNothingReadable;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Shows what the daemon left on a device's persistent partition.");
    app.set_version_flag("--version", std::string("bootvigil-report ") + kVersion,
                         "print the version");
    Options options;
    app.add_option("folder", options.folders,
                   "a copy of the partition (adb pull /velafs), or the folder of a lab's run")
            ->required();
    app.add_option("--html", options.html, "write one self-contained page to this file");
    app.add_option("--html-limit", options.htmlLimit, "most MiB of the page")
            ->check(CLI::Range(1, 2048))
            ->capture_default_str();
    app.add_option("--perfetto", options.perfetto,
                   "write the timeline as trace events to this file");
    app.add_option("--compare", options.compare, "a good boot's profile, shown beside the boots");
    app.add_flag("--json", options.json, "print one JSON object per folder, each on one line");
    app.footer(
            "Exit status:\n"
            "  0   every folder was a partition, whatever its state\n"
            "  1   one was not, or output could not be written\n"
            "  2   wrong usage");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    if (options.folders.size() == 1) return showOne(options);
    if (!options.json || !options.html.empty() || !options.perfetto.empty()) {
        fprintf(stderr, "bootvigil-report: several folders need --json, and nothing else\n");
        return kWrongUsage;
    }
    return showFleet(options.folders);
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
        fprintf(stderr, "bootvigil-report: %s\n", text::printable(describe(error)).c_str());
        return kNothingReadable;
    }
}
