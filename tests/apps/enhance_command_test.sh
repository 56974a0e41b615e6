#!/usr/bin/env bash
# Drives `sonivo enhance`: exit codes, messages, and that nothing is left behind.
# Usage: enhance_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

# Text form of a model: row 0 is the input, row 1 half of it.
cat >model <<'END'
senx<SE version="20231004"><encoder><NN magic="MerNNpar" ninput="1" noutput="2"><layers>
<layer type="FullyConnected" id="a"><weight>1
0.5</weight><bias>0
0</bias></layer></layers><links><link from_id="_input" to_id="a"/><link from_id="a" to_id="_output"/></links></NN>
</encoder><option name="frame-length" value="10"/></SE>
END
make_wav in.wav 48000 2
make_wav cd.wav 44100 1
make_wav narrow.wav 16000 1
make_wav telephone.wav 8000 1
make_wav nine.wav 48000 9
head -c 1000 in.wav >cut.wav
printf 'hello' >text.wav
: >empty.wav
: >empty.bin
mkdir folder
ln -s in.wav link.wav
mkfifo pipe.wav

figures='^delay +[0-9]+ frames, [0-9.]+ ms, taken out'$'\n''real-time factor  [0-9.]+$'
expect "a stream of two microphones" 0 "$figures" '^$' enhance model in.wav out.wav
expect "the other rate" 0 "$figures" '^$' enhance model cd.wav out.wav
expect "the model's rate" 0 "$figures" '^$' enhance model narrow.wav out.wav --strength 0.5
expect "as it comes" 0 '^real-time factor  [0-9.]+$' '^$' enhance model in.wav out.wav --raw
expect "help" 0 'Example:' '^$' enhance --help

# 32-bit float of one channel, as long as the input: its 48000 frames.
shape() {
  "$sonivo" enhance model in.wav out.wav >.output 2>.errors && [[ $(head -c 4 out.wav) == RIFF ]] &&
    (($(stat -c %s out.wav) >= 192000 && $(stat -c %s out.wav) < 192200))
}
check "the size of the output" shape
same() {
  "$sonivo" enhance model in.wav out.wav >.output 2>.errors && "$sonivo" enhance model in.wav again.wav >.output &&
    cmp out.wav again.wav >.errors
}
check "the same output in every run" same
rm -f again.wav

one_line='^error: [^'$'\n'']+$'
expect "no arguments" 2 '^$' "$one_line" enhance
expect "no output" 2 '^$' "$one_line" enhance model in.wav
expect "a word too many" 2 '^$' "$one_line" enhance model in.wav out.wav more
expect "an unknown option" 2 '^$' "$one_line" enhance model in.wav out.wav --magic
for share in -1 1.5 x; do
  expect "a strength of $share" 2 '^$' "^error: --strength takes a number from 0 to 1, not '$share'\$" \
    enhance model in.wav out.wav "--strength=$share"
done
expect "a model from standard input" 2 '^$' "^error: MODEL must be a file: '-' for standard input is not supported\$" enhance - in.wav out.wav
expect "standard input" 2 '^$' "^error: IN must be a file: '-' for standard input is not supported\$" enhance model - out.wav
expect "standard output" 2 '^$' "^error: OUT must be a file: '-' for standard output is not supported\$" enhance model in.wav -

expect "no such model" 1 '^$' "^error: cannot open 'gone': No such file" enhance gone in.wav out.wav
expect "a folder as model" 1 '^$' "^error: 'folder' is a folder; give a speech enhancement model\$" enhance folder in.wav out.wav
expect "an empty model" 1 '^$' "^error: 'empty.bin' is no speech enhancement model: error reading stream" enhance empty.bin in.wav out.wav
expect "a model that is audio" 1 '^$' "^error: 'cd.wav' is no speech enhancement model: it is a WAV file\$" enhance cd.wav in.wav out.wav
printf 'spkb and more' >encoder.bin
expect "a speaker encoder as model" 1 '^$' "^error: 'encoder.bin' is no speech enhancement model: it is a speaker encoder\$" \
  enhance encoder.bin in.wav out.wav
expect "switching where nothing switches" 1 '^$' "^error: 'model' is no switching model; leave --switching away\$" \
  enhance model in.wav out.wav --switching 0
expect "no such file" 1 '^$' "^error: cannot open 'gone.wav': No such file" enhance model gone.wav out.wav
expect "a text file" 1 '^$' "^error: 'text.wav' is not a WAV file; " enhance model text.wav out.wav
expect "an empty file" 1 '^$' "^error: 'empty.wav' is empty; " enhance model empty.wav out.wav
expect "a truncated file" 1 '^$' "^error: 'cut.wav' is truncated: " enhance model cut.wav out.wav
expect "an unsupported rate" 1 '^$' \
  "^error: 'telephone.wav' has a sampling rate of 8000 Hz; convert it to 48000, 44100 or 16000 Hz\$" enhance model telephone.wav out.wav
expect "nine channels" 1 '^$' "^error: 'nine.wav' has 9 channels; " enhance model nine.wav out.wav
expect "a folder as input" 1 '^$' "^error: 'folder' is a folder; " enhance model folder out.wav
expect "the same file" 1 '^$' "^error: 'in.wav' is the input itself; " enhance model in.wav in.wav
expect "the same file through a link" 1 '^$' "^error: 'link.wav' is the input itself; " enhance model in.wav link.wav
expect "the model as output" 1 '^$' "^error: 'model' is the model itself; " enhance model in.wav model
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.wav': No such file or directory; " enhance model in.wav gone/out.wav
expect "a pipe as output" 1 '^$' "^error: 'pipe.wav' is a pipe or a device; " enhance model in.wav pipe.wav

limit=$(ulimit -f)
ulimit -S -f 100
expect "a full disk" 1 '^$' "^error: cannot write 'out.wav': File too large; " enhance model in.wav out.wav
ulimit -S -f "$limit"

# Four minutes take a while. A head that leaves the size open is read to the end of the file.
make_wav second.wav 48000 4
with_field second.wav long.wav 40 4 $((0xFFFFFFFF))
for _ in $(seq 240); do tail -c +45 second.wav; done >>long.wav
for signal in INT TERM HUP; do expect_nothing_after "$signal" enhance model long.wav out.wav; done

totals
