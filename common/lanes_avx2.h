// Lane-wise forms of the fixed-point rules for the AVX2 builds of the
// kernels (common/dispatch.h): eight int32 lanes per vector (or four 64-bit
// products), each lane giving exactly what the scalar rule of
// common/fixed_point.h gives; and the 8 x 8 word transpose that moves
// between per-frame rows and per-filter columns.
#ifndef KAFX_COMMON_LANES_AVX2_H
#define KAFX_COMMON_LANES_AVX2_H

#include "common/dispatch.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>

#include <cstdint>

namespace kafx::lanes {

// -1 becomes 0, every other value is kept (flush_m1).
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i flush_m1(__m256i v) {
  return _mm256_andnot_si256(_mm256_cmpeq_epi32(v, _mm256_set1_epi32(-1)), v);
}

// Saturating a + b and a - b (sat_add, sat_sub): on overflow the result is
// the limit on the side of a's sign.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i saturate_on(__m256i a, __m256i result, __m256i overflow) {
  const __m256i limit = _mm256_xor_si256(_mm256_set1_epi32(INT32_MAX), _mm256_srai_epi32(a, 31));
  return _mm256_castps_si256(
      _mm256_blendv_ps(_mm256_castsi256_ps(result), _mm256_castsi256_ps(limit), _mm256_castsi256_ps(overflow)));
}
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i sat_add(__m256i a, __m256i b) {
  const __m256i sum = _mm256_add_epi32(a, b);
  return saturate_on(a, sum, _mm256_andnot_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, sum)));
}
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i sat_sub(__m256i a, __m256i b) {
  const __m256i diff = _mm256_sub_epi32(a, b);
  return saturate_on(a, diff, _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, diff)));
}

// v << Shift saturated to the int32 range (shl_sat).
template <int Shift>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i shl_sat(__m256i v) {
  const __m256i shifted = _mm256_slli_epi32(_mm256_max_epi32(v, _mm256_set1_epi32(INT32_MIN >> Shift)), Shift);
  return _mm256_blendv_epi8(shifted, _mm256_set1_epi32(INT32_MAX),
                            _mm256_cmpgt_epi32(v, _mm256_set1_epi32(INT32_MAX >> Shift)));
}


// Transposes an 8 x 8 block of words held as eight rows (its own inverse).
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void transpose8(__m256i* r) {
  __m256i t[8], u[8];
  KAFX_UNROLL
  for (int k = 0; k < 8; k += 2) {
    t[k] = _mm256_unpacklo_epi32(r[k], r[k + 1]);
    t[k + 1] = _mm256_unpackhi_epi32(r[k], r[k + 1]);
  }
  KAFX_UNROLL
  for (int k = 0; k < 8; k += 4) {
    u[k] = _mm256_unpacklo_epi64(t[k], t[k + 2]);
    u[k + 1] = _mm256_unpackhi_epi64(t[k], t[k + 2]);
    u[k + 2] = _mm256_unpacklo_epi64(t[k + 1], t[k + 3]);
    u[k + 3] = _mm256_unpackhi_epi64(t[k + 1], t[k + 3]);
  }
  KAFX_UNROLL
  for (int k = 0; k < 4; ++k) {
    r[k] = _mm256_permute2x128_si256(u[k], u[k + 4], 0x20);
    r[k + 4] = _mm256_permute2x128_si256(u[k], u[k + 4], 0x31);
  }
}

// shr_sat<Shift> of the 64-bit value of each 64-bit lane, in the lane's low
// 32 bits (a value at or above 2^(31 + Shift) gives INT32_MAX, one below
// -2^(31 + Shift) INT32_MIN).
template <int Shift>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i product_shr_sat(__m256i p) {
  const __m256i hi = _mm256_set1_epi64x((int64_t{1} << (31 + Shift)) - 1);
  const __m256i lo = _mm256_set1_epi64x(-(int64_t{1} << (31 + Shift)));
  __m256i v = _mm256_srli_epi64(p, Shift);
  v = _mm256_blendv_epi8(v, _mm256_set1_epi64x(INT32_MAX), _mm256_cmpgt_epi64(p, hi));
  return _mm256_blendv_epi8(v, _mm256_set1_epi64x(static_cast<int64_t>(static_cast<uint32_t>(INT32_MIN))),
                            _mm256_cmpgt_epi64(lo, p));
}

// shr_sat<Shift>(g * x) for eight samples: the 64-bit products of the even
// and the odd lanes, each through product_shr_sat.
template <int Shift>
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i gain_shr_sat(__m256i gain, __m256i x) {
  const __m256i even = product_shr_sat<Shift>(_mm256_mul_epi32(gain, x));
  const __m256i odd = product_shr_sat<Shift>(_mm256_mul_epi32(gain, _mm256_srli_epi64(x, 32)));
  return _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32), 0xaa);
}

}  // namespace kafx::lanes

#endif  // KAFX_AVX2_VARIANTS
#endif
