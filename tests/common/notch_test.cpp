// Notch filter: hand-worked sequences of the error-feedback recursion, a
// direct evaluation in 128-bit arithmetic, and its frequency response
// (a null at the centre, unit gain away from it).
#include "kafx_proc/notch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <vector>

#include "common/fixed_point.h"
#include "common/notch_block.h"
#include "support/sequences.h"
#include "support/variants.h"

namespace {

using Seq = std::vector<int>;

Seq run(notch* n, const Seq& in) {
  return kafx_test::per_sample(in, [&](int x) { int y = 0; notch_process(n, &x, &y); return y; });
}

Seq run(int radius, int centre, const Seq& in) {
  notch n;
  notch_init(&n, radius, centre);
  Seq out = run(&n, in);
  notch_end(&n);
  return out;
}

// Q28 centre coefficient -2 cos(2 pi f / fs), truncated.
int centre_for(double hz, double fs) { return static_cast<int>(-2 * std::cos(2 * M_PI * hz / fs) * 268435456.0); }

// 8192 y[n] + e[n] = x[n-1] m / 2^15 + e[n-1] + 8192 (x[n] + x[n-2])
//                    - r^2 y[n-2] / 2^13 - (r m / 2^28) y[n-1]
// with floor divisions, evaluated from whole histories in 64 bits (the
// inputs used here keep every term far inside that range). The centre
// becomes `m2` from sample `from` on, the history kept.
Seq model(int r, int m, const Seq& in, int m2 = 0, size_t from = SIZE_MAX) {
  std::vector<int64_t> x, y;
  int64_t e = 0;
  Seq out;
  auto at = [](const std::vector<int64_t>& v, size_t n, size_t k) -> int64_t { return n >= k ? v[n - k] : 0; };
  auto floordiv = [](int64_t a, int64_t d) { return a >= 0 ? a / d : -((-a + d - 1) / d); };
  for (size_t n = 0; n < in.size(); ++n) {
    if (n == from) m = m2;
    x.push_back(in[n]);
    int64_t acc = floordiv(at(x, n + 1, 2) * m, 1 << 15) + e + 8192 * (x[n] + at(x, n + 1, 3));
    acc -= floordiv(static_cast<int64_t>(r) * r * at(y, n, 2), 1 << 13);
    acc -= floordiv(static_cast<int64_t>(r) * m, 1 << 28) * at(y, n, 1);
    const int64_t yn = floordiv(acc, 8192);
    e = acc - yn * 8192;
    y.push_back(yn);
    out.push_back(yn == -1 ? 0 : static_cast<int>(yn));
  }
  return out;
}

}  // namespace

TEST(Notch, HandWorkedSequences) {
  // r = 0 leaves the FIR numerator 1 + m' z^-1 + z^-2.
  //   m' = 0:  y = x + x[n-2]; an input of -1 gives -1, returned as 0.
  //   m' = -2: the DC notch y = x - 2 x[n-1] + x[n-2].
  //   m' = 0.5: half of x[n-1] is carried as the remainder 4096 into the next
  //   output (first-order error feedback): 1, 0.5, 1 comes out as 1, 0, 1.
  // r = 0.5, m' = 0: y = x + x[n-2] - y[n-2] / 4; -18.75 floors to -19 and the
  // remainder 0.25 lifts the next output from 4.75 to 5.
  struct Row {
    int r, m;
    Seq in, out;
  } rows[] = {
      {0, 0, {1, 2, 3, -1, 0, 0}, {1, 2, 4, 1, 3, 0}},
      {0, 0, {-1}, {0}},
      {0, -(1 << 29), {2, 2, 2, 2, 5}, {2, -2, 0, 0, 3}},
      {0, 1 << 27, {1, 0, 0, 0, 0}, {1, 0, 1, 0, 0}},
      {4096, 0, {100, 0, 0, 0, 0, 0, 0, 0}, {100, 0, 75, 0, -19, 0, 5, 0}},
  };
  for (const Row& r : rows) EXPECT_EQ(run(r.r, r.m, r.in), r.out) << "r " << r.r << " m " << r.m;
}

TEST(Notch, MatchesDirectEvaluation) {
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> radius(0, 8191), centre(-(1 << 29), 1 << 29);
  for (unsigned trial = 0; trial < 30; ++trial) {
    const int r = radius(rng), m = centre(rng);
    const Seq in = kafx_test::random_values<int>(500, trial, -8388608, 8388607);
    ASSERT_EQ(run(r, m, in), model(r, m, in)) << "r " << r << " m " << m;
  }
}

