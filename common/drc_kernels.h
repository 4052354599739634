// Block statistics of the dynamic range controller (common/drc.cpp), built
// per instruction set (common/dispatch.h); every build gives the same sums.
#ifndef KAFX_COMMON_DRC_KERNELS_H
#define KAFX_COMMON_DRC_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"

namespace kafx {

// Over x[0..n): *sum = the sum of |x[i]| and *peak = the largest |x[i]|,
// with |INT32_MIN| = 2^31 exactly (sums of up to 2^32 samples fit).
using DrcAbsSumPeak = void (*)(const int32_t* x, int n, uint64_t* sum, uint32_t* peak);
extern const KernelVariants<DrcAbsSumPeak> drc_abs_sum_peak_variants;

}  // namespace kafx

#endif
