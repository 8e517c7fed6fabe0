// SPDX-License-Identifier: Apache-2.0
// History, override list and disable file through runRecovery, against a model of it.

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <stdexcept>

#include "bootvigil/BfRecovery.h"
#include "bootvigil/BootState.h"
#include "fuzz/FuzzDevice.h"
#include "lab/base/DevicePaths.h"
#include "lab/rules/Reading.h"

using namespace fuzz;
using namespace lab;

namespace {

using Text = std::optional<std::string>;

struct Model {
    Text history;
    Text list;
    bool disabled = false;
    char reason = 0;
    bool firstBoot = false;

    std::string modes, table = "00000";
    bool reboots = false;
    bool resets = false;

    std::string firstLine() const {
        return history ? history->substr(0, history->find('\n')) : "0";
    }

    // As the daemon's runRecovery. Throws MustEnd where a line of the list ends the process.
    int run(int error) {
        if (error == 0 || disabled) return 0;
        if (!firstBoot && firstLine().size() > 1 && firstLine()[1] == '5') history.reset();
        if (list) {
            modes = table = readOverride(linesOf(*list), error).value_or(table);
        } else {
            modes = defaultActions(error).value_or(modes);
        }
        const std::string line = firstLine();
        if (modes.empty() || line.empty() || line[0] < '0' || line[0] > '4') return 0;
        const size_t step = static_cast<size_t>(line[0] - '0');
        const int mode = digitAt(modes, step);
        if (mode <= 0) return 0;
        history = std::to_string(step + 1) + std::to_string(mode) + reason;
        reboots |= mode == 1;
        resets |= mode == 5 && !firstBoot;
        if (mode == 5 && firstBoot) history.reset();
        return mode == 1 || mode == 2 || mode == 5 ? 1 : 0;
    }
};

// The daemon's table of modes lives as long as the process: this clears it.
void clearTable() {
    setBFReason(1);
    setProperty("ro.vela.bfRecovery.support", "1");
    write(kSwitch, std::nullopt);
    write(kHistory, std::nullopt);
    write(kOverride, "1|00000\n");
    BfRecovery().runRecovery(1, true);
}

}  // namespace

// Texts: reasons of two failures of one run, "1" for a first boot, ro.vela.bfRecovery.support,
// persist.sys.enable_rescue, the cached reason; then history, list, disable file; "<none>" is none.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> input = texts(data, size);
    if (input.size() < 6) return -1;
    const auto text = [&](size_t i) {
        return i < input.size() && input[i] != "<none>" ? Text(input[i]) : std::nullopt;
    };
    Watch watch;
    clearTable();
    Model model;
    model.firstBoot = input[2] == "1";
    model.reason = static_cast<char>(atoi(input[5].c_str()) | 1);  // 0 would ask a property
    model.history = text(6);
    model.list = text(7);
    const Text disable = text(8);
    const std::vector<std::string> lines = linesOf(disable.value_or(""));
    const bool rescue = propertyValue(input[4], "false") == "true" &&
                        (model.reason == 120 || model.reason == 20);
    model.disabled = rescue || atoi(propertyValue(input[3], "1").c_str()) != 1 ||
                     std::find(lines.begin(), lines.end(), "BfRecover=NO") != lines.end();

    setProperty("ro.vela.bfRecovery.support", input[3]);
    setProperty("persist.sys.enable_rescue", input[4]);
    setProperty(kRebootRequest, std::nullopt);
    setProperty(kResetRequest, std::nullopt);
    setBFReason(static_cast<uint8_t>(model.reason));
    write(kHistory, model.history);
    write(kOverride, model.list);
    write(kSwitch, disable);

    BfRecovery recovery;
    for (size_t failure = 0; failure < 2; ++failure) {
        const int error = atoi(input[failure].c_str());
        int expected = -1;  // the process ends
        int result = -1;
        try {
            expected = model.run(error);
        } catch (const MustEnd&) {
        }
        try {
            result = recovery.runRecovery(error, model.firstBoot) ? 1 : 0;
        } catch (const std::out_of_range&) {
        }
        expectEqual("the result", result, expected);
        expectEqual("the history", read(kHistory), model.history.value_or("<missing>"));
        expectEqual("the reboot request",
                    read("/dev/__properties__/" + std::string(kRebootRequest)),
                    model.reboots ? "1" : "<missing>");
        expectEqual("the reset request", read("/dev/__properties__/" + std::string(kResetRequest)),
                    model.resets ? "1" : "<missing>");
        if (result < 0) return 0;
    }
    return 0;
}
