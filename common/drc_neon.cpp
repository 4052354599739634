// NEON builds of the dynamic range controller's kernels (see
// common/drc_kernels.h).
//
// Block statistics: four magnitudes per step. vabs.s32 of INT32_MIN is
// INT32_MIN, whose bits read as unsigned are 2^31, the exact magnitude; the
// pairwise widening add-accumulate (vpadal.u32) sums them in two 64-bit
// lanes.
//
// Gains through the look-ahead line: four samples per step, each product
// 32x32->64 (vmull.s32), shifted right by 17 and saturated to 32 bits in one
// instruction (vqshrn.s64, truncating as the arithmetic shift is), then -1
// flushed to 0.
//
// Glide: the two lanes of a 64-bit vector are the two controllers. The
// smoother's distance d = target - gain needs 33 bits, but everything it
// decides goes through its direction and |d|, and |d| < 2^32 is exact as an
// unsigned word: vabd.s32 takes the difference at full precision before
// keeping the low 32 bits. With m = |d|:
//   shift   (6 + [m > 1024] + [m > 2048] + [m > 4096] + [m > 8192]
//            + [m > 16384]) rising, (5 + [m > 1024] + 2 [m > 2048]
//            + [m > 4096] + [m > 8192]) falling, from the compare masks
//            (each -1) summed into the negative count vshl.u32 takes for a
//            right shift;
//   floor   gain >> 12 rising, (gain + (gain >> 1)) >> 11 falling, taken
//           as vhadd.s32 (the halved sum, exact) >> 10; 0 where negative
//           (the other term is never negative);
//   step    min(max(floor, m >> shift), m), so that the gain stops at the
//           target; on a short distance (up to 64 rising, 32 falling)
//           m >> 3, and below 8 m itself (the jump);
// and the new gain, between the old one and the target, is a 32-bit sum.
// The expander's e = dnq - denoise is halved exactly by vhsub.s32, so
// e >> 3 and e >> 5 are that >> 2 and >> 4, and e < 8 is the half < 4.
#include "common/drc_kernels.h"

#if KAFX_NEON_VARIANTS

#include <arm_neon.h>

