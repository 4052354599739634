// Block kernels of the dynamic range control (common/drc.cpp), built per
// instruction set (common/dispatch.h): the block statistics of step 1, the
// per-sample glide of two controllers' gains, and the gains applied through
// the look-ahead line (AVX2 builds of the statistics and the settled gain,
// NEON builds of all four). Every
// build gives the same integers as the scalar loops of the baseline.
#ifndef KAFX_COMMON_DRC_KERNELS_H
#define KAFX_COMMON_DRC_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"

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
