// SPDX-License-Identifier: Apache-2.0
// What must hold of every boot: a model of the rules that goes through a boot message by message,
// follows what the daemon says of itself, and objects where it can't be so.

#include "Rules.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>

namespace lab {

namespace {

using Kind = Violation::Kind;
using End = BootObservation::End;

constexpr char kHandle[] = "handleMessage 2 what = ";
constexpr char kNotify[] = "errNotifyWithReason type = ";

constexpr int kPoll = 0x20010;
constexpr int kTimeout = 0x20020;
constexpr int kStart = 0x20030;
constexpr int kRecovery = 0x20040;
constexpr int kExit = 0x20050;
constexpr int kAfterBoot = 0x20060;

const std::string kRecord = "/velafs/SDD/bfRecord.txt";
const std::string kBackup = "/velafs/SDD/bfRecord_backup.txt";
const std::string kFlag = "/velafs/SDD/bfflag.txt";
const std::string kUploads = "/velafs/SDD/bf_upload";
const std::string kFailureUpload = kUploads + "/boot_vigil";
const std::string kSuccessUpload = kUploads + "/recovery_record";
const std::string kReason = "/velafs/boot_vigil/reason.txt";
const std::string kHistory = "/velafs/boot_vigil/recovery_flag.txt";
const std::string kOverride = "/velafs/boot_vigil/recoveryList";
const std::string kSwitch = "/velafs/boot_vigil/bfEnable";
const std::string kPmic = "/velafs/boot_vigil/pmic_info";
const std::string kHwInfo = "/velafs/boot_vigil/mem_hwinfo";
const std::string kLogs = "/velafs/boot_vigil/log";
const std::string kJournal = kLogs + "/info";
const std::string kMarker = "/data/vela_dfr/firstboot";
const std::string kHealth = "proc/vela_healthinfo/healthinfo_show";

const std::vector<std::string> kMilestones = {"vold:fbeEnable:START",
                                              "Zygote:Preload Start",
                                              "Zygote:Preload End",
                                              "Android:SysServerInit_START",
                                              "Android:PackageManagerService_Start",
                                              "Android:PMS_scan_START",
                                              "Android:PMS_scan_END",
                                              "Android:PMS_READY",
                                              "AMS:systemReady",
                                              "AMS:AMS_READY",
                                              "Android:SysServerInit_END"};

const std::map<int, std::vector<int>> kDefaultLists = {{100, {1, 2, 5, 0, 0}},
                                                       {20, {1, 2, 5, 0, 0}},
                                                       {21, {1, 5, 0, 0, 0}},
                                                       {23, {1, 5, 0, 0, 0}},
                                                       {22, {1, 5, 0, 0, 0}},
                                                       {99, {5, 1, 0, 0, 0}},
                                                       {120, {1, 2, 5, 0, 0}}};

// The rules end the process here.
struct Aborted {};
struct Exited {
    int status;
};

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t from = 0; from < text.size();) {
        const size_t end = std::min(text.find('\n', from), text.size());
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// Fields without the blanks around them, but for as many at the end as there were in front.
std::vector<std::string> split(std::string text, const std::string& by) {
    std::vector<std::string> fields;
    text += by;
    for (size_t from = 0, end; (end = text.find(by, from)) != std::string::npos;
         from = end + by.size()) {
        if (end == from) continue;
        const std::string field = text.substr(from, end - from);
        const size_t first = field.find_first_not_of(' ');
        if (first == std::string::npos) throw Aborted();
        fields.push_back(field.substr(first, field.find_last_not_of(' ') + 1));
    }
    return fields;
}

template <typename... Values>
std::string format(const char* layout, Values... values) {
    char text[1024];
    snprintf(text, sizeof(text), layout, values...);
    return text;
}

// One boot against the model.
class BootCheck {
public:
    BootCheck(const BootObservation& boot, Rules::Books& books) : mSeen(boot), mBooks(books) {}

    std::vector<Violation> run();

private:
    struct Pending {
        int64_t due;
        int what;
    };

    // What was seen, and its comparison with what should have been.
    void broken(Kind kind, const std::string& what);
    void enterSegment(size_t from, size_t to);
    void leaveSegment();
    void applyChanges(int64_t until);
    void applyChange(const TraceEvent& event);
    void forgetFolders(const std::string& top);
    std::optional<std::string> take(const std::string& start);
    void expect(const std::string& line);
    void expectCall(std::multiset<std::string>& calls, const std::string& call);
    bool decide(bool predicted, bool observed, bool excused, const std::string& what);
    void checkFault(const std::string& fault);
    void checkOperation(const std::string& operation, bool injected);
    void checkIdle(const TraceEvent& event);
    void checkWakes();
    void deliver(size_t index);
    void checkEnd();
    void checkStatus();
    void checkSignal();
    void checkPending();
    void checkFiles();
    void checkRecords(const std::string& path);
    void checkUploads();
    void closeBooks();

    // The device as the model knows it.
    std::string property(const std::string& name, const std::string& missing = "0") const;
    int number(const std::string& name, const char* missing = "0") const;
    bool isFolder(const std::string& path) const;
    bool exists(const std::string& path) const;
    bool hasEntry(const std::string& folder, const std::string& part) const;
    bool excused(const std::string& path) const;
    std::string content(const std::string& path, const std::string& missing) const;
    bool write(const std::string& path, const std::string& text, bool append = false);
    bool writeOrLog(const std::string& path, const std::string& text, bool append);
    void remove(const std::string& path);
    std::string localTime() const;
    std::vector<std::string> profile();
    std::optional<std::string> worldFile(const std::string& path) const;

    // The rules.
    void post(int what, int64_t seconds);
    void handle(int what);
    void start();
    void poll();
    void followCapture();
    void handleKeptLogs();
    void timeout();
    void recover();
    void afterBoot();
    bool booted() const;
    int reason();
    bool systemError();
    void parseProfile();
    bool bootFinished(int& phase);
    bool allComplete(std::optional<bool> observed);
    int stuckDetail();
    bool checkReason(int64_t& type, std::string& note);
    bool usable();
    void notify(int type, int phase, int detail, int reason);
    void saveRecord();
    void submit();
    void stamp(int code);
    void upload(const std::string& path, const std::string& text);
    void capture(int64_t type, int pid, std::string note);
    void saveDeviceInfo();
    void captureSelf();
    bool disabled();
    int recoveryMode() const;
    void cleanHistory();
    bool chooseList(int error);
    bool runRecovery(int error);
    bool checkSuccess(int kind);

    const BootObservation& mSeen;
    Rules::Books& mBooks;
    std::vector<Violation> mViolations;

    // The message at hand and what was seen of it.
    int64_t mNow = 0;
    size_t mFrom = 0, mTo = 0;
    std::vector<std::string> mLogs;  // without priority; taken ones are empty
    std::multiset<std::string> mSets, mSignals;
    std::set<size_t> mApplied;  // changes
    bool mCutShort = false;     // the process ended in the middle of it

    // What excuses deviations.
    std::set<std::string> mUnsure;  // files
    bool mNoSpace = false;          // or no writing at all
    bool mNoMemory = false;
    bool mReadFault = false;
    std::set<std::string> mFaults;

    TextMap mProperties, mFiles, mWorldFiles;
    std::set<std::string> mIgnored;           // files that are the world's
    std::map<std::string, int64_t> mWritten;  // when, by the daemon
    std::string mProfilePath = "/proc/bootprof";
    int64_t mJump = 0;  // seconds

    std::vector<Pending> mPending;
    int64_t mLastEnd = 0;
    std::optional<int> mExpectedExit;
    bool mAborts = false;
    bool mQuits = false;    // itself
    int mKilledBy = 0;      // by the world
    int64_t mRequest = -1;  // to the platform, when
    bool mReset = false;
    std::string mRecordLines;  // that were to be written
    int mFoldersOpen = 0;

    bool mBooted = false, mRawDone = false, mFirstBoot = false;
    int mErrType = 0, mMainPhase = 0, mDetail = 0, mReason = 0, mCachedReason = 0;
    std::string mCoreText, mTime = "not set", mFileReason;
    bool mLoop = false;
    int mLoopIndex = -1, mStuckPid = -1, mSameLine = 0, mTimeouts = 0;
    int mOobePhase = 0, mOobeChecks = 0, mCaptureState = 0, mDisabled = -1;
    std::string mLastKey;
    std::map<std::string, int> mCounts;
    std::vector<int> mTable = {0, 0, 0, 0, 0};
    const std::vector<int>* mList = nullptr;
};

// ---- What was seen

void BootCheck::broken(Kind kind, const std::string& what) {
    std::string text = format("%.3f s: ", static_cast<double>(mNow) / 1000.0);
    for (const char c : what) {
        text += c >= ' ' && c <= '~' ? std::string(1, c)
                                     : format("\\x%02X", static_cast<unsigned char>(c));
    }
    mViolations.push_back({kind, text});
}

std::vector<Violation> BootCheck::run() {
    const auto& events = mSeen.events;
    mProperties = mSeen.properties;
    mFiles = mSeen.filesBefore;
    mWorldFiles = mSeen.boot.files;
    mWorldFiles.insert({"/proc/cmdline", mSeen.device.commandLine});
    const auto inLogs = [](const auto& file) { return startsWith(file.first, kLogs + "/"); };
    if (!mSeen.device.logFolder && mBooks.firstBoot &&
        std::none_of(mSeen.device.files.begin(), mSeen.device.files.end(), inLogs)) {
        mBooks.folders.erase(kLogs);
    }
    const auto kept = mBooks.folders;
    if (mSeen.boot.partitionAbsent || (mSeen.device.partitionAbsent && mBooks.firstBoot)) {
        forgetFolders("/velafs");
    }
    for (const auto& [path, text] : mFiles) {
        for (std::string folder = folderOf(path); !folder.empty(); folder = folderOf(folder)) {
            mBooks.folders.insert(folder);
        }
    }
    if (!mBooks.history || *mBooks.history != content(kHistory, "")) mBooks.steps = 0;
    mFileReason = firstLine(content(kReason, ""));

    std::vector<size_t> starts = {0};
    for (size_t i = 0; i < events.size(); ++i) {
        if (events[i].kind == TraceEvent::LOG && startsWith(events[i].text.substr(2), kHandle)) {
            starts.push_back(i);
        }
    }
    starts.push_back(events.size());
    checkWakes();
    post(kStart, 10);
    for (size_t i = 0; i + 1 < starts.size(); ++i) {
        enterSegment(starts[i], starts[i + 1]);
        try {
            if (i > 0) deliver(starts[i]);
        } catch (const Aborted&) {
            mAborts = true;
        } catch (const Exited& exited) {
            mExpectedExit = exited.status;
        }
        leaveSegment();
    }
    checkEnd();
    checkFiles();
    closeBooks();
    if (mSeen.boot.partitionAbsent) {  // it is back
        forgetFolders("/velafs");
        for (const std::string& folder : kept) {
            if (startsWith(folder, "/velafs")) mBooks.folders.insert(folder);
        }
    }
    return mViolations;
}

void BootCheck::enterSegment(size_t from, size_t to) {
    mFrom = from;
    mTo = to;
    mLogs.clear();
    mSets.clear();
    mSignals.clear();
    mNow = from < to ? mSeen.events[from].ms : 0;
    bool powerCut = false;
    for (size_t i = from; i < to; ++i) {
        const TraceEvent& event = mSeen.events[i];
        std::string text = event.text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        if (event.kind == TraceEvent::LOG) mLogs.push_back(text.substr(2));
        if (event.kind == TraceEvent::PROPERTY) mSets.insert(text);
        if (event.kind == TraceEvent::SIGNAL) mSignals.insert(text);
        if (event.kind == TraceEvent::FAULT) checkFault(text);
        if (event.kind == TraceEvent::OPERATION) {
            checkOperation(text, i > 0 && mSeen.events[i - 1].kind == TraceEvent::FAULT);
        }
        if (event.kind == TraceEvent::IDLE) checkIdle(event);
        powerCut |= event.kind == TraceEvent::FAULT && text == "power-cut";
    }
    const bool last = to == mSeen.events.size();
    const bool died = mSeen.end == End::KILLED || (mSeen.end == End::EXITED && mSeen.status != 0);
    mCutShort = last &&
                (powerCut || died || (mSeen.end == End::CUT_OFF && mSeen.endedAt <= mNow + 2000));
}

void BootCheck::leaveSegment() {
    for (const std::string& name : mSets) broken(Kind::RULE, "sets " + name + " against the rules");
    for (const std::string& text : mSignals) {
        broken(Kind::RULE, "sends signal " + text + " against the rules");
    }
    for (const std::string& line : mLogs) {
        for (const char* start :
             {kNotify, "try to ", "waite user", "enter submit", "type: ", "kel dont ",
              "boot finished", "handleMessage booted", "clean Recovery", "checkReason Reason",
              "handleMessage is boot timeout", "errNotify type", "Have ", "bootvigil exit"}) {
            if (startsWith(line, start) && !mNoMemory) {
                broken(Kind::RULE, "says \"" + line + "\" against the rules");
            }
        }
    }
    mLastEnd = mNow;
    applyChanges(INT64_MAX);
}

std::optional<std::string> BootCheck::take(const std::string& start) {
    for (std::string& line : mLogs) {
        if (!line.empty() && startsWith(line, start)) return std::exchange(line, "");
    }
    return std::nullopt;
}

void BootCheck::expect(const std::string& line) {
    if (!take(line) && !mCutShort && !mNoMemory) {
        broken(Kind::RULE, "does not say \"" + line + "\", as it must");
    }
}

// What was seen goes on; it must be what the rules say unless something excuses it.
bool BootCheck::decide(bool predicted, bool observed, bool excused, const std::string& what) {
    if (predicted != observed && !excused && !mNoMemory && !(mCutShort && !observed)) {
        broken(Kind::RULE, what + (observed ? ", which must not be" : " is missing"));
    }
    return observed || (mCutShort && predicted);
}

// A call that must have been seen; takes it.
void BootCheck::expectCall(std::multiset<std::string>& calls, const std::string& call) {
    const auto found = calls.find(call);
    if (found != calls.end()) {
        calls.erase(found);
    } else if (!mCutShort && !mNoMemory) {
        broken(Kind::RULE, "does not do what it must: " + call);
    }
}

void BootCheck::checkFault(const std::string& fault) {
    mFaults.insert(fault);
    if (fault == "malloc") mNoMemory = true;
    if (fault == "space") mNoSpace = true;
    if (fault == "open") mReadFault = true;
}

// "17 write /path failed": only below the named paths.
void BootCheck::checkOperation(const std::string& operation, bool injected) {
    const size_t from = operation.find(" /");
    if (from == std::string::npos) return;
    std::string path = operation.substr(from + 1);
    const std::string failed = " failed";
    if (path.size() > failed.size() &&
        path.compare(path.size() - failed.size(), failed.size(), failed) == 0) {
        path.resize(path.size() - failed.size());
        // Without a fault it must be one that the model finds too.
        if (injected || mNoSpace || mSeen.device.partitionSize) mUnsure.insert(path);
    }
    static const std::set<std::string> named = {kRecord,       kBackup,        kFlag,
                                                kUploads,      kFailureUpload, kSuccessUpload,
                                                kReason,       kHistory,       kPmic,
                                                kHwInfo,       kJournal,       kMarker,
                                                kSwitch,       kOverride,      "/velafs/boot_vigil",
                                                "/velafs/SDD", kLogs};
    const bool archive = startsWith(path, kLogs + "/") && path.size() > 3 &&
                         path.compare(path.size() - 3, 3, ".zs") == 0;
    const bool platform = startsWith(path, "/velafs/boot_vigil/init_msg") ||
                          startsWith(path, "/velafs/boot_vigil/kernel_msg");
    if ((startsWith(path, "/velafs") || startsWith(path, "/data")) && named.count(path) == 0 &&
        !archive && !platform) {
        broken(Kind::RULE, "touches " + path + ", which no rule names");
    }
}

void BootCheck::checkIdle(const TraceEvent& event) {
    int files = 0;
    int folders = 0;
    int zombies = 0;
    sscanf(event.text.c_str(), "files=%d folders=%d zombies=%d", &files, &folders, &zombies);
    // What is open at a fault may stay open; the folders are counted when the message is done.
    if (mFaults.empty() && (files > 0 || zombies > 0 || folders > mFoldersOpen + 1)) {
        broken(Kind::RULE, "leaves open or unreaped: " + event.text);
    }
}

// A wake-up delivers a message at that very time.
void BootCheck::checkWakes() {
    const TraceEvent* wake = nullptr;
    for (const TraceEvent& event : mSeen.events) {
        mNow = event.ms;
        if (event.kind == TraceEvent::WAKE) {
            if (wake != nullptr) broken(Kind::RULE, "woke up twice for one message");
            wake = &event;
        } else if (event.kind == TraceEvent::LOG && startsWith(event.text.substr(2), kHandle) &&
                   wake != nullptr) {
            if (wake->ms != event.ms) broken(Kind::RULE, "a message comes late after a wake-up");
            wake = nullptr;
        }
    }
    const bool cut = mSeen.end == End::KILLED || mSeen.end == End::CUT_OFF;
    if (wake != nullptr && !cut && !mNoMemory) broken(Kind::RULE, "woke up without a message");
    mNow = 0;
}

void BootCheck::deliver(size_t index) {
    const TraceEvent& event = mSeen.events[index];
    const int what =
            static_cast<int>(strtol(event.text.c_str() + 2 + strlen(kHandle), nullptr, 16));
    if (mExpectedExit || mAborts) broken(Kind::RULE, "goes on where it must have ended");
    const auto next =
            std::min_element(mPending.begin(), mPending.end(),
                             [](const Pending& a, const Pending& b) { return a.due < b.due; });
    if (next == mPending.end() || next->what != what) {
        broken(Kind::RULE, format("delivers message %x, which is not the next one", what));
        const auto other = std::find_if(mPending.begin(), mPending.end(),
                                        [&](const Pending& one) { return one.what == what; });
        if (other != mPending.end()) mPending.erase(other);
    } else {
        if (event.ms != std::max(next->due, mLastEnd)) {
            broken(Kind::RULE, format("message %x was due at %.3f s", what,
                                      static_cast<double>(next->due) / 1000.0));
        }
        size_t before = index;
        while (before > 0 && mSeen.events[before - 1].kind == TraceEvent::FAULT) --before;
        const bool woken = before > 0 && mSeen.events[before - 1].kind == TraceEvent::WAKE;
        if (!woken && event.ms != mLastEnd) broken(Kind::RULE, "a message comes without a wake-up");
        mPending.erase(next);
    }
    take(kHandle);
    handle(what);
}

// ---- The device as the model knows it

void BootCheck::applyChanges(int64_t until) {
    for (size_t i = mFrom; i < mTo; ++i) {
        const TraceEvent& event = mSeen.events[i];
        if (event.kind == TraceEvent::CHANGE && event.ms <= until && mApplied.insert(i).second) {
            applyChange(event);
        }
    }
}

void BootCheck::applyChange(const TraceEvent& event) {
    const std::string verb = event.text.substr(0, event.text.find(' '));
    const std::string rest = event.text.substr(std::min(verb.size() + 1, event.text.size()));
    if (verb == "set") {
        const size_t blank = std::min(rest.find(' '), rest.size());
        mProperties[rest.substr(0, blank)] = rest.substr(std::min(blank + 1, rest.size()));
    } else if (verb == "clock") {
        mJump += atoll(rest.c_str());
    } else if (verb == "signal") {
        mKilledBy = atoi(rest.c_str());
    } else if (verb == "fill" || verb == "read-only") {
        mNoSpace = true;
        mIgnored.insert(rest);
    } else if (verb == "remove") {
        if (startsWith(kHistory, rest)) mBooks.steps = 0;
        const std::string below = rest + "/";
        for (TextMap* files : {&mFiles, &mWorldFiles}) {
            for (auto file = files->begin(); file != files->end();) {
                const bool gone = file->first == rest || startsWith(file->first, below);
                file = gone ? files->erase(file) : std::next(file);
            }
        }
        forgetFolders(rest);
    } else if (verb == "write") {
        std::string text;
        const auto change = std::find_if(mSeen.boot.changes.begin(), mSeen.boot.changes.end(),
                                         [&](const Change& one) {
                                             return one.kind == Change::Kind::WRITE &&
                                                    one.name == rest && one.at <= event.ms &&
                                                    one.at + 2000 >= event.ms;
                                         });
        if (change != mSeen.boot.changes.end())
            text = change->value;
        else
            mIgnored.insert(rest);  // the log-capture service's
        if (rest == kHistory) mBooks.steps = 0;
        const bool kept = startsWith(rest, "/velafs/") || startsWith(rest, "/data/");
        (kept ? mFiles : mWorldFiles)[rest] = text;
        for (std::string folder = folderOf(rest); kept && !folder.empty();
             folder = folderOf(folder)) {
            mBooks.folders.insert(folder);
        }
    }
}

void BootCheck::forgetFolders(const std::string& top) {
    for (auto folder = mBooks.folders.begin(); folder != mBooks.folders.end();) {
        const bool below = *folder == top || startsWith(*folder, top + "/");
        folder = below ? mBooks.folders.erase(folder) : std::next(folder);
    }
}

std::string BootCheck::property(const std::string& name, const std::string& missing) const {
    const auto found = mProperties.find(name);
    return found == mProperties.end() || found->second.empty() ? missing
                                                               : found->second.substr(0, 91);
}

int BootCheck::number(const std::string& name, const char* missing) const {
    return atoi(property(name, missing).c_str());
}

bool BootCheck::isFolder(const std::string& path) const {
    return mBooks.folders.count(path) > 0 && mFiles.count(path) == 0;
}

bool BootCheck::exists(const std::string& path) const {
    return mFiles.count(path) > 0 || isFolder(path);
}

bool BootCheck::hasEntry(const std::string& folder, const std::string& part) const {
    const auto matches = [&](const std::string& path) {
        return path.size() > folder.size() && startsWith(path, folder + "/") &&
               contains(path.substr(folder.size() + 1,
                                    path.find('/', folder.size() + 1) - folder.size() - 1),
                        part);
    };
    return std::any_of(mFiles.begin(), mFiles.end(),
                       [&](const auto& file) { return matches(file.first); }) ||
           std::any_of(mBooks.folders.begin(), mBooks.folders.end(), matches);
}

bool BootCheck::excused(const std::string& path) const {
    return mUnsure.count(path) > 0 || mNoMemory || (mNoSpace && startsWith(path, "/velafs"));
}

std::string BootCheck::content(const std::string& path, const std::string& missing) const {
    const auto found = mFiles.find(path);
    return found == mFiles.end() ? missing : found->second;
}

// Whether the file could be opened for that.
bool BootCheck::write(const std::string& path, const std::string& text, bool append) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (isFolder(path) || !isFolder(folderOf(path))) return false;
    mWritten[path] = mNow;
    std::string& file = mFiles[path];
    file = append ? file + text : text;
    return true;
}

// The same where a failure is logged: what was logged counts.
bool BootCheck::writeOrLog(const std::string& path, const std::string& text, bool append) {
    const auto before = mFiles.find(path) == mFiles.end()
                                ? std::nullopt
                                : std::optional<std::string>(mFiles[path]);
    const bool possible = write(path, text, append);
    const bool failed =
            take("Save file path " + path + " fail") || take("Open file path " + path + " fail");
    if (!decide(!possible, failed, excused(path), "the failure to open " + path)) return true;
    if (before) {
        mFiles[path] = *before;
    } else {
        mFiles.erase(path);
    }
    return false;
}

void BootCheck::remove(const std::string& path) {
    if (mCutShort || excused(path)) mUnsure.insert(path);
    if (take("file " + path + " remove failed")) {
        if (path == kFlag) mBooks.submitted.clear();  // it is flagged still
        return;
    }
    mFiles.erase(path);
    mWritten[path] = mNow;
}

std::string BootCheck::localTime() const {
    const time_t time = mSeen.clock + mJump + mNow / 1000;
    tm date = {};
    gmtime_r(&time, &date);
    char text[32];
    asctime_r(&date, text);
    return std::string(text, 24);
}

std::optional<std::string> BootCheck::worldFile(const std::string& path) const {
    const auto found = mWorldFiles.find(path);
    if (found != mWorldFiles.end()) return found->second;
    if (path != mSeen.boot.profilePath) return std::nullopt;
    return mSeen.boot.profileText ? *mSeen.boot.profileText : mSeen.boot.profile.at(mNow);
}

std::vector<std::string> BootCheck::profile() {
    const std::optional<std::string> text = worldFile(mProfilePath);
    const bool failed = take("parseBootProf open " + mProfilePath + " failed").has_value();
    if (decide(!text, failed, mReadFault, "the failure to open " + mProfilePath)) return {};
    return linesOf(text.value_or(""));
}

// ---- The rules

void BootCheck::post(int what, int64_t seconds) {
    mPending.push_back({mNow + seconds * 1000, what});
}

void BootCheck::handle(int what) {
    switch (what) {
        case kStart:
            return start();
        case kPoll:
            return poll();
        case kTimeout:
            return timeout();
        case kRecovery:
            return recover();
        case kExit:
            expect("bootvigil exit.");
            throw Exited{0};
        case kAfterBoot:
            return afterBoot();
        default:
            return broken(Kind::RULE, "a message that no rule names");
    }
}

void BootCheck::start() {
    if (property("ro.boot.mode") != "normal") throw Exited{0};
    if (worldFile("/proc/velabootprof")) mProfilePath = "/proc/velabootprof";
    expectCall(mSets, "sys.bootvigil.version");
    post(kPoll, 30);
    const bool known = exists(kMarker);
    const bool made = !known && write(kMarker, "");
    mFirstBoot = decide(made, take("first timer 8m").has_value(), excused(kMarker) || mReadFault,
                        "the first boot's time-out");
    if (made && !mFirstBoot) mUnsure.insert(kMarker);
    post(kTimeout, mFirstBoot ? 480 : 240);
}

bool BootCheck::booted() const {
    return number("sys.boot_completed") != 0 && number("service.bootanim.exit") != 0;
}

int BootCheck::reason() {
    if (mCachedReason != 0) return mCachedReason;
    const int value = number("sys.vela.boot_fail_reason");
    mCachedReason = value & 255;
    return value;
}

void BootCheck::poll() {
    if (!mBooted) mBooted = booted();
    followCapture();
    if (systemError()) return post(kRecovery, 10);
    mBooted = decide(mBooted, take("handleMessage booted, Anim closed.").has_value(), mReadFault,
                     "the end of the boot");
    if (!mBooted) {
        if (mErrType == 0) {
            parseProfile();
            int64_t type = 0;
            std::string note;
            if (mLoop && checkReason(type, note)) capture(type, mStuckPid, note);
        }
        return post(kPoll, 30);
    }
    handleKeptLogs();
    if (allComplete(take("boot finished, enter launcher.").has_value())) {
        if (checkSuccess(1)) expect("Have recoveryed.");
        return post(kAfterBoot, 120);
    }
    if (exists(kPmic)) remove(kPmic);
    if ((reason() & 255) != 22) return post(kPoll, 30);
    expect("errNotify type = 5, phase=7, detailPhase=0");
    notify(5, 7, 0, reason());
    capture(0x60036, 0, "");
    post(kRecovery, 10);
}

void BootCheck::followCapture() {
    if (mCaptureState == 1) {
        const bool there = hasEntry("/velafs/boot_vigil", "0xffffff06");
        const std::string missing = "kel dont capture log in boot vigil";
        if (!decide(!there, take(missing).has_value(), mReadFault || mNoSpace,
                    "\"" + missing + "\"")) {
            ++mFoldersOpen;
            return;
        }
        writeOrLog(kJournal, localTime() + "  " + missing + "\n", true);
        remove(kReason);
        captureSelf();
        mCaptureState = 2;
    } else if (mCaptureState == 2) {
        const bool there = hasEntry(kLogs, "android_main_log");
        const std::string missing = "user capture log fail in boot vigil";
        if (!decide(!there, take(missing).has_value(), mReadFault || mNoSpace,
                    "\"" + missing + "\"")) {
            ++mFoldersOpen;
            return;
        }
        writeOrLog(kJournal, localTime() + "  " + missing + "\n", true);
        mCaptureState = 3;
    }
}

bool BootCheck::systemError() {
    const int value = reason();
    expect(format("BOOTVIGIL checkSystemError reason=%d", value & 255));
    if ((value & 255) != 20 && (value & 255) != 120) return false;
    notify(2, 5, 0, number("sys.vela.BOOT_COMPLETED") == 1 ? 120 : value);
    capture(0x60036, 0, "");
    return true;
}

void BootCheck::handleKeptLogs() {
    if (mRawDone) return;
    mRawDone = true;
    const std::string health = worldFile("/" + kHealth) ? kHealth + ";" : "";
    if (decide(worldFile("/dev/velarawlog/init").has_value(), !take("Init:Not found log."),
               mReadFault || mCutShort, "a kept init log")) {
        notify(5, 8, 1, 100);
        if (take("init:get log.")) capture(0x60036, 0, "/velafs/boot_vigil/init_msg;" + health);
    }
    if (decide(worldFile("/dev/velarawlog/kernel").has_value(), !take("kernel:Not found log."),
               mReadFault || mCutShort, "a kept kernel log")) {
        notify(1, 3, 1, 100);
        const std::string got = "kernel:get log: ";
        if (const auto line = take(got)) {
            const std::string path = line->substr(got.size(), line->size() - got.size() - 1);
            capture(0x60036, 0, path + ";" + health);
        }
    }
}

void BootCheck::timeout() {
    if (mErrType != 0 || allComplete(std::nullopt)) return;
    if (!mBooted) mBooted = booted();
    if (mBooted) {
        int phase = 0;
        if (bootFinished(phase)) return;
        if (phase == 0 || phase != mOobePhase) {
            mOobePhase = phase;
            mOobeChecks = 0;
        } else if (mOobeChecks < 2) {
            ++mOobeChecks;
        } else {
            expect(format("errNotify type = 5, phase=%d, detailPhase=0", phase));
            return notify(5, phase, 0, reason());
        }
        return post(kTimeout, 240);
    }
    if (!contains(mLastKey, "performDexOpt")) ++mTimeouts;
    int64_t type = 0;
    std::string note;
    if (checkReason(type, note)) {
        capture(type, mStuckPid, note);
        return expect("handleMessage is boot timeout so start kel");
    }
    expect("handleMessage is boot timeout, boot slowly, check again.");
    post(kTimeout, 240);
}

void BootCheck::recover() {
    if (runRecovery(mReason)) {
        expect("Have found error number.");
    } else {
        expect(format("BOOTVIGIL wrong reason to run recovery, %d", mReason));
    }
    post(kExit, 10);
}

void BootCheck::afterBoot() {
    if (systemError()) return post(kRecovery, 10);
    if (checkSuccess(2)) expect("Have recoveryed.");
    post(kExit, 10);
}

void BootCheck::parseProfile() {
    mStuckPid = -1;
    const std::vector<std::string> lines = profile();
    if (lines.size() <= 2) return expect("parseBootProf Lines < 3");
    mCounts.clear();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, " :");
        if (fields.size() < 3) continue;
        const auto milestone = std::find(kMilestones.begin(), kMilestones.end(), fields[2]);
        if (milestone == kMilestones.end() || ++mCounts[fields[2]] < 5) continue;
        expect("parseBootProf reboot reason " + fields[2] + ", count 5");
        mLoopIndex = static_cast<int>(milestone - kMilestones.begin());
        mLoop = true;
        return;
    }
    const std::vector<std::string> fields = split(lines[lines.size() - 3], " :");
    if (fields.size() < 3) return;
    const std::string key = fields[1] + " | " + fields[2];
    expect("parseBootProf Last Line key " + key.substr(0, 900));
    mSameLine = key == mLastKey ? mSameLine + 1 : 0;
    mLastKey = key;
}

