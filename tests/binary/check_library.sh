#!/usr/bin/env bash
# Checks what the library exports, what it needs, what it calls, and how it is linked.
# check_library.sh NM READELF OBJDUMP LIBRARY OBJECT...: *.so or *.a, and the objects that it is made of
set -euo pipefail
nm=$1 readelf=$2 objdump=$3 library=$4
node=TM_SE_BF_1
source "$(dirname "$0")/library_file.sh"

expect_exports se_bf_{change_mode,conformance_test,create,destroy,do,get_version,init}
# The end of the process for internal errors, and one clock for the self-test.
expect_calls 'no heap, locale, clock, file or thread function is called' 'strcmp|exit|gettimeofday'

expect 'the self-test alone asks for the time' $'se_bf_conform get_cur_time\nse_time gettimeofday' \
  "$("$nm" --print-file-name --undefined-only "${@:5}" |
    sed -nE 's,.*/(\w+)\.cpp\..*(gettimeofday|get_cur_time).*,\1 \2,p')"

expect_no_fusing
[[ $library != *.a ]] || exit $failed
expect_linking libtm_se_bf.so.1

# Runs of 16 bytes; the longest run that a table needs is 128 bytes.
readonly longest_run=16
read -r offset size < <("$readelf" -SW "$library" |
  sed -nE 's/.* \.rodata +PROGBITS +[0-9a-f]+ ([0-9a-f]+) ([0-9a-f]+) .*/\1 \2/p')
expect 'constants hold no array of zeros' '' \
  "$(od -An -v -tx1 -w16 -j $((16#$offset)) -N $((16#$size)) "$library" |
    awk -v longest="$longest_run" '{ zeros = /[1-9a-f]/ ? 0 : zeros + 1 }
      zeros == longest + 1 { print "zeros near byte " 16 * NR }')"
exit $failed
