// Cascades of 32-bit biquad sections (Q28 coefficients, 24-bit working
// samples), one cascade per channel, run over a whole block in place; and
// the band split of a level meter and the chained crossovers of a multiband
// splitter, built from the same sections.
//
// The result is by definition that of running the block through the first
// section, then through the second, and so on (biquad_block32, a section
// with status 0 passing its input through untouched); each section's state
// ends exactly where that would leave it. The baseline build does just that,
// section after section. The AVX2 build runs every section of both cascades
// at once as a wavefront (one 64-bit lane per section); it is chosen through
// common/dispatch.h and must give the same integers.
#ifndef KAFX_COMMON_BIQUAD_CASCADE_H
#define KAFX_COMMON_BIQUAD_CASCADE_H

#include <cstdint>

#include "common/dispatch.h"
#include "kafx_proc/biquad.h"

namespace kafx {

// The longest cascade the wavefront takes per channel; longer ones run
// section after section in every build.
inline constexpr int kCascadeMaxSections = 10;

// Filters l through left[0..nl) and r through right[0..nr), n samples each,
// in place. nr = 0 (right and r unused, may be null) runs one cascade.
void biquad_cascade_pair(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r, int n);

inline void biquad_cascade(IIR_t* const* sections, int count, int32_t* x, int n) {
  biquad_cascade_pair(sections, count, x, nullptr, 0, nullptr, n);
}

using BiquadCascadePair = void (*)(IIR_t* const* left, int nl, int32_t* l, IIR_t* const* right, int nr, int32_t* r,
                                   int n);
extern const KernelVariants<BiquadCascadePair> biquad_cascade_pair_variants;

// Band split by successive sections, both channels side by side (a level
// meter's bands): with rest_0 = x, stage k filters the remainder,
//   low_k = section_k(rest_k),  rest_{k+1} = sat32(rest_k - low_k),
// and the sums of squares low_k^2 (64-bit products, sums wrapping) are
// added to energy[k] for k < count, those of rest_count^2 to energy[count].
// The inputs are read only; the sections' states move on as in
// biquad_block32.
void biquad_split_energies(IIR_t* const* left, const int32_t* l, uint64_t* energy_left, IIR_t* const* right,
                           const int32_t* r, uint64_t* energy_right, int count, int n);

using BiquadSplitEnergies = void (*)(IIR_t* const* left, const int32_t* l, uint64_t* energy_left,
                                     IIR_t* const* right, const int32_t* r, uint64_t* energy_right, int count, int n);
extern const KernelVariants<BiquadSplitEnergies> biquad_split_energies_variants;

// Two-way crossovers in a chain on a stereo pair (a multiband splitter).
// Stage k splits the previous stage's high band h_k (h_0 = x) into
//   low_k = a[1](a[0](h_k)),  h_{k+1} = b[1](b[0](h_k))
// (two sections in series per branch, each as in biquad_block32), writes
// low_k to low_l[k] / low_r[k] and the last high band over xl / xr. The low
// buffers must not overlap the inputs or each other.
struct CrossoverStage {
  IIR_t* a[2];
  IIR_t* b[2];
};

// The most stages the wavefront takes; longer chains run stage after stage
// in every build.
inline constexpr int kCrossoverMaxStages = 3;

void biquad_crossover_stereo(const CrossoverStage* left, const CrossoverStage* right, int stages, int32_t* xl,
                             int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n);

using BiquadCrossoverStereo = void (*)(const CrossoverStage* left, const CrossoverStage* right, int stages,
                                       int32_t* xl, int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n);
extern const KernelVariants<BiquadCrossoverStereo> biquad_crossover_stereo_variants;

}  // namespace kafx

#endif
