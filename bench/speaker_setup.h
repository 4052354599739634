// The speaker front end's "every block on" set-up, shared by the benchmark
// (bench/speaker_bench.cpp) and the ARM estimate's kernel driver
// (bench/arm/arm_kernels.cpp), so that both time the same configuration.
#ifndef KAFX_BENCH_SPEAKER_SETUP_H
#define KAFX_BENCH_SPEAKER_SETUP_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include "kafx_proc/parametric_eq.h"
#include "kafx_proc/speaker_boost.h"

namespace kafx_bench {

// Ten peaking bands (octaves from 31.25 Hz, alternating boost and cut, Q
// 1.2) as Q28 band records: enable, b0, b1, b2 and the added-sign feedback
// a1, a2.
using SpeakerBandSet = std::array<std::array<int, 6>, PARAMETER_EQUALIZER_BANDS>;

inline SpeakerBandSet design_speaker_bands(int rate, double gain_scale) {
  SpeakerBandSet bands{};
  for (int k = 0; k < PARAMETER_EQUALIZER_BANDS; ++k) {
    const double f = std::min(31.25 * std::pow(2.0, k), 0.45 * rate);
    const double gain_db = ((k % 2) != 0 ? -4.0 : 5.0) * gain_scale;
    const double a = std::pow(10.0, gain_db / 40.0);
    const double w0 = 2.0 * std::numbers::pi * f / rate;
    const double alpha = std::sin(w0) / (2.0 * 1.2);
    const double a0 = 1.0 + alpha / a;
    const double c[5] = {(1.0 + alpha * a) / a0, -2.0 * std::cos(w0) / a0, (1.0 - alpha * a) / a0,
                         2.0 * std::cos(w0) / a0, -(1.0 - alpha / a) / a0};
    bands[k][0] = 1;
    for (int j = 0; j < 5; ++j) bands[k][j + 1] = static_cast<int>(std::lround(c[j] * 268435456.0));
  }
  return bands;
}

// Every front-end block on: balance cross-mix, ten equalizer bands per side,
// the boost system with harmonic bass and all eight limiters set to limit
// full-scale programme material.
inline void configure_speaker_everything_on(void* handle, int rate) {
  kafx_sp_params_t p{};
  p.sbs.enable = 1;
  p.sbs.gain[0] = 6144;  // harmonic band at 0.75 (Q13)
  p.sbs.gain[1] = 6144;
  p.sbs.channel_ration = 1024;
  p.sbs.channel_num = 2;
  const drc_param_t band_limiter{0, 5, 12000, 10240, 256};
  const drc_param_t full_limiter{0, 6, 24000, 9000, 256};
  for (int i = 0; i < 3; ++i) p.sbs.drc_left[i] = p.sbs.drc_right[i] = band_limiter;
  p.sbs.drc_left[3] = p.sbs.drc_right[3] = full_limiter;
  p.peq.enable = 1;
  p.peq.gain[0] = p.peq.gain[1] = 7000;
  const SpeakerBandSet left = design_speaker_bands(rate, 1.0), right = design_speaker_bands(rate, -0.5);
  std::memcpy(p.peq.Lfilter, left.data(), sizeof p.peq.Lfilter);
  std::memcpy(p.peq.Rfilter, right.data(), sizeof p.peq.Rfilter);
  kafx_speaker_boost_params_update(handle, &p);
}

}  // namespace kafx_bench

#endif
