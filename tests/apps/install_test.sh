#!/usr/bin/env bash
# Installs the programs into folders of its own, and lets the installed ones do something.
# Usage: install_test.sh CMAKE BUILD_FOLDER
set -euo pipefail

cmake=$1
build=$(realpath "$2")
folder=$(mktemp -d)
driver=
trap '[[ -z $driver ]] || kill -KILL "$driver" 2>/dev/null; rm -rf "$folder"' EXIT
cd "$folder"

fail() {
  echo "error: $*" >&2
  exit 1
}
has() { [[ -f $1 ]] || fail "$1 is missing"; }

DESTDIR=$folder/package "$cmake" --install "$build" --prefix /opt/sonivo >/dev/null
units=package/opt/sonivo/lib/systemd/user
for unit in NorvellSonivoDriver.socket NorvellSonivoDriver.service NorvellSonivoService.service; do
  has "$units/$unit"
  ! grep -E '@[A-Z_]+@|package' "$units/$unit" || fail "$unit is not filled in"
done
grep -qx 'ExecStart=/opt/sonivo/bin/NorvellSonivoDriver' "$units/NorvellSonivoDriver.service" || fail "the driver's unit names another program"
grep -qx 'ExecStart=/opt/sonivo/bin/NorvellSonivoService' "$units/NorvellSonivoService.service" || fail "the service's unit names another program"
keys() { # UNIT LINES...
  local unit=$1 line
  shift
  for line; do grep -qxF "$line" "$units/$unit" || fail "$unit is without $line"; done
}
keys NorvellSonivoDriver.socket '[Socket]' ListenSequentialPacket=%t/sonivo/driver.sock SocketMode=0600 DirectoryMode=0700 \
  RemoveOnStop=yes ConditionUser=!@system WantedBy=sockets.target
keys NorvellSonivoDriver.service Type=notify Requires=NorvellSonivoDriver.socket After=NorvellSonivoDriver.socket \
  WatchdogSec=60 Restart=on-failure UMask=0077 LimitCORE=0 NoNewPrivileges=yes RestrictAddressFamilies=AF_UNIX \
  'ReadWritePaths=%h %t' Also=NorvellSonivoDriver.socket
keys NorvellSonivoService.service Type=notify "Wants=NorvellSonivoDriver.socket pipewire.service" "After=NorvellSonivoDriver.socket NorvellSonivoDriver.service pipewire.service wireplumber.service" \
  ConditionUser=!@system WatchdogSec=30 Restart=on-failure UMask=0077 LimitCORE=0 NoNewPrivileges=yes WantedBy=default.target
# A restart that comes too often is given up on; what RestartSec allows is not too often.
for unit in NorvellSonivoDriver.service NorvellSonivoService.service; do
  number() { sed -n "s/^$1=//p" "$units/$unit"; }
  (($(number RestartSec) * $(number StartLimitBurst) > $(number StartLimitIntervalSec))) || fail "$unit is given up on"
done
[[ $(ls -A package/opt) == sonivo ]] || fail "something is installed elsewhere"

prefix=$folder/installed
"$cmake" --install "$build" --prefix "$prefix" >/dev/null
grep -qx "ExecStart=$prefix/bin/NorvellSonivoDriver" "$prefix/lib/systemd/user/NorvellSonivoDriver.service" || fail "the units of the former prefix are installed"
if command -v systemd-analyze >/dev/null; then
  verdict=$(XDG_RUNTIME_DIR=$folder systemd-analyze --user verify "$prefix"/lib/systemd/user/NorvellSonivo* 2>&1) || fail "the units are refused: $verdict"
  [[ -z $verdict ]] || fail "the units are warned of: $verdict"
fi
[[ $(ls -A "$prefix") == $'bin\nlib\nshare' ]] || fail "the prefix holds $(ls -A "$prefix")"
[[ $(ls -A "$prefix/bin") == $'NorvellSonivoDriver\nNorvellSonivoService\nsonivo' ]] || fail "bin holds $(ls -A "$prefix/bin")"
for file in par/keycancel.bin par/beamforming.bin par/keycancel.par par/beam1_mic1.f64 microphones; do has "$prefix/share/sonivo/$file"; done
[[ $(ls "$prefix/share/sonivo/models" | wc -l) -eq 9 ]] || fail "there are not nine models"
for file in README.md docs/driver.md docs/relay.svg; do has "$prefix/share/doc/sonivo/$file"; done

# The installed programs find each other, and what belongs to them.
export XDG_RUNTIME_DIR=$folder/run XDG_STATE_HOME=$folder/state
mkdir -m 700 run
"$prefix/bin/NorvellSonivoDriver" &
driver=$!
for _ in $(seq 1000); do
  if "$prefix/bin/sonivo" settings get generation >told 2>/dev/null; then break; fi
  sleep 0.01
done
[[ $(cat told) == 8 ]] || fail "the installed driver tells '$(cat told)'"
[[ -S run/sonivo/driver.sock ]] || fail "there is no socket"
kill "$driver"
wait "$driver" || fail "the installed driver ends with $?"
driver=
"$prefix/bin/sonivo" model info "$prefix/share/sonivo/models/model_se_streaming_RTF0.10_v2.bin" >/dev/null
echo "passed"
