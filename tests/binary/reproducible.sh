#!/usr/bin/env bash
# Builds the shared library in two directories of different length, as released and with debug
# information, and compares the bytes.
source "$(dirname "$0")/../scratch.sh"
for type in Release RelWithDebInfo; do
  for copy in one another-place/with-a-longer-name; do
    mkdir -p "$copy"
    cp -R "$top"/{CMakeLists.txt,cmake,include,src} "$copy"
    cmake -S "$copy" -B "$copy/$type" -G Ninja -DCMAKE_BUILD_TYPE="$type" \
      -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
    cmake --build "$copy/$type" --target tm_se_bf -- --quiet
    sleep 1  # a time of day in the output must not hide behind fast builds
  done
  cmp "one/$type/libtm_se_bf.so" "$copy/$type/libtm_se_bf.so"
  echo "reproducible: $type builds are the same bytes"
done