TEST(Notch, RemovesTheCentreAndPassesTheRest) {
  // A notch at fs/4 (centre 0) removes a tone there: x + x[n-2] cancels from
  // the third sample on. Without poles the output is then exactly 0; with
  // r = 0.9 the start-up transient decays until the floors of the feedback
  // terms hold a small limit cycle (+-4 here, about -118 dB below the tone)
  // that the first-order error feedback does not break up.
  Seq tone;
  for (int n = 0; n < 4000; ++n) tone.push_back((n % 4 == 0) ? 3000000 : (n % 4 == 2) ? -3000000 : 0);
  const Seq fir = run(0, 0, tone);
  for (size_t n = 2; n < fir.size(); ++n) ASSERT_EQ(fir[n], 0) << n;
  const Seq quiet = run(7373, 0, tone);
  for (size_t n = 1000; n < quiet.size(); ++n) ASSERT_LE(std::abs(quiet[n]), 4) << n;

  // A 1 kHz notch at 48 kHz, r = 0.95: steady-state gain against |H(w)|.
  const int r = 7782, m = centre_for(1000, 48000);
  for (double hz : {1000.0, 300.0, 900.0, 1100.0, 5000.0, 15000.0}) {
    Seq in;
    for (int n = 0; n < 24000; ++n)
      in.push_back(static_cast<int>(std::lround(4e6 * std::sin(2 * M_PI * hz * n / 48000))));
    const Seq out = run(r, m, in);
    int peak = 0;
    for (size_t n = 12000; n < out.size(); ++n) peak = std::max(peak, std::abs(out[n]));
    const std::complex<double> z = std::polar(1.0, -2 * M_PI * hz / 48000);
    const double mr = m / 268435456.0, rr = r / 8192.0;
    const double gain = std::abs((1.0 + mr * z + z * z) / (1.0 + rr * mr * z + rr * rr * z * z));
    EXPECT_NEAR(peak, 4e6 * gain, 4e6 * 0.002 + 2) << hz << " Hz";
  }
}

TEST(Notch, GlidesWithoutClearingAndResets) {
  // notch_setfi moves the centre and keeps the history; setcoef and
  // resetstate clear it (zeros in, zeros out); end clears the record.
  const Seq in = {1000000, -2000000, 3000000, 500000, -700000, 0, 0, 0, 0, 0};
  const int m1 = centre_for(1000, 48000), m2 = centre_for(2000, 48000);
  notch n;
  notch_init(&n, 7000, m1);
  Seq out = run(&n, Seq(in.begin(), in.begin() + 4));
  notch_setfi(&n, m2);
  EXPECT_EQ(n.radius, 7000);
  const Seq rest = run(&n, Seq(in.begin() + 4, in.end()));
  out.insert(out.end(), rest.begin(), rest.end());
  EXPECT_EQ(out, model(7000, m1, in, m2, 4));
  notch_setcoef(&n, 7000, m2);
  EXPECT_EQ(run(&n, Seq(6, 0)), Seq(6, 0));
  run(&n, in);
  notch_resetstate(&n);
  EXPECT_EQ(run(&n, Seq(6, 0)), Seq(6, 0));
  notch_end(&n);
  EXPECT_TRUE(n.state == nullptr && n.radius == 0 && n.centre == 0);
}

// The block form against the per-sample function: outputs and all five
// state words over runs of several lengths, with the mix of a fading notch
// (dry + depth (notched - dry), saturating) and with wild inputs and
// coefficients (wrapping products).
TEST(Notch, BlockFormEqualsPerSampleSteps) {
  std::mt19937 rng(41);
  for (int trial = 0; trial < 6; ++trial) {
    const bool wild = trial >= 3;
    const int radius = wild ? static_cast<int>(rng()) : 8069 - trial * 300;
    const int centre = wild ? static_cast<int>(rng()) : centre_for(500.0 + 3000.0 * trial, 48000.0);
    const int32_t depth = trial % 3 == 0 ? 8192 : static_cast<int32_t>(rng() % 8192);
    notch a, b;
    notch_init(&a, radius, centre);
    notch_init(&b, radius, centre);
    const auto mix = [depth](int32_t x, int32_t o) {
      return kafx::sat_add(x, kafx::mulq13(kafx::sat_sub(o, x), depth));
    };
    for (int len : {1, 0, 128, 37, 255}) {
      Seq in(static_cast<size_t>(len));
      for (int& v : in) v = wild ? static_cast<int>(rng()) : static_cast<int>(rng() % 16777216) - 8388608;
      Seq want(in.size());
      for (size_t i = 0; i < in.size(); ++i) {
        int o = 0;
        notch_process(&a, &in[i], &o);
        want[i] = mix(in[i], o);
      }
      Seq got = in;
      kafx::notch_block(&b, got.data(), len, mix);
      ASSERT_EQ(got, want) << "trial " << trial << " run " << len;
      ASSERT_EQ(std::vector<int64_t>(a.state, a.state + 5), std::vector<int64_t>(b.state, b.state + 5)) << "trial " << trial << " run " << len;
    }
    notch_end(&a);
    notch_end(&b);
  }
}
