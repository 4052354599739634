// The builds of the Q13 gain run (common/gain_kernels.h) against the
// baseline build on odd lengths, over gains and samples of the whole int32
// range (products that saturate both ways and that give -1 before the
// flush), in place and out of place, with canaries; and the baseline on
// hand-worked products of the rule.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "common/gain_kernels.h"
#include "support/variants.h"

namespace {

TEST(GainRunQ13, VariantsMatchBaseline) {
  const int32_t gains[] = {0, 1, -1, 127, 8192, -8192, 12000, INT32_MAX, INT32_MIN};
  const int compared = kafx_test::for_each_variant(kafx::gain_run_q13_variants, [&](auto fn, auto base) {
    for (int32_t g : gains) {
      for (int m : kafx_test::kOddLengths) {
        const auto n = static_cast<size_t>(m);
        std::vector<int32_t> x = kafx_test::random_values<int32_t>(n, 300 + m + static_cast<unsigned>(g & 0xff));
        if (n > 3) {
          x[1] = -1;  // -1 * small gains: -1 >> 13 is -1, flushed to 0
          x[2] = INT32_MIN;
          x[3] = INT32_MAX;
        }
        kafx_test::Guarded<int32_t> want(n), got(n), in_place(n);
        base(x.data(), want.data(), g, m);
        fn(x.data(), got.data(), g, m);
        std::copy(x.begin(), x.end(), in_place.v.begin());
        fn(in_place.data(), in_place.data(), g, m);
        SCOPED_TRACE(testing::Message() << "gain " << g << " length " << m);
        EXPECT_EQ(got.v, want.v);
        EXPECT_EQ(in_place.v, want.v);
        EXPECT_TRUE(got.guards_intact() && in_place.guards_intact());
      }
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// (x * g) >> 13, saturated to int32, -1 flushed to 0.
TEST(GainRunQ13, BaselineFollowsTheProductRule) {
  struct Row {
    int32_t x, g, want;
  };
  const Row rows[] = {
      {8192, 8192, 8192},           {1000, 4096, 500},        {-1000, 4096, -500},
      {-1, 1, 0},                   {-3, 8192, -3},           {-8193, 1, -2},
      {INT32_MAX, 16384, INT32_MAX}, {INT32_MIN, 16384, INT32_MIN}, {INT32_MIN, 8192, INT32_MIN},
      {INT32_MIN, -8192, INT32_MAX}, {3, -1, 0},              {12345678, 127, 191394},
  };
  for (const Row& r : rows) {
    int32_t out = 0;
    kafx::gain_run_q13_variants.fn[kafx::kIsaBaseline](&r.x, &out, r.g, 1);
    EXPECT_EQ(out, r.want) << r.x << " * " << r.g;
  }
}

}  // namespace