bool BootCheck::bootFinished(int& phase) {
    const std::vector<std::string> lines = profile();
    if (lines.size() <= 2) {
        expect("parseBootProf Lines < 3");
        return false;
    }
    const int wizard = number("persist.sys.oobe", "2");
    if (wizard == 1 || wizard == 2) phase = wizard + 5;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, " :");
        if (fields.size() >= 3 && fields[2] == "Post BOOT_COMPLETED" && wizard == 2 && booted()) {
            return true;
        }
    }
    return number("sys.vela.BOOT_COMPLETED") == 1;
}

// `observed`: whether the daemon was seen to find it so, where that can be seen.
bool BootCheck::allComplete(std::optional<bool> observed) {
    int phase = 0;
    bool finished = bootFinished(phase);
    if (observed)
        finished = decide(finished, *observed, mReadFault, "the end of the boot for good");
    if (!finished) return false;
    if (mOobePhase >= 6 && mOobePhase == mMainPhase) {
        const std::vector<std::string> lines = linesOf(content(kRecord, ""));
        std::string rest;
        for (size_t i = 0; i + 1 < lines.size(); ++i) rest += lines[i] + "\n";
        if (!lines.empty()) write(kRecord, rest);
        remove(kFlag);
        mOobePhase = 0;
    }
    const std::string flag = content(kFlag, "0");
    const bool flagged = !flag.empty() && static_cast<unsigned char>(flag[0]) >= '1';
    if (!decide(flagged, take("enter submitInfo").has_value(), excused(kFlag) || mReadFault,
                "the submission of a flagged failure")) {
        return true;
    }
    submit();
    stamp(mErrType != 0 ? 1 : 2);
    remove(kFlag);
    return true;
}

