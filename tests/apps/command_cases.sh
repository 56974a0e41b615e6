# What the command-line cases share: a folder of their own, made files, and how a run of the program is judged.
# Usage, at the head of a script: source command_cases.sh SONIVO; at its end: totals
set -uo pipefail

sonivo=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
passed=0
failed=0
result=out.wav # the file that a success writes; empty: none

bytes() { # VALUE COUNT: little-endian bytes
  local value=$1 i
  for ((i = 0; i < $2; ++i)); do
    printf "\\x$(printf %02x $((value & 255)))"
    value=$((value >> 8))
  done
}

# A 16-bit WAV file with what comes from standard input, at most a second of it.
wav_of() { # FILE RATE CHANNELS [BITS, as the header says]
  local size=$(($2 * $3 * 2))
  {
    printf RIFF && bytes $((size + 36)) 4 && printf 'WAVEfmt ' && bytes 16 4 && bytes 1 2 && bytes "$3" 2 &&
      bytes "$2" 4 && bytes $(($2 * $3 * 2)) 4 && bytes $(($3 * 2)) 2 && bytes "${4:-16}" 2 && printf data && bytes "$size" 4
    head -c "$size"
  } >"$1"
}

# The same with a second of a rising pattern.
make_wav() { # FILE RATE CHANNELS [BITS, as the header says]
  seq -w 0 99999 | tr -d '\n' | wav_of "$@"
}

# Copies a file with a field of its head replaced.
with_field() { # FROM TO OFFSET SIZE VALUE
  { head -c "$3" "$1" && bytes "$5" "$4" && tail -c +$(($3 + $4 + 1)) "$1"; } >"$2"
}

# Usage: expect NAME EXIT_CODE OUTPUT_PATTERN ERRORS_PATTERN ARGUMENTS...
# Afterwards the folder holds what it held before, and the result exists just if the exit code is 0.
expect() {
  local name=$1 code=$2 output=$3 errors=$4
  shift 4
  rm -f ${result:+"$result"}
  local before after status=0
  before=$(ls -A)
  "$sonivo" "$@" >.output 2>.errors || status=$?
  after=$(ls -A | grep -vxE '\.output|\.errors' || true)
  [[ $status -eq 0 && -n $result && -e $result ]] && before=$(printf '%s\n%s' "$before" "$result" | sort)
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

# Usage: check NAME FUNCTION
check() {
  if "$2"; then passed=$((passed + 1)); else
    failed=$((failed + 1))
    printf 'FAILED: %s\n' "$1"
    cat .errors
  fi
}
says() { [[ $(cat .errors) == "error: $1"* ]]; }

# Usage: expect_nothing_after SIGNAL ARGUMENTS...
# The signal comes in the middle of the work, which must take a while, so that there is a middle.
expect_nothing_after() {
  local signal=$1 status before
  shift
  rm -f "$result"
  before=$(ls -A)
  set -m
  # Also where whoever started this script has signals ignored, as a shell does for what it runs in the background.
  env --default-signal "$sonivo" "$@" >/dev/null 2>&1 &
  local run=$!
  for _ in $(seq 500); do
    compgen -G '.sonivo-*' >/dev/null && break
    sleep 0.01
  done
  kill "-$signal" "$run"
  wait "$run" 2>/dev/null
  status=$?
  set +m
  if [[ $status -gt 128 && $(ls -A) == "$before" ]]; then passed=$((passed + 1)); else
    failed=$((failed + 1))
    printf 'FAILED: %s in the middle of %s\nexit code %s\nfiles: %s\n' "$signal" "$*" "$status" "$(ls -A)"
  fi
}

totals() {
  echo "$passed passed, $failed failed"
  [[ $failed -eq 0 ]]
}
