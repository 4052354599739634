// Per-rate biquad rows of the stereo widening system (generated into
// stereo_widening_system_tables.cpp by tools/calgen/calgen_stereo_widening.cpp).
// Each table holds one row per SampleRateType (44100, 48000, 96000, 192000 Hz)
// of five Q28 coefficients b0, b1, b2, a1, a2, the feedback pair stored with
// the sign that is added. The 192000 Hz rows are all zero: every section then
// outputs silence at that rate.
#ifndef KAFX_HEADPHONE_STEREO_WIDENING_SYSTEM_TABLES_H
#define KAFX_HEADPHONE_STEREO_WIDENING_SYSTEM_TABLES_H

#include <cstdint>

namespace kafx::sws_tables {

inline constexpr int kRates = 4;
inline constexpr int kPhaseSections = 3;

// Difference circuit.
extern const int32_t kPhaseNetwork[kPhaseSections][kRates][5];  // sections 0-2 (left) and 3-5 (right)
extern const int32_t kSpareBandPass[kRates][5];                 // section 6
extern const int32_t kLowPass200[kRates][5];                    // sections 7 and 10
extern const int32_t kSideHighPass[kRates][5];                  // section 8
extern const int32_t kMidBandPass[kRates][5];                   // section 9

// Crossfeed network.
extern const int32_t kCrossfeedAllPass[kRates][5];   // sections 0, 1
extern const int32_t kCrossfeedLowPass[kRates][5];   // sections 2, 3
extern const int32_t kCrossfeedHighPass[kRates][5];  // sections 4, 5

// Early reflector.
extern const int32_t kReflectorPreFilter[kRates][5];

}  // namespace kafx::sws_tables

#endif
