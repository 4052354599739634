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

// A stereo chunk kernel, kernel(state, in_left, in_right, out_left,
// out_right, n): its build `fn` on *got and the baseline `ref` on *want, over
// the same n random inputs within [lo, hi] (from `seed`), into outputs with
// canaries past them. The outputs must agree and the canaries stay intact;
// the caller compares the states.
template <class State, class Kernel>
void expect_same_stereo_chunk(Kernel fn, Kernel ref, State* got, State* want, int n, unsigned seed, int64_t lo,
                              int64_t hi) {
  const auto un = static_cast<size_t>(n);
  const std::vector<int32_t> l = random_values<int32_t>(un, seed + n, lo, hi);
  const std::vector<int32_t> r = random_values<int32_t>(un, seed + 7 * n, lo, hi);
  Guarded<int> gl(un), gr(un), wl(un), wr(un);
  fn(got, l.data(), r.data(), gl.data(), gr.data(), n);
  ref(want, l.data(), r.data(), wl.data(), wr.data(), n);
  ASSERT_TRUE(std::equal(wl.v.begin(), wl.v.begin() + n, gl.v.begin())) << "left, n " << n;
  ASSERT_TRUE(std::equal(wr.v.begin(), wr.v.begin() + n, gr.v.begin())) << "right, n " << n;
  EXPECT_TRUE(gl.guards_intact() && gr.guards_intact()) << "n " << n;
}

}  // namespace kafx_test

#endif
