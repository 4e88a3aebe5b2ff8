# SPDX-License-Identifier: MIT
# Options of every target that we compile ourselves; packages found elsewhere are not touched.

add_compile_options(
  -Wall -Wextra -Wpedantic
  "$<$<COMPILE_LANGUAGE:CXX>:-Wconversion;-Wshadow;-Wnon-virtual-dtor;-Woverloaded-virtual>")

# Most of the OPC UA library is a server; what a program never calls is left out
add_link_options(-Wl,--gc-sections)

if(ORVIK_SANITIZERS)
  # Clang checks vptr through a pipe, and ends a process that has no descriptor left for one
  add_compile_options(-fsanitize=${ORVIK_SANITIZERS} -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ORVIK_SANITIZERS})
  if(ORVIK_SANITIZERS MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-tsan) # it warns of Asio's fences, which are not needed for synchronisation
  endif()
endif()

if(ORVIK_HARDENING)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    add_compile_options(-fcf-protection)
  endif()
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
endif()
