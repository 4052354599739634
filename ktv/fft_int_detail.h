// Internal helpers of the integer FFT analysis shared with the howling
// canceller.
#ifndef KAFX_KTV_FFT_INT_DETAIL_H
#define KAFX_KTV_FFT_INT_DETAIL_H

#include <cstdint>
#include <cstdlib>

#include "common/dispatch.h"
#include "common/fixed_math.h"
#include "kafx_proc/fft_int.h"

namespace kafx {

namespace fft_int_detail {
constexpr int32_t kLn2Q16 = 45426;                  // ln 2 in Q16
constexpr int32_t kLnQ16Of65536 = 16 * kLn2Q16;
constexpr int32_t kReferenceLnQ16 = 52 * kLn2Q16;  // ln 2^52
constexpr int32_t kDbPerLnQ16 = 1112;               // (10 / ln 10) * 256 / 65536 in Q16
}  // namespace fft_int_detail

// Level in dB, Q8, of an energy whose full-scale reference is 2^52 (a
// full-scale sine centred on a bin of the scaled spectrum, or the sum of
// squares of 128 working samples of a full-scale sine); 0 gives the floor
// of -160 dB.
// The power is shifted below 2^31 and its natural logarithm taken with
// log_fixed (through its inline core). The work is cut in two steps around
// the logarithm's factor steps so that a loop over the bins can run those
// (plain 32-bit arithmetic) as one vectorisable pass:
//   power_log_start: the shift below 2^31, then log_fixed's normalisation
//                    of the shifted power (a power of 0 is read as 1),
//   log_q16_factors: the factor steps,
//   power_level_end: the logarithm of the whole power, in dB relative to
//                    2^52 (the floor for a power of 0).
struct PowerLog {
  uint32_t v;     // the shifted power normalised into [2^30, 2^31)
  uint32_t y;     // the logarithm the normalisation leaves, Q16
  int32_t shift;  // the right shift that brought the power below 2^31
};

[[gnu::always_inline]] inline PowerLog power_log_start(uint64_t power) {
  const uint64_t p = power != 0 ? power : 1;
  const int bits = 64 - __builtin_clzll(p);
  const int shift = bits > 31 ? bits - 31 : 0;
  const auto x = static_cast<uint32_t>(p >> shift);
  const int n = __builtin_clz(x) - 1;
  return PowerLog{x << n, fixed_math_detail::kShiftLogs[static_cast<size_t>(n)], shift};
}

[[gnu::always_inline]] inline int32_t power_level_end(uint64_t power, int32_t shift, int32_t log_q16) {
  using namespace fft_int_detail;
  const int32_t ln = log_q16 + kLnQ16Of65536 + shift * kLn2Q16;
  const int32_t db = static_cast<int32_t>((static_cast<int64_t>(ln - kReferenceLnQ16) * kDbPerLnQ16) >> 16);
  return power == 0 || db < FFT_INT_LEVEL_FLOOR ? FFT_INT_LEVEL_FLOOR : db;
}

inline int32_t power_level_q8(uint64_t power) {
  const PowerLog s = power_log_start(power);
  return power_level_end(power, s.shift, log_q16_factors(s.v, s.y));
}

// Power re^2 + im^2 of one bin of the scaled spectrum (below 2^55).
inline uint64_t bin_power(const complex& z) {
  const uint64_t re = static_cast<uint64_t>(std::llabs(z.re));
  const uint64_t im = static_cast<uint64_t>(std::llabs(z.im));
  return re * re + im * im;
}

// The spectrum fft_int_analyze starts from: bins[0 .. 255] of the 256
// windowed samples in[0 .. 255] (one 128-point complex transform and the
// split of its output; see fft_int.cpp). The AVX2 build runs the transform
// in 32-bit lanes for inputs within +-2^23, the scalar one otherwise.
using FftRealTransform = void (*)(const int* in, complex* bins);
extern const KernelVariants<FftRealTransform> fft_int_real_transform_variants;

// fft_int_level: the levels of bins 0 .. 127. The AVX2 build does eight bins
// at a time for bins whose parts lie within +-2^30, the scalar one otherwise.
using FftLevel = void (*)(const complex* bins, int* level);
extern const KernelVariants<FftLevel> fft_int_level_variants;

}  // namespace kafx

#endif