// The detail number, 0 for none; finds the stuck process.
int BootCheck::stuckDetail() {
    mStuckPid = -1;
    if (contains(mLastKey, "performDexOpt")) {
        expect("Now is perform DexOpt");
    } else if (mSameLine >= 3) {
        const std::vector<std::string> fields = split(mLastKey, "-");
        if (!fields.empty() && fields[0].find_first_not_of("0123456789") == std::string::npos) {
            mStuckPid = atoi(fields[0].c_str());
            expect(format("checkStuckPid stuck pid = %d", mStuckPid));
        } else if (mTimeouts > 2) {
            mStuckPid = 0;
        }
    } else if (mTimeouts >= 3) {
        mStuckPid = 0;
    }
    if (mLoop) {
        for (int i = mLoopIndex; i >= 0 && i < 11; ++i) {
            if (mCounts[kMilestones[i]] == 0) return i + 4;
        }
        return 255;
    }
    if (number("sys.boot_completed") == 1 && number("service.bootanim.exit") == 0) return 3;
    if (mStuckPid == -1) return 0;
    return mCounts["Android:SysServerInit_START"] == 1 ? 2 : 1;
}

bool BootCheck::checkReason(int64_t& type, std::string& note) {
    const std::string start = "checkReason Reason = ";
    const int predicted = stuckDetail();
    const auto line = take(start);
    int detail = line ? atoi(line->c_str() + start.size()) : 0;
    if (detail != predicted && !mReadFault && !mNoMemory && !(mCutShort && !line)) {
        broken(Kind::RULE, format("finds detail %d where the rules say %d", detail, predicted));
    }
    if (mCutShort && !line) detail = predicted;
    if (detail == 0) return false;
    if (line && !mReadFault &&
        *line != format("%s%d, file Reason = %s", start.c_str(), detail, mFileReason.c_str())) {
        broken(Kind::RULE, "reads another reason file: " + *line);
    }
    if (detail != 3) {
        mLoop ? notify(2, 4, detail, 100) : notify(5, detail == 2 ? 5 : 4, detail, 100);
        post(kRecovery, 10);
    }
    type = detail == 1 ? 0x60436 : detail == 2 ? 0x60276 : detail == 3 ? 0x61036 : 0x60036;
    note = worldFile("/" + kHealth) ? kHealth + ";" : "";
    if (detail == 10 || detail == 11) {
        note += "/data/system/users/0.xml;/data/system/users/userlist.xml/data/system/"
                "packages.xml;/data/system/uiderrors.txt";
    }
    if (detail == 2) {
        expectCall(mSignals, format("%d %d", SIGQUIT, mStuckPid));
        if (mStuckPid == 0) {
            mQuits = true;
            throw Aborted();
        }
        mNow += 2000;
        applyChanges(mNow);
    }
    write(kReason, std::to_string(detail));
    return true;
}

