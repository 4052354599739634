#!/usr/bin/env bash
# The kafx tool's outputs on a fixed set of inputs, by SHA-256, against
# tests/golden/tool_outputs.sha256: the same hashes on every platform
# (x86-64 natively, armhf under qemu-user), so a port that changes one bit of
# the product's output is caught.
#   check_tool_outputs.sh TOOL [EMULATOR...]           compare
#   KAFX_GOLDEN_UPDATE=1 check_tool_outputs.sh TOOL    rewrite the hash file
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
tool=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# The configuration is read from a copy in the scratch folder by a relative
# name: the report names the file, and must not depend on where the source
# tree lies.
cp "$root/examples/speaker.xml" speaker.xml
x=speaker.xml
k=("$@" "$tool")
# The built-in 6 s excerpt (written as default_in.wav), then the example
# tuning in each host format, with block sizes that split the 240-frame
# blocks differently; mono; the parameter strings; the configuration report
# and the design compiler.
"${k[@]}" speaker out_plain.wav >/dev/null
"${k[@]}" speaker --config "$x" default_in.wav out_16.wav >/dev/null
"${k[@]}" speaker --config "$x" --format 24 --block 97 default_in.wav out_24.wav >/dev/null
"${k[@]}" speaker --config "$x" --format 32 --block 1000 default_in.wav out_32.wav >/dev/null
sbs="1,16384,8192,0,1$(for i in $(seq 1 40); do printf ',%d' $((i * 97 % 23)); done)"
"${k[@]}" speaker --sbs "$sbs" default_in.wav out_sbs.wav >/dev/null
"${k[@]}" speaker-config "$x" >config_report.txt
"${k[@]}" speaker-design "$root/examples/speaker_design.txt" -o design.xml >/dev/null
files=(default_in.wav out_plain.wav out_16.wav out_24.wav out_32.wav out_sbs.wav config_report.txt design.xml)
if [ "${KAFX_GOLDEN_UPDATE:-0}" = "1" ]; then
  sha256sum "${files[@]}" >"$here/tool_outputs.sha256"
  echo "wrote $here/tool_outputs.sha256"
  exit 0
fi
sha256sum -c "$here/tool_outputs.sha256"
