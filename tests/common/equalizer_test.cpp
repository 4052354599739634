// Graphic equalizer: the built-in tables' documented rows and rate choice,
// index clamping, hand-worked gain-stage and section values, the whole
// cascade against a direct evaluation of the difference equations (stereo,
// mono, any block split, in place), and the designed gains measured on sines.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

#include "kafx_proc/equalizer.h"

namespace {

constexpr int kOne28 = 1 << 28;
using Set = std::array<int, 5>;
using Bands = std::array<Set, 10>;

struct Eq {
  equalizer_t eq{};
  Eq() { equalizer_init(&eq); }
  ~Eq() { equalizer_end(&eq); }
  Bands coefficients() {
    Bands b{};
    equalizer_getparameter(&eq, reinterpret_cast<int(*)[5]>(b.data()));
    return b;
  }
  void set(const Bands& b) { equalizer_setparameter(&eq, reinterpret_cast<const int(*)[5]>(b.data())); }
};

Bands pass_through() {
  Bands b{};
  for (auto& s : b) s = {kOne28, 0, 0, 0, 0};
  return b;
}

// The cascade written out from its description: Q13 gain stage (64-bit,
// floor shift, saturate, -1 -> 0), then per section x32 saturated in,
// five-term 64-bit sum, >> 28, saturate, -1 -> 0, output y >> 5.
struct Model {
  int64_t gain;
  Bands c;
  std::array<std::array<int64_t, 4>, 10> h{};  // x1, x2, y1, y2 per band
  std::array<bool, 10> off{};                  // a section whose status is 0 passes its input
  static int64_t sat(int64_t v) { return std::clamp<int64_t>(v, INT32_MIN, INT32_MAX); }
  static int64_t no_m1(int64_t v) { return v == -1 ? 0 : v; }
  int step(int in) {
    int64_t s = no_m1(sat(in * gain >> 13));
    for (int b = 0; b < 10; ++b) {
      if (off[b]) continue;
      auto& [x1, x2, y1, y2] = h[b];
      const auto& k = c[b];
      const int64_t x = sat(s * 32);
      const int64_t y = no_m1(sat((k[0] * x + k[1] * x1 + k[2] * x2 + k[3] * y1 + k[4] * y2) >> 28));
      x2 = x1, x1 = x, y2 = y1, y1 = y;
      s = y >> 5;
    }
    return static_cast<int>(s);
  }
};

TEST(GraphicEq, InitAndDocumentedTableRows) {
  Eq e;
  EXPECT_EQ(e.eq.status, 0);
  EXPECT_EQ(e.eq.gain, 8192);
  EXPECT_EQ(e.coefficients(), pass_through());
  // {rate type, band, index, row} as documented; rate 3 (and any unknown
  // class) takes the 48000 Hz table.
  struct Row {
    int rate, band, index;
    Set c;
  };
  const Row rows[] = {
      {0, 0, 0, {268435455, -535180684, 266750533, 535180684, -266750533}},
      {0, 0, -15, {267278998, -532875053, 265601336, 532862843, -264457090}},
      {0, 5, 15, {310981976, -513212728, 207484123, 513212728, -250030644}},
      {1, 5, 15, {307654307, -515457721, 212251278, 515457721, -251470130}},
      {3, 5, 15, {307654307, -515457721, 212251278, 515457721, -251470130}},
      {7, 5, 15, {307654307, -515457721, 212251278, 515457721, -251470130}},
  };
  for (const Row& r : rows) {
    int idx[10] = {};
    idx[r.band] = r.index;
    equalizer_set_param_index(&e.eq, idx, static_cast<SampleRateType>(r.rate));
    EXPECT_EQ(e.coefficients()[r.band], r.c) << r.rate << " " << r.band << " " << r.index;
  }
  // The per-rate entry points select the same tables; 96 kHz is its own.
  const int idx[10] = {0, 0, 0, 0, 0, 15, 0, 0, 0, 0};
  equalizer_set_param_index_44100(&e.eq, idx);
  EXPECT_EQ(e.coefficients()[5], rows[2].c);
  equalizer_set_param_index_48000(&e.eq, idx);
  EXPECT_EQ(e.coefficients()[5], rows[3].c);
  equalizer_set_param_index_96000(&e.eq, idx);
  const Set r96 = e.coefficients()[5];
  EXPECT_NE(r96, rows[2].c);
  EXPECT_NE(r96, rows[3].c);
  equalizer_set_param_index(&e.eq, idx, SAMPLE_RATE_96000);
  EXPECT_EQ(e.coefficients()[5], r96);
}

// Owners write `gain` directly as the second word of the record.
TEST(GraphicEq, RecordLayouts) {
  EXPECT_EQ(offsetof(equalizer_t, gain), sizeof(int32_t));
  EXPECT_EQ(offsetof(equalizer_t, band_index), 2 * sizeof(int32_t));
  EXPECT_EQ(offsetof(equalizer_t, left_band), 12 * sizeof(int32_t));
  EXPECT_EQ(offsetof(equalizer_t, right_band), 12 * sizeof(int32_t) + 10 * sizeof(IIR_t*));
}

TEST(GraphicEq, EveryStepZeroIsFlatAndIndicesClamp) {
  Eq e;
  for (int rate = 0; rate < 3; ++rate) {
    const int zero[10] = {};
    equalizer_set_param_index(&e.eq, zero, static_cast<SampleRateType>(rate));
    for (const Set& s : e.coefficients()) {
      EXPECT_EQ(s[0], kOne28 - 1);
      EXPECT_TRUE(s[3] == -s[1] && s[4] == -s[2]);
    }
  }
  const int wild[10] = {16, -20, 15, -15, 1000, -1000, 3, -3, 0, 99};
  const int stored[10] = {15, -15, 15, -15, 15, -15, 3, -3, 0, 15};
  equalizer_set_param_index(&e.eq, wild, SAMPLE_RATE_48000);
  int back[10];
  equalizer_get_param_index(&e.eq, back);
  EXPECT_TRUE(std::equal(back, back + 10, stored));
  const Bands clamped = e.coefficients();
  equalizer_set_param_index(&e.eq, stored, SAMPLE_RATE_48000);
  EXPECT_EQ(e.coefficients(), clamped);
  // Ending zeroes the indices and nulls the sections.
  equalizer_t t{};
  equalizer_init(&t);
  equalizer_set_param_index(&t, stored, SAMPLE_RATE_44100);
  equalizer_end(&t);
  for (int b = 0; b < 10; ++b) EXPECT_TRUE(t.band_index[b] == 0 && !t.left_band[b] && !t.right_band[b]);
}

TEST(GraphicEq, SetParameterFeedsBothChannelsAndReadsTheRightOne) {
  Eq e;
  Bands b = pass_through();
  for (int k = 0; k < 10; ++k) b[k] = {kOne28 - k, k, -k, 2 * k, -2 * k};
  e.set(b);
  for (int k = 0; k < 10; ++k) {
    EXPECT_TRUE(std::equal(b[k].begin(), b[k].end(), e.eq.left_band[k]->coef));
    EXPECT_TRUE(std::equal(b[k].begin(), b[k].end(), e.eq.right_band[k]->coef));
  }
  // Changed behind its back, the left cascade is overwritten by the right one on reading.
  IIR_set_param(e.eq.left_band[4], pass_through()[0].data());
  EXPECT_EQ(e.coefficients(), b);
  int idx[10];
  equalizer_get_param_index(&e.eq, idx);
  EXPECT_TRUE(std::all_of(idx, idx + 10, [](int i) { return i == 0; }));
}

TEST(GraphicEq, HandWorkedSamples) {
  Eq e;
  Bands b = pass_through();
  // {gain, input, output} through ten unity sections: the gain stage floors,
  // flushes -1 and saturates; the first section's x32 input saturates too.
  const int rows[][3] = {{8192, 1000, 1000}, {4096, -1, 0}, {4096, -3, -2}, {4096, 3, 1}, {16384, -1, -2},
                         {16384, INT32_MAX, INT32_MAX >> 5}, {16384, INT32_MIN, INT32_MIN >> 5},
                         {8192, 70000000, 67108863}};
  e.set(b);
  for (auto& r : rows) {
    e.eq.gain = r[0];
    int l = r[1], rr = r[1], m = r[1];
    equalizer_process_stereo(&e.eq, &l, &rr, &l, &rr, 1);
    equalizer_process_mono(&e.eq, &m, &m, 1);
    EXPECT_TRUE(l == r[2] && rr == r[2] && m == r[2]) << r[0] << " " << r[1] << ": " << l << " " << m;
  }
  // Band 3 as y = x / 2 + y[n-1] / 2 (internal x32 scale): impulses of +-1000
  // decay 500, 250, 125, 62 / -63 ... and a -1 tail is flushed to exact 0.
  e.eq.gain = 8192;
  b[3] = {kOne28 / 2, 0, 0, kOne28 / 2, 0};
  e.set(b);
  equalizer_reset(&e.eq);
  const std::vector<int> pos = {500, 250, 125, 62, 31, 15, 7, 3, 1, 0, 0, 0, 0, 0, 0, 0};
  const std::vector<int> neg = {-500, -250, -125, -63, -32, -16, -8, -4, -2, -1, -1, -1, -1, -1, 0, 0};
  std::vector<int> l(16, 0), r(16, 0);
  l[0] = 1000, r[0] = -1000;
  equalizer_process_stereo(&e.eq, l.data(), r.data(), l.data(), r.data(), 16);
  EXPECT_EQ(l, pos);
  EXPECT_EQ(r, neg);
  EXPECT_EQ(e.eq.right_band[3]->state[3], 0);
  int z = 77;  // count < 1 does nothing
  equalizer_process_stereo(&e.eq, &z, &z, &z, &z, 0);
  equalizer_process_mono(&e.eq, &z, &z, -4);
  EXPECT_EQ(z, 77);
}

std::vector<int> noise(std::mt19937& rng, int n, int amp) {
  std::uniform_int_distribution<int> d(-amp, amp);
  std::vector<int> v(n);
  for (int& x : v) x = d(rng);
  return v;
}

TEST(GraphicEq, CascadeMatchesDirectModelInAnyBlockSplit) {
  std::mt19937 rng(8);
  std::uniform_int_distribution<int> pick(-15, 15);
  for (int rate = 0; rate < 3; ++rate) {
    for (int gain : {8192, 5000, 12000}) {
      Eq e;
      int idx[10];
      for (int& i : idx) i = pick(rng);
      idx[0] = 15, idx[5] = -15;  // the extremes, hot and deep
      equalizer_set_param_index(&e.eq, idx, static_cast<SampleRateType>(rate));
      e.eq.gain = gain;
      Model ml{gain, e.coefficients()}, mr = ml;
      // Full scale noise (which saturates inside) with quiet stretches.
      std::vector<int> inl = noise(rng, 1400, 8388607), inr = noise(rng, 1400, 3000000);
      std::fill(inl.begin() + 600, inl.begin() + 900, 0);
      std::vector<int> l = inl, r = inr, m = inl;
      Eq mono;
      equalizer_set_param_index(&mono.eq, idx, static_cast<SampleRateType>(rate));
      mono.eq.gain = gain;
      size_t pos = 0;
      for (int len : {1, 17, 37, 127, 240, 256, 1, 721}) {  // in place, in uneven blocks
        equalizer_process_stereo(&e.eq, l.data() + pos, r.data() + pos, l.data() + pos, r.data() + pos, len);
        equalizer_process_mono(&mono.eq, m.data() + pos, m.data() + pos, len);
        pos += len;
      }
      ASSERT_EQ(pos, inl.size());
      for (size_t i = 0; i < inl.size(); ++i) {
        const int el = ml.step(inl[i]), er = mr.step(inr[i]);
        ASSERT_EQ(l[i], el) << "left " << rate << " " << gain << " at " << i;
        ASSERT_EQ(r[i], er) << "right at " << i;
        ASSERT_EQ(m[i], el) << "mono at " << i;
      }
    }
  }
}

TEST(GraphicEq, SectionsSwitchedOffByHandPassTheirInput) {
  std::mt19937 rng(11);
  Eq e;
  const int idx[10] = {9, -7, 5, 12, -3, 8, -11, 6, -5, 10};
  equalizer_set_param_index(&e.eq, idx, SAMPLE_RATE_48000);
  Model ml{8192, e.coefficients()};
  ml.off[4] = ml.off[7] = true;
  Model mr = ml;
  IIR_set_status(e.eq.left_band[4], 0);
  IIR_set_status(e.eq.right_band[4], 0);
  IIR_set_status(e.eq.left_band[7], 0);
  IIR_set_status(e.eq.right_band[7], 0);
  std::vector<int> l = noise(rng, 700, 6000000), r = noise(rng, 700, 6000000);
  const std::vector<int> inl = l, inr = r;
  equalizer_process_stereo(&e.eq, l.data(), r.data(), l.data(), r.data(), 300);
  equalizer_process_stereo(&e.eq, l.data() + 300, r.data() + 300, l.data() + 300, r.data() + 300, 400);
  for (size_t i = 0; i < l.size(); ++i) {
    ASSERT_EQ(l[i], ml.step(inl[i])) << i;
    ASSERT_EQ(r[i], mr.step(inr[i])) << i;
  }
  // Mono reads the left cascade only: left sections off pass their input,
  // right sections off change nothing.
  Eq m1, m2;
  equalizer_set_param_index(&m1.eq, idx, SAMPLE_RATE_48000);
  equalizer_set_param_index(&m2.eq, idx, SAMPLE_RATE_48000);
  IIR_set_status(m1.eq.left_band[4], 0);
  IIR_set_status(m1.eq.left_band[7], 0);
  IIR_set_status(m2.eq.right_band[4], 0);
  Model mo{8192, e.coefficients()}, mf = mo;
  mo.off[4] = mo.off[7] = true;
  std::vector<int> a = inl, b = inl;
  equalizer_process_mono(&m1.eq, a.data(), a.data(), 300);
  equalizer_process_mono(&m1.eq, a.data() + 300, a.data() + 300, 400);
  equalizer_process_mono(&m2.eq, b.data(), b.data(), 700);
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i], mo.step(inl[i])) << "mono, left off, at " << i;
    ASSERT_EQ(b[i], mf.step(inl[i])) << "mono, right off, at " << i;
  }
}

