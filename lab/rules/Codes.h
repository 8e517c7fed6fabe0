// SPDX-License-Identifier: Apache-2.0
// The daemon's numbers as the rules name them. Like the milestones, the lab's own list.

#pragma once

#include <stdint.h>

namespace lab {

// Messages.
constexpr int kPoll = 0x20010, kTimeout = 0x20020, kStart = 0x20030;
constexpr int kRecovery = 0x20040, kExit = 0x20050, kAfterBoot = 0x20060;

// Reasons of a failure; the platform says all but kFoundByDaemon. The last is a complete boot's.
constexpr int kSystemError = 20, kKeyLockError = 22, kFoundByDaemon = 100, kLateSystemError = 120;

// Types of a failure.
constexpr int kKernelFailure = 1, kCrash = 2, kHang = 5;

// Phases of a boot.
constexpr int kKernelPhase = 3, kNativePhase = 4, kSystemServerPhase = 5;
constexpr int kWizardPhase = 6, kKeyLockPhase = 7, kInitPhase = 8;

// What a boot is stuck at; a restart loop's are kFirstMilestoneDetail and what follows.
constexpr int kNativeDetail = 1, kSystemServerDetail = 2, kAnimationDetail = 3;
constexpr int kPackageScanDetail = 10, kPackagesReadyDetail = 11, kOtherDetail = 255;

constexpr int64_t kCaptureAll = 0x60036;

// Recovery actions.
constexpr int kReboot = 1, kWaitForUser = 2, kReset = 5;

}  // namespace lab
