// SPDX-License-Identifier: Apache-2.0
// The boots of a report as trace events, for the Perfetto UI.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

std::string toTraceEvents(const Report& report);

}  // namespace report
