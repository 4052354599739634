// Internal building blocks of the signal-processing library.
//
// Arithmetic conventions of the resampling stages:
//  - Every state, difference and sum is a 32-bit value that wraps modulo
//    2^32 (full-scale input can drive an all-pass cascade past 2^31; the
//    wrap, not a saturation, is the defined behaviour). Wrap-around goes
//    through unsigned arithmetic, so it is defined behaviour.
//  - Right shifts of negative values are arithmetic (floor).
//
// The length-taking cores use int lengths; the exported 16-bit stages take
// short lengths and forward here.
#ifndef KAFX_SPL_SPL_INTERNAL_H
#define KAFX_SPL_SPL_INTERNAL_H

#include <cstdint>

#include "common/fixed_point.h"
#include "spl/simd.h"

namespace kafx::spl {

// ---------------------------------------------------------------------------
// Internal-format all-pass branches (Q15 coefficients on samples that carry
// the signal << 15): three first-order sections
//     y[n] = x[n-1] + c * q(x[n] - y[n-1])
// where q brings the difference down by 14 bits: rounded in the first
// section, and in the other two floored and then moved up by one when the
// quotient is negative. State words per branch: previous input of section
// 1, previous outputs of sections 1, 2 and 3. The two branch coefficient
// sets (the decimators run the lower branch on the even samples):
inline constexpr int kUpperC0 = 821, kUpperC1 = 6110, kUpperC2 = 12382;
inline constexpr int kLowerC0 = 3050, kLowerC1 = 9368, kLowerC2 = 15063;

// A 16-bit sample in the internal format: << 15 plus a half for rounding.
constexpr int32_t to_internal(int16_t v) { return wrap_add(wrap_shl<15>(v), 16384); }

// ---------------------------------------------------------------------------
// Stage cores (resample_by2.cpp).
void down_by2_int_to_short(int32_t* in, int len, int16_t* out, int32_t* st);
void down_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void up_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st);
void up_by2_int_to_short(const int32_t* in, int len, int16_t* out, int32_t* st);
void lp_by2_short_to_int(const int16_t* in, int len, int32_t* out, int32_t* st);
void lp_by2_int_to_int(const int32_t* in, int len, int32_t* out, int32_t* st);
void downsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st);
void upsample_by2(const int16_t* in, int len, int16_t* out, int32_t* st);
// The two forms those choose between (lanes where 32-bit lane multiplies
// are native, scalar otherwise); both give the same result.
KAFX_TARGET_AVX2 void downsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st);
KAFX_TARGET_AVX2 void upsample_by2_lanes(const int16_t* in, int len, int16_t* out, int32_t* st);
void downsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st);
void upsample_by2_scalar(const int16_t* in, int len, int16_t* out, int32_t* st);

// Fractional stages (resample_fractional.cpp). fir_48_32 accepts out <= in.
void fir_48_32(const int32_t* in, int32_t* out, int K);
void fir_32_24(const int32_t* in, int32_t* out, int K);
void fir_44_32(const int32_t* in, int32_t* out, int K);
void fir_32_22(const int32_t* in, int32_t* out, int K);
void fir_32_22_to_short(const int32_t* in, int16_t* out, int K);

// Largest magnitude of a 16-bit vector, capped at 32767 (vector_ops.cpp).
int16_t max_abs_w16(const int16_t* v, int len);

}  // namespace kafx::spl

#endif
