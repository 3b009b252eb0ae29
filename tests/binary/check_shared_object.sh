#!/bin/sh
# Checks what the shared object exports, what it needs, what it calls, and how it is linked.
#
# check_shared_object.sh NM READELF OBJDUMP LIBRARY OBJECT...
# OBJECT...: the object files it was linked from, for the checks of who reads the clock.
# Prints a line per check that holds; exit 1 with the difference for each that does not.
set -eu
nm=$1
readelf=$2
objdump=$3
library=$4
shift 4
failed=0

# expect WHAT GOT EXPECTED
expect() {
  if [ "$2" = "$3" ]; then
    echo "ok: $1"
  else
    printf 'NOT ok: %s:\n%s\nexpected:\n%s\n' "$1" "${2:-(nothing)}" "${3:-(nothing)}"
    failed=1
  fi
}

# Names that the library may use: C's mathematics, memory and printing, the end of the process for
# internal errors, one clock for the self-test, and what compilers add by themselves (arm's run time
# raises a signal where an integer is divided by 0; _chk names come with fortified builds). No heap,
# no locale, no other clock, no file, no thread.
allowed='cos sin sincos exp expf log logf log10 log10f sqrt sqrtf
memcpy memmove memset strcmp
printf fprintf puts putc putchar fputs fputc fwrite stdout stderr
exit gettimeofday
__cxa_finalize __gmon_start__ _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable raise
__printf_chk __fprintf_chk __memcpy_chk __memmove_chk __memset_chk __stack_chk_fail
__stack_chk_guard'

exports=$("$nm" -D --defined-only "$library" |
  awk '$2 != "A" { print $3 }' | sort)
expect 'seven versioned names are exported' "$exports" 'se_bf_change_mode@@TM_SE_BF_1
se_bf_conformance_test@@TM_SE_BF_1
se_bf_create@@TM_SE_BF_1
se_bf_destroy@@TM_SE_BF_1
se_bf_do@@TM_SE_BF_1
se_bf_get_version@@TM_SE_BF_1
se_bf_init@@TM_SE_BF_1'

foreign=$("$nm" -D --undefined-only "$library" | awk -v allowed="$allowed" '
  BEGIN { split(allowed, names, /[ \n]+/); for (i in names) known[names[i]] = 1 }
  { sub(/@.*/, "", $NF); if (!($NF in known)) print $NF }')
expect 'no heap, locale, clock, file or thread function is called' "$foreign" ''

# callers NAME-PATTERN OBJECT...: the sources whose objects refer to a matching name.
callers() {
  pattern=$1
  shift
  "$nm" --print-file-name --undefined-only "$@" | grep -E "$pattern" |
    sed 's|:.*||; s|.*/||; s|\.cpp\..*||' | sort -u
}
if [ $# -gt 0 ]; then
  expect 'the wall clock is read in se_time only' "$(callers ' U gettimeofday$' "$@")" 'se_time'
  expect 'the self-test alone asks for the time' "$(callers 'get_cur_time' "$@")" 'se_bf_conform'
fi

dynamic=$("$readelf" -dW "$library")
segments=$("$readelf" -lW "$library")
entries() {
  echo "$dynamic" | sed -n "s/.*($1).*\[\(.*\)\]/\1/p"
}
expect 'the soname' "$(entries SONAME)" 'libtm_se_bf.so.1'
# ld-linux is libc's own loader, which some processors list for its helper functions.
expect 'no library besides libc and libm is needed' \
  "$(entries NEEDED | grep -v -E '^(libc\.so\.6|libm\.so\.6|ld-linux.*|ld64\.so.*)$' || true)" ''
expect 'no search path is built in' "$(entries 'R[UN]*PATH')" ''
expect 'every symbol is bound at load time' \
  "$(echo "$dynamic" | grep -cE '\(FLAGS\).*BIND_NOW|\(BIND_NOW\)')" 1
expect 'relocated data becomes read-only' "$(echo "$segments" | grep -c 'GNU_RELRO')" 1
expect 'no text relocation' "$(echo "$dynamic" | grep -c 'TEXTREL' || true)" 0
expect 'the stack is not executable' \
  "$(echo "$segments" | awk '$1 == "GNU_STACK" { print $(NF - 1) }')" 'RW'
expect 'no segment is writable and executable' "$(echo "$segments" | grep -c ' RWE ' || true)" 0

# A fused multiply-add rounds once where the library's arithmetic rounds twice, and not every
# processor has one. Names of x86, aarch64, arm and s390x, in this order; fnmul and vmla are not fused.
fused='vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub|la|ls|lal|lsl|ad|sb)|fcmla'
fused="$fused|vfn?m[as](\.[a-z0-9]+)+|m[as][ed]br?|[vw]fn?m[as][sd]b"
expect 'no fused multiply-add' \
  "$("$objdump" -d "$library" | grep -oE "[[:space:]]($fused)[[:space:]]" | sort | uniq -c)" ''
exit $failed
