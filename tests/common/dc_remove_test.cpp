// DC blocker: sequences worked from the recursion, the step response
// against the exact pole, the 16-bit form as the 24-bit form at 256 times
// the input, saturation and the buffer function.
#include "kafx_proc/dc_remove.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "support/sequences.h"
#include "support/variants.h"

namespace {

using Seq = std::vector<int>;

// One sample at a time through a fresh blocker (or `d`), 24-bit or 16-bit form.
Seq run(const Seq& in, bool wide = true, dc_remove* d = nullptr) {
  dc_remove own;
  dc_remove_init(&own);
  return kafx_test::per_sample(in, [&](int x) {
    int y = 0;
    (wide ? dc_remove_process_24 : dc_remove_process_16)(d ? d : &own, &x, &y);
    return y;
  });
}

constexpr double kPole = 66840428.0 / 67108864.0;

}  // namespace

TEST(DcRemove, WorkedSequences) {
  // y = 0.996 (y + x - x1) at 32x (8192x) the input: a step decays by the
  // pole each sample and its release undershoots by the amount it had
  // decayed; floors round negative values away from zero. A shifted output
  // of -1 is returned as 0.
  EXPECT_EQ(run({1000, 1000, 1000, 1000, 1000, 0, 0, 0}), (Seq{995, 991, 988, 984, 980, -20, -20, -20}));
  EXPECT_EQ(run({-1000, -1000, -1000, -1000, -1000, 0, 0, 0}), (Seq{-996, -993, -989, -985, -981, 19, 19, 19}));
  EXPECT_EQ(run({100, 100, 100, 100, 0, 0, 0, 0}, false), (Seq{99, 99, 98, 98, -2, -2, -2, -2}));
  EXPECT_EQ(run({-1, -1}), (Seq{0, 0}));
  EXPECT_EQ(run({-1}, false), (Seq{0}));
}

TEST(DcRemove, StepResponseFollowsThePole) {
  // Constant input A: ideal output A p^(n+1). Each floor of the state loses
  // under 1/32 of a sample and the losses decay with the pole, so the
  // output stays within 1/(32 (1 - p)) + 1 < 9 below the ideal.
  for (int a : {8388607, -8388608, 1234567, -77}) {
    const Seq out = run(Seq(3000, a));
    for (size_t n = 0; n < out.size(); ++n) {
      const double ideal = a * std::pow(kPole, static_cast<double>(n + 1));
      ASSERT_TRUE(out[n] <= ideal + 1 && out[n] >= ideal - 9) << a << " at " << n << ": " << out[n];
    }
  }
}

TEST(DcRemove, SixteenBitFormIsTheWideFormAt256x) {
  // Both enter the same internal value (x << 13); the 16-bit output is the
  // 24-bit one shifted down by 8 more bits, with -1 flushed in both.
  const Seq in = kafx_test::random_values<int>(5000, 5, -32768, 32767);
  Seq wide_in;
  for (int v : in) wide_in.push_back(v * 256);
  const Seq wide = run(wide_in), narrow = run(in, false);
  for (size_t n = 0; n < in.size(); ++n) ASSERT_EQ(narrow[n], (wide[n] >> 8) == -1 ? 0 : wide[n] >> 8) << n;
}

TEST(DcRemove, SaturatesWideWrapsNarrowAndClears) {
  // The 24-bit output saturates to int32; the 16-bit output is not clamped.
  // A full-range step after the state has settled: twice full scale in.
  for (int from : {INT32_MIN, INT32_MAX}) {
    Seq in(3000, from);
    in.push_back(from == INT32_MIN ? INT32_MAX : INT32_MIN);
    EXPECT_EQ(run(in).back(), from == INT32_MIN ? INT32_MAX : INT32_MIN);
  }
  EXPECT_EQ(run({1 << 20}, false), (Seq{static_cast<int>((static_cast<int64_t>(1) << 33) * 66840428 >> 39)}));
  // init, reset and end clear the record.
  dc_remove d{12, 34};
  for (void (*clear)(dc_remove*) : {dc_remove_init, dc_remove_reset, dc_remove_end}) {
    clear(&d);
    EXPECT_TRUE(d.y1 == 0 && d.x1 == 0);
    run({5000, 7000}, true, &d);
  }
}

TEST(DcRemove, BufferFunction) {
  for (int count : {1, 17, 37, 127}) {
    const Seq in = kafx_test::random_values<int>(count + 1, 9 + count, -8388608, 8388607);
    Seq buf = in;  // in place, with a canary past the end
    dc_remove d;
    dc_remove_init(&d);
    do_dc_remove_process(&d, buf.data(), buf.data(), count);
    EXPECT_EQ(Seq(buf.begin(), buf.begin() + count), run(Seq(in.begin(), in.begin() + count)));
    EXPECT_EQ(buf[count], in[count]);
  }
  dc_remove d;
  dc_remove_init(&d);
  Seq buf = {1, 2, 3}, out = {7, 7, 7};
  do_dc_remove_process(&d, buf.data(), out.data(), 0);
  do_dc_remove_process(&d, buf.data(), out.data(), -5);
  EXPECT_TRUE(out == (Seq{7, 7, 7}) && d.y1 == 0 && d.x1 == 0);
}

TEST(DcRemove, ZeroInputHoldsSmallNegativeStates) {
  // With x = x1 = 0 the state moves to floor(p y), p = 66840428 / 2^26 (just
  // under 0.996). For 0 < y < 250 that is y - 1: a positive state runs down
  // to 0. For -249 <= y < 0 the floor of -p |y| is -|y| again: a negative
  // state stays where it is, and every output reads floor(p y / 32), -1
  // flushed: a constant of 0 to -8 for ever. Below -249 the state climbs one
  // step per sample until it sticks at -249.
  struct Row {
    int64_t y1;
    Seq out;
    int64_t y1_after;
  } rows[] = {
      {-100, {-4, -4, -4, -4}, -100},  // -99.6 / 32 = -3.11
      {-32, {0, 0, 0, 0}, -32},        // -31.9 / 32 reads -1, flushed
      {-33, {-2, -2, -2, -2}, -33},    // -32.9 / 32 = -1.03
      {-252, {-8, -8, -8, -8}, -249},  // -252 -> -251 -> -250 -> -249, then held
      {100, {3, 3, 3, 3}, 96},         // 99.6 / 32, then 98.6, 97.6, 96.6
      {31, {0, 0, 0, 0}, 27},
  };
  for (const Row& r : rows) {
    dc_remove d;
    dc_remove_init(&d);
    d.y1 = r.y1;
    EXPECT_EQ(run(Seq(4, 0), true, &d), r.out) << r.y1;
    EXPECT_EQ(d.y1, r.y1_after) << r.y1;
    EXPECT_EQ(d.x1, 0);
  }
}
