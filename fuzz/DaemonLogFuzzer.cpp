// SPDX-License-Identifier: Apache-2.0
// Captured logs: the daemon's lines in them, its runs and boots, and the boot that is rebuilt.

#include <stdexcept>

#include "fuzz/FuzzDevice.h"
#include "lab/replay/Rebuild.h"
#include "report/read/Boots.h"
#include "report/read/DaemonLog.h"

using namespace fuzz;

namespace {

// However a log is cut into pieces, its lines are the same; of a very long one the end is dropped.
void expectSameInPieces(const std::string& log, const std::vector<report::DaemonLine>& lines) {
    report::DaemonLineReader reader;
    for (size_t at = 0; at < log.size(); at += 7) reader.add(std::string_view(log).substr(at, 7));
    const std::vector<report::DaemonLine> read = reader.finish();
    if (reader.leftOut() != 0) return;
    expectEqual("the number of lines", static_cast<long>(read.size()),
                static_cast<long>(lines.size()));
    for (size_t i = 0; i < lines.size(); ++i) {
        expectEqual("a line's number", read[i].number, lines[i].number);
        expectEqual("a line's time", read[i].ms, lines[i].ms);
        const std::string& text = read[i].text;
        if (lines[i].text.compare(0, text.size(), text) != 0) fault("a line has another text");
    }
}

}  // namespace

// Texts: the log, then, where they are there, a boot profile, history and records.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> input = texts(data, size);
    const auto text = [&](size_t i) {
        return i < input.size() ? std::optional<std::string>(input[i]) : std::nullopt;
    };
    const std::vector<report::DaemonLine> lines = report::daemonLines(input[0]);
    expectSameInPieces(input[0], lines);
    const std::vector<report::DaemonRun> runs = report::daemonRuns(lines);
    size_t count = 0;
    for (const report::DaemonRun& run : runs) {
        for (const report::DaemonLine& line : run.lines) {
            if (run.secondsOf(line) < 0) fault("a run's clock goes back");
            ++count;
        }
    }
    if (count != lines.size()) fault("lines are lost between the runs");
    if (report::bootsOfLines(lines).size() != runs.size()) fault("runs are lost");
    if (input.size() > 1) report::milestonesOf(input[1]);

    lab::Remains remains;
    remains.history = text(2);
    remains.records = text(3);
    try {
        const lab::RebuiltBoot boot = lab::rebuildBoot(runs, remains, text(1));
        for (const int64_t at : {int64_t{0}, boot.recorded.at})
            boot.scenario.boots[0].profile.at(at);
    } catch (const std::runtime_error&) {
        // nothing that could be rebuilt
    }
    return 0;
}
