// SPDX-License-Identifier: Apache-2.0
// Answers the daemon's requests to reboot and to wipe the device. device/act.rc says when init
// starts it.

#include <stdio.h>
#include <string.h>

#include "device/act/Act.h"

int main(int argc, char** argv) {
    const char* verb = argc == 2 ? argv[1] : "";
    if (strcmp(verb, "start") == 0) {
        act::start();
    } else if (strcmp(verb, "up") == 0) {
        act::cameUp();
    } else if (strcmp(verb, "reboot") == 0 || strcmp(verb, "reset") == 0) {
        const act::Action action =
                strcmp(verb, "reset") == 0 ? act::Action::RESET : act::Action::REBOOT;
        return act::answer(action) == act::Verdict::DO ? 0 : 1;
    } else {
        fprintf(stderr, "usage: bootvigil-act start|up|reboot|reset\n");
        return 2;
    }
    return 0;
}
