#!/usr/bin/env bash
# Drives `sonivo settings`, `sonivo events` and `sonivo status` against the driver, which lies beside sonivo.
# Usage: settings_command_test.sh SONIVO [PYTHON]
python=${2:-python3}
publish=$(realpath "$(dirname "$0")/publish_report.py")
source "$(dirname "$0")/command_cases.sh"
result=
program=$(dirname "$sonivo")/NorvellSonivoDriver
unset XDG_RUNTIME_DIR
mkdir run
socket=$folder/run/driver.sock

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
stop_driver() {
  kill "$driver"
  wait "$driver" 2>/dev/null
}
driver=
trap '[[ -z $driver ]] || kill -KILL "$driver" 2>/dev/null; rm -rf "$folder"' EXIT

set_to() { "$sonivo" settings set --socket "$socket" "$@" >.output 2>.errors; }
value() { "$sonivo" settings get --socket "$socket" "$1" 2>.errors; }
set_here() { # NAME EXIT_CODE ERRORS_PATTERN ARGUMENTS...
  local name=$1 code=$2 errors=$3
  shift 3
  expect "$name" "$code" '^$' "$errors" settings set --socket "$socket" "$@"
}

# Without a driver.
expect "no socket" 1 '^$' '^error: XDG_RUNTIME_DIR is not set, [^'$'\n'']+; give --socket PATH$' settings list
expect "no driver" 1 '^$' \
  "^error: the driver is not running: nothing listens at '$socket'; start it: systemctl --user start NorvellSonivoDriver.socket\$" \
  settings list --socket "$socket"
expect "no driver to look at" 1 '^$' '^error: the driver is not running: ' status --socket "$socket"
expect "no driver as JSON" 1 \
  $'^\\{\n  "health": "no driver",\n  "driver": \\{\n    "socket": "'"$socket"$'",\n    "running_ms": null,\n    "settings": null,\n    "fault": "the driver is not running: .*"gates": null,\n  "service": null,\n  "report_fault": "",\n  "report_age_ms": null\n\\}$' \
  '^error: the driver is not running: ' status --json --socket "$socket"
no_socket_as_json() { ! env -u XDG_RUNTIME_DIR "$sonivo" status --json >.output 2>.errors && [[ $(cat .output) == *'"socket": "",'* ]] && says 'XDG_RUNTIME_DIR is not set'; }
check "no socket as JSON" no_socket_as_json
long_path=/$(printf 'x%.0s' {1..107})
expect "a path that is too long" 1 '^$' \
  "^error: the path '$long_path' is too long for a socket: it has 108 bytes, and there is room for 107; give a shorter one\$" \
  status --socket "$long_path"
expect "no driver to wait for" 1 '^$' '^error: the driver is not running: ' events --socket "$socket"
runtime_folder_is_taken() {
  ! XDG_RUNTIME_DIR=$folder/gone "$sonivo" status >.output 2>.errors &&
    says "the driver is not running: nothing listens at '$folder/gone/sonivo/driver.sock'; "
}
check "the folder of sockets" runtime_folder_is_taken
for command in settings 'settings list' 'settings get' 'settings set' events status; do
  # shellcheck disable=SC2086
  expect "help to $command" 0 'Example:' '^$' $command --help
done
expect "the layers in the help" 0 'as a settings application does it: what the' '^$' settings set --help
expect "the exit codes in the help" 0 $'\n *3  the driver answers, but the service does not run\n' '^$' status --help
expect "no action" 2 '^$' '^error: [^'$'\n'']+$' settings
expect "a word too many" 2 '^$' '^error: [^'$'\n'']+$' settings get model model

