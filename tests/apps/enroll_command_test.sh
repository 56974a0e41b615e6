#!/usr/bin/env bash
# Drives `sonivo enroll`: exit codes, what it tells of a recording, and that nothing is left behind.
# Usage: enroll_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"
result=out.bin
rows=400

# Usage: column TEXT: the text in each row.
column() { for _ in $(seq "$rows"); do echo "$1"; done; }

# Text form of a target-speaker model: a sample times the sum of the embedding. Usage: base LAYER_OF_THE_VOICE
base() {
  cat <<END
senx<SE version="20231004"><encoder><NN magic="MerNNpar" ninput="1" noutput="1"><layers>
<layer type="FullyConnected" id="a"><weight>$(column 1)</weight><bias>$(column 0)</bias></layer>
<layer type="Prod" id="$1"><bias>$(column 0.0025)</bias></layer>
<layer type="FullyConnected" id="c"><weight>$(column 1 | tr '\n' ' ')</weight><bias>0</bias></layer></layers>
<links><link from_id="_input" to_id="a"/><link from_id="a" to_id="$1"/><link from_id="$1" to_id="c"/>
<link from_id="c" to_id="_output"/></links></NN></encoder><option name="frame-length" value="10"/></SE>
END
}

# And of its encoder: the mean of the upper halves of the waves, over windows of so many samples. Usage: encoder SAMPLES
encoder() {
  cat <<END
spkx<SPK-ENC version="20231004"><encoder><NN magic="MerNNpar" ninput="1" noutput="$rows"><layers>
<layer type="TDNN" id="window" kernel="$1" stride="$1"><weight>$(for _ in $(seq "$1"); do echo 1; done)</weight>
<bias>0</bias></layer><layer type="ReLU" id="upper"/>
<layer type="FullyConnected" id="spread"><weight>$(column 1)</weight><bias>$(column 0)</bias></layer></layers>
<links><link from_id="_input" to_id="window"/><link from_id="window" to_id="upper"/>
<link from_id="upper" to_id="spread"/><link from_id="spread" to_id="_output"/></links></NN></encoder>
<option name="feature-extractor-type" value="none"/><option name="frame-length" value="10"/></SPK-ENC>
END
}

# Usage: syllables COUNT LEVEL CHANNELS: a voice of 120 Hz that swells and fades within 300 ms, and 100 ms of silence, as
# often as that.
syllables() {
  local syllable
  syllable=$(awk -v level="$2" -v channels="$3" 'BEGIN {
    pi = 3.14159265
    for (i = 0; i < 400; ++i) {
      for (h = 1; h < 30; ++h) period[i] += sin(2 * pi * h * i / 400) / h / 1.9
    }
    for (i = 0; i < 14400; ++i) {
      x = int(level * sin(pi * i / 14400) * period[i % 400] * 32768 + 65536) % 65536
      for (c = 0; c < channels; ++c) printf "\\x%02x\\x%02x", x % 256, int(x / 256)
    }
  }')
  printf '%b' "$syllable" >.syllable
  head -c $((9600 * $3)) /dev/zero >>.syllable
  for _ in $(seq "$1"); do cat .syllable; done
  rm .syllable
}

# Usage: noise SECONDS LEVEL: white.
noise() {
  printf '%b' "$(awk -v seconds="$1" -v level="$2" 'BEGIN {
    srand(1)
    for (i = 0; i < 48000 * seconds; ++i) {
      x = int(level * (2 * rand() - 1) * 32768 + 65536) % 65536
      printf "\\x%02x\\x%02x", x % 256, int(x / 256)
    }
  }')"
}

# Puts a head in front of samples. Usage: wav_file FILE RATE CHANNELS
wav_file() {
  cat >.samples
  printf x | wav_of .head "$2" "$3"
  { head -c 40 .head && bytes "$(stat -c %s .samples)" 4 && cat .samples; } >"$1"
  rm .samples .head
}

base prod1 >base
base other >deaf
encoder 160 >encoder
encoder 16000 >patient
syllables 5 0.3 1 | wav_file me.wav 48000 1
syllables 5 0.3 1 | wav_file cd.wav 44100 1
syllables 5 0.3 2 | wav_file two.wav 48000 2
syllables 5 0.3 5 | wav_file five.wav 48000 5
syllables 5 0.02 1 | wav_file quiet.wav 48000 1
{ syllables 2 0.3 1 && head -c 480000 /dev/zero; } | wav_file seldom.wav 48000 1
head -c 48000 /dev/zero | wav_file silence.wav 48000 1
noise 2 0.05 | wav_file noise.wav 48000 1
syllables 2 0.5 1 | head -c 80000 | wav_file short.wav 48000 1
syllables 1 0.3 1 | wav_file narrow.wav 16000 1
syllables 1 0.3 1 | wav_file deep.wav 96000 1
with_field me.wav wide.wav 34 2 24
with_field me.wav float.wav 20 2 3
head -c 100000 me.wav >cut.wav
: | wav_file no.wav 48000 1
printf 'hello' >text.wav
: >empty.wav
mkdir folder
mkfifo pipe

