// The reverb's hot kernels, built per instruction set (common/dispatch.h):
// the bank of eight combs fed one input, both channels' banks side by side,
// two rooms of four combs (the stereo widening's early reflections), the
// wet/dry mix, and one all-pass over a run. The reference builds are the
// block forms of common/delay.h (and the mix's scalar rule); the AVX2 builds
// use eight-lane forms where those give the same integers (combs whose gains
// cannot saturate and whose loops are at least one run of 256 frames long;
// all-passes with g = 0.5; the mix in 64-bit lanes always) and the
// reference otherwise.
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

// Both channels' banks of eight combs (working samples: loop shift 5;
// 16-bit samples: shift 13), the left fed xl[i] and summed into al[i], the
// right fed xr[i] and summed into ar[i], i < n <= 256; identical to the bank
// of eight on the left and then on the right. The AVX2 build runs the two
// banks' lanes side by side when both take the lane form.
using ReverbCombBanks = void (*)(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr,
                                 int32_t* al, int32_t* ar, int n);
extern const KernelVariants<ReverbCombBanks> reverb_comb_banks_working_variants;
extern const KernelVariants<ReverbCombBanks> reverb_comb_banks_16_variants;

// Two rooms of four combs each (working samples, loop shift 5), the left
// four fed xl[i] and summed into al[i], the right four fed xr[i] and summed
// into ar[i], i < n <= 256; identical to comb_process_24 on each comb in
// turn. The AVX2 build runs the eight combs in eight lanes under the same
// conditions as the bank of eight.
using CombStereo4 = void (*)(comber* const* left, comber* const* right, const int32_t* xl, const int32_t* xr,
                             int32_t* al, int32_t* ar, int n);
extern const KernelVariants<CombStereo4> comb_stereo4_working_variants;

// The wet/dry mix of a stereo run: with g = {wet1, wet2, dry_gain},
//   ml[i] = sat32((wet1 al[i] + wet2 ar[i] + dry_gain dl[i]) >> 13)
//   mr[i] = sat32((wet1 ar[i] + wet2 al[i] + dry_gain dr[i]) >> 13)
// (64-bit products, the sums wrapping), i < n. ml may be al and mr ar.
using ReverbMix = void (*)(const int32_t* g, const int32_t* al, const int32_t* ar, const int32_t* dl,
                           const int32_t* dr, int32_t* ml, int32_t* mr, int n);
extern const KernelVariants<ReverbMix> reverb_mix_variants;

// v[0..n) through the all-pass, in place.
using ReverbAllpassRun = void (*)(allpass* a, int32_t* v, int n);
extern const KernelVariants<ReverbAllpassRun> reverb_allpass_run_variants;

}  // namespace kafx

#endif
