// NEON build of the dynamic range controller's block statistics (see
// common/drc_kernels.h): four magnitudes per step. vabs.s32 of INT32_MIN
// is INT32_MIN, whose bits read as unsigned are 2^31, the exact magnitude;
// the pairwise widening add-accumulate (vpadal.u32) sums them in two 64-bit
// lanes.
#include "common/drc_kernels.h"

#if KAFX_NEON_VARIANTS

#include <arm_neon.h>

namespace kafx {

KAFX_TARGET_NEON DrcBlockStats drc_block_stats_neon(const int32_t* x, int n) {
  uint64x2_t acc = vdupq_n_u64(0);
  uint32x4_t top = vdupq_n_u32(0);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const uint32x4_t a = vreinterpretq_u32_s32(vabsq_s32(vld1q_s32(x + i)));
    acc = vpadalq_u32(acc, a);
    top = vmaxq_u32(top, a);
  }
  uint64_t s = vgetq_lane_u64(acc, 0) + vgetq_lane_u64(acc, 1);
  const uint32x2_t m2 = vpmax_u32(vget_low_u32(top), vget_high_u32(top));
  uint32_t m = vget_lane_u32(vpmax_u32(m2, m2), 0);
  for (; i < n; ++i) {
    const uint32_t a = x[i] < 0 ? 0u - static_cast<uint32_t>(x[i]) : static_cast<uint32_t>(x[i]);
    s += a;
    m = a > m ? a : m;
  }
  return {static_cast<int64_t>(s), static_cast<int64_t>(m)};
}

}  // namespace kafx

#endif  // KAFX_NEON_VARIANTS
