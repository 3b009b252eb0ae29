#!/usr/bin/env bash
# Prints what the library costs, as a table in Markdown, beside the goals: instructions, time ratios,
# calls to the system, sizes, and other packaged libraries on the same recording.
# Usage: bench/report.sh [--write] [--keep DIR] [OLD_COMMIT]
#   OLD_COMMIT  a second column for the library of that commit, measured by the same programs
#   --write     makes the figures of this tree those that the pages have to quote, bench/figures.txt
#   --keep DIR  build there and keep it (with callgrind's files) instead of in a temporary directory
# Needs valgrind and a C++ compiler. Used where installed, named where missing: libbenchmark-dev,
# libfftw3-dev, libkissfft-dev, libwebrtc-audio-processing-dev; for aarch64 the cross compiler and
# qemu-user. Takes some minutes.
set -euo pipefail
# shellcheck source=bench/measure.sh
source "$(dirname "${BASH_SOURCE[0]}")/measure.sh"

readonly HOP=192
readonly ARM_PREFIX=aarch64-linux-gnu
readonly MODES="6000 6001 6002"

declare -A value # "COLUMN NAME" -> figure

write=false
if [[ "${1:-}" == --write ]]; then
  write=true
  shift
fi
dir=""
if [[ "${1:-}" == --keep ]]; then
  dir=${2:?--keep needs a directory}
  mkdir -p "$dir"
  dir=$(cd "$dir" && pwd)
  shift 2
else
  dir=$(mktemp -d)
  trap 'rm -rf "$dir"' EXIT
fi
old_commit=${1:-}
columns=(current)
command -v valgrind >/dev/null || fail "valgrind is missing; install the packages: valgrind"

note() {
  echo "report.sh: $*" >&2
}

ratio() {
  awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.3f", a / b; else print "-" }'
}

# For ratios of times, which repeat to two decimals at best.
short_ratio() {
  awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'
}

# count_variant COLUMN VARIANT: instructions of the three modes, and what part its transforms are.
count_variant() {
  local column=$1 variant=$2 library=$dir/$1/$2 mode transforms total profile
  for mode in $MODES; do
    value["$column instructions.$variant.$mode"]=$(per_frame "$library" "$dir/run_stream" "$mode" \
      "$HOP" 2)
    profile=$dir/$column/$variant.$mode.callgrind
    total=$(callgrind_file=$profile in_library "$library" "$dir/run_stream" "$mode" \
      "$COUNT_SECONDS" "$HOP" 2)
    transforms=$(callgrind_annotate --inclusive=yes --threshold=100 "$profile" |
      awk '/:spx_i?fft(_windowed)?\(/ { gsub(",", "", $1); sum += $1 } END { print sum }')
    value["$column transforms.$variant.$mode"]=$((transforms / (COUNT_SECONDS * 16000 / HOP)))
    value["$column share.$variant.$mode"]=$(ratio "$total" "$transforms")
  done
}