bool BootCheck::usable() {
    if (!exists("/velafs")) {
        expect("BOOTVIGIL velafs not exist");
        return false;
    }
    const auto size = std::find_if(mLogs.begin(), mLogs.end(), [](const std::string& line) {
        return startsWith(line, "BOOTVIGIL velafs AvailableSize ") && contains(line, " MB");
    });
    if (size == mLogs.end()) return !mCutShort && !mNoMemory;
    size->clear();
    if (size + 1 != mLogs.end() && startsWith(size[1], "BOOTVIGIL velafs AvailableSize not")) {
        const bool limited = mNoSpace || mSeen.device.partitionSize || mSeen.boot.space;
        decide(false, true, limited, "a full partition");
        mNoSpace = true;
        return false;
    }
    for (const char* folder : {"/velafs/boot_vigil", "/velafs/SDD"}) {
        if (take(format("BOOTVIGIL create %s failed", folder))) {
            return !decide(false, true, excused(folder), std::string("no folder ") + folder);
        }
        if (!exists(folder)) mBooks.folders.insert(folder);
    }
    return true;
}

void BootCheck::notify(int type, int phase, int detail, int reason) {
    reason &= 255;
    const std::string line = format("%s%d, phase=%d, detailPhase=%d, reason=%d", kNotify, type,
                                    phase, detail, reason);
    expect(line);
    mErrType = type;
    mTime = localTime();
    mMainPhase = phase;
    mDetail = detail;
    if (type == 5) mCoreText = mLastKey.substr(0, 256);
    mReason = mCachedReason = reason;
    if (usable()) saveRecord();
}

