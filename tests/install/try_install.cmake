# Installs the build into a folder of its own, looks whether everything is there, and builds and
# runs the examples against what was installed.
#
#     cmake -D BUILD=... -D SOURCE=... -D MODEL_MAKER=... -D CXX=... -P try_install.cmake
set(prefix "${BUILD}/try-install/prefix")
set(work "${BUILD}/try-install/examples")
file(REMOVE_RECURSE "${BUILD}/try-install")

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY "${BUILD}" RESULT_VARIABLE status
                  OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    string(JOIN " " command ${ARGN})
    message(FATAL_ERROR "${command}\nended with ${status}:\n${out}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${prefix}")
foreach(pattern bin/velmora share/man/man1/velmora.1* share/bash-completion/completions/velmora
                share/zsh/*/_velmora share/doc/velmora/README.md share/doc/velmora/docs/formats.md
                include/velmora/files/stl_stream.h lib*/libvelmora.a lib/*/libvelmora.a)
  file(GLOB found "${prefix}/${pattern}")
  list(APPEND all_found ${found})
endforeach()
list(LENGTH all_found count)
if(NOT count EQUAL 8)
  string(JOIN "\n" all_found ${all_found})
  message(FATAL_ERROR "only these were installed:\n${all_found}")
endif()

run("${CMAKE_COMMAND}" -S "${SOURCE}/examples" -B "${work}" "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
run("${CMAKE_COMMAND}" --build "${work}")

# A bracket: its surface and volume are known, and stay.
run("${MODEL_MAKER}" bracket 2400 1 "${work}/part.stl")
run("${work}/model_size" "${work}/part.stl")
set(whole "${out}")
run("${work}/reduce_by_size" "${work}/part.stl" "${work}/small.stl")
run("${work}/model_size" "${work}/small.stl")
foreach(text "${whole}" "${out}")
  if(NOT text MATCHES "^([0-9]+) triangles, ([0-9.]+) mm2, ([0-9.]+) mm3\n$")
    message(FATAL_ERROR "model_size said: ${text}")
  endif()
  list(APPEND triangles ${CMAKE_MATCH_1})
  list(APPEND sizes "${CMAKE_MATCH_2} ${CMAKE_MATCH_3}")
endforeach()
list(GET triangles 0 before)
list(GET triangles 1 after)
list(REMOVE_DUPLICATES sizes)
list(LENGTH sizes different)
if(NOT after LESS before OR NOT different EQUAL 1)
  message(FATAL_ERROR "before: ${whole}after: ${out}")
endif()
message(STATUS "${before} triangles became ${after}, with ${sizes}")