# worst_call COLUMN VARIANT MODE: instructions of the worst call over those of the median call (the
# mean of the two middle ones); callgrind writes one file a call.
worst_call() {
  local column=$1 variant=$2 mode=$3 calls
  calls=$(mktemp -d -p "$dir")
  LD_LIBRARY_PATH=$dir/$column/$variant valgrind --tool=callgrind --toggle-collect=se_bf_do \
    --dump-after=se_bf_do --callgrind-out-file="$calls/call" "$dir/run_stream" "$mode" 24 "$HOP" 2 \
    >/dev/null 2>&1
  # The last file holds what follows the last call: nothing.
  value["$column worst.$variant.$mode"]=$(grep -h '^totals: [1-9]' "$calls"/call.* |
    awk '{ print $2 }' | sort -n | awk '{ count[NR] = $1 }
      END { low = count[int((NR + 1) / 2)]; high = count[int(NR / 2) + 1]
            printf "%.3f", count[NR] / ((low + high) / 2) }')
  rm -rf "$calls"
}

# The instructions that qemu executes in a run of MODE.
arm_run() {
  QEMU_LD_PREFIX=/usr/$ARM_PREFIX qemu-aarch64 -plugin "$dir/qemu_count.so" \
    -E LD_LIBRARY_PATH="$1" "$dir/run_stream_arm" "$2" "$3" "$HOP" 2 2>&1 >/dev/null |
    awk '/^instructions/ { print $2 }'
}

# count_arm COLUMN: as per_frame, less the share of the caller, which qemu cannot leave out.
count_arm() {
  local library=$dir/$1/arm seconds=$COUNT_SECONDS mode caller=0 count short long
  for mode in 0 $MODES; do
    short=$(arm_run "$library" "$mode" "$seconds")
    long=$(arm_run "$library" "$mode" $((2 * seconds)))
    [[ -n "$short" && -n "$long" ]] || {
      note "aarch64: skipped, qemu-aarch64 does not take the plug-in"
      return 0
    }
    count=$(((long - short) / (seconds * 16000 / HOP)))
    if [[ $mode == 0 ]]; then
      caller=$count
    else
      value["$1 instructions.aarch64.$mode"]=$((count - caller))
    fi
  done
}

# measure_silence COLUMN: time and, on x86-64, operations on denormals in digital silence.
measure_silence() {
  local mode cost
  while read -r _ mode cost; do
    value["$1 silence.${mode%:}"]=${cost##*worst }
  done < <(LD_LIBRARY_PATH=$dir/$1/avx2 "$dir/silence_cost" 2>&1 >/dev/null)
  [[ -x $dir/denormal_count ]] || return 0
  for mode in 6001 6002; do
    value["$1 denormals.$mode"]=$(LD_LIBRARY_PATH=$dir/$1/avx2 "$dir/denormal_count" "$mode" \
      2>&1 >/dev/null | sed 's/.*worst //')
  done
}

# measure_system COLUMN: heap calls, system calls and page faults, added up.
measure_system() {
  local mode
  for mode in $MODES; do
    value["$1 system.$mode"]=$(LD_LIBRARY_PATH=$dir/$1/avx2 "$dir/quiet_calls" "$mode" \
      2>&1 >/dev/null | awk '{ print $4 + $6 + $8 }')
  done
}

# measure_sizes COLUMN TREE: sections of the file, the pool by configuration, and the stack.
measure_sizes() {
  local objects=$dir/$1/avx2/CMakeFiles/tm_se_bf_objects.dir
  local library=$dir/$1/avx2/libtm_se_bf.so baseline=$dir/$1/baseline
  value["$1 text.baseline"]=$(section_size "$baseline/libtm_se_bf.so" .text)
  value["$1 text.default"]=$(section_size "$library" .text)
  value["$1 text.vector"]=$(code_of "$baseline" q31_vector)
  value["$1 text.scalar"]=$(code_of "$baseline" 'q31_cfft|q31_rfft')
  value["$1 constants"]=$(section_size "$library" .rodata)
  value["$1 static"]=$(section_size "$library" .bss)
  value["$1 static.pool"]=$(variable_size "$library" kStaticMemory)
  value["$1 static.self_test"]=$(variable_size "$library" 'buff_(out|in_last)')
  value["$1 constants.self_test"]=$(cat "$2"/src/conformance/*.s16 | wc -c)
  find "$objects" -name '*.o' -print0 | xargs -0 c++ -std=c++17 -O2 -I"$2/include" -I"$2/src" \
    -I"$root/bench" "$root/bench/memory_use.cpp" -Wl,-z,now -lm -o "$dir/$1/memory_use" || return 0
  local what figure
  while read -r what figure; do
    value["$1 $what"]=$figure
  done < <("$dir/$1/memory_use" 2>&1 >/dev/null | grep -E "^(pool|stack)\.")
}

# section_size LIBRARY SECTION
section_size() {
  size -A "$1" | awk -v name="$2" '$1 == name { print $2 }'
}

# variable_size LIBRARY PATTERN: bytes of the variables, added up.
variable_size() {
  nm -S "$1" | awk -v name="[0-9]($2)E?\$" '$4 ~ name { print $2 }' | sum_hex
}

# code_of BUILD_DIR MODULES: bytes of code in the modules of src/spectral whose names begin so.
code_of() {
  find "$1/CMakeFiles/tm_se_bf_objects.dir/src/spectral" -regextype egrep -regex ".*/($2)[^/]*\.o" \
    -exec readelf -SW {} + |
    sed -nE 's/.* \.text\S* +PROGBITS +\S+ \S+ (\S+) .*/\1/p' | sum_hex
}

sum_hex() {
  local sum=0 size
  while read -r size; do
    sum=$((sum + 16#$size))
  done
  echo "$sum"
}

# measure_transforms COLUMN TREE: time of the pair at N = 256 over that of other libraries, all in
# one process, repetitions interleaved.
measure_transforms() {
  local sources=("$root/bench/transform_library.cpp") flags=() package
  for package in fftw3f:transform_fftw kissfft-float:transform_kiss; do
    if pkg-config --exists "${package%:*}"; then
      sources+=("$root/bench/${package#*:}.cpp")
      read -ra found < <(pkg-config --cflags --libs "${package%:*}")
      flags+=("${found[@]}")
    else
      note "transforms: no comparison with ${package%:*}, its package is missing"
    fi
  done
  local objects=$dir/$1/avx2/CMakeFiles/tm_se_bf_objects.dir
  if ! find "$objects" -name '*.o' -print0 | xargs -0 c++ -std=c++17 -O2 -I"$2/include" \
    -I"$2/src" -I"$root/bench" "${sources[@]}" "${flags[@]}" -lbenchmark_main -lbenchmark -lm \
    -o "$dir/$1/transforms" 2>"$dir/$1/transforms.log"; then
    note "transforms: skipped, do not build; is libbenchmark-dev installed?"
    return 0
  fi
  "$dir/$1/transforms" --benchmark_repetitions=25 --benchmark_min_time=0.02 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_out="$dir/$1/transforms.csv" --benchmark_out_format=csv >/dev/null 2>&1
  local n other
  for n in 256 512; do
    for other in fftw kiss; do
      value["$1 pair.$other.$n"]=$(short_ratio "$(pair_time "$1" library $n)" \
        "$(pair_time "$1" $other $n)")
    done
  done
}

pair_time() {
  awk -F, -v name="\"pair_$2/N:$3_median\"" '$1 == name { print $4 }' "$dir/$1/transforms.csv"
}

# webrtc_run WHAT SECONDS: instructions of a whole run.
webrtc_run() {
  valgrind --tool=callgrind --callgrind-out-file=/dev/null "$dir/webrtc_stream" "$1" "$2" 2>&1 \
    >/dev/null | awk '/Collected/ { print $4 }'
}

# count_webrtc WHAT: instructions for the audio of one frame, the caller's included.
count_webrtc() {
  local per_second=$((($(webrtc_run "$1" 24) - $(webrtc_run "$1" 12)) / 12))
  echo $((per_second * HOP / 16000))
}

measure_column() {
  local column=$1 tree=$2
  note "$column: building"
  mkdir -p "$dir/$column"
  build_library "$tree" "$dir/$column/baseline" -DTM_SE_BF_AVX2=OFF
  build_library "$tree" "$dir/$column/avx2"
  if [[ $column == current ]]; then
    build_drivers "$dir/current/avx2"
  fi
  note "$column: counting"
  count_variant "$column" baseline
  worst_call "$column" baseline 6001
  worst_call "$column" baseline 6002
  if has_avx2; then
    count_variant "$column" avx2
    worst_call "$column" avx2 6002
  else
    note "AVX2: skipped, this processor has none"
  fi
  if [[ -x $dir/run_stream_arm || $column == current ]] && can_build_arm; then
    build_library "$tree" "$dir/$column/arm" -DCMAKE_SYSTEM_NAME=Linux \
      -DCMAKE_SYSTEM_PROCESSOR=aarch64 -DCMAKE_C_COMPILER=$ARM_PREFIX-gcc \
      -DCMAKE_CXX_COMPILER=$ARM_PREFIX-g++
    [[ -x $dir/run_stream_arm ]] ||
      build_driver run_stream "$dir/$column/arm" "$dir/run_stream_arm" $ARM_PREFIX-g++
    count_arm "$column"
  else
    note "aarch64: skipped, $ARM_PREFIX-g++ or qemu-aarch64 is missing"
  fi
  note "$column: timing"
  measure_silence "$column"
  measure_system "$column"
  measure_sizes "$column" "$tree"
  measure_transforms "$column" "$tree"
}

can_build_arm() {
  command -v $ARM_PREFIX-g++ >/dev/null && command -v qemu-aarch64 >/dev/null
}

build_drivers() {
  local program
  for program in run_stream silence_cost quiet_calls; do
    build_driver $program "$1" "$dir/$program"
  done
  [[ "$(uname -m)" != x86_64 ]] || build_driver denormal_count "$1" "$dir/denormal_count"
  cc -O2 -shared -fPIC "$root/bench/qemu_count.c" -o "$dir/qemu_count.so"
}

# row LABEL NAME FIRST_GOAL STRETCH_GOAL
row() {
  local label=$1 name=$2 goal=$3 stretch=$4 column line verdict="" figure
  line="| $label |"
  for column in "${columns[@]}"; do
    line+=" ${value["$column $name"]:--} |"
  done
  figure=${value["current $name"]:--}
  if [[ "$goal" != - && "$figure" != - ]]; then
    verdict=$(awk -v f="$figure" -v g="$goal" -v s="$stretch" 'BEGIN {
      if (s != "-" && f + 0 <= s + 0) print "stretch"
      else if (f + 0 <= g + 0) print "met"
      else print "missed" }')
  fi
  echo "$line $goal | $stretch | $verdict |"
}

# rows LABEL NAME_PREFIX "GOALS" "STRETCH GOALS": one row for each of the three modes.
rows() {
  local goals stretches modes index
  read -ra modes <<<"$MODES"
  read -ra goals <<<"$3"
  read -ra stretches <<<"$4"
  for index in 0 1 2; do
    row "$1, mode ${modes[index]}" "$2.${modes[index]}" "${goals[index]}" "${stretches[index]}"
  done
}

print_table() {
  local column header="| figure |" line="|---|"
  for column in "${columns[@]}"; do
    header+=" $column |"
    line+="---|"
  done
  echo "$header goal | stretch | |"
  echo "$line---|---|---|"
  rows "instructions per frame, x86-64 baseline" instructions.baseline "36000 42000 66000" "30000 34000 52000"
  rows "instructions per frame, AVX2" instructions.avx2 "13000 15000 24000" "9500 10500 17000"
  rows "instructions per frame, aarch64" instructions.aarch64 "32000 36000 56000" "26000 29000 45000"
  row "transform pair N = 256 over FFTW, time" pair.fftw.256 2.0 1.5
  row "transform pair N = 512 over FFTW, time" pair.fftw.512 - -
  row "transform pair N = 256 over KissFFT, time" pair.kiss.256 - -
  rows "mode over its own transforms, baseline" share.baseline "1.15 1.3 1.4" "- - -"
  rows "mode over its own transforms, AVX2" share.avx2 "1.15 1.3 1.4" "- - -"
  row "worst call over median, baseline, mode 6001" worst.baseline.6001 1.10 1.05
  row "worst call over median, baseline, mode 6002" worst.baseline.6002 1.10 1.05
  row "worst call over median, AVX2, mode 6002" worst.avx2.6002 1.10 1.05
  rows "digital silence after speech over speech, time" silence "1.5 1.5 1.5" "1.0 1.0 1.0"
  row "operations on denormals per frame of it, mode 6001" denormals.6001 - -
  row "operations on denormals per frame of it, mode 6002" denormals.6002 - -
  rows "heap calls, system calls and page faults after the first call" system "0 0 0" "0 0 0"
  row ".text, baseline build, bytes" text.baseline 33000 24000
  row ".text, default build, bytes" text.default - -
  local hop channels
  for hop in 160 192 320; do
    for channels in 1 2; do
      row "pool bytes, hop $hop, $channels channel(s)" "pool.hop$hop.channels$channels" - -
    done
  done
}

# growth_name MODE HOP CHANNELS: of a baseline count, which may be one of those above.
growth_name() {
  if [[ $2 == "$HOP" && $3 == 2 ]]; then
    echo "instructions.baseline.$1"
  else
    echo "growth.$1.hop$2.channels$3"
  fi
}

# count_growth: baseline counts by hop and channels; with one channel only mode 6001 runs.
count_growth() {
  local hop channels mode name
  for hop in 160 192 320; do
    for channels in 1 2; do
      for mode in $MODES; do
        name="current $(growth_name "$mode" "$hop" "$channels")"
        [[ ($channels == 1 && $mode != 6001) || -n ${value[$name]:-} ]] && continue
        value[$name]=$(per_frame "$dir/current/baseline" "$dir/run_stream" "$mode" "$hop" \
          "$channels")
      done
    done
  done
}

print_growth() {
  local hop channels mode
  echo "| hop | channels | 6000 | 6001 | 6002 |"
  echo "|---|---|---|---|---|"
  for hop in 160 192 320; do
    for channels in 1 2; do
      local line="| $hop | $channels |"
      for mode in $MODES; do
        line+=" ${value["current $(growth_name "$mode" "$hop" "$channels")"]:--} |"
      done
      echo "$line"
    done
  done
}

count_others() {
  if ! pkg-config --exists webrtc-audio-processing; then
    note "WebRTC: skipped, libwebrtc-audio-processing-dev is missing"
    return 0
  fi
  local flags caller
  read -ra flags < <(pkg-config --cflags --libs webrtc-audio-processing)
  c++ -std=c++17 -O2 "$root/bench/webrtc_stream.cpp" "${flags[@]}" -o "$dir/webrtc_stream"
  caller=$(count_webrtc caller)
  value["current webrtc.suppression"]=$(($(count_webrtc ns) - caller))
  value["current webrtc.beamformer"]=$(($(count_webrtc beamformer) - caller))
}

# unit NAME: unit and command, as they stand in the file of figures.
unit() {
  case $1 in
    instructions.aarch64.*) echo "instructions per frame: bench/report.sh, qemu" ;;
    instructions.*) echo "instructions per frame: bench/check_counts.sh, callgrind" ;;
    growth.* | transforms.* | webrtc.*) echo "instructions per frame: bench/report.sh, callgrind" ;;
    share.* | worst.*) echo "ratio of instructions: bench/report.sh, callgrind" ;;
    pair.* | silence.*) echo "ratio of times: bench/report.sh" ;;
    denormals.*) echo "operations per frame: bench/report.sh, denormal_count" ;;
    system.*) echo "calls and faults: bench/report.sh, quiet_calls" ;;
    pool.* | stack.*) echo "bytes: bench/report.sh, memory_use" ;;
    static.* | constants.*) echo "bytes: nm -S libtm_se_bf.so, and the files" ;;
    *) echo "bytes: size -A libtm_se_bf.so" ;;
  esac
}