void BootCheck::saveRecord() {
    const unsigned packed = (mMainPhase & 15U) << 20 | (mDetail & 255U) << 12 |
                            (mErrType & 15U) << 8 | (mReason & 255U);
    const std::string line = "TIME:" + mTime + format(";    ERR_NUM:0x%x", packed) +
                             ";    ERR_INFO:" + mCoreText + ";    ERR_EXPINFO:Country(" +
                             property("persist.sys.oobe_country") + ")  ;\n";
    const bool restart = content(kRecord, "").size() >= 5120;
    if (restart) write(kBackup, content(kRecord, ""));
    mRecordLines += line;
    if (!writeOrLog(kRecord, line, !restart)) return;
    if (!take("saveBfFlag mMainPhase") && (mCutShort || mNoMemory)) return;
    writeOrLog(kFlag, std::to_string(mMainPhase), false);
}

void BootCheck::submit() {
    if (!exists(kRecord)) return;
    if (decide(false, take("submitLogInfo: read open").has_value(), mReadFault,
               "the failure to read " + kRecord)) {
        return;
    }
    const std::vector<std::string> lines = linesOf(content(kRecord, ""));
    const std::string line = lines.empty() ? "" : lines.back();
    const auto shown = take("submitInfo:info = ");
    if (shown && !line.empty() && *shown != "submitInfo:info = " + line && !excused(kRecord) &&
        !mReadFault && line.size() < 900) {
        broken(Kind::RULE, "submits another line than the last: " + *shown);
    }
    if (!line.empty() && !mBooks.submitted.insert(line).second) {
        broken(Kind::RULE, "submits a second time: " + line);
    }
    std::string payload = "Unknow|Unknow|Unknow";
    std::string number;
    const std::vector<std::string> fields = split(line, ";    ");
    if (fields.size() >= 3) {
        const std::vector<std::string> time = split(fields[0], ":");
        if (time.size() >= 2) {
            const std::vector<std::string> code = split(fields[1], ":");
            if (code.size() >= 2) {
                number = code[1];
                const std::vector<std::string> info = split(fields[2], ":");
                payload = number + "|" + time[1] + "|" + (info.size() < 2 ? "NA" : info[1]);
            }
        }
    }
    if (number.size() >= 3 && (number[2] == '6' || number[2] == '7')) return;
    if (excused(kRecord) || mReadFault) mUnsure.insert(kFailureUpload);
    upload(kFailureUpload, "BOOTVIGIL|" + payload);
}

