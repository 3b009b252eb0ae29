#!/usr/bin/env bash
# In a clean Debian root: installs the packages, runs the lines of README.md as printed there, and
# removes the packages without a trace. The working directory holds the packages and the sources.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive HOME=/root XDG_RUNTIME_DIR=$PWD/run
export DBUS_SESSION_BUS_ADDRESS=unix:path=$PWD/bus
mkdir -m 700 run demo-output
trap 'kill $(jobs -pr) 2>/dev/null || true' EXIT

# readme START: runs the line of README.md that starts so, with those that continue it.
readme() {
  rm -f speech.wav
  eval "$(sed -e :a -e '/\\$/N; s/\\\n *//; ta' README.md | grep -- "^$1")" </dev/null
}
# listing N: prints the Nth program in C of README.md.
listing() {
  awk -v wanted="$1" '/^```c$/ { on = ++found == wanted; next } /^```$/ { on = 0 } on' README.md
}
# same [OPTION...]: speech.wav is what se_bf makes of the recording; the options are for cmp.
same() {
  sox -D speech.wav -t raw speech.raw
  cmp "$@" speech.raw reference.raw
}
wait_for() {
  timeout 30 bash -c 'until eval "$1" >/dev/null 2>&1; do sleep 0.2; done' - "$1" ||
    { echo "in vain: $1"; cat ./*.log; exit 1; }
}
sudo() { "$@"; }  # nor is there a service manager, or anyone who ends a recording
arecord() { command arecord -q -M --buffer-size=90000 --period-size=1000 "$@"; }
pw-record() { echo $BASHPID >recorder; exec pw-record "$@"; }
systemctl() {
  dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" &
  pipewire 2>pipewire.log &
  wait_for 'test -S run/pipewire-0'
  wireplumber 2>wireplumber.log &
}

printf '%s "true";\n' APT::Get::Assume-Yes APT::Install-Recommends >/etc/apt/apt.conf.d/trial
readme 'sudo apt install' >apt.log 2>&1 || { tail -n 20 apt.log; exit 1; }
new=$(grep -oP '\d+(?= newly installed)' apt.log)
[[ $new -le 20 ]] || { echo "the packages pull in $new, expected 20 at most"; exit 1; }
se_bf enhance --quiet --raw-channels 2 - speech.wav <src/conformance/pcm_in_multi.s16
! se_bf plot speech.wav 2>plot.log
grep python3-matplotlib plot.log  # it names the packages that it takes
scripts/packages.sh build demo plugin-test >apt.log 2>&1 || { tail -n 20 apt.log; exit 1; }
zcat /usr/share/man/man1/se_bf.1.gz | cmp - program/man/se_bf.1
cmp /usr/share/bash-completion/completions/se_bf program/completion/se_bf
bash tests/packaging/usage_test.sh /usr/bin/se_bf
bash tests/packaging/examples_test.sh

sox -t raw -r 16000 -e signed -b 16 -c 2 src/conformance/pcm_in_multi.s16 noisy.wav
se_bf enhance --quiet noisy.wav reference.wav
sox -D reference.wav -t raw reference.raw
readme ffmpeg 2>ffmpeg.log
same
readme LADSPA_PATH
same
readme gst-launch >gstreamer.log
same

truncate -s 500000 src/conformance/pcm_in_multi.s16
cat >~/.asoundrc <<END
pcm.!hw { @args [ CARD ] @args.CARD { type string } type plug
  slave { format S16_LE channels 2 rate 16000 pcm { type file slave.pcm { type null }
    file /dev/null infile $PWD/src/conformance/pcm_in_multi.s16 format raw } } }
END
readme 'sudo cp'
readme 'arecord -D'
same -n 60000 -i 1024:0
rm /etc/asound.conf ~/.asoundrc

readme 'mkdir -p ~/.config/pipewire'
readme 'cp /usr/share/tm_se_bf/pipewire'
cat >~/.config/pipewire/pipewire.conf.d/microphones.conf <<'END'
context.objects = [ { factory = adapter
  args = { factory.name = support.null-audio-sink node.name = microphones
           media.class = Audio/Source/Virtual audio.position = [ FL FR ] audio.rate = 48000 } } ]
END
readme systemctl
wait_for 'pw-link -l | grep -A1 ^microphones:capture_FR | grep capture.tm_se_bf:input_FR'
readme pw-record &
wait_for 'pw-link -l | grep -A1 ^tm_se_bf:capture_MONO | grep pw-record:input_MONO'
sox noisy.wav padded.wav pad 1 1
pw-cat --playback --target 0 padded.wav &
wait_for 'pw-link pw-cat:output_FL microphones:input_FL'
wait_for 'pw-link pw-cat:output_FR microphones:input_FR'
wait $!
kill -INT "$(<recorder)"
wait_for '! kill -0 $(<recorder)'
program/plot/python.sh tests/plugins/compare.py reference.raw speech.wav 0.9 1
kill $(jobs -pr) && wait

cp noisy.wav demo-output/longer-noisy.wav
listing 1 >application.c
readme 'cc application.c'
readme 'sox .*application'
sox -t raw -r 48000 -e signed -b 16 -c 1 speech.raw speech.wav
se_bf enhance --quiet noisy.wav - >reference.raw
program/plot/python.sh tests/plugins/compare.py reference.raw speech.wav 0.99 0.5 0 32000
read -ra flags <<<"$(pkg-config --cflags --libs tm_se_bf_stream)"
cc -std=c99 -Wall -Wextra -pedantic -Werror application.c "${flags[@]}" -o application
printf '%s\n' '#include <stdio.h>' '#include <tm_se_bf_stream.h>' \
  'int main(void) { return puts(se_bf_stream_version()) < 0; }' >version.c
cc version.c "${flags[@]}" -o version
diff <(./version; ./version) <(pkg-config --modversion tm_se_bf_stream
  dpkg-query -W -f '${Version}\n' libtm-se-bf-stream1)
listing 2 >host.c
readme 'cc host.c'
readme 'sox .*host' >/dev/null
se_bf enhance --quiet --mode mvdr --plain --mic-distance 0.06 --doa 90 noisy.wav - >reference.raw
cmp -n 60000 -i 384:0 speech.raw reference.raw

apt-get purge 'tm-se-bf-*' 'libtm-se-bf*' >apt.log 2>&1
find / -xdev ! -path "$PWD*" ! -path "$HOME/*" \( -name '*tm?se?bf*' -o -name se_bf \) | { ! grep .; }
