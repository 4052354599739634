// Reverb alone: the 24-bit stereo path on 240-frame blocks at 48 kHz (room
// 0.875, damp 0.5, wet 0.75, dry 0.5, full width, default input gain; the
// cost does not depend on the settings), and the 16-bit stereo and mono
// paths.
// The "x_realtime" counter is audio seconds processed per CPU second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "bench_signal.h"
#include "kafx_proc/reverb.h"

namespace {

using kafx_bench::BlockLoop;

constexpr int kBlock = 240;
constexpr int kRate = 48000;

void configure(reverb_t* r) {
  reverb_init(r);
  reverb_setroomsize(r, 7168);
  reverb_setdamp(r, 4096);
  reverb_setwet(r, 6144);
  reverb_setdry(r, 4096);
  reverb_setwidth(r, 8192);
  reverb_update(r);
  reverb_setstatus(r, 1);
}

// One second of busy material (a pseudo-random walk with steps), fixed seed,
// starting `by` frames in (the right channel is the same material 977 frames
// later).
template <class T>
BlockLoop<T> programme(int scale_shift, size_t by) {
  std::vector<int32_t> walk(kRate);
  uint32_t seed = 0x1234567u;
  int32_t level = 0;
  for (int32_t& x : walk) {
    seed = seed * 1664525u + 1013904223u;
    level = (level * 7) / 8 + static_cast<int32_t>(seed >> 12) - (1 << 19);
    x = level >> scale_shift;
  }
  std::vector<T> v(walk.size());
  for (size_t i = 0; i < walk.size(); ++i) v[i] = static_cast<T>(walk[(i + by) % walk.size()]);
  return BlockLoop<T>(std::move(v));
}

void BM_ReverbStereo24(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  BlockLoop<int32_t> left = programme<int32_t>(0, 0), right = programme<int32_t>(0, 977);
  kafx_bench::time_stereo_blocks(state, left, right, kBlock, kRate, [&](int32_t* l, int32_t* rr, int n) {
    reverb_process_stereo_24(&r, l, rr, l, rr, n);
  });
  reverb_end(&r);
}

void BM_ReverbStereo16(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  BlockLoop<short> left = programme<short>(8, 0), right = programme<short>(8, 977);
  kafx_bench::time_stereo_blocks(state, left, right, kBlock, kRate, [&](short* l, short* rr, int n) {
    reverb_process_stereo_16(&r, l, rr, l, rr, n);
  });
  reverb_end(&r);
}

void BM_ReverbMono(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  BlockLoop<short> mono = programme<short>(8, 0);
  kafx_bench::time_mono_blocks(state, mono, kBlock, kRate, [&](short* m, int n) { reverb_processMono(&r, m, m, n); });
  reverb_end(&r);
}

}  // namespace

BENCHMARK(BM_ReverbStereo24);
BENCHMARK(BM_ReverbStereo16);
BENCHMARK(BM_ReverbMono);
