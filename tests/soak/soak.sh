#!/usr/bin/env bash
# Runs 24 h of audio through the suppressor (one channel) and the beamformer (two channels), some
# minutes of processor time each, and checks: finite values throughout, an unmoved memory pool, the
# last hour as fast (to 1.5) and as loud (to 3 dB) as the first, and the committed hash of all output.
# Builds in build/soak, or in SOAK_DIR. Needs tools/packages.sh build test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
dir=${SOAK_DIR:-build/soak}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTM_SE_BF_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" --target soak -- --quiet
{
  "$dir/tests/soak/soak" omlsa-1ch 6001 1 24
  "$dir/tests/soak/soak" mvdr-2ch 6002 2 24
} | tee "$dir/soak.log"
sh tests/streams/compare_hashes.sh tests/soak/soak_hashes.txt cat "$dir/soak.log"
