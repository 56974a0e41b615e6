#!/usr/bin/env bash
# Drives `sonivo nn`: results, exit codes, messages, and that nothing is left behind.
# Usage: nn_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

network() { # LAYERS LINKS
  printf '<NN magic="MerNNpar" ninput="2" noutput="2"><layers>%s</layers><links>%s</links></NN>' "$1" "$2"
}
link() { printf '<link from_id="%s" to_id="%s"/>' "$1" "$2"; }
# y = (x0 + 2 x1 + 10, x1 - 1), then what is below 0 doubled
dense='<layer type="FullyConnected" id="dense"><weight>1 2
0 1</weight><bias>10 -1</bias></layer>'
bend='<layer type="PReLU" id="bend" a="2"/>'
network "$dense$bend" "$(link _input dense)$(link dense bend)$(link bend _output)" >net.xml
network "$dense$bend" "$(link _input dense)$(link dense bend)$(link bend dense)$(link bend _output)" >loop.xml
network "$dense$bend" "$(link _input dense)$(link dense bend)" >endless.xml
network '<layer type="Magic" id="m"/>' "$(link _input m)$(link m _output)" >magic.xml
printf '<NN magic="MerNNpar"' >broken.xml
network "${dense/<weight>*<\/weight>/<weight ref=\"-\"\/>}$bend" "$(link _input dense)$(link dense bend)$(link bend _output)" >piped.xml
sed 's/ref="-"/ref="\/dev\/zero"/' piped.xml >zeros.xml
sed 's/ref="-"/ref="folder"/' piped.xml >of_folder.xml
printf '1\t0\t-1\t4\t0\n0\t1\t2\t0\t-3\n' >x.tsv
printf '# the same\n\n1,0 -1 4 0\n0 1,2 0,-3\n' >commas.txt
printf '1 2\n3\n' >ragged.tsv
printf '1 2\n' >flat.tsv
: >empty.tsv
mkdir folder
mkfifo pipe

result=y.tsv
run=(nn run net.xml --in x.tsv --out y.tsv)
writes() { # TEXT ARGUMENTS...
  local text=$1
  shift
  rm -f y.tsv
  "$sonivo" "$@" >.output 2>.errors && diff <(printf "$text") y.tsv >.errors
}
whole='11\t12\t13\t14\t4\n-2\t0\t1\t-2\t-8\n'
output_in_one_call() { writes "$whole" "${run[@]}"; }
output_in_chunks() { for n in 1 2 3 5 9; do writes "$whole" "${run[@]}" --chunk "$n" || return; done; }
output_of_a_layer() { writes '11\t12\t13\t14\t4\n-1\t0\t1\t-1\t-4\n' "${run[@]}" --layer dense; }
output_of_the_input() { writes '1\t0\t-1\t4\t0\n0\t1\t2\t0\t-3\n' "${run[@]}" --layer _input; }
output_of_every_third_frame() { writes '11\t11\t11\t14\t14\n-2\t-2\t-2\t-2\t-2\n' "${run[@]}" --skip 3; }
output_of_a_matrix_with_commas() { writes "$whole" nn run net.xml --in commas.txt --out y.tsv; }
check "a matrix through a network, in one call" output_in_one_call
check "a matrix through a network, in chunks" output_in_chunks
check "the output of a layer" output_of_a_layer
check "the output of the input" output_of_the_input
check "one frame of three" output_of_every_third_frame
check "a matrix with commas and comments" output_of_a_matrix_with_commas
rm -f y.tsv

there_and_back() {
  "$sonivo" nn convert net.xml one.nn >.output 2>.errors && "$sonivo" nn convert one.nn two.xml >.output 2>.errors &&
    "$sonivo" nn convert two.xml two.nn >.output 2>.errors && cmp one.nn two.nn >.errors &&
    [[ $(head -c 8 one.nn) == MerNNpar ]]
}
check "a network from XML to binary and back" there_and_back
same_output() { writes "$whole" nn run one.nn --in x.tsv --out y.tsv; }
check "a binary network" same_output
rm -f y.tsv
head -c 60 one.nn >short.nn
{ head -c 24 one.nn && bytes 1 8 && bytes 0 8 && bytes 1 8 && printf d && bytes 14 8 && printf FullyConnected &&
  printf FullyConnected && bytes $((1 << 62)) 8 && bytes 1 8; } >huge.nn
result=out.nn
expect "binary to binary" 0 '^$' '^$' nn convert one.nn out.nn --to bin
expect "XML to XML" 0 '^$' '^$' nn convert net.xml out.nn --to xml
result=
expect "what is in a network" 0 $'layers +2 .*\n  dense +FullyConnected +6 +4\n  bend +PReLU +1 +0\n(.*\n)*evaluated +_input dense bend\nparameters +7\nmultiply-adds +4 per frame\nmemory +120 bytes for a stream in calls of 5 frames$' \
  '^$' nn info net.xml
