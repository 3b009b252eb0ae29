#!/bin/sh
# compare_hashes.sh LIST COMMAND...: its `hash NAME VALUE` lines must be those of the committed list.
set -eu
list=$1
shift
got=$("$@")
echo "$got" | grep '^hash ' | diff -U0 --label expected --label got "$list" -
echo "$(wc -l <"$list") streams compared, 0 differences"
