// Virtual bass system and its bass leveller: the system bit-exact against
// the same processing wired from the exported crossover, NLD and biquads with
// an independent model of the leveller (its soft knee through floating-point
// square roots), per rate; hand-worked leveller samples and the stated
// examples; rate switching; 192 kHz silence; long blocks, aliasing and reset.
// The leveller's INT_MIN and empty blocks are checked on its peak finder.
// (The stated rows and the table designs are checked by test_tools.)
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "headphone/virtual_bass_system_kernels.h"
#include "headphone/virtual_bass_system_tables.h"
#include "kafx_proc/virtual_bass_system.h"
#include "support/variants.h"

namespace {

using V = std::vector<int>;
namespace tables = kafx::vbs_tables;

int sat(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, INT_MIN, INT_MAX)); }
int no_m1(int v) { return v == -1 ? 0 : v; }
int gain(int g, int x) { return sat((int64_t{g} * x) >> 13); }

// The leveller from its description, in 64-bit arithmetic; the soft knee's
// square roots in floating point (sqrtFxQ16 rounds the root to nearest).
struct LevellerModel {
  int64_t gain = 0, envelope = 0, unity = 131072;
  std::set<int> regions;  // which target rule each block used
  static int64_t sqrt_q16(int64_t x) { return std::llround(std::sqrt(static_cast<double>(x))) << 8; }
  int64_t target(int64_t peak) {
    const int64_t rules[3][2] = {{90113, 18432}, {65537, 47104}, {32769, 71680}};
    for (int k = 0; k < 3; ++k)
      if (envelope >= rules[k][0]) return regions.insert(k), rules[k][1];
    if (peak < 24577) return regions.insert(3), unity;
    regions.insert(4);
    const int64_t q = peak * 16384 / 6;
    const int64_t r = sqrt_q16(2 * sqrt_q16(q / 4096));
    return sat(((402653184 / peak) * 15 * r) >> 17);
  }
  void run(int* buf, int n) {
    int64_t peak = 0;
    for (int i = 0; i < n; ++i) peak = std::max<int64_t>(peak, buf[i] == INT_MIN ? 0 : std::abs(int64_t{buf[i]}));
    peak >>= 8;
    envelope = envelope < peak ? peak : envelope - ((envelope - peak) >> 5);
    const int64_t t = target(peak);
    for (int i = 0; i < n; ++i) {
      gain += gain > t ? -((gain - t) >> 7) : (t - gain) >> 9;
      if (gain < 32) gain = 0;
      buf[i] = no_m1(sat((buf[i] * gain) >> 17));
    }
  }
};

// The system wired from the exported blocks with the rate's rows.
struct Reference {
  spectral_band_split split[2]{};
  NLD nld{};
  IIR_t harmonic{}, phase[3]{};
  int bass_gain = 4096, harmonic_gain = 4096, high_gain = 8192;
  LevellerModel leveller;
  explicit Reference(int rate) {
    for (auto& s : split) spectral_band_split_init(&s, tables::kSplitLowPass[rate], tables::kSplitHighPass[rate]);
    NLD_init(&nld);
    IIR_init(&harmonic, tables::kHarmonicLowPass[rate]);
    for (auto& p : phase) IIR_init(&p, tables::kAllPass[rate]);
  }
  ~Reference() {
    for (auto& s : split) spectral_band_split_end(&s);
    NLD_end(&nld);
    IIR_end(&harmonic);
    for (auto& p : phase) IIR_end(&p);
  }
  void run(V& l, V& r) {
    const int n = static_cast<int>(l.size());
    V bass_buffer(n);
    for (int i = 0; i < n; ++i) {
      int low_l, high_l, low_r, high_r;
      spectral_band_split_process(&split[0], &l[i], &low_l, &high_l);
      spectral_band_split_process(&split[1], &r[i], &low_r, &high_r);
      int bass = static_cast<int>(static_cast<unsigned>(low_l) + static_cast<unsigned>(low_r)) >> 1, h, hl, hr, b;
      NLD_process(&nld, &bass, &h);
      IIR_process_32(&harmonic, &h, &h);
      IIR_process_32(&phase[0], &high_l, &hl);
      IIR_process_32(&phase[1], &high_r, &hr);
      IIR_process_32(&phase[2], &bass, &b);
      bass_buffer[i] = no_m1(sat(int64_t{gain(harmonic_gain, h)} + gain(bass_gain, b)));
      l[i] = no_m1(gain(high_gain, hl));
      r[i] = no_m1(gain(high_gain, hr));
    }
    leveller.run(bass_buffer.data(), n);
    for (int i = 0; i < n; ++i) l[i] = sat(int64_t{l[i]} + bass_buffer[i]), r[i] = sat(int64_t{r[i]} + bass_buffer[i]);
  }
};

