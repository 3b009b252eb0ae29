#!/usr/bin/env bash
# Man page and completion know every option of the program; the line for GNU parallel works.
#
# usage_test.sh SOURCE SE_BF
set -euo pipefail
source=$1 tool=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf_usage.XXXXXX")
trap 'rm -rf "$work"' EXIT
page=$source/docs/man/se_bf.1
sed 's/\\-/-/g' "$page" >"$work/page"

if command -v mandoc >/dev/null; then
  mandoc -Tlint -W warning "$page"
fi

# complete WORD...: what bash would offer for the last word.
source "$source/tools/completion/se_bf"
complete_words() {
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  _se_bf se_bf "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}"
}

for command in enhance plot conform; do
  [[ $(complete_words se_bf "${command:0:2}") == "$command" ]]
  "$tool" $command --help | grep -oE '^  (-h,)?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort -u \
    >"$work/known"
  while read -r option; do
    grep -qE -- "^\.BI? $option( |$)" "$work/page" ||
      { echo "the man page lacks $command $option"; exit 1; }
    [[ $option == --version ]] && continue
    [[ $(complete_words se_bf $command --hop 320 "$option") == *"$option"* ]] ||
      { echo "the completion lacks $command $option"; exit 1; }
  done <"$work/known"
done
[[ $(complete_words se_bf enhance --mode m) == mean$'\n'mvdr$'\n'mono ]]

if ! command -v parallel >/dev/null; then
  echo "not tried: GNU parallel is not installed (tools/packages.sh plugin-test)"
  exit
fi
cd "$work"
mkdir recordings bin
ln -s "$tool" bin/se_bf
export PATH=$work/bin:$PATH HOME=$work
for name in one two three; do
  "$source/tools/plot/python.sh" "$source/tools/recording/raw_to_wav.py" \
    "$source/src/conformance/pcm_in_multi.s16" "recordings/$name.wav"
done
parallel --will-cite se_bf enhance --quiet --out-dir enhanced {} ::: recordings/*.wav
se_bf enhance --out-dir enhanced recordings >table
grep -q '^0 enhanced, 3 skipped, 0 failed$' table
se_bf enhance --quiet recordings/one.wav alone.wav
cmp alone.wav enhanced/three.wav
echo "man page, completion and GNU parallel: passed"
