# SPDX-License-Identifier: MIT
# What the toolchains have in common. Libraries and headers come from a tree of unpacked packages of
# the target's architecture, programs from this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
cmake_path(SET CMAKE_SYSROOT NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../../.deps/${debianArchitecture}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR};-L;${CMAKE_SYSROOT})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${debianArchitecture})
