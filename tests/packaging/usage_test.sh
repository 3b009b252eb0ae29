#!/usr/bin/env bash
# Man page and completion know the options of the program; its lines in README.md work as printed.
# usage_test.sh SE_BF
source "$(dirname "$0")/../scratch.sh"
mkdir bin demo-output
ln -s "$1" bin/se_bf
export PATH=$work/bin:$PATH HOME=$work

source "$top/program/completion/se_bf"
offered() {  # WORD...: what bash would offer for the last one
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  _se_bf se_bf "${@: -1}" "${@: -2:1}"
  echo "${COMPREPLY[*]}"
}
for command in enhance plot conform; do
  [[ $(offered se_bf ${command:0:2}) == "$command" ]]
  for option in $(se_bf $command --help | sed -nE '/version/d; s/^  (-h,)?(--[a-z-]+).*/\2/p'); do
    grep -qE -- "^\.BI? ${option//-/\\\\-}( |$)" "$top/program/man/se_bf.1" &&
      [[ $(offered se_bf $command --hop 320 "$option") == "$option"* ]] ||
      { echo "man page or completion lack $command $option"; exit 1; }
  done
done

$python "$top/recordings/raw_to_wav.py" "$recording" noisy.wav
cp noisy.wav demo-output/one-noisy.wav
eval "$(grep '^mkdir -p takes' "$top/README.md")"
se_bf enhance --quiet noisy.wav alone.wav
while read -r line; do
  command -v "${line%% *}" >/dev/null || { echo "not tried, no ${line%% *} here"; continue; }
  rm -rf clean
  eval "$line" >said 2>&1 || { echo "README: $line"; cat said; exit 1; }
  [[ $line != *--out-dir* ]] || cmp clean/one-noisy.wav alone.wav
done < <(grep -E '^(se_bf|parallel) ' "$top/README.md")
grep -q PNG noisy.png