of() { echo enroll --base base --encoder encoder --voice "$1" --out out.bin; }
level='speech level 0\.[0-9]{3}, background 0\.[0-9]{3}, speech in [0-9]+ % of the recording: '
expect "a voice" 0 "^${level}fit for use\$" '^$' $(of me.wav)
expect "the other rate" 0 "^${level}fit for use\$" '^$' $(of cd.wav)
expect "two microphones" 0 "^${level}fit for use\$" '^$' $(of two.wav)
expect "through the chain" 0 "^${level}fit for use\$" '^$' $(of two.wav) --preprocess
expect "help" 0 'Example:' '^$' enroll --help

# The model is the base model but for the voice, the same in every run, and one that enhances.
is_model() {
  "$sonivo" $(of me.wav) >.output 2>.errors && cp out.bin first.bin && "$sonivo" $(of me.wav) >.output 2>.errors &&
    cmp first.bin out.bin && rm first.bin && "$sonivo" model info out.bin >.output 2>.errors && grep -q prod1 .output &&
    "$sonivo" enhance out.bin me.wav out.wav --raw >.output 2>.errors && rm out.wav
}
check "the model" is_model
keeps_old() {
  printf old >out.bin && ! "$sonivo" $(of silence.wav) >.output 2>.errors && [[ $(cat out.bin) == old ]]
}
check "a result that stays when there is no new one" keeps_old
takes_place() { printf old >out.bin && "$sonivo" $(of me.wav) >.output 2>.errors && [[ $(head -c 4 out.bin) == senb ]]; }
check "a result that takes the place of an old one" takes_place

one_line='^error: [^'$'\n'']+$'
expect "no arguments" 2 '^$' "$one_line" enroll
expect "no result" 2 '^$' "$one_line" enroll --base base --encoder encoder --voice me.wav
expect "no encoder" 2 '^$' "$one_line" enroll --base base --voice me.wav --out out.bin
expect "a word too many" 2 '^$' "$one_line" $(of me.wav) more
expect "an unknown option" 2 '^$' "$one_line" $(of me.wav) --magic
expect "a base model from standard input" 2 '^$' "^error: --base must be a file: '-' for standard input is not supported\$" \
  enroll --base - --encoder encoder --voice me.wav --out out.bin
expect "an encoder from standard input" 2 '^$' "^error: --encoder must be a file: " enroll --base base --encoder - --voice me.wav --out out.bin
expect "a voice from standard input" 2 '^$' "^error: --voice must be a file: " $(of -)
expect "standard output" 2 '^$' "^error: --out must be a file: '-' for standard output is not supported\$" \
  enroll --base base --encoder encoder --voice me.wav --out -

expect "no such recording" 1 '^$' "^error: cannot open 'gone.wav': No such file" $(of gone.wav)
expect "a folder as recording" 1 '^$' "^error: 'folder' is a folder; give a recording\$" $(of folder)
expect "a pipe as recording" 1 '^$' "^error: 'pipe' is a pipe or a device; give a recording\$" $(of pipe)
for file in text empty no; do
  expect "$file.wav as recording" 1 '^$' "^error: '$file.wav' is no WAV file with samples in it; record it again\$" $(of $file.wav)
done
expect "a recording that is cut off" 1 '^$' "^error: 'cut.wav' is cut off; record it again\$" $(of cut.wav)
for file in narrow deep wide float; do
  expect "a recording that is $file" 1 '^$' \
    "^error: '$file.wav' is not of 16-bit PCM at 48000 or 44100 Hz; convert it first\$" $(of $file.wav)
done
expect "fewer channels than the chain has microphones" 1 '^$' \
  "^error: 'me.wav' has one channel; --preprocess takes the recording of 2 to 4 microphones\$" $(of me.wav) --preprocess
expect "more channels than the chain takes" 1 '^$' \
  "^error: 'five.wav' has 5 channels; --preprocess takes the recording of 2 to 4 microphones\$" $(of five.wav) --preprocess
expect "as many without it" 0 "^${level}fit for use\$" '^$' $(of five.wav)

expect "silence" 1 '^speech level 0\.000, background 0\.000, speech in 0 % of the recording: too quiet$' \
  "^error: the voice in 'silence.wav' is too quiet; record it again, closer to the microphone\$" $(of silence.wav)
expect "noise alone" 1 '^speech level 0\.000, background 0\.0[0-9]{2}, speech in 0 % of the recording: noise alone$' \
  "^error: 'noise.wav' has noise and no voice that stands out of it; record it again in a quiet place\$" $(of noise.wav)
expect "a quiet voice" 1 "^${level}too quiet\$" "^error: the voice in 'quiet.wav' is too quiet; " $(of quiet.wav)
expect "little speech" 1 "^${level}too noisy, or too little speech\$" \
  "^error: 'seldom.wav' has too much noise or too little speech; record it again in a quiet place\$" $(of seldom.wav)
