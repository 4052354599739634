// Inline cores of the shared math routines (kafx_proc/fixed_math.h) for the
// hot paths that evaluate them many times per frame. The exported routines
// are these cores; a caller inside the library uses them directly so that a
// loop over many values runs without calls.
#ifndef KAFX_COMMON_FIXED_MATH_H
#define KAFX_COMMON_FIXED_MATH_H

#include <array>
#include <cstdint>

#include "common/dispatch.h"
#include "common/fixed_point.h"
#include "kafx_proc/fixed_math.h"

namespace kafx {

namespace fixed_math_detail {

// ln(2^k) * 65536 for k = 8, 4, 2, 1: the integer-power steps of exp/log.
struct Ln2Power {
  int32_t value;
  int shift;
};
inline constexpr Ln2Power kLn2Powers[] = {{363409, 8}, {181704, 4}, {90852, 2}, {45426, 1}};

// ln(1 + 2^-k) * 65536 for k = 1..7: the fractional factor steps.
inline constexpr int32_t kLnOnePlus[] = {26573, 14624, 7719, 3973, 2017, 1016, 510};

// ln(32768) in Q16: log of 2^31 read as a Q16 value; below 32768 the value
// is first raised by 2^16, which leaves ln(2^31 / 2^16) - ln(2^16) = -ln 2.
inline constexpr int32_t kLnTop = 681391;
inline constexpr int32_t kLnTopRaised = -45426;

}  // namespace fixed_math_detail

// ln(x) in Q16 of a Q16 x (log_fixed). x is normalised into [2^30, 2^31)
// by shifts (16 while below 32768, then 8, 4, 2 and 1 while below the step's
// limit) and then by the factors 1 + 2^-k (k = 1 .. 7) while the product
// stays below 2^31, the logarithm of every step being taken off
// ln(2^31 / 65536); the last factor 1 + e counts as e. The factor steps are
// selects, not branches: which of them are taken depends on the value, and a
// branch per step would be mispredicted about half the time.

// The factor steps and the last factor, from a normalised v in
// [2^30, 2^31) and the logarithm y left by the shifts.
[[gnu::always_inline]] inline int32_t log_q16_factors(uint32_t v, uint32_t y) {
  using namespace fixed_math_detail;
  KAFX_UNROLL
  for (int k = 1; k <= 7; ++k) {
    const uint32_t t = v + (v >> k);
    // All ones when t < 2^31 (its top bit clear), else 0.
    const uint32_t take = static_cast<uint32_t>(static_cast<int32_t>(t) >> 31) ^ 0xFFFFFFFFu;
    v ^= (v ^ t) & take;
    y -= static_cast<uint32_t>(kLnOnePlus[k - 1]) & take;
  }
  y -= (0x80000000u - v) >> 15;
  return static_cast<int32_t>(y);
}

// The same steps on four values at once (a GCC vector type: SSE2 on x86,
// NEON on ARM, plain code elsewhere), for loops over many values; each lane
// is exactly the scalar evaluation.
using u32x4 = uint32_t __attribute__((vector_size(16)));
[[gnu::always_inline]] inline u32x4 log_q16_factors(u32x4 v, u32x4 y) {
  using namespace fixed_math_detail;
  KAFX_UNROLL
  for (int k = 1; k <= 7; ++k) {
    const u32x4 t = v + (v >> k);
    const u32x4 take = reinterpret_cast<u32x4>(t < 0x80000000u);  // lanes of all ones or 0
    v ^= (v ^ t) & take;
    y -= static_cast<uint32_t>(kLnOnePlus[k - 1]) & take;
  }
  y -= (0x80000000u - v) >> 15;
  return y;
}

namespace fixed_math_detail {
// The logarithm the shift steps leave for a total left shift of n (0 .. 30):
// the step of 16 when n >= 16, then 8, 4, 2 and 1 by the binary digits of
// the rest (each of those steps is taken exactly when the value still lies
// below 2^(30 - step), i.e. when the rest of the shift holds that digit).
constexpr std::array<uint32_t, 31> make_shift_logs() {
  std::array<uint32_t, 31> t{};
  for (int n = 0; n < 31; ++n) {
    int32_t y = n >= 16 ? kLnTopRaised : kLnTop;
    for (const Ln2Power& p : kLn2Powers)
      if ((n & p.shift) != 0) y -= p.value;
    t[static_cast<size_t>(n)] = static_cast<uint32_t>(y);
  }
  return t;
}
inline constexpr std::array<uint32_t, 31> kShiftLogs = make_shift_logs();
}  // namespace fixed_math_detail

// log_fixed of x >= 1: the shift steps amount to one left shift by the
// number of leading zeros less one.
[[gnu::always_inline]] inline int32_t log_q16_positive(uint32_t x) {
  const int n = __builtin_clz(x) - 1;
  return log_q16_factors(x << n, fixed_math_detail::kShiftLogs[static_cast<size_t>(n)]);
}

// log_fixed of any x (x <= 0 lies outside the domain and runs through the
// shift steps like any other value).
inline int32_t log_q16(int x) {
  using namespace fixed_math_detail;
  if (x > 0) return log_q16_positive(static_cast<uint32_t>(x));
  uint32_t v = static_cast<uint32_t>(x) << 16;  // x < 32768
  uint32_t y = static_cast<uint32_t>(kLnTopRaised);
  constexpr uint32_t kLimits[] = {0x800000u, 0x8000000u, 0x20000000u, 0x40000000u};
  for (int i = 0; i < 4; ++i) {
    if (v < kLimits[i]) {
      v <<= kLn2Powers[i].shift;
      y -= static_cast<uint32_t>(kLn2Powers[i].value);
    }
  }
  return log_q16_factors(v, y);
}

// Complex product with the Q28 scale of the integer FFT (complex_mul):
// 64-bit products and sums wrapping, each part shifted down by 28.
[[gnu::always_inline]] inline complex complex_mul_q28(const complex& a, const complex& b) {
  const int64_t re = wrap_add64(wrap_mul64(a.re, b.re), wrap_mul64(wrap_mul64(a.im, b.im), -1));
  const int64_t im = wrap_add64(wrap_mul64(a.re, b.im), wrap_mul64(a.im, b.re));
  return complex{re >> 28, im >> 28};
}

}  // namespace kafx

#endif