struct Vbs {
  virtual_bass_system v{};
  explicit Vbs(SampleRateType rate = SAMPLE_RATE_48000) {
    virtual_bass_system_init(&v);
    virtual_bass_system_set_sample_rate(&v, rate);
  }
  ~Vbs() { virtual_bass_system_end(&v); }
  void run(V& l, V& r) {
    virtual_bass_system_process(&v, l.data(), r.data(), l.data(), r.data(), static_cast<int>(l.size()));
  }
};

// Bass-heavy material whose level changes from block to block (silence up to
// full scale), so that the leveller goes through all of its rules.
void material(V& l, V& r, size_t block, uint32_t seed) {
  static const double kLevels[] = {0.0, 0.02, 0.05, 0.1, 0.3, 0.6, 1.0, 0.4, 0.08, 0.0, 0.01, 0.9};
  const double amp = 8388607 * kLevels[block % 12];
  std::mt19937 rng(seed + static_cast<uint32_t>(block));
  for (size_t i = 0; i < l.size(); ++i) {
    const double t = static_cast<double>(block * l.size() + i) / 48000;
    const double noise = std::uniform_real_distribution<double>(-0.1, 0.1)(rng);
    l[i] = static_cast<int>(amp * (0.6 * std::sin(2 * M_PI * 55 * t) + 0.3 * std::sin(2 * M_PI * 2000 * t) + noise));
    r[i] = static_cast<int>(amp * (0.5 * std::sin(2 * M_PI * 80 * t + 1) + noise));
  }
}

TEST(CompressorBass, InitResetEndAndPeak) {
  compressor_bass c;
  compressor_bass_init(&c);
  c.gain = 5, c.envelope = 6, c.reserved = 7;
  compressor_bass_reset(&c);
  int st = -1;
  compresso_bassr_getstatus(&c, &st);
  EXPECT_EQ((V{st, c.unity_gain, c.gain, c.envelope, c.reserved}), (V{1, 131072, 0, 0, 0}));
  compressor_bass_end(&c);
  compresso_bassr_getstatus(&c, &st);
  EXPECT_EQ(st, 0);
  // {buffer, count, peak >> 8}: INT_MIN counts as 0, only `count` samples are read.
  const std::tuple<V, int, int> cases[] = {{{}, 0, 0},          {{5000}, 0, 0},       {{INT_MIN}, 1, 0},
                                           {{INT_MIN, -512}, 2, 2}, {{255, -255}, 2, 0}, {{-256, 100}, 2, 1},
                                           {{INT_MAX, -5, 3}, 3, 8388607}, {{-2147483647}, 1, 8388607}};
  for (auto [buf, count, peak] : cases) EXPECT_EQ(find_current_max_bass(buf.data(), count), peak) << count;
}

// Hand-worked leveller samples.
TEST(CompressorBass, HandWorkedSamples) {
  compressor_bass c;
  compressor_bass_init(&c);
  auto run = [&c](V x) {
    compressor_bass_process(&c, x.data(), x.data(), static_cast<int>(x.size()));
    return x;
  };
  // Silence: the gain climbs towards unity by 1/512 of the distance:
  // 131072 >> 9 = 256, then 256 + (130816 >> 9) = 511, 511 + 255 = 766.
  for (int g : {256, 511, 766}) EXPECT_TRUE(run({0}) == V{0} && c.gain == g) << g;
  // A block whose peak >> 8 is 40000: the envelope jumps to it and the target
  // is 71680; from gain 0 the first sample gets 71680 >> 9 = 140, so
  // 10240000 * 140 >> 17 = 10937; then (71680 - 140) >> 9 = 139 three times.
  compressor_bass_reset(&c);
  EXPECT_EQ(run(V(4, 40000 << 8))[0], 10937);
  EXPECT_EQ((V{c.envelope, c.gain}), (V{40000, 140 + 3 * 139}));
  // Above its target the gain falls by 1/128 of the distance: peak 100000
  // gives 18432, 131072 - ((131072 - 18432) >> 7) = 130192; a negative sample
  // of -(1 << 17) gives -130192. (Release and the other rules are pinned by
  // the leveller model of the composition test.)
  c.gain = 131072;
  EXPECT_EQ(run({100000 << 8, -(1 << 17)})[1], -(130192 - ((130192 - 18432) >> 7)));
  // Soft knee at its lower edge, peak 24577: q = (24577 << 14) / 6 = 67111594,
  // sqrtFxQ16(16384) = 32768, sqrtFxQ16(65536) = 65536, target =
  // 16383 * 15 * 65536 >> 17 = 122872; from gain 122872 + 128 the next gain
  // is 122872 + 128 - 1 = 122999.
  compressor_bass_reset(&c);
  c.gain = 122872 + 128;
  run({24577 << 8});
  EXPECT_EQ(c.gain, 122999);
  // Below the knee the target is the record's unity gain, not a constant:
  // with 0.5 (65536) the gain climbs from 0 by 65536 >> 9 = 128.
  compressor_bass_reset(&c);
  c.unity_gain = 65536;
  run({0});
  EXPECT_EQ(c.gain, 128);
}

