#!/usr/bin/env bash
# Installs the Debian packages that the project needs, group by group, through apt.
# Usage: scripts/packages.sh GROUP...      (no group: lists the groups)
# Only missing packages are installed, with sudo when not root.
set -euo pipefail

declare -rA GROUPS_OF_PACKAGES=(
  [build]="g++ cmake ninja-build pkg-config"
  [tool]="libsndfile1-dev libcli11-dev"
  [demo]="espeak-ng python3-numpy python3-scipy python3-matplotlib"
  [scenes]="espeak-ng festival festvox-czech-dita festvox-italp16k festvox-kallpc16k festvox-suopuhe-lj \
festvox-us-slt-hts flite python3-numpy python3-scipy"
  [plugin]="ladspa-sdk libasound2-dev"
  [test]="libgtest-dev"
  [plugin-test]="alsa-utils dbus ffmpeg gstreamer1.0-plugins-bad gstreamer1.0-plugins-base \
gstreamer1.0-plugins-good gstreamer1.0-tools ladspa-sdk libspa-0.2-modules parallel pipewire \
pipewire-bin sox wireplumber"
  [package]="debhelper dpkg-dev fakeroot lintian mandoc mmdebstrap"
  [ci]="clang clang-format clang-tidy binutils g++-11 libclang-rt-14-dev"
  [cross]="g++-aarch64-linux-gnu g++-arm-linux-gnueabihf qemu-user googletest"
  [cross-s390x]="g++-s390x-linux-gnu qemu-user googletest"
  [abi]="abigail-tools"
  [bench]="libbenchmark-dev libfftw3-dev libkissfft-dev libsamplerate0-dev libwebrtc-audio-processing-dev python3 valgrind"
  [docs]="doxygen"
  [coverage]="gcovr"
)

fail() {
  echo "packages.sh: $*" >&2
  exit 1
}

list_groups() {
  local group
  for group in $(printf '%s\n' "${!GROUPS_OF_PACKAGES[@]}" | sort); do
    echo "$group: ${GROUPS_OF_PACKAGES[$group]}"
  done
}

is_installed() {
  [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# as_root COMMAND...: apt-get fails with 100, so status 1 is sudo's own.
as_root() {
  local status=0
  "${sudo[@]}" "$@" || status=$?
  if [[ $status -eq 1 && ${#sudo[@]} -gt 0 ]]; then
    fail "sudo refused, see above; whoever administers this machine runs, as root: $BY_HAND"
  fi
  return $status
}

# Names those of the missing packages that apt has never heard of.
unknown_packages() {
  local package
  for package in "${missing[@]}"; do
    apt-cache show "$package" >/dev/null 2>&1 || echo -n " $package"
  done
}

if [[ $# -eq 0 ]]; then
  list_groups
  exit 0
fi

wanted=()
for group in "$@"; do
  [[ -n "${GROUPS_OF_PACKAGES[$group]:-}" ]] || fail "no group '$group'; groups: $(list_groups |
    cut -d: -f1 | tr '\n' ' ')"
  read -ra packages <<<"${GROUPS_OF_PACKAGES[$group]}"
  wanted+=("${packages[@]}")
done

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
  echo "packages.sh: no apt here; this system's equivalents of these Debian packages are needed:" \
    "${wanted[*]}" >&2
  exit 0
fi

missing=()
for package in "${wanted[@]}"; do
  is_installed "$package" || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

readonly INSTALL="apt-get install --no-install-recommends"
readonly BY_HAND="apt-get update && $INSTALL ${missing[*]}" AGAIN="then run again: scripts/packages.sh $*"
sudo=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || fail "Debian packages are missing, and only root may install them" \
    "(there is no sudo here); run as root: $BY_HAND"
  sudo=(sudo)
fi

echo "packages.sh: installing ${#missing[@]} packages, this can take minutes: ${missing[*]}" >&2
# What apt knew before an update that fails may do.
updated=yes
as_root apt-get -qq -o APT::Update::Error-Mode=any update || updated=no
if ! as_root env DEBIAN_FRONTEND=noninteractive $INSTALL -qq -y "${missing[@]}" >/dev/null; then
  [[ $updated == yes ]] || fail "apt-get update failed, see above; mend the network or the lines in" \
    "/etc/apt/sources.list that it names, $AGAIN"
  unknown=$(unknown_packages)
  [[ -z "$unknown" ]] || fail "apt does not know$unknown; add Debian's \"main\" or Ubuntu's \"universe\"" \
    "to /etc/apt/sources.list, $AGAIN"
  fail "apt-get install failed; mend what it says above, $AGAIN"
fi
