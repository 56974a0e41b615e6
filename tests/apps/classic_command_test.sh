#!/usr/bin/env bash
# Drives `sonivo classic`: exit codes, messages, and that nothing is left behind.
# Usage: classic_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

make_wav in.wav 48000 2
make_wav cd.wav 44100 1
make_wav telephone.wav 8000 1
make_wav nine.wav 48000 9
head -c 1000 in.wav >cut.wav
printf 'hello' >text.wav
: >empty.wav
head -c 15808 /dev/zero >zeros.bin
mkdir folder
ln -s in.wav link.wav
mkfifo pipe.wav

expect "key cancelling" 0 '^$' '^$' classic keycancel in.wav out.wav
expect "key cancelling at the other rate" 0 '^$' '^$' classic keycancel cd.wav out.wav
expect "beam forming" 0 '^$' '^$' classic beamforming in.wav out.wav
expect "switches" 0 '^$' '^$' classic beamforming in.wav out.wav --key off --noise on --beam off
expect "short blocks" 0 '^$' '^$' classic keycancel in.wav out.wav --block 1
expect "long blocks" 0 '^$' '^$' classic keycancel in.wav out.wav --block 65535
expect "help" 0 'Example:' '^$' classic --help

# 32-bit float, as long as the input: its 48000 frames of 2 channels.
shape() {
  "$sonivo" classic keycancel in.wav out.wav >.output 2>.errors && [[ $(head -c 4 out.wav) == RIFF ]] &&
    [[ $(grep -aobm1 data out.wav | head -n 1) ]] && (($(stat -c %s out.wav) >= 384000 && $(stat -c %s out.wav) < 384200))
}
check "the size of the output" shape
same() {
  "$sonivo" classic keycancel in.wav out.wav >.output 2>.errors && "$sonivo" classic keycancel in.wav again.wav --block 480 &&
    cmp out.wav again.wav >.errors
}
check "the same output in every run, in blocks of 480 if nothing else is said" same
rm -f again.wav

expect "no arguments" 2 '^$' '^error: [^'$'\n'']+$' classic
expect "no output" 2 '^$' '^error: [^'$'\n'']+$' classic keycancel in.wav
expect "a word too many" 2 '^$' '^error: [^'$'\n'']+$' classic keycancel in.wav out.wav more
expect "an unknown option" 2 '^$' '^error: [^'$'\n'']+$' classic keycancel in.wav out.wav --magic
expect "a chain that is none" 2 '^$' "^error: CHAIN is keycancel or beamforming, not 'magic'\$" classic magic in.wav out.wav
expect "a switch that is none" 2 '^$' "^error: --key takes on or off, not '1'\$" classic keycancel in.wav out.wav --key 1
for switch in on off; do
  expect "beams of a chain that has none" 2 '^$' "^error: --beam is for the beamforming chain; keycancel forms no beams\$" \
    classic keycancel in.wav out.wav --beam $switch
done
for block in 0 65536 -1 1.5 x; do
  expect "blocks of $block frames" 2 '^$' "^error: --block takes 1 to 65535 frames, not '$block'\$" \
    classic keycancel in.wav out.wav "--block=$block"
done
expect "standard input" 2 '^$' "^error: IN must be a file: '-' for standard input is not supported\$" classic keycancel - out.wav
expect "standard output" 2 '^$' "^error: OUT must be a file: '-' for standard output is not supported\$" classic keycancel in.wav -
expect "an output without a name" 2 '^$' "^error: OUT takes the name of a file, not ''\$" classic keycancel in.wav ''

expect "one microphone for two beams" 1 '^$' "^error: 'cd.wav' has one channel; the beamforming chain needs two microphones\$" \
  classic beamforming cd.wav out.wav
expect "missing parameters" 1 '^$' "^error: cannot open 'gone.bin': No such file or directory; check its name and its permissions\$" \
  classic keycancel in.wav out.wav --params gone.bin
expect "parameters of another size" 1 '^$' "^error: 'zeros.bin' is no parameter blob of the beamforming chain, which has 32636 bytes; " \
  classic beamforming in.wav out.wav --params zeros.bin
expect "parameters that are none" 1 '^$' '^error: the parameter blob of the keycancel chain is damaged or of another version; ' \
  classic keycancel in.wav out.wav --params zeros.bin
expect "no such file" 1 '^$' "^error: cannot open 'gone.wav': No such file" classic keycancel gone.wav out.wav
expect "a text file" 1 '^$' "^error: 'text.wav' is not a WAV file; " classic keycancel text.wav out.wav
expect "an empty file" 1 '^$' "^error: 'empty.wav' is empty; " classic keycancel empty.wav out.wav
expect "a truncated file" 1 '^$' "^error: 'cut.wav' is truncated: " classic keycancel cut.wav out.wav
expect "an unsupported rate" 1 '^$' "^error: 'telephone.wav' has a sampling rate of 8000 Hz; " classic keycancel telephone.wav out.wav
expect "nine channels" 1 '^$' "^error: 'nine.wav' has 9 channels; " classic keycancel nine.wav out.wav
expect "a folder as input" 1 '^$' "^error: 'folder' is a folder; " classic keycancel folder out.wav
expect "the same file" 1 '^$' "^error: 'in.wav' is the input itself; " classic keycancel in.wav in.wav
expect "the same file through a link" 1 '^$' "^error: 'link.wav' is the input itself; " classic keycancel in.wav link.wav
cp "$(dirname "$sonivo")/../share/sonivo/par/keycancel.bin" set.bin
mkfifo params.pipe
expect "the parameters as output" 1 '^$' "^error: 'set.bin' is the parameter blob itself; " classic keycancel in.wav set.bin --params set.bin
expect "parameters in a pipe" 1 '^$' "^error: 'params.pipe' is a pipe or a device; give a parameter blob\$" \
  classic keycancel in.wav out.wav --params params.pipe
twice_the_same() {
  "$sonivo" classic keycancel in.wav first.wav 2>.errors && sleep 1.1 &&
    "$sonivo" classic keycancel in.wav second.wav 2>.errors && cmp first.wav second.wav 2>.errors
}
check "the same again, a second later" twice_the_same
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.wav': No such file or directory; " classic keycancel in.wav gone/out.wav
expect "a folder as output" 1 '^$' "^error: 'folder' is a folder; " classic keycancel in.wav folder
expect "a pipe as output" 1 '^$' "^error: 'pipe.wav' is a pipe or a device; " classic keycancel in.wav pipe.wav

limit=$(ulimit -f)
ulimit -S -f 100
expect "a full disk" 1 '^$' "^error: cannot write 'out.wav': File too large; " classic keycancel in.wav out.wav
ulimit -S -f "$limit"

# Two minutes of four microphones take a while. A head that leaves the size open is read to the end of the file.
make_wav second.wav 48000 4
with_field second.wav long.wav 40 4 $((0xFFFFFFFF))
for _ in $(seq 120); do tail -c +45 second.wav; done >>long.wav
for signal in INT TERM HUP; do expect_nothing_after "$signal" classic keycancel long.wav out.wav --block 1; done

totals
