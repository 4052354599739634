// The stereo widening system's chunk kernels (up to 256 samples), built per
// instruction set (common/dispatch.h): the difference circuit, the crossfeed
// network and the early reflector over a chunk. The reference builds run the
// sections with their state in locals sample by sample; the AVX2 builds run
// independent sections in the 64-bit lanes of a vector
// (headphone/biquad_sections_avx2.h). Every build gives the same integers
// and leaves the same state.
#ifndef KAFX_HEADPHONE_STEREO_WIDENING_SYSTEM_KERNELS_H
#define KAFX_HEADPHONE_STEREO_WIDENING_SYSTEM_KERNELS_H

#include "common/dispatch.h"
#include "kafx_proc/stereo_widening_system.h"

namespace kafx {

// n <= 256 samples; the outputs may be the inputs.
using DifferenceChunk = void (*)(difference_circuit* d, const int* in_left, const int* in_right, int* out_left,
                                 int* out_right, int n);
extern const KernelVariants<DifferenceChunk> difference_chunk_variants;

using CrossfeedChunk = void (*)(crossfeed_network* c, const int* in_left, const int* in_right, int* out_left,
                                int* out_right, int n);
extern const KernelVariants<CrossfeedChunk> crossfeed_chunk_variants;

// The early reflector: pre-filters, rooms (the shared comb and all-pass
// kernels), mix and DC removers.
using ReflectorChunk = void (*)(early_reflector* e, const int* in_left, const int* in_right, int* out_left,
                                int* out_right, int n);
extern const KernelVariants<ReflectorChunk> reflector_chunk_variants;

}  // namespace kafx

#endif
