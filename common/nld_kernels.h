// Block form of the non-linear device (common/nld.cpp) for owners that run
// it over whole blocks: the clip glide sample by sample, then the harmonic
// polynomial over the run, built per instruction set (common/dispatch.h).
// Every build gives exactly NLD_process's samples.
#ifndef KAFX_COMMON_NLD_KERNELS_H
#define KAFX_COMMON_NLD_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"
#include "kafx_proc/band_split.h"

namespace kafx {

// y[i] = the eight-term product chain of x[i] with the device's coefficients
// coef[0..8) (multiplier_process), i < n. y may be x.
using NldPolynomialRun = void (*)(const int32_t* coef, const int32_t* x, int32_t* y, int n);
extern const KernelVariants<NldPolynomialRun> nld_polynomial_run_variants;

// The whole device over n samples: identical to n calls of NLD_process.
// out may be in.
void nld_process_block(NLD* d, const int32_t* in, int32_t* out, int n);

}  // namespace kafx

#endif
