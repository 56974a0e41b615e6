#!/usr/bin/env bash
# Drives `sonivo relay`: exit codes, messages, and that nothing is left behind.
# Usage: relay_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

relays() { "$sonivo" relay "$@" >.output 2>.errors; }

make_wav in.wav 48000 2
make_wav cd.wav 44100 1
make_wav telephone.wav 8000 1
make_wav nine.wav 48000 9
make_wav narrow.wav 48000 2 12
make_wav none.wav 48000 0
head -c 1000 in.wav >cut.wav
with_field in.wav streamed.wav 40 4 $((0xFFFFFFFF))
with_field in.wav unfinished.wav 40 4 0
with_field in.wav uneven.wav 40 4 191999
with_field in.wav misrated.wav 28 4 48000
with_field in.wav misaligned.wav 32 2 2
{ printf RF64 && tail -c +5 in.wav; } >long.wav
printf 'hello' >text.wav
head -c 15808 /dev/zero >zeros.bin
: >empty.wav
mkdir folder
ln -s in.wav link.wav
ln -s in.wav ./-in.wav
mkfifo pipe.wav

table='^format +48000 Hz, 16 bits, 2 channels
latency +[0-9]+ frames, [0-9.]+ ms microphone to application
blocks +[0-9]+ of 10 ms
underruns +0
overruns +0
feedback changes +[0-9]+
ring fill +[0-9.]+ / [0-9.]+ / [0-9.]+ ms \(lowest / mean / highest\)
speed +[0-9]+ times real time$'
expect "the microphone path" 0 "$table" '^$' relay in.wav out.wav
expect "another rate, width and period" 0 '44100 Hz, 24 bits, 1 channel' '^$' \
  relay cd.wav out.wav --bits 24 --period 2048 --drift -300
expect "the speaker path" 0 'application to speaker' '^$' relay in.wav out.wav --render
expect "a streamed file" 0 "$table" '^$' relay streamed.wav out.wav
expect "a name with a dash" 0 'application to speaker' '^$' relay --render -- -in.wav out.wav
expect "traces" 0 '^format' '^\[ +[0-9.]+ s\] ' relay in.wav out.wav --verbose
# The input is noise, of which a chain may leave too little to find a latency in.
of_noise=$(sed 's/^latency .*/latency +.+/' <<<"$table")
expect "key cancelling" 0 "$of_noise" '^$' relay in.wav out.wav --chain keycancel
expect "beam forming" 0 "$of_noise" '^$' relay in.wav out.wav --chain beamforming
expect "a chain at another rate, width and period" 0 '44100 Hz, 24 bits, 1 channel' '^$' \
  relay cd.wav out.wav --chain keycancel --bits 24 --period 2048 --drift -300
models=$(dirname "$sonivo")/../share/sonivo/models
if [[ -d $models ]]; then
  for size in 0.5 0.25 0.10; do
    expect "the model of size $size" 0 "$of_noise" '^$' \
      relay in.wav out.wav --chain ai --model "$models/model_se_streaming_RTF${size}_v2.bin"
  done
  expect "the enhancement as fast as the audio" 0 'processing +[0-9]+\.[0-9]{3} / [0-9]+\.[0-9]{3} ms a block \(mean / highest\)
speed' '^$' relay in.wav out.wav --chain ai --realtime
fi
expect "help" 0 'Example:' '^$' relay --help
expect "version" 0 '^sonivo [0-9]' '^$' --version

dashes() {
  relays -- -in.wav -out.wav && [[ -s ./-out.wav ]] && rm ./-out.wav && relays in.wav -- -out.wav && [[ -s ./-out.wav ]]
}
check "names with dashes" dashes
rm -f ./-out.wav

link_to_nothing() { relays in.wav dangling.wav && [[ -L dangling.wav && -f folder/real.wav && -s folder/real.wav ]]; }
ln -s folder/real.wav dangling.wav
check "a link to a file that is not there yet" link_to_nothing
rm -f dangling.wav folder/real.wav

link_to_nothing_fails() {
  ! (ulimit -S -f 100 && relays in.wav dangling.wav) && says "cannot write 'dangling.wav': File too large; " &&
    [[ -L dangling.wav && -z $(ls -A folder) ]]
}
ln -s folder/real.wav dangling.wav
check "a link to a file that does not become whole" link_to_nothing_fails
rm -f dangling.wav folder/real.wav

nobody_gets_the_table() {
  ! "$sonivo" relay in.wav out.wav >/dev/full 2>.errors && says 'cannot write the table to standard output; '
}
check "a table that nobody gets" nobody_gets_the_table

