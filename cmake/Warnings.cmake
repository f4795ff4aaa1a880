# Warnings for our own code, as errors, which "cmake --compile-no-warning-as-error" takes back. All presets but the vendor's
# compiler's use clang.
set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
if(MSVC)
  add_compile_options(/W4)
  return()
endif()
add_compile_options(
  -Wall
  -Wextra
  -Wpedantic
  -Wshadow
  -Wconversion
  -Wsign-conversion
  -Wold-style-cast
  -Wnon-virtual-dtor
  -Woverloaded-virtual
  -Wcast-align
  -Wformat=2
  -Wimplicit-fallthrough
  -Wnull-dereference
  -Wdouble-promotion
  -Wthread-safety
  -Wthread-safety-beta)
