// SPDX-License-Identifier: Apache-2.0
// Boots in a folder made into "/": in virtual time, in which nothing but the boot itself happens,
// or by this machine's clock.

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "lab/device/LibcTime.h"

// The daemon's own main, or empty_main.cpp.
int bootvigilMain();

int main(int argc, char** argv) {
    if (argc != 3 || (strcmp(argv[1], "virtual") != 0 && strcmp(argv[1], "real") != 0)) {
        fprintf(stderr, "usage: %s virtual|real FOLDER\n", argv[0]);
        return 2;
    }
    if (chroot(argv[2]) != 0 || chdir("/") != 0) {
        perror(argv[2]);
        return 1;
    }
    if (strcmp(argv[1], "virtual") == 0) lab::vtime::start(nullptr, nullptr, 0);
    return bootvigilMain();
}
