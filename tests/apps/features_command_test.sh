#!/usr/bin/env bash
# Drives `sonivo features`: results, exit codes, messages, and that nothing is left behind.
# Usage: features_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

wav_of silence.wav 16000 1 </dev/zero
make_wav noise.wav 16000 1
make_wav fast.wav 48000 2
# 1000 in one channel, 0 in the other, and so 500
for ((i = 0; i < 400; ++i)); do bytes 1000 2 && bytes 0 2; done >steps
for ((i = 0; i < 40; ++i)); do cat steps; done | wav_of constant.wav 16000 2
head -c 844 noise.wav >short.wav # 400 samples
with_field short.wav frame.wav 40 4 800
with_field short.wav shorter.wav 40 4 798

result=f.tsv
run() { "$sonivo" features "$1" --out f.tsv "${@:2}" >.output 2>.errors; }
# Usage: table ROWS COLUMNS [VALUE: of every one]
table() {
  awk -F'\t' -v rows="$1" -v columns="$2" -v value="${3-}" \
    'NF != columns { bad = 1 } value != "" { for (i = 1; i <= NF; ++i) if ($i - value > 1e-5 || value - $i > 1e-5) bad = 1 }
     END { exit bad || NR != rows }' f.tsv
}

# 16000 samples, 400 every 160
shape() { run noise.wav && table 23 98; }
check "a row per mel bin, a column per frame" shape
silence() { run silence.wav --set dither=0 && table 23 98 -15.942385; } # ln 1.1920929e-7
check "silence" silence
more_bins() { run noise.wav --set num-mel-bins=40 --set frame-shift=20 --set use-energy=true && table 41 49; }
check "several options" more_bins
samples() { run constant.wav --set feature-extractor-type=none --set frame-length=10 && table 160 100 500; }
check "samples without an extractor, the mean of both channels" samples
energy() { # ln(400 * 500^2)
  run constant.wav --set dither=0 --set remove-dc-offset=false --set use-energy=true && head -n 1 f.tsv >.row &&
    mv .row f.tsv && table 1 98 18.420681
}
check "energy" energy
other_rate() { run fast.wav --set sample-frequency=48000 && table 23 98; }
check "another rate" other_rate
repeats() { run noise.wav && mv f.tsv once.tsv && run noise.wav && cmp once.tsv f.tsv >.errors && rm once.tsv; }
check "dither is the same from run to run" repeats
last_set() { run noise.wav --set num-mel-bins=40 --set num-mel-bins=30 && table 30 98; }
check "the last of two values" last_set
rm -f f.tsv

expect "a file of one frame" 0 '^$' '^$' features frame.wav --out f.tsv
expect "a file shorter than a frame" 1 '^$' "^error: cannot extract features of 'shorter.wav': it is shorter than a frame" \
  features shorter.wav --out f.tsv
expect "another rate than that of the options" 1 '^$' \
  "^error: 'fast.wav' has a sampling rate of 48000 Hz, other than sample-frequency; convert it or add --set sample-frequency=48000" \
  features fast.wav --out f.tsv
expect "an option that does not exist" 2 '^$' '^error: --set speed=1: 変数"speed"は存在しない\. in base\.cpp [0-9]+' \
  features noise.wav --out f.tsv --set speed=1
expect "a value out of range" 2 '^$' '^error: --set dither=-1: 変数"dither"の設定値が有効範囲外\. in ' \
  features noise.wav --out f.tsv --set dither=-1
expect "a value that is no number" 2 '^$' '^error: --set dither=loud: invalid stof argument' \
  features noise.wav --out f.tsv --set dither=loud
expect "no value" 2 '^$' "^error: --set takes NAME=VALUE, not 'dither'" features noise.wav --out f.tsv --set dither
expect "no name" 2 '^$' "^error: --set takes NAME=VALUE, not '=1'" features noise.wav --out f.tsv --set =1
expect "a window that its variable admits" 1 '^$' "^error: cannot extract features of 'noise.wav': Error: window_type" \
  features noise.wav --out f.tsv --set window-type=rectangle
expect "edges that are not snipped" 1 '^$' 'Error: 未実装 snip_edged=false\.' \
  features noise.wav --out f.tsv --set snip-edges=false
expect "too few bins" 1 '^$' 'Error: Must have at least 3 mel bins' features noise.wav --out f.tsv --set num-mel-bins=2
expect "frames of no length" 1 '^$' 'Error: frame-length of 0 ms at 16000 Hz gives 0 samples, not 2 to 1048576' \
  features noise.wav --out f.tsv --set frame-length=0
expect "bins printed" 0 '^$' $'^mel bin 0: from 1 .*\nmel bin 1: ' features noise.wav --out f.tsv --set debug-mel=true
expect "samples of frames that overlap" 1 '^$' 'frames differ in their size' \
  features noise.wav --out f.tsv --set feature-extractor-type=none
expect "no output named" 2 '^$' '^error: .*--out' features noise.wav
expect "no such input" 1 '^$' "^error: cannot open 'none.wav'" features none.wav --out f.tsv
expect "no WAV file" 1 '^$' "^error: 'steps' is not a WAV file" features steps --out f.tsv
expect "standard output" 2 '^$' '^error: ' features noise.wav --out -
result=
expect "input and output the same" 1 '^$' '^error: ' features noise.wav --out noise.wav
expect "help" 0 'sonivo features speech.wav --out speech.tsv' '^$' features --help

totals
