// Lane-wise forms of the fixed-point rules for the AVX2 builds of the
// kernels (common/dispatch.h): eight int32 lanes per vector, each lane
// giving exactly what the scalar rule of common/fixed_point.h gives.
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

}  // namespace kafx::lanes

#endif  // KAFX_AVX2_VARIANTS
#endif
