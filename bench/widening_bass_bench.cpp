// Stereo widening system and virtual bass system alone: 24-bit working
// samples, 48 kHz stereo, 240-frame blocks, with the headphone chain's preset
// settings (widening: side 4096, crossfeed 4096, reflector dry 6656, wet 1536,
// room 7168, damp 4096; virtual bass: clip level 8192, harmonics 4096, bass
// 6144, highs 8192). The widening system's three stages are also timed one
// by one. The "x_realtime" counter is audio seconds processed per CPU second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <utility>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/stereo_widening_system.h"
#include "kafx_proc/virtual_bass_system.h"

namespace {

using kafx_bench::BlockLoop;

constexpr int kBlock = 240;
constexpr int kRate = 48000;

// One second of stereo material with bass, mid tones and noise, fixed seed.
struct Programme {
  BlockLoop<int> left, right;
};

Programme make_programme() {
  std::vector<int> left(kRate), right(kRate);
  uint32_t seed = 0xb0a5u;
  for (int i = 0; i < kRate; ++i) {
    const double tw = 2.0 * std::numbers::pi * i / kRate;
    seed = seed * 1664525u + 1013904223u;
    const double noise = (static_cast<double>(seed >> 8) / 8388608.0 - 1.0) * 0.05;
    const double bass = 0.4 * std::sin(tw * 55.0) + 0.15 * std::sin(tw * 110.0);
    left[i] = static_cast<int32_t>(7000000 * (bass + 0.2 * std::sin(tw * 440.0) + noise));
    right[i] = static_cast<int32_t>(7000000 * (bass + 0.2 * std::sin(tw * 3520.0) - noise));
  }
  return {BlockLoop<int>(std::move(left)), BlockLoop<int>(std::move(right))};
}

void configure(stereo_widening_system* s) {
  stereo_widening_system_init(s);
  stereo_widening_system_set_sample_rate(s, SAMPLE_RATE_48000);
  stereo_widening_system_dc_set_side_gain(s, 4096);
  stereo_widening_system_cfn_set_gain(s, 4096);
  stereo_widening_system_er_set_dry_gain(s, 6656);
  stereo_widening_system_er_set_wet_gain(s, 1536);
  stereo_widening_system_er_set_roomsize(s, 7168);
  stereo_widening_system_er_set_damp(s, 4096);
  s->status = 1;
}

// stage: 0 the whole system, 1 difference circuit, 2 crossfeed, 3 reflector.
void BM_StereoWidening(benchmark::State& state) {
  const int stage = static_cast<int>(state.range(0));
  stereo_widening_system s;
  configure(&s);
  Programme p = make_programme();
  kafx_bench::time_stereo_blocks(state, p.left, p.right, kBlock, kRate, [&](int* l, int* r, int n) {
    switch (stage) {
      case 1: difference_circuit_process_block(s.dc, l, r, l, r, n); break;
      case 2: crossfeed_network_process_block(s.cfn, l, r, l, r, n); break;
      case 3: early_reflector_process_block(s.er, l, r, l, r, n); break;
      default: stereo_widening_system_process(&s, l, r, l, r, n); break;
    }
  });
  stereo_widening_system_end(&s);
}
BENCHMARK(BM_StereoWidening)->ArgName("stage")->Arg(0)->Arg(1)->Arg(2)->Arg(3);

void BM_VirtualBass(benchmark::State& state) {
  virtual_bass_system v;
  virtual_bass_system_init(&v);
  virtual_bass_system_set_sample_rate(&v, SAMPLE_RATE_48000);
  virtual_bass_system_set_nld_clip_level(&v, 8192);
  v.harmonic_gain = 4096;
  v.bass_gain = 6144;
  v.high_gain = 8192;
  v.status = 1;
  Programme p = make_programme();
  kafx_bench::time_stereo_blocks(state, p.left, p.right, kBlock, kRate, [&](int* l, int* r, int n) {
    virtual_bass_system_process(&v, l, r, l, r, n);
  });
  virtual_bass_system_end(&v);
}
BENCHMARK(BM_VirtualBass);

}  // namespace
