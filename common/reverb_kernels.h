// The reverb's hot kernels, built per instruction set (common/dispatch.h):
// the bank of eight combs fed one input, two rooms of four combs (the
// stereo widening's early reflections), and one all-pass over a run. The
// reference builds are the block forms of common/delay.h; the AVX2 builds
// use eight-lane forms where those give the same integers (combs whose gains
// cannot saturate and whose loops are at least one run of 256 frames long;
// all-passes with g = 0.5) and the reference otherwise.
#ifndef KAFX_COMMON_REVERB_KERNELS_H
#define KAFX_COMMON_REVERB_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"
#include "kafx_proc/delay.h"

namespace kafx {

// acc[i] += the sum of the eight combs' outputs for input x[i], i < n <= 256
// (working samples: loop shift 5; 16-bit samples: shift 13).
using ReverbCombBank = void (*)(comber* const* c, const int32_t* x, int32_t* acc, int n);
extern const KernelVariants<ReverbCombBank> reverb_comb_bank_working_variants;
extern const KernelVariants<ReverbCombBank> reverb_comb_bank_16_variants;

// Two rooms of four combs each (working samples, loop shift 5), the left
// four fed xl[i] and summed into al[i], the right four fed xr[i] and summed
// into ar[i], i < n <= 256; identical to comb_process_24 on each comb in
// turn. The AVX2 build runs the eight combs in eight lanes under the same
// conditions as the bank of eight.
using CombStereo4 = void (*)(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr,
                             int32_t* al, int32_t* ar, int n);
extern const KernelVariants<CombStereo4> comb_stereo4_working_variants;

// v[0..n) through the all-pass, in place.
using ReverbAllpassRun = void (*)(allpass* a, int32_t* v, int n);
extern const KernelVariants<ReverbAllpassRun> reverb_allpass_run_variants;

}  // namespace kafx

#endif
