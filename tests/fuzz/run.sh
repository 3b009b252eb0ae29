#!/usr/bin/env bash
# run.sh [SECONDS [BUILD_DIRECTORY]]: runs every fuzz target so long (60 s) from the committed corpus.
# Exit 1 when there are findings; they, new inputs and the logs are in BUILD_DIRECTORY/fuzz-runs.
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-60}
build=${2:-build/fuzz}
targets=(fuzz_api fuzz_stream fuzz_transform fuzz_tool)

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_COMPILER=clang -DTM_SE_BF_BUILD_FUZZERS=ON -DTM_SE_BF_BUILD_TESTS=OFF \
  -DTM_SE_BF_SANITIZE=fuzzer-no-link,address,undefined,float-cast-overflow >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target "${targets[@]}" >/dev/null

export LSAN_OPTIONS=suppressions=$PWD/tests/fuzz/leaks.supp:print_suppressions=0
failed=0
for target in "${targets[@]}"; do
  scratch=$build/fuzz-runs/$target
  rm -rf "$scratch"
  mkdir -p "$scratch/corpus" "$scratch/findings"
  "$build/tests/fuzz/$target" -seed=1 -max_total_time="$seconds" -max_len=8192 -timeout=25 \
    -close_fd_mask=3 -artifact_prefix="$scratch/findings/" \
    "$scratch/corpus" "tests/fuzz/corpus/$target" >"$scratch/log" 2>&1 || failed=1
  echo "$target: $(find "$scratch/findings" -type f | wc -l) findings, executions and coverage" \
    "$(grep DONE "$scratch/log" || true)"
done
exit $failed
