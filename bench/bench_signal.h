// Programme material shared by the product benchmarks.
#ifndef KAFX_BENCH_BENCH_SIGNAL_H
#define KAFX_BENCH_BENCH_SIGNAL_H

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace kafx_bench {

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
