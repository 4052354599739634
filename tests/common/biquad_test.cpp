// Biquad section: pass-through, the stated single-sample values, hand-derived
// decays that must reach exact silence, and both variants against a direct
// evaluation of the difference equation (history and error feedback).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "kafx_proc/biquad.h"

namespace {

constexpr int kOne28 = 1 << 28;
constexpr int kOne20 = 1 << 20;

// One section; every call runs in place, so in/out aliasing is always exercised.
struct Section {
  IIR_t f{};
  explicit Section(std::array<int, 5> c) { IIR_init(&f, c.data()); }
  ~Section() { IIR_end(&f); }
  int run32(int x) { return IIR_process_32(&f, &x, &x), x; }
  short run16(short x) { return IIR_process_16(&f, &x, &x), x; }
};

// The difference equation in plain 64-bit integers, independent of the
// library's state layout. The 16-bit variant works on sample x 8192 with Q20
// coefficients and feeds 13 of the 20 discarded bits back.
struct Ref {
  bool v16;
  std::array<int, 5> c;  // promoted to 64 bits in every product
  int64_t x1 = 0, x2 = 0, y1 = 0, y2 = 0, err = 0;
  static int64_t sat(int64_t v) { return std::clamp<int64_t>(v, INT32_MIN, INT32_MAX); }
  static int64_t no_m1(int64_t v) { return v == -1 ? 0 : v; }
  int step(int in) {
    const int64_t x = v16 ? in * int64_t{8192} : sat(in * int64_t{32});
    const int64_t acc = c[0] * x + c[1] * x1 + c[2] * x2 + c[3] * y1 + c[4] * y2 + err;
    const int64_t y = no_m1(sat(acc >> (v16 ? 20 : 28)));
    if (v16) err = acc & 8191;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    return static_cast<int>(v16 ? std::clamp<int64_t>(no_m1(y >> 13), -32768, 32767) : y >> 5);
  }
};

TEST(Biquad, StatusZeroCopiesAndUnityValues) {
  Section off({12345, 678, -910, 11, -12});
  IIR_set_status(&off.f, 0);
  int st = -5;
  IIR_get_status(&off.f, &st);
  EXPECT_EQ(st, 0);
  for (int x : {0, -1, 8388607, INT32_MAX, INT32_MIN}) EXPECT_EQ(off.run32(x), x);
  for (short x : {0, -1, 32767, -32768}) EXPECT_EQ(off.run16(x), x);
  // {input, output} through b0 = 1.0: the 32-bit input stage saturates at
  // 2^31 - 1; in the 16-bit variant -1 gives y = -8192, >> 13 = -1, flushed.
  Section u32({kOne28, 0, 0, 0, 0}), u16({kOne20, 0, 0, 0, 0});
  const int rows32[][2] = {{8388607, 8388607}, {70000000, 67108863}, {-8388608, -8388608}};
  const short rows16[][2] = {{1000, 1000}, {-1, 0}, {-2, -2}, {32767, 32767}, {-32768, -32768}};
  for (auto& r : rows32) EXPECT_EQ(u32.run32(r[0]), r[1]) << r[0];
  for (auto& r : rows16) EXPECT_EQ(u16.run16(r[0]), r[1]) << r[0];
}

TEST(Biquad, OnePoleDecayReachesExactSilence) {
  // y[n] = x[n] / 2 + y[n-1] / 2 on the x32 internal scale. Impulse -1000:
  // states -16000, -8000, ..., -125, -63 (floor), -32, ..., -2, -1 -> flushed
  // to 0; the outputs are the states >> 5 (floor, no flush on the way out).
  const std::vector<int> neg = {-500, -250, -125, -63, -32, -16, -8, -4, -2, -1, -1, -1, -1, -1, 0, 0};
  const std::vector<int> pos = {500, 250, 125, 62, 31, 15, 7, 3, 1, 0, 0, 0, 0, 0, 0, 0};
  for (int sign : {-1, 1}) {
    Section s({kOne28 / 2, 0, 0, kOne28 / 2, 0});
    std::vector<int> out;
    for (int n = 0; n < 16; ++n) out.push_back(s.run32(n == 0 ? sign * 1000 : 0));
    EXPECT_EQ(out, sign < 0 ? neg : pos);
    EXPECT_EQ(s.f.state[3], 0);
  }
}

TEST(Biquad, MatchesDifferenceEquationOnNoise) {
  // A resonant low-pass in Q28 and its Q20 counterpart; noise bursts with
  // silent tails so that the decays to silence are covered too.
  const std::array<int, 5> c28 = {2731006, 5462012, 2731006, 497233984, -239722240};
  std::array<int, 5> c20;
  for (int i = 0; i < 5; ++i) c20[i] = c28[i] >> 8;
  Section s32(c28), s16(c20);
  Ref r32{false, c28}, r16{true, c20};
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> d24(-8388608, 8388607), d16(-32768, 32767);
  for (int i = 0; i < 20000; ++i) {
    const bool burst = i % 3000 < 1500;
    const int x = burst ? d24(rng) : 0;
    const short xs = static_cast<short>(burst ? d16(rng) : 0);
    ASSERT_EQ(s32.run32(x), r32.step(x)) << i;
    ASSERT_EQ(s16.run16(xs), r16.step(xs)) << i;
  }
}

TEST(Biquad, ResetReinitAndParams) {
  // One-pole y = x/2 + y[n-1]/2, re-initialised as y = x/4 + y[n-1]/2.
  Section s({kOne28 / 2, 0, 0, kOne28 / 2, 0});
  std::array<int, 5> quarter = {kOne28 / 4, 0, 0, kOne28 / 2, 0}, feedback_only = {0, 0, 0, kOne28 / 2, 0}, got{};
  s.run32(100000);
  IIR_reset(&s.f);
  EXPECT_EQ(s.run32(0), 0);  // history gone
  s.run32(100000);
  IIR_reinit(&s.f, quarter.data());
  EXPECT_EQ(s.run32(0), 0);  // history gone, new coefficients
  EXPECT_EQ(s.run32(1000), 250);
  IIR_set_param(&s.f, feedback_only.data());  // keeps the history
  EXPECT_EQ(s.run32(0), 125);
  IIR_get_param(&s.f, got.data());
  EXPECT_TRUE(got == feedback_only && s.f.status == 1);
  IIR_end(&s.f);
  EXPECT_TRUE(s.f.coef == nullptr && s.f.state == nullptr);
  IIR_init(&s.f, quarter.data());  // the destructor ends it again
}

}  // namespace
