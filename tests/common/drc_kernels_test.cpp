// Limiter block kernels: the baseline statistics and gain stretch equal a
// direct evaluation of their definitions (|x| summed and maximised in 64
// bits; the line swapped and each delayed sample times the Q17 gain shifted
// down, saturated and -1 flushed), and every other build (AVX2) equals the
// baseline (AVX2 on x86-64; NEON for the statistics on ARM) on odd lengths,
// full-range and saturating inputs, gains at and beyond unity, in place and
// out of place, with canaries past the ends.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "common/drc_kernels.h"
#include "support/variants.h"

namespace {

using kafx_test::Guarded;
using kafx_test::kOddLengths;
using kafx_test::random_values;

// Inputs that reach every corner: full 32-bit range, INT32_MIN runs,
// 24-bit programme, and values that make -1 after the shift.
std::vector<int32_t> input(int kind, int n, unsigned seed) {
  switch (kind) {
    case 0: return random_values<int32_t>(static_cast<size_t>(n), seed);
    case 1: {
      std::vector<int32_t> v = random_values<int32_t>(static_cast<size_t>(n), seed, -8, 8);
      for (int i = 0; i < n; i += 3) v[static_cast<size_t>(i)] = INT32_MIN;
      return v;
    }
    case 2: return random_values<int32_t>(static_cast<size_t>(n), seed, -8388608, 8388607);
    default: return random_values<int32_t>(static_cast<size_t>(n), seed, -3, 1);
  }
}

int32_t gain_model(int32_t d, int32_t gain) {
  int64_t v = (static_cast<int64_t>(d) * gain) >> 17;  // arithmetic shift
  if (v > INT32_MAX) v = INT32_MAX;
  if (v < INT32_MIN) v = INT32_MIN;
  return v == -1 ? 0 : static_cast<int32_t>(v);
}

constexpr int32_t kGains[] = {131072, 0, 1, 65536, 262144 + 7, INT32_MAX, INT32_MIN, -131072};

}  // namespace

TEST(DrcKernels, BaselineStatsEqualDirectSums) {
  const auto base = kafx::drc_block_stats_variants.fn[kafx::kIsaBaseline];
  for (int kind = 0; kind < 4; ++kind)
    for (int n : kOddLengths) {
      const std::vector<int32_t> x = input(kind, n, 11u * n + kind);
      int64_t sum = 0, top = 0;
      for (int32_t v : x) {
        const int64_t a = v < 0 ? -int64_t{v} : int64_t{v};
        sum += a;
        if (a > top) top = a;
      }
      const kafx::DrcBlockStats s = base(x.data(), n);
      EXPECT_EQ(s.sum, sum) << kind << " " << n;
      EXPECT_EQ(s.max_abs, top) << kind << " " << n;
    }
  const int32_t all_min[5] = {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
  EXPECT_EQ(base(all_min, 5).max_abs, int64_t{1} << 31);
  EXPECT_EQ(base(all_min, 0).sum, 0);
}

TEST(DrcKernels, BaselineGainStretchEqualsDefinition) {
  const auto base = kafx::drc_delay_gain_variants.fn[kafx::kIsaBaseline];
  for (int32_t gain : kGains)
    for (int n : kOddLengths) {
      const std::vector<int32_t> line0 = input(static_cast<int>(gain & 3), n, 5u * n);
      const std::vector<int32_t> in = input(2, n, 7u * n);
      std::vector<int32_t> line = line0, out(static_cast<size_t>(n));
      base(line.data(), in.data(), out.data(), n, gain);
      EXPECT_EQ(line, in);
      for (int k = 0; k < n; ++k) ASSERT_EQ(out[k], gain_model(line0[k], gain)) << gain << " " << n << " " << k;
    }
}

TEST(DrcKernels, VariantsEqualBaseline) {
  const int stats = kafx_test::for_each_variant(kafx::drc_block_stats_variants, [](auto fn, auto base) {
    for (int kind = 0; kind < 4; ++kind)
      for (int n : {0, 1, 7, 8, 9, 17, 37, 127, 240, 1031}) {
        const std::vector<int32_t> x = input(kind, n, 3u * n + kind);
        const kafx::DrcBlockStats a = fn(x.data(), n), b = base(x.data(), n);
        EXPECT_EQ(a.sum, b.sum) << kind << " " << n;
        EXPECT_EQ(a.max_abs, b.max_abs) << kind << " " << n;
      }
  });
  const int gains = kafx_test::for_each_variant(kafx::drc_delay_gain_variants, [](auto fn, auto base) {
    for (int32_t gain : kGains)
      for (int kind = 0; kind < 4; ++kind)
        for (int n : {1, 7, 8, 9, 17, 37, 127, 240, 1031})
          for (bool in_place : {false, true}) {
            const std::vector<int32_t> line0 = input(kind, n, 13u * n + kind);
            const std::vector<int32_t> in = input((kind + 1) % 4, n, 17u * n);
            Guarded<int32_t> la(n), lb(n), oa(n), ob(n);
            std::copy(line0.begin(), line0.end(), la.data());
            std::copy(line0.begin(), line0.end(), lb.data());
            std::copy(in.begin(), in.end(), oa.data());
            std::copy(in.begin(), in.end(), ob.data());
            const int32_t* ia = in_place ? oa.data() : in.data();
            const int32_t* ib = in_place ? ob.data() : in.data();
            fn(la.data(), ia, oa.data(), n, gain);
            base(lb.data(), ib, ob.data(), n, gain);
            ASSERT_EQ(la.v, lb.v) << gain << " " << kind << " " << n;
            ASSERT_EQ(oa.v, ob.v) << gain << " " << kind << " " << n << (in_place ? " in place" : "");
            EXPECT_TRUE(la.guards_intact() && oa.guards_intact());
          }
  });
  // The statistics have every build the gain stretch has (and a NEON one).
  EXPECT_EQ(stats, gains + kafx_test::neon_builds());
}
