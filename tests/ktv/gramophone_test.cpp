// Gramophone effect: the overdrive and the bit roughening on worked values
// and the real-valued soft clip, the effect as its exported stages wired in
// order across block splits, and the band-pass's stated response measured
// through the effect.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "kafx_proc/gramophone.h"

namespace {

using Seq = std::vector<int>;

int od(int x) {
  int y = 0;
  overdrive_process(&x, &y);
  return y;
}
int bs(int x) {
  int y = 0;
  bit_shift_porocess(&x, &y);
  return y;
}

// The curve in real terms, v = 2x / 2^23: 2v, then 1 - (2 - 3|v|)^2 / 3, then 1.
double overdrive_real(double x) {
  const double v = 2.0 * x / 8388608.0, a = std::fabs(v);
  const double m = a <= 1.0 / 3 ? 2.0 * a : (a <= 2.0 / 3 ? 1.0 - (2.0 - 3.0 * a) * (2.0 - 3.0 * a) / 3.0 : 1.0);
  return std::copysign(m, v) * 8388608.0;
}

}  // namespace

TEST(Gramophone, OverdriveAndRougheningOnWorkedValues) {
  // (x, out): zero, the edge of the linear range, the first curved value,
  // the clip edges, both signs; one curved value worked exactly.
  const int od_rows[][2] = {{0, 0},         {1, 4},           {-1, -4},          {1398100, 5592400},
                            {-1398100, -5592400}, {1398101, 5592405}, {-1398101, -5592405}, {2796202, 8388607},
                            {2796203, 8388607},   {-2796203, -8388607}, {8388607, 8388607}, {-8388608, -8388607},
                            {2000000, 7481752}};
  for (auto& r : od_rows) EXPECT_EQ(od(r[0]), r[1]) << r[0];
  std::mt19937 rng(3);
  std::uniform_int_distribution<int> d(-4000000, 4000000);
  for (int i = 0; i < 200000; ++i) {
    const int x = d(rng);
    ASSERT_NEAR(od(x), overdrive_real(x), 3.0) << x;  // full scale 2^23 - 1 and truncation
  }
  // Out of the working range the doubling wraps (and stays defined):
  // 0x7fffffff doubles to -2, 0x40000000 to INT32_MIN.
  EXPECT_EQ(od(INT32_MAX), -4);
  EXPECT_EQ(od(INT32_MIN), 0);
  EXPECT_EQ(od(0x40000000), 0);
  const int bs_rows[][2] = {{0, 0}, {0x10000, 0x10000}, {0x1ffff, 0x2fffe}, {-1, -1}, {1, 2},
                            {-2, -3}, {-0x10000, -0x1ffff}, {0xffff, 0x1fffe}, {-0x10001, -0x10001}};
  for (auto& r : bs_rows) EXPECT_EQ(bs(r[0]), r[1]) << r[0];
}

// gramophone_process = overdrive, roughening, then an elliptic filter on the
// stated band-pass (b0..b6, a1..a6, Q20), sample by sample; out of place and
// in place, in odd block lengths (count 0 and below do nothing). Status 0
// after init; end nulls the filter.
TEST(Gramophone, EqualsItsStagesInOrder) {
  const int band_pass[13] = {617,     -1060,     268,      0,         -268,    1060,   -617,
                             5909563, -13956198, 17678109, -12667477, 4868827, -784265};
  gramophone g{};
  gramophone_init(&g);
  int status = -1;
  gramophone_getstatus(&g, &status);
  EXPECT_EQ(status, 0);
  elliptic ref{};
  elliptic_init(&ref, band_pass);
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> d(-8388608, 8388607);
  Seq x(20000), want(x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    x[i] = i < 3000 ? d(rng) / ((i / 300) + 1) : 0;
    int s = bs(od(x[i]));
    elliptic_process(&ref, &s, &want[i]);
  }
  Seq got = x, out(x.size(), 12345);
  size_t at = 0;
  for (int n : {1, 17, 240, 37, 2, 1031, 0, -3}) {
    gramophone_process(&g, got.data() + at, out.data() + at, n);
    at += static_cast<size_t>(n > 0 ? n : 0);
  }
  gramophone_process(&g, got.data() + at, got.data() + at, static_cast<int>(x.size() - at));
  std::copy(out.begin(), out.begin() + static_cast<long>(at), got.begin());
  EXPECT_EQ(got, want);
  elliptic_end(&ref);
  gramophone_end(&g);
  EXPECT_EQ(g.filter, nullptr);
}

// Small tones stay in the overdrive's linear range (x4, +12 dB); the
// band-pass then gives its stated response, within 1 dB (Goertzel level over
// a second, after 0.1 s of settling).
TEST(Gramophone, BandPassResponseThroughTheEffect) {
  const double rows[][2] = {{1000, 2.0},   {2000, -4.8}, {700, -7.7},   {500, -21.0},
                            {3000, -21.0}, {80, -50.0},  {10000, -50.0}};
  for (auto& r : rows) {
    gramophone g{};
    gramophone_init(&g);
    const double amplitude = 200000.0, w = 2.0 * std::numbers::pi * r[0] / 48000.0;
    Seq s(48000 + 4800);
    for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<int>(std::lround(amplitude * std::sin(w * i)));
    gramophone_process(&g, s.data(), s.data(), static_cast<int>(s.size()));
    double re = 0, im = 0;
    for (size_t i = 4800; i < s.size(); ++i) {
      re += s[i] * std::cos(w * i);
      im -= s[i] * std::sin(w * i);
    }
    const double db = 20.0 * std::log10(2.0 * std::hypot(re, im) / 48000.0 / (4.0 * amplitude));
    if (r[1] <= -50.0) {
      EXPECT_LT(db, r[1]) << r[0];
    } else {
      EXPECT_NEAR(db, r[1], 1.0) << r[0];
    }
    gramophone_end(&g);
  }
}
