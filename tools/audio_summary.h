// Level figures printed by the kafx audio commands' summaries.
#ifndef KAFX_TOOLS_AUDIO_SUMMARY_H
#define KAFX_TOOLS_AUDIO_SUMMARY_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kafx_tool {

struct Level {
  double peak_db;  // dBFS of the largest magnitude (-inf for silence)
  double rms_db;   // dBFS of the RMS
};

// Peak and RMS of full-scale 32-bit samples s[first .. first + count).
Level measure(const std::vector<int32_t>& s, size_t first, size_t count);

}  // namespace kafx_tool

#endif