refused() { [[ $1 -eq 1 && ! -s stream ]] && says "$2"; }
redirected_output() {
  "$sonivo" relay in.wav /dev/stdout >stream 2>.errors
  refused $? "'/dev/stdout' belongs to a redirection of this command; "
}
redirected_descriptor() {
  "$sonivo" relay in.wav /dev/fd/3 3>stream 2>.errors
  refused $? "'/dev/fd/3' belongs to a redirection of this command; "
}
table_into_the_output() {
  "$sonivo" relay in.wav stream >stream 2>.errors
  refused $? "'stream' belongs to a redirection of this command; "
}
piped_output() {
  "$sonivo" relay in.wav /dev/stdout 2>.errors | cat >stream
  refused "${PIPESTATUS[0]}" "'/dev/stdout' is a pipe or a device; "
}
check "standard output, redirected, as output" redirected_output
check "another redirection as output" redirected_descriptor
check "the table's file as output" table_into_the_output
check "standard output, piped, as output" piped_output
rm -f stream

expect "no command" 2 '^$' '^error: [^'$'\n'']+$'
expect "a period out of range" 2 '^$' "^error: --period takes 48 to 2048 frames, not '47'\$" relay in.wav out.wav --period 47
expect "standard input" 2 '^$' "^error: IN must be a file: '-' for standard input is not supported\$" relay - out.wav
expect "standard output" 2 '^$' "^error: OUT must be a file: '-' for standard output is not supported\$" relay in.wav -
expect "an input without a name" 2 '^$' "^error: IN takes the name of a file, not ''\$" relay '' out.wav
expect "an output without a name" 2 '^$' "^error: OUT takes the name of a file, not ''\$" relay in.wav ''
expect "control characters in the name of the input" 1 '^$' "^error: cannot open 'a\\\\n\\\\x1b\[2J': No such file" relay $'a\n\e[2J' out.wav
expect "control characters in the name of the output" 1 '^$' "^error: cannot create 'gone\\\\x07/b': No such file" relay in.wav $'gone\a/b'
expect "no such file" 1 '^$' "^error: cannot open 'gone.wav': No such file or directory; [^"$'\n'']+$' relay gone.wav out.wav
expect "a text file" 1 '^$' "^error: 'text.wav' is not a WAV file; [^"$'\n'']+$' relay text.wav out.wav
expect "an empty file" 1 '^$' "^error: 'empty.wav' is empty; [^"$'\n'']+$' relay empty.wav out.wav
expect "a truncated file" 1 '^$' "^error: 'cut.wav' is truncated: its header promises 192000 bytes of audio, the file holds 956; " \
  relay cut.wav out.wav
expect "a size that was never filled in" 1 '^$' "^error: 'unfinished.wav' promises no audio in its header, though 192000 bytes follow; " \
  relay unfinished.wav out.wav
expect "a part of a frame" 1 '^$' "^error: 'uneven.wav' is damaged: its 191999 bytes of audio do not end with a whole frame of 4; " \
  relay uneven.wav out.wav
expect "a wrong byte rate" 1 '^$' "^error: 'misrated.wav' is damaged: its seconds have 48000 bytes where its format needs 192000; " \
  relay misrated.wav out.wav
expect "a wrong frame size" 1 '^$' "^error: 'misaligned.wav' is damaged: its frames have 2 bytes where its format needs 4; " \
  relay misaligned.wav out.wav
expect "a 64-bit file" 1 '^$' "^error: 'long.wav' is a 64-bit WAV file \(RF64\), which is not supported; convert it to plain WAV\$" \
  relay long.wav out.wav
expect "an unsupported rate" 1 '^$' "^error: 'telephone.wav' has a sampling rate of 8000 Hz; " relay telephone.wav out.wav
expect "an unsupported width" 1 '^$' "^error: 'narrow.wav' [^"$'\n'']+12' relay narrow.wav out.wav
expect "nine channels" 1 '^$' "^error: 'nine.wav' has 9 channels; " relay nine.wav out.wav
expect "no channels" 1 '^$' "^error: 'none.wav' has 0 channels; " relay none.wav out.wav
expect "a folder as input" 1 '^$' "^error: 'folder' is a folder; " relay folder out.wav
expect "a device as input" 1 '^$' "^error: '/dev/null' is a pipe or a device; " relay /dev/null out.wav
expect "the same file" 1 '^$' "^error: 'in.wav' is the input itself; " relay in.wav in.wav
expect "the same file through a link" 1 '^$' "^error: 'link.wav' is the input itself; " relay in.wav link.wav
cp "$(dirname "$sonivo")/../share/sonivo/par/keycancel.bin" set.bin
mkfifo params.pipe
expect "the parameters as output" 1 '^$' "^error: 'set.bin' is the parameter blob itself; " relay in.wav set.bin --chain keycancel --params set.bin
expect "parameters in a pipe" 1 '^$' "^error: 'params.pipe' is a pipe or a device; give a parameter blob\$" \
  relay in.wav out.wav --chain keycancel --params params.pipe
