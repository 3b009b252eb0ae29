#!/usr/bin/env bash
# Uses the Debian packages in a clean Debian root.
# packages_test.sh DIRECTORY [SUITE]: DIRECTORY holds what packaging/build_packages.sh made. Needs
# root, the network, and scripts/packages.sh package.
packages=$(realpath "$1")
source "$(dirname "$0")/../scratch.sh"
cp -r "$top"/{README.md,examples,program,recordings,scripts,src,tests} .
cp -r "$packages" packages
mmdebstrap --quiet --variant=apt --format=null --customize-hook="copy-in $work /" \
  --customize-hook="chroot \"\$1\" env -C /${work##*/} bash tests/packaging/clean_root.sh" \
  "${2:-bookworm}" /dev/null
