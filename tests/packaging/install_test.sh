#!/usr/bin/env bash
# Installs the library below an empty prefix, builds the examples outside the tree against it, once
# through find_package and once through pkg-config, and checks what they make of the stored recording.
#
# install_test.sh SOURCE BUILD CMAKE C-COMPILER PYTHON
set -euo pipefail
source=$1 build=$2 cmake=$3 compiler=$4 python=$5
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_install.XXXXXX")
trap 'rm -rf "$work"' EXIT

prefix="$work/a prefix"
"$cmake" --install "$build" --prefix "$prefix" >"$work/log"
library=$(find "$prefix" -name 'libtm_se_bf.so')
libdir=$(dirname "$library")
export LD_LIBRARY_PATH=$libdir

cp -r "$source/examples" "$work/examples"
"$cmake" -S "$work/examples" -B "$work/found" -DCMAKE_C_COMPILER="$compiler" \
  -DCMAKE_C_FLAGS=-Werror "-DCMAKE_PREFIX_PATH=$prefix" >>"$work/log"
"$cmake" --build "$work/found" >>"$work/log"

# The prefix must not hold blanks for pkg-config's flags to be words.
mkdir "$work/configured"
mv "$prefix" "$work/prefix"
export LD_LIBRARY_PATH=${libdir/a prefix/prefix}
export PKG_CONFIG_PATH=$LD_LIBRARY_PATH/pkgconfig
[[ $(pkg-config --modversion tm_se_bf) == 1.3.5 ]]
read -ra flags <<<"$(pkg-config --cflags --libs tm_se_bf)"
for example in "$work"/examples/*.c; do
  "$compiler" -std=c99 -Wall -Wextra -pedantic -Werror "$example" "${flags[@]}" \
    -o "$work/configured/$(basename "$example" .c)"
done

[[ $(wc -l <"$work/examples/minimal.c") -le 60 ]]
recording=$source/src/conformance/pcm_in_multi.s16
for programs in "$work/found" "$work/configured"; do
  "$programs/minimal" "$recording" "$work/minimal.s16" >/dev/null
  "$programs/switch_modes" "$recording" "$work/modes.s16" >/dev/null
  for frames in 1 480 1000; do
    "$programs/any_block_size" "$recording" "$work/any-$frames.s16" "$frames" >/dev/null
  done
  "$python" "$source/tests/packaging/check_examples.py" "$work" "$source/src/conformance"
done
echo "the examples build and run with find_package and with pkg-config"
