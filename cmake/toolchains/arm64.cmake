# SPDX-License-Identifier: MIT
# 64-bit ARM with Debian's cross compiler; scripts/setup --arch=arm64 brings it and the libraries.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(debianArchitecture arm64)
set(triplet aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
