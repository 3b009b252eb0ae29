#!/usr/bin/env bash
# The plug-ins in the programs that users have, without sound hardware, against what the command-line
# program makes of the same recording: hosts_test.sh CASE SOURCE PLUGIN-DIRECTORY SE_BF
# CASE: one of the test_ functions below. Exit status 77 when a program that it needs is missing.
set -euo pipefail
source=$2 plugins=$3 tool=$4
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_hosts.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
unset XDG_RUNTIME_DIR PIPEWIRE_REMOTE
export LADSPA_PATH=$plugins GST_REGISTRY=$work/registry

readonly LATENCY=512 FRAMES=32000 DISTANCE=0.06 DOA=30
recording=$source/src/conformance/pcm_in_multi.s16
cp "$recording" in.raw
"$source/tools/plot/python.sh" "$source/tools/recording/raw_to_wav.py" in.raw in.wav

need() {
  if ! type -P "$@" >/dev/null; then
    echo "skipped: this takes $* (tools/packages.sh plugin-test)"
    exit 77
  fi
}

# reference OPTION...: makes reference.raw of in.raw
reference() {
  "$tool" enhance - - --raw-channels 2 --quiet "$@" <in.raw >reference.raw
}

# same_bits COUNT: got.raw holds COUNT samples of the reference behind the latency. Before them is
# silence, while the first block fills up, and sound that belongs ahead of the reference.
same_bits() {
  [[ $(stat -c %s got.raw) == $((2 * (LATENCY + $1))) ]]
  cmp -n 640 got.raw /dev/zero
  cmp -i $((2 * LATENCY)):0 -n $((2 * $1)) got.raw reference.raw
}

# same_sound WAV CORRELATION LEVEL_DB DELAY LENGTH
same_sound() {
  "$source/tools/plot/python.sh" "$source/tests/plugins/compare.py" reference.raw "$@"
}

test_ladspa-sdk() {
  need applyplugin analyseplugin
  analyseplugin tm_se_bf.so tm_se_bf | tee described
  grep -q '"Mode (0 mean, 1 omlsa, 2 mvdr, 3 mono)" input, control, 0 to 3, default 2' described
  reference --mic-distance $DISTANCE --doa $DOA
  applyplugin in.wav got.wav tm_se_bf.so tm_se_bf 2 $DISTANCE $DOA
  tail -c +45 got.wav >got.raw
  same_bits $((FRAMES - LATENCY))
}

# The lines of the plug-ins' page, as printed there. SoX makes up for the latency and loses some
# samples at the end.
test_documented() {
  need ffmpeg sox gst-launch-1.0
  reference --mic-distance 0.06 --doa 30
  local start delay length line
  while read -r start delay length; do
    line=$(grep "^$start" "$source/docs/plugins.md")
    rm -f out.wav
    eval "${line/LADSPA_PATH=\/usr\/lib\/ladspa/}" </dev/null
    same_sound out.wav 0.9999 0.1 "$delay" "$length"
  done <<END
ffmpeg $LATENCY $FRAMES
gst-launch-1.0 $LATENCY $FRAMES
LADSPA_PATH= 0 any
END
}

# use_alsa CONFIGURATION...: besides them, there is a PCM `recording` that plays in.raw, then silence.
use_alsa() {
  need arecord aplay
  cat >test.conf <<END
pcm_type.tm_se_bf { lib "$plugins/libasound_module_pcm_tm_se_bf.so" }
pcm.player { type file slave.pcm null file /dev/null infile "$work/played.raw" format raw }
pcm.recording { type plug slave { pcm player format S16_LE channels 2 rate 16000 } }
pcm.bare { type tm_se_bf slave.pcm recording mic_distance $DISTANCE doa $DOA }
END
  export ALSA_CONFIG_PATH=/usr/share/alsa/alsa.conf:$source/plugins/alsa/$1:$work/test.conf
}

# record PCM RATE FRAMES OPTION... FILE
#
# ALSA's file plug-in hands out whole buffers and forgets what its reader leaves of one: recordings
# use buffers that hold everything, through memory mapping, which takes all at once.
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
}

