#!/usr/bin/env bash
# Drives the built program: exit codes, messages, and that nothing is left behind.
# Usage: relay_command_test.sh SONIVO
set -uo pipefail

sonivo=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
passed=0
failed=0

# A 16-bit WAV file with a second of a rising pattern.
bytes() { # VALUE COUNT: little-endian bytes
  local value=$1 i
  for ((i = 0; i < $2; ++i)); do
    printf "\\x$(printf %02x $((value & 255)))"
    value=$((value >> 8))
  done
}
make_wav() { # FILE RATE CHANNELS [BITS, as the header says]
  local size=$(($2 * $3 * 2))
  {
    printf RIFF && bytes $((size + 36)) 4 && printf 'WAVEfmt ' && bytes 16 4 && bytes 1 2 && bytes "$3" 2 &&
      bytes "$2" 4 && bytes $(($2 * $3 * 2)) 4 && bytes $(($3 * 2)) 2 && bytes "${4:-16}" 2 && printf data && bytes "$size" 4
    seq -w 0 99999 | tr -d '\n' | head -c "$size"
  } >"$1"
}

# Usage: expect NAME EXIT_CODE OUTPUT_PATTERN ERRORS_PATTERN ARGUMENTS...
# Afterwards the folder holds what it held before, and out.wav exists just if the exit code is 0.
expect() {
  local name=$1 code=$2 output=$3 errors=$4
  shift 4
  rm -f out.wav
  local before after status=0
  before=$(ls -A)
  "$sonivo" "$@" >.output 2>.errors || status=$?
  after=$(ls -A | grep -vxE '\.output|\.errors' || true)
  [[ $status -eq 0 && -e out.wav ]] && before=$(printf '%s\nout.wav' "$before" | sort)
  before=$(grep -vxE '\.output|\.errors' <<<"$before" | sort)
  if [[ $status -eq $code && $(cat .output) =~ $output && $(cat .errors) =~ $errors && $(sort <<<"$after") == "$before" ]]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    printf 'FAILED: %s\nexit code %s\n' "$name" "$status"
    cat .output .errors
    echo "files: $after"
  fi
}

make_wav in.wav 48000 2
make_wav cd.wav 44100 1
make_wav telephone.wav 8000 1
make_wav nine.wav 48000 9
make_wav narrow.wav 48000 2 12
make_wav none.wav 48000 0
head -c 1000 in.wav >cut.wav
printf 'hello' >text.wav
: >empty.wav
mkdir folder
ln -s in.wav link.wav

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
expect "traces" 0 '^format' '^\[ +[0-9.]+ s\] ' relay in.wav out.wav --verbose
expect "help" 0 'Example:' '^$' relay --help
expect "version" 0 '^sonivo [0-9]' '^$' --version

if "$sonivo" relay in.wav out.wav >/dev/full 2>.errors || [[ $(cat .errors) != 'error: cannot write the table to standard output; '* ]]; then
  failed=$((failed + 1))
  echo "FAILED: a table that nobody gets"
else passed=$((passed + 1)); fi

expect "no command" 2 '^$' '^error: [^'$'\n'']+$'
expect "a period out of range" 2 '^$' "^error: --period takes 48 to 2048 frames, not '47'\$" relay in.wav out.wav --period 47
expect "a chain that is not built" 1 '^$' '^error: the ai chain is not built into this version; use --chain none$' relay in.wav out.wav --chain ai
expect "no such file" 1 '^$' "^error: cannot open 'gone.wav': No such file or directory; [^"$'\n'']+$' relay gone.wav out.wav
expect "a text file" 1 '^$' "^error: 'text.wav' is not a WAV file; [^"$'\n'']+$' relay text.wav out.wav
expect "an empty file" 1 '^$' "^error: 'empty.wav' is empty; [^"$'\n'']+$' relay empty.wav out.wav
expect "a truncated file" 1 '^$' "^error: 'cut.wav' is truncated: its header promises 192000 bytes of audio, the file holds 956; " \
  relay cut.wav out.wav
expect "an unsupported rate" 1 '^$' "^error: 'telephone.wav' has a sampling rate of 8000 Hz; " relay telephone.wav out.wav
expect "an unsupported width" 1 '^$' "^error: 'narrow.wav' [^"$'\n'']+12' relay narrow.wav out.wav
expect "nine channels" 1 '^$' "^error: 'nine.wav' has 9 channels; " relay nine.wav out.wav
expect "no channels" 1 '^$' "^error: 'none.wav' has 0 channels; " relay none.wav out.wav
expect "a folder as input" 1 '^$' "^error: 'folder' is a folder; " relay folder out.wav
expect "standard input" 1 '^$' "^error: '/dev/null' is a pipe or a device; " relay /dev/null out.wav
expect "the same file" 1 '^$' "^error: 'in.wav' is the input itself; " relay in.wav in.wav
expect "the same file through a link" 1 '^$' "^error: 'link.wav' is the input itself; " relay in.wav link.wav
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.wav': No such file or directory; " relay in.wav gone/out.wav
expect "an output folder that takes no files" 1 '^$' "^error: cannot create '/proc/out.wav': " relay in.wav /proc/out.wav
expect "a file as output folder" 1 '^$' "^error: cannot create 'text.wav/out.wav': Not a directory; " relay in.wav text.wav/out.wav
expect "a folder as output" 1 '^$' "^error: 'folder' is a folder; " relay in.wav folder
expect "a device as output" 1 '^$' "^error: '/dev/null' is a pipe or a device; " relay in.wav /dev/null

limit=$(ulimit -f)
ulimit -S -f 100
expect "a full disk" 1 '^$' "^error: cannot write 'out.wav': File too large; " relay in.wav out.wav
ulimit -S -f "$limit"

# An interrupt in the middle of the work: it takes a second of real time, so that there is a middle.
(
  set -m
  "$sonivo" relay in.wav out.wav --realtime 2>/dev/null &
  relay=$!
  for _ in $(seq 100); do
    compgen -G '.sonivo-*' >/dev/null && break
    sleep 0.01
  done
  kill -INT "$relay"
  wait "$relay"
) >/dev/null 2>&1
rm -f out.wav
if ! compgen -G '.sonivo-*' >/dev/null && [[ ! -e out.wav ]]; then passed=$((passed + 1)); else
  failed=$((failed + 1))
  echo "FAILED: an interrupt leaves files behind"
fi

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
