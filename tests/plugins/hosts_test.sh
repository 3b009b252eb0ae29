#!/usr/bin/env bash
# Runs the plug-ins in the programs that users have, without sound hardware, and compares what comes
# out with what the command-line program makes of the same recording.
#
# hosts_test.sh HOST SOURCE PLUGIN-DIRECTORY SE_BF
# HOST: ladspa-sdk, ffmpeg, sox, gstreamer, alsa, alsa-conversion, alsa-mistakes, alsa-ladspa,
# documented or pipewire.
# Exit status 77 when a program that is needed is missing.
set -euo pipefail
self=$(realpath "$0")
host=$1 source=$2 plugins=$3 tool=$4
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_hosts.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

readonly LATENCY=512 FRAMES=32000 DISTANCE=0.06 DOA=30
export LADSPA_PATH=$plugins

need() {
  local program
  for program in "$@"; do
    if ! command -v "$program" >/dev/null; then
      echo "skipped: $program is not installed (tools/packages.sh plugin-test)"
      exit 77
    fi
  done
}

python() {
  "$source/tools/plot/python.sh" "$@"
}

compare() {
  python "$source/tests/plugins/compare.py" "$@"
}

# enhance OUT OPTION...: the reference.
enhance() {
  "$tool" enhance in.wav "$1" --quiet "${@:2}"
}

python "$source/tools/recording/raw_to_wav.py" "$source/src/conformance/pcm_in_multi.s16" in.wav

test_ladspa-sdk() {
  need applyplugin analyseplugin
  analyseplugin tm_se_bf.so tm_se_bf >described
  diff "$source/tests/plugins/ports.txt" described
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  applyplugin in.wav got.wav tm_se_bf.so tm_se_bf 2 $DISTANCE $DOA >applied
  compare reference.wav got.wav --delay $LATENCY --exact
}

test_ffmpeg() {
  need ffmpeg
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  ffmpeg -loglevel error -i in.wav -f s16le -af \
    "aresample=16000,ladspa=file=tm_se_bf:plugin=tm_se_bf:controls=c0=2|c1=$DISTANCE|c2=$DOA" \
    - >got.raw
  compare reference.wav got.raw --delay $LATENCY --exact
  if ffmpeg -loglevel error -i in.wav -af "aresample=48000,ladspa=file=tm_se_bf:plugin=tm_se_bf" \
    refused.wav 2>message || [[ $? -ge 128 ]]; then
    echo "48 kHz was not refused in good order"
    exit 1
  fi
  grep -q "16000 Hz only, not at 48000 Hz" message
}

test_sox() {
  need sox
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  sox -D in.wav -c 1 got.wav ladspa tm_se_bf tm_se_bf 2 $DISTANCE $DOA
  compare reference.wav got.wav --delay $LATENCY --exact
  sox -D in.wav -c 1 compensated.wav ladspa -l tm_se_bf tm_se_bf 2 $DISTANCE $DOA
  compare reference.wav compensated.wav --exact
}

test_gstreamer() {
  need gst-launch-1.0 gst-inspect-1.0
  export GST_REGISTRY=$work/registry
  if ! gst-inspect-1.0 ladspa-tm-se-bf-so-tm-se-bf >described 2>&1; then
    gst-inspect-1.0 --exists ladspa || {
      echo "skipped: GStreamer has no ladspa plug-in (tools/packages.sh plugin-test)"
      exit 77
    }
    cat described
    exit 1
  fi
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  gst-launch-1.0 -q filesrc location=in.wav ! wavparse ! audioconvert ! audioresample \
    ! audio/x-raw,rate=16000,channels=2 \
    ! ladspa-tm-se-bf-so-tm-se-bf mode=2 microphone-spacing=$DISTANCE direction=$DOA \
    ! audioconvert dithering=none ! audio/x-raw,format=S16LE ! wavenc \
    ! filesink location=got.wav
  compare reference.wav got.wav --delay $LATENCY --exact
}

