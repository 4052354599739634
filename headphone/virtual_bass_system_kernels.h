// The virtual bass system's first pass over a block (up to 256 samples),
// built per instruction set (common/dispatch.h): crossovers, mono bass,
// non-linear device, harmonic filter and alignment all-passes, writing the
// mono bass mix to bass_buffer and the scaled high bands to the outputs.
// The reference build runs the sections with their state in locals sample
// by sample; the AVX2 build runs independent sections in the 64-bit lanes
// of a vector (headphone/biquad_sections_avx2.h). Every build gives the
// same integers and leaves the same state.
#ifndef KAFX_HEADPHONE_VIRTUAL_BASS_SYSTEM_KERNELS_H
#define KAFX_HEADPHONE_VIRTUAL_BASS_SYSTEM_KERNELS_H

#include "common/dispatch.h"
#include "kafx_proc/virtual_bass_system.h"

namespace kafx {

// n <= 256; the outputs may be the inputs.
using VirtualBassFirstPass = void (*)(virtual_bass_system* v, const int* in_left, const int* in_right, int* out_left,
                                      int* out_right, int n);
extern const KernelVariants<VirtualBassFirstPass> virtual_bass_first_pass_variants;

}  // namespace kafx

#endif
