# SPDX-License-Identifier: Apache-2.0
# `cmake --install FOLDER --prefix PREFIX`: the lab, the report and the fleet tool with their data,
# manual pages and completions. The daemon is built for devices by Android.bp and isn't installed on a workstation.

include(GNUInstallDirs)
set(tools bootvigil-lab bootvigil-report)
if(BOOTVIGIL_FLEET)
  list(APPEND tools bootvigil-fleet)
endif()
install(TARGETS ${tools})
install(DIRECTORY lab/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bootvigil)
foreach(tool ${tools})
  install(FILES cmake/completion.bash RENAME ${tool}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()

# The pages are made of what the programs say of themselves.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "no manual pages will be installed: help2man is missing")
  return()
endif()
install(CODE "execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/man-pages
  ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1
  COMMAND_ERROR_IS_FATAL ANY)")
