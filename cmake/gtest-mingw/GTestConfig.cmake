# find_package(GTest) for the MinGW cross builds: there is no GoogleTest built
# for Windows on this machine, so it is compiled from its sources (Debian's
# googletest package, /usr/src/googletest) as part of the build, once.
if(NOT TARGET GTest::gtest)
  set(KPM_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources for the cross builds")
  if(NOT EXISTS ${KPM_GTEST_SOURCE_DIR}/googletest/CMakeLists.txt)
    set(GTest_FOUND FALSE)
    set(GTest_NOT_FOUND_MESSAGE "no GoogleTest sources in ${KPM_GTEST_SOURCE_DIR}")
    return()
  endif()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  # GoogleTest's own warnings are not ours to fix: build it without -Werror.
  add_subdirectory(${KPM_GTEST_SOURCE_DIR}/googletest ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL)
  foreach(t gtest gtest_main)
    set_property(TARGET ${t} PROPERTY COMPILE_OPTIONS "")
    target_compile_options(${t} PRIVATE -w)
    if(NOT TARGET GTest::${t})
      add_library(GTest::${t} ALIAS ${t})
    endif()
  endforeach()
endif()
set(GTest_FOUND TRUE)
