// SPDX-License-Identifier: Apache-2.0
// Reads a copy of the persistent partition, any part of it missing, cut off or damaged.

#include "Report.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "Boots.h"
#include "DaemonLog.h"
#include "RecoveryLists.h"

namespace report {

namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxStateFile = 1 << 20;    // bytes read of a state file
constexpr size_t kMaxRunLog = 256 << 20;     // bytes read of a lab's run log
constexpr size_t kMaxLogText = 256UL << 20;  // bytes searched of a captured log
constexpr int kHistoryLength = 3;

// Reads the files of one partition into a report.
class PartitionReader {
public:
    PartitionReader(std::string partition, Report& report)
        : mPartition(std::move(partition)), mReport(report) {}

    void read() {
        readRecords("/SDD/bfRecord_backup.txt");
        readRecords("/SDD/bfRecord.txt");
        if (const auto flag = text("/SDD/bfflag.txt")) mReport.pendingPhase = *flag;
        for (const char* name : {"boot_vigil", "recovery_record"}) {
            const auto upload = text(std::string("/SDD/bf_upload/") + name);
            if (upload) mReport.uploads.push_back({name, *upload});
        }
        for (const char* name : {"reason.txt", "pmic_info", "mem_hwinfo"}) {
            const auto note = text(std::string("/boot_vigil/") + name);
            if (note) mReport.notes.push_back({name, *note});
        }
        if (const auto journal = text("/boot_vigil/log/info")) mReport.journal = lines(*journal);
        readCaptures();
        readRecovery();
    }

    // The run log that a lab keeps beside the device root.
    void readRunLog(const std::string& path) {
        std::string content;
        if (!readFile(path, kMaxRunLog, content)) return;
        size_t broken = 0;
        mReport.boots = bootsOfRunLog(content, broken);
        if (broken > 0) problem("run.jsonl", std::to_string(broken) + " lines are no records");
    }

private:
    void problem(const std::string& file, const std::string& what) {
        mReport.problems.push_back({file, what});
    }

    // False when there is nothing to read; a missing file is no problem.
    bool readFile(const std::string& path, size_t limit, std::string& content) {
        const std::string name = path.substr(std::min(path.size(), mPartition.size()));
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0) {
            if (errno != ENOENT) problem(name, strerror(errno));
            return false;
        }
        struct stat info = {};
        const bool ordinary = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
        char buffer[65536];
        ssize_t count = 0;
        while (ordinary && content.size() < limit &&
               (count = ::read(fd, buffer, sizeof(buffer))) > 0) {
            content.append(buffer, static_cast<size_t>(count));
        }
        if (count < 0) problem(name, strerror(errno));
        close(fd);
        if (!ordinary) problem(name, "is no ordinary file");
        if (content.size() > limit) {
            content.resize(limit);
            problem(name, "is too large; only its beginning was read");
        }
        mReport.readable = mReport.readable || (ordinary && count >= 0);
        return ordinary && count >= 0;
    }

    std::optional<std::string> text(const std::string& name) {
        std::string content;
        if (!readFile(mPartition + name, kMaxStateFile, content)) return std::nullopt;
        return content;
    }

    static std::vector<std::string> lines(const std::string& content) {
        std::vector<std::string> list;
        std::istringstream in(content);
        std::string line;
        while (std::getline(in, line)) list.push_back(line);
        return list;
    }

    // "TIME:...;    ERR_NUM:0x...;    ERR_INFO:...;    ERR_EXPINFO:...Country(..)  ;"
    static bool parseRecord(const std::string& line, Failure& failure) {
        const auto value = [&](const char* key, const char* end, std::string& out) {
            const size_t at = line.find(key);
            if (at == std::string::npos) return false;
            const size_t begin = at + strlen(key);
            const size_t stop = line.find(end, begin);
            out = line.substr(begin, stop == std::string::npos ? stop : stop - begin);
            return stop != std::string::npos;
        };
        std::string number;
        const bool whole = value("TIME:", ";    ", failure.time) &&
                           value("ERR_NUM:", ";    ", number) &&
                           value("ERR_INFO:", ";    ERR_EXPINFO:", failure.lastEvent) &&
                           line.size() >= 2 && line.back() == ';';
        char* end = nullptr;
        failure.number = decodeErrorNumber(strtoul(number.c_str(), &end, 16));
        const bool isNumber = number.rfind("0x", 0) == 0 && *end == '\0' && number.size() <= 8;
        value("Country(", ")", failure.country);
        return whole && isNumber;
    }

