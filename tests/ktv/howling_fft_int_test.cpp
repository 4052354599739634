// Integer FFT analysis of the howling canceller against independent
// floating-point models: the windowed DFT evaluated directly, the Hann
// window from its formula, levels in dB from the amplitude of a sine, peak
// positions of sines between bins; the peak picker's rules on hand-made
// level arrays; the centre search and the zero-crossing count against brute
// force; the analysis low-pass's response from its coefficients. (The
// centre table itself is checked by regenerating it, tests/tools.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "kafx_proc/elliptic.h"
#include "kafx_proc/fft_int.h"
#include "kafx_proc/howling_canceling.h"
#include "ktv/fft_int_detail.h"
#include "ktv/howling_canceling_tables.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr int kN = FFT_INT_SIZE;

double hann(int n) { return 0.5 - 0.5 * std::cos(2 * kPi * n / kN); }

std::vector<int> sine(double bin_pos, double amp, double phase) {
  std::vector<int> x(kN);
  for (int n = 0; n < kN; ++n) x[n] = static_cast<int>(std::lrint(amp * std::sin(2 * kPi * bin_pos * n / kN + phase)));
  return x;
}

// The analysis low-pass's response evaluated from its Q20 coefficients: pass
// band to 10.5 kHz within 0.5 dB, stop band 50 dB down from 12.2 kHz; the
// integer filter's impulse response dies out to exact 0.
TEST(HowlingTables, LowpassMeetsItsDesign) {
  const int32_t* c = kafx::kHowlingLowpass;
  auto gain_db = [&](double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * kPi * f / 48000);
    std::complex<double> num = 0, den = 1, zk = 1;
    for (int k = 0; k <= 6; ++k, zk *= z1) {
      num += c[k] / 1048576.0 * zk;
      if (k > 0) den -= c[6 + k] / 1048576.0 * zk;
    }
    return 20 * std::log10(std::abs(num / den));
  };
  for (double f = 0; f <= 10500; f += 50) {
    EXPECT_LE(gain_db(f), 0.02) << f;
    EXPECT_GE(gain_db(f), -0.52) << f;
  }
  for (double f = 12200; f <= 24000; f += 50) EXPECT_LE(gain_db(f), -49.5) << f;
  elliptic e{};
  elliptic_init(&e, c);
  int x = 1 << 22, y = 0, last_nonzero = 0;
  for (int n = 0; n < 48000; ++n, x = 0) {
    elliptic_process(&e, &x, &y);
    if (y != 0) last_nonzero = n;
  }
  EXPECT_LT(last_nonzero, 24000);
  elliptic_end(&e);
}

TEST(FftInt, WindowBitReverseAndTransformMatchTheDirectDft) {
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> amp(-8388608, 8388607);
  for (int trial = 0; trial < 4; ++trial) {
    std::vector<int> x(kN);
    for (int n = 0; n < kN; ++n) x[n] = trial == 3 ? (n % 2 != 0 ? -8388608 : 8388607) : amp(rng);  // last: full scale
    std::vector<complex> bins(kN);
    fft_int_window(x.data(), bins.data());
    // Undoing the bit reversal gives the windowed samples in natural order.
    std::vector<complex> nat = bins;
    fft_int_bitreverse(nat.data());
    for (int n = 0; n < kN; ++n) {
      EXPECT_NEAR(static_cast<double>(nat[n].re), x[n] * 32.0 * hann(n), 2.0) << n;  // table and shift rounding
      EXPECT_EQ(nat[n].im, 0);
    }
    fft_int_transform(bins.data());
    // The analysis' real-input transform gives the same spectrum.
    std::vector<complex> real(kN);
    int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
    fft_int_analyze(x.data(), real.data(), level, peaks);
    double worst = 0, worst_real = 0;
    for (int k = 0; k < kN; ++k) {
      std::complex<double> ref = 0;
      for (int n = 0; n < kN; ++n) ref += x[n] * 32.0 * hann(n) * std::polar(1.0, -2 * kPi * k * n / kN);
      ref /= kN;
      worst = std::max(worst, std::abs(ref - std::complex<double>(bins[k].re, bins[k].im)));
      worst_real = std::max(worst_real, std::abs(ref - std::complex<double>(real[k].re, real[k].im)));
    }
    EXPECT_LT(worst, 16.0) << "trial " << trial;  // of a scale of 2^28
    EXPECT_LT(worst_real, 16.0) << "trial " << trial;
  }
}

