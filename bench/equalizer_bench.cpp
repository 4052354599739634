// Graphic equalizer alone: 48 kHz stereo, 240-frame blocks, all ten bands
// away from 0 dB (built-in 48 kHz table). "x_realtime" is audio seconds
// processed per CPU second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/equalizer.h"

namespace {

using kafx_bench::BlockLoop;

constexpr int kRate = 48000;
constexpr int kBlock = 240;

// The equalizer with every band away from 0 dB.
void configure(equalizer_t* eq) {
  equalizer_init(eq);
  const int indices[EQUALIZER_BANDS] = {6, -4, 3, -2, 5, -6, 4, -3, 2, 7};
  equalizer_set_param_index(eq, indices, SAMPLE_RATE_48000);
}

// One second of a two-tone working signal at about -12 dBFS.
BlockLoop<int> two_tones(double f1, double f2) {
  std::vector<int> v(kRate);
  for (int i = 0; i < kRate; ++i) {
    const double t = 2 * std::numbers::pi * i / kRate;
    v[i] = static_cast<int>(1500000 * (std::sin(f1 * t) + std::sin(f2 * t)));
  }
  return BlockLoop<int>(std::move(v));
}

void BM_GraphicEq_10Bands_Stereo48k(benchmark::State& state) {
  equalizer_t eq{};
  configure(&eq);
  BlockLoop<int> left = two_tones(100, 3100), right = two_tones(250, 7000);
  kafx_bench::time_stereo_blocks(state, left, right, kBlock, kRate, [&](int* l, int* r, int n) {
    equalizer_process_stereo(&eq, l, r, l, r, n);
  });
  equalizer_end(&eq);
}
BENCHMARK(BM_GraphicEq_10Bands_Stereo48k);

// The left cascade alone, as the karaoke chain runs it on its mono voice.
void BM_GraphicEq_10Bands_Mono48k(benchmark::State& state) {
  equalizer_t eq{};
  configure(&eq);
  BlockLoop<int> mono = two_tones(100, 3100);
  kafx_bench::time_mono_blocks(state, mono, kBlock, kRate, [&](int* m, int n) { equalizer_process_mono(&eq, m, m, n); });
  equalizer_end(&eq);
}
BENCHMARK(BM_GraphicEq_10Bands_Mono48k);

}  // namespace
