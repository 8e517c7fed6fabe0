// SPDX-License-Identifier: Apache-2.0
// What a tool calls itself.

#pragma once

// The commit that was built, as "1ec2d21" or, with changes that are in no commit, "1ec2d21-dirty";
// "unknown" for a build outside git. The daemon's own version is another: it is part of its log.
extern const char kVersion[];