    void readRecords(const std::string& name) {
        const auto content = text(name);
        if (!content) return;
        const std::vector<std::string> records = lines(*content);
        for (size_t i = 0; i < records.size(); ++i) {
            Failure failure;
            failure.file = name;
            failure.line = static_cast<int>(i) + 1;
            if (parseRecord(records[i], failure)) {
                mReport.failures.push_back(failure);
            } else {
                problem(name, "line " + std::to_string(i + 1) + " is no whole record");
            }
        }
        if (!content->empty() && content->back() != '\n') problem(name, "the last line is cut off");
    }

    void readCaptures() {
        const std::string folder = mPartition + "/boot_vigil/log";
        std::error_code error;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            if (entry.path().extension() == ".zs") names.push_back(entry.path().stem());
        }
        if (error && fs::exists(fs::symlink_status(folder))) {
            problem("/boot_vigil/log", error.message());
        }
        std::sort(names.begin(), names.end());
        std::vector<DaemonLine> said;
        for (const std::string& name : names) {
            Capture capture = {name, folder + "/" + name + ".zs", {}};
            const bool android = name.rfind("android_", 0) == 0;
            std::string content;
            capture.info = readArchive(capture.path, [&](const char* data, size_t size) {
                if (android && content.size() < kMaxLogText) content.append(data, size);
                return true;
            });
            // The file of a log that could not be opened stays empty, on purpose.
            const bool ordinary = fs::is_regular_file(fs::symlink_status(capture.path));
            if (!capture.info.error.empty() && !(ordinary && capture.info.size == 0)) {
                problem("/boot_vigil/log/" + name + ".zs", capture.info.error);
            }
            if (capture.info.size > 0) mReport.readable = true;
            const std::vector<DaemonLine> here = daemonLines(content);
            said.insert(said.end(), here.begin(), here.end());
            mReport.captures.push_back(std::move(capture));
        }
        mReport.boots = bootsOfLines(said);
    }

    void readRecovery() {
        Recovery& recovery = mReport.recovery;
        const auto history = text("/boot_vigil/recovery_flag.txt");
        if (history) {
            const std::string first = history->substr(0, history->find('\n'));
            recovery.history = first;
            if (first.size() >= 2) recovery.lastMode = first[1] - '0';
            if (first.size() >= kHistoryLength) {
                recovery.lastReason = static_cast<unsigned char>(first[2]);
            } else {
                problem("/boot_vigil/recovery_flag.txt", "is cut off");
            }
        }
        if (const auto disable = text("/boot_vigil/bfEnable")) {
            const std::vector<std::string> all = lines(*disable);
            recovery.disabled = std::find(all.begin(), all.end(), "BfRecover=NO") != all.end();
        }
        recovery.reason = recovery.lastReason;
        for (const Failure& failure : mReport.failures) {
            if (!failure.number.stamp) recovery.reason = failure.number.reason;
        }
        readList(recovery);
        recovery.next = nextStep(recovery, history.has_value());
    }

    // The list for the reason in question, by the daemon's own rules.
    void readList(Recovery& recovery) {
        int modes[kRecoveryListSize] = {};
        if (const auto content = text("/boot_vigil/recoveryList")) {
            recovery.override = true;
            const std::vector<std::string> all = lines(*content);
            for (auto line = all.rbegin(); line != all.rend(); ++line) {
                const size_t bar = line->find('|');
                if (bar == std::string::npos || atoi(line->c_str()) != recovery.reason) continue;
                std::string digits = line->substr(bar + 1, line->find('|', bar + 1) - bar - 1);
                digits.erase(0, digits.find_first_not_of(' '));
                if (digits.size() >= kRecoveryListSize) {
                    for (int i = 0; i < kRecoveryListSize; ++i) {
                        modes[i] = static_cast<unsigned char>(digits[static_cast<size_t>(i)]) - '0';
                    }
                }
                break;
            }
        } else {
            for (const RecoveryList& list : kDefaultRecoveryLists) {
                if (list.reason == recovery.reason)
                    std::copy_n(list.modes, kRecoveryListSize, modes);
            }
        }
        recovery.list.assign(modes, modes + kRecoveryListSize);
        while (!recovery.list.empty() && recovery.list.back() == 0) recovery.list.pop_back();
    }

    static std::string nextStep(const Recovery& recovery, bool hasHistory) {
        if (recovery.reason == 0) return "no failure is known";
        if (recovery.disabled) return "nothing: recovery is disabled from outside";
        const auto step = [&](size_t index) {
            const bool there = index < recovery.list.size() && recovery.list[index] > 0;
            return there ? describeMode(recovery.list[index])
                         : "nothing more: the list is exhausted";
        };
        if (!hasHistory) return step(0);
        if (recovery.history.empty() || recovery.history[0] < '0' ||
            recovery.history[0] >= '0' + kRecoveryListSize) {
            return "nothing: the history is damaged, which blocks recovery";
        }
        std::string next = step(static_cast<size_t>(recovery.history[0] - '0'));
        if (recovery.lastMode != RECOVERY_DATA_RESET) return next;
        return next + " in the first boot after the reset, " + step(0) + " in any later one";
    }

    const std::string mPartition;
    Report& mReport;
};

