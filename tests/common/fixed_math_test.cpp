// The shared arithmetic: the product rule at its boundaries and the stated
// values of the square roots, exponential, logarithm, complex operations and
// the fractional division.
#include <gtest/gtest.h>

#include "common/fixed_point.h"
#include "kafx_proc/fixed_math.h"

using namespace kafx;

TEST(ProductRule, FlushesMinusOneAndSaturates) {
  EXPECT_EQ(mulq13(-1, 1), 0);            // -1/8192 floors to -1, flushed
  EXPECT_EQ(mulq13(-8193, 1), -2);        // -2 is not flushed
  EXPECT_EQ(mulq13(2147483647, 8192), 2147483647);
  EXPECT_EQ(mulq13(2147483647, 16384), 2147483647);
  EXPECT_EQ(mulq13(INT32_MIN, 16384), INT32_MIN);
  EXPECT_EQ(mulq13(-100, 4096), -50);
  EXPECT_EQ(mulq13(-3, 4096), -2);        // floor, not toward zero
  EXPECT_EQ(mulq28(kQ28One, 12345), 12345);
  EXPECT_EQ(shr_sat<13>(-1), -1);         // the plain shift keeps -1
}

TEST(ProductRule, SaturatingAddSubAndShift) {
  EXPECT_EQ(sat_add(INT32_MAX, 1), INT32_MAX);
  EXPECT_EQ(sat_add(INT32_MIN, -1), INT32_MIN);
  EXPECT_EQ(sat_add(INT32_MAX, INT32_MIN), -1);
  EXPECT_EQ(sat_sub(INT32_MIN, 1), INT32_MIN);
  EXPECT_EQ(sat_sub(INT32_MAX, -1), INT32_MAX);
  EXPECT_EQ(sat_sub(0, INT32_MIN), INT32_MAX);
  EXPECT_EQ(shl_sat<5>(1 << 26), INT32_MAX);
  EXPECT_EQ(shl_sat<5>((1 << 26) - 1), ((1 << 26) - 1) * 32);
  EXPECT_EQ(shl_sat<5>(-(1 << 26)), INT32_MIN);
  EXPECT_EQ(shl_sat<5>(-(1 << 26) - 1), INT32_MIN);
  EXPECT_EQ(wrap_add(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(clamp24(-8388608), -8388607);
  EXPECT_EQ(clamp24(8388608), 8388607);
}

TEST(SquareRoots, StatedValues) {
  EXPECT_EQ(sqrt_fixed(65535u), 255u);
  EXPECT_EQ(sqrt_fixed(3u), 1u);
  EXPECT_EQ(sqrt_fixed(0u), 0u);
  for (unsigned int x = 0; x < 65536; x += 97) {
    const unsigned int r = sqrt_fixed(x);
    EXPECT_LE(r * r, x);
    EXPECT_GT((r + 1) * (r + 1), x);
  }
  EXPECT_EQ(sqrtFxQ16(0u), 0u);
  EXPECT_EQ(sqrtFxQ16(65536u), 65536u);
  EXPECT_EQ(sqrtFxQ16(131072u), 92672u);
  EXPECT_EQ(sqrtFxQ16(0xFFFFFFFFu), 16777216u);
}

TEST(ExpLog, StatedValues) {
  EXPECT_EQ(exp_fixed(0), 65536u);
  EXPECT_EQ(exp_fixed(45426), 131072u);
  EXPECT_EQ(exp_fixed(65536), 178140u);
  EXPECT_EQ(exp_fixed(363409), 16777216u);
  EXPECT_EQ(log_fixed(65536), 0);
  EXPECT_EQ(log_fixed(131072), 45426);
  EXPECT_EQ(log_fixed(1), -726817);
  EXPECT_EQ(log_fixed(2147483647), 681391);
  EXPECT_EQ(log_fixed(32767), -45428);
  EXPECT_EQ(log_fixed(32768), -45426);
}

TEST(ExpLog, RoundTripIsClose) {
  // exp and log are inverse to within a few Q16 units over the range.
  for (int x = 1000; x < 681391; x += 7919) {
    const unsigned int e = exp_fixed(x);
    ASSERT_LT(e, 0x80000000u);
    EXPECT_NEAR(log_fixed(static_cast<int>(e)), x, 8) << x;
  }
}

TEST(Complex, Operations) {
  complex a, b, c;
  complex_init(&a, 1 << 28, 0);
  complex_setvalue(&b, 0, 1 << 28);
  complex_mul(&a, &b, &c);
  EXPECT_EQ(c.re, 0);
  EXPECT_EQ(c.im, 268435456);
  complex_init(&a, -5, 7);
  EXPECT_EQ(a.re, -5);
  EXPECT_EQ(a.im, 7);
  complex_add(&a, &b, &c);
  EXPECT_EQ(c.re, -5);
  EXPECT_EQ(c.im, 7 + (1 << 28));
  complex_sub(&a, &b, &c);
  EXPECT_EQ(c.im, 7 - (1 << 28));
  a.re = INT64_MAX;
  a.im = 0;
  b.re = 1;
  b.im = 0;
  complex_add(&a, &b, &c);  // 64-bit wrap-around
  EXPECT_EQ(c.re, INT64_MIN);
  complex_init(&a, 8192 * 3, -8192 * 4);
  EXPECT_EQ(complex_getpower(&a), (9 + 16) >> 10);
  complex_init(&a, 8192 * 1024, 0);
  EXPECT_EQ(complex_getpower(&a), 1024);
  complex_init(&a, 1, 2);
  complex_init(&b, 3, 4);
  complex_swap(&a, &b);
  EXPECT_EQ(a.re, 3);
  EXPECT_EQ(b.im, 2);
  complex_end(&a);
  EXPECT_EQ(a.re, 0);
  EXPECT_EQ(a.im, 0);
}

TEST(DivQ15, QuotientsAndFatalPaths) {
  EXPECT_EQ(div_q15(0, 5), 0);
  EXPECT_EQ(div_q15(7, 7), 32767);
  EXPECT_EQ(div_q15(1, 2), 16384);
  EXPECT_EQ(div_q15(1, 3), 10922);
  EXPECT_EQ(div_q15(32766, 32767), 32766);
  EXPECT_EXIT(div_q15(1, 0), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(div_q15(3, 2), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(div_q15(-1, 2), testing::ExitedWithCode(0), "");
}