write_figures() {
  local key name
  {
    echo "# Figures that the pages quote: name, value, unit, command. Written by bench/report.sh --write."
    echo "# x86-64 unless said, hop $HOP, two channels, 960 samples a call, $COUNT_SECONDS s of audio"
    echo "# compiler: $COMPILER"
    for key in "${!value[@]}"; do
      name=${key#current }
      [[ $name == "$key" ]] || echo "$name ${value[$key]} $(unit "$name")"
    done | LC_ALL=C sort -V
  } >"$FIGURES"
}

measure_column current "$root"
count_growth
count_others
if [[ -n "$old_commit" ]]; then
  columns+=("$old_commit")
  mkdir -p "$dir/old"
  git -C "$root" archive "$old_commit" | tar -x -C "$dir/old" ||
    fail "no such commit: $old_commit"
  measure_column "$old_commit" "$dir/old"
fi

echo "Processor: $(lscpu | sed -n 's/^Model name: *//p' | head -n 1); compiler: $(c++ --version |
  head -n 1); hop $HOP, two channels, 960 samples a call"
echo
print_table
echo
echo "Instructions per frame by hop and channels, x86-64 baseline"
echo
print_growth
echo
echo "Other libraries, instructions for the audio of one frame ($HOP samples), baseline x86-64"
echo
echo "WebRTC noise suppression alone, one channel: ${value["current webrtc.suppression"]:--}"
echo "WebRTC two-microphone beamformer and noise suppression: ${value["current webrtc.beamformer"]:--}"
$write || exit 0
write_figures
