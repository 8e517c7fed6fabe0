// SPDX-License-Identifier: Apache-2.0
// A failure of a simulated device, and the boots from it until it is cured.

#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "lab/base/Draw.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// What it takes for the next boot to be good.
enum class Cure { REBOOT, USER, RESET, NOTHING };

// By Cure.
constexpr const char* kCureNames[] = {"reboot", "user", "reset", "nothing"};

struct Trouble {
    enum class Kind {
        HANG,           // nothing comes after an event
        TALK,           // likewise, but for another process, which logs on
        LOOP,           // the device starts again and again
        ERROR,          // the platform declares a failure while it boots
        LATE_ERROR,     // likewise after the boot
        KEY_LOCK,       // likewise at the key lock
        ANIMATION,      // stays, although the boot is complete
        LATE_COMPLETE,  // the boot completes in the second after the verdict
    };
    time_t at = 0;  // when its first boot starts, UTC
    Kind kind = Kind::HANG;
    std::string event;  // the last one that comes before it fails
    Cure cure = Cure::REBOOT;
};

// One that comes by itself, at that time.
Trouble drawTrouble(QuickDraw& draw, time_t at);

// How it is cured, where nothing says it.
Cure drawCure(QuickDraw& draw);

// The boots from the first that fails to the good one; without a cure, to the day on which the
// device is given up. `people` decides when they are at the device, `power` where it fails too.
std::vector<Boot> bootsOf(const Trouble& trouble, QuickDraw& people, QuickDraw& power);

}  // namespace lab