namespace kafx {
namespace {

// mul_shift<17>(d * g) on four lanes.
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x4_t gain_q17(int32x4_t d, int32x4_t g) {
  const int32x2_t lo = vqshrn_n_s64(vmull_s32(vget_low_s32(d), vget_low_s32(g)), 17);
  const int32x2_t hi = vqshrn_n_s64(vmull_s32(vget_high_s32(d), vget_high_s32(g)), 17);
  const int32x4_t y = vcombine_s32(lo, hi);
  return vbicq_s32(y, vreinterpretq_s32_u32(vceqq_s32(y, vdupq_n_s32(-1))));
}

// The limiter gain's step on both lanes (see the top of the file), arranged
// for a short chain from one gain to the next: the far shift, the short
// step and the floor are formed side by side from |d| and the direction.
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x2_t smooth_step(int32x2_t c, int32x2_t t) {
  const uint32x2_t up = vcgt_s32(t, c);
  const uint32x2_t m = vreinterpret_u32_s32(vabd_s32(t, c));
  const int32x2_t g1 = vreinterpret_s32_u32(vcgt_u32(m, vdup_n_u32(1024)));
  const int32x2_t g2 = vreinterpret_s32_u32(vcgt_u32(m, vdup_n_u32(2048)));
  const int32x2_t g3 = vreinterpret_s32_u32(vcgt_u32(m, vdup_n_u32(4096)));
  const int32x2_t g4 = vreinterpret_s32_u32(vcgt_u32(m, vdup_n_u32(8192)));
  const int32x2_t g5 = vreinterpret_s32_u32(vcgt_u32(m, vdup_n_u32(16384)));
  // Far: the negative shift -(6 + count) rising, -(5 + count + [m > 2048])
  // falling.
  const int32x2_t own = vadd_s32(vbsl_s32(up, g5, g2), vbsl_s32(up, vdup_n_s32(-6), vdup_n_s32(-5)));
  const int32x2_t shift = vadd_s32(vadd_s32(vadd_s32(g1, g2), vadd_s32(g3, g4)), own);
  const uint32x2_t far = vshl_u32(m, shift);
  const int32x2_t rise_floor = vshr_n_s32(c, 12);
  const int32x2_t fall_floor = vshr_n_s32(vhadd_s32(c, vshr_n_s32(c, 1)), 10);
  // far <= m, so min(max(floor, far), m) is max(min(floor, m), far).
  const int32x2_t floor = vmax_s32(vbsl_s32(up, rise_floor, fall_floor), vdup_n_s32(0));
  const uint32x2_t far_step = vmax_u32(vmin_u32(vreinterpret_u32_s32(floor), m), far);
  // Short: up to 64 rising, 32 falling, m >> 3; below 8 the jump, m.
  const uint32x2_t short_step = vbsl_u32(up, vcle_u32(m, vdup_n_u32(64)), vcle_u32(m, vdup_n_u32(32)));
  const uint32x2_t near = vbsl_u32(vclt_u32(m, vdup_n_u32(8)), m, vshr_n_u32(m, 3));
  const int32x2_t step = vreinterpret_s32_u32(vbsl_u32(short_step, near, far_step));
  return vbsl_s32(up, vadd_s32(c, step), vsub_s32(c, step));
}

// The expander gain's step on both lanes.
[[gnu::always_inline]] KAFX_TARGET_NEON inline int32x2_t denoise_step(int32x2_t dn, int32x2_t dq) {
  const int32x2_t half = vhsub_s32(dq, dn);  // (dnq - denoise) >> 1, exact
  const uint32x2_t up = vcgt_s32(dq, dn);
  const int32x2_t moved = vbsl_s32(up, vadd_s32(dn, vshr_n_s32(half, 2)), vadd_s32(dn, vshr_n_s32(half, 4)));
  const uint32x2_t jump = vand_u32(up, vclt_s32(half, vdup_n_s32(4)));
  return vbsl_s32(jump, dq, moved);
}

}  // namespace

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

KAFX_TARGET_NEON void drc_delay_gain_neon(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain) {
  const int32x4_t g = vdupq_n_s32(gain);
  int k = 0;
  for (; k + 4 <= n; k += 4) {
    const int32x4_t d = vld1q_s32(line + k);
    vst1q_s32(line + k, vld1q_s32(in + k));
    vst1q_s32(out + k, gain_q17(d, g));
  }
  for (; k < n; ++k) {
    const int32x4_t d = vld1q_dup_s32(line + k);
    line[k] = in[k];
    out[k] = vgetq_lane_s32(gain_q17(d, g), 0);
  }
}

KAFX_TARGET_NEON void drc_delay_gains_neon(int32_t* line, const int32_t* in, int32_t* out, int n,
                                           const int32_t* gains) {
  int k = 0;
  for (; k + 4 <= n; k += 4) {
    const int32x4_t d = vld1q_s32(line + k);
    vst1q_s32(line + k, vld1q_s32(in + k));
    vst1q_s32(out + k, gain_q17(d, vld1q_s32(gains + k)));
  }
  for (; k < n; ++k) {
    const int32x4_t d = vld1q_dup_s32(line + k);
    line[k] = in[k];
    out[k] = vgetq_lane_s32(gain_q17(d, vld1q_dup_s32(gains + k)), 0);
  }
}

KAFX_TARGET_NEON void drc_glide_neon(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n) {
  int32x2_t gain = vld1_s32(g->gain);
  int32x2_t denoise = vld1_s32(g->denoise);
  if (n <= 0) return;
  const int32x2_t target = vld1_s32(g->target);
  const int32x2_t dnq = vld1_s32(g->dnq);
  gain = smooth_step(gain, target);
  denoise = denoise_step(denoise, dnq);
  // Each pass takes the next step and stores the total of the step before,
  // whose product and stores then fill the gaps of the step's chain.
  for (int k = 0; k + 1 < n; ++k) {
    const int32x2_t total = vqshrn_n_s64(vmull_s32(gain, denoise), 17);
    gain = smooth_step(gain, target);
    denoise = denoise_step(denoise, dnq);
    vst1_lane_s32(total_a + k, total, 0);
    vst1_lane_s32(total_b + k, total, 1);
  }
  const int32x2_t total = vqshrn_n_s64(vmull_s32(gain, denoise), 17);
  vst1_lane_s32(total_a + n - 1, total, 0);
  vst1_lane_s32(total_b + n - 1, total, 1);
  vst1_s32(g->gain, gain);
  vst1_s32(g->denoise, denoise);
}

}  // namespace kafx

#endif  // KAFX_NEON_VARIANTS
