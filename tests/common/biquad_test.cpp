// Biquad section: pass-through, the stated single-sample values, hand-derived
// decays that must reach exact silence, and the history/error-feedback
// bookkeeping checked against a direct evaluation of the difference equation.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "kafx_proc/biquad.h"

namespace {

struct Section {
  IIR_t f{};
  explicit Section(std::array<int, 5> c) { IIR_init(&f, c.data()); }
  ~Section() { IIR_end(&f); }
  int run32(int x) {
    int y;
    IIR_process_32(&f, &x, &y);
    return y;
  }
  short run16(short x) {
    short y;
    IIR_process_16(&f, &x, &y);
    return y;
  }
};

constexpr int kOne28 = 1 << 28;
constexpr int kOne20 = 1 << 20;

TEST(Biquad, StatusZeroCopiesBothVariants) {
  Section s({12345, 678, -910, 11, -12});
  IIR_set_status(&s.f, 0);
  int st = -5;
  IIR_get_status(&s.f, &st);
  EXPECT_EQ(st, 0);
  for (int x : {0, 1, -1, 8388607, -8388608, 2147483647, -2147483647 - 1}) EXPECT_EQ(s.run32(x), x);
  for (short x : {short(0), short(-1), short(32767), short(-32768)}) EXPECT_EQ(s.run16(x), x);
}

TEST(Biquad, UnityCoefficientsStatedValues) {
  Section s32({kOne28, 0, 0, 0, 0});
  EXPECT_EQ(s32.run32(8388607), 8388607);
  EXPECT_EQ(s32.run32(70000000), 67108863);  // input stage saturates at 2^31-1
  EXPECT_EQ(s32.run32(-8388608), -8388608);
  Section s16({kOne20, 0, 0, 0, 0});
  EXPECT_EQ(s16.run16(1000), 1000);
  EXPECT_EQ(s16.run16(-1), 0);  // y = -8192 -> -1 after >> 13 -> flushed
  EXPECT_EQ(s16.run16(-2), -2);
  EXPECT_EQ(s16.run16(32767), 32767);
  EXPECT_EQ(s16.run16(-32768), -32768);
}

TEST(Biquad, OnePoleDecayReachesExactSilence32) {
  // y[n] = 0.5 x[n] + 0.5 y[n-1]; impulse -1000 -> internal y = -16000,
  // -8000, ..., -125, -63 (floor), -32, -16, -8, -4, -2, -1 -> flushed to 0.
  Section s({kOne28 / 2, 0, 0, kOne28 / 2, 0});
  std::vector<int> out;
  out.push_back(s.run32(-1000));
  for (int i = 0; i < 20; ++i) out.push_back(s.run32(0));
  const std::vector<int> expect = {-500, -250, -125, -63, -32, -16, -8, -4, -2, -1, -1,
                                   -1,   -1,   -1,   0,   0,   0,   0,  0,  0,  0};
  // Internal states: -16000 -8000 -4000 -2000 -1000 -500 -250 -125 -63 -32 -16
  // -8 -4 -2 then 0; outputs are those >> 5 (floor, no flush on the way out).
  EXPECT_EQ(out, expect);
  EXPECT_EQ(s.f.state[3], 0);
}

TEST(Biquad, PositiveDecay32) {
  Section s({kOne28 / 2, 0, 0, kOne28 / 2, 0});
  std::vector<int> out;
  out.push_back(s.run32(1000));
  for (int i = 0; i < 9; ++i) out.push_back(s.run32(0));
  const std::vector<int> expect = {500, 250, 125, 62, 31, 15, 7, 3, 1, 0};
  EXPECT_EQ(out, expect);
}

// Direct evaluation of the difference equations, written independently of
// the library's state layout.
struct Ref32 {
  long long b0, b1, b2, a1, a2;
  long long x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  int step(int in) {
    long long x = static_cast<long long>(in) * 32;
    if (x > 2147483647LL) x = 2147483647LL;
    if (x < -2147483648LL) x = -2147483648LL;
    long long acc = b0 * x + b1 * x1 + b2 * x2 + a1 * y1 + a2 * y2;
    long long y = acc >> 28;
    if (y > 2147483647LL) y = 2147483647LL;
    if (y < -2147483648LL) y = -2147483648LL;
    if (y == -1) y = 0;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return static_cast<int>(y >> 5);
  }
};

struct Ref16 {
  long long b0, b1, b2, a1, a2;
  long long x1 = 0, x2 = 0, y1 = 0, y2 = 0, err = 0;
  short step(short in) {
    long long x = static_cast<long long>(in) * 8192;
    long long acc = b0 * x + b1 * x1 + b2 * x2 + a1 * y1 + a2 * y2 + err;
    long long y = acc >> 20;
    if (y > 2147483647LL) y = 2147483647LL;
    if (y < -2147483648LL) y = -2147483648LL;
    if (y == -1) y = 0;
    err = acc & 8191;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    long long o = y >> 13;
    if (o == -1) o = 0;
    if (o > 32767) o = 32767;
    if (o < -32768) o = -32768;
    return static_cast<short>(o);
  }
};

TEST(Biquad, MatchesDifferenceEquationOnNoise) {
  // A resonant low-pass (Q28) and its Q20 counterpart, driven by noise.
  const std::array<int, 5> c28 = {2731006, 5462012, 2731006, 497233984, -239722240};
  const std::array<int, 5> c20 = {c28[0] >> 8, c28[1] >> 8, c28[2] >> 8, c28[3] >> 8, c28[4] >> 8};
  Section s32(c28);
  Section s16(c20);
  Ref32 r32{c28[0], c28[1], c28[2], c28[3], c28[4]};
  Ref16 r16{c20[0], c20[1], c20[2], c20[3], c20[4]};
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> d24(-8388608, 8388607);
  std::uniform_int_distribution<int> d16(-32768, 32767);
  for (int i = 0; i < 20000; ++i) {
    const int x = (i % 3000 < 1500) ? d24(rng) : 0;  // bursts then silence tails
    ASSERT_EQ(s32.run32(x), r32.step(x)) << i;
    const short xs = static_cast<short>((i % 3000 < 1500) ? d16(rng) : 0);
    ASSERT_EQ(s16.run16(xs), r16.step(xs)) << i;
  }
}

TEST(Biquad, ResetReinitAndParams) {
  Section s({kOne28 / 2, 0, 0, kOne28 / 2, 0});
  s.run32(100000);
  IIR_reset(&s.f);
  EXPECT_EQ(s.run32(0), 0);  // history gone
  s.run32(100000);
  std::array<int, 5> unity = {kOne28, 0, 0, 0, 0};
  IIR_reinit(&s.f, unity.data());
  EXPECT_EQ(s.run32(1234), 1234);
  EXPECT_EQ(s.f.status, 1);
  // set_param keeps the history.
  std::array<int, 5> half_fb = {0, 0, 0, kOne28 / 2, 0};
  IIR_set_param(&s.f, half_fb.data());
  EXPECT_EQ(s.run32(0), 1234 / 2);
  std::array<int, 5> got{};
  IIR_get_param(&s.f, got.data());
  EXPECT_EQ(got, half_fb);
  IIR_end(&s.f);
  EXPECT_EQ(s.f.coef, nullptr);
  EXPECT_EQ(s.f.state, nullptr);
  IIR_init(&s.f, unity.data());  // the destructor ends it again
}

TEST(Biquad, InPlaceAliasing) {
  Section s({kOne28 / 2, 0, 0, 0, 0});
  int v = 4000;
  IIR_process_32(&s.f, &v, &v);
  EXPECT_EQ(v, 2000);
  Section s16({kOne20 / 2, 0, 0, 0, 0});
  short w = 4000;
  IIR_process_16(&s16.f, &w, &w);
  EXPECT_EQ(w, 2000);
}

}  // namespace