// The system equals its blocks wired together, in blocks of 240 and odd
// sizes: built at 48 kHz, run, given its own harmonic filter, then switched
// to the case's rate (which loads the rate's rows over that filter and clears
// the sections' histories) and reset. The default and the chain's preset
// values, louder settings, the dry bass all-pass and a crossover section
// switched off; at 192 kHz every row is zero and the output silent. The
// programme takes the leveller through all of its rules.
TEST(VirtualBassSystem, EqualsItsBlocksWiredTogether) {
  struct Params {
    int rate, clip_level, harmonic, bass, high;
    bool pass_through;
  };
  const Params sets[] = {{1, -1, 4096, 4096, 8192, false},    {1, 8192, 4096, 6144, 8192, false},
                         {1, 32767, 16384, 16384, 8192, false}, {1, 8192, 4096, 6144, 8192, true},
                         {0, 20000, 12000, 2000, 5000, false},  {2, 8192, 4096, 6144, 8192, false},
                         {3, -1, 4096, 4096, 8192, false}};
  std::set<int> regions;
  for (const Params& p : sets) {
    Vbs sys;
    V l(240), r(240);
    material(l, r, 6, 5);
    sys.run(l, r);
    int coef[5] = {1, 2, 3, 4, 5};
    virtual_bass_system_set_nld_band_param(&sys.v, coef);
    virtual_bass_system_set_sample_rate(&sys.v, static_cast<SampleRateType>(p.rate));
    virtual_bass_system_get_nld_band_param(&sys.v, coef);
    EXPECT_TRUE(std::equal(coef, coef + 5, tables::kHarmonicLowPass[p.rate])) << "the rate's row replaces it";
    EXPECT_EQ(V(sys.v.phase_bass->state + 1, sys.v.phase_bass->state + 5), V(4)) << "history cleared";
    virtual_bass_system_reset(&sys.v);
    Reference ref(p.rate);
    if (p.clip_level >= 0) {
      virtual_bass_system_set_nld_clip_level(&sys.v, p.clip_level);
      NLD_set_clip_level(&ref.nld, p.clip_level);
    }
    if (p.pass_through) {
      sys.v.phase_bass->status = ref.phase[2].status = 0;
      sys.v.split_right->second_b->status = ref.split[1].second_b->status = 0;
    }
    sys.v.harmonic_gain = ref.harmonic_gain = p.harmonic;
    sys.v.bass_gain = ref.bass_gain = p.bass;
    sys.v.high_gain = ref.high_gain = p.high;
    for (size_t b = 0; b < 120; ++b) {
      const size_t n = b % 5 == 4 ? 1 + b % 200 : 240;
      V l(n), r(n);
      material(l, r, b, 1);
      V el = l, er = r;
      ref.run(el, er);
      sys.run(l, r);
      ASSERT_TRUE(l == el && r == er) << p.rate << " " << p.clip_level << " " << b;
      ASSERT_TRUE(p.rate != 3 || (l == V(n) && r == V(n))) << b;
    }
    regions.insert(ref.leveller.regions.begin(), ref.leveller.regions.end());
  }
  EXPECT_EQ(regions.size(), 5u);  // every rule of the leveller was exercised
}

