// SPDX-License-Identifier: Apache-2.0
// Turns sources into rows, several copies at a time, in memory that does not grow with their
// number.

#include "fleet/intake/Intake.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <deque>
#include <exception>
#include <future>
#include <new>
#include <stdexcept>
#include <utility>

#include "common/text/Printable.h"
#include "fleet/intake/Sources.h"
#include "fleet/rows/Uploads.h"
#include "report/read/ReadReport.h"

namespace fleet {

namespace {

constexpr size_t kBatch = 16;  // copies that one thread reads before it ends

struct Stopped {};

// Of the folder, or of the partition where it lies there.
Identity identityAt(const report::Report& report) {
    std::string error;
    const report::Folder folder(report.path, error);
    for (const report::Folder* place : {&folder, &report.partition}) {
        if (place->has("device.json")) return readIdentity(*place);
    }
    return {};
}

Rows readCopy(const Source& source) {
    report::Report report;
    try {
        report = report::readReport(source.path);
        return rowsOf(report, identityAt(report), source.name);
    } catch (const std::exception& error) {
        const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
        report::Report nothing;
        nothing.path = source.path;
        nothing.problems = {{source.path, memory ? "not enough memory" : error.what()}};
        return rowsOf(nothing, {}, source.name);
    }
}

std::vector<Rows> readCopies(const std::vector<Source>& sources) {
    std::vector<Rows> rows;
    for (const Source& source : sources) rows.push_back(readCopy(source));
    return rows;
}

}  // namespace

Intake::Intake(int jobs, Take take, Complain complain)
    : mJobs(jobs), mTake(std::move(take)), mComplain(std::move(complain)) {}

Intake::Count Intake::run(const std::vector<std::string>& paths) {
    using Batch = std::vector<Source>;
    std::deque<std::future<std::vector<Rows>>> running;
    Batch batch;
    const auto takeFirst = [&] {
        for (const Rows& rows : running.front().get()) {
            ++mCount.copies;
            if (rows.devices.front().state == "unreadable") {
                ++mCount.unreadable;
                mComplain(rows.devices.front().path + ": holds no partition that can be read");
            }
            mTake(rows);
        }
        running.pop_front();
    };
    const auto start = [&] {
        if (batch.empty()) return;
        // Where no further thread can be had, the caller's reads.
        constexpr auto kHow = std::launch::async | std::launch::deferred;
        running.push_back(std::async(kHow, readCopies, std::exchange(batch, {})));
        if (running.size() > static_cast<size_t>(mJobs)) takeFirst();
    };
    const auto finishAll = [&] {
        start();
        while (!running.empty()) takeFirst();
    };
    try {
        for (const std::string& path : paths) {
            const std::string wrong = findSources(path, [&](Source source) {
                if (mStopped) throw Stopped();
                if (source.kind == Source::Kind::LINES) return takeLines(source.path);
                batch.push_back(std::move(source));
                if (batch.size() == kBatch) start();
            });
            if (wrong.empty()) continue;
            ++mCount.failed;
            mComplain(wrong);
        }
    } catch (const Stopped&) {
        batch.clear();
    }
    finishAll();
    return mCount;
}

void Intake::takeLines(const std::string& path) {
    constexpr size_t kMostComplaints = 5;
    const bool isInput = path == "-";
    const report::File opened(isInput ? nullptr : fopen(path.c_str(), "rbe"));
    FILE* file = isInput ? stdin : opened.get();
    const auto fail = [&] {
        ++mCount.failed;
        mComplain(path + ": " + strerror(errno));
    };
    if (file == nullptr) return fail();
    uint64_t number = 0;
    uint64_t refused = 0;
    report::LineCutter cutter(kMostOfLine + 1, [&](std::string_view line) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
        Rows rows;
        try {
            rows = rowsOfLine(line);
        } catch (const std::exception& error) {
            if (refused++ >= kMostComplaints) return;
            mComplain(path + ":" + std::to_string(number) + ": " + error.what());
            return;
        }
        ++mCount.lines;
        mTake(rows);
    });
    std::vector<char> piece(64 << 10);
    while (const size_t size = fread(piece.data(), 1, piece.size(), file)) {
        cutter.add({piece.data(), size});
        if (mStopped) throw Stopped();
    }
    if (ferror(file) != 0) fail();
    cutter.finish();
    mCount.refused += refused;
    if (refused <= kMostComplaints) return;
    mComplain(path + ": " + text::grouped(refused - kMostComplaints) + " more lines were refused");
}

}  // namespace fleet
