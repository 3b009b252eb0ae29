#!/usr/bin/env bash
# Checks what the library exports, what it needs, what it calls, and how it is linked.
# check_library.sh NM READELF OBJDUMP LIBRARY OBJECT...: *.so or *.a, and the objects that it is made of
set -euo pipefail
nm=$1 readelf=$2 objdump=$3 library=$4
failed=0
symbols=-D version=@@TM_SE_BF_1
[[ $library != *.a ]] || symbols=--extern-only version=

# expect WHAT EXPECTED FOUND: the lines of EXPECTED, in alphabetical order, must be those of FOUND, in any
# order. Differences are printed (< expected, > found).
expect() {
  echo "$1"
  diff <(echo "$2") <(sort -u <<<"$3") || failed=1
}

expect 'seven names are exported, with their version where there is one' \
  "$(printf "%s$version\n" se_bf_{change_mode,conformance_test,create,destroy,do,get_version,init})" \
  "$("$nm" $symbols --defined-only "$library" | awk 'NF == 3 && $2 != "A" { print $3 }')"

# C's mathematics, memory and printing, the end of the process for internal errors, one clock for the
# self-test, and what compilers add (arm's run time raises a signal where an integer is divided by 0; a
# static library leaves parts of the compiler's own library to be linked).
allowed='cos|sin|sincos|exp|expf|log|logf|log10|log10f|sqrt|sqrtf|memcpy|memmove|memset|strcmp'
allowed+='|printf|fprintf|puts|putc|putchar|fputs|fputc|fwrite|stdout|stderr|exit|gettimeofday'
allowed+='|__cxa_finalize|__gmon_start__|_ITM_(de)?registerTMCloneTable|raise'
allowed+='|__(printf|fprintf|memcpy|memmove|memset)_chk|__stack_chk_(fail|guard)'
[[ $library != *.a ]] || allowed+='|_GLOBAL_OFFSET_TABLE_|__cpu_(model|indicator_init)|__aeabi_\w+'
expect 'no heap, locale, clock, file or thread function is called' '' \
  "$("$nm" $symbols --undefined-only "$library" | sed -n 's/@.*//; s/.* [Uw] //p' |
    grep -vxE "$allowed" || true)"

expect 'the self-test alone asks for the time' $'se_bf_conform get_cur_time\nse_time gettimeofday' \
  "$("$nm" --print-file-name --undefined-only "${@:5}" |
    sed -nE 's,.*/(\w+)\.cpp\..*(gettimeofday|get_cur_time).*,\1 \2,p')"

# A fused multiply-add rounds once instead of twice. Names on x86, aarch64, arm and s390x; fnmul and vmla are
# not fused.
fused='vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub|la|ls|lal|lsl|ad|sb)|fcmla'
fused+='|vfn?m[as](\.[a-z0-9]+)+|m[as][ed]br?|[vw]fn?m[as][sd]b'
expect 'no fused multiply-add' '' \
  "$("$objdump" -d "$library" | grep -oE "[[:space:]]($fused)[[:space:]]" || true)"
[[ $library != *.a ]] || exit $failed

# ld-linux is libc's own loader, which some processors list for its helper functions. A search path,
# a text relocation or code that can be written to would add a line.
expect 'libc and libm only, bound at load time, read-only relocations, no executable stack' \
  'BIND_NOW
GNU_RELRO
GNU_STACK RW
NEEDED libc.so.6
NEEDED libm.so.6
SONAME libtm_se_bf.so.1' \
  "$("$readelf" -dlW "$library" | sed -nE '/NEEDED.*\[ld(-linux|64\.so)/d
    s/.*\((SONAME|NEEDED|R[UN]*PATH)\).*\[(.*)\]/\1 \2/p
    s/^ *0x.*(BIND_NOW|TEXTREL).*/\1/p
    s/^ *(GNU_RELRO) .*/\1/p
    s/^ *(GNU_STACK) .* ([RWE]+) +0x.*/\1 \2/p
    s/^ *LOAD .* RWE .*/writable code/p')"

# Runs of 16 bytes; the longest run that a table needs is 128 bytes.
readonly longest_run=16
read -r offset size < <("$readelf" -SW "$library" |
  sed -nE 's/.* \.rodata +PROGBITS +[0-9a-f]+ ([0-9a-f]+) ([0-9a-f]+) .*/\1 \2/p')
expect 'constants hold no array of zeros' '' \
  "$(od -An -v -tx1 -w16 -j $((16#$offset)) -N $((16#$size)) "$library" |
    awk -v longest="$longest_run" '{ zeros = /[1-9a-f]/ ? 0 : zeros + 1 }
      zeros == longest + 1 { print "zeros near byte " 16 * NR }')"
exit $failed
