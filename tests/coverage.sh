#!/usr/bin/env bash
# Line and branch coverage of src/ by the library's tests: gcc, -O0, counted by gcovr; exit 1 when fewer
# than 98 % of the lines or 95 % of the branches are taken. Branches that the compiler adds for
# exceptions or that cannot be reached do not count.
#
# coverage.sh [--branches]    lists the lines whose branches are not all taken instead
# Builds in build/coverage, or in COVERAGE_DIR. Needs tools/packages.sh build test coverage.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
dir=${COVERAGE_DIR:-build/coverage}
report=(--fail-under-line 98 --fail-under-branch 95 --print-summary)
[[ "${1:-}" != --branches ]] || report=(--branches)

cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_ENDURANCE_SECONDS=30 \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_FLAGS="-O0 --coverage" -DCMAKE_CXX_FLAGS="-O0 --coverage" >/dev/null
cmake --build "$dir" -- --quiet
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" --output-on-failure --progress --exclude-regex Install
gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
  --gcov-executable gcov "$dir/CMakeFiles" "${report[@]}"