TEST(GraphicEq, SeparateOutputsAndIdenticalChannels) {
  std::mt19937 rng(3);
  Eq e;
  const int idx[10] = {4, -2, 7, 15, -15, 0, 3, -8, 11, -6};
  equalizer_set_param_index(&e.eq, idx, SAMPLE_RATE_44100);
  const std::vector<int> in = noise(rng, 500, 4000000);
  std::vector<int> l(500), r(500), inl = in, inr = in;
  equalizer_process_stereo(&e.eq, inl.data(), inr.data(), l.data(), r.data(), 500);
  EXPECT_EQ(l, r);
  EXPECT_EQ(inl, in);  // inputs untouched when the outputs are elsewhere
  // Reset: the same input gives the same output again.
  equalizer_reset(&e.eq);
  std::vector<int> l2(500), r2(500);
  equalizer_process_stereo(&e.eq, inl.data(), inr.data(), l2.data(), r2.data(), 500);
  EXPECT_EQ(l2, l);
}

// Steady-state gain on a sine at the band's centre (peaks) or far into the
// shelf, in dB.
double measured_db(int rate, const int* idx, double f, double fs) {
  Eq e;
  equalizer_set_param_index(&e.eq, idx, static_cast<SampleRateType>(rate));
  const int n = static_cast<int>(fs);  // one second; measure the last half
  std::vector<int> l(n), r(n);
  for (int i = 0; i < n; ++i) l[i] = r[i] = static_cast<int>(std::lround(400000 * std::sin(2 * std::numbers::pi * f * i / fs)));
  const std::vector<int> in = l;
  equalizer_process_stereo(&e.eq, l.data(), r.data(), l.data(), r.data(), n);
  double pi = 0, po = 0;
  for (int i = n / 2; i < n; ++i) pi += double(in[i]) * in[i], po += double(l[i]) * l[i];
  return 10 * std::log10(po / pi);
}

TEST(GraphicEq, DesignedGainsOnSines) {
  // {rate, band, index, frequency, expected dB, tolerance}
  struct Case {
    int rate, band, index;
    double f, db, tol;
  };
  const Case cases[] = {
      {1, 5, 15, 1000, 15, 0.05},   {1, 5, -15, 1000, -15, 0.05}, {0, 3, 6, 250, 6, 0.05},
      {2, 8, -9, 8000, -9, 0.05},   {0, 1, 10, 62.5, 10, 0.05},   {1, 0, 15, 15, 15, 0.5},
      {1, 9, -12, 23000, -12, 0.5}, {1, 5, 15, 8000, 0, 0.5},     {1, 9, 15, 16000, 12.1, 0.2},
  };
  const double rates[3] = {44100, 48000, 96000};
  for (const Case& c : cases) {
    int idx[10] = {};
    idx[c.band] = c.index;
    EXPECT_NEAR(measured_db(c.rate, idx, c.f, rates[c.rate]), c.db, c.tol) << c.band << " " << c.index << " " << c.f;
  }
}

}  // namespace
