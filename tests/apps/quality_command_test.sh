#!/usr/bin/env bash
# Drives `sonivo quality`: exit codes and messages; it writes no file.
# Usage: quality_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"
result=

noise() { awk 'BEGIN { for (i = 0; i < 48000; ++i) { x = (x * 16807 + 12345) % 2147483647; printf "%c%c", 33 + x % 90, 33 + int(x / 90) % 90 } }'; }
noise >bytes
wav_of clean.wav 48000 1 <bytes
{ head -c 960 /dev/zero && cat bytes; } | wav_of late.wav 48000 1
tr '!-z' '\241-\372' <bytes >negated
wav_of negative.wav 48000 1 <negated
# Half of it inverted, in short turns.
for ((at = 0; at < 48000; at += 500)); do
  from=bytes && ((at % 1000)) && from=negated
  tail -c +$((2 * at + 1)) $from | head -c 1000
done | wav_of stranger.wav 48000 1
head -c 60000 bytes | wav_of short.wav 30000 1 && with_field short.wav fast.wav 24 4 48000 && with_field fast.wav start.wav 28 4 96000
wav_of cd.wav 44100 1 <bytes
wav_of silent.wav 48000 1 </dev/zero
printf 'hello' >text.wav

table='^delay +480 frames, 10.0 ms
compared +0.990 s of 1.000 s
SI-SDR +inf dB
segmental SNR +35.00 dB
STOI +1.0000
level in pauses +[^'$'\n'']+$'
expect "a delayed copy" 0 "$table" '^$' quality clean.wav late.wav
expect "a delay that is given" 0 "$table" '^$' quality clean.wav late.wav --delay 480
expect "an early copy" 0 '^delay +-480 frames, -10.0 ms' '^$' quality late.wav clean.wav
expect "an early copy whose delay is given" 0 '^delay +-480 frames, -10.0 ms' '^$' quality late.wav clean.wav --delay -480
expect "the start alone" 0 '^delay +0 frames, 0.0 ms'$'\n''compared +0.625 s of 1.000 s'$'\n' '^$' quality clean.wav start.wav
expect "an inverted copy" 0 $'\npolarity +inverted' '^$' quality clean.wav negative.wav
expect "the file itself" 0 '^delay +0 frames, 0.0 ms' '^$' quality clean.wav clean.wav
expect "help" 0 'Example:' '^$' quality --help

expect "no arguments" 2 '^$' '^error: [^'$'\n'']+$' quality
expect "one file" 2 '^$' '^error: [^'$'\n'']+$' quality clean.wav
expect "a delay that is no number" 2 '^$' "^error: --delay takes a whole number of frames, not '1.5'\$" quality clean.wav late.wav --delay 1.5
expect "standard input" 2 '^$' "^error: REF must be a file: '-' for standard input is not supported\$" quality - late.wav
expect "a test without a name" 2 '^$' "^error: TEST takes the name of a file, not ''\$" quality clean.wav ''

expect "another signal" 1 '^$' "^error: 'stranger.wav' does not resemble 'clean.wav' within 2 s of delay; " \
  quality clean.wav stranger.wav
expect "a silent reference" 1 '^$' "^error: 'silent.wav' is silent; give the clean speech\$" quality silent.wav clean.wav
expect "another rate" 1 '^$' "^error: 'clean.wav' and 'cd.wav' differ in rate; convert one of them\$" quality clean.wav cd.wav
expect "a delay longer than the file" 1 '^$' "^error: 'late.wav' is shorter than its delay; " quality clean.wav late.wav --delay 48000
expect "no such file" 1 '^$' "^error: cannot open 'gone.wav': No such file" quality gone.wav clean.wav
expect "a text file" 1 '^$' "^error: 'text.wav' is not a WAV file; " quality clean.wav text.wav

nobody_gets_the_table() {
  ! "$sonivo" quality clean.wav late.wav >/dev/full 2>.errors && says 'cannot write the table to standard output; '
}
check "a table that nobody gets" nobody_gets_the_table

totals
