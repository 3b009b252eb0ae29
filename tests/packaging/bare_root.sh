#!/usr/bin/env bash
# Runs the two commands at the top of README.md as a newcomer does: in a Debian root without git,
# make or a locale, with an empty environment, on a fresh copy of the sources. Then a user without
# sudo runs the tests there, with a copy of the sources and a home of his own.
# bare_root.sh [SUITE]. Needs root, the network, and scripts/packages.sh package.
source "$(dirname "$0")/../scratch.sh"

mkdir fresh
git -C "$top" ls-files -z | tar -c -C "$top" --null -T - | tar -x -C fresh
mapfile -t commands < <(grep '^\./' "$top/README.md")
[[ ${commands[*]} == "./demo ./check" ]] || { echo "README.md starts with: ${commands[*]}"; exit 1; }

# in_root USER HOME COMMAND: an option of mmdebstrap that runs the command on a copy of the sources.
in_root() {
  echo "--customize-hook=chroot \"\$1\" env -i HOME=$2 TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    runuser -u $1 -- bash -c 'cd $2/fresh && $3' </dev/null"
}
mmdebstrap --quiet --variant=apt --format=null --customize-hook="copy-in fresh /root" \
  "$(in_root root /root ./demo)" "$(in_root root /root ./check)" \
  --customize-hook='chroot "$1" useradd --create-home user' \
  --customize-hook="copy-in fresh /home/user" \
  --customize-hook='chroot "$1" chown -R user: /home/user' \
  "$(in_root user /home/user ./check)" "${1:-bookworm}" /dev/null
