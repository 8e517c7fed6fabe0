// SPDX-License-Identifier: Apache-2.0
// Finds what rows can be made of: copies of partitions in trees of folders, and files of lines.

#pragma once

#include <functional>
#include <string>

namespace fleet {

struct Source {
    enum class Kind { COPY, LINES };

    Kind kind;
    std::string path;  // of a copy, the folder to give to bootvigil-report; "-": standard input
    std::string name;  // of a copy's device, where device.json has no serial
};

// Calls `take` for each source below a path that a user names, in the order of their names. A
// folder is a copy if it holds the partition, as "velafs" or as itself, or a device.json; other
// folders are searched, files in them are not. No link below the path is followed. Gives what went
// wrong, empty when nothing did: a path without any source, or folders that could not be searched.
std::string findSources(const std::string& path, const std::function<void(Source source)>& take);

}  // namespace fleet
