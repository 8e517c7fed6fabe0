// SPDX-License-Identifier: Apache-2.0
// File, time and string helpers that the rest of the daemon is built from.

#pragma once

#include <stddef.h>

#include <string>
#include <string_view>
#include <vector>

// Whether there is a file or folder of this name.
bool exists(const std::string& path);

// Makes a directory that all may use; false (and a log line) when that fails.
bool makeDirectory(const char* path);

// Cuts `str` at every occurrence of the whole text `pattern` (never empty) and returns the pieces,
// trimmed of blanks as Utils.cpp says; empty pieces are dropped and logged.
// A piece of only blanks ends the process: it throws std::out_of_range, which nothing catches.
std::vector<std::string> split(std::string str, std::string pattern);

// A boot profile line's event, empty where it has none: the third piece of split(line, " :"), with
// the same log lines and the same exception. It lies in `line`.
std::string_view eventOf(std::string_view line);

// True when every byte of `s` is an ASCII digit; so also for the empty text.
bool isallnum(std::string s);

// True when the file system that holds `path` has at least 22 bytes free for ordinary users.
bool getAvailableSize(const char* path);

// All lines of a text file without their line feeds, empty ones included; none if it can't be read.
std::vector<std::string> getFileLines(std::string path);

// The same from the last line to the first, and without a copy of each: they lie in this object,
// which keeps its memory for the next file.
class LinesFromEnd {
public:
    void read(const std::string& path);

    // Goes on to the line before the one it gave last; false at the beginning of the file.
    bool next(std::string_view& line);

    // Begins again with the last line.
    void rewind();

private:
    const char* begin(size_t end) const;  // of the line that ends there

    std::string mText;
    size_t mSize = 0;  // that is used of it
    size_t mLeft = 0;  // up to the end of the next line
    bool mMore = false;
};

// The first line of a text file: "0" when the file is missing or unreadable, "" when it is empty.
std::string getFirstLine(std::string path);

// The local time in the layout of asctime without its line feed, e.g. "Sun Nov 15 11:05:18 2026".
std::string getLocalTime();

// The file's size in bytes, or -1 when it can't be opened for reading.
int getFileSize(std::string path);

// Copies `src` over `dst`; false only when one of them can't be opened.
bool backupFile(std::string src, std::string dst);

// Removes a file or an empty directory; false (and a log line) when that fails.
bool removeFile(std::string path);

// True when `dir` has an entry whose name contains `name`.
bool isFileExitInPath(std::string dir, std::string name);

// Appends the line "<local time>  <info>" to the file, creating it; false when it can't be opened.
bool saveInfoWithTime(std::string path, std::string info);
