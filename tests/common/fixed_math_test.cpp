// The shared arithmetic: the product rule at its boundaries and the stated
// values of the square roots, exponential, logarithm, complex operations and
// the fractional division.
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <vector>

#include "common/fixed_point.h"
#include "kafx_proc/fixed_math.h"

using namespace kafx;

namespace {

// {computed, expected} pairs checked in one loop; the index names a failure.
void check_pairs(const int64_t (*rows)[2], size_t n) {
  for (size_t i = 0; i < n; ++i) EXPECT_EQ(rows[i][0], rows[i][1]) << "row " << i;
}

}  // namespace

TEST(ProductRule, FlushSaturationAndShifts) {
  const int64_t rows[][2] = {
      {mulq13(-1, 1), 0}, {mulq13(-8193, 1), -2}, {mulq13(-3, 4096), -2},  // -1 flushed; floors, not toward zero
      {mulq13(-100, 4096), -50}, {mulq28(kQ28One, 12345), 12345}, {mulq13(INT32_MAX, 8192), INT32_MAX},
      {mulq13(INT32_MAX, 16384), INT32_MAX}, {mulq13(INT32_MIN, 16384), INT32_MIN},
      {shr_sat<13>(-1), -1},  // the plain shift keeps -1
      {sat_add(INT32_MAX, 1), INT32_MAX}, {sat_add(INT32_MIN, -1), INT32_MIN}, {sat_add(INT32_MAX, INT32_MIN), -1},
      {sat_sub(INT32_MIN, 1), INT32_MIN}, {sat_sub(INT32_MAX, -1), INT32_MAX}, {sat_sub(0, INT32_MIN), INT32_MAX},
      {shl_sat<5>(1 << 26), INT32_MAX}, {shl_sat<5>((1 << 26) - 1), ((1 << 26) - 1) * 32},
      {shl_sat<5>(-(1 << 26)), INT32_MIN}, {shl_sat<5>(-(1 << 26) - 1), INT32_MIN},
      {wrap_add(INT32_MAX, 1), INT32_MIN}, {clamp24(-8388608), -8388607}, {clamp24(8388608), 8388607},
  };
  check_pairs(rows, std::size(rows));
}

TEST(ShiftAddMath, StatedValues) {
  const int64_t rows[][2] = {
      {sqrt_fixed(65535u), 255}, {sqrt_fixed(3u), 1}, {sqrt_fixed(0u), 0}, {sqrtFxQ16(0u), 0},
      {sqrtFxQ16(65536u), 65536}, {sqrtFxQ16(131072u), 92672}, {sqrtFxQ16(0xFFFFFFFFu), 16777216},
      {exp_fixed(0), 65536}, {exp_fixed(45426), 131072}, {exp_fixed(65536), 178140}, {exp_fixed(363409), 16777216},
      {log_fixed(65536), 0}, {log_fixed(131072), 45426}, {log_fixed(1), -726817}, {log_fixed(2147483647), 681391},
      {log_fixed(32767), -45428}, {log_fixed(32768), -45426},
      {log_fixed(1717986919), 666769},  // x + (x >> 2) is exactly 2^31: that factor step is not taken
  };
  check_pairs(rows, std::size(rows));
  for (unsigned int x = 0; x < 65536; x += 97) {  // floor(sqrt(x)) over the range
    const unsigned int r = sqrt_fixed(x);
    EXPECT_TRUE(r * r <= x && (r + 1) * (r + 1) > x) << x;
  }
  for (int x = 1000; x < 681391; x += 7919) {  // exp and log invert to a few Q16 units
    const unsigned int e = exp_fixed(x);
    ASSERT_LT(e, 0x80000000u);
    EXPECT_NEAR(log_fixed(static_cast<int>(e)), x, 8) << x;
  }
}

// The logarithm in every normalisation class: x = m * 2^s for mantissas
// that sit on and next to the factor steps' limits (x + (x >> k) near 2^31)
// and for every shift s the steps can take, against the real logarithm.
TEST(ShiftAddMath, LogarithmInEveryShiftClass) {
  std::vector<uint32_t> mantissas = {0x40000000u, 0x40000001u, 0x7FFFFFFFu, 0x55555555u, 0x5A5A5A5Au, 0x6DB6DB6Du};
  for (int k = 1; k <= 7; ++k) {
    // The largest v with v + (v >> k) below 2^31, and its neighbours.
    uint32_t v = static_cast<uint32_t>((static_cast<uint64_t>(0x80000000u) << k) / ((1u << k) + 1));
    while (v + (v >> k) >= 0x80000000u) --v;
    for (uint32_t d : {0u, 1u, 2u}) mantissas.push_back(v + d - 1);
  }
  for (uint32_t m : mantissas) {
    for (int s = 0; s <= 30; ++s) {
      const uint32_t x = m >> s;
      if (x == 0) continue;
      const double expect = std::log(static_cast<double>(x) / 65536.0) * 65536.0;
      EXPECT_NEAR(log_fixed(static_cast<int>(x)), expect, 8) << x;
    }
  }
}

TEST(Complex, Operations) {
  complex one, i, a, sq, v, sum, diff, big, wrap, pw, huge;
  complex_init(&one, 1 << 28, 0);
  complex_setvalue(&i, 0, 1 << 28);
  complex_mul(&one, &i, &a);  // 1 * i = i
  complex_init(&v, 1 << 28, 1 << 27);
  complex_mul(&v, &v, &sq);  // (1 + i/2)^2 = 0.75 + i
  complex_init(&v, -5, 7);   // sign-extended
  complex_add(&v, &i, &sum);
  complex_sub(&v, &i, &diff);
  big = {INT64_MAX, 0};
  complex_add(&big, &one, &wrap);  // 64-bit wrap-around
  complex_init(&pw, -8192 * 1024, 8192 * 1024);
  huge = {int64_t{3037000500} << 13, 0};  // the square passes 2^63: the final shift is logical
  complex_swap(&one, &i);
  complex_end(&v);
  const int64_t rows[][2] = {
      {a.re, 0}, {a.im, 1 << 28}, {sq.re, 201326592}, {sq.im, 1 << 28}, {sum.re, -5}, {sum.im, 7 + (1 << 28)},
      {diff.re, -5}, {diff.im, 7 - (1 << 28)}, {wrap.re, INT64_MIN + (1 << 28) - 1}, {complex_getpower(&pw), 2048},
      {complex_getpower(&huge), 9007199254883056}, {one.re, 0}, {one.im, 1 << 28}, {i.re, 1 << 28}, {i.im, 0},
      {v.re, 0}, {v.im, 0}};
  check_pairs(rows, std::size(rows));
}

TEST(DivQ15, QuotientsAndFatalPaths) {
  const int64_t rows[][2] = {{div_q15(0, 5), 0},       {div_q15(7, 7), 32767},  {div_q15(1, 2), 16384},
                             {div_q15(1, 3), 10922},   {div_q15(32766, 32767), 32766}};
  check_pairs(rows, std::size(rows));
  EXPECT_EXIT(div_q15(1, 0), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(div_q15(3, 2), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(div_q15(-1, 2), testing::ExitedWithCode(0), "");
}
