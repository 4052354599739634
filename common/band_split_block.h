// Block form of the two-way crossover, for owners that split whole blocks.
#ifndef KAFX_COMMON_BAND_SPLIT_BLOCK_H
#define KAFX_COMMON_BAND_SPLIT_BLOCK_H

#include "kafx_proc/band_split.h"

namespace kafx {

// Splits `n` samples of `x`: the first output (set A) goes to `low`, the
// second (set B) replaces `x` in place. Bit-identical to calling
// spectral_band_split_process on each sample in turn.
void band_split_block(spectral_band_split* s, int32_t* x, int32_t* low, int n);

// The same for a left and a right crossover at once (their four feedback
// recursions interleave).
void band_split_block_stereo(spectral_band_split* sl, spectral_band_split* sr, int32_t* xl, int32_t* xr,
                             int32_t* low_l, int32_t* low_r, int n);

// Chained crossovers on a stereo pair: crossover k splits what the one
// before it left in xl / xr, writing its first output to low_l[k] /
// low_r[k]; the last second output stays in xl / xr. Bit-identical to
// band_split_block_stereo stage after stage (see biquad_crossover_stereo).
void band_split_chain_stereo(spectral_band_split* const* left, spectral_band_split* const* right, int stages,
                             int32_t* xl, int32_t* xr, int32_t* const* low_l, int32_t* const* low_r, int n);

}  // namespace kafx

#endif
