// Lane forms for the AVX2 builds of the kernels (common/dispatch.h) that
// move between per-frame rows and per-filter columns, and the saturating
// Q-format gain of eight samples: an 8 x 8 transpose of 32-bit words and
// (g * x) >> Shift saturated to int32 (shr_sat of the 64-bit product).
// They are the companions of common/lanes_avx2.h.
#ifndef KAFX_COMMON_LANES_TRANSPOSE_AVX2_H
#define KAFX_COMMON_LANES_TRANSPOSE_AVX2_H

#include "common/dispatch.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>

#include <cstdint>

namespace kafx::lanes {

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
