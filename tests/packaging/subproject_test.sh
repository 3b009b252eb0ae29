#!/usr/bin/env bash
# The sources inside another project, in C, with CMake's FetchContent: it gets the library, shared or
# static, and nothing else. subproject_test.sh GENERATOR [CMAKE_ARGUMENT...]
source "$(dirname "$0")/../scratch.sh"
cp "$top/examples/minimal.c" .
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.22)
project(consumer C)
include(FetchContent)
FetchContent_Declare(tm_se_bf SOURCE_DIR ${SOURCES})
FetchContent_MakeAvailable(tm_se_bf)
get_property(targets DIRECTORY ${SOURCES} PROPERTY BUILDSYSTEM_TARGETS)
get_property(folders DIRECTORY ${SOURCES} PROPERTY SUBDIRECTORIES)
if(NOT "${targets};${folders}" STREQUAL "tm_se_bf_options;tm_se_bf_objects;tm_se_bf;tm_se_bf_stream_objects;tm_se_bf_stream;")
  message(SEND_ERROR "expected the libraries alone, got ${targets};${folders}")
endif()
if(CMAKE_BUILD_TYPE OR CMAKE_CXX_STANDARD OR CMAKE_EXPORT_COMPILE_COMMANDS)
  message(SEND_ERROR "the settings of this project changed")
endif()
add_executable(minimal minimal.c)
target_link_libraries(minimal PRIVATE tm_se_bf::tm_se_bf)
install(TARGETS minimal)
END
for kind in "" -DBUILD_SHARED_LIBS=OFF; do
  rm -rf build installed
  { cmake -S . -B build -G "$1" "-DSOURCES=$top" $kind "${@:2}" && cmake --build build --verbose; } >log 2>&1 ||
    { cat log; exit 1; }
  grep -q -- '-O3 .*stream/rate_filter.cpp' log ||
    { echo 'expected optimisation without a build type'; exit 1; }
  ls build/_deps/tm_se_bf-build/libtm_se_bf.$([[ -z $kind ]] && echo so || echo a)
  build/minimal "$recording" minimal.s16 >/dev/null
  cmp -n 63488 -i 512:0 minimal.s16 "${recording/in_multi/bf_mvdr}"
  cmake --install build --prefix installed >log
  expected=$'build/minimal\ninstalled/bin/minimal'
  found=$(find build installed -name CTestTestfile.cmake -o -path '*installed/*' -type f -o -name minimal -type f)
  [[ $found == "$expected" ]] || { echo "expected $expected, got $found"; exit 1; }
done
