// Sequence helpers shared by the block tests: a block's one-sample call
// applied along an input, and working-scale material as 16-bit samples.
#ifndef KAFX_TESTS_SUPPORT_SEQUENCES_H
#define KAFX_TESTS_SUPPORT_SEQUENCES_H

#include <algorithm>
#include <cmath>
#include <vector>

namespace kafx_test {

// f(x) for every x of `in`, in order.
template <class F>
std::vector<int> per_sample(const std::vector<int>& in, F&& f) {
  std::vector<int> out;
  out.reserve(in.size());
  for (int x : in) out.push_back(f(x));
  return out;
}

// Working-scale (24-bit) samples as 16-bit ones: / 256, rounded, clamped.
inline std::vector<short> to16(const std::vector<double>& v) {
  std::vector<short> s(v.size());
  for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<short>(std::clamp(std::lrint(v[i] / 256), -32768L, 32767L));
  return s;
}

}  // namespace kafx_test

#endif
