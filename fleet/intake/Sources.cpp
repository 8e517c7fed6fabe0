// SPDX-License-Identifier: Apache-2.0
// Finds what rows can be made of: copies of partitions in trees of folders, and files of lines.

#include "fleet/intake/Sources.h"

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "report/read/Files.h"
#include "report/read/ReadReport.h"

namespace fleet {

namespace {

namespace fs = std::filesystem;

constexpr size_t kMostNames = 10000000;  // of one folder
constexpr int kMostDepth = 16;           // of folders below the path

bool isCopy(const report::Folder& folder) {
    for (const char* name : {"velafs", "SDD", "boot_vigil", "device.json", "run.jsonl"}) {
        if (folder.has(name)) return true;
    }
    return false;
}

class Search {
public:
    explicit Search(const std::function<void(Source source)>& take) : mTake(take) {}

    // `name` is the folder's path below the one that the user named.
    void look(const report::Folder& folder, const fs::path& path, const fs::path& name, int depth) {
        if (isCopy(folder)) {
            const std::string last = report::deviceNames({path.string()}).front();
            mTake({Source::Kind::COPY, path, name.empty() ? last : name.string()});
            ++mFound;
            return;
        }
        std::string error;
        std::vector<std::string> names = folder.names(kMostNames, error);
        std::sort(names.begin(), names.end());
        for (const std::string& below : names) {
            // What is no folder, or a link, holds no copy.
            std::string notFolder;
            const report::Folder next = folder.open(below, notFolder);
            if (!notFolder.empty()) continue;
            if (depth == kMostDepth) {
                error = "is nested too deep";
                break;
            }
            look(next, path / below, name / below, depth + 1);
        }
        if (!error.empty() && mError.empty()) mError = path.string() + ": " + error;
    }

    std::string result(const std::string& path) const {
        if (mFound > 0 || !mError.empty()) return mError;
        return path + ": holds no copy of a partition (velafs, SDD, boot_vigil)";
    }

private:
    const std::function<void(Source source)>& mTake;
    size_t mFound = 0;
    std::string mError;  // the first one
};

}  // namespace

std::string findSources(const std::string& path, const std::function<void(Source source)>& take) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    const bool isFile = fs::exists(status) && !fs::is_directory(status);
    if (path == "-" || isFile) {
        take({Source::Kind::LINES, path, ""});
        return "";
    }
    std::string error;
    const report::Folder folder(path, error);
    if (!error.empty()) return path + ": " + error;
    Search search(take);
    // The database may be looked at from elsewhere.
    fs::path whole = fs::absolute(path, ignored).lexically_normal();
    if (!whole.has_filename()) whole = whole.parent_path();
    search.look(folder, whole, "", 0);
    return search.result(path);
}

}  // namespace fleet
