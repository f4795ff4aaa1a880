# GoogleTest and GoogleMock from Debian's sources, built with the same flags as everything else in the preset.
set(ORVANE_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest (Debian package googletest)")
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK ON)
add_subdirectory(${ORVANE_GOOGLETEST_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
foreach(target gtest gtest_main gmock gmock_main)
  # Newer compilers than the framework's find fault with it; that is not ours to mend.
  target_compile_options(${target} PRIVATE -w)
endforeach()
