# shellcheck shell=bash
# Functions that bench/report.sh and bench/check_counts.sh share: building the library of a tree and
# counting instructions inside se_bf_do. Sourced; expects set -euo pipefail.
# Sets: root, RECORDING (exported), FIGURES, COUNT_SECONDS, COMPILER.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export RECORDING=$root/src/conformance/pcm_in_multi.s16

# The figures that pages quote, one a line: name, value, unit, command.
# shellcheck disable=SC2034  # used by those who source this file
readonly FIGURES=$root/bench/figures.txt

# Seconds of audio of every instruction count: whole frames at all hops, and whole weight updates.
readonly COUNT_SECONDS=12

COMPILER="$(c++ --version | head -n 1 | cut -d' ' -f1) $(c++ -dumpfullversion 2>/dev/null || true)"
[[ "$(uname -m)" == x86_64 ]] || COMPILER="$COMPILER on $(uname -m)"

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

has_avx2() {
  grep -qw avx2 /proc/cpuinfo
}

# build_library TREE DIR CMAKE_ARGUMENT...: the shared library alone, as released.
build_library() {
  local tree=$1 dir=$2
  shift 2
  if ! cmake -S "$tree" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DTM_SE_BF_BUILD_TESTS=OFF -DTM_SE_BF_BUILD_TOOLS=OFF "$@" >"$dir.log" 2>&1 ||
    ! cmake --build "$dir" -j "$(nproc)" --target tm_se_bf >>"$dir.log" 2>&1; then
    tail -n 20 "$dir.log" >&2
    fail "the library of $tree does not build; see above"
  fi
}

# build_driver NAME LIBRARY_DIR OUTPUT [COMPILER]: a program that uses the public interface only.
build_driver() {
  "${4:-c++}" -std=c++17 -O2 -fno-builtin -I"$root/include" "$root/bench/$1.cpp" -o "$3" \
    -L"$2" -ltm_se_bf || fail "bench/$1.cpp does not build"
}

# in_library LIBRARY_DIR DRIVER MODE SECONDS [HOP CHANNELS]: instructions inside se_bf_do.
in_library() {
  local dir=$1
  shift
  LD_LIBRARY_PATH=$dir valgrind --tool=callgrind --callgrind-out-file="${callgrind_file:-/dev/null}" \
    --toggle-collect=se_bf_do "$@" 2>&1 >/dev/null | awk '/Collected/ { print $4 }'
}

# per_frame LIBRARY_DIR DRIVER MODE HOP CHANNELS: the difference of a run of twice COUNT_SECONDS and
# one of COUNT_SECONDS, divided by the frames of COUNT_SECONDS.
per_frame() {
  local dir=$1 driver=$2 mode=$3 hop=$4 channels=$5
  local long short
  short=$(in_library "$dir" "$driver" "$mode" "$COUNT_SECONDS" "$hop" "$channels")
  long=$(in_library "$dir" "$driver" "$mode" $((2 * COUNT_SECONDS)) "$hop" "$channels")
  [[ -n "$short" && -n "$long" ]] || fail "callgrind gave no count for mode $mode"
  echo $(((long - short) / (COUNT_SECONDS * 16000 / hop)))
}
