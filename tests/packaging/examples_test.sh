#!/usr/bin/env bash
# Builds the examples outside the tree against the installed library and runs them on the recording.
# examples_test.sh [BUILD GENERATOR]: BUILD is installed below an empty prefix first. Without them, Ninja
# builds, which scripts/packages.sh installs.
source "$(dirname "$0")/../scratch.sh"
static=
if [[ $# == 2 ]]; then
  cmake --install "$1" --prefix "$work/prefix" >log
  library=$(find "$work/prefix" -name 'libtm_se_bf.so' -o -name 'libtm_se_bf.a')
  libdir=${library%/*}
  [[ $library != *.a ]] || static=--static
  export CMAKE_PREFIX_PATH=$work/prefix LD_LIBRARY_PATH=$libdir PKG_CONFIG_PATH=$libdir/pkgconfig
fi

cp -r "$top/examples" examples
cmake -S examples -B found -G "${2:-Ninja}" -DCMAKE_C_FLAGS=-Werror >>log
cmake --build found >>log
read -ra flags <<<"$(pkg-config $static --cflags --libs 'tm_se_bf = 1.3.5')"
"${CC:-cc}" -std=c99 -Wall -Wextra -pedantic -Werror examples/minimal.c "${flags[@]}" -o configured

for minimal in ./configured found/minimal; do
  $minimal "$recording" minimal.s16 >/dev/null
  cmp -n 63488 -i 512:0 minimal.s16 "${recording/in_multi/bf_mvdr}"
done
for frames in 1 480 1000; do
  found/any_block_size "$recording" any.s16 $frames >/dev/null
  { head -c 640 /dev/zero; head -c -640 minimal.s16; } | cmp - any.s16
done
found/switch_modes "$recording" modes.s16 >/dev/null
cmp -n 16000 minimal.s16 modes.s16  # the beamformer first, fourth one microphone as it is
cmp <(od -An -v -w4 -tx2 -j96000 "$recording" | cut -c2-5) <(od -An -v -w2 -tx2 -j48000 modes.s16 | cut -c2-5)
