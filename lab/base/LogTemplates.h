// SPDX-License-Identifier: Apache-2.0
// The lines that generated log text is made of.

#pragma once

namespace lab {

// Groups of lines that a device logs together. "= WEIGHT" above a group says how often it occurs
// beside the others, and a line that begins with two spaces continues the one before it. <a4> is a
// number of four digits and <A4> a hexadecimal one, <p> a package and <s> one of its screens: the
// same in the whole group, where digits of <a4> return in <a2>.
extern const char* const kMainTemplates;    // "PRIORITY TAG MESSAGE"
extern const char* const kCrashTemplates;   // the same
extern const char* const kKernelTemplates;  // "MESSAGE"

}  // namespace lab
