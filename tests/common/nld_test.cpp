// Non-linear device: the polynomial chain at values derived by hand or from
// an independent big-integer evaluation of the term recursion, its symmetry
// and saturation, and the clipper's limit, glide and setter.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "common/nld_kernels.h"
#include "kafx_proc/band_split.h"
#include "support/variants.h"

using Coef = std::array<int32_t, 8>;
constexpr Coef kDefault = {123008, -511, 699050, -345, 310689, -288, 116508, -256};

TEST(Nld, PolynomialValues) {
  struct Row { Coef c; int x, y; } rows[] = {
      // Defaults. x = 2^15: p0 = 123008, p1 = (-511 * 123008) >> 23 = -8,
      // p2 = (699050 * -8) >> 23 = -1, higher terms 0. x = -2^15: p0 flips,
      // p1 = -8 (even: same sign), p2 = floor(+0.67) = 0.
      {kDefault, 0, 0}, {kDefault, 32768, 122999}, {kDefault, -32768, -123016},
      {kDefault, 2097152, 7679572}, {kDefault, -2097152, -7740105}, {kDefault, 8388607, 21637278},
      // Unit ratios and x = 2^22 make every shift exact: p0 = 2^22, p1 = 2^21,
      // p2 = 2^20; a negative x flips p0 and p2 (odd powers) but not p1.
      {{32768, 32768, 32768}, 1 << 22, (1 << 22) + (1 << 21) + (1 << 20)},
      {{32768, 32768, 32768}, -(1 << 22), -(1 << 22) + (1 << 21) - (1 << 20)},
      // t1 = c1 * x >> 15 = 32 * INT32_MAX saturates before the next product:
      // p1 = (INT32_MAX * 2^21) >> 23, not a saturated 2^34.
      {{65536, INT32_MAX}, 1 << 20, 2097152 + 536870911},
      {{65536, INT32_MAX}, -(1 << 20), -2097152 + 536870912},
      {{INT32_MAX, 32768}, 8388607, INT32_MAX},  // the sum saturates instead of wrapping
  };
  NLD n;
  NLD_init(&n);
  EXPECT_TRUE(std::equal(kDefault.begin(), kDefault.end(), n.coef));
  for (Row& r : rows) {
    int y = 0;
    std::copy(r.c.begin(), r.c.end(), n.coef);
    multiplier_process(&n, &r.x, &y);
    EXPECT_EQ(y, r.y) << r.x;
  }
  NLD_end(&n);
  EXPECT_EQ(n.coef, nullptr);
}

TEST(Nld, ClipperLimitGlideAndLevel) {
  NLD n;
  NLD_init(&n);
  int flag = 0, level = 0, x = 8388607, y = 0, z = 0;
  NLD_get_clip_flag(&n, &flag);
  clip_process(&n, &x, &y);  // defaults: full scale is clamped to 2097152 before the polynomial
  NLD_process(&n, &x, &z);
  EXPECT_TRUE(flag == 1 && y == 2097152 && z == 7679572);
  x = -8388607;
  NLD_process(&n, &x, &y);
  EXPECT_EQ(y, -7740105);
  // Clip level 4096 is a limit of 4096 << 8 = 1048576; the limit in force
  // moves 1/128 of the way per sample, before use: 2097152 - 8192, then - 8128.
  NLD_set_clip_level(&n, 4096);
  EXPECT_EQ(n.clip_limit, 1048576);
  int glide[][2] = {{8388607, 2088960}, {-8388607, -2080832}, {1000, 1000}};
  for (auto& [in, out] : glide) {
    clip_process(&n, &in, &y);
    EXPECT_EQ(y, out) << in;
  }
  NLD_reset(&n);  // restarts from 2097152, not from the target
  EXPECT_TRUE(n.clip_current == 2097152 && n.clip_limit == 1048576);
  NLD_set_clip_flag(&n, 0);  // no clipping and no glide
  x = 8388607;
  NLD_process(&n, &x, &y);
  EXPECT_TRUE(y == 21637278 && n.clip_current == 2097152);
  const int levels[][2] = {{8192, 2097152}, {8388608, INT32_MAX}, {-8388609, INT32_MIN}};
  for (auto [lv, limit] : levels) {
    NLD_set_clip_level(&n, lv);
    NLD_get_clip_level(&n, &level);
    EXPECT_TRUE(n.clip_limit == limit && level == lv) << lv;
  }
  NLD_end(&n);
}

// The polynomial's builds (common/nld_kernels.h) against the baseline on odd
// run lengths with canaries: 24-bit inputs with the default and with large
// coefficients (where the lane form applies), inputs over the whole int32
// range and coefficients whose chains saturate (where it must fall back),
// and a single extreme sample hidden in an otherwise small run.
TEST(Nld, PolynomialRunVariantsMatchTheBaseline) {
  const Coef big = {INT32_MAX, -8388607, 4194304, INT32_MIN, 65536, 1, -1, 2000000};
  const Coef near = {262143, 262143, 262143, 262143, 262143, 262143, 262143, 262143};
  struct Case { Coef c; int64_t lo, hi; } cases[] = {
      {kDefault, -8388607, 8388607}, {kDefault, -2097152, 2097152}, {kDefault, INT32_MIN, INT32_MAX},
      {big, -8388607, 8388607},      {big, -4096, 4096},             {near, -8388608, 8388607},
      {near, -65536, 65536},
  };
  const int runs = kafx_test::for_each_variant(kafx::nld_polynomial_run_variants, [&](auto fn, auto ref) {
    unsigned seed = 1;
    for (const Case& k : cases) {
      for (int n : kafx_test::kOddLengths) {
        for (int spike = 0; spike < 2; ++spike) {
          std::vector<int32_t> x = kafx_test::random_values<int32_t>(static_cast<size_t>(n), seed++, k.lo, k.hi);
          if (spike != 0) x[static_cast<size_t>(n) / 2] = INT32_MIN;
          kafx_test::Guarded<int32_t> got(static_cast<size_t>(n)), want(static_cast<size_t>(n));
          fn(k.c.data(), x.data(), got.data(), n);
          ref(k.c.data(), x.data(), want.data(), n);
          ASSERT_TRUE(std::equal(want.v.begin(), want.v.begin() + n, got.v.begin())) << "n " << n;
          EXPECT_TRUE(got.guards_intact());
        }
      }
    }
  });
  EXPECT_EQ(runs, (kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0) + kafx_test::neon_builds());
}

// The block form is NLD_process sample by sample: the glide of the clip
// limit toward a new level across the block, with and without clipping,
// and in place.
TEST(Nld, BlockFormIsTheSampleBySampleDevice) {
  for (int flag : {1, 0}) {
    for (int level : {32767, 4096, 0}) {
      NLD a, b;
      NLD_init(&a);
      NLD_init(&b);
      NLD_set_clip_flag(&a, flag);
      NLD_set_clip_flag(&b, flag);
      NLD_set_clip_level(&a, level);
      NLD_set_clip_level(&b, level);
      for (int n : kafx_test::kOddLengths) {
        std::vector<int32_t> x = kafx_test::random_values<int32_t>(static_cast<size_t>(n), 77u + n, -8388607, 8388607);
        std::vector<int32_t> want(x.size());
        for (size_t i = 0; i < x.size(); ++i) NLD_process(&a, &x[i], &want[i]);
        kafx::nld_process_block(&b, x.data(), x.data(), n);
        ASSERT_EQ(x, want) << "flag " << flag << " level " << level << " n " << n;
        ASSERT_EQ(a.clip_current, b.clip_current);
      }
      NLD_end(&a);
      NLD_end(&b);
    }
  }
}
