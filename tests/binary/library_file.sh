# shellcheck shell=bash
# What the checks of both library files share. Sourced with nm, readelf, objdump, library and node (the
# symbol version) set.
failed=0
symbols=-D version=@@$node
[[ $library != *.a ]] || symbols=--extern-only version=

# expect WHAT EXPECTED FOUND: the lines of EXPECTED, in alphabetical order, must be those of FOUND, in any
# order. Differences are printed (< expected, > found).
expect() {
  echo "$1"
  diff <(echo "$2") <(sort -u <<<"$3") || failed=1
}

# expect_exports NAME...: in alphabetical order, each with the version where there is one.
expect_exports() {
  expect 'the public functions alone are exported' "$(printf "%s$version\n" "$@")" \
    "$("$nm" $symbols --defined-only "$library" | awk 'NF == 3 && $2 != "A" { print $3 }')"
}

# Mathematics, memory, printing and what compilers add (arm's run time raises a signal where an integer is
# divided by 0). On arm, getauxval tells from memory what the processor has.
common='cos|sin|sincos|exp|expf|log|logf|log10|log10f|sqrt|sqrtf|memcpy|memmove|memset'
common+='|printf|fprintf|puts|putc|putchar|fputs|fputc|fwrite|stdout|stderr'
common+='|__cxa_finalize|__gmon_start__|_ITM_(de)?registerTMCloneTable|raise|getauxval'
common+='|__(printf|fprintf|memcpy|memmove|memset)_chk|__stack_chk_(fail|guard)'
# A static library leaves parts of the compiler's own library to be linked.
[[ $library != *.a ]] || common+='|_GLOBAL_OFFSET_TABLE_|__cpu_(model|indicator_init)|__aeabi_\w+'

# expect_calls WHAT MORE: nothing is called but the above and MORE, a pattern.
expect_calls() {
  expect "$1" '' "$("$nm" $symbols --undefined-only "$library" | sed -n 's/@.*//; s/.* [Uw] //p' |
    grep -vxE "$common|$2" || true)"
}

expect_no_fusing() {
  # A fused multiply-add rounds once instead of twice. Names on x86, aarch64, arm and s390x; fnmul and vmla are
  # not fused.
  fused='vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub|la|ls|lal|lsl|ad|sb)|fcmla'
  fused+='|vfn?m[as](\.[a-z0-9]+)+|m[as][ed]br?|[vw]fn?m[as][sd]b'
  expect 'no fused multiply-add' '' \
    "$("$objdump" -d "$library" | grep -oE "[[:space:]]($fused)[[:space:]]" || true)"
}

# expect_linking SONAME
expect_linking() {
  # ld-linux is libc's own loader, which some processors list for its helper functions. A search path,
  # a text relocation or code that can be written to would add a line.
  expect 'libc and libm only, bound at load time, read-only relocations, no executable stack' \
    "BIND_NOW
GNU_RELRO
GNU_STACK RW
NEEDED libc.so.6
NEEDED libm.so.6
SONAME $1" \
    "$("$readelf" -dlW "$library" | sed -nE '/NEEDED.*\[ld(-linux|64\.so)/d
      s/.*\((SONAME|NEEDED|R[UN]*PATH)\).*\[(.*)\]/\1 \2/p
      s/^ *0x.*(BIND_NOW|TEXTREL).*/\1/p
      s/^ *(GNU_RELRO) .*/\1/p
      s/^ *(GNU_STACK) .* ([RWE]+) +0x.*/\1 \2/p
      s/^ *LOAD .* RWE .*/writable code/p')"
}
