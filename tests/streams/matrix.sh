#!/usr/bin/env bash
# Compares the output of the core and of the refined mode for every compiler, optimisation level and
# processor with the committed hashes. matrix.sh [PATTERN]: only the combinations whose names match, say 'armhf.*-O2'.
# Needs: scripts/packages.sh build test ci cross cross-s390x. Builds in build/matrix, or in MATRIX_DIR.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
root=${MATRIX_DIR:-build/matrix}
pattern=${1:-}
combinations=0
failed=0

# check NAME CMAKE_ARGUMENT...: a build type of its own leaves the optimisation to this script.
check() {
  local name="$1 $level" type=Matrix
  [[ $level != released ]] || type=Release
  [[ $name =~ $pattern ]] || return 0
  local dir=$root/${name// /} log=$root/${name// /}.log
  mkdir -p "$dir"
  combinations=$((combinations + 1))
  if cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF -DCMAKE_BUILD_TYPE=$type \
      "-DCMAKE_CXX_FLAGS_MATRIX=$level" "${@:2}" >"$log" 2>&1 &&
    cmake --build "$dir" --target output_hashes refined_hashes >>"$log" 2>&1 &&
    ctest --test-dir "$dir" -R '^(Output|Refined)Hashes$' --no-tests=error -V >>"$log" 2>&1; then
    echo "$name: same"
  else
    failed=$((failed + 1))
    echo "$name: DIFFERENT or failed, see $log"
  fi
}

for level in -O0 -O2 -O3 -Os released; do
  for compiler in gcc clang; do
    with=("-DCMAKE_C_COMPILER=$compiler" "-DCMAKE_CXX_COMPILER=${compiler/gcc/g}++")
    check "$compiler x86-64" "${with[@]}" -DCMAKE_CXX_FLAGS=-march=x86-64
    check "$compiler x86-64-v3" "${with[@]}" -DCMAKE_CXX_FLAGS=-march=x86-64-v3
    # Processors without AVX2, and without AVX and SSE4.1: the builds above use them where they are.
    check "$compiler x86-64-avx" "${with[@]}" -DCMAKE_CXX_FLAGS=-march=x86-64 -DTM_SE_BF_AVX2=OFF
    check "$compiler x86-64-sse2" "${with[@]}" -DCMAKE_CXX_FLAGS=-march=x86-64 -DTM_SE_BF_AVX2=OFF \
      -DTM_SE_BF_SSE41=OFF
  done
  for target in aarch64 armhf s390x; do
    check "gcc $target" "--toolchain=cmake/toolchains/$target.cmake"
  done
  # An Arm processor with NEON and fused multiply-add, which plain armhf does without.
  check "gcc armhf-vfpv4" --toolchain=cmake/toolchains/armhf.cmake \
    "-DCMAKE_CXX_FLAGS=-mcpu=cortex-a7 -mfpu=neon-vfpv4"
done
echo "$combinations combinations, $failed different or failed"
[[ $failed == 0 && $combinations -gt 0 ]]
