// Graphic equalizer alone: 48 kHz stereo, 240-frame blocks, all ten bands
// away from 0 dB (built-in 48 kHz table). "x_realtime" is audio seconds
// processed per CPU second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "kafx_proc/equalizer.h"

namespace {

constexpr int kRate = 48000;
constexpr int kBlock = 240;

void BM_GraphicEq_10Bands_Stereo48k(benchmark::State& state) {
  equalizer_t eq{};
  equalizer_init(&eq);
  const int indices[EQUALIZER_BANDS] = {6, -4, 3, -2, 5, -6, 4, -3, 2, 7};
  equalizer_set_param_index(&eq, indices, SAMPLE_RATE_48000);
  // One second of a two-tone working signal at about -12 dBFS per channel.
  std::vector<int> src_l(kRate), src_r(kRate);
  for (int i = 0; i < kRate; ++i) {
    const double t = 2 * std::numbers::pi * i / kRate;
    src_l[i] = static_cast<int>(1500000 * (std::sin(100 * t) + std::sin(3100 * t)));
    src_r[i] = static_cast<int>(1500000 * (std::sin(250 * t) + std::sin(7000 * t)));
  }
  std::vector<int> l(kBlock), r(kBlock);
  int pos = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBlock; ++i) l[i] = src_l[pos + i], r[i] = src_r[pos + i];
    equalizer_process_stereo(&eq, l.data(), r.data(), l.data(), r.data(), kBlock);
    benchmark::DoNotOptimize(l.data());
    benchmark::DoNotOptimize(r.data());
    pos = pos + 2 * kBlock > kRate ? 0 : pos + kBlock;
  }
  state.counters["x_realtime"] =
      benchmark::Counter(static_cast<double>(kBlock) / kRate, benchmark::Counter::kIsIterationInvariantRate);
  equalizer_end(&eq);
}
BENCHMARK(BM_GraphicEq_10Bands_Stereo48k);

// The left cascade alone, as the karaoke chain runs it on its mono voice.
void BM_GraphicEq_10Bands_Mono48k(benchmark::State& state) {
  equalizer_t eq{};
  equalizer_init(&eq);
  const int indices[EQUALIZER_BANDS] = {6, -4, 3, -2, 5, -6, 4, -3, 2, 7};
  equalizer_set_param_index(&eq, indices, SAMPLE_RATE_48000);
  std::vector<int> src(kRate);
  for (int i = 0; i < kRate; ++i) {
    const double t = 2 * std::numbers::pi * i / kRate;
    src[i] = static_cast<int>(1500000 * (std::sin(100 * t) + std::sin(3100 * t)));
  }
  std::vector<int> m(kBlock);
  int pos = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBlock; ++i) m[i] = src[pos + i];
    equalizer_process_mono(&eq, m.data(), m.data(), kBlock);
    benchmark::DoNotOptimize(m.data());
    pos = pos + 2 * kBlock > kRate ? 0 : pos + kBlock;
  }
  state.counters["x_realtime"] =
      benchmark::Counter(static_cast<double>(kBlock) / kRate, benchmark::Counter::kIsIterationInvariantRate);
  equalizer_end(&eq);
}
BENCHMARK(BM_GraphicEq_10Bands_Mono48k);

}  // namespace
