#!/usr/bin/env bash
# The plug-ins in the programs that users have, without sound hardware, against the stream library.
# hosts_test.sh CASE PLUGIN-DIRECTORY PLUGIN_REFERENCE RECORD_AGAIN: a test_ function; 77 when a program that
# it needs is missing.
plugins=$2 tool=$3 record_again=$4
source "$(dirname "$0")/../scratch.sh"
export LADSPA_PATH=$plugins GST_REGISTRY=$work/registry

compare="$python $top/tests/plugins/compare.py reference.raw"
readonly FRAMES=32000 DISTANCE=0.06 DOA=30
cp "$recording" in.raw

need() {
  type -P "$@" >/dev/null || { echo "skipped: this takes $* (scripts/packages.sh plugin-test)"; exit 77; }
}

# make_wav RATE: in.wav is the recording, as fast as the rate makes it.
make_wav() {
  sox -t raw -r "$1" -e signed -b 16 -c 2 "$recording" in.wav
}

# reference RATE [MODE [DISTANCE DOA [PLAIN [LIMIT]]]]: reference.raw is what a stream makes of in.raw.
reference() {
  latency=$("$tool" "$1" "${2-4}" "${3-$DISTANCE}" "${4-$DOA}" "${5-0}" "${6-0}" 2>&1 \
    <in.raw >reference.raw)
}

# same_bits COUNT: got.raw holds COUNT samples of the reference after the latency.
same_bits() {
  [[ $(stat -c %s got.raw) == $((2 * (latency + $1))) ]]
  cmp -n 640 got.raw /dev/zero
  cmp -i $((2 * latency)):0 -n $((2 * $1)) got.raw reference.raw
}

# near GOT: raw samples that differ from the reference by 1 at most, the way programs round floats.
near() {
  paste <(od -An -v -w2 -td2 "$1") <(od -An -v -w2 -td2 reference.raw) | awk '
    NF != 2 || ($1 - $2) ^ 2 > 1 { print "sample " NR ": got and expected", $0; bad = 1; exit }
    END { exit bad || NR == 0 }'
}

# One file is enough: what it carries does not meet what the host has loaded.
test_alone() {
  need nm readelf
  local file=$plugins/tm_se_bf.so
  diff <(nm -D --defined-only "$file" | cut -d' ' -f3) <(echo ladspa_descriptor)
  diff <(readelf -d "$file" | grep -oP 'NEEDED.*\[\Klib[^]]*' | sort) <(printf '%s\n' libc.so.6 libm.so.6)
}

test_ladspa-sdk() {
  need applyplugin analyseplugin sox
  analyseplugin tm_se_bf.so tm_se_bf >ports
  grep '"Mode (0 mean, 1 omlsa, 2 mvdr, 3 mono, 4 refined)" input, control, 0 to 4, default 4' ports
  grep '"Direction (degrees)" input, control, -200 to 180, default -200' ports
  grep '"Max attenuation (dB, 0 no limit)" input, control, 0 to 60, default 0' ports
  make_wav 16000
  reference 16000 4 $DISTANCE $DOA 0 6
  applyplugin in.wav got.wav tm_se_bf.so tm_se_bf 4 $DISTANCE $DOA 6
  tail -c +45 got.wav >got.raw
  same_bits $((FRAMES - latency))
}

# table_row NAME: the figures of that row of the plug-ins' page.
table_row() {
  sed -n "s/^| $1 |//p" "$top/docs/plugins.md" | tr -d '|'
}

# The page tells the latencies, and its lines lose no sample and add none.
test_documented() {
  need ffmpeg sox gst-launch-1.0
  make_wav 48000
  local rate start line
  for rate in $(table_row 'rate (Hz)'); do
    reference "$rate"
    echo "$latency"
  done >latencies
  diff latencies <(table_row 'latency (samples)' | xargs -n 1)
  reference 48000
  for start in ffmpeg gst-launch-1.0 LADSPA_PATH=; do
    line=$(grep "^$start" "$top/docs/plugins.md")
    rm -f out.wav
    eval "${line/LADSPA_PATH=\/usr\/lib\/ladspa/}" </dev/null
    sox -D out.wav -t raw got.raw
    near got.raw
  done
}

# use_alsa CONFIGURATION [RATE]: besides it, there are PCMs that play played.raw, then silence: `player` in
# whatever format, `recording` in words at 16 kHz or RATE.
use_alsa() {
  need arecord aplay
  cat >test.conf <<END
pcm_type.tm_se_bf { lib "$plugins/libasound_module_pcm_tm_se_bf.so" }
pcm.player { type file slave.pcm null file /dev/null infile "$work/played.raw" format raw }
pcm.recording { type plug slave { pcm player format S16_LE channels 2 rate ${2-16000} } }
pcm.bare { type tm_se_bf slave.pcm player mic_distance $DISTANCE doa $DOA }
pcm.plain { type tm_se_bf slave.pcm player mode mvdr mic_distance $DISTANCE doa $DOA shield no }
END
  export ALSA_CONFIG_PATH=/usr/share/alsa/alsa.conf:$top/plugins/alsa/$1:$work/test.conf
}

