#!/usr/bin/env bash
# Drives `sonivo model`: results, exit codes, messages, and that nothing is left behind.
# Usage: model_command_test.sh SONIVO
source "$(dirname "$0")/command_cases.sh"

link() { printf '<link from_id="%s" to_id="%s"/>' "$1" "$2"; }
network() { # TYPE
  printf '<NN magic="MerNNpar" ninput="1" noutput="2"><layers><layer type="%s" id="d"><weight>1\n0.5</weight><bias>0 0</bias></layer></layers><links>%s%s</links></NN>' \
    "$1" "$(link _input d)" "$(link d _output)"
}
network FullyConnected >net.xml
network Magic >magic.xml
cat >flow.xml <<'EOF'
<flow><node type="AffineTransformNode" id="n"><scale>2 2</scale></node>
<link from_node="_input" from_port="_input" to_node="n" to_port="_input"/>
<link from_node="n" from_port="_output" to_node="_output" to_port="_output"/></flow>
EOF
printf '<flow' >broken.xml
printf 'abcdefgh' >letters
: >empty
mkdir folder

build=(model build se --nn net.xml)
result=out.bin
expect "a model" 0 '^$' '^$' "${build[@]}" out.bin
"$sonivo" "${build[@]}" --flow flow.xml --set frame-length=10 --set is-switching-se=true --set overlap=1 --set overlap=2 m.bin
"$sonivo" "${build[@]}" n.bin
expect "a speaker encoder" 0 '^$' '^$' model build spkenc --nn net.xml out.bin
expect "voice activity" 0 '^$' '^$' model build vad --nn net.xml --set hangover=3 out.bin
result=
expect "what is in a model" 0 $'kind +se .*\nform +binary\nversion +20231004\nsettings +3\n  frame-length=10\n  is-switching-se=true\n  overlap=2\npreprocessor +yes\ninput +1\noutput +2\nlayers +1 ' \
  '^$' model info m.bin
{ printf 'vadx<VAD version="1"><encoder>' && cat net.xml && printf '</encoder><option name="hangover" value="3"/></VAD>'; } >text.bin
expect "what is in a model of the text form" 0 $'kind +vad .*\nform +xml\nversion +1\nsettings +1\n  hangover=3\npreprocessor +no\n' \
  '^$' model info text.bin
{ head -c 4 m.bin && printf '1.5\0\0\0\0\0' && tail -c +13 m.bin; } >older.bin
expect "the version of the file, not of the program" 0 $'form +binary\nversion +1\.5\nsettings +3\n' '^$' model info older.bin
there_and_back() {
  "$sonivo" model unpack m.bin parts >.output 2>.errors && [[ $(ls parts) == $'flow.xml\nnetwork.nn\nsettings.txt' ]] &&
    local settings=() && while read -r line; do settings+=(--set "$line"); done <parts/settings.txt &&
    "$sonivo" model build se --nn parts/network.nn --flow parts/flow.xml "${settings[@]}" again.bin >.output 2>.errors &&
    cmp m.bin again.bin >.errors
}
check "a model taken apart and put together again" there_and_back
into_a_folder() { "$sonivo" model unpack n.bin folder >.output 2>.errors && [[ $(ls folder) == $'network.nn\nsettings.txt' ]]; }
check "a model taken apart into a folder that is there" into_a_folder
over_another() {
  "$sonivo" model unpack m.bin taken >.output 2>.errors && "$sonivo" model unpack n.bin taken >.output 2>.errors &&
    [[ $(ls taken) == $'network.nn\nsettings.txt' ]]
}
check "a model without a flow taken apart over one with a flow" over_another
expect "help" 0 'Example:' '^$' model --help
for command in build info unpack; do expect "help to $command" 0 'Example:' '^$' model "$command" --help; done

mkdir clash
stays() { cmp n.bin "clash/$part" >.errors; }
for part in network.nn flow.xml settings.txt; do
  cp n.bin "clash/$part"
  expect "a model where its own $part would come" 1 '^$' "^error: 'clash/$part' is the input itself; " model unpack "clash/$part" clash
  check "the model that lies at $part" stays
  rm "clash/$part"
done

result=out.bin
expect "no command" 2 '^$' '^error: [^'$'\n'']+$' model
expect "no network" 2 '^$' '^error: [^'$'\n'']+$' model build se out.bin
expect "no kind of model" 2 '^$' '^error: [^'$'\n'']+$' model build asr --nn net.xml out.bin
expect "a setting without a value" 2 '^$' "^error: --set takes NAME=VALUE, not 'overlap'\$" "${build[@]}" --set overlap out.bin
expect "standard output" 2 '^$' "^error: OUT must be a file: '-' for standard output is not supported\$" "${build[@]}" -
expect "a variable that isn't there" 1 '^$' '^error: --set chunk=5: 変数"chunk"は存在しない. in base.cpp [0-9]+$' "${build[@]}" --set chunk=5 out.bin
expect "a value out of its range" 1 '^$' '^error: --set chunk-size=0: 変数"chunk-size"の設定値が有効範囲外. in base.h [0-9]+$' "${build[@]}" --set chunk-size=0 out.bin
expect "a value that is no number" 1 '^$' '^error: --set chunk-size=x: invalid stoi argument$' "${build[@]}" --set chunk-size=x out.bin
expect "a magic that nobody reads" 1 '^$' '^error: these parts make no model: ' "${build[@]}" --set magic-number-bin=abcd out.bin
expect "an unknown layer" 1 '^$' "^error: 'magic.xml' is no network: " model build se --nn magic.xml out.bin
expect "no flow" 1 '^$' "^error: 'broken.xml' is no flow: Failed to parse xml\$" "${build[@]}" --flow broken.xml out.bin
expect "a network that isn't there" 1 '^$' "^error: cannot open 'gone': " model build se --nn gone out.bin
expect "the network for the output" 1 '^$' "^error: 'net.xml' is the input itself; " "${build[@]}" net.xml
expect "no model" 1 '^$' "^error: 'letters' is no model: it begins with the magic of none\$" model info letters
expect "an empty file" 1 '^$' "^error: 'empty' is no model: it begins with the magic of none\$" model info empty
expect "a network" 1 '^$' "^error: 'net.xml' is no model: it is a document in XML\$" model info net.xml
printf 'RIFF and more' >recording.wav
expect "a recording" 1 '^$' "^error: 'recording.wav' is no model: it is a WAV file\$" model info recording.wav
head -c 60 m.bin >short.bin
expect "a truncated model" 1 '^$' "^error: 'short.bin' is no model: モデルの読み込みに失敗した\(error reading stream\)" model info short.bin
expect "a folder for a model" 1 '^$' "^error: 'folder' is a folder; give a model\$" model info folder
expect "a file for the folder" 1 '^$' "^error: cannot create the folder 'letters'; choose another name\$" model unpack n.bin letters
totals
