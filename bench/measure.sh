# shellcheck shell=bash
# Functions that bench/report.sh and bench/check_counts.sh share: building the library of a tree and
# counting instructions inside se_bf_do. Sourced; expects set -euo pipefail.
# Sets: root, RECORDING (exported).

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export RECORDING=$root/src/conformance/pcm_in_multi.s16

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

# per_frame LIBRARY_DIR DRIVER MODE SECONDS HOP CHANNELS: the difference of a run of twice SECONDS
# and one of SECONDS, divided by the frames of SECONDS.
per_frame() {
  local dir=$1 driver=$2 mode=$3 seconds=$4 hop=$5 channels=$6
  local long short
  short=$(in_library "$dir" "$driver" "$mode" "$seconds" "$hop" "$channels")
  long=$(in_library "$dir" "$driver" "$mode" $((2 * seconds)) "$hop" "$channels")
  [[ -n "$short" && -n "$long" ]] || fail "callgrind gave no count for mode $mode"
  echo $(((long - short) / (seconds * 16000 / hop)))
}
