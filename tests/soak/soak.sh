#!/usr/bin/env bash
# Runs 24 h of audio through the suppressor (one channel) and the beamformer (two channels), some
# minutes of processor time each, and checks: finite values throughout, an unmoved memory pool, the
# last hour as fast (to 1.5) and as loud (to 3 dB) as the first, and the committed hash of all output.
#
# soak.sh [HOURS]     another length than 24 prints its hashes without comparing them
# Builds in build/soak, or in SOAK_DIR. Needs tools/packages.sh build test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

hours=${1:-24}
dir=${SOAK_DIR:-build/soak}

cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTM_SE_BF_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" --target soak -- --quiet
program=$(find "$dir" -name soak -type f -perm -u+x)

failed=0
for run in "omlsa-1ch 6001 1" "mvdr-2ch 6002 2"; do
  read -r name mode channels <<<"$run"
  echo "== $hours h through mode $mode, $channels channel(s) =="
  "$program" "$name" "$mode" "$channels" "$hours" | tee "$dir/$name.txt" || failed=1
done

if [[ "$hours" -eq 24 ]]; then
  sh tests/streams/compare_hashes.sh tests/soak/soak_hashes.txt \
    cat "$dir/omlsa-1ch.txt" "$dir/mvdr-2ch.txt" || failed=1
fi
exit $failed
