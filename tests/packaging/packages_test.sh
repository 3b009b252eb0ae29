#!/usr/bin/env bash
# Uses the Debian packages in a clean Debian root.
# packages_test.sh DIRECTORY [SUITE]: DIRECTORY holds the packages that packaging/build_packages.sh
# made. Needs root, the network, and tools/packages.sh package.
set -euo pipefail
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_packages.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/packages"
cp "$1"/*_"$(dpkg --print-architecture)".deb "$work/packages"
cd "$(dirname "$0")/../.."
cp -r README.md docs examples src tests tools "$work"
mmdebstrap --quiet --variant=apt --format=null --customize-hook="copy-in $work /" \
  --customize-hook="chroot \"\$1\" env -C /${work##*/} bash tests/packaging/clean_root.sh" \
  "${2:-bookworm}" /dev/null
