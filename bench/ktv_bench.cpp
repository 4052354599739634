// Karaoke product benchmarks: one 240-sample frame of mono 16-bit voice at
// 48 kHz through the front end with every block on (howling canceller,
// gramophone, equalizer, reverb, echo, compressor), and with one block on
// at a time to show where the time goes. "x_realtime" is audio seconds
// processed per CPU second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/ktv.h"

namespace {

constexpr int kFrame = KAFX_KTV_FRAME;  // 240 samples, 5 ms
constexpr int kRate = 48000;

// One second of a sung voice with a steady whistle in its second half (so
// the canceller has peaks to track): harmonics with vibrato, syllable
// envelopes, a little noise. Fixed seed.
std::vector<short> make_voice() {
  std::vector<short> v(kRate);
  uint32_t seed = 0xb0bu;
  double phase = 0;
  for (int i = 0; i < kRate; ++i) {
    const double t = static_cast<double>(i) / kRate;
    phase += 2 * std::numbers::pi * 220.0 * (1.0 + 0.012 * std::sin(2 * std::numbers::pi * 5.5 * t)) / kRate;
    seed = seed * 1664525u + 1013904223u;
    const double env = 0.5 + 0.5 * std::sin(2 * std::numbers::pi * 3.0 * t);
    double s = 0;
    for (int h = 1; h <= 12; ++h) s += std::sin(h * phase) / h;
    s = 0.35 * env * s + 0.01 * (static_cast<double>(seed >> 8) / 8388608.0 - 1.0);
    if (i >= kRate / 2) s += 0.2 * std::sin(2 * std::numbers::pi * 2200.0 * t);
    v[static_cast<size_t>(i)] = static_cast<short>(std::lround(s * 32767.0 * 0.8));
  }
  return v;
}

enum Block { kAll = 0, kHowling, kGramophone, kEqualizer, kReverb, kEcho, kCompressor, kNone };

void configure(void* h, int which) {
  auto on = [which](int b) { return which == kAll || which == b; };
  kafx_ktv_hw_howling_canceling_enable(h, on(kHowling));
  kafx_ktv_gramophone_enable(h, on(kGramophone));
  int eq[10] = {4, 2, 0, -2, 3, 5, -3, 2, 1, -4};
  kafx_ktv_eq_setparameter(h, eq);
  kafx_ktv_eq_enable(h, on(kEqualizer));
  kafx_ktv_reverb_setroomsize(h, 6000);
  kafx_ktv_reverb_setdamp(h, 3000);
  kafx_ktv_reverb_setwet(h, 4000);
  kafx_ktv_reverb_setwidth(h, 8192);
  kafx_ktv_reverb_enable(h, on(kReverb));
  kafx_ktv_iirecho_setdelay(h, 120);
  kafx_ktv_iirecho_setfeedback(h, 5000);
  kafx_ktv_iirecho_enable(h, on(kEcho));
  kafx_ktv_compressor_enable(h, on(kCompressor));
  kafx_ktv_set_voice_gain(h, 12000);
}

void BM_KtvFrontEnd(benchmark::State& state) {
  // Made once for all the runs (its sines are not part of what is timed).
  static const std::vector<short> material = make_voice();
  kafx_bench::BlockLoop<short> voice(material);
  void* h = kafx_ktv_init();
  configure(h, static_cast<int>(state.range(0)));
  std::vector<short> in(kFrame), left(kFrame), right(kFrame);
  for (auto _ : state) {
    voice.next(in.data(), in.size());
    kafx_ktv_process_16(h, in.data(), left.data(), right.data(), kFrame);
    benchmark::DoNotOptimize(left.data());
    benchmark::DoNotOptimize(right.data());
  }
  kafx_ktv_deinit(h);
  kafx_bench::set_realtime_counter(state, kFrame, kRate);
}

}  // namespace

BENCHMARK(BM_KtvFrontEnd)
    ->ArgName("block")  // 0 every block, 1 howling, 2 gramophone, 3 equalizer, 4 reverb, 5 echo, 6 compressor, 7 none
    ->DenseRange(kAll, kNone);
