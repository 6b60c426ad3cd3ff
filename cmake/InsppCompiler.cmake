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
target_link_options(inspp_compiler INTERFACE -Wl,--no-undefined -Wl,-z,relro -Wl,-z,now)

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

set(INSPP_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them; empty for none")
if(INSPP_SANITIZE)
  target_compile_options(inspp_compiler INTERFACE
    -fsanitize=${INSPP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(inspp_compiler INTERFACE -fsanitize=${INSPP_SANITIZE})
endif()

find_package(Threads REQUIRED)
target_link_libraries(inspp_compiler INTERFACE Threads::Threads)
