# Version resources: the resource compiler that comes with zig, told to write an object file that the linker takes.
set(CMAKE_RC_COMPILE_OBJECT
    "<CMAKE_RC_COMPILER> /:output-format coff /:target ${ORVANE_ZIG_ARCH} <DEFINES> <INCLUDES> /fo <OBJECT> -- <SOURCE>")
set(CMAKE_RC_OUTPUT_EXTENSION .obj)
enable_language(RC)

# zig's linker front end knows the plain switches only, not the ones that save and restore the linker's state.
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE "-Wl,--whole-archive" "<LINK_ITEM>" "-Wl,--no-whole-archive")
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE_SUPPORTED TRUE)