expect "a recording that is too short for the encoder" 1 '^$' \
  "^error: 'short.wav' is too short for 'patient'; record half a minute\$" \
  enroll --base base --encoder patient --voice short.wav --out out.bin

expect "no such base model" 1 '^$' "^error: cannot open 'gone': No such file" enroll --base gone --encoder encoder --voice me.wav --out out.bin
expect "no such encoder" 1 '^$' "^error: cannot open 'gone': No such file" enroll --base base --encoder gone --voice me.wav --out out.bin
expect "a recording as base model" 1 '^$' "^error: 'me.wav' is no target-speaker model: it is a WAV file\$" \
  enroll --base me.wav --encoder encoder --voice me.wav --out out.bin
expect "a base model as encoder" 1 '^$' "^error: 'base' is no speaker encoder: it is a speech enhancement model\$" \
  enroll --base base --encoder base --voice me.wav --out out.bin
expect "an encoder as base model" 1 '^$' "^error: 'encoder' is no target-speaker model: it is a speaker encoder\$" \
  enroll --base encoder --encoder encoder --voice me.wav --out out.bin
expect "a base model without a place for the voice" 1 '^$' "^error: 'deaf' and 'encoder' don't go together: " \
  enroll --base deaf --encoder encoder --voice me.wav --out out.bin
rows=300
encoder 160 >other
expect "an encoder of another size" 1 '^$' "^error: 'base' and 'other' don't go together: " \
  enroll --base base --encoder other --voice me.wav --out out.bin

for file in base encoder me.wav; do
  expect "$file as result" 1 '^$' "^error: '$file' is the [a-z -]+ itself; choose another name for the output\$" \
    enroll --base base --encoder encoder --voice me.wav --out $file
done
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.bin': No such file or directory; " \
  enroll --base base --encoder encoder --voice me.wav --out gone/out.bin
expect "a folder as result" 1 '^$' "^error: 'folder' is a folder; " enroll --base base --encoder encoder --voice me.wav --out folder
expect "a pipe as result" 1 '^$' "^error: 'pipe' is a pipe or a device; " enroll --base base --encoder encoder --voice me.wav --out pipe

limit=$(ulimit -f)
ulimit -S -f 4
expect "a full disk" 1 "^${level}fit for use\$" "^error: cannot write 'out.bin': File too large; make room or choose another folder\$" $(of me.wav)
ulimit -S -f "$limit"

# Half a minute takes a while.
syllables 75 0.3 1 | wav_file long.wav 48000 1
# Usage: signalled SIGNAL: it comes while the encoder is fed. Answers the exit code.
signalled() {
  local run
  printf old >out.bin
  mkdir logs
  set -m
  AI_SPEECH_ENHANCE_LOG_DIR=logs AI_SPEECH_ENHANCE_LOG_LEVEL=3100 env --default-signal "$sonivo" $(of long.wav) >.output 2>.errors &
  run=$!
  for _ in $(seq 1000); do
    grep -qs 'MakeAIModel: Running' logs/* && break
    sleep 0.01
  done
  kill "-$1" "$run"
  wait "$run" 2>/dev/null
  local status=$?
  set +m
  rm -r logs
  return $status
}
leaves_what_was() { [[ $(cat out.bin) == old ]] && ! compgen -G '.sonivo-*' >/dev/null; }
interrupt() {
  signalled INT
  [[ $? -eq 1 && $(cat .output) =~ ^${level}fit\ for\ use$ ]] && says 'stopped; nothing was written' && leaves_what_was
}
check "Ctrl-C" interrupt
ended() { signalled TERM; [[ $? -gt 128 ]] && leaves_what_was; }
check "an end from outside" ended
hung_up() { signalled HUP; [[ $? -gt 128 ]] && leaves_what_was; }
check "a terminal that goes away" hung_up
killed() { signalled KILL; [[ $? -gt 128 ]] && leaves_what_was; }
check "a kill" killed

on_terminal() {
  script -qec "'$sonivo' $(of long.wav)" .typed >.output 2>.errors && grep -q '\[#.*% *' .output && rm .typed out.bin
}
check "a bar on a terminal" on_terminal

# The models that belong to the program, where it has been built with them.
models=$(dirname "$sonivo")/../share/sonivo/models
if [[ -d $models ]]; then
  for size in 0.5 0.25 0.10; do
    expect "the models of size $size" 0 "^${level}fit for use\$" '^$' enroll --voice me.wav --out out.bin \
      --base "$models/model_tsse_streaming_rtf${size}_v2.bin" --encoder "$models/model_spkenc_rtf${size}_v2.bin"
  done
  expect "models of different sizes" 1 '^$' "^error: .* don't go together: " enroll --voice me.wav --out out.bin \
    --base "$models/model_tsse_streaming_rtf0.5_v2.bin" --encoder "$models/model_spkenc_rtf0.10_v2.bin"
fi

totals
