// SPDX-License-Identifier: Apache-2.0
// Reads a copy of the persistent partition, any part of it missing, cut off or damaged.

#include "report/read/Partition.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <iterator>
#include <new>
#include <string_view>

#include "bootvigil/StoragePaths.h"
#include "common/text/Printable.h"
#include "report/read/Bounds.h"
#include "report/read/DaemonLog.h"
#include "report/read/Times.h"

namespace report {

namespace {

// What the daemon captures itself; a partition may hold more.
constexpr const char* kCaptures[] = {"android_crash_log",  "android_main_log",
                                     "android_events_log", "android_system_log",
                                     "android_radio_log",  "sys_kernel_log",
                                     "console-ramoops-0"};
constexpr std::string_view kSuffix = ".zs";

// A device's path as it is below the partition.
std::string below(const std::string& path) {
    return path.substr(strlen(kVelafsDir));
}

// Calls `read`; what it throws becomes a problem of `name`.
void attempt(const std::string& name, Report& report, const std::function<void()>& read) {
    try {
        read();
    } catch (const std::bad_alloc&) {
        report.problems.push_back({name, "not enough memory to read it"});
    } catch (const std::exception& error) {
        report.problems.push_back({name, error.what()});
    }
}

// Reads a file that may be missing; any other failure is a problem of the file `name`.
std::optional<std::string> readFile(const Folder& folder, const std::string& name, size_t limit,
                                    Report& report) {
    std::string error;
    // Problems are named by "/SDD/...", as on the device.
    const File file = folder.openFile(name.substr(name.find_first_not_of('/')), error);
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
    explicit PartitionReader(Report& report) : mReport(report) {}

    void read() {
        readRecords(below(kBfRecordBackupPath));
        readRecords(below(kBfRecordPath));
        attempt(below(kBfFlagPath), mReport,
                [this] { mReport.flag = text(below(kBfFlagPath), kMostNote); });
        readNotes(below(kBfUploadDir), {"boot_vigil", "recovery_record"}, mReport.uploads);
        readNotes(below(kBootVigilDir), {"reason.txt", "pmic_info", "mem_hwinfo"}, mReport.notes);
        attempt(below(kLogDir) + "/info", mReport, [this] { readJournal(); });
        attempt(below(kBootVigilDir) + "/refused", mReport, [this] { readRefusals(); });
        attempt(below(kLogDir), mReport, [this] { readCaptures(); });
        attempt(below(kBootVigilDir), mReport, [this] { readRecoveryFiles(); });
    }

private:
    std::optional<std::string> text(const std::string& name, size_t most = kMostState) {
        return readFile(mReport.partition, name, most, mReport);
    }

    void problem(const std::string& file, const std::string& what) {
        mReport.problems.push_back({file, what});
    }

    // Keeps the first and the last of a list, and says so.
    template <typename Value>
    void bound(std::vector<Value>& list, const std::string& file, const char* what) {
        const size_t dropped = dropMiddle(list, kMostListed);
        if (dropped != 0) problem(file, "… " + text::grouped(dropped) + " " + what + " left out");
    }

    void readRecords(const std::string& name) {
        attempt(name, mReport, [&] {
            const std::string content = text(name).value_or("");
            std::vector<Failure> failures;
            std::vector<Problem> problems;
            bool& damaged = mReport.recordsEndDamaged;
            int number = 0;
            for (const std::string& line : linesOf(content)) {
                Failure failure;
                failure.file = name;
                failure.line = ++number;
                if (parseRecord(line, failure)) {
                    failure.afterDamage = damaged;
                    failures.push_back(failure);
                    damaged = false;
                } else {
                    problems.push_back({name, "is not a complete record", number});
                    damaged = true;
                }
            }
            bound(failures, name, "records");
            bound(problems, name, "damaged records");
            mReport.failures.insert(mReport.failures.end(), failures.begin(), failures.end());
            mReport.problems.insert(mReport.problems.end(), problems.begin(), problems.end());
            if (!content.empty() && content.back() != '\n') {
                mReport.problems.push_back({name, "the last line is cut off", number});
                damaged = true;
            }
        });
    }

    // "Sun Nov 15 11:08:12 2026  USER capture log"
    void readJournal() {
        constexpr size_t kTimeLength = 24;
        const std::string name = below(kLogDir) + "/info";
        std::vector<Problem> problems;
        int number = 0;
        for (const std::string& line : linesOf(text(name).value_or(""))) {
            ++number;
            const std::string iso = isoTime(line.substr(0, kTimeLength));
            const bool whole = !iso.empty() && line.compare(kTimeLength, 2, "  ") == 0;
            mReport.journal.push_back({line, iso, whole ? line.substr(kTimeLength + 2) : ""});
            if (!whole) problems.push_back({name, "is no line of a journal", number});
        }
        bound(mReport.journal, name, "lines");
        bound(problems, name, "damaged lines");
        mReport.problems.insert(mReport.problems.end(), problems.begin(), problems.end());
    }

    // "Sun Nov 15 11:30:10 2026|reset|spent", by the platform.
    void readRefusals() {
        const std::string name = below(kBootVigilDir) + "/refused";
        std::vector<Problem> problems;
        int number = 0;
        for (const std::string& line : linesOf(text(name, kMostNote).value_or(""))) {
            ++number;
            const size_t action = line.find('|');
            const size_t why = line.find('|', std::min(action, line.size() - 1) + 1);
            const std::string iso = isoTime(line.substr(0, action));
            if (why == std::string::npos || iso.empty()) {
                problems.push_back({name, "is no refusal of the platform's", number});
                continue;
            }
            mReport.refusals.push_back({line.substr(0, action), iso,
                                        line.substr(action + 1, why - action - 1),
                                        line.substr(why + 1)});
        }
        bound(mReport.refusals, name, "lines");
        bound(problems, name, "damaged lines");
        mReport.problems.insert(mReport.problems.end(), problems.begin(), problems.end());
    }

    void readNotes(const std::string& folder, const std::vector<std::string>& names,
                   std::vector<Note>& notes) {
        for (const std::string& name : names) {
            attempt(folder + "/" + name, mReport, [&] {
                const auto note = text(folder + "/" + name, kMostNote);
                if (note) notes.push_back({name, *note});
            });
        }
    }

    // The names of the archives without their suffix, in order; the daemon's own are not left out.
    std::vector<std::string> captureNames() {
        std::string error;
        std::vector<std::string> names;
        const Folder folder = mReport.partition.open(below(kLogDir).substr(1), error);
        for (const std::string& name : folder.names(kMostNames, error)) {
            const size_t size = name.size() - std::min(name.size(), kSuffix.size());
            if (size > 0 && name.substr(size) == kSuffix) names.push_back(name.substr(0, size));
        }
        if (!error.empty()) problem(below(kLogDir), error);
        const auto isDaemons = [](const std::string& name) {
            return std::find(std::begin(kCaptures), std::end(kCaptures), name) !=
                   std::end(kCaptures);
        };
        std::sort(names.begin(), names.end());
        std::stable_partition(names.begin(), names.end(), isDaemons);
        if (names.size() > kMostCaptures) {
            problem(below(kLogDir),
                    "… " + text::grouped(names.size() - kMostCaptures) + " captured logs left out");
            names.resize(kMostCaptures);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void readCaptures() {
        std::vector<DaemonLine> lines;
        for (const std::string& name : captureNames()) {
            const std::string path = below(kLogDir) + "/" + name + std::string(kSuffix);
            attempt(path, mReport, [&] { readCapture(name, path, lines); });
        }
        mReport.boots = bootsOfLines(lines);
        boundBoots(mReport.boots);
    }

    // Adds a captured log, and the daemon's lines in it.
    void readCapture(const std::string& name, const std::string& path,
                     std::vector<DaemonLine>& lines) {
        Capture capture = {name, path.substr(1), {}};
        const bool android = name.rfind("android_", 0) == 0;
        DaemonLineReader reader;
        capture.info =
                readArchive(mReport.partition, capture.path, [&](const char* data, size_t size) {
                    if (android) reader.add({data, size});
                    return true;
                });
        if (!capture.info.error.empty() && capture.info.error != kEmptyArchive) {
            problem(path, capture.info.error);
        }
        std::vector<DaemonLine> here = reader.finish();
        if (reader.leftOut() != 0) {
            problem(path, "… " + text::grouped(reader.leftOut()) +
                                  " of the daemon's lines left out in the middle");
        }
        for (DaemonLine& line : here) line.file = name;
        std::move(here.begin(), here.end(), std::back_inserter(lines));
        mReport.captures.push_back(std::move(capture));
    }

    void readRecoveryFiles() {
        RecoveryFiles& files = mReport.recoveryFiles;
        const std::string folder = below(kBootVigilDir);
        files.history = text(folder + "/recovery_flag.txt", kMostNote);
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

    Report& mReport;
};

}  // namespace

void readPartition(Report& report) {
    PartitionReader(report).read();
}

void readRunLog(const Folder& folder, Report& report) {
    const std::string name = "run.jsonl";
    attempt(name, report, [&] {
        const auto content = readFile(folder, name, kMostRunLog, report);
        size_t broken = 0;
        std::vector<Boot> boots = bootsOfRunLog(content.value_or(""), broken);
        boundBoots(boots);
        if (!boots.empty()) {
            report.captured = std::move(report.boots);
            report.boots = std::move(boots);
            report.hasRunLog = true;
        }
        if (broken == 0) return;
        const char* rest = broken < kMostBroken ? "" : "; what follows was not read";
        report.problems.push_back({name, text::grouped(broken) + " lines are not records" + rest});
    });
}

}  // namespace report
