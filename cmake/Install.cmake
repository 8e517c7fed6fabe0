# SPDX-License-Identifier: Apache-2.0
# `cmake --install FOLDER --prefix PREFIX`: the lab and the report with their data, manual pages and
# completions. The daemon is built for devices by Android.bp and isn't installed on a workstation.

include(GNUInstallDirs)
install(TARGETS bootvigil-lab bootvigil-report)
install(DIRECTORY lab/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bootvigil)
install(FILES cmake/completion.bash RENAME bootvigil-lab
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES cmake/completion.bash RENAME bootvigil-report
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

# The pages are made of what the programs say of themselves.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "no manual pages will be installed: help2man is missing")
  return()
endif()
install(CODE "execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/man-pages
  ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1
  COMMAND_ERROR_IS_FATAL ANY)")