// The last failure, and whether a boot has completed since.
std::string verdictOf(const Report& report) {
    std::string verdict = "no failure is recorded";
    for (const Failure& failure : report.failures) {
        if (failure.number.stamp) {
            verdict += "; " + describeSituation(failure.number);
        } else {
            verdict = describeSituation(failure.number) + " (" + formatErrorNumber(failure.number) +
                      ") on " + failure.time;
        }
    }
    if (report.recovery.lastMode != 0) {
        verdict += "; last action: " + describeMode(report.recovery.lastMode) +
                   ", next: " + report.recovery.next;
    }
    return verdict;
}

bool isPartition(const fs::path& folder) {
    std::error_code error;
    return fs::exists(folder / "SDD", error) || fs::exists(folder / "boot_vigil", error);
}

}  // namespace

Report readReport(const std::string& folder) {
    Report report;
    const fs::path path = fs::path(folder).lexically_normal();
    report.device = path.has_filename() ? path.filename() : path.parent_path().filename();
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        report.problems.push_back({folder, error ? error.message() : "is no folder"});
        return report;
    }
    // A lab's run keeps its log beside the device root, and may have no partition at all.
    const bool isRun = fs::exists(path / "run.jsonl", error);
    fs::path partition = isRun ? path / "root/velafs" : path;
    if (!isPartition(partition) && isPartition(path / "velafs")) partition = path / "velafs";
    PartitionReader reader(partition, report);
    reader.read();
    if (isRun) reader.readRunLog(path / "run.jsonl");
    report.verdict = verdictOf(report);
    if (!report.readable)
        report.problems.push_back({folder, "holds nothing that the daemon writes"});
    return report;
}

Comparison readComparison(const std::string& profile) {
    const int fd = open(profile.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error(profile + ": " + strerror(errno));
    std::string content;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = read(fd, buffer, sizeof(buffer))) > 0 && content.size() < kMaxLogText) {
        content.append(buffer, static_cast<size_t>(count));
    }
    close(fd);
    Comparison comparison = {fs::path(profile).filename(), milestonesOf(content)};
    if (comparison.milestones.empty()) throw std::runtime_error(profile + ": holds no milestone");
    return comparison;
}

std::string describeMode(int mode) {
    switch (mode) {
        case RECOVERY_REBOOT:
            return "reboot";
        case RECOVERY_WAIT_USER:
            return "wait for the user to reboot";
        case RECOVERY_DATA_RESET:
            return "factory data reset";
        default:
            return "mode " + std::to_string(mode);
    }
}

}  // namespace report
