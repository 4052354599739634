// Internal fixed-point arithmetic shared by every block of the library.
//
// The one product rule: a 64-bit product (or sum of products) is shifted
// right arithmetically by the coefficient's fraction bits with no rounding
// constant, saturated to int32, and a result of exactly -1 is flushed to 0.
// The flush matters for recirculating state: the floor shift of a small
// negative value gives -1 for ever, so without it a decaying comb, all-pass
// or biquad tail would hang at -1 instead of reaching silence.
//
// Wrap-around arithmetic, where a block asks for it, goes through unsigned
// types so that it is defined behaviour.
#ifndef KAFX_COMMON_FIXED_POINT_H
#define KAFX_COMMON_FIXED_POINT_H

#include <cstdint>

// Builds of hot kernels per instruction set: common/dispatch.h (included
// here so that every block sees KAFX_TARGET_AVX2 and KAFX_AVX2_VARIANTS).
#include "common/dispatch.h"

namespace kafx {

inline constexpr int32_t kQ13One = 8192;
inline constexpr int32_t kQ17One = 131072;
inline constexpr int32_t kQ28One = 268435456;
inline constexpr int32_t kWorkMax = 8388607;  // 24-bit full scale in a working sample

// Saturate a 64-bit value to the int32 range.
constexpr int32_t sat32(int64_t v) {
  return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v));
}

// Saturate to the int16 range.
constexpr int16_t sat16(int32_t v) {
  return v > INT16_MAX ? INT16_MAX : (v < INT16_MIN ? INT16_MIN : static_cast<int16_t>(v));
}

// -1 becomes 0; everything else passes.
constexpr int32_t flush_m1(int32_t v) { return v == -1 ? 0 : v; }

// Arithmetic shift right of a 64-bit accumulator, saturated (no flush).
template <int Shift>
constexpr int32_t shr_sat(int64_t acc) {
  return sat32(acc >> Shift);
}

// The product rule on an accumulator: shift, saturate, flush -1.
template <int Shift>
constexpr int32_t mul_shift(int64_t acc) {
  return flush_m1(sat32(acc >> Shift));
}

// mulq13(a, b) / mulq28(a, b) of the block descriptions.
constexpr int32_t mulq13(int32_t a, int32_t b) {
  return mul_shift<13>(static_cast<int64_t>(a) * b);
}
constexpr int32_t mulq28(int32_t a, int32_t b) {
  return mul_shift<28>(static_cast<int64_t>(a) * b);
}

// Wrap-around 32-bit addition and subtraction.
constexpr int32_t wrap_add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t wrap_sub(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
// Wrap-around left shift (the value may be negative or leave the range).
template <int Shift>
constexpr int32_t wrap_shl(int32_t v) {
  return static_cast<int32_t>(static_cast<uint32_t>(v) << Shift);
}
// Wrap-around 64-bit addition (sums of several 32x32 products).
constexpr int64_t wrap_add64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
// Low 64 bits of a 64x64 product.
constexpr int64_t wrap_mul64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

// Saturating 32-bit addition and subtraction.
constexpr int32_t sat_add(int32_t a, int32_t b) { return sat32(static_cast<int64_t>(a) + b); }
constexpr int32_t sat_sub(int32_t a, int32_t b) { return sat32(static_cast<int64_t>(a) - b); }

// Saturating left shift (entry into a wider fixed-point domain).
template <int Shift>
constexpr int32_t shl_sat(int32_t v) {
  // Compared in 32 bits so that block loops vectorise well.
  constexpr int32_t hi = INT32_MAX >> Shift;
  constexpr int32_t lo = INT32_MIN >> Shift;
  return v > hi ? INT32_MAX : (v < lo ? INT32_MIN : static_cast<int32_t>(static_cast<uint32_t>(v) << Shift));
}

// Host full-scale 32-bit sample (Q31) to working sample: add half an LSB of
// the result, saturating, then drop 8 bits, so 2147483647 gives 8388607.
// The way back is shl_sat<8>.
constexpr int32_t full_scale_to_working(int32_t x) { return sat_add(x, 128) >> 8; }

// Clamp to the symmetric 24-bit range of a working sample.
constexpr int32_t clamp24(int32_t v) {
  return v > kWorkMax ? kWorkMax : (v < -kWorkMax ? -kWorkMax : v);
}

// Digit-by-digit integer square root: starting from `top_bit` (a power of
// four), one result bit per step. Returns floor(sqrt(x)) for x below
// 4 * top_bit and leaves the remainder x - root^2 in *rem.
constexpr uint32_t isqrt_digits(uint32_t x, uint32_t top_bit, uint32_t* rem) {
  uint32_t r = x;
  uint32_t root = 0;
  for (uint32_t bit = top_bit; bit != 0; bit >>= 2) {
    if (r >= root + bit) {
      r -= root + bit;
      root = (root >> 1) + bit;
    } else {
      root >>= 1;
    }
  }
  *rem = r;
  return root;
}

// Q15 fractional division of two 16-bit operands (restoring, 15 steps).
// den == 0, a negative operand or num > den print a fatal message and end
// the process with status 0; reached only through callers that guarantee
// 0 <= num <= den.
int16_t div_q15(int16_t num, int16_t den);

}  // namespace kafx

#endif
