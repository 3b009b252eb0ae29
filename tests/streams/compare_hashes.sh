#!/bin/sh
# compare_hashes.sh LIST COMMAND...: fails where the command's `hash NAME VALUE` lines are not those
# of the committed list, and prints both.
set -eu
list=$1
shift
got=$("$@")
echo "$got" | grep '^hash ' | diff "$list" -
echo "$(wc -l <"$list") streams compared, 0 differences"
