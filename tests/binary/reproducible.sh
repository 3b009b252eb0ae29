#!/usr/bin/env bash
# Builds the shared library twice, from two copies of the sources in two directories of different
# length, and compares the bytes: as released, and with debug information.
#
# reproducible.sh        exit 1 when a pair differs
# Needs tools/packages.sh build. Uses a temporary directory.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
copies=("$root/one" "$root/another-place/with-a-longer-name")

for copy in "${copies[@]}"; do
  mkdir -p "$copy"
  cp -R CMakeLists.txt cmake include src "$copy"
done

failed=0
for type in Release RelWithDebInfo; do
  libraries=()
  for copy in "${copies[@]}"; do
    dir="$copy/build-$type"
    cmake -S "$copy" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" -DTM_SE_BF_BUILD_TOOLS=OFF \
      -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
    cmake --build "$dir" --target tm_se_bf -- --quiet
    libraries+=("$(readlink -f "$dir/libtm_se_bf.so")")
    sleep 1  # a time of day in the output must not hide behind fast builds
  done
  if cmp "${libraries[@]}"; then
    echo "reproducible: $type builds are the same $(stat -c %s "${libraries[0]}") bytes"
  else
    echo "reproducible: $type builds differ" >&2
    failed=1
  fi
done
exit $failed
