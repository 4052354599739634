// The dynamic range controller's block statistics: the reference equals a
// direct sum and maximum of 64-bit magnitudes, and every other build (NEON
// on ARM) equals the reference, on odd lengths, over the whole int32 range
// (INT32_MIN's magnitude is 2^31) and with the peak in every position of a
// vector step and of the tail.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "common/drc_kernels.h"
#include "support/variants.h"

namespace {

using kafx_test::random_values;

struct Stats {
  uint64_t sum;
  uint32_t peak;
  bool operator==(const Stats& o) const { return sum == o.sum && peak == o.peak; }
};

Stats run(kafx::DrcAbsSumPeak fn, const std::vector<int32_t>& x) {
  Stats s{0x5A5A5A5A5A5A5A5Au, 0x5A5A5A5Au};
  fn(x.data(), static_cast<int>(x.size()), &s.sum, &s.peak);
  return s;
}

std::vector<std::vector<int32_t>> signals() {
  std::vector<std::vector<int32_t>> all;
  unsigned seed = 31;
  for (int n : {0, 1, 2, 3, 4, 5, 7, 8, 17, 37, 127, 256, 1031}) {
    all.push_back(random_values<int32_t>(static_cast<size_t>(n), seed++));
    all.push_back(random_values<int32_t>(static_cast<size_t>(n), seed++, -8388607, 8388607));
    std::vector<int32_t> extreme(static_cast<size_t>(n), INT32_MIN);
    all.push_back(extreme);
    // A single large sample in each position, in small noise.
    for (int at = 0; at < n && at < 9; ++at) {
      std::vector<int32_t> v = random_values<int32_t>(static_cast<size_t>(n), seed++, -300, 300);
      v[static_cast<size_t>(n - 1 - at)] = at % 2 == 0 ? INT32_MIN : INT32_MAX;
      all.push_back(v);
    }
  }
  return all;
}

TEST(DrcKernels, ReferenceIsTheSumAndPeakOfMagnitudes) {
  for (const auto& x : signals()) {
    int64_t sum = 0, peak = 0;
    for (int32_t v : x) {
      const int64_t a = v < 0 ? -int64_t{v} : int64_t{v};
      sum += a;
      peak = a > peak ? a : peak;
    }
    const Stats got = run(kafx::drc_abs_sum_peak_variants.fn[kafx::kIsaBaseline], x);
    EXPECT_EQ(got.sum, static_cast<uint64_t>(sum)) << x.size();
    EXPECT_EQ(got.peak, static_cast<uint32_t>(peak)) << x.size();
  }
}

TEST(DrcKernels, VariantsMatchTheReference) {
  const std::vector<std::vector<int32_t>> all = signals();
  const int compared = kafx_test::for_each_variant(kafx::drc_abs_sum_peak_variants, [&](auto fn, auto base) {
    for (const auto& x : all) EXPECT_TRUE(run(fn, x) == run(base, x)) << x.size();
  });
  EXPECT_EQ(compared, kafx_test::neon_builds());
}

}  // namespace
