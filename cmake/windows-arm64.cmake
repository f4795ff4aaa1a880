# Toolchain: Windows on arm64, by zig.
set(ORVANE_ZIG_ARCH aarch64)
set(CMAKE_SYSTEM_PROCESSOR ARM64)
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)
