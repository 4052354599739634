// Two-way crossover: identity and branch pairing with memoryless sections,
// then a real fourth-order low/high pair (Butterworth sections squared, i.e.
// a Linkwitz-Riley crossover) whose branches separate and sum back flat.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "kafx_proc/band_split.h"

namespace {

constexpr int kOne = 268435456;  // 1.0 in Q28

// Second-order Butterworth low or high pass, Q28, feedback terms negated.
std::vector<int> butterworth(bool high, double fc, double fs) {
  const double w = 2 * std::numbers::pi * fc / fs;
  const double alpha = std::sin(w) / std::numbers::sqrt2;  // Q = 1/sqrt(2)
  const double a0 = 1 + alpha;
  const double c = std::cos(w);
  const double b0 = (high ? (1 + c) : (1 - c)) / 2;
  const double b1 = high ? -(1 + c) : (1 - c);
  auto q = [](double v) { return static_cast<int>(std::lround(v * kOne)); };
  return {q(b0 / a0), q(b1 / a0), q(b0 / a0), q(2 * c / a0), q(-(1 - alpha) / a0)};
}

double rms(const std::vector<int>& v, size_t from) {
  double s = 0;
  for (size_t i = from; i < v.size(); ++i) s += double(v[i]) * v[i];
  return std::sqrt(s / double(v.size() - from));
}

}  // namespace

TEST(BandSplit, IdentityAndPairing) {
  const int unity[5] = {kOne, 0, 0, 0, 0};
  const int half[5] = {kOne / 2, 0, 0, 0, 0};
  spectral_band_split s;
  spectral_band_split_init(&s, unity, unity);
  std::mt19937 rng(3);
  std::uniform_int_distribution<int> dist(-8388608, 8388607);
  for (int n = 0; n < 1000; ++n) {
    int x = dist(rng), a = 0, b = 0;
    spectral_band_split_process(&s, &x, &a, &b);
    ASSERT_EQ(a, x);
    ASSERT_EQ(b, x);
  }

  // Set A feeds the first output, set B the second: each half-gain section
  // floors x / 2, so two of them give x >> 2.
  spectral_band_split_reinit(&s, unity, half);
  int x = -1001, a = 0, b = 0;
  spectral_band_split_process(&s, &x, &a, &b);
  EXPECT_EQ(a, -1001);
  EXPECT_EQ(b, -251);
  spectral_band_split_reinit(&s, half, unity);
  spectral_band_split_process(&s, &x, &x, &b);  // input aliases the first output
  EXPECT_EQ(x, -251);
  EXPECT_EQ(b, -1001);

  spectral_band_split_end(&s);
  EXPECT_EQ(s.first_a, nullptr);
  EXPECT_EQ(s.second_b, nullptr);
}

TEST(BandSplit, LowHighPairSeparatesAndSumsFlat) {
  const double fs = 48000, fc = 1000;
  const auto lp = butterworth(false, fc, fs);
  const auto hp = butterworth(true, fc, fs);
  spectral_band_split s;
  spectral_band_split_init(&s, lp.data(), hp.data());

  struct Probe {
    double freq, low_gain, high_gain;
  } probes[] = {{50, 1.0, 0.0}, {1000, 0.5, 0.5}, {15000, 0.0, 1.0}};
  const double amp = 4000000;
  for (const Probe& p : probes) {
    spectral_band_split_reset(&s);
    std::vector<int> in, low, high, sum;
    for (int n = 0; n < 48000; ++n) {
      int x = static_cast<int>(amp * std::sin(2 * std::numbers::pi * p.freq * n / fs)), a = 0, b = 0;
      spectral_band_split_process(&s, &x, &a, &b);
      in.push_back(x);
      low.push_back(a);
      high.push_back(b);
      sum.push_back(a + b);
    }
    const size_t settle = 4800;
    const double ref = rms(in, settle);
    EXPECT_NEAR(rms(low, settle) / ref, p.low_gain, 0.01) << p.freq;
    EXPECT_NEAR(rms(high, settle) / ref, p.high_gain, 0.01) << p.freq;
    // The two branches are in phase at every frequency: the sum is all-pass.
    EXPECT_NEAR(rms(sum, settle) / ref, 1.0, 0.01) << p.freq;
  }
  spectral_band_split_end(&s);
}