TEST(FftInt, LevelsAndRefinedPositionsOfSines) {
  struct Case {
    double pos, db;
  } cases[] = {{5.0, -6}, {12.0, 0}, {30.0, -40}, {2.25, -6}, {7.4, -20}, {20.4, -12}, {41.1, -30}, {62.8, -6}};
  for (const Case& c : cases) {
    const std::vector<int> x = sine(c.pos, 8388607 * std::pow(10, c.db / 20), 0.7);
    std::vector<complex> bins(kN);
    int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
    const int n = fft_int_analyze(x.data(), bins.data(), level, peaks);
    ASSERT_EQ(n, 1) << c.pos;
    const int k = static_cast<int>(std::lround(c.pos));
    EXPECT_EQ(peaks[0], k) << c.pos;
    for (int i = 1; i < FFT_INT_MAX_PEAKS; ++i) EXPECT_EQ(peaks[i], FFT_INT_NO_PEAK);
    // Level of the peak bin: the sine's dB less the Hann scalloping loss.
    const double d = std::fabs(c.pos - k);
    const double scallop = d == 0 ? 1.0 : std::sin(kPi * d) / (kPi * d * (1 - d * d));
    EXPECT_NEAR(level[k] / 256.0, c.db + 20 * std::log10(scallop), 0.05) << c.pos;
    EXPECT_NEAR(fft_int_refine(bins.data(), k) / 256.0, c.pos, 0.01) << c.pos;
  }
  // Silence: every bin at the floor, no peak.
  std::vector<int> zero(kN, 0);
  std::vector<complex> bins(kN);
  int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
  EXPECT_EQ(fft_int_analyze(zero.data(), bins.data(), level, peaks), 0);
  for (int v : level) EXPECT_EQ(v, FFT_INT_LEVEL_FLOOR);
  // Bin 1 interpolates towards bin 2 (bin 0 holds the mirror image).
  const std::vector<int> low = sine(1.07, 4194304, 0.3);
  fft_int_analyze(low.data(), bins.data(), level, peaks);
  EXPECT_NEAR(fft_int_refine(bins.data(), 1) / 256.0, 1.07, 0.03);
}

// Levels of spectra spread over the whole range (empty bins, single units,
// components up to 2^31): the level of each bin against 10 log10(power /
// 2^52) in Q8, and equal to the level the canceller takes of one power.
TEST(FftInt, LevelsOverTheWholePowerRange) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> bits(0, 31);
  for (int trial = 0; trial < 8; ++trial) {
    std::vector<complex> bins(kN);
    for (int k = 0; k < FFT_INT_BINS; ++k) {
      const auto part = [&] {
        const int b = bits(rng);
        const int64_t v = b == 31 ? (int64_t{1} << 31) - 1 : (int64_t{1} << b) + static_cast<int64_t>(rng() % (1u << b));
        return rng() % 2 ? -v : v;
      };
      bins[k].re = k % 11 == 0 ? 0 : part();
      bins[k].im = k % 7 == 0 ? 0 : part();
      if (trial == 0 && k < 4) bins[k].re = bins[k].im = 0;
    }
    int level[FFT_INT_BINS];
    fft_int_level(bins.data(), level);
    for (int k = 0; k < FFT_INT_BINS; ++k) {
      const double power = static_cast<double>(bins[k].re) * bins[k].re + static_cast<double>(bins[k].im) * bins[k].im;
      const uint64_t exact = kafx::bin_power(bins[k]);
      EXPECT_EQ(level[k], kafx::power_level_q8(exact)) << k;
      if (power == 0) {
        EXPECT_EQ(level[k], FFT_INT_LEVEL_FLOOR) << k;
      } else {
        const double model = std::max(10 * std::log10(power / std::ldexp(1.0, 52)), -160.0) * 256;
        EXPECT_NEAR(level[k], model, 12) << k << " power " << power;  // the Q16 dB-per-neper factor
      }
    }
  }
}

