// SPDX-License-Identifier: Apache-2.0
// The feed between the log and those who read what it writes: the driver's rules, and the daemon's
// verdict on the profile that comes of it.

#include "device/feed/Feed.h"

#include <log/log_read.h>
#include <log/logprint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "bootvigil/BootMilestones.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/base/Text.h"
#include "lab/run/Outcome.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"

extern "C" {
#include "kernel/event.h"
}

namespace {

using Lines = std::vector<std::string>;

constexpr const char* kInitBefore = "@4713 :1-init :vold:fbeEnable:START";
constexpr const char* kInitAfter = "@19264 :1-init :Post BOOT_COMPLETED";

// When a line of the recorded buffer came, in milliseconds of the boot.
uint64_t arrivalOf(const std::string& line) {
    unsigned int minute = 0;
    double second = 0;
    EXPECT_EQ(sscanf(line.c_str(), "%*d-%*d %*d:%u:%lf", &minute, &second), 2) << line;
    return static_cast<uint64_t>((minute * 60 + second) * 1000 + 0.5);
}

Lines recorded() {
    Lines lines = lab::linesOf(lab::readFile(FEED_EVENTS));
    lines.erase(lines.begin());  // "beginning of events"
    return lines;
}

// The same boot again: its framework was started anew `round` times, 15 s apart.
Lines restarted(int round) {
    Lines lines;
    for (const std::string& each : recorded()) {
        LogLine line;
        EXPECT_TRUE(readLogcatLine(each, line)) << each;
        const uint64_t ms = arrivalOf(each) + static_cast<uint64_t>(round) * 15000;
        if (lab::startsWith(line.tag, "boot_progress")) line.message = std::to_string(ms - 1);
        lines.push_back(lab::format("11-15 11:%02d:%06.3f %5d %5d %5d I %s: %s",
                                    static_cast<int>(ms / 60000), ms % 60000 / 1000.0,
                                    static_cast<int>(line.uid), line.pid + 1000 * round, line.pid,
                                    line.tag.c_str(), line.message.c_str()));
    }
    return lines;
}

// What the feed writes for these lines.
Lines written(Feed& feed, const Lines& lines) {
    Lines events;
    for (const std::string& each : lines) {
        LogLine line;
        if (!readLogcatLine(each, line)) continue;
        for (const std::string& event : feed.eventsOf(line, arrivalOf(each))) {
            events.push_back(event);
        }
    }
    return events;
}

Lines written(const Lines& lines) {
    Feed feed("");
    return written(feed, lines);
}

// As the driver prints what it takes.
std::string profileOf(const Lines& events) {
    std::string profile = EVENT_HEAD;
    for (const std::string& line : events) {
        struct event_line event;
        EXPECT_TRUE(event_read(line.data(), line.size(), &event)) << line;
        char columns[EVENT_COLUMNS_MAX];
        snprintf(columns, sizeof(columns), EVENT_TIME EVENT_BY, EVENT_TIME_OF(event.ns), event.pid,
                 event.name);
        profile.append(columns).append(event.text, event.size).append("\n");
    }
    return profile;
}

TEST(Feed, WritesTheMilestonesOfAStockBoot) {
    const std::string wanted[] = {
            "@6524 :512-zygote :boot_progress_start",
            "@7925 :512-zygote :Zygote:Preload Start",
            "@10130 :512-zygote :Zygote:Preload End",
            "@10477 :1113-system_server :Android:SysServerInit_START",
            "@11535 :1113-system_server :Android:PackageManagerService_Start",
            "@11938 :1113-system_server :Android:PMS_scan_START",
            "@12290 :1113-system_server :PMS_data_scan_START",
            "@12339 :1113-system_server :Android:PMS_scan_END",
            "@12638 :1113-system_server :Android:PMS_READY",
            "@14361 :1113-system_server :AMS:systemReady",
            "@14361 :1113-system_server :AMS:AMS_READY",
            "@14906 :1113-system_server :am_proc_start:com.android.systemui",
            "@15942 :1113-system_server :AMS:ENABLE_SCREEN",
            "@16793 :1113-system_server :am_proc_start:com.android.cellbroadcastreceiver",
            "@19188 :1113-system_server :wm_boot_animation_done",
    };
    std::string all;
    for (const std::string& line : wanted) all += line + "\n";
    std::string got;
    std::set<int> milestones;
    for (const std::string& line : written(recorded())) {
        got += line;
        struct event_line event;
        ASSERT_TRUE(event_read(line.data(), line.size(), &event)) << line;
        milestones.insert(milestoneIndex({event.text, event.size}));
    }
    EXPECT_EQ(got, all);
    // -1: no milestone. 0 is init's, and a stock framework logs nothing of 10.
    EXPECT_EQ(milestones, (std::set<int>{-1, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(Feed, BelievesNobodyElse) {
    const char* const lines[] = {
            "11-15 11:00:10.478 10101  1277  1277 I boot_progress_system_run: 10477",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_preload_start: 7925",
            "11-15 11:00:10.478  root   512   512 I boot_progress_pms_ready: 7925",
            "11-15 11:00:10.478 10101  1277  1277 I am_proc_start: [0,1,1,x,y,z]",
            "11-15 11:00:10.478        1113  1113 I boot_progress_system_run: 10477",
            "11-15 11:00:10.478  1000     0  1113 I boot_progress_system_run: 10477",
            "11-15 11:00:10.478  1000    -5  1113 I boot_progress_system_run: 10477",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_run: ",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_run: -5",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_run: 10477x",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_run: 18446744073709551616",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_run",
            "11-15 11:00:10.478  1000  1113  1113 I boot_progress_system_runs: 10477",
            "11-15 11:00:10.478  1000  1113  1113 boot_progress_system_run: 10477",
            "10.478  1000  1113  1113 I boot_progress_system_run: 10477",
            "boot_progress_system_run: 10477",
            "\xff\xfe 1000 \x01",
            "",
    };
    for (const char* line : lines) {
        Feed feed("");
        LogLine read;
        const bool isLine = readLogcatLine(line, read);
        EXPECT_EQ(isLine ? feed.eventsOf(read, 20000) : Lines(), Lines()) << line;
    }
}

TEST(Feed, WritesOnlyWhatTheDriverTakes) {
    const std::string start = "11-15 11:00:14.906  1000  1113  1113 I ";
    const std::string texts[] = {"watchdog: a : :b",
                                 "watchdog: :",
                                 "watchdog: a\t\x1b[2J\x7f",
                                 "watchdog: ",
                                 "watchdog: " + std::string(4000, 'x'),
                                 "watchdog: " + std::string(150, ' ') + " :",
                                 "am_proc_start: [0,1,1, : ,y]",
                                 "am_proc_start: [0,1,1,",
                                 "am_proc_start: [0,1",
                                 "am_proc_start: ",
                                 "boot_progress_system_run: 99999999"};  // from the future
    for (const std::string& text : texts) {
        const Lines events = written({start + text});
        ASSERT_EQ(events.size(), 1U) << text;
        struct event_line event;
        ASSERT_TRUE(event_read(events[0].data(), events[0].size(), &event)) << events[0];
        EXPECT_LE(event.ns, 14906000000U) << text;
    }
}

TEST(Feed, WritesNothingTwice) {
    Feed feed("");
    const Lines first = written(feed, recorded());
    EXPECT_EQ(written(feed, recorded()), Lines()) << "logcat was started again";

    // The feed itself was: it finds in the profile what it has written.
    Feed again(profileOf(first));
    EXPECT_EQ(written(again, recorded()).size(), 1U) << "of a process that was one too many before";
    // The framework that comes next is another one.
    EXPECT_EQ(written(again, restarted(1)).size(), first.size());

    Feed full("");
    const Lines boot = restarted(1);
    for (int i = 0; i < 20000; ++i) {
        LogLine line = {1000, i + 2, "boot_progress_system_run", "5"};
        EXPECT_EQ(full.eventsOf(line, 6).size(), 1U);
    }
    EXPECT_EQ(written(full, boot).size(), first.size());
    EXPECT_EQ(written(full, boot), Lines());
}

// Two processes that are started again and again do not keep a hang from being one.
TEST(Feed, StaysSilentWhereNothingMoves) {
    Feed feed("");
    size_t events = 0;
    for (int i = 0; i < 300; ++i) {
        const std::string name = i % 2 == 0 ? "com.android.phone" : "com.android.bluetooth";
        const LogLine line = {1000, 1113, "am_proc_start",
                              "[0," + std::to_string(2000 + i) + ",1001," + name + ",,]"};
        events += feed.eventsOf(line, 20000 + static_cast<uint64_t>(i) * 2000).size();
    }
    EXPECT_EQ(events, 2U);
    // A burst of them is one event, in any second.
    for (int i = 0; i < 40; ++i) {
        const LogLine line = {1000, 1113, "am_proc_start", "[0,1,1,app" + std::to_string(i) + ",]"};
        events += feed.eventsOf(line, 1000000 + static_cast<uint64_t>(i) * 50).size();
    }
    EXPECT_EQ(events, 4U);
}

Lines textThrough(const std::string& text, size_t piece) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    if (fork() == 0) {
        for (size_t at = 0; at < text.size(); at += piece) {
            if (write(ends[1], text.data() + at, std::min(piece, text.size() - at)) < 0) _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    Lines tags;
    followText(ends[0], [&](const LogLine& line) { tags.push_back(line.tag + line.message); });
    close(ends[0]);
    return tags;
}

TEST(Feed, ReadsWholeLinesWhateverIsBetweenThem) {
    const std::string head = "11-15 11:00:10.478  1000  1113  1113 I ";
    const std::string text = head + "a: 1\n\n" + head + "b: " + std::string(9000, 'x') + "\n" +
                             head + "c: " + std::string(4000, 'x') +
                             "\n--------- switch to events\n" + head + std::string("d: \0y", 5) +
                             "\n" + std::string(70000, 'z') + head + "e: 5\n" + head +
                             "f       : 6\n" + head + "g: 1436";
    const Lines wanted = {"a1", "c" + std::string(4000, 'x'), std::string("d\0y", 3), "f6"};
    for (size_t piece : {1U, 7U, 4096U, 100000U}) EXPECT_EQ(textThrough(text, piece), wanted);
}

// ---- The verdicts.

class FeedVerdict : public testing::Test {
protected:
    // What the daemon makes of a boot whose profile has these events.
    std::string verdictOn(const Lines& events, const std::string& rest) {
        std::string yaml =
                "boots:\n  - profile:\n      path: /proc/velabootprof\n"
                "      empty: true\n      events:\n";
        for (const std::string& line : events) {
            struct event_line event;
            EXPECT_TRUE(event_read(line.data(), line.size(), &event)) << line;
            yaml += lab::format("        - {at: %.3f, by: %d-%s, name: \"%s\"}\n",
                                static_cast<double>(event.ns) / 1e9, event.pid, event.name,
                                std::string(event.text, event.size).c_str());
        }
        lab::writeFile(mTemporary.path() + "/s.yaml", yaml + rest);
        std::filesystem::remove_all(mTemporary.path() + "/run");
        lab::makeFolders(mTemporary.path() + "/run");
        const lab::Scenario scenario = lab::readScenario(mTemporary.path() + "/s.yaml");
        lab::ScenarioRun run(scenario, mTemporary.path() + "/run");
        run.run();
        return lab::describeOutcome(run.records(), 1);
    }

    const lab::TemporaryFolder mTemporary{testing::TempDir()};
};

constexpr const char* kNoFirstBoot = "device: {files: {/data/vela_dfr/firstboot: \"\"}}\n";

TEST_F(FeedVerdict, AGoodBootIsComplete) {
    Lines events = {kInitBefore};
    for (const std::string& line : written(recorded())) events.push_back(line);
    events.push_back(kInitAfter);
    // The framework's own two properties, and not the third.
    EXPECT_EQ(verdictOn(events,
                        "    changes:\n      - {at: 20, set: {sys.boot_completed: \"1\", "
                        "service.bootanim.exit: \"1\"}}\n"),
              "boot complete at 40 s");
}

TEST_F(FeedVerdict, AHangInThePackageScanNamesTheSystemServer) {
    Lines lines = recorded();
    while (!lab::contains(lines.back(), "pms_system_scan_start")) lines.pop_back();
    // Whatever else the system does meanwhile.
    for (int minute = 0; minute < 8; ++minute) {
        lines.push_back(
                lab::format("11-15 11:%02d:30.000  1000  1113  1140 I battery_level: [6%d,1]",
                            minute, minute));
    }
    Lines events = {kInitBefore};
    for (const std::string& line : written(lines)) events.push_back(line);
    EXPECT_EQ(verdictOn(events, kNoFirstBoot),
              "stalled at 250 s in system_server (pid 1113); recorded; 7 logs; asks for a reboot");
}

TEST_F(FeedVerdict, ARestartLoopSaysWhatIsNeverReached) {
    const std::pair<const char*, const char*> cases[] = {
            {"pms_system_scan_start", "Android:PMS_scan_END"},
            {"ams_ready", "Android:SysServerInit_END"},  // which nobody writes
    };
    for (const auto& [last, missing] : cases) {
        Lines lines;
        for (int round = 0; round < 6; ++round) {
            for (const std::string& line : restarted(round)) {
                lines.push_back(line);
                if (lab::contains(line, last)) break;
            }
        }
        Lines events = {kInitBefore};
        for (const std::string& line : written(lines)) events.push_back(line);
        EXPECT_EQ(verdictOn(events, kNoFirstBoot),
                  std::string("restart loop found at 70 s, which never reaches ") + missing +
                          "; recorded; 7 logs; asks for a reboot");
    }
}

}  // namespace

// ---- liblog's reader, on a workstation without a log service: these entries are its buffer.

namespace {

std::vector<std::string> gEntries;

std::string entryOf(uint32_t tag, int64_t value) {
    log_msg message = {};
    message.entry.hdr_size = sizeof(message.entry);
    message.entry.pid = 1113;
    message.entry.tid = 1140;
    message.entry.sec = 1794740410;
    message.entry.lid = LOG_ID_EVENTS;
    message.entry.uid = 1000;
    std::string payload(reinterpret_cast<const char*>(&tag), sizeof(tag));
    payload += '\1';  // EVENT_TYPE_LONG
    payload.append(reinterpret_cast<const char*>(&value), sizeof(value));
    message.entry.len = static_cast<uint16_t>(payload.size());
    return std::string(reinterpret_cast<const char*>(&message), sizeof(message.entry)) + payload;
}

}  // namespace

extern "C" struct logger_list* android_logger_list_open(log_id_t, int, unsigned int, pid_t) {
    static char list;
    return reinterpret_cast<struct logger_list*>(&list);
}

extern "C" void android_logger_list_free(struct logger_list*) {}

extern "C" int android_logger_list_read(struct logger_list*, struct log_msg* message) {
    if (gEntries.empty()) return -EAGAIN;
    const std::string entry = gEntries.front();
    gEntries.erase(gEntries.begin());
    memcpy(message->buf, entry.data(), entry.size());
    return static_cast<int>(entry.size());
}

namespace {

// Both ways to read the buffer give the same lines: logcat's text is printed by liblog itself.
TEST(Feed, ReadsEntriesAsItReadsTheirText) {
    std::string cut = entryOf(3010, 10477);
    cut[0] = 2;  // bytes of its payload
    gEntries = {entryOf(3010, 10477), entryOf(2722, 62), cut, entryOf(3040, 5)};
    const std::vector<std::string> entries = gEntries;
    Feed feed("");
    Lines read;
    const auto show = [&](const LogLine& line) {
        for (const std::string& event : feed.eventsOf(line, 20000)) read.push_back(event);
        return std::to_string(line.uid) + " " + std::to_string(line.pid) + " " + line.tag + " " +
               line.message;
    };
    Lines shown;
    followLogService([&](const LogLine& line) { shown.push_back(show(line)); });
    EXPECT_EQ(read, (Lines{"@10477 :1113-system_server :Android:SysServerInit_START\n",
                           "@5 :1113-system_server :AMS:systemReady\n",
                           "@5 :1113-system_server :AMS:AMS_READY\n"}));

    Lines printed;
    AndroidLogFormat* const layout = android_log_format_new();
    android_log_setPrintFormat(layout, FORMAT_THREADTIME);
    android_log_setPrintFormat(layout, FORMAT_MODIFIER_UID);
    for (const std::string& entry : entries) {
        log_msg message = {};
        memcpy(message.buf, entry.data(), entry.size());
        AndroidLogEntry fields = {};
        char text[100];
        if (android_log_processBinaryLogBuffer(&message.entry, &fields, nullptr, text,
                                               sizeof(text)) != 0) {
            continue;
        }
        char buffer[300];
        size_t size = 0;
        const std::string line(
                android_log_formatLogLine(layout, buffer, sizeof(buffer), &fields, &size));
        LogLine asText;
        EXPECT_TRUE(readLogcatLine(line.substr(0, size - 1), asText)) << line;
        printed.push_back(show(asText));
    }
    android_log_format_free(layout);
    EXPECT_EQ(shown, printed);
}

}  // namespace
