#!/usr/bin/env bash
# The program se_bf as users run it: pipes, files, rates, mistakes, many files, microphone faults.
# program_test.sh SE_BF
tool=$1
source "$(dirname "$0")/../scratch.sh"
trap 'echo "failed: line $LINENO"' ERR
mkdir in
cd in

se_bf() { "$tool" "$@"; }
# expect STATUS TEXT COMMAND: the status it ends with, and what its one message says.
expect() {
  local status=0
  eval "$3" >../out 2>../said </dev/null || status=$?
  [[ $status == "$1" && $(wc -l <../said) == 1 && $(<../said) == "se_bf: "*"$2"* ]] ||
    { echo "status $status, expected $1 and '$2': $3"; cat ../said; exit 1; }
}

$python - "$recording" <<'END'
import sys
import numpy as np
from scipy.io.wavfile import write
sound = np.fromfile(sys.argv[1], "<i2").reshape(-1, 2)
write("in.wav", 16000, sound)
write("none.wav", 44100, sound[:0])
long = np.tile(sound, (6, 1))
write("equal.wav", 16000, long[:, [0, 0]])
long[48000:96000, 0] = 0
write("dies.wav", 16000, long)
for rate in 8000, 44100, 48000:
    click = np.random.default_rng(1).integers(-20, 20, (rate + 77, 3)).astype("i2")
    click[rate // 3] = 30000
    write(f"{rate}.wav", rate, click)
END
ln -s /dev/full full.wav

# The stored reference is the aligned output from sample 64 on. WAV headers have 44 bytes.
expect 0 "mode mvdr, hop 192" "se_bf enhance --raw-channels 2 --hop 192 --plain - - <'$recording'"
cmp -n 63232 -i 128:0 ../out "${recording/in_multi/bf_mvdr}"
[[ -z $(se_bf enhance --quiet --hop 192 in.wav ../out.wav 2>&1) ]]
cmp -i 44:0 ../out.wav ../out
se_bf enhance --quiet --hop 192 in.wav ../out.flac
cmp <(se_bf enhance --quiet ../out.flac -) <(se_bf enhance --quiet ../out.wav -)
for rate in 8000 44100 48000; do
  se_bf enhance --quiet --channels 2,0 --mode mean --hop 160 $rate.wav ../$rate.wav
  $python -c "from scipy.io.wavfile import read
stored, click = read('../$rate.wav')
assert (stored, len(click), click.argmax()) == ($rate, $rate + 77, $rate // 3), $rate"
done

ls -A >../before
while IFS='|' read -r status text command; do
  expect "$status" "$text" "$command"
done <<'END'
1|same file|se_bf enhance in.wav in.wav
1|no channel 3|se_bf enhance 8000.wav out.wav --channels 3
1|No space|se_bf enhance in.wav full.wav
1|closed the pipe|{ se_bf enhance dies.wav - 2>&4 3>&-; echo $? >&3; } 3>../c 4>&2 | true; (exit $(<../c))
0|within a frame|tail -c 321 in.wav | se_bf enhance --quiet --raw-channels 1 - ../x.wav
0|holds no sound|se_bf enhance --quiet none.wav ../x.flac
0|identical from 0.00 s|se_bf enhance --quiet equal.wav ../x.wav
0|no effect in mode mean|se_bf enhance --quiet --mode mean --mic-distance 0.1 --doa 90 in.wav ../x.wav
1|would replace it|se_bf enhance --out-dir . in.wav
2|--mic-distance needs --doa|se_bf enhance --mic-distance 0.1 in.wav x.wav
2|--mic-distance needs --doa|se_bf enhance --mic-distance 0.1 --out-dir ../new in.wav
2|--mic-distance needs --doa|se_bf plot --mic-distance 0.1 in.wav
1|no verdict|se_bf conform bf_omlsa
END
ls -A | cmp - ../before
[[ $(se_bf enhance --quiet dies.wav ../x.wav 2>&1) == *"e 0 is silent or 40 dB weaker from 3.00 s"*"resumed at "* ]]

cd ..
# Interrupted in hours of silence, it leaves neither worker nor pieces of a file, and dies of it.
printf '.snd\0\0\0\x18\xff\xff\xff\xff\0\0\0\3\0\0\x3e\x80\0\0\0\1' >long.au
truncate -s 1G long.au
"$tool" enhance --out-dir cut long.au >table &
until [[ -n $(ls -A cut 2>/dev/null) ]]; do sleep 0.01; done
kill -TERM $!
wait $! && exit 1 || [[ $? == $((128 + 15)) && -z $(ls -A cut) ]]
