// SPDX-License-Identifier: Apache-2.0
// What the archive of a stream must hold, written down from the rules of the stream case.

#pragma once

#include <errno.h>
#include <stddef.h>

#include <string>
#include <vector>

constexpr size_t kBlock = 65536;
constexpr size_t kRead = 5120;

// One answer to read(2): bytes (none: the end), or an error.
struct Read {
    std::string bytes;
    int error = 0;
};

// The reads of a file, which are full.
inline std::vector<Read> readsOf(const std::string& content) {
    std::vector<Read> reads;
    for (size_t at = 0; at < content.size(); at += kRead)
        reads.push_back({content.substr(at, kRead)});
    return reads;
}

// Bytes over a block's end come back as zeros, at the head of each block from there on.
inline std::string streamModel(const std::vector<Read>& reads) {
    std::string content;
    size_t zeros = 0;
    auto next = reads.begin();
    std::string block;
    do {
        block.assign(zeros, '\0');
        while (next != reads.end() && block.size() <= kBlock) {
            const Read& read = *next++;
            if (read.error == EINTR) continue;
            if (read.error != 0) return content;
            if (read.bytes.empty()) break;
            block += read.bytes;
        }
        if (block.size() > kBlock) {
            zeros = block.size() - kBlock;
            block.resize(kBlock);
        }
        content += block;
    } while (block.size() == kBlock);
    return content;
}
