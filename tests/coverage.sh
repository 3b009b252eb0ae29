#!/usr/bin/env bash
# Line and branch coverage of src/ by the library's tests: gcc, -O0, counted by gcovr. Prints the
# figures of every file with the numbers of the lines not run, then the totals; exit 1 when fewer
# than 98 % of the lines or 95 % of the branches are taken. Branches that the compiler adds for
# exceptions or that cannot be reached do not count.
#
# coverage.sh [--branches]    lists the lines whose branches are not all taken instead
# Builds in build/coverage, or in COVERAGE_DIR. Needs tools/packages.sh build test coverage.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

least_lines=98
least_branches=95
dir=${COVERAGE_DIR:-build/coverage}
programs=(module_tests stream_tests header_c99 output_hashes)

cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_BUILD_PLUGINS=OFF \
  -DTM_SE_BF_ENDURANCE_SECONDS=30 -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Coverage -DCMAKE_C_FLAGS_COVERAGE="-O0 --coverage" \
  -DCMAKE_CXX_FLAGS_COVERAGE="-O0 --coverage" >/dev/null
cmake --build "$dir" --target "${programs[@]}" -- --quiet
find "$dir" -name '*.gcda' -delete

# Each test in a process of its own, as CTest runs them.
for program in module_tests stream_tests; do
  "$dir/tests/$program" --gtest_list_tests |
    awk '/^[^ ]+\.$/ { suite = $1 } /^ / { print suite $1 }' |
    while read -r name; do
      "$dir/tests/$program" --gtest_brief=1 --gtest_filter="$name" >"$dir/test.log" 2>&1 ||
        { cat "$dir/test.log"; echo "coverage: $name fails" >&2; exit 1; }
    done
done
"$dir/tests/header_c99" >/dev/null
"$dir/tests/streams/output_hashes" src/conformance/pcm_in_multi.s16 >/dev/null

gcovr_src=(gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches
  --gcov-executable gcov "$dir")
if [[ "${1:-}" == --branches ]]; then
  "${gcovr_src[@]}" --branches
  exit
fi
"${gcovr_src[@]}" --fail-under-line "$least_lines" --fail-under-branch "$least_branches" \
  --print-summary
