// SPDX-License-Identifier: Apache-2.0
// Holds the generated log text to the figures of a phone's main log.

#include "lab/base/LogText.h"

#include <zstd.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Buffer = lab::LogText::Buffer;

std::string textOf(Buffer buffer, size_t size) {
    lab::LogText log(buffer, 1);
    std::string text;
    while (text.size() < size) log.append(text);
    text.resize(size);
    return text;
}

// As a capture compresses it.
double ratio(const std::string& text) {
    std::string frame(ZSTD_compressBound(text.size()), '\0');
    ZSTD_CCtx* const context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, 5);
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
    const size_t size =
            ZSTD_compress2(context, frame.data(), frame.size(), text.data(), text.size());
    ZSTD_freeCCtx(context);
    return static_cast<double>(text.size()) / static_cast<double>(size);
}

TEST(LogTextTest, CompressesLikeAPhonesLog) {
    const std::string text = textOf(Buffer::MAIN, 64 << 20);
    EXPECT_NEAR(ratio(text.substr(0, 277000)), 13.8, 0.4);
    EXPECT_NEAR(ratio(text), 9.5, 0.15);
    EXPECT_NE(text.substr(0, 277000), textOf(Buffer::CRASH, 277000));
}

TEST(LogTextTest, HasThePartsOfAPhonesLog) {
    std::istringstream text(textOf(Buffer::MAIN, 4 << 20));
    std::map<std::string, int> tags;
    std::map<char, int> priorities;
    std::vector<size_t> lengths;
    int sameTime = 0;
    std::string time;
    for (std::string line; std::getline(text, line) && !text.eof();) {
        lengths.push_back(line.size() + 1);
        ++priorities[line[31]];
        ++tags[line.substr(33, line.find(':', 33) - 33)];
        sameTime += line.compare(0, 18, time) == 0 ? 1 : 0;
        time = line.substr(0, 18);
    }
    const auto share = [&](double count) {
        return 100 * count / static_cast<double>(lengths.size());
    };
    EXPECT_NEAR((4 << 20) / static_cast<double>(lengths.size()), 139, 2);
    std::sort(lengths.begin(), lengths.end());
    EXPECT_NEAR(lengths[lengths.size() / 2], 113, 10);
    EXPECT_NEAR(share(lengths.end() - std::lower_bound(lengths.begin(), lengths.end(), 500)), 1.4,
                0.4);
    EXPECT_NEAR(lengths.back(), 970, 30);
    for (const auto& [priority, percent] :
         std::map<char, double>{{'I', 46}, {'D', 33}, {'V', 13}, {'W', 8}, {'E', 0.2}}) {
        EXPECT_NEAR(share(priorities[priority]), percent, percent < 1 ? 0.1 : 1) << priority;
    }
    EXPECT_NEAR(share(sameTime), 34, 3);
    ASSERT_EQ(tags.size(), 19U);
    std::vector<int> counts;
    counts.reserve(tags.size());
    for (const auto& [tag, count] : tags) counts.push_back(count);
    std::sort(counts.rbegin(), counts.rend());
    EXPECT_NEAR(share(counts[0] + counts[1] + counts[2] + counts[3] + counts[4]), 78, 2);
}

}  // namespace
