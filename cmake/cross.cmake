# Toolchain for another processor: clang, GNU ld for that processor, and a sysroot of Debian's
# packages, which scripts/cross.sh makes. The processor is told by its GNU triplet in QV_CROSS_TRIPLET.

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QV_CROSS_TRIPLET)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${QV_CROSS_TRIPLET})
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_CXX_COMPILER_TARGET ${QV_CROSS_TRIPLET})
set(CMAKE_LIBRARY_ARCHITECTURE ${QV_CROSS_TRIPLET})
add_link_options(--ld-path=/usr/bin/${QV_CROSS_TRIPLET}-ld)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL arm)
  add_compile_options(-march=armv7-a -mfpu=vfpv3-d16)  # what Debian builds for
endif()

set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
