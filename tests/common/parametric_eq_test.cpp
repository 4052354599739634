// Parametric equalizer: identity after init, the gain stage's rule, band
// enables, parameter round trip, mono isolation, and a designed peaking band
// measured on a sine.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "kafx_proc/parametric_eq.h"

namespace {

constexpr int kOne28 = 1 << 28;

struct Eq {
  parameter_equalizer_t eq{};
  Eq() { parameter_equalizer_init(&eq); }
  ~Eq() { parameter_equalizer_end(&eq); }
};

void pass_through(int (*bands)[6]) {
  for (int k = 0; k < 10; ++k) {
    bands[k][0] = 1;
    bands[k][1] = kOne28;
    for (int j = 2; j < 6; ++j) bands[k][j] = 0;
  }
}

TEST(ParametricEq, InitDefaultsAndIdentity) {
  Eq e;
  EXPECT_EQ(e.eq.status, 0);
  EXPECT_EQ(e.eq.gain_left, 8192);
  EXPECT_EQ(e.eq.gain_right, 8192);
  std::vector<int> l = {0, 1, -1, 8388607, -8388608, 12345, -2};
  std::vector<int> r = {5, -5, 100, -100, 0, 7, -7};
  auto lo = l, ro = r;
  parameter_equalizer_process_stereo(&e.eq, l.data(), r.data(), lo.data(), ro.data(), 7);
  l[2] = 0;  // -1 after the unity Q13 gain is flushed to 0
  EXPECT_EQ(lo, l);
  EXPECT_EQ(ro, r);
}

TEST(ParametricEq, GainStageRuleAndSaturation) {
  Eq e;
  parameter_equalizer_set_gain_left(&e.eq, 4096);
  parameter_equalizer_set_gain_right(&e.eq, 16384);
  int g;
  parameter_equalizer_get_gain_right(&e.eq, &g);
  EXPECT_EQ(g, 16384);
  // -1 * 0.5 floors to -1 and is flushed to 0 before the cascade; -3 * 0.5 = -2.
  int l[3] = {-1, -3, 2147483647};
  int r[3] = {2147483647, -2147483647 - 1, -1};
  parameter_equalizer_process_stereo(&e.eq, l, r, l, r, 3);
  EXPECT_EQ(l[0], 0);
  EXPECT_EQ(l[1], -2);
  EXPECT_EQ(r[0] , 2147483647 >> 5);  // saturated, then the unity section's x32 / >>5
  EXPECT_EQ(r[1], (-2147483647 - 1) >> 5);
  EXPECT_EQ(r[2], -2);
  // count < 1 does nothing
  int z = 77;
  parameter_equalizer_process_stereo(&e.eq, &z, &z, &z, &z, 0);
  parameter_equalizer_process_mono(&e.eq, &z, &z, -3);
  EXPECT_EQ(z, 77);
}

TEST(ParametricEq, BandEnableAndRoundTrip) {
  Eq e;
  int bands[10][6];
  pass_through(bands);
  bands[0][1] = kOne28 / 2;  // -6 dB, disabled
  bands[0][0] = 0;
  bands[1][0] = 3;
  bands[1][1] = kOne28 / 2;  // enabled with a non-1 flag
  bands[2][0] = 4;
  parameter_equalizer_setparameter_left(&e.eq, bands);
  int back[10][6];
  parameter_equalizer_getparameter_left(&e.eq, back);
  EXPECT_EQ(0, std::memcmp(bands, back, sizeof bands));
  int x = 80000;
  parameter_equalizer_process_mono(&e.eq, &x, &x, 1);
  EXPECT_EQ(x, 40000);  // only band 1 halves
  // Right side untouched by mono and by setparameter_left.
  int rb[10][6];
  parameter_equalizer_getparameter_right(&e.eq, rb);
  int pt[10][6];
  pass_through(pt);
  EXPECT_EQ(0, std::memcmp(rb, pt, sizeof pt));
}

TEST(ParametricEq, MonoUsesLeftPathOnly) {
  Eq e;
  parameter_equalizer_set_gain_right(&e.eq, 0);
  int bands[10][6];
  pass_through(bands);
  bands[5][1] = kOne28 / 4;
  parameter_equalizer_setparameter_right(&e.eq, bands);
  int x[4] = {1000, -1000, 400, 8};
  parameter_equalizer_process_mono(&e.eq, x, x, 4);
  EXPECT_EQ(x[0], 1000);
  EXPECT_EQ(x[1], -1000);
  // The right sections kept zero history: a stereo call now sees only its input.
  int l = 0, r = 4000;
  parameter_equalizer_set_gain_right(&e.eq, 8192);
  parameter_equalizer_process_stereo(&e.eq, &l, &r, &l, &r, 1);
  EXPECT_EQ(r, 1000);
}

// Peaking band designed with the usual bilinear-transform recipe, applied as
// Q28 coefficients, measured on a steady sine at and away from its centre.
TEST(ParametricEq, PeakingBandHasDesignedGain) {
  const double fs = 48000, f0 = 1000, q = 1.0, gain_db = 6.0;
  const double a = std::pow(10.0, gain_db / 40), w = 2 * M_PI * f0 / fs, alpha = std::sin(w) / (2 * q);
  const double a0 = 1 + alpha / a;
  const double c[5] = {(1 + alpha * a) / a0, -2 * std::cos(w) / a0, (1 - alpha * a) / a0, 2 * std::cos(w) / a0,
                       -(1 - alpha / a) / a0};
  int bands[10][6];
  pass_through(bands);
  for (int j = 0; j < 5; ++j) bands[3][j + 1] = static_cast<int>(std::lround(c[j] * kOne28));
  auto measure = [&](double f) {
    Eq e;
    parameter_equalizer_setparameter_left(&e.eq, bands);
    double in_e = 0, out_e = 0;
    for (int n = 0; n < 48000; ++n) {
      int x = static_cast<int>(std::lround(1e6 * std::sin(2 * M_PI * f * n / fs)));
      int y;
      parameter_equalizer_process_mono(&e.eq, &x, &y, 1);
      if (n >= 4800) {
        in_e += double(x) * x;
        out_e += double(y) * y;
      }
    }
    return 10 * std::log10(out_e / in_e);
  };
  EXPECT_NEAR(measure(1000), 6.0, 0.05);
  EXPECT_NEAR(measure(100), 0.0, 0.2);
  EXPECT_NEAR(measure(12000), 0.0, 0.2);
}

// Block processing (any block length, chunk boundaries included) equals
// running the sections one sample at a time.
TEST(ParametricEq, BlocksEqualPerSampleCascade) {
  int bands[10][6];
  for (int k = 0; k < 10; ++k) {
    const double fs = 48000, f0 = 60.0 * std::pow(1.8, k), q = 0.9, g = (k % 3 - 1) * 5.0;
    const double a = std::pow(10.0, g / 40), w = 2 * M_PI * f0 / fs, alpha = std::sin(w) / (2 * q);
    const double a0 = 1 + alpha / a;
    const double c[5] = {(1 + alpha * a) / a0, -2 * std::cos(w) / a0, (1 - alpha * a) / a0, 2 * std::cos(w) / a0,
                         -(1 - alpha / a) / a0};
    bands[k][0] = k == 4 ? 0 : 1;  // one band switched off
    for (int j = 0; j < 5; ++j) bands[k][j + 1] = static_cast<int>(std::lround(c[j] * kOne28));
  }
  Eq e;
  parameter_equalizer_setparameter_left(&e.eq, bands);
  parameter_equalizer_setparameter_right(&e.eq, bands);
  parameter_equalizer_set_gain_right(&e.eq, 5000);
  IIR_t ref[2][10];
  for (auto& side : ref)
    for (int k = 0; k < 10; ++k) {
      IIR_init(&side[k], &bands[k][1]);
      side[k].status = bands[k][0];
    }
  std::vector<int> l(4000), r(4000);
  unsigned seed = 1;
  for (size_t i = 0; i < l.size(); ++i) {
    seed = seed * 1103515245u + 12345u;
    l[i] = static_cast<int>(seed >> 8) - (1 << 23);
    r[i] = (i / 500) % 2 ? 0 : -l[i] / 3;  // bursts and silent tails
  }
  auto el = l, er = r;
  for (size_t i = 0; i < l.size(); ++i) {
    int x = el[i] == -1 ? 0 : el[i];  // unity gain stage flushes -1
    long long yr = (static_cast<long long>(er[i]) * 5000) >> 13;
    int y = yr == -1 ? 0 : static_cast<int>(yr);
    for (int k = 0; k < 10; ++k) {
      IIR_process_32(&ref[0][k], &x, &x);
      IIR_process_32(&ref[1][k], &y, &y);
    }
    el[i] = x;
    er[i] = y;
  }
  size_t pos = 0;
  for (int len : {1, 7, 64, 65, 240, 129, 2000, 1494}) {
    parameter_equalizer_process_stereo(&e.eq, &l[pos], &r[pos], &l[pos], &r[pos], len);
    pos += len;
  }
  ASSERT_EQ(pos, l.size());
  EXPECT_EQ(l, el);
  EXPECT_EQ(r, er);
  for (auto& side : ref)
    for (auto& f : side) IIR_end(&f);
}

}  // namespace
