// Block kernels of the dynamic range control (common/drc.cpp), built per
// instruction set (common/dispatch.h): the block statistics of step 1, the
// per-sample glide of two controllers' gains, and the gains applied through
// the look-ahead line (AVX2 builds of the statistics and the settled gain,
// NEON builds of all four). Every
// build gives the same integers as the scalar loops of the baseline.
#ifndef KAFX_COMMON_DRC_KERNELS_H
#define KAFX_COMMON_DRC_KERNELS_H

#include <algorithm>
#include <cstdint>

#include "common/dispatch.h"
#include "common/fixed_point.h"

namespace kafx {

// Sum and largest value of |x[i]|, i < n (|INT32_MIN| is 2^31).
struct DrcBlockStats {
  int64_t sum;
  int64_t max_abs;
};
using DrcBlockStatsFn = DrcBlockStats (*)(const int32_t* x, int n);
extern const KernelVariants<DrcBlockStatsFn> drc_block_stats_variants;
DrcBlockStats drc_block_stats(const int32_t* x, int n);
#if KAFX_NEON_VARIANTS
DrcBlockStats drc_block_stats_neon(const int32_t* x, int n);  // common/drc_neon.cpp
#endif

// One unwrapped stretch of the look-ahead line with a fixed Q17 gain: for
// k < n, d = line[k]; line[k] = in[k]; out[k] = mul_shift<17>(d * gain).
// out may be in (each in[k] is read before out[k] is written); line must not
// overlap either.
using DrcDelayGainFn = void (*)(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain);
extern const KernelVariants<DrcDelayGainFn> drc_delay_gain_variants;
void drc_delay_gain(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain);
#if KAFX_NEON_VARIANTS
void drc_delay_gain_neon(int32_t* line, const int32_t* in, int32_t* out, int n, int32_t gain);
#endif

// The same stretch with a gain per sample: out[k] = mul_shift<17>(d * gains[k]).
using DrcDelayGainsFn = void (*)(int32_t* line, const int32_t* in, int32_t* out, int n, const int32_t* gains);
extern const KernelVariants<DrcDelayGainsFn> drc_delay_gains_variants;
void drc_delay_gains(int32_t* line, const int32_t* in, int32_t* out, int n, const int32_t* gains);
#if KAFX_NEON_VARIANTS
void drc_delay_gains_neon(int32_t* line, const int32_t* in, int32_t* out, int n, const int32_t* gains);
#endif

// The per-sample gains of two controllers within one block (lane 0 and lane
// 1, e.g. the two channels of a band). Per step and lane:
//   gain    moves towards target by the limiter's smoother: within 7 it
//           jumps; rising by up to 64 (falling by up to 32) it steps |d| >> 3;
//           beyond, by max(|d| >> k, floor) with k from 6 to 11 rising (floor
//           gain >> 12) and from 5 to 10 falling (floor (gain + (gain >> 1))
//           >> 11), never past the target (d = target - gain in 64 bits);
//   denoise moves towards dnq: rising by up to 7 it jumps, else by e >> 3;
//           falling by e >> 5 (e = dnq - denoise, arithmetic shifts);
//   total   = sat32((gain * denoise) >> 17), i.e. gain when denoise is 1.0.
// Both gains in Q17. A lane at its targets (gain == target, denoise == dnq)
// stays there and keeps its total.
//
// The scalar rules of one step, for the baseline build and for the
// per-sample loop of common/drc.cpp:
// Rising gain: the step grows with the distance to the target but never
// falls below cur / 4096; the boundaries are inclusive on this side.
inline int64_t drc_rise_shift(int64_t d) {
  if (d <= 1024) return 6;
  if (d <= 2048) return 7;
  if (d <= 4096) return 8;
  if (d <= 8192) return 9;
  if (d <= 16384) return 10;
  return 11;
}

// Falling gain (d < -32): faster than rising and with shifted boundaries;
// there is no 7 in this table.
inline int64_t drc_fall_shift(int64_t d) {
  if (d > -1025) return 5;
  if (d >= -2048) return 6;
  if (d >= -4096) return 8;
  if (d >= -8192) return 9;
  return 10;
}

// One step of the limiter's gain smoother (Q17).
inline int32_t drc_smooth_gain(int32_t cur, int32_t target) {
  const int64_t c = cur;
  const int64_t d = static_cast<int64_t>(target) - c;
  if (d > -8 && d < 8) return target;
  if (d > 0) {
    if (d <= 64) return static_cast<int32_t>(c + (d >> 3));
    const int64_t step = std::max(c >> 12, d >> drc_rise_shift(d));
    return static_cast<int32_t>(std::min(c + step, static_cast<int64_t>(target)));
  }
  if (d >= -32) return static_cast<int32_t>(c - ((-d) >> 3));
  const int64_t step = std::max((c + (c >> 1)) >> 11, (-d) >> drc_fall_shift(d));
  return static_cast<int32_t>(std::max(c - step, static_cast<int64_t>(target)));
}

// One step of the expander's glide (Q17): up by an eighth of the distance
// (the last 7 at once), down by a thirty-second.
inline int32_t drc_glide_denoise(int32_t denoise, int32_t dnq) {
  const int64_t e = static_cast<int64_t>(dnq) - denoise;
  if (e >= 1) return e < 8 ? dnq : static_cast<int32_t>(denoise + (e >> 3));
  return static_cast<int32_t>(denoise + (e >> 5));
}

inline int32_t drc_total_gain(int32_t gain, int32_t denoise) {
  return denoise != kQ17One ? shr_sat<17>(static_cast<int64_t>(gain) * denoise) : gain;
}

struct DrcGlide {
  int32_t gain[2];
  int32_t denoise[2];
  int32_t target[2];
  int32_t dnq[2];
};
// n steps of both lanes; total_a[k] and total_b[k] are the lanes' totals
// after step k (k < n).
using DrcGlideFn = void (*)(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n);
extern const KernelVariants<DrcGlideFn> drc_glide_variants;
void drc_glide(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n);
#if KAFX_NEON_VARIANTS
void drc_glide_neon(DrcGlide* g, int32_t* total_a, int32_t* total_b, int n);  // common/drc_neon.cpp
#endif

}  // namespace kafx

#endif
