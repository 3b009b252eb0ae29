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
configure() {  # MODULE VERSION EXAMPLE
  local flags
  read -ra flags <<<"$(pkg-config $static --cflags --libs "$1 = $2")"
  "${CC:-cc}" -std=c99 -Wall -Wextra -pedantic -Werror "examples/$3.c" "${flags[@]}" -o "configured/$3"
}
mkdir configured
configure tm_se_bf 1.3.5 minimal
configure tm_se_bf_stream 2.0.0 any_block_size

for minimal in {configured,found}/minimal; do
  $minimal "$recording" minimal.s16 >/dev/null
  cmp -n 63488 -i 512:0 minimal.s16 "${recording/in_multi/bf_mvdr}"
done
configured/any_block_size "$recording" any.s16 16000 480 | grep -x 'latency: 512 samples'
configured/any_block_size "$recording" high.s16 48000 480 >/dev/null
for frames in 1 1000; do
  found/any_block_size "$recording" again.s16 16000 $frames >/dev/null
  cmp any.s16 again.s16
  found/any_block_size "$recording" again.s16 48000 $frames >/dev/null
  cmp high.s16 again.s16
done
found/switch_modes "$recording" modes.s16
cmp -i 1024:0 -n 25600 any.s16 modes.s16  # the best quality first, from 13568 on one microphone as it is
cmp <(od -An -v -w4 -tx2 -j54272 "$recording" | cut -c2-5) <(od -An -v -w2 -tx2 -j27136 modes.s16 | cut -c2-5)
found/two_streams "$recording" sound.s16 faulty.s16 >events
diff - events <<'END'
faulty: microphone 1 is dead since 2.00 s
faulty: both microphones are sound since 4.00 s
END
cmp -n 64000 any.s16 sound.s16
cmp -n 64000 any.s16 faulty.s16
{ cmp sound.s16 faulty.s16 || true; } | grep differ
