#!/usr/bin/env bash
# Checks what the stream library exports, what it calls, and how it is linked.
# library_test.sh NM READELF OBJDUMP LIBRARY: *.so or *.a
set -euo pipefail
nm=$1 readelf=$2 objdump=$3 library=$4
node=TM_SE_BF_STREAM_1
source "$(dirname "$0")/../binary/library_file.sh"

expect_exports se_bf_stream_{change,close,config_init,direction,finish_{f32,s16},latency,open} \
  se_bf_stream_{process,push}_{f32,s16} se_bf_stream_{reset,version}
allowed='acosf|ceil|calloc|aligned_alloc|free'
# A static library also names what functions asked for that the linker has left out.
[[ $library != *.a ]] || allowed+='|exit|gettimeofday|strcmp'
expect_calls 'no locale, clock, file, lock or thread function is called' "$allowed"
expect_no_fusing
[[ $library != *.a ]] || exit $failed
expect_linking libtm_se_bf_stream.so.1
exit $failed
