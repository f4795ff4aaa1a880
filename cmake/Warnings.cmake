# Warnings for our own code, as errors. All presets use clang.
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
  -Werror
  # The C++ library's headers for Windows mark some pointers and not others; nothing of ours uses the marks.
  $<$<BOOL:${WIN32}>:-Wno-nullability-completeness>)