# record PCM RATE FRAMES OPTION... FILE
# ALSA's file plug-in hands out whole buffers, which memory mapping takes at once, and whole periods to a
# plug that converts the rate.
record() {
  [[ -f played.raw ]] || { cat in.raw; head -c 400000 /dev/zero; } >played.raw
  arecord -q -M -D "$1" -r "$2" --period-size=$((5 * $2 / 2)) --buffer-size=$((5 * $2)) \
    --samples="$3" "${@:4}"
  rm played.raw
}

# same_bits_from PCM RATE REFERENCE_OPTION...
same_bits_from() {
  reference "${@:2}"
  record "$1" "$2" $((latency + FRAMES)) -t raw -f S16_LE got.raw
  same_bits $FRAMES
}

test_alsa() {
  use_alsa asound.conf
  local pcm="tm_se_bf:SLAVE=recording,DISTANCE=$DISTANCE,DOA=$DOA" mode
  local modes=(mean omlsa mvdr mono refined)
  for mode in 0 1 2 3 4; do
    same_bits_from "$pcm,MODE=${modes[mode]}" 16000 $mode
  done
  same_bits_from "$pcm,LIMIT=6" 16000 4 $DISTANCE $DOA 0 6
  # Beginning in digital silence, which ends the beamforming of a stream without shield.
  { head -c 12800 /dev/zero; cat "$recording"; } >in.raw
  same_bits_from "$pcm" 16000
  # Without conversion around it, at the rate of the recording, words and floats.
  same_bits_from plain 16000 2 $DISTANCE $DOA 1
  same_bits_from bare 16000
  cat "$recording" "$recording" >played.raw
  "$record_again" bare 320  # a block; gains spread the first sound over the rest of the latency
  rm played.raw
  same_bits_from bare 48000
  need sox
  sox -D -t raw -r 48000 -e signed -b 16 -c 2 in.raw -t raw -e float -b 32 played.raw pad 0 4000s
  record bare 48000 $((latency + FRAMES)) -t raw -f FLOAT_LE floats.raw
  sox -D -t raw -r 48000 -e float -b 32 -c 1 floats.raw -t raw -e signed -b 16 got.raw trim ${latency}s
  truncate -s $((2 * FRAMES)) reference.raw
  near got.raw
  use_alsa asound.conf 48000
  same_bits_from "$pcm" 48000
  use_alsa asound-ladspa.conf
  pcm="tm_se_bf_ladspa:SLAVE=recording,PATH=\"$plugins\",DISTANCE=$DISTANCE,DOA=$DOA"
  same_bits_from "$pcm" 16000
  same_bits_from "$pcm,LIMIT=6" 16000 4 $DISTANCE $DOA 0 6
}

test_alsa-conversion() {
  use_alsa asound.conf
  reference 16000 0 0 0
  local rate format
  while read -r rate format; do
    record tm_se_bf:SLAVE=recording,MODE=mean "$rate" $((2 * rate)) -f $format got.wav
    $compare got.wav 0.99 0.3 any $FRAMES
  done <<'END'
8000 S16_LE -c 1
16000 S32_LE -c 2
44100 S16_LE -c 2
48000 FLOAT_LE -c 2
END

  # Each mistake gets a line that names it, and no crash.
  ALSA_CONFIG_PATH+=:$work/wrong.conf
  local says program definition
  while IFS='|' read -r says program definition; do
    echo "pcm.wrong { type tm_se_bf $definition }" >wrong.conf
    $program -q -d 1 -D wrong in.wav 2>message && exit 1 || [[ $? == 1 ]]
    grep "$says" message
  done <<'END'
mode must be auto, refined, mean, omlsa, mvdr or mono|arecord|slave.pcm recording mode loud
slave must be given|arecord|mode mvdr
doa (DOA) must be given with mic_distance|arecord|slave.pcm recording mic_distance 0.1
max_attenuation must be from 0 to 60 dB|arecord|slave.pcm recording max_attenuation 61
doa must be from -180 to 180|arecord|slave.pcm recording mic_distance 0.1 doa -190
enhances recordings only|aplay|slave.pcm recording
at 7000 Hz: config.rate must be 8000 to 192000|arecord -r 7000 -f S16_LE|slave.pcm null
END
}

"test_$1"
