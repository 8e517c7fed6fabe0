# SPDX-License-Identifier: Apache-2.0
# Builds for 64-bit ARM with Debian's cross compiler and the arm64 libraries that
# `script/bootstrap arm64` unpacks; what is built runs under script/arm64-run.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
cmake_path(SET tree NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/..)
set(CMAKE_SYSROOT ${tree}build/arm64-sysroot)
set(CMAKE_CROSSCOMPILING_EMULATOR ${tree}script/arm64-run)

# Programs are the workstation's; everything else is the sysroot's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