void BootCheck::upload(const std::string& path, const std::string& text) {
    if (!exists(kUploads)) {
        if (take("BOOTVIGIL create " + kUploads + " failed")) {
            mUnsure.insert(path);
            return;
        }
        mBooks.folders.insert(kUploads);
    }
    if (!exists(path)) writeOrLog(path, text, false);
}

void BootCheck::stamp(int code) {
    if (!exists(kRecord)) return;
    const std::string line = "TIME:" + localTime() + format(";    ERR_NUM:0x%x", 0xf00000 + code) +
                             ";    ERR_INFO:;    ERR_EXPINFO:;\n";
    mRecordLines += line;
    writeOrLog(kRecord, line, true);
}

void BootCheck::saveDeviceInfo() {
    const std::optional<std::string> text = worldFile("/proc/cmdline");
    if (!text || take("parseCmdline open /proc/cmdline failed")) return;
    const std::vector<std::string> lines = linesOf(*text);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const size_t at = line->find("poffsts=");
        if (at == std::string::npos) continue;
        writeOrLog(kPmic, localTime() + ": " + line->substr(at + 8, 4) + "\n", true);
        break;
    }
    if (exists(kHwInfo)) return;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        std::vector<std::string> tokens = split(*line, " ");
        std::reverse(tokens.begin(), tokens.end());
        for (const std::string& token : tokens) {
            if (contains(token, "FlashID=")) writeOrLog(kHwInfo, token + " ", true);
            if (contains(token, "mem_index=")) writeOrLog(kHwInfo, token + " ", true);
        }
    }
}

