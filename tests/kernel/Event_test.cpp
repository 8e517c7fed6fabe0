// SPDX-License-Identifier: Apache-2.0
// The kernel module's lines against those who read them: the daemon, and the lab, which prints
// the same text.

#include <stdio.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "bootvigil/Fields.h"
#include "lab/scenario/ProfileScript.h"

extern "C" {
#include "kernel/event.h"
}

namespace {

// How the daemon cuts a line; nothing when it logs an empty field or aborts at a blank one.
std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    bool whole = true;
    try {
        cutFields(
                line, " :", [&](auto field, size_t) { fields.emplace_back(trimField(field)); },
                [&](size_t) { whole = false; });
    } catch (const std::out_of_range&) {
        whole = false;
    }
    return whole ? fields : std::vector<std::string>();
}

// As the kernel prints it.
std::string print(int pid, const char* name, const std::string& text) {
    char columns[EVENT_COLUMNS_MAX];
    snprintf(columns, sizeof(columns), EVENT_TIME EVENT_BY, EVENT_TIME_OF(1500000ULL), pid, name);
    return columns + text;
}

// Every text of up to `size` of these characters.
template <typename Check>
void forEach(const std::string& characters, size_t size, const Check& check,
             const std::string& text = "") {
    check(text);
    for (size_t i = 0; i < characters.size() && text.size() < size; ++i) {
        forEach(characters, size, check, text + characters[i]);
    }
}

TEST(KernelEvent, IsTakenExactlyWhereTheDaemonReadsThreeFieldsOrMore) {
    size_t taken = 0;
    forEach(" :a-\n", 7, [&](const std::string& line) {
        struct event_line event;
        const bool isTaken = event_read(line.data(), line.size(), &event);
        std::string text = line.substr(0, line.size() - (!line.empty() && line.back() == '\n'));
        text.erase(0, text.find_first_not_of(' '));
        const bool isRead =
                text.find('\n') == std::string::npos && fieldsOf(print(7, "x", text)).size() >= 3;
        ASSERT_EQ(isTaken, isRead) << '"' << line << '"';
        if (!isTaken) return;
        ASSERT_FALSE(event.named);
        const auto fields = fieldsOf(print(7, "x", std::string(event.text, event.size)));
        ASSERT_GE(fields.size(), 3U) << '"' << line << '"';
        ++taken;
    });
    EXPECT_GT(taken, 10000U);
}

TEST(KernelEvent, NamesTheProcessThatTheLineNames) {
    const struct {
        const char* line;
        unsigned long long ns = 0;  // 0: refused
        int pid = 0;
        const char* name = nullptr;
        const char* text = nullptr;
    } cases[] = {
            {"@14355.576572 : 1113-system_server   : AMS:systemReady\n", 14355576572, 1113,
             "system_server", "AMS:systemReady"},
            {"@1.5 :4194304-a b-c :x : y", 1500000, 4194304, "a b-c", "x : y"},
            {"@1 :1-123456789012345 :x", 1000000, 1, "123456789012345", "x"},
            {"@1 :1-1234567890123456 :x"},
            {"@1 :4194305-a :x"},
            {"@1 :0-a :x"},
            {"@1 :-1-a :x"},
            {"@1 :1- :x"},
            {"@1 :1a :x"},
            {"@1. :1-a :x"},
            {"@1.1234567 :1-a :x"},
            {"@12345678901 :1-a :x"},
            {"@-1 :1-a :x"},
            {"@ :1-a :x"},
            {"@1 :1-a :"},
            {"@1 :1-a ::x"},
            {"@1 :1-a"},
            {"@"},
    };
    for (const auto& [line, ns, pid, name, text] : cases) {
        struct event_line event;
        const bool isTaken = event_read(line, strlen(line), &event);
        EXPECT_EQ(isTaken, ns != 0) << line;
        if (!isTaken || ns == 0) continue;
        EXPECT_TRUE(event.named);
        EXPECT_EQ(event.ns, ns) << line;
        EXPECT_EQ(event.pid, pid) << line;
        EXPECT_STREQ(event.name, name);
        EXPECT_EQ(std::string(event.text, event.size), text);
    }
}

TEST(KernelEvent, OfAStrangeNameIsReadAllTheSame) {
    forEach(" :a\n\x7f", 6, [](const std::string& text) {
        char name[EVENT_NAME_MAX + 1] = {};
        text.copy(name, EVENT_NAME_MAX);
        event_clean_name(name);
        const std::vector<std::string> fields = fieldsOf(print(7, name, "event"));
        ASSERT_EQ(fields.size(), 3U) << '"' << text << '"';
        ASSERT_EQ(fields[1].substr(0, 2), "7-");
        ASSERT_EQ(fields[1].find_first_of("\n\x7f"), std::string::npos);
        ASSERT_EQ(fields[2], "event");
    });
}

// script/vm compares what the module prints with the same file.
TEST(KernelEvent, IsPrintedAsByTheLab) {
    std::ifstream file(KERNEL_PROFILE);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const lab::ProfileScript profile = lab::ProfileScript::parse(text, KERNEL_PROFILE);
    EXPECT_EQ(profile.at(300), text);
    lab::ProfileScript again;
    for (const auto& event : profile.events()) again.add(event.us / 1000, event.by(), event.name);
    EXPECT_EQ(again.events(), profile.events());
}

TEST(KernelEvent, LeftOutIsNoEventToAnyReader) {
    char leftOut[80];
    snprintf(leftOut, sizeof(leftOut), EVENT_LEFT_OUT, 123ULL);
    EXPECT_EQ(fieldsOf(leftOut).size(), 2U);
    const std::string before = print(7, "x", "before\n");
    const std::string after = print(7, "x", "after\n");
    EXPECT_EQ(lab::ProfileScript::parse(before + leftOut + after, "").events(),
              lab::ProfileScript::parse(before + after, "").events());
}

}  // namespace
