// SPDX-License-Identifier: Apache-2.0
// libkelclient on a workstation: a request is the line "id|type|pid|ext" in /dev/kel/requests.

#include <kelclient.h>

#include <stdio.h>

int start_KEL(char* id, long type, int pid, char* ext) {
    FILE* requests = fopen("/dev/kel/requests", "ae");
    if (requests == nullptr) return -1;
    fprintf(requests, "%s|%ld|%d|%s\n", id, type, pid, ext);
    return fclose(requests);
}
