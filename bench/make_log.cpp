// SPDX-License-Identifier: Apache-2.0
// Enlarges a real log: prints as many bytes as asked for that compress like the sample does.

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kHeadLength = 31;  // "03-17 16:13:38.811  1702  2395 "
constexpr int kPidCount = 40;       // processes at work at a time
constexpr int kRenewEvery = 5000;   // lines until one of them is replaced

std::mt19937 gRandom(20261115);  // the same log every time

int drawBelow(int limit) {
    return static_cast<int>(gRandom() % static_cast<unsigned int>(limit));
}

std::vector<std::string> readMessages(const char* path) {
    std::vector<std::string> messages;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.size() > kHeadLength) messages.push_back(line.substr(kHeadLength));
    }
    return messages;
}

// Every run of hexadecimal digits that has a digit and is longer than two is a number, a counter
// or an address: it becomes another one of its length.
void renewNumbers(std::string& text) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = start;
        bool digits = false;
        bool letters = false;
        while (end < text.size() && isxdigit(static_cast<unsigned char>(text[end])) != 0) {
            (isdigit(static_cast<unsigned char>(text[end])) != 0 ? digits : letters) = true;
            ++end;
        }
        if (digits && end - start > 2) {
            for (size_t i = start; i < end; ++i) {
                text[i] = "0123456789abcdef"[drawBelow(letters ? 16 : 10)];
            }
        }
        start = end + 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SAMPLE BYTES\n", argv[0]);
        return 2;
    }
    const std::vector<std::string> messages = readMessages(argv[1]);
    if (messages.empty()) {
        fprintf(stderr, "%s: %s holds no log lines\n", argv[0], argv[1]);
        return 1;
    }
    size_t left = strtoull(argv[2], nullptr, 10);
    int pids[kPidCount];
    for (int& pid : pids) pid = 300 + drawBelow(30000);
    size_t at = 0;   // message of the sample
    int burst = 0;   // lines until another place of the sample
    int64_t ms = 0;  // since 03-17 00:00
    for (int line = 0; left > 0; ++line) {
        if (burst-- == 0) {
            burst = 1 + drawBelow(60);
            at = gRandom() % messages.size();
        }
        if (line % kRenewEvery == 0) pids[drawBelow(kPidCount)] = 300 + drawBelow(30000);
        std::string message = messages[at++ % messages.size()];
        renewNumbers(message);
        ms += drawBelow(20);
        const int pid = pids[drawBelow(kPidCount)];
        char head[64];
        snprintf(head, sizeof(head), "%02d-%02d %02d:%02d:%02d.%03d %5d %5d ",
                 static_cast<int>(ms / 86400000 / 28 % 12) + 1,
                 static_cast<int>(ms / 86400000 % 28) + 1, static_cast<int>(ms / 3600000 % 24),
                 static_cast<int>(ms / 60000 % 60), static_cast<int>(ms / 1000 % 60),
                 static_cast<int>(ms % 1000), pid, pid + drawBelow(8));
        const std::string text = head + message + "\n";
        left -= fwrite(text.data(), 1, text.size() < left ? text.size() : left, stdout);
        if (ferror(stdout) != 0) {
            perror("bench-make-log: standard output");
            return 1;
        }
    }
}
