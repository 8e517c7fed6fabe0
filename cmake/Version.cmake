# SPDX-License-Identifier: Apache-2.0
# Writes Version.cpp, the commit that is built. As a script it runs at each build:
# cmake -DSOURCE=TREE -DOUT=FILE -P Version.cmake

if(CMAKE_SCRIPT_MODE_FILE)
  execute_process(COMMAND git -C ${SOURCE} describe --tags --always --dirty
    OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
  if(failed)
    set(version unknown)
  endif()
  file(CONFIGURE OUTPUT ${OUT} @ONLY CONTENT [[
#include "common/Version.h"

const char kVersion[] = "@version@";
]])
  return()
endif()

add_custom_target(version_source BYPRODUCTS ${CMAKE_BINARY_DIR}/Version.cpp
  COMMAND ${CMAKE_COMMAND} -DSOURCE=${CMAKE_SOURCE_DIR} -DOUT=${CMAKE_BINARY_DIR}/Version.cpp
    -P ${CMAKE_CURRENT_LIST_FILE}
  VERBATIM)
add_library(version STATIC ${CMAKE_BINARY_DIR}/Version.cpp)
add_dependencies(version version_source)
room_headers(version common)
