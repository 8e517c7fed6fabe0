# SPDX-License-Identifier: Apache-2.0
# A room is a folder of the tree and a library of the same name. It sees its own headers and those of
# the rooms that it names, and no other: each room gets a folder that holds nothing but a link to it,
# so that "lab/rules/Rules.h" can be included only by those who link lab_rules.

# room_headers(TARGET FOLDER): lets whoever links TARGET include the headers below FOLDER.
function(room_headers target folder)
  set(view ${CMAKE_BINARY_DIR}/rooms/${target})
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${view}/${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${view}/${folder} SYMBOLIC)
  target_include_directories(${target} PUBLIC ${view})
endfunction()

option(BOOTVIGIL_UNITY "compile a room's files eight at a time: faster, but hides missing includes" OFF)

# room(FOLDER USES LIBRARY... PRIVATE LIBRARY...): a static library of all sources of FOLDER. USES are
# libraries that its headers include, PRIVATE those that only its sources do.
function(room folder)
  cmake_parse_arguments(arg "" "" "USES;PRIVATE" ${ARGN})
  string(REPLACE "/" "_" target ${folder})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
  # ".." would lead out of the room.
  file(GLOB files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp ${CMAKE_SOURCE_DIR}/${folder}/*.h)
  foreach(file ${files})
    file(STRINGS ${file} out REGEX "^#include \"([^/]*|.*[.][.].*)\"")
    if(out)
      message(FATAL_ERROR "${file}: ${out}: an include names its room, as \"${folder}/...\"")
    endif()
  endforeach()
  add_library(${target} STATIC ${sources})
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${BOOTVIGIL_UNITY} UNITY_BUILD_BATCH_SIZE 8)
  room_headers(${target} ${folder})
  target_link_libraries(${target} PUBLIC flags ${arg_USES} PRIVATE ${arg_PRIVATE})
endfunction()
