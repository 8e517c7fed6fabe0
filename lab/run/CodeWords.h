// SPDX-License-Identifier: Apache-2.0
// What the daemon's codes mean, in words.

#pragma once

#include <string>

namespace lab {

// Of the text of a run's record of that kind, as "phase 5: system server" for "flag" and "5"; empty
// when it says nothing that needs words.
std::string meaningOf(const std::string& kind, const std::string& text);

// Why the daemon exits with a status; empty for 0 and for one that it has not.
std::string exitCause(int status);

// "SIGQUIT", or the number of a signal without a name.
std::string signalName(int number);

}  // namespace lab
