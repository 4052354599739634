// Non-linear device: the polynomial chain at values derived by hand or from
// an independent big-integer evaluation of the term recursion, its symmetry
// and saturation, and the clipper's limit, glide and setter.
#include <gtest/gtest.h>

#include <cstdint>

#include "kafx_proc/band_split.h"

namespace {

int poly(NLD* n, int x) {
  int y = 0;
  multiplier_process(n, &x, &y);
  return y;
}

}  // namespace

TEST(Nld, DefaultPolynomialValues) {
  NLD n;
  NLD_init(&n);
  EXPECT_EQ(poly(&n, 0), 0);
  // x = 2^15: p0 = 123008, p1 = (-511 * 123008) >> 23 = -8,
  // p2 = (699050 * -8) >> 23 = -1, higher terms 0.
  EXPECT_EQ(poly(&n, 32768), 122999);
  // x = -2^15: p0 = -123008, p1 = -8 (even: same sign), p2 = floor(+0.67) = 0.
  EXPECT_EQ(poly(&n, -32768), -123016);
  EXPECT_EQ(poly(&n, 2097152), 7679572);
  EXPECT_EQ(poly(&n, -2097152), -7740105);
  EXPECT_EQ(poly(&n, 8388607), 21637278);
  NLD_end(&n);
  EXPECT_EQ(n.coef, nullptr);
}

TEST(Nld, OddEvenSymmetryAndSaturation) {
  NLD n;
  NLD_init(&n);
  // Unit ratios and x = 2^22 make every shift exact: p0 = 2^22, p1 = 2^21,
  // p2 = 2^20; a negative x flips p0 and p2 (odd powers) but not p1.
  const int32_t unit3[8] = {32768, 32768, 32768, 0, 0, 0, 0, 0};
  for (int k = 0; k < 8; ++k) n.coef[k] = unit3[k];
  EXPECT_EQ(poly(&n, 1 << 22), (1 << 22) + (1 << 21) + (1 << 20));
  EXPECT_EQ(poly(&n, -(1 << 22)), -(1 << 22) + (1 << 21) - (1 << 20));

  // t1 = c1 * x >> 15 = 32 * INT32_MAX saturates to INT32_MAX before the next
  // product: p1 = (INT32_MAX * 2^21) >> 23, not a saturated 2^34.
  const int32_t big[8] = {65536, INT32_MAX, 0, 0, 0, 0, 0, 0};
  for (int k = 0; k < 8; ++k) n.coef[k] = big[k];
  EXPECT_EQ(poly(&n, 1 << 20), 2097152 + 536870911);
  EXPECT_EQ(poly(&n, -(1 << 20)), -2097152 + 536870912);

  // The sum saturates instead of wrapping.
  const int32_t huge[8] = {INT32_MAX, 32768, 0, 0, 0, 0, 0, 0};
  for (int k = 0; k < 8; ++k) n.coef[k] = huge[k];
  EXPECT_EQ(poly(&n, 8388607), INT32_MAX);
  NLD_end(&n);
}

TEST(Nld, ClipperLimitGlideAndLevel) {
  NLD n;
  NLD_init(&n);
  int flag = 0, level = 0;
  NLD_get_clip_flag(&n, &flag);
  EXPECT_EQ(flag, 1);

  // Defaults: full scale is clamped to 2097152 before the polynomial.
  int x = 8388607, y = 0;
  clip_process(&n, &x, &y);
  EXPECT_EQ(y, 2097152);
  NLD_process(&n, &x, &y);
  EXPECT_EQ(y, poly(&n, 2097152));
  x = -8388607;
  NLD_process(&n, &x, &y);
  EXPECT_EQ(y, poly(&n, -2097152));

  // New limit 4096 << 8 = 1048576: the limit in force moves 1/128 of the way
  // per sample: 2097152 - 8192, then - 8128.
  NLD_set_clip_level(&n, 4096);
  EXPECT_EQ(n.clip_limit, 1048576);
  x = 8388607;
  clip_process(&n, &x, &y);
  EXPECT_EQ(y, 2088960);
  x = -8388607;
  clip_process(&n, &x, &y);
  EXPECT_EQ(y, -2080832);
  x = 1000;
  clip_process(&n, &x, &y);
  EXPECT_EQ(y, 1000);

  // Reset restarts from 2097152, not from the target.
  NLD_reset(&n);
  EXPECT_EQ(n.clip_current, 2097152);
  EXPECT_EQ(n.clip_limit, 1048576);

  // Flag 0: no clipping and no glide.
  NLD_set_clip_flag(&n, 0);
  x = 8388607;
  NLD_process(&n, &x, &y);
  EXPECT_EQ(y, 21637278);
  EXPECT_EQ(n.clip_current, 2097152);

  NLD_set_clip_level(&n, 8192);
  EXPECT_EQ(n.clip_limit, 2097152);
  NLD_set_clip_level(&n, 8388608);
  EXPECT_EQ(n.clip_limit, INT32_MAX);
  NLD_set_clip_level(&n, -8388609);
  EXPECT_EQ(n.clip_limit, INT32_MIN);
  NLD_get_clip_level(&n, &level);
  EXPECT_EQ(level, -8388609);
  NLD_end(&n);
}
