#!/usr/bin/env bash
# Compares the library's binary interface, for gcc on x86-64, with the committed description. --refresh
# writes the description anew after a deliberate change; a change that breaks callers needs a new SOVERSION.
# Needs scripts/packages.sh build abi.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
description=cmake/abi/tm_se_bf.abi
dir=${ABI_DIR:-build/abi}

cmake -S . -B "$dir" -G Ninja -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Debug -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target tm_se_bf -- --quiet
abidw --exported-interfaces-only --headers-dir include --drop-private-types --no-show-locs \
  --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-elf-needed --type-id-style hash \
  --out-file "$dir/now.abi" "$(readlink -f "$dir/libtm_se_bf.so")"

[[ "${1:-}" != --refresh ]] || exec cp "$dir/now.abi" "$description"
abidiff --harmless "$description" "$dir/now.abi"
