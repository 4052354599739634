// The two forms of the internal-format by-2 stages (lanes and scalar) give
// the same outputs, states and inputs afterwards on odd lengths, from random states, on random
// and on full-scale square inputs (the saturating and wrapping paths), with
// nothing written past the end of an output; and each build runs the form
// it is meant to: scalar on ARM, lanes elsewhere.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "spl/spl_internal.h"
#include "support/variants.h"

namespace {

using namespace kafx::spl;
using kafx_test::Guarded;
using kafx_test::kOddLengths;
using kafx_test::random_values;

// Inputs: random full-range values, or a square wave at the extremes.
template <typename T>
std::vector<T> input(int len, unsigned seed, bool square) {
  std::vector<T> v = random_values<T>(static_cast<size_t>(len), seed);
  if (square) {
    for (int i = 0; i < len; ++i)
      v[static_cast<size_t>(i)] = (i / 3) % 2 != 0 ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
  }
  return v;
}

template <typename In, typename Out, typename F>
void expect_same(F lanes, F scalar, int words, int (*out_len)(int), unsigned seed) {
  for (int len : kOddLengths) {
    for (bool square : {false, true}) {
      const std::vector<In> in = input<In>(len, seed + static_cast<unsigned>(len), square);
      const std::vector<int32_t> st0 =
          random_values<int32_t>(static_cast<size_t>(words), seed, -(1 << 28), 1 << 28);
      std::vector<In> in_a = in, in_b = in;  // the decimator from the internal format
                                             // leaves its halved branch outputs there
      Guarded<Out> out_a(static_cast<size_t>(out_len(len))), out_b(static_cast<size_t>(out_len(len)));
      std::vector<int32_t> st_a = st0, st_b = st0;
      lanes(in_a.data(), len, out_a.data(), st_a.data());
      scalar(in_b.data(), len, out_b.data(), st_b.data());
      EXPECT_EQ(out_a.v, out_b.v) << "len " << len << " square " << square;
      EXPECT_EQ(st_a, st_b) << "len " << len << " square " << square;
      EXPECT_EQ(in_a, in_b) << "input afterwards, len " << len << " square " << square;
      EXPECT_TRUE(out_b.guards_intact()) << "len " << len;
    }
    // Two calls of the scalar form in a row give what one call of the lane
    // form on the whole gives (the state carries everything, including the
    // low-pass's delayed odd sample). Even halves, so that the decimators
    // use every sample.
    const int e = len + (len & 1);
    const std::vector<In> in = input<In>(2 * e, seed + 7u, false);
    std::vector<In> whole = in, first(in.begin(), in.begin() + e), second(in.begin() + e, in.end());
    std::vector<int32_t> st_w(static_cast<size_t>(words), 0), st_s(static_cast<size_t>(words), 0);
    std::vector<Out> out_w(static_cast<size_t>(out_len(2 * e))), out_s(out_w.size());
    lanes(whole.data(), 2 * e, out_w.data(), st_w.data());
    scalar(first.data(), e, out_s.data(), st_s.data());
    scalar(second.data(), e, out_s.data() + out_len(e), st_s.data());
    EXPECT_EQ(out_w, out_s) << "halves of " << e;
    EXPECT_EQ(st_w, st_s) << "halves of " << e;
  }
}

int half(int len) { return len / 2; }
int twice(int len) { return 2 * len; }
int same(int len) { return len; }

TEST(By2Forms, ScalarEqualsLanes) {
  expect_same<int32_t, int16_t>(down_int_to_short_lanes, down_int_to_short_scalar, 8, half, 1);
  expect_same<int16_t, int32_t>(down_short_to_int_lanes, down_short_to_int_scalar, 8, half, 2);
  expect_same<int16_t, int32_t>(up_short_to_int_lanes, up_short_to_int_scalar, 8, twice, 3);
  expect_same<int32_t, int32_t>(up_int_to_int_lanes, up_int_to_int_scalar, 8, twice, 4);
  expect_same<int32_t, int16_t>(up_int_to_short_lanes, up_int_to_short_scalar, 8, twice, 5);
  expect_same<int16_t, int32_t>(lp_short_to_int_lanes, lp_short_to_int_scalar, 16, same, 6);
  expect_same<int32_t, int32_t>(lp_int_to_int_lanes, lp_int_to_int_scalar, 16, same, 7);
}

// The baseline of each stage: the scalar form on ARM (32-bit and AArch64),
// the lane form elsewhere.
TEST(By2Forms, BaselineSelection) {
  const bool scalar = KAFX_SPL_SCALAR_BY2 != 0;
#if defined(__arm__) || defined(__aarch64__)
  EXPECT_TRUE(scalar);
#else
  EXPECT_FALSE(scalar);
#endif
  EXPECT_EQ(down_int_to_short_variants.fn[kafx::kIsaBaseline],
            scalar ? down_int_to_short_scalar : down_int_to_short_lanes);
  EXPECT_EQ(down_short_to_int_variants.fn[kafx::kIsaBaseline],
            scalar ? down_short_to_int_scalar : down_short_to_int_lanes);
  EXPECT_EQ(up_short_to_int_variants.fn[kafx::kIsaBaseline], scalar ? up_short_to_int_scalar : up_short_to_int_lanes);
  EXPECT_EQ(up_int_to_int_variants.fn[kafx::kIsaBaseline], scalar ? up_int_to_int_scalar : up_int_to_int_lanes);
  EXPECT_EQ(up_int_to_short_variants.fn[kafx::kIsaBaseline], scalar ? up_int_to_short_scalar : up_int_to_short_lanes);
  EXPECT_EQ(lp_short_to_int_variants.fn[kafx::kIsaBaseline], scalar ? lp_short_to_int_scalar : lp_short_to_int_lanes);
  EXPECT_EQ(lp_int_to_int_variants.fn[kafx::kIsaBaseline], scalar ? lp_int_to_int_scalar : lp_int_to_int_lanes);
  // The 16-bit stages run their scalar form in every baseline build.
  EXPECT_EQ(downsample_by2_variants.fn[kafx::kIsaBaseline], downsample_by2_scalar);
  EXPECT_EQ(upsample_by2_variants.fn[kafx::kIsaBaseline], upsample_by2_scalar);
}

// The one-at-a-time 16 -> 11 stage to 16 bits (what ARM builds run) equals
// the group kernel, on random words and on words that saturate both ways.
TEST(By2Forms, FractionalToShortSerialEqualsGroup) {
  for (int k : kOddLengths) {
    for (bool extreme : {false, true}) {
      std::vector<int32_t> in = random_values<int32_t>(static_cast<size_t>(16 * k + 7), 40u + static_cast<unsigned>(k));
      if (extreme) {
        for (size_t i = 0; i < in.size(); ++i)
          in[i] = (i / 2) % 2 != 0 ? std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::min();
      }
      Guarded<int16_t> a(static_cast<size_t>(11 * k)), b(static_cast<size_t>(11 * k));
      fir_32_22_to_short_mv_variants.fn[kafx::kIsaBaseline](in.data(), a.data(), k);
      fir_32_22_to_short_serial(in.data(), b.data(), k);
      EXPECT_EQ(a.v, b.v) << "K " << k << " extreme " << extreme;
      EXPECT_TRUE(b.guards_intact()) << "K " << k;
    }
  }
}

}  // namespace
