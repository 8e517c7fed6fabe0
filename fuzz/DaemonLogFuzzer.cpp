// SPDX-License-Identifier: Apache-2.0
// Captured logs: the daemon's lines in them, its runs and boots, and the boot that is rebuilt.

#include <stdexcept>

#include "fuzz/FuzzDevice.h"
#include "lab/replay/Rebuild.h"
#include "report/read/Boots.h"
#include "report/read/DaemonLog.h"

using namespace fuzz;

// Texts: the log, then, where they are there, a boot profile, history and records.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> input = texts(data, size);
    const auto text = [&](size_t i) {
        return i < input.size() ? std::optional<std::string>(input[i]) : std::nullopt;
    };
    const std::vector<report::DaemonLine> lines = report::daemonLines(input[0]);
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
