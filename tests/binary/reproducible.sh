#!/usr/bin/env bash
# Builds the shared libraries in two directories of different length, as released and with debug
# information, and compares the bytes.
source "$(dirname "$0")/../scratch.sh"
for type in Release RelWithDebInfo; do
  for copy in one another-place/with-a-longer-name; do
    mkdir -p "$copy"
    cp -R "$top"/{CMakeLists.txt,cmake,include,src,stream} "$copy"
    cmake -S "$copy" -B "$copy/$type" -G Ninja -DCMAKE_BUILD_TYPE="$type" \
      -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
    cmake --build "$copy/$type" -- --quiet
    sleep 1  # a time of day in the output must not hide behind fast builds
  done
  for library in libtm_se_bf.so libtm_se_bf_stream.so; do
    cmp "one/$type/$library" "$copy/$type/$library"
  done
  echo "reproducible: $type builds are the same bytes"
done
