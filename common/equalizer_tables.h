// Built-in gain-step tables of the graphic equalizer (generated: see
// common/equalizer_tables.cpp for the design of every row).
#ifndef KAFX_COMMON_EQUALIZER_TABLES_H
#define KAFX_COMMON_EQUALIZER_TABLES_H

#include <cstdint>

#include "kafx_proc/equalizer.h"

namespace kafx {

inline constexpr int kEqualizerRates = 3;  // 44100, 48000, 96000 Hz
inline constexpr int kEqualizerSteps = 2 * EQUALIZER_MAX_INDEX + 1;

// [rate][band][index + 15]: b0, b1, b2, a1, a2 in Q28.
extern const int32_t kEqualizerTables[kEqualizerRates][EQUALIZER_BANDS][kEqualizerSteps][5];

}  // namespace kafx

#endif
