# The vendor's compiler, in Visual Studio. It speaks the maker's C++ binary interface by itself.

# Strings and vectors that the maker's library made are released by us: both must use the one C runtime that is part of the
# system, never a copy linked into the DLL.
set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreadedDLL)

add_compile_options(/utf-8 /permissive- /EHsc /Zc:__cplusplus /Zc:preprocessor /guard:cf)
# Random base addresses are the linker's default; the same sources give the same bytes.
add_link_options(/guard:cf /Brepro)
