# Version resources: the resource compiler that comes with zig, told to write an object file that the linker takes.
set(CMAKE_RC_COMPILE_OBJECT
    "<CMAKE_RC_COMPILER> /:output-format coff /:target ${ORVANE_ZIG_ARCH} <DEFINES> <INCLUDES> /fo <OBJECT> -- <SOURCE>")
set(CMAKE_RC_OUTPUT_EXTENSION .obj)
enable_language(RC)

# zig's linker front end knows the plain switches only, not the ones that save and restore the linker's state.
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE "-Wl,--whole-archive" "<LINK_ITEM>" "-Wl,--no-whole-archive")
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE_SUPPORTED TRUE)

# The machine that the files are for, as version resources name it.
set(ORVANE_MACHINE ${CMAKE_SYSTEM_PROCESSOR})

# orvane_header_checksum(TARGET)
# The target's file gets the checksum in its header: the system asks for it in some protected processes. The linker could
# compute it, but zig's front end has no switch for that.
find_program(ORVANE_PYTHON python3 REQUIRED)
function(orvane_header_checksum target)
  add_custom_command(
    TARGET ${target} POST_BUILD
    COMMAND ${ORVANE_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/lib/set_pe_checksum.py $<TARGET_FILE:${target}>
    VERBATIM)
endfunction()
