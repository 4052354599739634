#!/usr/bin/env bash
# The library's speed figures against their targets, as one table per
# compiler, from one run of the benchmark program each (so the figures that
# are compared with each other were measured side by side).
#
#   scripts/bench-report.sh            GCC, and clang when it is installed
#   KAFX_REPORT_COMPILERS=gcc scripts/bench-report.sh    one compiler only
#   KAFX_REPORT_REPS=9 ...             repetitions per benchmark (default 5)
#
# Builds RelWithDebInfo (-O2, like the figures the targets were set with;
# the library's own objects are -O3 there, see cmake/KafxLayers.cmake; the
# published C is Debian's build of it) in build-bench/ (build-bench-clang/),
# runs kafx_bench with repetitions and reports the medians of CPU time. "x real time" is audio seconds processed
# per CPU second on one core; the suppressor's figure is microseconds per
# 10 ms frame; the resampler figure is the published C's time over ours.
#
# The figures move with the machine's load: run it on an idle machine, and
# read a near miss as "about there".
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
command -v jq >/dev/null || { echo "bench-report: needs jq (apt-get install jq)" >&2; exit 1; }

compilers=${KAFX_REPORT_COMPILERS:-gcc clang}
reps=${KAFX_REPORT_REPS:-5}
jobs=${KAFX_JOBS:-$(nproc 2>/dev/null || echo 2)}

filter='BM_SpeakerFrontEnd_AllOn/rate:48000$|BM_ParametricEq_10Bands_Stereo$|BM_GraphicEq_10Bands_Stereo48k$'
filter+='|BM_HpFrontEnd_Preset|BM_ReverbStereo16$|BM_KtvFrontEnd/block:0$|BM_HowlingCanceller/whistles:1$'
filter+='|/ns/.*/(16000|32000)$|/Resample(16khzTo48khz|48khzTo16khz)$'

report() {
  local cc=$1 json=$2
  # median CPU time in ns, and the median x_realtime counter, by name
  local table
  table=$(jq -r '.benchmarks[] | select(.aggregate_name == "median")
      | [.run_name, (if .time_unit == "us" then .cpu_time * 1000 elif .time_unit == "ms" then .cpu_time * 1e6
                     else .cpu_time end), (.x_realtime // 0)] | @tsv' "$json")
  awk -v cc="$cc" -v table="$table" '
    BEGIN {
      n = split(table, lines, "\n")
      for (i = 1; i <= n; ++i) { split(lines[i], f, "\t"); ns[f[1]] = f[2]; xrt[f[1]] = f[3] }
      printf "\n%s, median of CPU time per benchmark\n", cc
      printf "%-48s %12s %12s  %s\n", "figure", "measured", "target", ""
      rt("speaker front end, every block on, 48 kHz", "BM_SpeakerFrontEnd_AllOn/rate:48000", cc == "clang" ? 550 : 350)
      rt("speaker ten-band stereo equalizer", "BM_ParametricEq_10Bands_Stereo", 1000)
      rt("graphic equalizer, ten bands stereo", "BM_GraphicEq_10Bands_Stereo48k", 0)
      rt("headphone preset 1, stereo widening", "BM_HpFrontEnd_Preset1_Widening", 400)
      rt("headphone preset 2, virtual bass", "BM_HpFrontEnd_Preset2_VirtualBass", 400)
      rt("headphone preset 3, parametric eq + volume", "BM_HpFrontEnd_Preset3_SmartVolume", 0)
      rt("headphone preset 4, reverb", "BM_HpFrontEnd_Preset4_Reverb", 400)
      rt("headphone preset 5, graphic equalizer", "BM_HpFrontEnd_Preset5_GraphicEq", 0)
      rt("reverb alone, 16-bit stereo", "BM_ReverbStereo16", 0)
      rt("karaoke chain, every block on", "BM_KtvFrontEnd/block:0", 250)
      rt("howling canceller alone, notches engaged", "BM_HowlingCanceller/whistles:1", 0)
      for (r = 16000; r <= 32000; r += 16000) {
        ours = ns["kafx/ns/ProcessCore/" r]; theirs = ns["webrtc/ns/float/" r]
        if (ours == "" || theirs == "") continue
        lim = theirs / 1000
        if (r == 16000 && lim > 25) lim = 25
        row(sprintf("noise suppressor per frame, %d kHz (float %.1f us)", r / 1000, theirs / 1000),
            sprintf("%.1f us", ours / 1000), sprintf("<= %.1f us", lim), ours / 1000 <= lim)
      }
      ratio("resampler 16 -> 48 kHz against the published C", "Resample16khzTo48khz")
      ratio("resampler 48 -> 16 kHz against the published C", "Resample48khzTo16khz")
    }
    function row(what, got, want, ok) {
      printf "%-48s %12s %12s  %s\n", what, got, want, want == "-" ? "" : (ok ? "met" : "NOT MET")
    }
    function rt(what, name, target) {
      if (!(name in xrt)) return
      row(what, sprintf("%.0fx", xrt[name]), target > 0 ? sprintf(">= %dx", target) : "-", xrt[name] >= target)
    }
    function ratio(what, name,   a, b) {
      a = ns["kafx/" name]; b = ns["webrtc/" name]
      if (a == "" || b == "") return
      row(what, sprintf("%.2fx", b / a), ">= 1.50x", b / a >= 1.5)
    }'
}

for cc in $compilers; do
  dir=build-bench
  if [ "$cc" = "clang" ]; then
    command -v clang++ >/dev/null || { echo "bench-report: clang not installed, skipped" >&2; continue; }
    dir=build-bench-clang
    export CC=clang CXX=clang++
  else
    export CC=gcc CXX=g++
  fi
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKAFX_BUILD_TESTS=OFF -DKAFX_BUILD_TOOLS=OFF \
    -DKAFX_BUILD_BENCH=ON >/dev/null
  cmake --build "$dir" -j "$jobs" --target kafx_bench >/dev/null
  json=$(mktemp)
  "$dir/bench/kafx_bench" --benchmark_filter="$filter" --benchmark_repetitions="$reps" \
    --benchmark_report_aggregates_only=true --benchmark_min_time=0.2 --benchmark_format=json >"$json" 2>/dev/null
  report "$cc" "$json"
  rm -f "$json"
done
