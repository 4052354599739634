#include "audio_summary.h"

#include <algorithm>
#include <cmath>

namespace kafx_tool {

Level measure(const std::vector<int32_t>& s, size_t first, size_t count) {
  double peak = 0.0, energy = 0.0;
  for (size_t i = first; i < first + count; ++i) {
    const double v = s[i] / 2147483648.0;
    peak = std::max(peak, std::fabs(v));
    energy += v * v;
  }
  auto db = [](double x) { return x > 0.0 ? 20.0 * std::log10(x) : -INFINITY; };
  return {db(peak), db(count > 0 ? std::sqrt(energy / static_cast<double>(count)) : 0.0)};
}

}  // namespace kafx_tool
