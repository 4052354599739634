#!/usr/bin/env bash
# The main job: builds the kafx tool and runs every product of the library on
# the built-in signals, writing each output WAV into out/, then prints a
# one-screen summary of what was made:
#   speaker with the shipped configuration (examples/speaker.xml),
#   the headphone effect with each of its five presets and with no preset,
#   the karaoke voice chain (reverb and echo) on the built-in sung phrase,
#   the noise suppressor on the built-in excerpt.
# `kafx plot`, where the tool has it, adds the pictures.
#   scripts/run.sh                  -> out/*.wav and the summary
#   scripts/run.sh IN.wav [OUT.wav] -> the speaker product on your own file
#                                      (default OUT: out/speaker_out.wav)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs" --target kafx
kafx=./build/tools/kafx
mkdir -p out
config=()
[ -f examples/speaker.xml ] && config+=(--config examples/speaker.xml)
if [ $# -ge 1 ]; then
  "$kafx" speaker "${config[@]}" "$1" "${2:-out/speaker_out.wav}"
  exit 0
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
summary=()
# run NAME OUTPUT COMMAND...: runs one product; keeps its output level line.
run() {
  local name=$1 output=$2
  shift 2
  if "$@" >"$log" 2>&1; then
    local level
    level=$(sed -n 's/^  output: *//p' "$log" | head -n1)
    summary+=("$(printf '%-38s %-28s %s' "$name" "$output" "$level")")
  else
    summary+=("$(printf '%-38s %-28s FAILED: %s' "$name" "$output" "$(tail -n1 "$log")")")
  fi
}

run "speaker (examples/speaker.xml)" out/speaker_out.wav "$kafx" speaker "${config[@]}" out/speaker_out.wav
presets=(none "stereo widening" "virtual bass" "parametric eq" reverb "graphic eq")
for e in 0 1 2 3 4 5; do
  run "headphone preset $e (${presets[$e]})" "out/headphone_preset$e.wav" \
    "$kafx" headphone --effect "$e" out/default_in.wav "out/headphone_preset$e.wav"
done
run "karaoke (reverb, echo)" out/ktv_out.wav \
  "$kafx" ktv --reverb 6000,3000,4000,6000,8192,300 --echo 120 out/ktv_out.wav
run "noise suppressor (policy 2)" out/ns_out.wav "$kafx" ns --policy 2 out/default_in.wav out/ns_out.wav
pictures=0
if [ -f examples/speaker.xml ] && "$kafx" plot --help >/dev/null 2>&1; then
  "$kafx" plot speaker examples/speaker.xml -o out/speaker_response.png >/dev/null 2>&1 &&
    pictures=$((pictures + 1)) || true
fi

echo
echo "$("$kafx" --version) on the built-in signals"
echo "inputs: out/default_in.wav (6 s stereo 48 kHz excerpt), out/default_voice.wav (sung phrase)"
printf '%-38s %-28s %s\n' product output "output level"
printf '%s\n' "${summary[@]}"
if [ "$pictures" -gt 0 ]; then echo "pictures: out/speaker_response.png (the shipped configuration's response)"; fi
echo "every output has its input's length and alignment (latency removed)"
