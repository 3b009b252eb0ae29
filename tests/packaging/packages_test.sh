#!/usr/bin/env bash
# Installs the Debian packages in a clean Debian root, uses them there as their documentation says,
# and removes them again without a trace.
#
# packages_test.sh DIRECTORY [SUITE]: DIRECTORY holds the packages that packaging/build_packages.sh
# made. Needs root, the network, and tools/packages.sh package.
set -euo pipefail
here=$(dirname "$(realpath "$0")")

if [[ $1 == --in-root ]]; then
  cd /trial
  export DEBIAN_FRONTEND=noninteractive GST_REGISTRY=/trial/registry
  apt-get -qq -y install --no-install-recommends ./*.deb alsa-utils ffmpeg sox gstreamer1.0-tools \
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad >apt.log 2>&1 ||
    { tail -n 20 apt.log; exit 1; }

  se_bf conform | tail -n 1
  sox -t raw -r 16000 -e signed -b 16 -c 2 pcm_in_multi.s16 in.wav
  se_bf enhance in.wav out.wav
  se_bf enhance --quiet in.wav - >reference.raw
  sox -D out.wav -t raw from-file.raw
  cmp from-file.raw reference.raw
  same() {
    tail -c +1025 "$1" | cmp -n 60000 - reference.raw
    echo "ok: $2"
  }

  cp /usr/share/tm_se_bf/asound.conf /etc/asound.conf
  { cat pcm_in_multi.s16; head -c 40000 /dev/zero; } >in.raw
  cat >~/.asoundrc <<'END'
pcm.recording {
  type plug
  slave { format S16_LE channels 2 rate 16000
    pcm { type file slave.pcm { type null } file /dev/null infile /trial/in.raw format raw } }
}
END
  arecord -q -M -D 'tm_se_bf:SLAVE=recording' -f S16_LE -r 16000 -t raw --buffer-size=40000 \
    --period-size=1000 --samples=32512 >got.raw
  same got.raw arecord
  rm /etc/asound.conf ~/.asoundrc

  ffmpeg -loglevel error -i in.wav -af aresample=16000,ladspa=file=tm_se_bf:plugin=tm_se_bf \
    -f s16le - >got.raw
  same got.raw ffmpeg
  # SoX does not look in this directory by itself.
  LADSPA_PATH=/usr/lib/ladspa sox -D in.wav -c 1 -t raw - ladspa tm_se_bf tm_se_bf >got.raw
  same got.raw sox
  gst-launch-1.0 -q filesrc location=in.wav ! wavparse ! audioconvert ! audioresample \
    ! audio/x-raw,rate=16000,channels=2 ! ladspa-tm-se-bf-so-tm-se-bf \
    ! audioconvert dithering=none ! audio/x-raw,format=S16LE ! filesink location=got.raw
  same got.raw gstreamer

  apt-get -qq -y purge 'tm-se-bf-*' 'libtm-se-bf*' >apt.log 2>&1
  apt-get -qq -y autoremove --purge >apt.log 2>&1
  find / -xdev ! -path '/trial*' \( -name '*tm?se?bf*' -o -name se_bf \) >left
  dpkg -l | grep -i 'tm-se-bf' >>left || true
  if [[ -s left ]]; then
    cat left
    exit 1
  fi
  echo "ok: installed, used and removed"
  exit
fi

packages=$(realpath "$1")
suite=${2:-bookworm}
architecture=$(dpkg --print-architecture)
mapfile -t files < <(find "$packages" -name "*_$architecture.deb" ! -name '*dbgsym*')
recording=$here/../../src/conformance/pcm_in_multi.s16
mmdebstrap --quiet --variant=apt --format=null \
  --customize-hook='mkdir "$1/trial"' \
  --customize-hook="copy-in ${files[*]} $recording $here/packages_test.sh /trial" \
  --customize-hook='chroot "$1" bash /trial/packages_test.sh --in-root' \
  "$suite" /dev/null
