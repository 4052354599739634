// Smart volume control: defaults and the filter rows chosen per rate (the
// rows themselves are checked by test_tools), set_level's arithmetic, silence, and the block against a plain model
// written from its description (per-sample filters through the exported
// biquad section, 64-bit energies, the gain decision and the glide) over a
// programme that visits every branch, in uneven blocks; then the documented
// behaviours: rising glide stopping short of unity, a loud programme turned
// down but never below a quarter, the peak guard capping a boost.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <tuple>
#include <vector>

#include "headphone/smart_volume_control_tables.h"
#include "kafx_proc/smart_volume_control.h"

namespace {

using kafx::kSmartVolumeFilters;

// Both channels' measuring filter f hold set f of table row `row`.
bool holds(const smart_volume_control_t& s, int row, int f) {
  const int32_t* want = kSmartVolumeFilters[row][f];
  return std::equal(want, want + 5, s.lp_left[f]->coef) && std::equal(want, want + 5, s.lp_right[f]->coef);
}

struct Svc {
  smart_volume_control_t s{};
  Svc() { smart_volume_control_init(&s); }
  ~Svc() { smart_volume_control_end(&s); }
};

TEST(SmartVolume, DefaultsRatesLevelAndReset) {
  Svc v;
  smart_volume_control_t& s = v.s;
  EXPECT_EQ((std::vector<int>{s.status, s.gain, s.gain_max, s.level, s.attact_order, s.release_order, s.weight_low,
                              s.weight_mid, s.weight_high, s.weight_rest}),
            (std::vector<int>{0, 0, 131072, 8192, 3, 7, 3, 1, 0, 2}));
  // {rate class, table row}: 0 -> 44.1k, 2 -> 96k, any other -> 48k.
  const int rates[][2] = {{0, 0}, {2, 2}, {3, 1}, {8, 1}};
  for (auto& r : rates) {
    s.lp_left[1]->state[3] = 77;
    smart_volume_control_set_sample_rate(&s, static_cast<SampleRateType>(r[0]));
    EXPECT_EQ(s.lp_left[1]->state[3], 0);  // history cleared
    for (int f = 0; f < 3; ++f) EXPECT_TRUE(holds(s, r[1], f)) << r[0] << " " << f;
  }
  // p = level^2 * 67277003: threshold p >> 34, reference p >> 26, energy p >> 28.
  EXPECT_TRUE(s.threshold == 262800 && s.reference == 67277003 && s.energy == 16819250);
  s.hold_count = 5;
  smart_volume_control_set_level(&s, 4096);
  int level = 0;
  smart_volume_control_get_level(&s, &level);
  EXPECT_TRUE(level == 4096 && s.threshold == 65700 && s.reference == 16819250 && s.energy == 4204812 &&
              s.hold_count == 0);
  // Some signal, then reset: gain, envelope, energy and filter histories go
  // to 0, the level stays. (Silence staying silent is the model test's first
  // segment.)
  std::vector<int> l(240, 3000000), r(240, 0);
  smart_volume_control_process(&s, l.data(), r.data(), l.data(), r.data(), 240);
  EXPECT_TRUE(s.peak_env != 0 && s.gain != 0 && s.lp_left[1]->state[3] != 0);
  smart_volume_control_reset(&s);
  EXPECT_TRUE(s.gain == 0 && s.peak_env == 0 && s.energy == 0 && s.hold_count == 0 && s.level == 4096);
  for (int f = 0; f < 3; ++f) EXPECT_TRUE(s.lp_left[f]->state[3] == 0 && s.lp_left[f]->state[1] == 0);
}

// The block as its description reads, in plain 64-bit integers; the
// measuring filters are separate biquad records run one sample per call.
struct Model {
  int64_t gain = 0, peak_env = 0, energy, threshold, reference;
  int attack = 3, release = 7, weights[4] = {3, 1, 0, 2};
  int hits[5] = {0, 0, 0, 0, 0};  // quiet hold, dead band, cut, boost, peak guard
  IIR_t lp[6]{};  // left low, mid, high, right low, mid, high
  // Starts from the levels of a fresh block (set_level is checked on its own).
  Model(int rate_row, const smart_volume_control_t& s) : energy(s.energy), threshold(s.threshold), reference(s.reference) {
    for (int k = 0; k < 6; ++k) IIR_init(&lp[k], kSmartVolumeFilters[rate_row][k % 3]);
  }
  ~Model() {
    for (IIR_t& f : lp) IIR_end(&f);
  }
  static int64_t sat(int64_t v) { return std::clamp<int64_t>(v, INT32_MIN, INT32_MAX); }
  int64_t channel_energy(const int* x, int n, int side) {
    int64_t sum[4] = {0, 0, 0, 0};
    for (int i = 0; i < n; ++i) {
      int v = x[i];
      for (int k = 0; k < 3; ++k) {
        int y = 0;
        IIR_process_32(&lp[side * 3 + k], &v, &y);
        sum[k] += int64_t{y} * y;
        v = static_cast<int>(sat(int64_t{v} - y));
      }
      sum[3] += int64_t{v} * v;
    }
    int64_t e = 0;
    for (int k = 0; k < 4; ++k) e += sum[k] >> weights[k];
    return e;
  }
  void process(const int* il, const int* ir, int* ol, int* orr, int n) {
    int64_t a = 0, b = 0;
    for (int i = 0; i < n; ++i) a = std::max<int64_t>(a, std::abs(int64_t{il[i]})), b = std::max<int64_t>(b, std::abs(int64_t{ir[i]}));
    const int64_t pk = std::max(a >> 8, b >> 8);
    peak_env = pk > peak_env ? pk : peak_env + ((pk - peak_env) >> 9);
    const int64_t e = std::max(channel_energy(il, n, 0), channel_energy(ir, n, 1)) >> 24;
    int64_t g;
    if (threshold < e) {
      energy += (e - energy) >> (energy < e ? attack : release);
      // Dead band, cut (towards 1.25 times the reference) or boost (towards 0.875 times).
      const int region = energy > 2 * reference ? 2 : (energy < reference / 2 ? 3 : 1);
      ++hits[region];
      const int64_t q = region == 1 ? 0 : 2 * (((region == 2 ? 640 : 448) * reference) / energy);
      g = region == 1 ? 8192 : int64_t{static_cast<int>(std::sqrt(static_cast<double>(q)))} << 8;
      if (q > 65535) g = int64_t{sqrt_fixed(static_cast<unsigned>(q))} << 8;  // outside its 16-bit range
      g = std::clamp<int64_t>(g, 2048, 32768);
      const int64_t p = sat((g * peak_env) >> 13);
      if (p >= 32769) {
        ++hits[4];
        g = (p < 49153 ? 234881024 : 201326592) / peak_env;
        if (g < 8193) g = 8192;
      }
    } else {
      g = gain >> 4;
      ++hits[0];
    }
    if (n < 1) return;
    const int64_t t = sat(g * 16);
    for (int i = 0; i < n; ++i) {
      gain += gain > t ? -((gain - t) >> 5) : (t - gain) >> 7;
      if (gain < 32) gain = 0;
      for (auto [in, out] : {std::pair{il, ol}, {ir, orr}}) {
        const int64_t y = sat((gain * in[i]) >> 17);
        out[i] = static_cast<int>(y == -1 ? 0 : y);
      }
    }
  }
};

// A programme visiting every branch: silence, a tone below the threshold
// (hold), a quiet tone with full-scale clicks (boost capped by the peak
// guard), a tone in the dead band, a very loud one (cut), noise; blocks of
// uneven lengths including empty ones.
std::vector<int> programme(int n, double fs, unsigned seed, double scale) {
  // Segments of 4800 samples: {tone amplitude, tone frequency, noise amplitude, click every 997 samples}.
  const double segments[6][4] = {{0, 0, 0, 0},          {20000, 300, 0, 0},       {300000, 700, 0, 8300000},
                                 {3000000, 1000, 50000, 0}, {7000000, 3000, 0, 0}, {0, 0, 2000000, 0}};
  std::mt19937 rng(seed);
  std::normal_distribution<double> g(0, 1);
  std::vector<int> x(n);
  for (int i = 0; i < n; ++i) {
    const double* k = segments[i / 4800 % 6];
    const double v = k[0] * std::sin(2 * std::numbers::pi * k[1] * i / fs) + k[2] * g(rng) + (i % 997 == 0 ? k[3] : 0);
    x[i] = static_cast<int>(std::clamp(v * scale, -8388608.0, 8388607.0));
  }
  return x;
}

TEST(SmartVolume, MatchesModelOverEveryBranchInUnevenBlocks) {
  for (int rate : {0, 1, 2}) {
    const double fs = rate == 0 ? 44100 : rate == 1 ? 48000 : 96000;
    Svc v;
    smart_volume_control_set_sample_rate(&v.s, static_cast<SampleRateType>(rate));
    Model m(rate, v.s);
    const int n = 4800 * 12;
    std::vector<int> l = programme(n, fs, 1 + rate, 1.0), r = programme(n, fs, 9 + rate, 0.6);
    std::vector<int> el(n), er(n);
    const int lens[] = {240, 256, 0, 17, 240, 1, 500, 220};
    int pos = 0;
    for (int k = 0; pos < n; ++k) {
      if (k == 40) {  // faster attack, slower release from here on
        smart_volume_control_set_attact_order(&v.s, 1);
        smart_volume_control_set_release_order(&v.s, 9);
        m.attack = 1, m.release = 9;
      }
      const int len = std::min(lens[k % 8], n - pos);
      m.process(l.data() + pos, r.data() + pos, el.data() + pos, er.data() + pos, len);
      smart_volume_control_process(&v.s, l.data() + pos, r.data() + pos, l.data() + pos, r.data() + pos, len);
      ASSERT_TRUE(v.s.gain == m.gain && v.s.peak_env == m.peak_env && v.s.energy == m.energy)
          << rate << " block " << k << ": " << v.s.gain << " " << m.gain << " " << v.s.energy << " " << m.energy;
      pos += len;
    }
    EXPECT_EQ(l, el) << rate;
    EXPECT_EQ(r, er) << rate;
    for (int h : m.hits) EXPECT_GT(h, 0) << rate << ": a branch was never taken";
  }
}

// Steady tone at 48 kHz in 240-sample blocks, optionally with a full-scale
// click on the left of each block.
void run_tone(smart_volume_control_t* s, double amp, double f, int blocks, bool click = false) {
  std::vector<int> l(240), r(240);
  for (int b = 0; b < blocks; ++b) {
    for (int i = 0; i < 240; ++i)
      l[i] = r[i] = static_cast<int>(amp * std::sin(2 * std::numbers::pi * f * (b * 240 + i) / 48000));
    if (click) l[7] = 8388607;
    smart_volume_control_process(s, l.data(), r.data(), l.data(), r.data(), 240);
  }
}

// {preset energy at the reference?, amplitude, frequency, click, gain range,
// where the energy ends: -1 below half the reference, 0 dead band, 1 above twice}:
// in the dead band from the start the gain rises towards unity and stops
// short by less than 128; far above twice the reference it is turned down,
// never below a quarter; quiet with a full-scale click per block, the boost
// is capped back to unity by the peak guard.
TEST(SmartVolume, DocumentedBehaviours) {
  const std::tuple<bool, double, double, bool, int, int, int> cases[] = {
      {true, 3000000, 1000, false, 131072 - 127, 131071, 0},
      {false, 8000000, 3000, false, 2048 * 16 - 64, 131071, 1},
      {false, 300000, 500, true, 131072 - 127, 131072, -1}};
  for (const auto& [at_reference, amp, freq, click, lo, hi, region] : cases) {
    Svc v;
    if (at_reference) v.s.energy = v.s.reference;
    run_tone(&v.s, amp, freq, 500, click);
    EXPECT_TRUE(v.s.gain >= lo && v.s.gain <= hi) << amp << ": " << v.s.gain;
    EXPECT_EQ(v.s.energy < v.s.reference / 2 ? -1 : v.s.energy > 2 * v.s.reference ? 1 : 0, region) << amp;
    EXPECT_TRUE(!click || v.s.peak_env >= 32767) << v.s.peak_env;
  }
  // count 0: the envelope moves towards 0, no sample is touched.
  Svc v;
  v.s.peak_env = 10000;
  int z = 5;
  smart_volume_control_process(&v.s, &z, &z, &z, &z, 0);
  EXPECT_EQ(v.s.peak_env, 10000 - (10000 >> 9) - 1);  // (0 - 10000) >> 9 floors to -20
  EXPECT_EQ(z, 5);
}

}  // namespace
