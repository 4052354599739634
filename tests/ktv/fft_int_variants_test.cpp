// The builds of the analysis' real transform and levels (ktv/fft_int_detail.h) against
// the baseline build, bin for bin: inputs inside the range the AVX2 build
// transforms in 32-bit lanes (up to +-2^23, including the extremes that
// drive every stage to its largest values), and inputs just outside it or
// far outside it (the 24-bit path's working samples, any int32), which that
// build hands to the scalar path. Canaries after the 256 bins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "kafx_proc/fft_int.h"
#include "ktv/fft_int_detail.h"
#include "support/variants.h"

namespace {

constexpr int kN = FFT_INT_SIZE;
constexpr int kGuards = 8;
constexpr int64_t kGuard = 0x5A5A5A5A5A5A5A5A;

using Input = std::vector<int>;

Input uniform(unsigned seed, int64_t lo, int64_t hi) { return kafx_test::random_values<int>(kN, seed, lo, hi); }

Input sine(double bin, double amp, double phase) {
  Input x(kN);
  for (int n = 0; n < kN; ++n) x[n] = static_cast<int>(std::lrint(amp * std::sin(2 * std::numbers::pi * bin * n / kN + phase)));
  return x;
}

Input square(int period, int amp) {
  Input x(kN);
  for (int n = 0; n < kN; ++n) x[n] = (n / (period / 2)) % 2 == 0 ? amp : -amp;
  return x;
}

struct Case {
  std::string name;
  Input in;
};

std::vector<Case> cases() {
  constexpr int kTop = 1 << 23;
  std::vector<Case> c;
  c.push_back({"silence", Input(kN, 0)});
  c.push_back({"dc at +2^23", Input(kN, kTop)});
  c.push_back({"dc at -2^23", Input(kN, -kTop)});
  c.push_back({"alternating +-2^23", square(2, kTop)});
  c.push_back({"square period 8 at 2^23", square(8, kTop)});
  c.push_back({"square period 64 at -2^23", square(64, -kTop)});
  for (int s = 0; s < 6; ++s) c.push_back({"uniform within 2^23 #" + std::to_string(s), uniform(11 + s, -kTop, kTop)});
  c.push_back({"uniform small", uniform(30, -300, 300)});
  for (double bin : {1.0, 5.5, 17.0, 31.25, 64.0, 100.5, 127.0})
    c.push_back({"sine full scale on bin " + std::to_string(bin), sine(bin, kTop, 0.3)});
  // One sample past the range, and the 24-bit path's values: the scalar path.
  Input past = uniform(40, -kTop, kTop);
  past[77] = kTop + 1;
  c.push_back({"one sample at 2^23 + 1", past});
  Input below = uniform(41, -kTop, kTop);
  below[200] = -kTop - 1;
  c.push_back({"one sample at -2^23 - 1", below});
  c.push_back({"uniform within 2^27", uniform(42, -(1 << 27), 1 << 27)});
  c.push_back({"sine at 2^27 on bin 9", sine(9.0, (1 << 27) - 1, 1.0)});
  c.push_back({"any int32", uniform(43, INT32_MIN, INT32_MAX)});
  Input extremes(kN);
  for (int n = 0; n < kN; ++n) extremes[n] = n % 3 == 0 ? INT32_MIN : INT32_MAX;
  c.push_back({"int32 extremes", extremes});
  return c;
}

TEST(FftIntRealTransform, VariantsMatchBaseline) {
  const std::vector<Case> all = cases();
  const int compared = kafx_test::for_each_variant(kafx::fft_int_real_transform_variants, [&](auto fn, auto base) {
    for (const Case& c : all) {
      SCOPED_TRACE(c.name);
      std::vector<complex> want(kN + kGuards, complex{kGuard, kGuard}), got(kN + kGuards, complex{kGuard, kGuard});
      base(c.in.data(), want.data());
      fn(c.in.data(), got.data());
      int differ = 0;
      for (int k = 0; k < kN; ++k) {
        if (got[k].re != want[k].re || got[k].im != want[k].im) {
          if (differ++ < 4) ADD_FAILURE() << "bin " << k << ": " << got[k].re << " " << got[k].im << " want " << want[k].re
                                          << " " << want[k].im;
        }
      }
      EXPECT_EQ(differ, 0);
      for (int k = kN; k < kN + kGuards; ++k) EXPECT_TRUE(got[k].re == kGuard && got[k].im == kGuard) << "canary " << k;
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// Bins for the levels: spectra of the cases above, and made-up ones whose
// powers sit on every bit length and on the edges of the range the AVX2
// build takes (parts within +-2^30) and of int32 (past the range: the scalar
// path).
std::vector<std::vector<complex>> level_inputs() {
  std::vector<std::vector<complex>> all;
  for (const Case& c : cases()) {
    std::vector<complex> b(kN);
    kafx::fft_int_real_transform_variants.fn[kafx::kIsaBaseline](c.in.data(), b.data());
    all.push_back(b);
  }
  std::vector<complex> b(kN, complex{0, 0});
  for (int k = 0; k < FFT_INT_BINS; ++k) {
    // Powers 2^e - 1, 2^e and 2^e + 1 for e = 0 .. 62 (as re, im pairs).
    const int e = k % 63;
    const int64_t r = static_cast<int64_t>(std::sqrt(std::ldexp(1.0, e)));
    b[k] = complex{r + (k % 3) - 1, (k % 5 == 0) ? 0 : 1};
  }
  all.push_back(b);
  for (unsigned seed = 0; seed < 4; ++seed) {
    std::mt19937_64 rng(seed);
    std::vector<complex> r(kN);
    for (auto& z : r) {
      const int bits = static_cast<int>(rng() % 32);
      const int64_t lim = int64_t{1} << bits;
      z.re = static_cast<int64_t>(rng() % static_cast<uint64_t>(2 * lim)) - lim;
      z.im = static_cast<int64_t>(rng() % static_cast<uint64_t>(2 * lim)) - lim;
    }
    all.push_back(r);
  }
  std::vector<complex> edges(kN);
  for (int k = 0; k < kN; ++k)
    edges[k] = complex{k % 2 ? INT32_MIN : INT32_MAX, k % 3 == 0 ? INT32_MIN : (k % 3 == 1 ? 0 : INT32_MAX)};
  all.push_back(edges);
  std::vector<complex> past = edges;
  past[100].im = int64_t{INT32_MAX} + 1;
  all.push_back(past);
  std::vector<complex> top(kN);
  for (int k = 0; k < kN; ++k) top[k] = complex{k % 2 ? -(1 << 30) : (1 << 30) - 1, k % 3 == 0 ? -(1 << 30) : (1 << 30) - 1};
  all.push_back(top);
  std::vector<complex> over = top;
  over[3].re = 1 << 30;
  all.push_back(over);
  std::vector<complex> huge(kN, complex{int64_t{1} << 40, -(int64_t{1} << 39)});
  all.push_back(huge);
  return all;
}

TEST(FftIntLevel, VariantsMatchBaseline) {
  const auto inputs = level_inputs();
  const int compared = kafx_test::for_each_variant(kafx::fft_int_level_variants, [&](auto fn, auto base) {
    for (size_t i = 0; i < inputs.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "spectrum " << i);
      kafx_test::Guarded<int> want(FFT_INT_BINS), got(FFT_INT_BINS);
      base(inputs[i].data(), want.data());
      fn(inputs[i].data(), got.data());
      EXPECT_EQ(got.v, want.v);
      EXPECT_TRUE(got.guards_intact());
    }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// The exported analysis runs the chosen build: its bins are the baseline's.
TEST(FftIntRealTransform, AnalysisUsesTheSameSpectrum) {
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.name);
    std::vector<complex> want(kN), got(kN);
    int level[FFT_INT_BINS], peaks[FFT_INT_MAX_PEAKS];
    kafx::fft_int_real_transform_variants.fn[kafx::kIsaBaseline](c.in.data(), want.data());
    fft_int_analyze(c.in.data(), got.data(), level, peaks);
    for (int k = 0; k < kN; ++k) ASSERT_TRUE(got[k].re == want[k].re && got[k].im == want[k].im) << "bin " << k;
  }
}

}  // namespace
