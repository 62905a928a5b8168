# velmora_add_tests(<room> sources...)
#
# Makes the executable <room>_tests from GoogleTest sources, linked to the library velmora_<room>
# when there is one, and tells ctest of it as <room>. Headers are found from src/ and from tests/.
# One case alone: build/<preset>/bin/<room>_tests --gtest_filter=<suite>.<test>
#
# velmora_use_program(<target>)
#
# Gives the sources of <target> the path of the built program as the text VELMORA_PROGRAM, and sees
# to it that the program is built first.
#
# velmora_heavy_tests(sources...)
#
# Sources whose own code computes much: they are optimised, and compile more slowly.
#
# Compiling the tests is the longest part of building everything. GoogleTest and what it includes are
# compiled once for all of them, and their own code is not optimised: that of the libraries is.

find_package(GTest REQUIRED)

set(velmora_tests_options -O0)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  list(APPEND velmora_tests_options -fpch-instantiate-templates)
endif()

add_library(velmora_tests_pch OBJECT "${CMAKE_CURRENT_LIST_DIR}/velmora_tests_pch.cpp")
target_compile_options(velmora_tests_pch PRIVATE ${velmora_tests_options})
target_link_libraries(velmora_tests_pch PRIVATE GTest::gtest)
target_precompile_headers(velmora_tests_pch PRIVATE
  <gtest/gtest.h>
  <algorithm>
  <array>
  <cmath>
  <cstdint>
  <cstdio>
  <cstdlib>
  <cstring>
  <fstream>
  <functional>
  <limits>
  <map>
  <memory>
  <random>
  <set>
  <sstream>
  <string>
  <utility>
  <vector>)

function(velmora_add_tests room)
  set(target ${room}_tests)
  add_executable(${target} ${ARGN})
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src"
                                               "${PROJECT_SOURCE_DIR}/tests")
  if(TARGET velmora_${room})
    target_link_libraries(${target} PRIVATE velmora_${room})
  endif()
  target_link_libraries(${target} PRIVATE GTest::gtest_main)
  target_compile_options(${target} PRIVATE ${velmora_tests_options})
  target_precompile_headers(${target} REUSE_FROM velmora_tests_pch)
  add_test(NAME ${room} COMMAND ${target} --gtest_brief=1)
  set_tests_properties(${room} PROPERTIES TIMEOUT 600)
endfunction()

function(velmora_heavy_tests)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O1 SKIP_PRECOMPILE_HEADERS ON)
endfunction()

function(velmora_use_program target)
  target_compile_definitions(${target} PRIVATE VELMORA_PROGRAM="$<TARGET_FILE:velmora>")
  add_dependencies(${target} velmora)
endfunction()
