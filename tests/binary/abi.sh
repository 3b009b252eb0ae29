#!/usr/bin/env bash
# Compares the library's binary interface with the committed description, which holds for gcc on
# x86-64 and covers what the public header declares. Needs tools/packages.sh build abi.
#
# abi.sh             fails on any difference, additions included
# abi.sh --refresh   writes the description anew, after a deliberate change
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
description=cmake/abi/tm_se_bf.abi
dir=${ABI_DIR:-build/abi}

cmake -S . -B "$dir" -G Ninja -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Debug -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target tm_se_bf -- --quiet
# Types without a place in the public header are private.
abidw --exported-interfaces-only --headers-dir include --drop-private-types --no-show-locs \
  --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-elf-needed --type-id-style hash \
  --out-file "$dir/now.abi" "$(readlink -f "$dir/libtm_se_bf.so")"

if [[ "${1:-}" == --refresh ]]; then
  cp "$dir/now.abi" "$description"
elif ! abidiff --harmless "$description" "$dir/now.abi"; then
  echo "abi: the binary interface differs from $description; after a deliberate change raise" \
    "SOVERSION where callers break, and run $0 --refresh" >&2
  exit 1
fi
echo "abi: $description describes this library"
