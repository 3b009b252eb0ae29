#!/usr/bin/env bash
# Runs every fuzz target for SECONDS (default 60) from the committed corpus, with a fixed seed.
# usage: tests/fuzz/run.sh [SECONDS [BUILD_DIRECTORY]]
# Prints executions, coverage (edges and features) and findings; exits with 1 when there are any.
# What a run adds to the corpus, its log and its findings are in BUILD_DIRECTORY/fuzz-runs.
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-60}
build=${2:-build/fuzz}
targets=(fuzz_api fuzz_transform fuzz_tool)

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_COMPILER=clang -DTM_SE_BF_BUILD_FUZZERS=ON -DTM_SE_BF_BUILD_TESTS=OFF \
  -DTM_SE_BF_SANITIZE=fuzzer-no-link,address,undefined,float-cast-overflow >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target "${targets[@]}" >/dev/null

export LSAN_OPTIONS=suppressions=$PWD/tests/fuzz/leaks.supp:print_suppressions=0
failed=0
for target in "${targets[@]}"; do
  scratch=$build/fuzz-runs/$target
  rm -rf "$scratch"
  mkdir -p "$scratch/corpus" "$scratch/findings"
  # A finding does not end the script: the other targets run too.
  "$build/tests/fuzz/$target" -seed=1 -max_total_time="$seconds" -max_len=8192 -timeout=25 \
    -close_fd_mask=3 -artifact_prefix="$scratch/findings/" \
    "$scratch/corpus" "tests/fuzz/corpus/$target" >"$scratch/log" 2>&1 || failed=1
  echo "$target: $(find "$scratch/findings" -type f | wc -l) findings, executions and coverage" \
    "$(grep DONE "$scratch/log" || true)"
done
[[ $failed == 0 ]] || echo "the logs in $build/fuzz-runs tell what was found" >&2
exit $failed
