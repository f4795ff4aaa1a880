# Warnings for our own code, as errors. All presets but the vendor's compiler's use clang.
if(MSVC)
  add_compile_options(/W4)
  # /WX, which "cmake --compile-no-warning-as-error" takes back.
  set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
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
  -Wthread-safety-beta
  -Werror)
