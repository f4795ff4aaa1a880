# Version resources: the resource compiler that comes with zig, told to write an object file that the linker takes.
set(CMAKE_RC_COMPILE_OBJECT
    "<CMAKE_RC_COMPILER> /:output-format coff /:target ${ORVANE_ZIG_ARCH} <DEFINES> <INCLUDES> /fo <OBJECT> -- <SOURCE>")
set(CMAKE_RC_OUTPUT_EXTENSION .obj)
enable_language(RC)
