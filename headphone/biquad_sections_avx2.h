// Four Q28 biquad sections side by side in the 64-bit lanes of an AVX2
// vector, for the AVX2 builds of the headphone blocks that run several
// independent sections over the same samples (left and right channels of
// one design, parallel bands of one signal). Each lane computes exactly the
// section's own step (Biquad32Kernel):
//   x0 = in x 32 saturated (the caller's, lanes::shl_sat<5>);
//   acc = b0 x0 + b1 x1 + b2 x2 + a1 y1 + a2 y2 (64-bit, wrapping);
//   y = sat32(acc >> 28), -1 -> 0; out = y >> 5.
// Only the low 32 bits of a lane carry a value (the 32x32->64 multiply
// reads only those); a lane without a section has zero coefficients and
// produces zeros. The state is taken from and handed back to the sections'
// kernels of a BiquadSections, so that a run can start and end with the
// per-sample steps.
#ifndef KAFX_HEADPHONE_BIQUAD_SECTIONS_AVX2_H
#define KAFX_HEADPHONE_BIQUAD_SECTIONS_AVX2_H

#include "common/biquad.h"
#include "common/lanes_avx2.h"

#if KAFX_AVX2_VARIANTS
#include <immintrin.h>

namespace kafx {

struct SectionLanes {
  __m256i b0, b1, b2, a1, a2, x1, x2, y1, y2;

  // The sections' kernels k[0..4) in lanes 0..3; null: an idle lane.
  KAFX_TARGET_AVX2 explicit SectionLanes(const Biquad32Kernel* const* k) {
    alignas(32) int64_t w[9][4] = {};
    for (int i = 0; i < 4; ++i) {
      if (k[i] == nullptr) continue;
      const int32_t v[9] = {k[i]->b0, k[i]->b1, k[i]->b2, k[i]->a1, k[i]->a2,
                            k[i]->x1, k[i]->x2, k[i]->y1, k[i]->y2};
      for (int j = 0; j < 9; ++j) w[j][i] = v[j];
    }
    __m256i* f[9] = {&b0, &b1, &b2, &a1, &a2, &x1, &x2, &y1, &y2};
    for (int j = 0; j < 9; ++j) *f[j] = _mm256_load_si256(reinterpret_cast<const __m256i*>(w[j]));
  }

  // Hands the history back to the kernels; x0_last[i] receives the last
  // input x 32 of lane i (word 0 of the section).
  KAFX_TARGET_AVX2 void store(Biquad32Kernel* const* k, int32_t* const* x0_last) const {
    alignas(32) int64_t w[4][4];
    const __m256i f[4] = {x1, x2, y1, y2};
    for (int j = 0; j < 4; ++j) _mm256_store_si256(reinterpret_cast<__m256i*>(w[j]), f[j]);
    for (int i = 0; i < 4; ++i) {
      if (k[i] == nullptr) continue;
      k[i]->x1 = static_cast<int32_t>(w[0][i]);
      k[i]->x2 = static_cast<int32_t>(w[1][i]);
      k[i]->y1 = static_cast<int32_t>(w[2][i]);
      k[i]->y2 = static_cast<int32_t>(w[3][i]);
      *x0_last[i] = static_cast<int32_t>(w[0][i]);
    }
  }

  // One sample per lane from the inputs x 32 (x0); returns y >> 5 per lane.
  [[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i step(__m256i x0) {
    // The sum wraps, so its order does not change it: the term of the
    // newest output comes last, so that only one multiply and one add lie
    // on the recursion's path from one step to the next.
    const __m256i rest = _mm256_add_epi64(_mm256_add_epi64(_mm256_mul_epi32(b0, x0), _mm256_mul_epi32(b1, x1)),
                                          _mm256_add_epi64(_mm256_mul_epi32(b2, x2), _mm256_mul_epi32(a2, y2)));
    const __m256i acc = _mm256_add_epi64(rest, _mm256_mul_epi32(a1, y1));
    const __m256i y = lanes::flush_m1(lanes::product_shr_sat<28>(acc));
    x2 = x1;
    x1 = x0;
    y2 = y1;
    y1 = y;
    return _mm256_srai_epi32(y, 5);
  }
};

// Lanes (a, b, a, b): a in the low words of lanes 0 and 2, b in 1 and 3.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i lanes_abab(int32_t a, int32_t b) {
  const __m128i ab = _mm_unpacklo_epi64(_mm_cvtsi32_si128(a), _mm_cvtsi32_si128(b));
  return _mm256_broadcastsi128_si256(ab);
}

// The input x 32 of a section fed another section's output (y >> 5 of an
// int32 y, so the shift cannot leave the int32 range: shl_sat<5> without
// the tests).
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i chained_x32(__m256i section_out) {
  return _mm256_slli_epi32(section_out, 5);
}

// Aligned whole-vector load and store of eight words.
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline __m256i lanes_load(const int32_t* w) {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(w));
}
[[gnu::always_inline]] KAFX_TARGET_AVX2 inline void lanes_store(int32_t* w, __m256i v) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(w), v);
}

}  // namespace kafx

#endif  // KAFX_AVX2_VARIANTS
#endif
