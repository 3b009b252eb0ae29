#!/usr/bin/env bash
# Runs the two commands at the top of README.md as a newcomer does: in a Debian root without git,
# make or a locale, with an empty environment, on a fresh copy of the sources.
# bare_root.sh [SUITE]. Needs root, the network, and tools/packages.sh package.
top=$(git -C "$(dirname "$0")/../.." rev-parse --show-toplevel)
source "$top/tests/scratch.sh"

mkdir fresh
git -C "$top" ls-files -z | tar -c -C "$top" --null -T - | tar -x -C fresh
mapfile -t commands < <(grep '^\./' "$top/README.md")
[[ ${commands[*]} == "./demo ./check" ]] || { echo "README.md starts with ${commands[*]}"; exit 1; }

empty="env -i HOME=/root TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin"
hooks=()
for command in "${commands[@]}"; do
  hooks+=(--customize-hook="chroot \"\$1\" $empty bash -c 'cd $work/fresh && $command' </dev/null")
done
mmdebstrap --quiet --variant=apt --format=null --customize-hook="mkdir \"\$1$work\"" \
  --customize-hook="copy-in $work/fresh $work" "${hooks[@]}" "${1:-bookworm}" /dev/null