test_alsa-ladspa() {
  use_alsa asound-ladspa.conf
  same_bits_from "tm_se_bf_ladspa:SLAVE=recording,PATH=\"$plugins\",DISTANCE=$DISTANCE,DOA=$DOA"
}

test_alsa-conversion() {
  use_alsa asound.conf
  reference --mode mean
  local rate format
  while read -r rate format; do
    record tm_se_bf:SLAVE=recording,MODE=mean "$rate" $((2 * rate)) -f $format got.wav
    same_sound got.wav 0.99 0.3 any $FRAMES
  done <<'END'
8000 S16_LE -c 1
16000 FLOAT_LE -c 1
16000 S32_LE -c 2
44100 S16_LE -c 2
48000 FLOAT_LE -c 2
END
}

# Each mistake gets a line that names it, and no crash.
test_alsa-mistakes() {
  use_alsa asound.conf
  ALSA_CONFIG_PATH+=:$work/wrong.conf
  local says program definition
  while IFS='|' read -r says program definition; do
    echo "pcm.wrong { type tm_se_bf $definition }" >wrong.conf
    $program -q -d 1 -D wrong in.wav 2>message && exit 1 || [[ $? == 1 ]]
    grep "$says" message
  done <<'END'
mode must be mean, omlsa, mvdr or mono|arecord|slave.pcm recording mode loud
mic_distance must be from 0 to 10 metres|arecord|slave.pcm recording mic_distance far
doa must be from -180 to 180 degrees|arecord|slave.pcm recording doa 999
shield must be yes or no|arecord|slave.pcm recording shield maybe
unknown parameter gain|arecord|slave.pcm recording gain 3
slave must be given|arecord|mode mvdr
enhances recordings only|aplay|slave.pcm recording
runs at 16000 Hz|arecord -r 48000 -f S16_LE|slave.pcm null
END
}

# wait_for COMMAND...: until it succeeds, a quarter of a minute at most.
wait_for() {
  local tries=0
  until "$@" >/dev/null 2>&1; do
    [[ $((++tries)) -lt 75 ]] || { tail ./*.log; exit 1; }
    sleep 0.2
  done
}

links_to() {
  pw-link -l | grep -A1 "^$1" | grep -q "|-> $2"
}

# A daemon and a session manager of its own, and two microphones that a player feeds. The player
# starts with its first link, which must not cost the second microphone any sound.
test_pipewire() {
  need pipewire pw-cli pw-cat pw-link wireplumber dbus-run-session sox
  export HOME=$work XDG_RUNTIME_DIR=$work XDG_CONFIG_HOME=$work XDG_STATE_HOME=$work
  mkdir -p pipewire/pipewire.conf.d
  cp "$source/plugins/pipewire/tm_se_bf.conf" pipewire/pipewire.conf.d
  sox -D in.wav padded.wav pad 1 1
  pipewire >pipewire.log 2>&1 &
  trap 'kill %1; wait; rm -rf "$work"' EXIT  # the others end with the daemon
  wait_for test -S pipewire-0
  dbus-run-session -- wireplumber >wireplumber.log 2>&1 &
  wait_for pw-cli create-node adapter '{ factory.name = support.null-audio-sink
    node.name = microphones media.class = Audio/Source/Virtual audio.position = [ FL FR ]
    audio.rate = 48000 object.linger = true }'
  wait_for links_to microphones:capture_FR capture.tm_se_bf:input_FR
  pw-cat --record --target tm_se_bf --rate 16000 --channels 1 --format s16 got.wav &
  local recorder=$!
  wait_for links_to tm_se_bf:capture_MONO pw-cat:input_MONO
  pw-cat --playback --target 0 padded.wav &
  local player=$!
  wait_for pw-link pw-cat:output_FL microphones:input_FL
  wait_for pw-link pw-cat:output_FR microphones:input_FR
  wait $player
  kill -INT $recorder
  wait $recorder || true
  reference
  same_sound got.wav 0.9 1 any any
}

"test_$1"
