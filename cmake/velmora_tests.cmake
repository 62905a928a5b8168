# velmora_add_tests(<room> sources...)
#
# Makes the executable <room>_tests from GoogleTest sources, linked to the library velmora_<room>
# when there is one, and tells ctest of each of its tests as "<room>.<suite>.<test>" with the label
# <room>. Headers are found from src/ and from tests/.
#
# velmora_use_program(<target>)
#
# Gives the sources of <target> the path of the built program as the text VELMORA_PROGRAM, and sees
# to it that the program is built first.

find_package(GTest REQUIRED)
include(GoogleTest)

function(velmora_add_tests room)
  set(target ${room}_tests)
  add_executable(${target} ${ARGN})
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src"
                                               "${PROJECT_SOURCE_DIR}/tests")
  if(TARGET velmora_${room})
    target_link_libraries(${target} PRIVATE velmora_${room})
  endif()
  target_link_libraries(${target} PRIVATE GTest::gtest_main)
  # Found when ctest starts, not when the target is linked: a crash then is a failed test.
  gtest_discover_tests(${target}
    TEST_PREFIX ${room}.
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${room} TIMEOUT 300)
endfunction()

function(velmora_use_program target)
  target_compile_definitions(${target} PRIVATE VELMORA_PROGRAM="$<TARGET_FILE:velmora>")
  add_dependencies(${target} velmora)
endfunction()
