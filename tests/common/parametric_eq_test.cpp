// Parametric equalizer: the gain stage's wiring, mono isolation, and block
// processing (band enables and records included) against a per-sample
// cascade of single sections.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

#include "kafx_proc/parametric_eq.h"

namespace {

constexpr int kOne28 = 1 << 28;

struct Eq {
  parameter_equalizer_t eq{};
  Eq() { parameter_equalizer_init(&eq); }
  ~Eq() { parameter_equalizer_end(&eq); }
};

void pass_through(int (*b)[6]) {
  for (int k = 0; k < 10; ++k) b[k][0] = 1, b[k][1] = kOne28, b[k][2] = b[k][3] = b[k][4] = b[k][5] = 0;
}

// Peaking band by the usual bilinear-transform recipe, written into a band
// record as Q28 coefficients with the feedback terms negated.
void peaking(int* band, double f0, double q, double gain_db, double fs = 48000) {
  const double a = std::pow(10.0, gain_db / 40), w = 2 * std::numbers::pi * f0 / fs;
  const double alpha = std::sin(w) / (2 * q), a0 = 1 + alpha / a;
  const double c[5] = {(1 + alpha * a) / a0, -2 * std::cos(w) / a0, (1 - alpha * a) / a0, 2 * std::cos(w) / a0,
                       -(1 - alpha / a) / a0};
  band[0] = 1;
  for (int j = 0; j < 5; ++j) band[j + 1] = static_cast<int>(std::lround(c[j] * kOne28));
}

TEST(ParametricEq, GainStageRuleAndSaturation) {
  Eq e;
  EXPECT_TRUE(e.eq.status == 0 && e.eq.gain_left == 8192 && e.eq.gain_right == 8192);
  // {gain, input, output} through the pass-through cascade of a fresh block
  // (the product rule itself is checked in the arithmetic tests): -1 after
  // the gain is flushed to 0; a saturated gain stage meets the section's own
  // x32 input saturation and comes out as (2^31 - 1) >> 5.
  const int rows[][3] = {{8192, -8388608, -8388608}, {4096, -1, 0}, {16384, -1, -2},
                         {16384, INT32_MAX, INT32_MAX >> 5}, {16384, INT32_MIN, INT32_MIN >> 5}};
  for (auto& r : rows) {
    int l = r[1], rr = r[1], m = r[1];
    parameter_equalizer_set_gain_left(&e.eq, r[0]);
    parameter_equalizer_set_gain_right(&e.eq, r[0]);
    parameter_equalizer_process_stereo(&e.eq, &l, &rr, &l, &rr, 1);
    parameter_equalizer_process_mono(&e.eq, &m, &m, 1);
    EXPECT_TRUE(l == r[2] && rr == r[2] && m == r[2]) << r[0] << " " << r[1];
  }
  int z = 77;  // count < 1 does nothing
  parameter_equalizer_process_stereo(&e.eq, &z, &z, &z, &z, 0);
  parameter_equalizer_process_mono(&e.eq, &z, &z, -3);
  EXPECT_EQ(z, 77);
}

TEST(ParametricEq, MonoUsesLeftGainAndSectionsOnly) {
  Eq e;
  int left[10][6], right[10][6];
  pass_through(left);
  pass_through(right);
  left[1][1] = left[1][4] = kOne28 / 2;    // y = x/2 + y[n-1]/2
  right[5][1] = kOne28 / 4, right[5][4] = kOne28 / 64 * 63;  // x/4 + 63/64 y[n-1]: long memory
  parameter_equalizer_setparameter_left(&e.eq, left);
  parameter_equalizer_setparameter_right(&e.eq, right);
  parameter_equalizer_set_gain_left(&e.eq, 24576);  // 3.0
  int x[40] = {80000, -80001, 4};  // x 3, then halved with floors; the tail ends in exact zeros
  parameter_equalizer_process_mono(&e.eq, x, x, 40);
  EXPECT_TRUE(x[0] == 120000 && x[1] == -60002 && x[2] == -29995 && x[21] == -1 && x[22] == 0 && x[39] == 0);
  int l = 0, r = 4000;  // the right sections were not advanced
  parameter_equalizer_process_stereo(&e.eq, &l, &r, &l, &r, 1);
  EXPECT_EQ(r, 1000);
}

// Block processing (any block length, chunk boundaries included) equals
// running the sections one sample at a time.
TEST(ParametricEq, BlocksEqualPerSampleCascade) {
  int bands[10][6];
  for (int k = 0; k < 10; ++k) peaking(bands[k], 60.0 * std::pow(1.8, k), 0.9, (k % 3 - 1) * 5.0);
  bands[5][0] = 0, bands[2][0] = 3, bands[3][0] = 4;  // a +5 dB band off; 3 and 4 act as 1
  Eq e;
  int back[2][10][6];
  parameter_equalizer_setparameter_left(&e.eq, bands);
  parameter_equalizer_setparameter_right(&e.eq, bands);
  parameter_equalizer_getparameter_left(&e.eq, back[0]);
  parameter_equalizer_getparameter_right(&e.eq, back[1]);
  EXPECT_TRUE(!std::memcmp(back[0], bands, sizeof bands) && !std::memcmp(back[1], bands, sizeof bands));
  parameter_equalizer_set_gain_right(&e.eq, 5000);
  IIR_t ref[20];  // left sections 0..9, right 10..19
  for (int k = 0; k < 20; ++k) {
    IIR_init(&ref[k], &bands[k % 10][1]);
    ref[k].status = bands[k % 10][0];
  }
  std::vector<int> l(12000), r(12000);  // noise, then a long silent tail
  std::mt19937 rng(1);
  for (size_t i = 0; i < l.size(); ++i) {
    l[i] = i < 4000 ? static_cast<int>(rng() >> 8) - (1 << 23) : 0;
    r[i] = (i / 500) % 2 ? 0 : -l[i] / 3;  // bursts and silent tails
  }
  auto el = l, er = r;
  for (size_t i = 0; i < l.size(); ++i) {
    const long long yr = (static_cast<long long>(er[i]) * 5000) >> 13;
    el[i] = el[i] == -1 ? 0 : el[i];  // the gain stages flush -1
    er[i] = yr == -1 ? 0 : static_cast<int>(yr);
    for (int k = 0; k < 10; ++k) IIR_process_32(&ref[k], &el[i], &el[i]), IIR_process_32(&ref[10 + k], &er[i], &er[i]);
  }
  size_t pos = 0;
  for (int len : {1, 7, 64, 65, 240, 129, 2000, 1494, 8000}) {
    parameter_equalizer_process_stereo(&e.eq, &l[pos], &r[pos], &l[pos], &r[pos], len);
    pos += len;
  }
  ASSERT_EQ(pos, l.size());
  EXPECT_EQ(l, el);
  EXPECT_EQ(r, er);
  for (auto& f : ref) IIR_end(&f);
}

}  // namespace
