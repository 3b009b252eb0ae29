#!/usr/bin/env bash
# The endurance test over 24 h of audio in each mode, and the committed hash of all output; takes a
# minute. Builds in build/soak, or in SOAK_DIR. Needs scripts/packages.sh build test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
dir=${SOAK_DIR:-build/soak}
cmake -S . -B "$dir" -G Ninja -DTM_SE_BF_BUILD_TOOLS=OFF -DTM_SE_BF_ENDURANCE_SECONDS=86400 >/dev/null
cmake --build "$dir" --target module_tests -- --quiet
"$dir/tests/module_tests" --gtest_filter='*HoursOfAudio*' | tee "$dir/soak.log"
sh tests/streams/compare_hashes.sh tests/soak/soak_hashes.txt cat "$dir/soak.log"
