// SPDX-License-Identifier: Apache-2.0
// What makes two hangs the same hang. docs/fleet.md has the rules with examples.

#pragma once

#include <string>
#include <string_view>

#include "report/read/Report.h"

namespace fleet {

// Of the rules below. Rows of older rules are grouped again by newer ones.
constexpr int kSignatureRules = 1;

struct Signature {
    const char*
            kind;  // stall, loop, system-error, wizard, after-boot, kept-log, animation, unknown
    std::string text;  // "stall in the system server after AMS:systemReady by system_server"
};

// How much of the last event came through.
enum class EventText {
    WHOLE,
    CUT,  // at its first colon, as in an upload
};

Signature signatureOf(const report::ErrorNumber& number, const std::string& lastEvent,
                      EventText text = EventText::WHOLE);

// Where no error number tells: "unknown: WHY".
Signature unknownSignature(const std::string& why);

// The name of an event or a process without what differs from boot to boot and from device to
// device: pids, counts, durations, addresses, generated names.
std::string generalName(std::string_view name);

}  // namespace fleet
