// Measuring low-passes of the smart volume control (generated: see
// headphone/smart_volume_control_tables.cpp for their design).
#ifndef KAFX_HEADPHONE_SMART_VOLUME_CONTROL_TABLES_H
#define KAFX_HEADPHONE_SMART_VOLUME_CONTROL_TABLES_H

#include <cstdint>

namespace kafx {

inline constexpr int kSmartVolumeRates = 3;  // 44100, 48000 (and 192000), 96000 Hz

// [rate][low, mid, high]: b0, b1, b2, a1, a2 in Q28.
extern const int32_t kSmartVolumeFilters[kSmartVolumeRates][3][5];

}  // namespace kafx

#endif
