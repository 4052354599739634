// Builds of the Q13 gain run (common/gain_kernels.h).
#include "common/gain_kernels.h"

#include "common/fixed_point.h"
#include "common/lanes_avx2.h"

namespace kafx {
namespace {

void gain_run_q13_baseline(const int32_t* in, int32_t* out, int32_t gain, int n) {
  for (int i = 0; i < n; ++i) out[i] = mulq13(in[i], gain);
}

#if KAFX_AVX2_VARIANTS
KAFX_TARGET_AVX2 void gain_run_q13_avx2(const int32_t* in, int32_t* out, int32_t gain, int n) {
  const __m256i g = _mm256_set1_epi32(gain);
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(&in[i]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(&out[i]), lanes::flush_m1(lanes::gain_shr_sat<13>(g, x)));
  }
  gain_run_q13_baseline(in + i, out + i, gain, n - i);
}
#endif

}  // namespace

const KernelVariants<GainRunQ13> gain_run_q13_variants = {
    "gain_run_q13", {gain_run_q13_baseline, KAFX_AVX2_ONLY(gain_run_q13_avx2)}};

}  // namespace kafx
