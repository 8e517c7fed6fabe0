// SPDX-License-Identifier: Apache-2.0
// Prints as many bytes of a phone's main log as asked for.

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "lab/base/LogText.h"

int main(int argc, char** argv) {
    char* end = nullptr;
    const unsigned long long size = argc == 2 ? strtoull(argv[1], &end, 10) : 0;
    if (size == 0 || *end != '\0') {
        fprintf(stderr, "usage: %s BYTES\n", argv[0]);
        return 2;
    }
    lab::LogText log(lab::LogText::Buffer::MAIN, 1);
    std::string text;
    for (unsigned long long left = size; left > 0;) {
        text.clear();
        log.append(text);
        left -= fwrite(text.data(), 1, std::min<unsigned long long>(text.size(), left), stdout);
        if (ferror(stdout) != 0 || (left == 0 && fflush(stdout) != 0)) {
            perror("bench-make-log: standard output");
            return 1;
        }
    }
}
