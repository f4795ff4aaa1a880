# Toolchain: the same sources as a native Linux program, for sanitizers. wchar_t has 16 bits as on Windows, so the
# C++ library's wide-string code must be compiled here (no extern templates) and must not be replaced by the compiler's
# built-in 32-bit wide-string functions. All other built-in functions stay, as in the product.
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(_wide "-fshort-wchar")
foreach(function IN ITEMS wcschr wcscmp wcslen wcsncmp wmemchr wmemcmp wmemcpy wmemmove wmemset)
  string(APPEND _wide " -fno-builtin-${function}")
endforeach()
set(CMAKE_C_FLAGS_INIT "${_wide}")
set(CMAKE_CXX_FLAGS_INIT "${_wide} -D_GLIBCXX_EXTERN_TEMPLATE=0")
# Libraries refer to their objects instead of holding copies: less to write, and to keep.
set(CMAKE_CXX_ARCHIVE_CREATE "<CMAKE_AR> qcT <TARGET> <LINK_FLAGS> <OBJECTS>")
