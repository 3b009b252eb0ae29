#!/bin/sh
# Runs a program that prints `hash NAME VALUE` lines and compares them with a committed list.
#
# compare_hashes.sh LIST COMMAND...
# Prints each stream that differs, is missing or is new, then a count. Exit 1 on any difference.
set -eu
list=$1
shift

got=$(mktemp)
trap 'rm -f "$got"' EXIT
"$@" >"$got" || {
  echo "compare_hashes: $* failed" >&2
  exit 1
}

awk '
  $1 != "hash" { next }
  part == 1 { expected[$2] = $3; next }
  !($2 in expected) { print "new stream " $2 ": " $3; bad++; next }
  { seen[$2] = 1; count++ }
  expected[$2] != $3 { print "stream " $2 " differs: expected " expected[$2] ", got " $3; bad++ }
  END {
    for (name in expected) if (!(name in seen)) { print "no output for stream " name; bad++ }
    print count + 0 " streams compared, " bad + 0 " differences"
    exit bad > 0
  }' part=1 "$list" part=2 "$got"
