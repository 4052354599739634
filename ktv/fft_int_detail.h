// Internal helpers of the integer FFT analysis shared with the howling
// canceller.
#ifndef KAFX_KTV_FFT_INT_DETAIL_H
#define KAFX_KTV_FFT_INT_DETAIL_H

#include <cstdint>

#include "kafx_proc/fixed_math.h"

namespace kafx {

// Level in dB, Q8, of an energy whose full-scale reference is 2^52 (a
// full-scale sine centred on a bin of the scaled spectrum, or the sum of
// squares of 128 working samples of a full-scale sine); 0 gives the floor
// of -160 dB.
int32_t power_level_q8(uint64_t power);

// Power re^2 + im^2 of one bin of the scaled spectrum (below 2^55).
uint64_t bin_power(const complex& z);

}  // namespace kafx

#endif
