#!/usr/bin/env bash
# Checks what scripts/packages.sh says when packages are missing and cannot be installed. Programs of the
# same names replace those of the system.
source "$(dirname "$0")/../scratch.sh"
bash=$(type -P bash)
mkdir bin
ln -s "$(type -P env)" bin
fake() {  # NAME LINE: a program
  printf '#!%s\n%s\n' "$bash" "$2" >"bin/$1"
  chmod +x "bin/$1"
}

# try USER-ID SUDO UPDATE INSTALL KNOWN EXPECTED: the fakes' lines (no SUDO: there is none) and, as a
# pattern, all that is said.
try() {
  rm -f bin/sudo
  fake id "echo $1"
  [[ -z $2 ]] || fake sudo "$2"
  fake dpkg-query 'exit 1'
  fake apt-get "[[ \$* != *update* ]] || { $3; }; [[ \$* != *install* ]] || { $4; }"
  fake apt-cache "$5"
  local status=0 said
  said=$(PATH=$work/bin "$bash" "$top/scripts/packages.sh" docs abi 2>&1) || status=$?
  [[ $said == $6 && $status == $([[ $6 == *": doxygen abigail-tools" ]] && echo 0 || echo 1) ]] ||
    { echo "expected: $6"; echo "got, status $status: $said"; exit 1; }
}

nl=$'\n' installing="packages.sh: installing 2 packages, this can take minutes: doxygen abigail-tools"
line="apt-get update && apt-get install --no-install-recommends doxygen abigail-tools"
again="then run again: scripts/packages.sh docs abi"
try 0 '' : : : "$installing"
try 1000 '"$@"' : : : "$installing"
try 1000 '' 'exit 9' 'exit 9' : "packages.sh: *no sudo*; run as root: $line"
try 1000 'echo sudo: no; exit 1' : : : "$installing${nl}sudo: no${nl}packages.sh: sudo refused, *: $line"
try 1000 '[[ $* == *update* ]] || exit 1' : : : "$installing${nl}packages.sh: sudo refused, *: $line"
try 1000 '"$@"' 'exit 100' : : "$installing"
try 1000 '"$@"' 'exit 100' 'exit 100' : "$installing${nl}packages.sh: apt-get update failed*, $again"
try 0 '' : 'exit 100' '[[ $2 != doxygen ]]' "$installing${nl}packages.sh: apt does not know doxygen;*, $again"
try 0 '' : 'echo E: full >&2; exit 100' : "$installing${nl}E: full${nl}packages.sh: apt-get install failed;*, $again"