void BootCheck::capture(int64_t type, int pid, std::string note) {
    saveDeviceInfo();
    for (const std::string& path : {kPmic, kHwInfo, kRecord}) {
        if (exists(path)) note += path + ";";
    }
    if (!usable()) return;  // the marker is written instead
    const bool service = number("persist.sys.bootvigil.debug") != 1 &&
                         property("init.svc.kel", " ") == "running" &&
                         property("init.svc.kelvservice", " ") == "running";
    const auto asked = take("type: ");
    if (decide(service, asked.has_value(), mReadFault, "a request to the log-capture service")) {
        const std::string line = format("type: %lld; pid:%d; ext:%s ", static_cast<long long>(type),
                                        pid, note.c_str());
        if (asked && *asked != line && mFaults.empty() && !mNoSpace) {
            broken(Kind::RULE, "asks the log-capture service \"" + *asked + "\", not \"" + line);
        }
        writeOrLog(kJournal, localTime() + "  KEL capture log\n", true);
        mCaptureState = 1;
        return;
    }
    expect("kel dont running so capture log by stuck");
    captureSelf();
    writeOrLog(kJournal, localTime() + "  USER capture log\n", true);
    mCaptureState = 2;
}

void BootCheck::captureSelf() {
    for (const char* name :
         {"android_crash_log", "android_main_log", "android_events_log", "android_system_log",
          "android_radio_log", "sys_kernel_log", "console-ramoops-0"}) {
        const std::string path = kLogs + "/" + name + ".zs";
        if (!write(path, "")) throw Exited{2};
    }
}

bool BootCheck::disabled() {
    const int low = reason() & 255;
    if (property("persist.sys.enable_rescue", "false") == "true" && (low == 20 || low == 120)) {
        return true;
    }
    if (mDisabled >= 0) return mDisabled == 1;
    mDisabled = 1;
    if (number("ro.vela.bfRecovery.support", "1") != 1) return true;
    const std::vector<std::string> lines = linesOf(content(kSwitch, ""));
    mDisabled = std::find(lines.begin(), lines.end(), "BfRecover=NO") != lines.end() ? 1 : 0;
    return mDisabled == 1;
}

int BootCheck::recoveryMode() const {
    const std::string line = firstLine(content(kHistory, "0"));
    return line.size() < 2 ? 0 : (line[1] - '0') & 255;
}

void BootCheck::cleanHistory() {
    expect("clean Recovery History.");
    if (exists(kHistory)) remove(kHistory);
    mBooks.steps = 0;
}

bool BootCheck::chooseList(int error) {
    if (exists(kOverride)) {
        const std::vector<std::string> lines = linesOf(content(kOverride, ""));
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            const std::vector<std::string> fields = split(*line, "|");
            if (fields.size() < 2 || atoi(fields[0].c_str()) != error) continue;
            for (size_t i = 0; i < 5 && fields[1].size() > 4; ++i) mTable[i] = fields[1][i] - '0';
            break;
        }
        mList = &mTable;
    } else if (kDefaultLists.count(error) > 0) {
        mList = &kDefaultLists.at(error);
    }
    return mList != nullptr;
}

// The next step of the ladder, and only that.
bool BootCheck::runRecovery(int error) {
    const bool off = disabled();
    const bool history = !excused(kHistory) && !mReadFault;
    int predicted = 0;
    std::string line;
    if (!history) mBooks.steps = 0;
    if (error != 0 && !off) {
        if (!mFirstBoot && history && recoveryMode() == 5) cleanHistory();
        if (!mFirstBoot && !history && take("clean Recovery History.")) mFiles.erase(kHistory);
        if (chooseList(error)) {
            line = firstLine(content(kHistory, "0"));
            const int index = line.empty() ? -1 : line[0] - '0';
            if (index >= 0 && index <= 4) predicted = (*mList)[index];
        }
    }
    const std::string saving = "saveRecoveryFlag info = ";
    const auto saved = take(saving);
    const bool reset = take("try to data reset").has_value();
    const bool wait = take("waite user reboot").has_value();
    const bool reboot = take("try to reboot").has_value();
    if (reset + wait + reboot > 1) broken(Kind::RULE, "more than one recovery action");
    const int mode = reset ? 5 : wait ? 2 : reboot ? 1 : 0;
    if (off && mode != 0) broken(Kind::RULE, "a recovery action while recovery is disabled");
    const bool acts = predicted == 1 || predicted == 2 || predicted == 5;
    if (mode != (acts ? predicted : 0) && history && !mCutShort && !mNoMemory) {
        broken(Kind::RULE, format("recovery mode %d where the list says %d", mode, predicted));
    }
    if (mode != 0 && mList != nullptr &&
        std::find(mList->begin(), mList->end(), mode) == mList->end()) {
        broken(Kind::RULE, format("recovery mode %d, which the list does not name", mode));
    }
    const auto request = [&](const char* name) {
        expectCall(mSets, name);
        mRequest = mNow;
        mReset |= mode == 5;
    };
    if (predicted > 0 || mode > 0) {
        const int next = line.empty() ? 0 : line[0] - '0' + 1;
        std::string text = format("%d%d%c", next, predicted, reason() & 255);
        if (!history && saved)
            text = saved->substr(saving.size(), saved->size() - saving.size() - 1);
        const bool kept = writeOrLog(kHistory, text, false);
        if (mode != 0 && kept) ++mBooks.steps;
        const auto steps = mList == nullptr ? 0
                                            : std::count_if(mList->begin(), mList->end(),
                                                            [](int m) { return m != 0; });
        if (mBooks.steps > steps && kept) {
            broken(Kind::RULE, format("recovery action %d of a list of %d", mBooks.steps,
                                      static_cast<int>(steps)));
        }
    }
    if (mode == 5 && mFirstBoot) cleanHistory();
    if (mode == 5 && !mFirstBoot) request("sys.velas_recovery_reset");
    if (mode == 1) request("sys.velas_recovery_reboot");
    return mode != 0;
}

