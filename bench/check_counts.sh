#!/usr/bin/env bash
# Compares the instructions per frame of the three modes with bench/figures.txt and fails when one has
# grown by more than 2 %.
# Usage: bench/check_counts.sh [BUILD_DIR]
#   BUILD_DIR where the two libraries are built (build/counts)
# The figures belong to one compiler: with another, or without valgrind, nothing is judged.
set -euo pipefail
# shellcheck source=bench/measure.sh
source "$(dirname "${BASH_SOURCE[0]}")/measure.sh"

readonly TOLERATED_GROWTH_PERCENT=2

dir=${1:-$root/build/counts}

if ! command -v valgrind >/dev/null; then
  echo "instruction counts: skipped, valgrind is missing"
  exit 0
fi

mkdir -p "$dir"
build_library "$root" "$dir/baseline" -DTM_SE_BF_AVX2=OFF
build_driver run_stream "$dir/baseline" "$dir/run_stream"
variants=(baseline)
if has_avx2; then
  build_library "$root" "$dir/avx2" -DTM_SE_BF_AVX2=ON
  variants+=(avx2)
else
  echo "instruction counts: AVX2 rows skipped, this processor has no AVX2"
fi

judged=true
if [[ "$(sed -n 's/^# compiler: //p' "$FIGURES")" != "$COMPILER" ]]; then
  judged=false
  echo "instruction counts: not judged, the committed ones are of another compiler than $COMPILER"
fi

status=0
printf '%-9s %6s %10s %10s %8s\n' variant mode committed now growth
for variant in "${variants[@]}"; do
  for mode in 6000 6001 6002; do
    now=$(per_frame "$dir/$variant" "$dir/run_stream" "$mode" 192 2)
    before=$(awk -v name="instructions.$variant.$mode" '$1 == name { print $2 }' "$FIGURES")
    [[ -n "$before" ]] || fail "$FIGURES has no line instructions.$variant.$mode"
    verdict=""
    if ((100 * now > (100 + TOLERATED_GROWTH_PERCENT) * before)); then
      verdict="  GROWN"
      status=1
    fi
    growth=$(awk -v n="$now" -v b="$before" 'BEGIN { printf "%+.2f %%", 100 * (n - b) / b }')
    printf '%-9s %6d %10d %10d %8s%s\n' "$variant" "$mode" "$before" "$now" "$growth" "$verdict"
  done
done

if ((status != 0)); then
  echo "instruction counts: more than $TOLERATED_GROWTH_PERCENT % above the committed figures;" \
    "speed it up, or commit new figures with bench/report.sh --write and say why"
fi
$judged || exit 0
exit "$status"
