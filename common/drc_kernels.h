// Block kernels of the dynamic range control (common/drc.cpp), built per
// instruction set (common/dispatch.h): the block statistics of step 1 and
// the settled gain applied through the look-ahead line (AVX2 builds of both,
// a NEON build of the statistics). Every build gives the same integers as
// the scalar loops of the baseline.
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

}  // namespace kafx

#endif
