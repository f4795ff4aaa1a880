# Toolchain: Windows on x64, by zig.
set(ORVANE_ZIG_ARCH x86_64)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)