bool BootCheck::checkSuccess(int kind) {
    if (disabled()) return false;
    const int mode = recoveryMode();
    const std::string line = firstLine(content(kHistory, "0"));
    const int last = line.size() < 3 ? 0 : static_cast<unsigned char>(line[2]);
    const bool judged = mode != 0 && !(kind == 1 && last > 100);
    const bool seen = take("isRecoverySuccess mode=").has_value();
    if (!decide(judged, seen, excused(kHistory) || mReadFault, "the verdict on a recovery")) {
        return false;
    }
    const char* cause = mode == 1 ? "reboot,velarecovery" : "reboot,factory_reset";
    const bool success = (mode != 1 && mode != 5) || property("sys.boot.reason") == cause;
    if (success && (mode == 1 || mode == 5)) {
        expect("enter submitSuccessInfo");
        if (excused(kHistory) || mReadFault) mUnsure.insert(kSuccessUpload);
        upload(kSuccessUpload, format("BFRECOVERY|%d|%s|%d", mode, localTime().c_str(), last));
    }
    cleanHistory();
    return success;
}

// ---- How it ended, and what it left

void BootCheck::checkEnd() {
    mNow = mSeen.endedAt;
    switch (mSeen.end) {
        case End::EXITED:
            return checkStatus();
        case End::KILLED:
            return checkSignal();
        case End::CUT_OFF: {
            const bool cycled = std::any_of(mSeen.boot.changes.begin(), mSeen.boot.changes.end(),
                                            [](const Change& one) {
                                                return one.kind == Change::Kind::POWER_CYCLE;
                                            });
            const bool asked = mRequest >= 0 && mNow >= mRequest + mSeen.device.rebootAfter;
            if (!cycled && !asked && mFaults.count("power-cut") == 0) {
                broken(Kind::LIVENESS, "cut off by nobody");
            }
            return checkPending();
        }
        case End::STILL_RUNNING:
            return checkPending();
    }
}

void BootCheck::checkPending() {
    if (mCutShort) return;
    if (mExpectedExit || mAborts) return broken(Kind::LIVENESS, "runs on after its end");
    if (mPending.empty()) return broken(Kind::LIVENESS, "nothing pending, and it has not ended");
    for (const Pending& one : mPending) {
        if (one.due < mNow && mLastEnd < mNow) {
            broken(Kind::LIVENESS, format("message %x was due at %.3f s", one.what,
                                          static_cast<double>(one.due) / 1000.0));
        }
    }
}

void BootCheck::checkStatus() {
    const int status = mSeen.status;
    if (mExpectedExit && *mExpectedExit == status) return;
    if (status == 0) return broken(Kind::CRASH, "exits although messages are pending");
    const auto faulty = [&](const char* call) { return mFaults.count(call) > 0; };
    const bool full = mNoSpace || mSeen.device.partitionSize || !mSeen.device.endlessLogs.empty();
    const bool excuse = (status == 2 && (faulty("open") || full || mNoMemory)) ||
                        (status == 3 && (faulty("close") || faulty("write") || full)) ||
                        (status == 5 && (faulty("write") || full)) ||
                        ((status == 8 || status == 1) && mNoMemory);
    if (!excuse) broken(Kind::CRASH, format("exits with status %d without a cause", status));
}

void BootCheck::checkSignal() {
    const int number = mSeen.status;
    const bool excuse = (number == SIGABRT && ((mAborts && !mQuits) || mNoMemory)) ||
                        (number == SIGQUIT && mQuits) || number == mKilledBy;
    if (!excuse) broken(Kind::CRASH, format("is killed by signal %d without a cause", number));
}

void BootCheck::checkFiles() {
    if (mReset) applyChange({mNow, TraceEvent::CHANGE, "remove /data"});  // the platform's answer
    for (const auto& [path, when] : mWritten) {
        if (mSeen.end == End::CUT_OFF && when + 30000 >= mSeen.endedAt) mUnsure.insert(path);
    }
    std::set<std::string> paths;
    for (const TextMap& files : {mFiles, mSeen.filesAfter}) {
        for (const auto& file : files) paths.insert(file.first);
    }
    for (const std::string& path : paths) {
        const bool archive = path.size() > 3 && path.compare(path.size() - 3, 3, ".zs") == 0;
        const bool worlds = mIgnored.count(path) > 0 || contains(path, "/boot_vigil/init_msg") ||
                            contains(path, "/boot_vigil/kernel_msg");
        if (archive || worlds || excused(path) ||
            (mSeen.boot.partitionAbsent && startsWith(path, "/velafs")))
            continue;
        const auto is = mSeen.filesAfter.find(path);
        const auto should = mFiles.find(path);
        if (should == mFiles.end()) {
            broken(Kind::RULE, path + " must not be there");
        } else if (is == mSeen.filesAfter.end()) {
            broken(Kind::RULE, path + " is missing");
        } else if (is->second != should->second) {
            broken(Kind::RULE,
                   path + " holds \"" + is->second + "\", not \"" + should->second + "\"");
        }
    }
    if (mSeen.boot.partitionAbsent) return;
    checkRecords(kRecord);
    checkUploads();
}

// Even where something failed, a line is an earlier one, a new one, or one of these cut.
void BootCheck::checkRecords(const std::string& path) {
    const auto after = mSeen.filesAfter.find(path);
    if (after == mSeen.filesAfter.end()) return;
    const auto before = mSeen.filesBefore.find(path);
    const auto known = mFiles.find(path);  // the world may have written it
    const std::vector<std::string> allowed =
            linesOf((before == mSeen.filesBefore.end() ? "" : before->second + "\n") +
                    (known == mFiles.end() ? "" : known->second + "\n") + mRecordLines);
    for (const std::string& line : linesOf(after->second)) {
        const bool explained =
                std::any_of(allowed.begin(), allowed.end(),
                            [&](const std::string& one) { return startsWith(one, line); });
        if (!explained && mIgnored.count(path) == 0) {
            broken(Kind::RULE, path + " holds a line of nobody: " + line);
        }
    }
}

// What the uploader has not taken stays as it is.
void BootCheck::checkUploads() {
    for (const std::string& path : {kFailureUpload, kSuccessUpload}) {
        const auto before = mSeen.filesBefore.find(path);
        const bool worlds = std::any_of(mSeen.boot.changes.begin(), mSeen.boot.changes.end(),
                                        [&](const Change& one) {
                                            return startsWith(path, one.name) && !one.name.empty();
                                        });
        if (before == mSeen.filesBefore.end() || worlds) continue;
        const auto after = mSeen.filesAfter.find(path);
        if (after == mSeen.filesAfter.end() || after->second != before->second) {
            broken(Kind::RULE, path + " was changed before it was collected");
        }
    }
}

void BootCheck::closeBooks() {
    const auto history = mSeen.filesAfter.find(kHistory);
    mBooks.history = history == mSeen.filesAfter.end() ? "" : history->second;
    mBooks.firstBoot = false;
    if (mReset) mBooks.folders.insert("/data/vela_dfr");
    if (!mFaults.empty() || mSeen.end == End::CUT_OFF) mBooks.submitted.clear();
}

}  // namespace

std::vector<Violation> Rules::check(const BootObservation& boot) {
    return BootCheck(boot, mBooks).run();
}

}  // namespace lab
