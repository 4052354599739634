// NEON build of the non-linear device's harmonic polynomial (see
// common/nld.cpp, whose variant table lists it, and common/nld_kernels.h). NEON has the chain's rules as
// single instructions, so this build is exact for every input, with no
// bound to check first: a 32x32->64 multiply (vmull.s32, smull), the shift
// right by 15 or 23 saturated to int32 (vqshrn.s64, sqshrn: truncating, as
// the arithmetic shift is), and the saturating sum (vqadd.s32, sqadd).
#include "common/nld_kernels.h"

#if KAFX_NEON_VARIANTS

#include <arm_neon.h>

namespace kafx {
namespace {

constexpr int kTerms = 8;

// The chain on two samples: p0 = sat(c0 x >> 15); for k = 1..7,
// t = sat(ck x >> 15), pk = sat(t p(k-1) >> 23), y = sat(y + pk).
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x2_t chain2(const int32x2_t* c, int32x2_t x) {
  int32x2_t p = vqshrn_n_s64(vmull_s32(c[0], x), 15);
  int32x2_t y = p;
  for (int k = 1; k < kTerms; ++k) {
    const int32x2_t t = vqshrn_n_s64(vmull_s32(c[k], x), 15);
    p = vqshrn_n_s64(vmull_s32(t, p), 23);
    y = vqadd_s32(y, p);
  }
  return y;
}

}  // namespace

KAFX_TARGET_NEON void nld_polynomial_run_neon(const int32_t* coef, const int32_t* x, int32_t* y, int n) {
  int32x2_t c[kTerms];
  for (int k = 0; k < kTerms; ++k) c[k] = vdup_n_s32(coef[k]);
  int i = 0;
  // Four independent chains per step, so that an in-order core has work
  // while each multiply and narrowing shift completes.
  for (; i + 8 <= n; i += 8) {
    const int32x2_t x0 = vld1_s32(x + i), x1 = vld1_s32(x + i + 2);
    const int32x2_t x2 = vld1_s32(x + i + 4), x3 = vld1_s32(x + i + 6);
    int32x2_t p0 = vqshrn_n_s64(vmull_s32(c[0], x0), 15), p1 = vqshrn_n_s64(vmull_s32(c[0], x1), 15);
    int32x2_t p2 = vqshrn_n_s64(vmull_s32(c[0], x2), 15), p3 = vqshrn_n_s64(vmull_s32(c[0], x3), 15);
    int32x2_t y0 = p0, y1 = p1, y2 = p2, y3 = p3;
    KAFX_UNROLL
    for (int k = 1; k < kTerms; ++k) {
      const int32x2_t t0 = vqshrn_n_s64(vmull_s32(c[k], x0), 15), t1 = vqshrn_n_s64(vmull_s32(c[k], x1), 15);
      const int32x2_t t2 = vqshrn_n_s64(vmull_s32(c[k], x2), 15), t3 = vqshrn_n_s64(vmull_s32(c[k], x3), 15);
      p0 = vqshrn_n_s64(vmull_s32(t0, p0), 23), p1 = vqshrn_n_s64(vmull_s32(t1, p1), 23);
      p2 = vqshrn_n_s64(vmull_s32(t2, p2), 23), p3 = vqshrn_n_s64(vmull_s32(t3, p3), 23);
      y0 = vqadd_s32(y0, p0), y1 = vqadd_s32(y1, p1), y2 = vqadd_s32(y2, p2), y3 = vqadd_s32(y3, p3);
    }
    vst1_s32(y + i, y0), vst1_s32(y + i + 2, y1), vst1_s32(y + i + 4, y2), vst1_s32(y + i + 6, y3);
  }
  for (; i + 2 <= n; i += 2) vst1_s32(y + i, chain2(c, vld1_s32(x + i)));
  if (i < n) vst1_lane_s32(y + i, chain2(c, vld1_dup_s32(x + i)), 0);
}

}  // namespace kafx

#endif  // KAFX_NEON_VARIANTS
