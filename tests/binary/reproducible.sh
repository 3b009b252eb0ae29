#!/usr/bin/env bash
# Builds the shared library twice, from two copies of the sources in two directories of different
# length, and compares the bytes: as released, and with debug information. Exit 1 when a pair differs.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

for type in Release RelWithDebInfo; do
  for copy in "$root/one" "$root/another-place/with-a-longer-name"; do
    mkdir -p "$copy"
    cp -R CMakeLists.txt cmake include src "$copy"
    cmake -S "$copy" -B "$copy/$type" -G Ninja -DCMAKE_BUILD_TYPE="$type" \
      -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
    cmake --build "$copy/$type" --target tm_se_bf -- --quiet
    sleep 1  # a time of day in the output must not hide behind fast builds
  done
  cmp "$root/one/$type/libtm_se_bf.so" "$copy/$type/libtm_se_bf.so"
  echo "reproducible: $type builds are the same bytes"
done