// Defaults and end; blocks above 256 samples run as blocks of 256; outputs
// may alias inputs or be separate. (Reset is seen in the composition test.)
TEST(VirtualBassSystem, DefaultsEndLongBlocksAndAliasing) {
  virtual_bass_system v;
  virtual_bass_system_init(&v);
  EXPECT_EQ((V{v.status, v.bass_gain, v.harmonic_gain, v.high_gain}), (V{0, 4096, 4096, 8192}));
  int level = 0;
  virtual_bass_system_set_nld_clip_level(&v, 8192);
  virtual_bass_system_get_nld_clip_level(&v, &level);
  EXPECT_EQ((V{level, v.nld->clip_limit}), (V{8192, 2097152}));
  virtual_bass_system_end(&v);
  EXPECT_TRUE(v.nld == nullptr && v.split_left == nullptr && v.phase_bass == nullptr && v.compressor == nullptr &&
              v.bass_buffer == nullptr);
  Vbs one, chunks, apart, fresh;
  V l(700), r(700);
  material(l, r, 6, 8);
  V cl = l, cr = r;
  one.run(l, r);
  for (int start : {0, 256, 512}) {
    const int n = std::min(256, 700 - start);
    virtual_bass_system_process(&chunks.v, cl.data() + start, cr.data() + start, cl.data() + start,
                                cr.data() + start, n);
  }
  EXPECT_TRUE(l == cl && r == cr);
  V in_l(240), in_r(240), ol(240), orr(240);
  material(in_l, in_r, 5, 9);
  const V keep_l = in_l, keep_r = in_r;
  virtual_bass_system_process(&apart.v, in_l.data(), in_r.data(), ol.data(), orr.data(), 240);
  EXPECT_TRUE(in_l == keep_l && in_r == keep_r);
  fresh.run(in_l, in_r);
  EXPECT_TRUE(ol == in_l && orr == in_r);
}

// The first pass's builds (headphone/virtual_bass_system_kernels.h) against
// the baseline: the same outputs (canaries past them), bass buffer, section
// states and clip glide, on runs too short for the AVX2 pipeline and full
// ones; random section states, random rows that saturate the accumulators,
// inputs over the whole int32 range with clipping on and off, and a
// pass-through section.
TEST(VirtualBassSystem, FirstPassVariantsMatchTheBaseline) {
  struct Case {
    int rate;
    bool random_rows;
    int64_t lo, hi;
    int clip_flag, clip_level;
    bool bypass;
  } cases[] = {
      {1, false, -8388607, 8388607, 1, 32767, false}, {0, false, INT32_MIN, INT32_MAX, 0, 0, false},
      {2, true, -8388607, 8388607, 1, 4000, false},   {1, true, INT32_MIN, INT32_MAX, 1, 32767, false},
      {1, false, -8388607, 8388607, 1, 32767, true},
  };
  const int runs[] = {1, 2, 3, 17, 127, 255, 256};
  kafx_test::for_each_variant(kafx::virtual_bass_first_pass_variants, [&](auto fn, auto ref) {
    unsigned seed = 500;
    for (const Case& c : cases) {
      virtual_bass_system got, want;
      IIR_t* f[2][12];
      int k = 0;
      for (virtual_bass_system* v : {&got, &want}) {
        virtual_bass_system_init(v);
        virtual_bass_system_set_sample_rate(v, static_cast<SampleRateType>(c.rate));
        NLD_set_clip_flag(v->nld, c.clip_flag);
        virtual_bass_system_set_nld_clip_level(v, c.clip_level);
        v->harmonic_gain = 12000;
        IIR_t* all[12] = {v->split_left->first_a,  v->split_left->second_a,  v->split_left->first_b,
                          v->split_left->second_b, v->split_right->first_a, v->split_right->second_a,
                          v->split_right->first_b, v->split_right->second_b, v->harmonic_filter,
                          v->phase_left,           v->phase_right,           v->phase_bass};
        for (int j = 0; j < 12; ++j) {
          f[k][j] = all[j];
          const std::vector<int32_t> w = kafx_test::random_values<int32_t>(10, seed + static_cast<unsigned>(j));
          for (int q = 0; q < 5; ++q) all[j]->state[q] = w[q];
          if (c.random_rows)
            for (int q = 0; q < 5; ++q) all[j]->coef[q] = w[5 + q];
        }
        if (c.bypass) v->phase_bass->status = 0;
        ++k;
      }
      for (int n : runs) {
        ASSERT_NO_FATAL_FAILURE(kafx_test::expect_same_stereo_chunk(fn, ref, &got, &want, n, seed, c.lo, c.hi));
        ASSERT_TRUE(std::equal(want.bass_buffer, want.bass_buffer + n, got.bass_buffer)) << "bass, n " << n;
        for (int j = 0; j < 12; ++j)
          ASSERT_TRUE(std::equal(f[0][j]->state, f[0][j]->state + 5, f[1][j]->state)) << "section " << j;
        EXPECT_EQ(got.nld->clip_current, want.nld->clip_current);
      }
      virtual_bass_system_end(&got);
      virtual_bass_system_end(&want);
      seed += 1000;
    }
  });
}

}  // namespace
