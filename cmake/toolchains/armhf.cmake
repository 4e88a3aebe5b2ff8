# SPDX-License-Identifier: MIT
# 32-bit ARM (ARMv7, hard float) with Debian's cross compiler; scripts/setup --arch=armhf brings it and
# the libraries.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(debianArchitecture armhf)
set(triplet arm-linux-gnueabihf)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