# A PCM named recording that plays in.wav: 16-bit, two channels, 16 kHz, then silence.
#
# ALSA's file plug-in hands out whole buffers and forgets what its reader leaves of one: recordings
# use buffers that hold everything, through memory mapping, which takes all at once.
setup_alsa() {
  need arecord
  python "$source/tests/plugins/compare.py" --raw in.wav in.raw
  head -c 40000 /dev/zero >>in.raw
  cat >test.conf <<END
pcm_type.tm_se_bf { lib "$plugins/libasound_module_pcm_tm_se_bf.so" }
pcm.recording {
  type plug
  slave {
    format S16_LE
    channels 2
    rate 16000
    pcm { type file slave.pcm { type null } file /dev/null infile "$work/in.raw" format raw }
  }
}
pcm.bare { type tm_se_bf slave.pcm recording mic_distance $DISTANCE doa $DOA }
END
  export ALSA_CONFIG_PATH=/usr/share/alsa/alsa.conf:$1:$work/test.conf
  unset XDG_RUNTIME_DIR
}

# record PCM RATE FRAMES OPTION...: to standard output
record() {
  local pcm=$1 rate=$2 frames=$3
  arecord -q -M -D "$pcm" -t raw -r "$rate" --period-size=$((rate / 20)) \
    --buffer-size=$((5 * rate / 2)) --samples="$frames" "${@:4}"
}

test_alsa() {
  setup_alsa "$source/plugins/alsa/asound.conf"
  local shield mode
  for mode in mvdr omlsa mean mono; do
    enhance reference.wav --mode $mode --mic-distance $DISTANCE --doa $DOA
    record "tm_se_bf:SLAVE=recording,MODE=$mode,DISTANCE=$DISTANCE,DOA=$DOA" 16000 \
      $((FRAMES + LATENCY)) -f S16_LE >got.raw
    compare reference.wav got.raw --delay $LATENCY --exact --all
  done

  # Without the shielding, and beginning in digital silence, which ends the library's beamforming.
  python "$source/tests/plugins/compare.py" --raw in.wav in.raw
  { head -c 12800 /dev/zero; cat in.raw; } >late.raw
  cp late.raw in.raw
  "$tool" enhance - - --raw-channels 2 --quiet --plain --mic-distance $DISTANCE --doa $DOA \
    <late.raw >plain.raw 2>/dev/null
  "$tool" enhance - - --raw-channels 2 --quiet --mic-distance $DISTANCE --doa $DOA \
    <late.raw >shielded.raw
  cmp -s plain.raw shielded.raw && exit 1
  record bare 16000 $((FRAMES + 3200)) -f S16_LE >got.raw
  compare plain.raw got.raw --delay $LATENCY --exact
  record "tm_se_bf:SLAVE=recording,DISTANCE=$DISTANCE,DOA=$DOA" 16000 \
    $((FRAMES + 3200)) -f S16_LE >got.raw
  compare shielded.raw got.raw --delay $LATENCY --exact
}

test_alsa-conversion() {
  setup_alsa "$source/plugins/alsa/asound.conf"
  enhance reference.wav --mode mean
  local rate format channels
  while read -r rate format channels; do
    record "tm_se_bf:SLAVE=recording,MODE=mean" "$rate" $((2 * rate)) -f "$format" -c "$channels" \
      >got.raw
    compare reference.wav got.raw --format "$format" --channels "$channels" --rate "$rate" \
      --delay any --level-db 0.3 --correlation 0.99
  done <<'END'
8000 S16_LE 1
16000 FLOAT_LE 1
16000 S32_LE 2
44100 S16_LE 2
48000 S16_LE 1
48000 FLOAT_LE 2
END
}

