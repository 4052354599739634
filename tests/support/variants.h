// Runs the builds of a kernel (common/dispatch.h) that this processor can
// execute side by side with the baseline build, on buffers with canaries past
// their ends.
#ifndef KAFX_TESTS_SUPPORT_VARIANTS_H
#define KAFX_TESTS_SUPPORT_VARIANTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <random>
#include <vector>

#include "common/dispatch.h"

namespace kafx_test {

// The odd lengths every variant is compared on.
inline constexpr int kOddLengths[] = {1, 17, 37, 127, 1031};

// Calls run(fn, name) for every non-baseline build of `v` this processor can
// run; returns how many there were.
template <class F, class Run>
int for_each_variant(const kafx::KernelVariants<F>& v, Run&& run) {
  EXPECT_NE(v.fn[kafx::kIsaBaseline], nullptr) << v.name << ": the baseline is always built";
  int n = 0;
  for (int i = 1; i < kafx::kIsaCount; ++i) {
    const auto isa = static_cast<kafx::Isa>(i);
    if (v.fn[i] == nullptr || !kafx::isa_available(isa)) continue;
    ++n;
    SCOPED_TRACE(std::string(v.name) + " " + kafx::isa_name(isa));
    run(v.fn[i], v.fn[kafx::kIsaBaseline]);
  }
  return n;
}

// 1 where a NEON build of a kernel that has one runs here (it is built on
// ARM and this processor has NEON), else 0.
inline int neon_builds() { return KAFX_NEON_VARIANTS && kafx::isa_available(kafx::kIsaNeon) ? 1 : 0; }

// A buffer of `n` values followed by kCanary guard words.
template <typename T>
struct Guarded {
  static constexpr int kCanary = 16;
  static constexpr T kGuard = static_cast<T>(0x5A5A5A5A);
  std::vector<T> v;
  explicit Guarded(size_t n) : v(n + kCanary, kGuard) {}
  T* data() { return v.data(); }
  bool guards_intact() const {
    for (size_t i = v.size() - kCanary; i < v.size(); ++i)
      if (v[i] != kGuard) return false;
    return true;
  }
};

// Uniform values of T over its whole range (or [lo, hi]).
template <typename T>
std::vector<T> random_values(size_t n, unsigned seed, int64_t lo = INT64_MIN, int64_t hi = INT64_MAX) {
  lo = std::max<int64_t>(lo, std::numeric_limits<T>::min());
  hi = std::min<int64_t>(hi, std::numeric_limits<T>::max());
  std::mt19937_64 rng(seed);
  std::uniform_int_distribution<int64_t> d(lo, hi);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(d(rng));
  return v;
}

}  // namespace kafx_test

#endif