# Values are looked at before the driver is.
set_here "a name that is none" 2 "^error: no setting is called 'keybord-cancel'; did you mean 'keyboard-cancel'\?\$" keybord-cancel on
set_here "a name that is like none" 2 "^error: no setting is called 'volume'; there are headphone, generation, meeting-mode, " volume 3
set_here "a flag" 2 "^error: beamforming takes on or off, not 'yes'\$" beamforming yes
set_here "a position" 2 "^error: meeting-mode takes off or 1 to 5, not '6'\$" meeting-mode 6
set_here "a mode" 2 "^error: speaker-mode takes 0 to 4, not '5'\$" speaker-mode 5
set_here "a model" 2 "^error: model takes small, medium or large, not 'huge'\$" model huge
set_here "a number" 2 "^error: function takes a whole number, not '-1'\$" --machine function -1
set_here "a long text" 2 '^error: text-1 takes at most 259 characters of UTF-16, not 260$' text-1 "$(printf 'x%.0s' {1..260})"
set_here "bytes that are no text" 2 "^error: text-1 takes text in UTF-8, not '.x80'\$" text-1 $'\x80'
set_here "a value that is missing" 2 '^error: a value is missing for model$' model small model
set_here "the machine's own" 2 \
  '^error: headphone tells what the machine is like, which only the machine sets; add --machine to set it all the same$' headphone on
set_here "a good and a bad value" 2 "^error: model takes " auto-mute on model none

start_driver
expect "the values of a new driver" 0 \
  $'(^|\n)generation +8\n.*\ncapture-endpoint +default\n.*\nkeyboard-cancel +user on, effective on\n.*\nmodel +small\n' '^$' \
  settings list --socket "$socket"
set_here "a flag in both layers" 0 '^$' keyboard-cancel off
both_layers() { [[ $(value keyboard-cancel) == off && $(value keyboard-cancel-user) == off ]]; }
check "both layers" both_layers
one_layer() { set_to keyboard-cancel-user 1 && [[ $(value keyboard-cancel) == off && $(value keyboard-cancel-user) == on ]]; }
check "one layer" one_layer
expect "two layers in the list" 0 $'\nkeyboard-cancel +user on, effective off\n' '^$' settings list --socket "$socket"

several_at_once() {
  set_to model medium speaker-mode 3 voice-model on && [[ $(value model) == medium && $(value speaker-mode) == 3 && $(value voice-model-user) == on ]]
}
check "several at once" several_at_once
model_rows() { set_to model 1 && [[ $(value model) == large ]] && set_to model 3 && [[ $(value model) == small ]]; }
check "models by their rows" model_rows
meeting_mode() {
  set_to meeting-mode 3 && [[ $(value meeting-mode) == 3 && $(value speaker-mode) == 2 && $(value headphone-mode) == 2 ]] &&
    set_to meeting-mode off && [[ $(value meeting-mode) == off && $(value speaker-mode) == 2 ]]
}
check "the meeting mode" meeting_mode
endpoints() {
  set_to capture-endpoint alsa_input.pci-0 && [[ $(value capture-endpoint) == alsa_input.pci-0 ]] &&
    set_to capture-endpoint default && [[ $(value capture-endpoint) == default ]] &&
    set_to render-endpoint x render-endpoint '' && [[ $(value render-endpoint) == default ]]
}
check "endpoints" endpoints
texts() {
  local text
  for text in '[a,b]' '{}' '' '%%' 'Grüße 🎤' 'list' '-x' "$(printf 'x%.0s' {1..259})"; do
    set_to text-1 y text-2 "$text" && [[ $(value text-2) == "$text" ]] || return 1
  done
  set_to -- text-1 '-dash' text-2 '--other' && [[ $(value text-1) == -dash && $(value text-2) == --other ]] &&
    set_to text-1 $'a\nb' && [[ $(value text-1) == 'a\nb' ]]
}
check "texts of all kinds" texts
enrolment() { set_to enrolment start && [[ $(value enrolment) == start ]] && set_to enrolment 103 && [[ $(value enrolment) == 103 ]]; }
check "enrolment" enrolment
machine() { set_to --machine generation-mic 5 function-mic 8 headphone on && [[ $(value generation-mic) == 5 && $(value headphone) == on ]]; }
check "what the machine sets" machine
expect "a value as JSON" 0 $'^\\{\n  "headphone": true\n\\}$' '^$' settings get --json headphone --socket "$socket"
expect "what was set as JSON" 0 $'^\\{\n  "model": "medium",\n  "auto-mute": true\n\\}$' '^$' settings set --socket "$socket" --json model medium auto-mute on
expect "what was set as JSON, asked for at the end" 0 $'^\\{\n  "model": "small"\n\\}$' '^$' settings set --socket "$socket" model small --json
set_here "the former values" 0 '^$' auto-mute off
expect "all values as JSON" 0 $'"generation": 8,\n *"meeting-mode": 0,.*"capture-endpoint": "",.*"keyboard-cancel": false,\n *"keyboard-cancel-user": true,.*"model": "small"' '^$' \
  settings list --json --socket "$socket"
