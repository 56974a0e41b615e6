#!/usr/bin/env bash
# Drives `sonivo params`: exit codes, messages, and that nothing is left behind.
# Usage: params_command_test.sh SONIVO
par=$(realpath "$(dirname "$0")/../../share/par")
source "$(dirname "$0")/command_cases.sh"
result=out.bin

mkdir beams && cp "$par"/* beams
cp "$par/keycancel.par" in.par
grep -v '^paramID' in.par >lacking.par
sed 's/^pulse_sup_delay.delay.*/pulse_sup_delay.delay = -1/' in.par >harmful.par
sed 's/^pulse_sup.npm_num.*/pulse_sup.npm_num = 4/' in.par >grouped.par
cp "$par/beamforming.par" lonely.par # its filters are elsewhere
: >empty.par
head -c 100 /dev/zero >short.bin
ln -s in.par link.par
mkfifo pipe.par

expect "a blob of the keycancel chain" 0 '^$' '^$' params build keycancel in.par out.bin
expect "a blob of the beamforming chain" 0 '^$' '^$' params build beamforming beams/beamforming.par out.bin
expect "help" 0 'Example:' '^$' params --help
expect "help to build" 0 'Example:' '^$' params build --help
expect "help to show" 0 'Example:' '^$' params show --help

sizes() {
  "$sonivo" params build keycancel in.par one.bin >.output 2>.errors && [[ $(stat -c %s one.bin) -eq 15808 ]] &&
    "$sonivo" params build beamforming beams/beamforming.par two.bin >.output 2>.errors && [[ $(stat -c %s two.bin) -eq 32636 ]]
}
check "the sizes of blobs" sizes
result=
expect "what is in a blob of the keycancel chain" 0 $'(^|\n)15800  paramID' '^$' params show one.bin
expect "what is in a blob of the beamforming chain" 0 $'(^|\n)32628  paramID' '^$' params show two.bin
result=out.bin

# What the program relies on lies beside it.
own_set() { cmp one.bin "$(dirname "$sonivo")/../share/sonivo/par/keycancel.bin" >.errors; }
check "the set that belongs to the program" own_set

expect "no command" 2 '^$' '^error: [^'$'\n'']+$' params
expect "a kind that is none" 2 '^$' "^error: KIND takes keycancel or beamforming, not 'magic'\$" params build magic in.par out.bin
expect "no blob" 2 '^$' '^error: [^'$'\n'']+$' params build keycancel in.par
expect "a word too many" 2 '^$' '^error: [^'$'\n'']+$' params show one.bin more

expect "a key that is missing" 1 $'^paramID is not include par file\nparametre error$' \
  "^error: 'lacking.par' makes no blob; mend the keys named on standard output\$" params build keycancel lacking.par out.bin
expect "a value that no chain can run on" 1 '^$' "^error: no chain can run on 'harmful.par': pulse_sup_delay is not [^"$'\n'']+$' \
  params build keycancel harmful.par out.bin
expect "a count of groups that ends its block" 1 '^npm_num must be less than NS_NR_MAX_NPM_NUM$' \
  "^error: no chain can run on 'grouped.par': pulse_sup has more than 3 groups, [^"$'\n'']+$' \
  params build keycancel grouped.par out.bin
expect "beam filters that are missing" 1 'can not open [^'$'\n'']*beam0_mic0.f64' \
  "^error: 'lonely.par' makes no blob; [^"$'\n'']+$' params build beamforming lonely.par out.bin
expect "an empty file" 1 'parametre error$' "^error: 'empty.par' makes no blob; " params build keycancel empty.par out.bin
expect "no such file" 1 '^$' "^error: cannot open 'gone.par': No such file or directory; " params build keycancel gone.par out.bin
expect "a folder" 1 '^$' "^error: 'beams' is a folder; give a parameter file\$" params build keycancel beams out.bin
expect "a pipe" 1 '^$' "^error: 'pipe.par' is a pipe or a device; give a parameter file\$" params build keycancel pipe.par out.bin
expect "the same file" 1 '^$' "^error: 'in.par' is the input itself; " params build keycancel in.par in.par
expect "the same file through a link" 1 '^$' "^error: 'link.par' is the input itself; " params build keycancel in.par link.par
beam=beams/beam1_mic0.f64
cp "$beam" before.f64
mkdir piped && cp "$par/beamforming.par" piped && mkfifo piped/beam0_mic0.f64
result= # it is there before
expect "a filter file as output" 1 '^$' "^error: '$beam' is a filter file of the parameters itself; " \
  params build beamforming beams/beamforming.par "$beam"
result=out.bin
filter_is_whole() { cmp "$beam" before.f64 2>.errors; }
check "a filter file after that" filter_is_whole
expect "a filter in a pipe" 1 'can not open piped/beam0_mic0.f64' "^error: 'piped/beamforming.par' makes no blob; " \
  params build beamforming piped/beamforming.par out.bin
expect "a missing output folder" 1 '^$' "^error: cannot create 'gone/out.bin': No such file or directory; " \
  params build keycancel in.par gone/out.bin
expect "a folder as output" 1 '^$' "^error: 'beams' is a folder; " params build keycancel in.par beams
expect "a blob of another size" 1 '^$' \
  "^error: 'short.bin' holds 100 bytes; give a blob of 15808 \(keycancel\) or 32636 \(beamforming\)\$" params show short.bin
expect "a blob that is not there" 1 '^$' "^error: cannot open 'gone.bin': No such file" params show gone.bin

limit=$(ulimit -f)
ulimit -S -f 1
expect "a full disk" 1 '^$' "^error: cannot write 'out.bin': File too large; " params build keycancel in.par out.bin
ulimit -S -f "$limit"

nobody_gets_the_list() {
  ! "$sonivo" params show one.bin >/dev/full 2>.errors && says 'cannot write the table to standard output; '
}
check "a list that nobody gets" nobody_gets_the_list

totals