# Each mistake gets a line that names it, and no crash.
test_alsa-mistakes() {
  setup_alsa "$source/plugins/alsa/asound.conf"
  local definition
  while IFS='|' read -r definition says; do
    echo "pcm.wrong { type tm_se_bf $definition }" >>test.conf
    if arecord -q -D wrong -d 1 -f S16_LE -c 1 -r 16000 wrong.wav 2>message; then
      echo "accepted: $definition"
      exit 1
    fi
    grep -q "$says" message || { cat message; echo "not said: $says"; exit 1; }
    sed -i '/^pcm.wrong/d' test.conf
  done <<'END'
slave.pcm recording mode loud|mode must be mean, omlsa, mvdr or mono
slave.pcm recording mic_distance far|mic_distance must be from 0 to 10 metres
slave.pcm recording doa 999|doa must be from -180 to 180 degrees
slave.pcm recording shield maybe|shield must be yes or no
slave.pcm recording gain 3|unknown parameter gain
mode mvdr|slave must be given
END
  if arecord -q -D bare -d 1 -f S16_LE -c 1 -r 48000 wrong.wav 2>message; then
    grep -q "rate is not accurate" message || { cat message; exit 1; }
  fi
  grep -qE "runs at 16000 Hz|rate is not accurate" message
  if aplay -q -D bare in.wav 2>message; then exit 1; fi
  grep -q "enhances recordings only" message
}

test_alsa-ladspa() {
  setup_alsa "$source/plugins/alsa/asound-ladspa.conf"
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  record "tm_se_bf_ladspa:SLAVE=recording,PATH=\"$plugins\",DISTANCE=$DISTANCE,DOA=$DOA" 16000 \
    $((FRAMES + LATENCY)) -f S16_LE >got.raw
  compare reference.wav got.raw --delay $LATENCY --exact --all
}

# The lines of the plug-ins' README that make a file, as printed.
test_documented() {
  need ffmpeg sox gst-launch-1.0
  export GST_REGISTRY=$work/registry
  enhance reference.wav --mic-distance $DISTANCE --doa $DOA
  local line count=0
  while read -r line; do
    rm -f out.wav
    eval "${line/LADSPA_PATH=\/usr\/lib\/ladspa/}" >/dev/null 2>&1 </dev/null
    compare reference.wav out.wav --delay any --level-db 0.1 --correlation 0.999
    count=$((count + 1))
  done < <(grep -E '^(ffmpeg|LADSPA_PATH|gst-launch-1.0) ?' "$source/docs/plugins.md")
  [[ $count == 3 ]]
}

# wait_for COMMAND...: until it succeeds, a quarter of a minute at most.
wait_for() {
  local tries
  for tries in $(seq 75); do
    if "$@" >/dev/null 2>&1; then
      return
    fi
    sleep 0.2
  done
  echo "gave up after $tries tries: $*"
  pw-link -lio || true
  tail -n 20 ./*.log
  exit 1
}

links_to() {
  pw-link -l | grep -A1 "^$1" | grep -q "|-> $2"
}

test_pipewire() {
  need pipewire wireplumber pw-cat pw-link dbus-run-session
  if [[ -z ${SE_BF_PRIVATE_BUS:-} ]]; then
    SE_BF_PRIVATE_BUS=1 dbus-run-session -- bash "$self" "$host" "$source" "$plugins" "$tool"
    return
  fi
  unset PIPEWIRE_REMOTE
  mkdir -p run config/pipewire/pipewire.conf.d
  chmod 700 run
  export HOME=$work XDG_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config XDG_STATE_HOME=$work/state
  cp "$source/plugins/pipewire/tm_se_bf.conf" config/pipewire/pipewire.conf.d/
  cat >config/pipewire/pipewire.conf.d/microphones.conf <<'END'
context.objects = [
  { factory = adapter
    args = { factory.name = support.null-audio-sink node.name = microphones
             media.class = Audio/Source/Virtual audio.position = [ FL FR ] audio.rate = 48000 } }
]
END
  # The player starts with its first link, which must not cost the second microphone any sound.
  python "$source/tests/plugins/compare.py" --pad 1 in.wav padded.wav
  local pids=()
  pipewire >pipewire.log 2>&1 &
  pids+=($!)
  wait_for test -S run/pipewire-0
  wireplumber >wireplumber.log 2>&1 &
  pids+=($!)
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
  kill "${pids[@]}"
  wait || true
  enhance reference.wav
  compare reference.wav got.wav --delay any --level-db 1 --correlation 0.9
}

"test_$host"
echo "$host: passed"