expect "a value that is none" 2 '^$' "^error: no setting is called 'Model'; did you mean 'model'\?\$" settings get Model --socket "$socket"
nothing_of_a_bad_line() { ! set_to auto-mute on model none && [[ $(value auto-mute) == off ]]; }
check "nothing of a line with a bad value" nothing_of_a_bad_line
settings_survive() {
  stop_driver
  start_driver
  [[ $(value keyboard-cancel) == off && $(value model) == small && $(value generation-mic) == 5 && $(value headphone) == off ]]
}
check "settings of a driver that was started anew" settings_survive
nobody_gets_the_settings() { ! "$sonivo" settings list --socket "$socket" >/dev/full 2>.errors && says 'cannot write the table to standard output; '; }
check "a list that nobody gets" nobody_gets_the_settings

# Events. An onlooker is there once it has told of one.
watch_events() { # FILE ARGUMENTS...
  local file=$1
  shift
  env --default-signal "$sonivo" events --socket "$socket" "$@" >"$file" 2>.errors &
  onlooker=$!
}
until_told() { # FILE [LINES]
  for _ in $(seq 200); do
    set_to auto-mute on && set_to auto-mute off
    [[ $(wc -l <"$1") -ge ${2:-1} ]] && return
    sleep 0.02
  done
  return 1
}
stamp='[0-9]{4}-[0-9]{2}-[0-9]{2}'
hour='[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}'
counted_events() {
  watch_events run/events --count 2
  until_told run/events 2 && wait "$onlooker" &&
    [[ $(cat run/events) =~ ^$stamp\ $hour\ {3}1[23]\ \ auto\ mute\ (on|off)$'\n'$stamp\ $hour\ {3}1[23]\ \ auto\ mute\ (on|off)$ ]]
}
check "two events" counted_events
json_events() {
  watch_events run/events --json --count 1
  until_told run/events && wait "$onlooker" &&
    [[ $(cat run/events) =~ ^\{\"time\":\"${stamp}T${hour}Z\",\"event\":1[23],\"name\":\"auto\ mute\ (on|off)\"\}$ ]]
}
check "an event as JSON" json_events
interrupted_events() {
  watch_events run/events
  until_told run/events && kill -INT "$onlooker" && wait "$onlooker" && [[ ! -s .errors ]]
}
check "Ctrl-C" interrupted_events
nobody_gets_the_events() {
  watch_events /dev/full
  for _ in $(seq 200); do
    "$sonivo" settings set --socket "$socket" auto-mute on && "$sonivo" settings set --socket "$socket" auto-mute off
    kill -0 "$onlooker" 2>/dev/null || break
    sleep 0.02
  done
  ! wait "$onlooker" && says 'cannot write the events to standard output; '
}
check "events that nobody gets" nobody_gets_the_events
expect "no events at all" 2 '^$' "^error: --count takes a whole number above 0, not '0'\$" events --count 0 --socket "$socket"
last_event() {
  watch_events run/events
  until_told run/events && stop_driver && wait "$onlooker" && [[ $(tail -1 run/events) =~ \ 99\ \ driver\ exits$ ]]
}
check "the driver's exit" last_event
killed_driver() {
  start_driver
  watch_events run/events
  until_told run/events && kill -KILL "$driver" && { wait "$driver" 2>/dev/null; ! wait "$onlooker"; } && says "the driver at '$socket' closed the connection: "
}
check "a driver that is killed" killed_driver

# Status.
start_driver
set_to --machine generation-mic 3 function-mic 2
expect "a driver without a service" 3 \
  $'\nservice +has not connected yet: the driver started [0-7] s ago\nmachine +generation 8, function 0; microphone generation 3, function 2\ngates +beamforming, mode threads\nchain +beamforming, once the service runs\n' \
  '^$' status --socket "$socket"
expect "the same as JSON" 3 '"health": "no service",.*"mode_threads": true.*"service": null,' '^$' status --json --socket "$socket"
stream='"state":"ePhysicalStreaming","endpoint":"mic","streams":1,"underruns":0,"overruns":0,"feedback":0,"fill_mean_ms":20,"fill_min_ms":10'
chain='"blocks":0,"silenced":0,"unenhanced":0,"chain_latency_ms":12.5,"execute_mean_us":0,"execute_max_us":0,"load":0'
report() { # DRIVER_READY TROUBLE [PAUSE]
  echo '{"version":5,"generation":8,"function":0,"generation_mic":3,"function_mic":2,"chain":"beamforming","driver_ready":'"$1"',"pause":"'"${3:-none}"'","meeting_mode":0,"room_correction":false,"headphones":false,"auto_mute":false,"capture":{'"$stream,$chain"',"endpoints":["mic"]},"render":{'"$stream"',"endpoints":[]},"trouble":"'"$2"'","last_trouble":"an earlier one","last_trouble_ms":0}'
}
publish() { # REPORT; until withdraw
  coproc "$python" "$publish" "$socket"
  helper=$COPROC_PID out=${COPROC[1]}
  local error
  echo "$1" >&"$out"
  read -r error <&"${COPROC[0]}"
  [[ $error == 0 ]] || echo "the driver takes no report: $error"
}
withdraw() {
  exec {out}>&-
  wait "$helper"
}
with_report() { # REPORT NAME EXIT_CODE OUTPUT_PATTERN [OPTION]
  publish "$1"
  expect "$2" "$3" "$4" '^$' status --socket "$socket" ${5:+"$5"}
  withdraw
}
with_report "$(report true '')" "a healthy machine" 0 $'\nservice +runs\n.*\nchain +beamforming\n.*\ntrouble +none\nlast trouble +an earlier one, [0-9]+ s ago$'
with_report "$(report true '')" "a healthy machine as JSON" 0 '"health": "healthy",.*"chain": "beamforming",' --json
with_report "$(report false '')" "a service that is not ready" 4 $'\nservice +runs, but is not ready with the driver\n'
with_report "$(report true '' locked)" "a service that waits for its session" 0 $'\nservice +waits until the session is unlocked\n'
with_report "$(report true "there is no microphone")" "a service in trouble" 4 $'\ntrouble +there is no microphone\n'
with_report '{"version":1}' "a report of another version" 4 $'\nservice +runs, but its report can\'t be relied on: it is of version 1, '
with_report 'hello' "a report that is none" 4 $'\nservice +runs, but its report can\'t be relied on: it is no JSON object\n'
publish "$(report true '')"
set_here "an endpoint that is there" 0 '^$' capture-endpoint mic
set_here "an endpoint that is not there" 0 "^warning: there is no endpoint 'nothere' at present; capture-endpoint is set to it all the same\$" capture-endpoint nothere
set_all_the_same() { [[ $(value capture-endpoint) == nothere ]]; }
check "that it is set" set_all_the_same
set_here "the default endpoint" 0 '^$' capture-endpoint default
set_here "an endpoint of a direction that the service tells nothing of" 0 '^$' render-endpoint nothere
withdraw
set_here "an endpoint without a service" 0 '^$' capture-endpoint nothere
expect "a service that went" 3 $'\nservice +(does not run; |has not connected yet: )' '^$' status --socket "$socket"
nobody_gets_the_status() { ! "$sonivo" status --socket "$socket" >/dev/full 2>.errors && says 'cannot write the table to standard output; '; }
check "a status that nobody gets" nobody_gets_the_status

kill -STOP "$driver"
expect "a driver that hangs" 1 '^$' "^error: the driver at '$socket' has not answered for 2 s; restart it: " status --socket "$socket"
kill -CONT "$driver"
stop_driver
driver=

totals
