# The vendor's compiler, in Visual Studio. It speaks the maker's C++ binary interface by itself.

# The C++ library and the compiler's own runtime are linked in; the C runtime, which is part of the system, is not.
# ("Hybrid" linking: docs/Coding-Guidelines/HybridCRT.md of microsoft/WindowsAppSDK.)
# - The minidriver comes into strangers' processes, which may have loaded an older MSVCP140.dll already. With that one,
#   what toolset 14.40 and later make of std::mutex crashes (microsoft/STL, "VCRuntime incompatibility with older version
#   in mutex code"). What imports neither it nor VCRUNTIME140.dll and VCRUNTIME140_1.dll depends on no version of them.
# - Strings and vectors that the maker's library made are released by us. Both sides allocate by malloc of the one C
#   runtime, so there is one heap. The release runtime in every configuration: the debug one lays strings out
#   differently.
# - What the maker's library throws is found by the decorated name of its type, whichever copy of the runtime threw it.
set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreaded)
add_link_options(/NODEFAULTLIB:libucrt.lib /DEFAULTLIB:ucrt.lib)

# getenv and its like are standard C++; what the compiler would have instead (warning C4996) is not.
add_compile_definitions(_CRT_SECURE_NO_WARNINGS)
# The tests' files have more sections than an ordinary object file takes.
add_compile_options(/utf-8 /permissive- /EHsc /Zc:__cplusplus /Zc:preprocessor /guard:cf /bigobj)
# Random base addresses are the linker's default; the same sources give the same bytes; and no folder of this machine
# stands in the record that leads to a PDB file, should someone make one.
add_link_options(/guard:cf /Brepro /PDBALTPATH:%_PDB%)

# The machine that the files are for, as version resources name it. CMAKE_SYSTEM_PROCESSOR is the building machine's here.
set(ORVANE_MACHINE ${CMAKE_CXX_COMPILER_ARCHITECTURE_ID})
if(ORVANE_MACHINE STREQUAL "x64")
  set(ORVANE_MACHINE AMD64)
endif()

# orvane_symbols(TARGET...)
# The targets' sources are compiled with what debuggers need; a program or DLL among them gets a PDB file beside it. The
# linker goes on leaving out what nobody uses.
function(orvane_symbols)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE /Z7)
    target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:ICF)
  endforeach()
endfunction()

# orvane_header_checksum(TARGET)
# The target's file gets the checksum in its header: the system asks for it in some protected processes.
function(orvane_header_checksum target)
  target_link_options(${target} PRIVATE /RELEASE)
endfunction()
