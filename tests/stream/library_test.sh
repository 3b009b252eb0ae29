#!/usr/bin/env bash
# Checks what the stream library exports, what it calls, and how it is linked.
# library_test.sh NM READELF OBJDUMP LIBRARY: *.so or *.a
set -euo pipefail
nm=$1 readelf=$2 objdump=$3 library=$4
failed=0
symbols=-D version=@@TM_SE_BF_STREAM_1
[[ $library != *.a ]] || symbols=--extern-only version=

# expect WHAT EXPECTED FOUND: lines in alphabetical order against lines in any (< expected, > found).
expect() {
  echo "$1"
  diff <(echo "$2") <(sort -u <<<"$3") || failed=1
}

expect 'thirteen names are exported, with their version where there is one' \
  "$(printf "%s$version\n" se_bf_stream_{change,close,config_init,finish_{f32,s16},latency,open} \
    se_bf_stream_{process,push}_{f32,s16} se_bf_stream_{reset,version})" \
  "$("$nm" $symbols --defined-only "$library" | awk 'NF == 3 && $2 != "A" { print $3 }')"

# The core's messages name the printing functions; a stream's core is quiet.
allowed='ceil|cos|sin|sincos|exp|expf|log|logf|log10|log10f|sqrt|sqrtf|memcpy|memmove|memset'
allowed+='|calloc|aligned_alloc|free'
allowed+='|printf|fprintf|puts|putc|putchar|fputs|fputc|fwrite|stdout|stderr'
allowed+='|__cxa_finalize|__gmon_start__|_ITM_(de)?registerTMCloneTable|raise'
allowed+='|__(printf|fprintf|memcpy|memmove|memset)_chk|__stack_chk_(fail|guard)'
# A static library also names what functions asked for that the linker has left out.
[[ $library != *.a ]] ||
  allowed+='|exit|gettimeofday|strcmp|_GLOBAL_OFFSET_TABLE_|__cpu_(model|indicator_init)|__aeabi_\w+'
expect 'no locale, clock, file, lock or thread function is called' '' \
  "$("$nm" $symbols --undefined-only "$library" | sed -n 's/@.*//; s/.* [Uw] //p' |
    grep -vxE "$allowed" || true)"

fused='vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub|la|ls|lal|lsl|ad|sb)|fcmla'
fused+='|vfn?m[as](\.[a-z0-9]+)+|m[as][ed]br?|[vw]fn?m[as][sd]b'
expect 'no fused multiply-add, which rounds once instead of twice' '' \
  "$("$objdump" -d "$library" | grep -oE "[[:space:]]($fused)[[:space:]]" || true)"
[[ $library != *.a ]] || exit $failed

expect 'libc and libm only, bound at load time, read-only relocations, no executable stack' \
  'BIND_NOW
GNU_RELRO
GNU_STACK RW
NEEDED libc.so.6
NEEDED libm.so.6
SONAME libtm_se_bf_stream.so.1' \
  "$("$readelf" -dlW "$library" | sed -nE '/NEEDED.*\[ld(-linux|64\.so)/d
    s/.*\((SONAME|NEEDED|R[UN]*PATH)\).*\[(.*)\]/\1 \2/p
    s/^ *0x.*(BIND_NOW|TEXTREL).*/\1/p
    s/^ *(GNU_RELRO) .*/\1/p
    s/^ *(GNU_STACK) .* ([RWE]+) +0x.*/\1 \2/p
    s/^ *LOAD .* RWE .*/writable code/p')"
exit $failed