model_of() { # ATTRIBUTES OF AN OPTION: lets everything pass
  echo "senx<SE version='20231004'><encoder><NN magic='MerNNpar' ninput='1' noutput='1'>
<layers><layer type='FullyConnected' id='a'><weight>1</weight><bias>0</bias></layer></layers>
<links><link from_id='_input' to_id='a'/><link from_id='a' to_id='_output'/></links></NN></encoder>
<option name='frame-length' value='10'/><option $1/></SE>"
}
model_of "name='frame-shift' value='10'" >model
expect "a model of one's own" 0 "$of_noise" '^$' relay in.wav out.wav --chain ai --model model
expect "the model as output" 1 '^$' "^error: 'model' is the model itself; choose another name for the output\$" \
  relay in.wav model --chain ai --model model
model_of "name='overlap' value='1'" >overlap
expect "a model whose chunks overlap" 1 '^$' \
  "^error: 'overlap' is no speech enhancement model: its chunks overlap, so that it gives more than it takes\$" \
  relay in.wav out.wav --chain ai --model overlap
expect "a recording as model" 1 '^$' "^error: 'in.wav' is no speech enhancement model: it is a WAV file\$" \
  relay in.wav out.wav --chain ai --model in.wav
expect "no such model" 1 '^$' "^error: cannot open 'gone': No such file" relay in.wav out.wav --chain ai --model gone
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.wav': No such file or directory; " relay in.wav gone/out.wav
expect "an output folder that takes no files" 1 '^$' "^error: cannot create '/proc/out.wav': " relay in.wav /proc/out.wav
expect "a file as output folder" 1 '^$' "^error: cannot create 'text.wav/out.wav': Not a directory; " relay in.wav text.wav/out.wav
expect "a folder as output" 1 '^$' "^error: 'folder' is a folder; " relay in.wav folder
expect "a pipe as output" 1 '^$' "^error: 'pipe.wav' is a pipe or a device; " relay in.wav pipe.wav
expect "a device as output" 1 '^$' "^error: '/dev/null' is a pipe or a device; " relay in.wav /dev/null

expect "a chain that is none" 2 '^$' "^error: --chain takes none, keycancel, beamforming or ai, not 'magic'\$" \
  relay in.wav out.wav --chain magic
expect "parameters without a chain" 2 '^$' '^error: --params needs a chain to set up; ' relay in.wav out.wav --params one.bin
expect "a chain for the speaker" 2 '^$' '^error: --render carries the speaker direction, which has no chain; leave out --chain$' \
  relay in.wav out.wav --render --chain keycancel
expect "a model without its chain" 2 '^$' '^error: --model needs --chain ai$' relay in.wav out.wav --chain keycancel --model m
expect "a strength without its chain" 2 '^$' '^error: --strength needs --chain ai$' relay in.wav out.wav --strength 1
expect "one microphone for two beams" 1 '^$' "^error: 'cd.wav' has one channel; the beamforming chain needs two microphones\$" \
  relay cd.wav out.wav --chain beamforming
expect "missing parameters" 1 '^$' "^error: cannot open 'gone.bin': No such file or directory; check its name and its permissions\$" \
  relay in.wav out.wav --chain keycancel --params gone.bin
expect "a folder for parameters" 1 '^$' "^error: 'folder' is a folder; give a parameter blob\$" \
  relay in.wav out.wav --chain keycancel --params folder
expect "parameters of another size" 1 '^$' "^error: 'text.wav' is no parameter blob of the keycancel chain, which has 15808 bytes; " \
  relay in.wav out.wav --chain keycancel --params text.wav
expect "parameters that are none" 1 '^$' \
  '^error: the parameter blob of the keycancel chain is damaged or of another version; build it again with sonivo params build$' \
  relay in.wav out.wav --chain keycancel --params zeros.bin
expect "a text for parameters" 1 '^$' "^error: 'in.wav' is no parameter blob of the beamforming chain, which has 32636 bytes; " \
  relay in.wav out.wav --chain beamforming --params in.wav

alone() {
  mkdir -p folder/bin && cp "$sonivo" folder/bin && ! folder/bin/sonivo relay in.wav out.wav --chain keycancel >.output 2>.errors &&
    says "cannot open '$folder/folder/share/sonivo/par/keycancel.bin': No such file or directory; give a parameter blob with --params" &&
    [[ ! -e out.wav ]]
}
check "a program without its parameters" alone
rm -rf folder/bin

limit=$(ulimit -f)
ulimit -S -f 100
expect "a full disk" 1 '^$' "^error: cannot write 'out.wav': File too large; " relay in.wav out.wav
expect "a full disk behind a chain" 1 '^$' "^error: cannot write 'out.wav': File too large; " relay in.wav out.wav --chain beamforming
ulimit -S -f "$limit"

expect_nothing_after INT relay in.wav out.wav --realtime
expect_nothing_after TERM relay in.wav out.wav --realtime --chain keycancel

totals
