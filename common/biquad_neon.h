// NEON builds of the 32-bit biquad kernels of common/biquad.h and
// common/biquad_cascade.h, for 32-bit ARM and AArch64. Each gives the
// integers of its scalar reference exactly, outputs and final states; they
// enter the variant tables of those kernels (common/dispatch.h).
//
// A stereo section pair (the left and the right channel's section k, each
// working) is one NEON pair of 64-bit lanes: the five products are
// 32x32->64 multiply-accumulates per lane (vmull/vmlal.s32, smull/smlal),
// wrapping like the scalar sum; the product rule's shift by 28 with
// saturation to int32 is one saturating narrowing shift (vqshrn.s64 #28,
// sqshrn), which truncates as the arithmetic shift does; the -1 flush is a
// compare and clear; the input's saturating entry shift is vqshl.s32 #5.
#ifndef KAFX_COMMON_BIQUAD_NEON_H
#define KAFX_COMMON_BIQUAD_NEON_H

#include <cstdint>

#include "common/biquad_cascade.h"
#include "common/dispatch.h"
#include "kafx_proc/biquad.h"

namespace kafx {

#if KAFX_NEON_VARIANTS

// (Definitions in common/biquad_neon.cpp, with KAFX_TARGET_NEON.)

// biquad_block32_pair: fa over a and fb over b, n samples in place.
void biquad_block32_pair_neon(IIR_t* fa, int32_t* a, IIR_t* fb, int32_t* b, int n);

// biquad_cascade_pair: section k of both channels as one lane pair, up to
// four consecutive pairs at a time as a wavefront (section j of the group
// one sample behind section j - 1).
void biquad_cascade_pair_neon(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r,
                              int n);

// biquad_crossover_stereo: per stage, the A and B branches' first and second
// sections (four lane pairs) advance together, the second sections one
// sample behind the first. A stage with a section switched off runs its
// section pairs one after the other.
void biquad_crossover_stereo_neon(const CrossoverStage* left, const CrossoverStage* right, int stages, int32_t* xl,
                                  int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n);

#endif

}  // namespace kafx

#endif
