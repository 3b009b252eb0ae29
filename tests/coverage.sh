#!/usr/bin/env bash
# Fails when the library's tests run fewer than 98 % of the lines of src/ or take fewer than 95 % of its
# branches. --branches lists the lines whose branches are not all taken. Builds in build/coverage, or in
# COVERAGE_DIR. Needs scripts/packages.sh build test coverage.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
dir=${COVERAGE_DIR:-build/coverage}
report=(--fail-under-line 98 --fail-under-branch 95 --print-summary)
[[ "${1:-}" != --branches ]] || report=(--branches)

cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF \
  -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="-O0 --coverage" >/dev/null
cmake --build "$dir" -- --quiet
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" --output-on-failure --progress --exclude-regex Install
gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
  --gcov-executable gcov "$dir/CMakeFiles" "${report[@]}"
