// SPDX-License-Identifier: Apache-2.0
// Declarations of libkelclient: asks the device's log-capture service (KEL) for a capture. Closed
// on a device; the host's implementation is platform/host/kelclient.cpp.

#pragma once

// `id` names the capture, `type` is a mask of what to collect, `pid` is the process concerned (0
// for none), `ext` lists extra files, each followed by ";". The service answers later, by the files
// it makes.
int start_KEL(char* id, long type, int pid, char* ext);
