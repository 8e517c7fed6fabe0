// SPDX-License-Identifier: Apache-2.0
// The probes: each reads one property or file and answers one question about the boot.

#pragma once

#include <stdint.h>

#include <string>

// The framework has announced boot completion and the boot animation has exited.
bool checkBooted();

// "ro.boot.mode" is exactly "normal".
bool checkNormalBootMode();

// "sys.boot.reason" says that this boot follows a factory reset.
bool checkFirstBoot();

// The daemon's first run since /data was wiped: true only when this call made the marker file.
bool checkFirstBootInNative();

// The country chosen in the set-up wizard, "0" when none.
std::string getCountry();

// The boot-failure reason: the cached byte (0 to 255) when it is not 0, else the number in
// "sys.vela.boot_fail_reason", which may be larger than a byte; only its low byte is cached.
int getBFReason();

// Overwrites the cached boot-failure reason.
void setBFReason(uint8_t reason);

// "persist.sys.enable_rescue" is exactly "true".
bool isRescueEnable();

// "sys.vela.BOOT_COMPLETED" reads as the number 1.
bool isBootComplete();
