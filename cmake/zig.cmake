# What both Windows toolchain files share. Expects ORVANE_ZIG_ARCH: aarch64 or x86_64.
# Sets ORVANE_ZIG, the compiler's main program, for the few steps that CMake has no name for.

if(NOT ORVANE_TOOLCHAIN)
  execute_process(
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/toolchain
    OUTPUT_VARIABLE ORVANE_TOOLCHAIN
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
# Test compilations run in a project of their own, which sees only these.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVANE_TOOLCHAIN)

# They are not linked: that would build the compiler's C++ library for programs without optimisation, which nobody else uses
# and which takes minutes. Where CMake asks who the compiler is, naming the target has the same effect.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_C_COMPILER_TARGET ${ORVANE_ZIG_ARCH}-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET ${ORVANE_ZIG_ARCH}-windows-gnu)

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 10.0)
set(_tool ${ORVANE_TOOLCHAIN}/bin/${ORVANE_ZIG_ARCH}-windows-gnu)
set(CMAKE_C_COMPILER ${_tool}-cc)
set(CMAKE_CXX_COMPILER ${_tool}-c++)
set(CMAKE_AR ${_tool}-ar)
set(CMAKE_RANLIB ${_tool}-ranlib)
find_program(CMAKE_RC_COMPILER NAMES llvm-rc REQUIRED)
set(ORVANE_ZIG ${ORVANE_TOOLCHAIN}/bin/zig)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
