// The karaoke chain's format conversions of a 16-bit frame, built per
// instruction set (common/dispatch.h): the baseline is the plain loop, the
// AVX2 build does eight samples per step (and the rest one by one).
#ifndef KAFX_KTV_KTV_CHAIN_KERNELS_H
#define KAFX_KTV_KTV_CHAIN_KERNELS_H

#include <cstdint>

#include "common/dispatch.h"

namespace kafx {

// work[i] = in[i] * 256 (16-bit samples to 24-bit working samples), i < n.
using KtvFrameIn16 = void (*)(const int16_t* in, int32_t* work, int n);
extern const KernelVariants<KtvFrameIn16> ktv_frame_in16_variants;

// out_left[i] = sat16(left[i] >> 8), out_right[i] = sat16(right[i] >> 8),
// i < n (working samples back to 16 bits, saturating).
using KtvFrameOut16 = void (*)(const int32_t* left, const int32_t* right, int16_t* out_left, int16_t* out_right,
                               int n);
extern const KernelVariants<KtvFrameOut16> ktv_frame_out16_variants;

}  // namespace kafx

#endif
