// Programme material and the block-timing loop shared by the benchmarks.
#ifndef KAFX_BENCH_BENCH_SIGNAL_H
#define KAFX_BENCH_BENCH_SIGNAL_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <utility>
#include <vector>

namespace kafx_bench {

// The "x_realtime" counter: audio seconds processed per CPU second, for
// `frames` frames at `rate` Hz per iteration.
inline void set_realtime_counter(benchmark::State& state, int frames, int rate) {
  state.counters["x_realtime"] =
      benchmark::Counter(static_cast<double>(frames) / rate, benchmark::Counter::kIsIterationInvariantRate);
}

// Material handed out block after block, from the start again after its end.
// Blocks are copied out, as a host fills a fresh buffer every call.
template <class T>
class BlockLoop {
 public:
  explicit BlockLoop(std::vector<T> material) : v_(std::move(material)) {}
  void next(T* dst, size_t n) {
    for (size_t done = 0; done < n;) {
      const size_t m = std::min(n - done, v_.size() - at_);
      std::copy_n(v_.begin() + static_cast<std::ptrdiff_t>(at_), m, dst + done);
      done += m;
      at_ = (at_ + m) % v_.size();
    }
  }

 private:
  std::vector<T> v_;
  size_t at_ = 0;
};

// Times process(left, right, frames) in place on successive stereo blocks of
// the two loops, then sets x_realtime.
template <class T, class Process>
void time_stereo_blocks(benchmark::State& state, BlockLoop<T>& left, BlockLoop<T>& right, int frames, int rate,
                        Process process) {
  std::vector<T> l(static_cast<size_t>(frames)), r(static_cast<size_t>(frames));
  for (auto _ : state) {
    left.next(l.data(), l.size());
    right.next(r.data(), r.size());
    process(l.data(), r.data(), frames);
    benchmark::DoNotOptimize(l.data());
    benchmark::DoNotOptimize(r.data());
  }
  set_realtime_counter(state, frames, rate);
}

// The same for one channel: process(samples, frames) in place.
template <class T, class Process>
void time_mono_blocks(benchmark::State& state, BlockLoop<T>& mono, int frames, int rate, Process process) {
  std::vector<T> m(static_cast<size_t>(frames));
  for (auto _ : state) {
    mono.next(m.data(), m.size());
    process(m.data(), frames);
    benchmark::DoNotOptimize(m.data());
  }
  set_realtime_counter(state, frames, rate);
}

// One second of loud, busy stereo 16-bit material (interleaved): tones with
// harmonics, a bass note and noise, so that limiters and equalizers do real
// work. Fixed seed.
inline std::vector<int16_t> make_programme(int rate) {
  std::vector<int16_t> out(2 * static_cast<size_t>(rate));
  uint32_t seed = 0x5eedu;
  for (int i = 0; i < rate; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double tw = 2.0 * std::numbers::pi * t;
    seed = seed * 1664525u + 1013904223u;
    const double noise = (static_cast<double>(seed >> 8) / 8388608.0 - 1.0) * 0.05;
    const double bass = 0.4 * std::sin(tw * 55.0) + 0.15 * std::sin(tw * 110.0);
    const double tones = 0.15 * (std::sin(tw * 440.0) + 0.5 * std::sin(tw * 880.0) + 0.3 * std::sin(tw * 3520.0));
    const double l = bass + tones + noise;
    const double r = bass + 0.8 * tones - noise + 0.1 * std::sin(tw * 6000.0);
    out[2 * static_cast<size_t>(i)] = static_cast<int16_t>(std::lround(l * 30000.0));
    out[2 * static_cast<size_t>(i) + 1] = static_cast<int16_t>(std::lround(r * 30000.0));
  }
  return out;
}

}  // namespace kafx_bench

#endif
