// SPDX-License-Identifier: Apache-2.0
// Reads a copy of the persistent partition, any part of it missing, cut off or damaged.

#include "report/read/Partition.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>

#include "bootvigil/StoragePaths.h"
#include "report/read/DaemonLog.h"
#include "report/read/Files.h"
#include "report/read/Times.h"

namespace report {

namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxStateFile = 1 << 20;  // bytes read of a state file
constexpr size_t kMaxLog = 256 << 20;      // of a lab's run log, and searched of a captured log

// A device's path as it is below the partition.
std::string below(const std::string& path) {
    return path.substr(strlen(kVelafsDir));
}

// Reads a file that may be missing; any other failure is a problem of the file `name`.
std::optional<std::string> readFile(const std::string& path, const std::string& name, size_t limit,
                                    Report& report) {
    std::string error;
    const File file = openRegular(path, error, true);
    std::string content;
    char buffer[65536];
    size_t count = 1;
    while (file && count > 0 && content.size() <= limit) {
        count = fread(buffer, 1, sizeof(buffer), file.get());
        content.append(buffer, count);
    }
    if (file && ferror(file.get()) != 0) error = strerror(errno);
    if (!error.empty()) report.problems.push_back({name, error});
    if (!file || !error.empty()) return std::nullopt;
    if (content.size() > limit) {
        content.resize(limit);
        report.problems.push_back({name, "is too large; only its beginning was read"});
    }
    return content;
}

// Finds the text between two others; false when it does not end.
bool findBetween(const std::string& line, const char* before, const char* after,
                 std::string& found) {
    const size_t at = line.find(before);
    if (at == std::string::npos) return false;
    const size_t begin = at + strlen(before);
    const size_t end = line.find(after, begin);
    found = line.substr(begin, end - begin);
    return end != std::string::npos;
}

// "TIME:...;    ERR_NUM:0x...;    ERR_INFO:...;    ERR_EXPINFO:...Country(..)  ;"
bool parseRecord(const std::string& line, Failure& failure) {
    std::string number;
    const bool whole = findBetween(line, "TIME:", ";    ", failure.time) &&
                       findBetween(line, "ERR_NUM:", ";    ", number) &&
                       findBetween(line, "ERR_INFO:", ";    ERR_EXPINFO:", failure.lastEvent) &&
                       line.back() == ';';
    char* end = nullptr;
    failure.number = decodeErrorNumber(strtoul(number.c_str(), &end, 16));
    findBetween(line, "Country(", ")", failure.country);
    failure.iso = isoTime(failure.time);
    return whole && !failure.iso.empty() && number.rfind("0x", 0) == 0 && *end == '\0' &&
           number.size() <= 8;
}

// Reads the files of one partition into a report.
class PartitionReader {
public:
    PartitionReader(const std::string& partition, Report& report)
        : mPartition(partition), mReport(report) {}

    void read() {
        readRecords(below(kBfRecordBackupPath));
        readRecords(below(kBfRecordPath));
        mReport.flag = text(below(kBfFlagPath));
        readNotes(below(kBfUploadDir), {"boot_vigil", "recovery_record"}, mReport.uploads);
        readNotes(below(kBootVigilDir), {"reason.txt", "pmic_info", "mem_hwinfo"}, mReport.notes);
        readJournal(below(kLogDir) + "/info");
        readCaptures();
        readRecoveryFiles();
    }

private:
    std::optional<std::string> text(const std::string& name) {
        return readFile(mPartition + name, name, kMaxStateFile, mReport);
    }

    void problem(const std::string& file, const std::string& what) {
        mReport.problems.push_back({file, what});
    }

    void readRecords(const std::string& name) {
        const std::string content = text(name).value_or("");
        int number = 0;
        for (const std::string& line : linesOf(content)) {
            Failure failure;
            failure.file = name;
            failure.line = ++number;
            bool& damaged = mReport.recordsEndDamaged;
            if (parseRecord(line, failure)) {
                failure.afterDamage = damaged;
                mReport.failures.push_back(failure);
                damaged = false;
            } else {
                mReport.problems.push_back({name, "is not a complete record", number});
                damaged = true;
            }
        }
        if (!content.empty() && content.back() != '\n') {
            mReport.problems.push_back({name, "the last line is cut off", number});
            mReport.recordsEndDamaged = true;
        }
    }