# Three results (input, dense, bend) of two numbers.
expect "memory of a stream frame by frame" 0 'memory +24 bytes for a stream in calls of 1 frame$' '^$' nn info net.xml --chunk 1
expect "memory of calls that are too large" 0 'memory +unknown: calls are too large to be tried$' '^$' \
  nn info net.xml --chunk 4000000000
{ printf '%5000s\n' '' && cat net.xml; } >late.xml
expect "a document that begins late" 0 'layers +2 ' '^$' nn info late.xml
matrix_from_a_pipe() {
  printf '1 2\n0 1\n' | "$sonivo" nn run piped.xml --in x.tsv --out y.tsv >.output 2>.errors &&
    diff <(printf "$whole") y.tsv >.errors
}
check "a matrix that comes from a pipe" matrix_from_a_pipe
rm -f y.tsv
expect "help" 0 'Example:' '^$' nn --help
for command in run info convert; do expect "help to $command" 0 'Example:' '^$' nn "$command" --help; done

result=y.tsv
expect "no command" 2 '^$' '^error: [^'$'\n'']+$' nn
expect "no output" 2 '^$' '^error: [^'$'\n'']+$' nn run net.xml --in x.tsv
expect "chunks of nothing" 2 '^$' "^error: --chunk takes a whole number of frames from 1 to 4294967295, not '0'\$" "${run[@]}" --chunk 0
expect "a skip that is no number" 2 '^$' "^error: --skip takes a whole number of frames from 1 to 4294967295, not 'x'\$" "${run[@]}" --skip x
expect "a form that is none" 2 '^$' "^error: --to takes bin or xml, not 'json'\$" nn convert net.xml y.tsv --to json
expect "standard input" 2 '^$' "^error: --in must be a file: '-' for standard input is not supported\$" nn run net.xml --in - --out y.tsv
expect "a layer that isn't there" 1 '^$' "^error: 'net.xml' cannot run on 'x.tsv': couldn't find \"gone\" layer\$" "${run[@]}" --layer gone
expect "a matrix of other rows" 1 '^$' \
  "^error: 'net.xml' cannot run on 'flat.tsv': number of dimensions of input data does not accord to the network\$" \
  nn run net.xml --in flat.tsv --out y.tsv
expect "a ragged matrix" 1 '^$' "^error: 'ragged.tsv' is no matrix of numbers: Column-size error\$" nn run net.xml --in ragged.tsv --out y.tsv
expect "an empty matrix" 1 '^$' "^error: 'empty.tsv' is no matrix of numbers: Empty matrix \(ncol == 0\)\$" nn run net.xml --in empty.tsv --out y.tsv
expect "more frames than can be" 2 '^$' "^error: --chunk takes a whole number of frames from 1 to 4294967295, not '4294967296'\$" "${run[@]}" --chunk 4294967296
expect "a pipe for a matrix" 1 '^$' "^error: 'pipe' is a pipe or a device; give a matrix\$" nn run net.xml --in pipe --out y.tsv
expect "a device for a matrix" 1 '^$' "^error: '/dev/zero' is a pipe or a device; give a matrix\$" nn run net.xml --in /dev/zero --out y.tsv
expect "no matrix" 1 '^$' "^error: cannot open 'gone.tsv': No such file or directory; " nn run net.xml --in gone.tsv --out y.tsv
expect "a folder for a matrix" 1 '^$' "^error: 'folder' is a folder; give a matrix\$" nn run net.xml --in folder --out y.tsv
expect "a folder for the matrix of a layer" 1 '^$' "^error: 'of_folder.xml' is no network: resource not found: folder\$" nn info of_folder.xml
expect "a network for a matrix" 1 '^$' "^error: 'net.xml' is no matrix of numbers: " nn run net.xml --in net.xml --out y.tsv
expect "a matrix for a network" 1 '^$' "^error: 'x.tsv' is no network: " nn run x.tsv --in x.tsv --out y.tsv
expect "no network" 1 '^$' "^error: cannot open 'gone.nn': No such file or directory; " nn info gone.nn
expect "a folder for a network" 1 '^$' "^error: 'folder' is a folder; give a network\$" nn info folder
expect "a pipe for a network" 1 '^$' "^error: 'pipe' is a pipe or a device; give a network\$" nn info pipe
piped() { ! cat net.xml | "$sonivo" nn info /dev/stdin >.output 2>.errors && says "'/dev/stdin' is a pipe or a device; give a network"; }
check "a network from a pipe" piped
expect "a matrix without an end" 1 '^$' "^error: 'zeros.xml' is no network: The text has no end\$" nn info zeros.xml
expect "a truncated network" 1 '^$' "^error: 'short.nn' is no network: Unexpected end of the stream\$" nn info short.nn
expect "a network that claims more than there is" 1 '^$' "^error: 'huge.nn' is no network: Unexpected end of the stream\$" nn info huge.nn
expect "a broken document" 1 '^$' "^error: 'broken.xml' is no network: Failed to parse xml\$" nn info broken.xml
expect "a loop" 1 '^$' "^error: 'loop.xml' is no network: Loop exists in the graph\$" nn info loop.xml
expect "no end" 1 '^$' "^error: 'endless.xml' is no network: Starting or terminal node has not been set\$" nn info endless.xml
expect "an unknown layer" 1 '^$' "^error: 'magic.xml' is no network: Magic is not registered in the builder\$" nn info magic.xml
expect "the input for the output" 1 '^$' "^error: 'x.tsv' is the input itself; " nn run net.xml --in x.tsv --out x.tsv
expect "the network for the output" 1 '^$' "^error: 'net.xml' is the input itself; " nn convert net.xml net.xml
totals