TEST(FftInt, PeakPickerRules) {
  struct Case {
    const char* what;
    std::vector<std::pair<int, int>> bumps;  // (bin, level dB) over a -90 dB floor
    std::vector<int> expect;
    bool plateau = false;  // bins 2 .. 127 at -30 dB instead of the floor
  } cases[] = {
      {"lone peak", {{10, -20}}, {10}},
      {"below the minimum level", {{10, -67}}, {}},
      {"not prominent: a bump on a plateau", {{10, -29}}, {}, true},
      {"bin 0 and bins from 64 are not searched", {{0, -10}, {64, -10}, {90, -10}}, {}},
      {"a tie goes to the lower bin", {{20, -25}, {21, -25}}, {20}},
      {"loudest first, five at most",
       {{5, -40}, {15, -30}, {25, -20}, {35, -10}, {45, -35}, {55, -15}},
       {35, 55, 25, 15, 45}},
  };
  for (const Case& c : cases) {
    int level[FFT_INT_BINS];
    for (int& v : level) v = -90 * 256;
    if (c.plateau) {
      for (int k = 2; k < FFT_INT_BINS; ++k) level[k] = -30 * 256;
    }
    for (auto [bin, db] : c.bumps) level[bin] = db * 256;
    int peaks[FFT_INT_MAX_PEAKS];
    const int n = fft_int_find_peaks(level, peaks);
    ASSERT_EQ(n, static_cast<int>(c.expect.size())) << c.what;
    for (int i = 0; i < FFT_INT_MAX_PEAKS; ++i)
      EXPECT_EQ(peaks[i], i < n ? c.expect[i] : FFT_INT_NO_PEAK) << c.what << " #" << i;
  }
  // Levels at the ends of the int range (the search takes any int): the
  // surround's mean and the prominence are formed without overflow (the
  // sanitizer build stops on a wrapped sum).
  int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
  std::fill(std::begin(level), std::end(level), INT32_MIN);
  level[20] = INT32_MAX;
  ASSERT_EQ(fft_int_find_peaks(level, peaks), 1);
  EXPECT_EQ(peaks[0], 20);
  std::fill(std::begin(level), std::end(level), INT32_MAX - 256);
  level[20] = INT32_MAX;  // 1 dB above its surround
  EXPECT_EQ(fft_int_find_peaks(level, peaks), 0);
}

TEST(HowlingHelpers, FindFreqIdxAndZeroCrossingsAgainstBruteForce) {
  auto nearest = [](int64_t c) {
    int best = 0;
    for (int k = 1; k < kafx::kHowlingTableSize; ++k)
      if (std::llabs(c - kafx::kHowlingCentre[k]) < std::llabs(c - kafx::kHowlingCentre[best])) best = k;
    return best;
  };
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> any(-600000000, 600000000);
  for (int i = 0; i < 2000; ++i) {
    const int c = any(rng);
    EXPECT_EQ(find_freq_idx(c), nearest(c)) << c;
  }
  for (int k = 0; k < kafx::kHowlingTableSize; ++k) EXPECT_EQ(find_freq_idx(kafx::kHowlingCentre[k]), k);
  EXPECT_EQ(find_freq_idx(INT32_MIN), 0);
  EXPECT_EQ(find_freq_idx(INT32_MAX), 127);

  struct Zc {
    std::vector<int> x;
    int count;
  } zc[] = {{{}, 0}, {{5}, 0}, {{1, -1, 1, -1}, 3}, {{0, -1, 0, 2}, 2}, {{-3, -2, 0, 0, 7}, 1}};
  for (const Zc& z : zc) EXPECT_EQ(cal_zero_cross(z.x.data(), static_cast<int>(z.x.size())), z.count);
  // A sine of f Hz crosses zero 2 f times a second.
  std::vector<int> s(48000);
  for (int n = 0; n < 48000; ++n) s[n] = static_cast<int>(std::lrint(1e6 * std::sin(2 * kPi * 1000.5 * n / 48000 + 0.1)));
  EXPECT_NEAR(cal_zero_cross(s.data(), 48000), 2001, 1);
}

}  // namespace
