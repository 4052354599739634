// Reverb alone: the 24-bit stereo path on 240-frame blocks at 48 kHz (room
// 0.875, damp 0.5, wet 0.75, dry 0.5, full width, default input gain; the
// cost does not depend on the settings), and the 16-bit stereo and mono
// paths.
// The "x_realtime" counter is audio seconds processed per CPU second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kafx_proc/reverb.h"

namespace {

constexpr int kBlock = 240;
constexpr int kRate = 48000;

void set_realtime_counter(benchmark::State& state) {
  state.counters["x_realtime"] =
      benchmark::Counter(static_cast<double>(kBlock) / kRate, benchmark::Counter::kIsIterationInvariantRate);
}

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

// One second of busy material (a pseudo-random walk with steps), fixed seed.
std::vector<int32_t> programme(int scale_shift) {
  std::vector<int32_t> v(kRate);
  uint32_t seed = 0x1234567u;
  int32_t level = 0;
  for (int32_t& x : v) {
    seed = seed * 1664525u + 1013904223u;
    level = (level * 7) / 8 + static_cast<int32_t>(seed >> 12) - (1 << 19);
    x = level >> scale_shift;
  }
  return v;
}

// One second is 200 whole blocks; the right channel is the same material
// 977 frames later. Blocks are copied in, so the input stays the same each
// pass.
template <class T>
std::vector<T> rotated(const std::vector<int32_t>& src, size_t by) {
  std::vector<T> v(src.size());
  for (size_t i = 0; i < src.size(); ++i) v[i] = static_cast<T>(src[(i + by) % src.size()]);
  return v;
}

void BM_ReverbStereo24(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  const std::vector<int32_t> src_l = rotated<int32_t>(programme(0), 0), src_r = rotated<int32_t>(programme(0), 977);
  std::vector<int32_t> l(kBlock), rr(kBlock);
  size_t at = 0;
  for (auto _ : state) {
    std::copy_n(&src_l[at], kBlock, l.begin());
    std::copy_n(&src_r[at], kBlock, rr.begin());
    at = (at + kBlock) % src_l.size();
    reverb_process_stereo_24(&r, l.data(), rr.data(), l.data(), rr.data(), kBlock);
    benchmark::DoNotOptimize(l.data());
    benchmark::DoNotOptimize(rr.data());
  }
  set_realtime_counter(state);
  reverb_end(&r);
}

void BM_ReverbStereo16(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  const std::vector<short> src_l = rotated<short>(programme(8), 0), src_r = rotated<short>(programme(8), 977);
  std::vector<short> l(kBlock), rr(kBlock);
  size_t at = 0;
  for (auto _ : state) {
    std::copy_n(&src_l[at], kBlock, l.begin());
    std::copy_n(&src_r[at], kBlock, rr.begin());
    at = (at + kBlock) % src_l.size();
    reverb_process_stereo_16(&r, l.data(), rr.data(), l.data(), rr.data(), kBlock);
    benchmark::DoNotOptimize(l.data());
    benchmark::DoNotOptimize(rr.data());
  }
  set_realtime_counter(state);
  reverb_end(&r);
}

void BM_ReverbMono(benchmark::State& state) {
  reverb_t r;
  configure(&r);
  const std::vector<short> src = rotated<short>(programme(8), 0);
  std::vector<short> m(kBlock);
  size_t at = 0;
  for (auto _ : state) {
    std::copy_n(&src[at], kBlock, m.begin());
    at = (at + kBlock) % src.size();
    reverb_processMono(&r, m.data(), m.data(), kBlock);
    benchmark::DoNotOptimize(m.data());
  }
  set_realtime_counter(state);
  reverb_end(&r);
}

}  // namespace

BENCHMARK(BM_ReverbStereo24);
BENCHMARK(BM_ReverbStereo16);
BENCHMARK(BM_ReverbMono);
