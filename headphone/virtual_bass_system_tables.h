// Per-rate biquad rows of the virtual bass system (generated into
// virtual_bass_system_tables.cpp by tools/calgen/calgen_virtual_bass.cpp).
// One row per SampleRateType (44100, 48000, 96000, 192000 Hz) of five Q28
// coefficients b0, b1, b2, a1, a2, the feedback pair stored with the sign
// that is added. The 192000 Hz rows are all zero: every filtered path is
// silent at that rate.
#ifndef KAFX_HEADPHONE_VIRTUAL_BASS_SYSTEM_TABLES_H
#define KAFX_HEADPHONE_VIRTUAL_BASS_SYSTEM_TABLES_H

#include <cstdint>

namespace kafx::vbs_tables {

inline constexpr int kRates = 4;

extern const int32_t kSplitLowPass[kRates][5];     // crossover set A (both sections)
extern const int32_t kSplitHighPass[kRates][5];    // crossover set B (both sections)
extern const int32_t kHarmonicLowPass[kRates][5];  // after the non-linear device
extern const int32_t kAllPass[kRates][5];          // phase_left, phase_right, phase_bass

}  // namespace kafx::vbs_tables

#endif
