#!/usr/bin/env bash
# Builds the Debian packages from a copy of the sources and has lintian look at them.
#
# packaging/build_packages.sh DIRECTORY [ARCHITECTURE]
# The packages appear in DIRECTORY. For another architecture (arm64, armhf) the library's packages
# are cross-built: those of the program and the plug-ins need that architecture's sound libraries.
# Needs tools/packages.sh build tool plugin package, for another architecture also cross.
set -euo pipefail
directory=$(realpath -m "${1:?usage: build_packages.sh DIRECTORY [ARCHITECTURE]}")
architecture=${2:-$(dpkg --print-architecture)}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_packages.XXXXXX")
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/tm-se-bf-1.3.5" "$directory"
tar -c CMakeLists.txt LICENSE cmake docs examples include packaging plugins src tools |
  tar -x -C "$work/tm-se-bf-1.3.5"
cd "$work/tm-se-bf-1.3.5"
mv packaging/debian debian

# Dependencies are for packages.sh to install: dpkg would want those of both architectures.
options=(-b -us -uc -d -j"$(nproc)")
if [[ $architecture != "$(dpkg --print-architecture)" ]]; then
  options+=(--host-arch "$architecture" -Pcross,nocheck,pkg.tm-se-bf.library)
fi
dpkg-buildpackage "${options[@]}" >"$directory/build-$architecture.log" 2>&1 || {
  tail -n 40 "$directory/build-$architecture.log" >&2
  exit 1
}
lintian --fail-on error,warning ../*.changes
cp ../*.deb "$directory"
ls "$directory"
