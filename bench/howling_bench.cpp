// Howling canceller alone: one 240-sample frame of 24-bit working samples at
// 48 kHz, in place. Two loads: a voice-like signal with nothing to notch
// (DC blocker, analysis and gain only), and the same voice with whistles at
// five frequencies in turn, so that all five notches run. "x_realtime" is audio seconds
// processed per CPU second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/howling_canceling.h"

namespace {

constexpr int kFrame = 240;
constexpr int kRate = 48000;

// Three seconds of a sung vowel (harmonics of 220 Hz with vibrato and a
// syllable envelope, about -40 dBFS), plus, when asked, whistles at -26 dBFS
// at five frequencies in turn.
std::vector<int> make_input(bool whistles) {
  std::vector<int> v(3 * kRate);
  double phase = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    const double t = static_cast<double>(i) / kRate;
    phase += 2 * std::numbers::pi * 220.0 * (1.0 + 0.012 * std::sin(2 * std::numbers::pi * 5.5 * t)) / kRate;
    double s = 0;
    for (int h = 1; h <= 12; ++h) s += std::sin(h * phase) / h;
    s *= 0.02 * (0.5 + 0.5 * std::sin(2 * std::numbers::pi * 3.0 * t));
    if (whistles) {
      // One whistle at a time, each for 250 ms, in turn: every one recurs
      // well within the notches' hold time, so all five stay locked.
      static constexpr double kWhistles[5] = {730.0, 1310.0, 2200.0, 3470.0, 5150.0};
      s += 0.1 * std::sin(2 * std::numbers::pi * kWhistles[(i / (kRate / 4)) % 5] * t);
    }
    v[i] = static_cast<int>(std::lround(s * 8388607.0 * 0.5));
  }
  return v;
}

void BM_HowlingCanceller(benchmark::State& state) {
  const bool whistles = state.range(0) != 0;
  const std::vector<int> input = make_input(whistles);
  howlingCancel h{};
  howling_canceling_init(&h);
  howling_canceling_setstatus(&h, 1);
  std::vector<int> frame(kFrame);
  size_t pos = 0;
  // Settle first, so that the notches are in place for the loaded case.
  for (size_t s = 0; s + kFrame <= input.size() * 2 / 3; s += kFrame) {
    std::copy(input.begin() + static_cast<long>(s), input.begin() + static_cast<long>(s + kFrame), frame.begin());
    howling_canceling_process(&h, frame.data(), frame.data(), kFrame);
  }
  int engaged = 0;
  for (int i = 0; i < HOWLING_NOTCHES; ++i) {
    int st = 0, c = 0;
    howling_canceling_getnotch(&h, i, &st, &c);
    engaged += st == HOWLING_LOCKED;
  }
  for (auto _ : state) {
    std::copy(input.begin() + static_cast<long>(pos), input.begin() + static_cast<long>(pos + kFrame), frame.begin());
    howling_canceling_process(&h, frame.data(), frame.data(), kFrame);
    benchmark::DoNotOptimize(frame.data());
    pos += kFrame;
    if (pos + kFrame > input.size()) pos = input.size() / 2;
  }
  kafx_bench::set_realtime_counter(state, kFrame, kRate);
  state.counters["notches"] = engaged;
  howling_canceling_end(&h);
}

}  // namespace

BENCHMARK(BM_HowlingCanceller)->Arg(0)->Arg(1)->ArgName("whistles");
