#!/usr/bin/env bash
# Compares the libraries' binary interfaces, for gcc on x86-64, with the committed descriptions. --refresh
# writes the descriptions anew after a deliberate change; a change that breaks callers needs a new SOVERSION.
# Needs scripts/packages.sh build abi.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
dir=${ABI_DIR:-build/abi}

cmake -S . -B "$dir" -G Ninja -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Debug -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target tm_se_bf tm_se_bf_stream -- --quiet
for name in tm_se_bf tm_se_bf_stream; do
  abidw --exported-interfaces-only --headers-dir include --drop-private-types --no-show-locs \
    --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-elf-needed --type-id-style hash \
    --out-file "$dir/$name.abi" "$(readlink -f "$dir/lib$name.so")"
  if [[ "${1:-}" == --refresh ]]; then
    cp "$dir/$name.abi" cmake/abi/
  else
    abidiff --harmless "cmake/abi/$name.abi" "$dir/$name.abi"
  fi
done
