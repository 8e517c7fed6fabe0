# SPDX-License-Identifier: Apache-2.0
# Writes the source file OUT, which holds the tree's version. Each build runs it, and a file that
# would be the same stays as it is.

execute_process(COMMAND git describe --always --dirty WORKING_DIRECTORY ${TREE}
  OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(failed)
  set(version "unknown")
endif()
file(CONFIGURE OUTPUT ${OUT} CONTENT [[
#include "report/show/Version.h"

const char* report::version() {
    return "@version@";
}
]] @ONLY)
