// SPDX-License-Identifier: Apache-2.0
// A report as plain text for a person.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

std::string toText(const Report& report);

}  // namespace report
