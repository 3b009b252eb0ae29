#!/usr/bin/env bash
# Compares the library's output for every compiler, optimisation level and processor with the
# committed hashes: gcc and clang for x86-64 and x86-64-v3, gcc for aarch64, armhf (with and without
# NEON) and s390x under qemu-user, each with -O0, -O2, -O3, -Os and as released. Prints a line per
# combination and a closing count; exit 1 on any difference. Takes some minutes.
#
# matrix.sh [WORD...]     only the combinations whose name contains all WORDs, say: armhf -O2
# Needs: tools/packages.sh build test ci cross cross-s390x. Builds in build/matrix, or in
# MATRIX_DIR.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

root=${MATRIX_DIR:-build/matrix}
words=("$@")
combinations=0
failed=0

# Runs x86-64-v3 code under emulation where the processor lacks its instructions.
v3_emulator=""
if ! grep -qw avx2 /proc/cpuinfo || ! grep -qw fma /proc/cpuinfo; then
  v3_emulator="qemu-x86_64;-cpu;max"
fi

selected() {
  local word
  for word in ${words[@]+"${words[@]}"}; do
    [[ "$1" == *"$word"* ]] || return 1
  done
}

# check NAME LEVEL FLAGS CMAKE_ARGUMENT...: builds output_hashes and compares its hashes. A build type
# of its own leaves the level to this script; the level "released" takes the flags of a release.
check() {
  local name="$1 $2"
  local type=Matrix
  local flags="$2 $3"
  if [[ $2 == released ]]; then
    type=Release
    flags="-O3 -DNDEBUG $3"
  fi
  shift 3
  selected "$name" || return 0
  local dir="$root/${name// /}"
  local log="$dir.log"
  local started=$SECONDS
  combinations=$((combinations + 1))
  mkdir -p "$dir"
  if cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF "-DCMAKE_BUILD_TYPE=$type" \
      "-DCMAKE_C_FLAGS_${type^^}=$flags" "-DCMAKE_CXX_FLAGS_${type^^}=$flags" "$@" >"$log" 2>&1 &&
    cmake --build "$dir" --target output_hashes >>"$log" 2>&1 &&
    ctest --test-dir "$dir" -R '^OutputHashes$' --no-tests=error -V >>"$log" 2>&1; then
    printf '%-24s same (%d s)\n' "$name" $((SECONDS - started))
    return
  fi
  failed=$((failed + 1))
  printf '%-24s DIFFERENT or failed, see %s\n' "$name" "$log"
  sed -n 's/^1: \(.*stream.*\)/  \1/p' "$log"
}

toolchain() {
  echo "-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchains/$1.cmake"
}

for level in -O0 -O2 -O3 -Os released; do
  for compiler in gcc clang; do
    compilers=("-DCMAKE_C_COMPILER=$compiler" "-DCMAKE_CXX_COMPILER=${compiler/gcc/g}++")
    check "$compiler x86-64" "$level" -march=x86-64 "${compilers[@]}"
    check "$compiler x86-64-v3" "$level" -march=x86-64-v3 "${compilers[@]}" \
      "-DCMAKE_CROSSCOMPILING_EMULATOR=$v3_emulator"
    # A processor without AVX2, which the builds above use where they find it at run time.
    check "$compiler x86-64-sse2" "$level" -march=x86-64 "${compilers[@]}" -DTM_SE_BF_AVX2=OFF
  done
  for target in aarch64 armhf s390x; do
    check "gcc $target" "$level" "" "$(toolchain $target)"
  done
  # An Arm processor with NEON and fused multiply-add, which plain armhf does without.
  check "gcc armhf-vfpv4" "$level" "-mcpu=cortex-a7 -mfpu=neon-vfpv4" "$(toolchain armhf)"
done

echo "$combinations combinations, $failed different or failed"
[[ $failed -eq 0 && $combinations -gt 0 ]]
