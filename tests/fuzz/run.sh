#!/bin/sh
# Runs every fuzz target for SECONDS (default 60) from the committed corpus, with a fixed seed.
# usage: tests/fuzz/run.sh [SECONDS [BUILD_DIRECTORY [TARGET...]]]
# Prints executions, coverage (edges and features) and findings; exits with 1 when there are any.
# What a run adds to the corpus, its log and its findings are in BUILD_DIRECTORY/fuzz-runs.
set -eu
cd "$(dirname "$0")/../.."

seconds=${1:-60}
build=${2:-build/fuzz}
[ $# -lt 2 ] || shift
[ $# -lt 1 ] || shift
[ $# -gt 0 ] || set -- fuzz_api fuzz_transform fuzz_tool

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DTM_SE_BF_BUILD_FUZZERS=ON -DTM_SE_BF_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target "$@" >/dev/null

# The last value that a libFuzzer log gives for a name such as "cov:".
last() {
  grep -o "$2 [0-9]*" "$1" | tail -n 1 | cut -d ' ' -f 2
}

LSAN_OPTIONS=suppressions=$PWD/tests/fuzz/leaks.supp:print_suppressions=0
export LSAN_OPTIONS
failed=0
printf '%-15s %12s %7s %9s %9s\n' target executions edges features findings
for target in "$@"; do
  scratch=$build/fuzz-runs/$target
  rm -rf "$scratch"
  mkdir -p "$scratch/corpus" "$scratch/findings"
  # A finding does not end the script: the other targets run too.
  "$build/tests/fuzz/$target" -seed=1 -max_total_time="$seconds" -max_len=8192 -timeout=25 \
    -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$scratch/findings/" \
    "$scratch/corpus" "tests/fuzz/corpus/$target" >"$scratch/log" 2>&1 || failed=1
  findings=$(find "$scratch/findings" -type f | wc -l)
  printf '%-15s %12s %7s %9s %9s\n' "$target" "$(last "$scratch/log" number_of_executed_units:)" \
    "$(last "$scratch/log" cov:)" "$(last "$scratch/log" ft:)" "$findings"
done
[ "$failed" -eq 0 ] || echo "the logs in $build/fuzz-runs tell what was found" >&2
exit "$failed"
