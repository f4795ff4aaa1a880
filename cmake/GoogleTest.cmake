# GoogleTest and GoogleMock from their sources, Debian's if no others are named, built with the same flags as everything
# else in the preset. Sets ORVANE_HAS_GOOGLETEST.
set(ORVANE_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest (Debian package googletest)")
set(ORVANE_HAS_GOOGLETEST TRUE)
if(MSVC AND NOT EXISTS ${ORVANE_GOOGLETEST_DIR}/CMakeLists.txt)
  # Elsewhere they are always there, and a missing folder is an error.
  message(STATUS "No sources of GoogleTest in ORVANE_GOOGLETEST_DIR: the tests are left out")
  set(ORVANE_HAS_GOOGLETEST FALSE)
  return()
endif()
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK ON)
add_subdirectory(${ORVANE_GOOGLETEST_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
foreach(target gtest gtest_main gmock gmock_main)
  # Newer compilers than the framework's find fault with it; that is not ours to mend.
  target_compile_options(${target} PRIVATE -w)
endforeach()
