// SPDX-License-Identifier: Apache-2.0
// Which hangs are the same: the examples of the documentation, and the events of a real boot.

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

#include "fleet/rows/Signature.h"

namespace {

using fleet::EventText;
using fleet::generalName;

std::string signatureOf(const std::string& number, const std::string& lastEvent,
                        EventText text = EventText::WHOLE) {
    const auto code = strtoul(number.c_str(), nullptr, 16);
    return fleet::signatureOf(report::decodeErrorNumber(code), lastEvent, text).text;
}

TEST(Signature, IsThatOfEachExampleInTheDocumentation) {
    std::ifstream file(FLEET_DOCUMENT);
    size_t examples = 0;
    std::string number;
    std::string event;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("0x", 0) == 0) {
            number = line.substr(0, line.find(' '));
            event = line.substr(std::min(line.size(), number.size() + 1));
        } else if (!number.empty() && line.rfind("    ", 0) == 0) {
            EXPECT_EQ(signatureOf(number, event), line.substr(4)) << event;
            number.clear();
            ++examples;
        }
    }
    EXPECT_GE(examples, 20U);
}

TEST(Signature, OfAnUploadSaysThatItsEventIsCut) {
    EXPECT_EQ(signatureOf("0x502564", "1113-system_server  | AMS", EventText::CUT),
              "stall in the system server after AMS… by system_server");
    // The colon was the process's.
    EXPECT_EQ(signatureOf("0x502564", "1252-Binder", EventText::CUT),
              "stall in the system server after … by Binder");
}

// Two boots differ in pids, durations and counts; a device in its events.
TEST(Signature, IsTheSameOfTwoBootsAndAnotherOfEachEvent) {
    std::ifstream profile(HEALTHY_PROFILE);
    std::set<std::string> names;
    size_t events = 0;
    for (std::string line; std::getline(profile, line);) {
        const size_t bar = line.find(" : ");
        const size_t name = bar == std::string::npos ? bar : line.find(": ", bar + 3);
        if (name == std::string::npos) continue;
        const std::string event = line.substr(name + 2);
        std::string other = event;
        for (const std::string was : {"pid:1", "ms", "7590", "rtn =1"}) {
            const size_t at = other.rfind(was);
            if (at == std::string::npos) continue;
            if (was == "ms" && (at == 0 || !isdigit(static_cast<unsigned char>(other[at - 1])))) {
                continue;
            }
            other.replace(at, was.size(), was == "ms" ? "4ms" : was + "2");
        }
        EXPECT_EQ(generalName(event), generalName(other));
        names.insert(generalName(event));
        ++events;
    }
    EXPECT_GT(events, 60U);
    // Classes and resources are preloaded twice, and one more process is started by two components.
    EXPECT_GE(names.size() + 6, events);
}

TEST(Signature, NameStaysShortAndPrintable) {
    EXPECT_EQ(generalName("a\x1b[2J\n"), "a\\x1b[#J\\x0a");
    EXPECT_LE(generalName(std::string(10000, 'x')).size(), 96U);
    EXPECT_EQ(generalName("release 2.14.7, 3,500 files"), "release #, # files");
    EXPECT_EQ(generalName("thread1234 v7a deadbeef cafe0001"), "thread# v7a deadbeef #");
}

}  // namespace
