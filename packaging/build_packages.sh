#!/usr/bin/env bash
# Builds the Debian packages from a copy of the sources and checks them with lintian.
#
# packaging/build_packages.sh DIRECTORY [ARCHITECTURE [SUITE]]
# The packages are put in DIRECTORY, those of another architecture in DIRECTORY/ARCHITECTURE, and
# debugging symbols in a folder debug beside them, so that this machine can install DIRECTORY/*.deb.
# For another architecture (arm64, armhf) they are cross-built in a temporary Debian root of that
# suite with the sound libraries of the architecture, and the self-test runs there in emulation.
# This machine is not changed.
# Needs scripts/packages.sh build tool plugin package; for another architecture only package, the
# network, and root or user namespaces.
set -euo pipefail
directory=$(realpath -m "${1:?usage: build_packages.sh DIRECTORY [ARCHITECTURE [SUITE]]}")
native=$(dpkg --print-architecture)
architecture=${2:-$native}
suite=${3:-bookworm}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
[[ $architecture == "$native" ]] || directory+=/$architecture
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_packages.XXXXXX")
trap 'rm -rf "$work"' EXIT
source=tm-se-bf-2.0.0

# scripts/packages.sh has installed the dependencies.
build_here() {
  cd "$work/build/$source"
  dpkg-buildpackage -b -us -uc -d -j"$(nproc)"
}

build_in_root() {
  # Without security updates: those of two architectures may differ in version for a while.
  mmdebstrap --quiet --variant=apt --format=null --architectures="$native,$architecture" \
    --setup-hook='sed -i /security/d "$1/etc/apt/sources.list"' \
    --customize-hook="copy-in $work/build /" \
    --customize-hook="chroot \"\$1\" env DEBIAN_FRONTEND=noninteractive \
      bash -ec 'cd /build/$source
        apt-get -qq -y --no-install-recommends install crossbuild-essential-$architecture
        apt-get -qq -y --no-install-recommends build-dep -a $architecture -P cross .
        dpkg-buildpackage -b -us -uc -j$(nproc) --host-arch $architecture -Pcross'" \
    --customize-hook="copy-out /build $work/made" "$suite" /dev/null
}

mkdir -p "$work/build/$source" "$work/made" "$directory/debug"
tar -c CMakeLists.txt LICENSE cmake docs examples include packaging plugins program recordings src stream |
  tar -x -C "$work/build/$source"
mv "$work/build/$source/packaging/debian" "$work/build/$source/debian"
log=$directory/build-$architecture.log
if [[ $architecture == "$native" ]]; then
  (build_here) >"$log" 2>&1
else
  build_in_root >"$log" 2>&1
fi || { tail -n 40 "$log" >&2; exit 1; }
made=$(find "$work" -name '*.changes')
as_root=()
[[ $EUID -ne 0 ]] || as_root=(--allow-root)
lintian "${as_root[@]}" --display-info --pedantic --fail-on error,warning,info,pedantic "$made"
rm -f "$directory"{,/debug}/{libtm-se-bf,tm-se-bf}*_"$architecture".deb  # of an earlier version
find "$(dirname "$made")" -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t "$directory" {} +
find "$(dirname "$made")" -name '*-dbgsym_*.deb' -exec cp -t "$directory/debug" {} +
ls "$directory"
