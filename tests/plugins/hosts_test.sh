#!/usr/bin/env bash
# The plug-ins in the programs that users have, without sound hardware, against the program se_bf.
# hosts_test.sh CASE PLUGIN-DIRECTORY SE_BF: a test_ function; 77 when a program that it needs is missing.
plugins=$2 tool=$3
source "$(dirname "$0")/../scratch.sh"
export LADSPA_PATH=$plugins GST_REGISTRY=$work/registry

compare="$python $top/tests/plugins/compare.py reference.raw"
readonly LATENCY=512 FRAMES=32000 DISTANCE=0.06 DOA=30
cp "$recording" in.raw
$python "$top/recordings/raw_to_wav.py" in.raw in.wav

need() {
  type -P "$@" >/dev/null || { echo "skipped: this takes $* (scripts/packages.sh plugin-test)"; exit 77; }
}

reference() {
  "$tool" enhance - - --raw-channels 2 --quiet "$@" <in.raw >reference.raw
}

# same_bits COUNT: got.raw holds COUNT samples of the reference after the latency.
same_bits() {
  [[ $(stat -c %s got.raw) == $((2 * (LATENCY + $1))) ]]
  cmp -n 640 got.raw /dev/zero
  cmp -i $((2 * LATENCY)):0 -n $((2 * $1)) got.raw reference.raw
}

test_ladspa-sdk() {
  need applyplugin analyseplugin
  analyseplugin tm_se_bf.so tm_se_bf >ports
  grep '"Mode (0 mean, 1 omlsa, 2 mvdr, 3 mono)" input, control, 0 to 3, default 2' ports
  grep '"Direction (degrees)" input, control, -200 to 180, default -200' ports
  reference --mic-distance $DISTANCE --doa $DOA
  applyplugin in.wav got.wav tm_se_bf.so tm_se_bf 2 $DISTANCE $DOA
  tail -c +45 got.wav >got.raw
  same_bits $((FRAMES - LATENCY))
}

# The lines of the plug-ins' page lose no sample and add none.
test_documented() {
  need ffmpeg sox gst-launch-1.0
  reference --mic-distance 0.06 --doa 30
  local start line
  for start in ffmpeg gst-launch-1.0 LADSPA_PATH=; do
    line=$(grep "^$start" "$top/docs/plugins.md")
    rm -f out.wav
    eval "${line/LADSPA_PATH=\/usr\/lib\/ladspa/}" </dev/null
    sox -D out.wav -t raw got.raw
    cmp got.raw reference.raw
  done
}

# use_alsa CONFIGURATION: besides it, there is a PCM `recording` that plays in.raw, then silence.
use_alsa() {
  need arecord aplay
  cat >test.conf <<END
pcm_type.tm_se_bf { lib "$plugins/libasound_module_pcm_tm_se_bf.so" }
pcm.player { type file slave.pcm null file /dev/null infile "$work/played.raw" format raw }
pcm.recording { type plug slave { pcm player format S16_LE channels 2 rate 16000 } }
pcm.bare { type tm_se_bf slave.pcm recording mic_distance $DISTANCE doa $DOA }
END
  export ALSA_CONFIG_PATH=/usr/share/alsa/alsa.conf:$top/plugins/alsa/$1:$work/test.conf
}

# record PCM RATE FRAMES OPTION... FILE
# ALSA's file plug-in hands out whole buffers, which memory mapping takes at once.
record() {
  { cat in.raw; head -c 40000 /dev/zero; } >played.raw
  arecord -q -M -D "$1" -r "$2" --period-size=$(($2 / 20)) --buffer-size=$((5 * $2 / 2)) \
    --samples="$3" "${@:4}"
}

# same_bits_from PCM REFERENCE_OPTION...
same_bits_from() {
  reference --mic-distance $DISTANCE --doa $DOA "${@:2}"
  record "$1" 16000 $((LATENCY + FRAMES)) -t raw -f S16_LE got.raw
  same_bits $FRAMES
}

test_alsa() {
  use_alsa asound.conf
  local pcm="tm_se_bf:SLAVE=recording,DISTANCE=$DISTANCE,DOA=$DOA" mode
  for mode in mvdr omlsa mean mono; do
    same_bits_from "$pcm,MODE=$mode" --mode $mode
  done
  # Beginning in digital silence, which ends the beamforming of the bare library.
  { head -c 12800 /dev/zero; cat "$recording"; } >in.raw
  same_bits_from "$pcm"
  same_bits_from bare --plain
  use_alsa asound-ladspa.conf
  same_bits_from "tm_se_bf_ladspa:SLAVE=recording,PATH=\"$plugins\",DISTANCE=$DISTANCE,DOA=$DOA"
}

test_alsa-conversion() {
  use_alsa asound.conf
  reference --mode mean
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
mode must be mean, omlsa, mvdr or mono|arecord|slave.pcm recording mode loud
slave must be given|arecord|mode mvdr
doa (DOA) must be given with mic_distance|arecord|slave.pcm recording mic_distance 0.1
doa must be from -180 to 180|arecord|slave.pcm recording mic_distance 0.1 doa -190
enhances recordings only|aplay|slave.pcm recording
runs at 16000 Hz|arecord -r 48000 -f S16_LE|slave.pcm null
END
}

"test_$1"
