#!/usr/bin/env bash
# Drives `sonivo setup` and `sonivo doctor` where there is no audio server: what they refuse, and what they say of it.
# Usage: setup_command_test.sh SONIVO; NorvellSonivoDriver lies beside it
source "$(dirname "$0")/command_cases.sh"
result=
program=$(dirname "$sonivo")/NorvellSonivoDriver
export XDG_RUNTIME_DIR=$folder XDG_CONFIG_HOME=$folder/config
unset PIPEWIRE_REMOTE PIPEWIRE_RUNTIME_DIR
mkdir run
socket=$folder/run/driver.sock
driver=
trap '[[ -z $driver ]] || kill -KILL "$driver" 2>/dev/null; rm -rf "$folder"' EXIT

start_driver() {
  env --default-signal "$program" --socket "$socket" --state "$folder/run/state" 2>run/log &
  driver=$!
  for _ in $(seq 500); do
    "$sonivo" settings get --socket "$socket" model >.output 2>&1 && return
    sleep 0.01
  done
  echo "the driver does not start" >&2
  exit 1
}

for command in setup doctor; do
  expect "help to $command" 0 'Example:' '^$' "$command" --help
  expect "a word too many to $command" 2 '^$' '^error: [^'$'\n'']+$' "$command" now
done
expect "the exit codes in the help" 0 $'\n *4  something is wrong\n' '^$' doctor --help
expect "a chain that is none" 2 '^$' "^error: --chain takes none, keycancel, beamforming or ai, not 'both'\$" setup --chain both
expect "a strength that is none" 2 '^$' "^error: --strength takes 0 to 1, not '2'\$" setup --strength 2
for words in "--list --remove" "--list --chain ai" "--remove --params x" "--list --strength 1"; do
  # shellcheck disable=SC2086
  expect "options that go not together: $words" 2 '^$' '^error: --list and --remove go with no other of ' setup $words
done

expect "no driver" 1 '^$' "^error: the driver is not running: nothing listens at '$socket'; start it: " setup --socket "$socket"
expect "no driver to list from" 1 '^$' '^error: the driver is not running: ' setup --list --socket "$socket"
expect "a doctor without a driver" 4 \
  $'(^|\n)trouble  PipeWire is not running. Start it: systemctl --user start pipewire wireplumber.\n.*'"trouble  The driver is not running: nothing listens at '$socket'. Start it: " \
  '^$' doctor --socket "$socket"

start_driver
expect "no audio server" 1 '^$' '^error: PipeWire is not running, so that the microphones are unknown; start it: ' setup --socket "$socket"
expect "no audio server to list from" 1 '^$' '^error: PipeWire is not running, ' setup --list --socket "$socket"
expect "nothing to take back" 1 '^$' '^error: PipeWire is not running, ' setup --remove --microphone x --socket "$socket"
nothing_is_set() { [[ $("$sonivo" settings get --socket "$socket" generation-mic) == 0 && ! -e config ]]; }
check "nothing was set" nothing_is_set
expect "a driver that answers" 4 $'\nok       The driver answers.\nhint     The driver has just started, and no service has connected with it yet. Look again in a few seconds.\n' '^$' doctor --socket "$socket"
expect "the same as JSON" 4 '^\{'$'\n''  "well": false,'$'\n''  "findings": \[.*"kind": "trouble",'$'\n *''"subject": "pipewire",.*"subject": "driver",' \
  '^$' doctor --json --socket "$socket"
nobody_gets_it() { ! "$sonivo" doctor --socket "$socket" >/dev/full 2>.errors && says 'cannot write the table to standard output; '; }
check "findings that nobody gets" nobody_gets_it
kill -STOP "$driver"
expect "a driver that hangs" 4 "trouble  The driver at '$socket' has not answered for 2 s. Restart it: " '^$' doctor --socket "$socket"
kill -CONT "$driver"
kill "$driver"
wait "$driver" 2>/dev/null
driver=

totals
