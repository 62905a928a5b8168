# The flags of every target: the language, the rules of floating point, the warnings, the checks.
#
# Results must be the same bits from every compiler at every level, hence no contraction to fused
# operations, and C++20 without the extensions that would allow wider intermediate results.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(velmora_flags INTERFACE)
target_compile_features(velmora_flags INTERFACE cxx_std_20)
target_compile_options(velmora_flags INTERFACE
  -ffp-contract=off
  -Wall
  -Wextra
  -Wpedantic
  -Wshadow
  -Wconversion
  -Wno-sign-conversion # clang's -Wconversion has it, g++'s has not
  -Wdouble-promotion
  -Wold-style-cast
  -Wmissing-declarations)

# clang finds those by itself.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(velmora_flags INTERFACE -Wunused-const-variable=1)
endif()

# g++'s vectoriser drops the narrowing from "double to float and back" (seen with 12.2 at -O3), which
# changes the last bits of results. Nothing here gains from it.
set(velmora_scalar_options)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(velmora_scalar_options -fno-tree-vectorize -fno-tree-slp-vectorize)
  target_compile_options(velmora_flags INTERFACE ${velmora_scalar_options})
endif()

# g++ 12 sees overlapping copies in inlined std::string operations that are sound.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(velmora_flags INTERFACE -Wno-restrict)
endif()

if(VELMORA_WERROR)
  target_compile_options(velmora_flags INTERFACE -Werror)
endif()

if(VELMORA_CHECKED)
  target_compile_definitions(velmora_flags INTERFACE VELMORA_CHECKED=1)
endif()

if(VELMORA_FUZZ)
  target_compile_definitions(velmora_flags INTERFACE VELMORA_CHUNK_BITS=8)
endif()

if(VELMORA_SANITIZE)
  set(sanitize -fsanitize=${VELMORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(velmora_flags INTERFACE ${sanitize})
  target_link_options(velmora_flags INTERFACE ${sanitize})
endif()

# g++ optimises the programs as a whole: small functions that the rooms call in each other are much of
# the work. The objects hold ordinary code as well, with which everything else is linked as ever.
set(velmora_whole OFF)
if(VELMORA_WHOLE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release"
    AND NOT WIN32)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS "-flto=auto -ffat-lto-objects")
  check_cxx_source_compiles("int main() { return 0; }" VELMORA_CAN_OPTIMISE_WHOLE)
  unset(CMAKE_REQUIRED_FLAGS)
  set(velmora_whole ${VELMORA_CAN_OPTIMISE_WHOLE})
endif()

# velmora_whole_objects(): for the libraries of this folder and those below.
macro(velmora_whole_objects)
  if(velmora_whole)
    add_compile_options(-flto -ffat-lto-objects)
  endif()
endmacro()

# velmora_link_whole(<program>): the rules of floating point hold here, too.
function(velmora_link_whole program)
  if(velmora_whole)
    target_link_options(${program} PRIVATE -flto=auto -ffp-contract=off ${velmora_scalar_options})
  endif()
endfunction()

# Every target that is made below the top directory has them.
link_libraries(velmora_flags)
