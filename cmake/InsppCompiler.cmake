# SPDX-License-Identifier: MIT
# What every target is compiled with. Kept in one place so that the two libraries, whose errors
# cross the border between them, never differ in anything that changes the binary interface.

add_library(inspp_compiler INTERFACE)
target_compile_features(inspp_compiler INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

target_compile_options(inspp_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-align -Wcast-qual
  -Woverloaded-virtual -Wnon-virtual-dtor -Wformat=2 -Wundef
  -Wextra-semi -Wunused -Wimplicit-fallthrough
  # Paths in binaries are relative to the project: error texts and debug data name no machine.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(inspp_compiler INTERFACE _FILE_OFFSET_BITS=64)
target_include_directories(inspp_compiler INTERFACE ${PROJECT_SOURCE_DIR})
target_link_options(inspp_compiler INTERFACE -Wl,--no-undefined -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

# What is shipped defends itself; tests/consumer/hardening looks whether it does. RELRO and BIND_NOW
# are above, PIE comes with position-independent code.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(inspp_compiler INTERFACE -fstack-protector-strong -fstack-clash-protection
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -D_GLIBCXX_ASSERTIONS)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i.86)$")
    # Shadow stacks are claimed for the whole file: what the C library adds to it keeps to them, but has
    # no note of it in every distribution. Nothing is claimed of jumps, whose targets it does not mark.
    target_compile_options(inspp_compiler INTERFACE -fcf-protection)
    target_link_options(inspp_compiler INTERFACE -Wl,-z,shstk)
  endif()
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(inspp_compiler INTERFACE -Wthread-safety)
else()
  target_compile_options(inspp_compiler INTERFACE -Wduplicated-cond -Wlogical-op)
  if(CMAKE_BUILD_TYPE STREQUAL "Release" OR INSPP_SANITIZE)
    # g++ 12 sees dangers that cannot be in library code that it inlines or instruments.
    target_compile_options(inspp_compiler INTERFACE
      -Wno-maybe-uninitialized -Wno-restrict)
  endif()
endif()

find_package(Threads REQUIRED)
target_link_libraries(inspp_compiler INTERFACE Threads::Threads)

# The product's own code gets every sanitizer. The tests get those that need both sides, and no
# optimisation: checking undefined behaviour in them would treble the time that they take to compile.
set(INSPP_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them; empty for none")
add_library(inspp_product INTERFACE)
add_library(inspp_test INTERFACE)
target_link_libraries(inspp_product INTERFACE inspp_compiler)
target_link_libraries(inspp_test INTERFACE inspp_compiler)
target_compile_options(inspp_test INTERFACE -O0)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A tenth of a test's compilation went into collecting what the compiler throws away at its end.
  target_compile_options(inspp_test INTERFACE --param=ggc-min-heapsize=400000)
endif()
if(INSPP_SANITIZE)
  string(REPLACE ",undefined" "" INSPP_SANITIZE_TESTS ${INSPP_SANITIZE})
  target_compile_options(inspp_product INTERFACE
    -fsanitize=${INSPP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(inspp_test INTERFACE -fsanitize=${INSPP_SANITIZE_TESTS})
  target_link_options(inspp_compiler INTERFACE -fsanitize=${INSPP_SANITIZE})
endif()

# For libFuzzer, which wants its counters everywhere. The libraries become archives, in which private
# code can be reached too.
option(INSPP_FUZZ "Build the fuzz targets and nothing else; clang only" OFF)
set(INSPP_LIBRARY SHARED)
if(INSPP_FUZZ)
  set(INSPP_LIBRARY STATIC)
  target_compile_options(inspp_product INTERFACE -fsanitize=fuzzer-no-link)
endif()

option(INSPP_COVERAGE "Built with --coverage" OFF)
if(INSPP_COVERAGE)
  # Threads that count at the same time would lose counts, and leave negative ones.
  target_compile_options(inspp_product INTERFACE -fprofile-update=atomic)
endif()

# Reading headers is most of what a compilation costs. Those of others are read once for the product
# and once for the tests. What is shipped, and what the preset clang looks at, is compiled without: a
# source that forgets an include is noticed there.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_BUILD_TYPE STREQUAL "Release")
  set(INSPP_PRECOMPILE_DEFAULT ON)
endif()
option(INSPP_PRECOMPILE "Read the headers of others once for many sources" ${INSPP_PRECOMPILE_DEFAULT})

# Makes a library NAME that does nothing but hold the headers for targets which link to BASE.
function(inspp_precompile_headers name base) # HEADER...
  if(INSPP_PRECOMPILE)
    file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp CONTENT "")
    add_library(${name} STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    target_link_libraries(${name} PRIVATE ${base})
    target_precompile_headers(${name} PRIVATE ${ARGN})
  endif()
endfunction()

function(inspp_use_precompiled name) # TARGET...
  if(INSPP_PRECOMPILE)
    foreach(target IN LISTS ARGN)
      target_precompile_headers(${target} REUSE_FROM ${name})
      # Programs as libraries: what is precompiled is for one kind of code only.
      target_compile_options(${target} PRIVATE -fPIC)
    endforeach()
  endif()
endfunction()

# Sources that are compiled as one read each header and instantiate each template once: 48 s of
# processor time for the setup program where one by one took 131.
# Their anonymous namespaces become one, so names in them differ; what one source includes hides what another
# forgot, which the preset clang shows.
option(INSPP_UNITY "Compile several sources of one target as one" OFF)
add_library(inspp_together INTERFACE)
target_compile_options(inspp_together INTERFACE -Wno-shadow) # of names that another source has

# Those of each folder. With batches in its place, a source that is added would meet other neighbours.
function(inspp_compile_folders_together target)
  if(INSPP_UNITY)
    get_target_property(sources ${target} SOURCES)
    foreach(source IN LISTS sources)
      get_filename_component(folder ${source} DIRECTORY)
      string(MAKE_C_IDENTIFIER "${folder}" group)
      set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    target_link_libraries(${target} PRIVATE inspp_together) # last: its options win
  endif()
endfunction()

# Those of a program of tests, whose folders differ in size, in batches.
function(inspp_compile_batches_together batch) # TARGET...
  if(INSPP_UNITY)
    foreach(target IN LISTS ARGN)
      set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${batch})
      target_link_libraries(${target} PRIVATE inspp_together)
    endforeach()
  endif()
endfunction()
