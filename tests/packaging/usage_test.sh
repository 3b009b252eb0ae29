#!/usr/bin/env bash
# Man page and completion know the options of the program and their values; its lines in README.md work
# as printed.
# usage_test.sh SE_BF
source "$(dirname "$0")/../scratch.sh"
mkdir bin recordings
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

said() {
  se_bf "$@" 2>&1 || true
}
# check START COMMAND OPTION...: the values that the program names when it is given a wrong one are those
# that bash offers, and the section of the man page that starts so has them.
check() {
  local values section value
  values=$(said "${@:2}" 99 | sed -E 's/^.*(not in \{|is none of )//; s/[}(].*//; s/, ?/ /g; s/ $//')
  section=$(sed 's/\\-/-/g' "$top/program/man/se_bf.1" |
    start=$1 awk 'index($0, ENVIRON["start"]) == 1 { on = 1; next } /^\.(TP|S[HS])/ { on = 0 } on')
  [[ $(offered se_bf "${@:2}" "") == "$values" ]] ||
    { echo "completion of ${*:2}: $(offered se_bf "${@:2}" ""), the program takes: $values"; exit 1; }
  for value in $values; do
    grep -qw "$value" <<<"$section" || { echo "man page lacks $value of ${*:2}"; exit 1; }
  done
}
check ".BI --mode" enhance --mode
check ".BI --hop" enhance --hop
check ".BI --format" enhance --format
check ".BI --raw-channels" enhance --raw-channels
check ".SS conform" conform
range=$(said enhance --gain 99 | grep -o '[-0-9]* to [0-9]*')
grep -q "input, \\\\${range}\." "$top/program/man/se_bf.1" || { echo "man page lacks gains from $range"; exit 1; }

$python "$top/recordings/raw_to_wav.py" "$recording" noisy.wav
cp noisy.wav recordings/one.wav
se_bf enhance --quiet noisy.wav alone.wav
while read -r line; do
  command -v "${line%% *}" >/dev/null || { echo "not tried, no ${line%% *} here"; continue; }
  rm -rf clean
  eval "$line" >said 2>&1 || { echo "README: $line"; cat said; exit 1; }
  [[ $line != *--out-dir* ]] || cmp clean/one.wav alone.wav
done < <(grep -E '^(se_bf|parallel) ' "$top/README.md")
grep -q PNG noisy.png