    // "Sun Nov 15 11:08:12 2026  USER capture log"
    void readJournal(const std::string& name) {
        constexpr size_t kTimeLength = 24;
        for (const std::string& line : linesOf(text(name).value_or(""))) {
            const std::string iso = isoTime(line.substr(0, kTimeLength));
            const bool whole = !iso.empty() && line.compare(kTimeLength, 2, "  ") == 0;
            mReport.journal.push_back({line, iso, whole ? line.substr(kTimeLength + 2) : ""});
            if (whole) continue;
            mReport.problems.push_back(
                    {name, "is no line of a journal", static_cast<int>(mReport.journal.size())});
        }
    }

    void readNotes(const std::string& folder, const std::vector<std::string>& names,
                   std::vector<Note>& notes) {
        for (const std::string& name : names) {
            if (const auto note = text(folder + "/" + name)) notes.push_back({name, *note});
        }
    }

    void readCaptures() {
        const std::string folder = mPartition + below(kLogDir);
        std::error_code error;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            if (entry.path().extension() == ".zs") names.push_back(entry.path().stem());
        }
        if (error && fs::exists(fs::symlink_status(folder))) {
            problem(below(kLogDir), error.message());
        }
        std::sort(names.begin(), names.end());
        std::vector<DaemonLine> lines;
        for (const std::string& name : names) readCapture(folder, name, lines);
        mReport.boots = bootsOfLines(lines);
    }

    // Adds a captured log, and the daemon's lines in it.
    void readCapture(const std::string& folder, const std::string& name,
                     std::vector<DaemonLine>& lines) {
        Capture capture = {name, folder + "/" + name + ".zs", {}};
        const bool android = name.rfind("android_", 0) == 0;
        std::string content;
        capture.info = readArchive(capture.path, [&](const char* data, size_t size) {
            if (android && content.size() < kMaxLog) content.append(data, size);
            return true;
        });
        // The daemon leaves an empty file for a log that it could not open.
        const bool regular = fs::is_regular_file(fs::symlink_status(capture.path));
        if (!capture.info.error.empty() && !(regular && capture.info.size == 0)) {
            problem(below(kLogDir) + "/" + name + ".zs", capture.info.error);
        }
        for (DaemonLine& line : daemonLines(content)) {
            line.file = name;
            lines.push_back(std::move(line));
        }
        mReport.captures.push_back(std::move(capture));
    }

    void readRecoveryFiles() {
        RecoveryFiles& files = mReport.recoveryFiles;
        const std::string folder = below(kBootVigilDir);
        files.history = text(folder + "/recovery_flag.txt");
        if (files.history &&
            files.history->substr(0, files.history->find('\n')).size() < kHistoryLength) {
            mReport.problems.push_back({folder + "/recovery_flag.txt", "is cut off", 1});
        }
        files.disable = text(folder + "/bfEnable");
        files.list = text(folder + "/recoveryList");
        std::optional<int> reason;
        for (const Failure& failure : mReport.failures) {
            if (!failure.number.stamp) reason = failure.number.reason;
        }
        mReport.recovery = readRecovery(files, reason);
    }

    const std::string mPartition;
    Report& mReport;
};

}  // namespace

void readPartition(const std::string& partition, Report& report) {
    PartitionReader(partition, report).read();
}

void readRunLog(const std::string& path, Report& report) {
    const auto content = readFile(path, "run.jsonl", kMaxLog, report);
    if (!content) return;
    size_t broken = 0;
    report.captured = std::move(report.boots);
    report.boots = bootsOfRunLog(*content, broken);
    report.hasRunLog = true;
    if (broken == 0) return;
    report.problems.push_back({"run.jsonl", std::to_string(broken) + " lines are not records"});
}

}  // namespace report
