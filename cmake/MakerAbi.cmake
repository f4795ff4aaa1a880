# Compiling single files for the C++ binary interface of the maker's token library (the Microsoft one), and import
# libraries for DLLs of which only the names are known.

# orvane_maker_abi_sources(TARGET SOURCE... [DEFINITIONS NAME=VALUE...])
# Adds sources to a target. With the cross compiler they are compiled for the maker's interface against the stand-in
# headers; with a compiler that speaks it anyway, and on systems without such a library, like any other source.
function(orvane_maker_abi_sources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "DEFINITIONS")
  if(NOT WIN32 OR MSVC)
    target_sources(${target} PRIVATE ${arg_UNPARSED_ARGUMENTS})
    set_source_files_properties(${arg_UNPARSED_ARGUMENTS} PROPERTIES COMPILE_DEFINITIONS "${arg_DEFINITIONS}")
    return()
  endif()
  set(definitions ${arg_DEFINITIONS})
  list(TRANSFORM definitions PREPEND -D)
  set(debug ${ORVANE_DEBUG_OPTIONS})
  list(TRANSFORM debug REPLACE "^SHELL:(-Xclang) " "\\1;")
  foreach(source IN LISTS arg_UNPARSED_ARGUMENTS ITEMS ${PROJECT_SOURCE_DIR}/src/tokenlib/maker_abi/type_info.cpp)
    cmake_path(ABSOLUTE_PATH source)
    cmake_path(GET source STEM name)
    set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}_${name}.maker.obj)
    add_custom_command(
      OUTPUT ${object}
      COMMAND
        # The compiler is told -nostdinc++ by its own driver, too, which it then finds unused.
        ${ORVANE_ZIG} c++ -target ${ORVANE_ZIG_ARCH}-windows-msvc -nostdinc -std=c++20 -O2 -fno-rtti -fexceptions
        -fcxx-exceptions -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Werror
        -Wno-unused-command-line-argument ${debug} ${definitions} -I${PROJECT_SOURCE_DIR}/src/tokenlib/maker_abi
        -I${PROJECT_SOURCE_DIR}/src -I${PROJECT_SOURCE_DIR} -MD -MF ${object}.d -c ${source} -o ${object}
      DEPENDS ${source}
      DEPFILE ${object}.d
      COMMENT "Building ${name}.cpp for the maker's binary interface"
      VERBATIM)
    set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
    target_sources(${target} PRIVATE ${object})
  endforeach()
endfunction()

# orvane_import_library(TARGET DEFINITION)
# Defines an interface library that links the import library of the DLL and the names in a module-definition file.
function(orvane_import_library target definition)
  cmake_path(ABSOLUTE_PATH definition)
  set(library ${CMAKE_CURRENT_BINARY_DIR}/${target}.lib)
  if(MSVC)
    set(command ${CMAKE_AR} /nologo /machine:${CMAKE_CXX_COMPILER_ARCHITECTURE_ID} /def:${definition} /out:${library})
  elseif(ORVANE_ZIG_ARCH STREQUAL "aarch64")
    set(command ${ORVANE_ZIG} dlltool -m arm64 -d ${definition} -l ${library})
  else()
    set(command ${ORVANE_ZIG} dlltool -m i386:x86-64 -d ${definition} -l ${library})
  endif()
  add_custom_command(
    OUTPUT ${library}
    COMMAND ${command}
    DEPENDS ${definition}
    COMMENT "Making the import library from ${definition}"
    VERBATIM)
  add_custom_target(${target}_file DEPENDS ${library})
  add_library(${target} INTERFACE)
  target_link_libraries(${target} INTERFACE ${library})
  add_dependencies(${target} ${target}_file)
endfunction()
