// A run of samples times one Q13 gain (the product rule, mulq13), built per
// instruction set (common/dispatch.h): the input gains of the equalizer and
// the reverb. The baseline is the plain loop; the AVX2 build forms eight
// 64-bit products per step (the even and the odd lanes), shifts and
// saturates them and flushes -1, as mulq13 does.
#ifndef KAFX_COMMON_GAIN_KERNELS_H
#define KAFX_COMMON_GAIN_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"

namespace kafx {

// out[i] = mulq13(in[i], gain), i < n; out may be in.
using GainRunQ13 = void (*)(const int32_t* in, int32_t* out, int32_t gain, int n);
extern const KernelVariants<GainRunQ13> gain_run_q13_variants;

}  // namespace kafx

#endif
