#!/usr/bin/env bash
# The main job: builds the kafx tool and runs the speaker product over the
# built-in excerpt (or over the WAV file given as first argument).
#   scripts/run.sh                  -> out/default_in.wav, out/speaker_out.wav
#   scripts/run.sh IN.wav [OUT.wav] -> OUT.wav (default out/speaker_out.wav)
# examples/speaker.xml, when present, is loaded as the speaker configuration.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs" --target kafx
mkdir -p out
args=()
[ -f examples/speaker.xml ] && args+=(--config examples/speaker.xml)
if [ $# -ge 1 ]; then
  ./build/tools/kafx speaker "${args[@]}" "$1" "${2:-out/speaker_out.wav}"
else
  ./build/tools/kafx speaker "${args[@]}" out/speaker_out.wav
fi
