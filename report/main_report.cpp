// SPDX-License-Identifier: Apache-2.0
// bootvigil-report: shows what the daemon left on a device's persistent partition.

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "Formats.h"
#include "Report.h"

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
};

// Prints one line of JSON a folder, in the order given, from several threads. A thread that is far
// ahead waits, so that memory does not depend on the number of folders.
class Fleet {
public:
    Fleet(const std::vector<std::string>& folders, size_t threads)
        : mFolders(folders), mAhead(threads * 4), mProgress(isatty(STDERR_FILENO) != 0) {}

    // True when every folder was readable.
    bool run(size_t threads) {
        std::vector<std::thread> workers;
        for (size_t i = 0; i < threads; ++i) workers.emplace_back([this] { work(); });
        for (std::thread& worker : workers) worker.join();
        if (mProgress) fprintf(stderr, "\r%*s\r", 40, "");
        return mReadable;
    }

private:
    void work() {
        for (;;) {
            size_t index = 0;
            {
                std::unique_lock<std::mutex> lock(mLock);
                mChanged.wait(lock, [this] { return mNext < mPrinted + mAhead; });
                if (mNext == mFolders.size()) return;
                index = mNext++;
            }
            const Report report = readReport(mFolders[index]);
            finish(index, dump(toJson(report)), report.readable);
        }
    }

    void finish(size_t index, std::string line, bool readable) {
        const std::lock_guard<std::mutex> lock(mLock);
        mReadable = mReadable && readable;
        mWaiting.emplace(index, std::move(line));
        while (!mWaiting.empty() && mWaiting.begin()->first == mPrinted) {
            puts(mWaiting.begin()->second.c_str());
            mWaiting.erase(mWaiting.begin());
            ++mPrinted;
        }
        if (mProgress) {
            static constexpr size_t kWidth = 20;
            const size_t done = mPrinted * kWidth / mFolders.size();
            fprintf(stderr, "\r[%s%s] %zu of %zu", std::string(done, '#').c_str(),
                    std::string(kWidth - done, ' ').c_str(), mPrinted, mFolders.size());
        }
        mChanged.notify_all();
    }

    const std::vector<std::string>& mFolders;
    const size_t mAhead;
    const bool mProgress;
    std::mutex mLock;
    std::condition_variable mChanged;
    size_t mNext = 0;     // folder to be read next
    size_t mPrinted = 0;  // folders printed
    std::map<size_t, std::string> mWaiting;
    bool mReadable = true;
};

int showFleet(const Options& options) {
    const size_t threads =
            std::clamp<size_t>(std::thread::hardware_concurrency(), 1, options.folders.size());
    return Fleet(options.folders, threads).run(threads) ? 0 : kNothingReadable;
}

int showOne(const Options& options) {
    Report report = readReport(options.folders.front());
    if (!options.compare.empty()) report.comparison = readComparison(options.compare);
    if (!options.html.empty()) writePage(report, options.html);
    if (!options.perfetto.empty()) writeWhole(options.perfetto, toPerfetto(report));
    if (options.json) {
        puts(dump(toJson(report)).c_str());
    } else if (options.html.empty() && options.perfetto.empty()) {
        fputs(toText(report).c_str(), stdout);
    }
    return report.readable ? 0 : kNothingReadable;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Shows what the daemon left on a device's persistent partition.");
    Options options;
    app.add_option("folder", options.folders,
                   "a copy of the partition (adb pull /velafs), or the folder of a lab's run")
            ->required();
    app.add_option("--html", options.html, "write one self-contained page to this file");
    app.add_option("--perfetto", options.perfetto,
                   "write the timeline as trace events to this file");
    app.add_option("--compare", options.compare, "a good boot's profile, shown beside the boots");
    app.add_flag("--json", options.json, "print one JSON object a folder, each on one line");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    if (options.folders.size() == 1) return showOne(options);
    if (!options.json || !options.html.empty() || !options.perfetto.empty()) {
        fprintf(stderr, "bootvigil-report: several folders go with --json alone\n");
        return kWrongUsage;
    }
    return showFleet(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runCommandLine(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-report: %s\n", error.what());
        return kNothingReadable;
    }
}
