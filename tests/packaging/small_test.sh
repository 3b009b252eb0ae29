#!/usr/bin/env bash
# The build for firmware: its size, and that its output is that of the full one.
# small_test.sh GENERATOR [CMAKE_ARGUMENT...]
source "$(dirname "$0")/../scratch.sh"
{ cmake -S "$top" -B build -G "$1" -DTM_SE_BF_SMALL=ON -DTM_SE_BF_BUILD_TOOLS=OFF "${@:2}" &&
  cmake --build build --target tm_se_bf; } >log 2>&1 || { cat log; exit 1; }
c++ -std=c++17 -O2 -I"$top/include" -I"$top/tests" "$top/tests/streams/output_hashes.cpp" \
  -Lbuild -ltm_se_bf -o output_hashes
export LD_LIBRARY_PATH=$PWD/build
sh "$top/tests/streams/compare_hashes.sh" "$top/tests/streams/output_hashes.txt" \
  ./output_hashes "$recording"

# Bytes of code, and of constants without the self-test's recording and reference.
self_test=$(cat "$top"/src/conformance/*.s16 | wc -c)
while read -r section most; do
  bytes=$(size -A build/libtm_se_bf.so | awk -v name="$section" '$1 == name { print $2 }')
  echo "$section $bytes"
  ((bytes <= most)) || { echo "$section: expected at most $most bytes, got $bytes"; exit 1; }
done <<END
.text 24576
.rodata $((self_test + 40960))
END
