// Limiter block kernels: the baseline statistics and gain stretches equal a
// direct evaluation of their definitions (|x| summed and maximised in 64
// bits; the line swapped and each delayed sample times the Q17 gain shifted
// down, saturated and -1 flushed), the baseline glide takes hand-worked
// steps (distances needing 33 bits included), and every other build (AVX2
// on x86-64, NEON on ARM) equals the baseline on odd lengths, full-range and
// saturating inputs, gains at and beyond unity, every step-table boundary,
// in place and out of place, with canaries past the ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <random>
#include <vector>

#include "common/drc_kernels.h"
#include "support/variants.h"

namespace {

using kafx_test::Guarded;
using kafx_test::kOddLengths;
using kafx_test::random_values;

// Inputs that reach every corner: full 32-bit range, INT32_MIN runs,
// 24-bit programme, and values that make -1 after the shift.
std::vector<int32_t> input(int kind, int n, unsigned seed) {
  switch (kind) {
    case 0: return random_values<int32_t>(static_cast<size_t>(n), seed);
    case 1: {
      std::vector<int32_t> v = random_values<int32_t>(static_cast<size_t>(n), seed, -8, 8);
      for (int i = 0; i < n; i += 3) v[static_cast<size_t>(i)] = INT32_MIN;
      return v;
    }
    case 2: return random_values<int32_t>(static_cast<size_t>(n), seed, -8388608, 8388607);
    default: return random_values<int32_t>(static_cast<size_t>(n), seed, -3, 1);
  }
}

int32_t gain_model(int32_t d, int32_t gain) {
  int64_t v = (static_cast<int64_t>(d) * gain) >> 17;  // arithmetic shift
  if (v > INT32_MAX) v = INT32_MAX;
  if (v < INT32_MIN) v = INT32_MIN;
  return v == -1 ? 0 : static_cast<int32_t>(v);
}

constexpr int32_t kGains[] = {131072, 0, 1, 65536, 262144 + 7, INT32_MAX, INT32_MIN, -131072};

// Per-sample gains mixing the rows of kGains with random full-range words.
std::vector<int32_t> gain_run(int n, unsigned seed) {
  std::vector<int32_t> g = random_values<int32_t>(static_cast<size_t>(n), seed);
  for (int k = 0; k < n; k += 2) g[static_cast<size_t>(k)] = kGains[(k / 2 + seed) % 8];
  return g;
}

// Distances target - gain at every boundary of the smoother's tables.
constexpr int32_t kEdges[] = {0,    1,     7,     8,     32,    33,    64,    65,    1024,  1025,
                              2048, 2049,  4096,  4097,  8192,  8193,  16384, 16385, 1 << 20};

// Glide states: limiter and expander each at a table boundary from a random
// (or extreme) start, or both anywhere in the 32-bit range.
kafx::DrcGlide glide_state(std::mt19937& rng, int kind) {
  std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX), q17(-262144, 4 * 131072);
  std::uniform_int_distribution<int> edge(0, 2 * static_cast<int>(std::size(kEdges)) - 1);
  kafx::DrcGlide g{};
  for (int lane = 0; lane < 2; ++lane) {
    const auto near = [&](int32_t from) {
      const int e = edge(rng);
      const int64_t d = (e & 1 ? -1 : 1) * int64_t{kEdges[e / 2]};
      const int64_t to = from + d;
      return static_cast<int32_t>(to > INT32_MAX ? INT32_MAX : (to < INT32_MIN ? INT32_MIN : to));
    };
    switch (kind) {
      case 0:  // programme-like Q17 values, distances at the boundaries
        g.gain[lane] = q17(rng), g.denoise[lane] = q17(rng);
        g.target[lane] = near(g.gain[lane]), g.dnq[lane] = near(g.denoise[lane]);
        break;
      case 1:  // anywhere: distances up to 2^32 - 1
        g.gain[lane] = any(rng), g.target[lane] = any(rng), g.denoise[lane] = any(rng), g.dnq[lane] = any(rng);
        break;
      case 2:  // the extremes against each other
        g.gain[lane] = (rng() & 1) ? INT32_MIN : INT32_MAX, g.target[lane] = (rng() & 1) ? INT32_MIN : INT32_MAX;
        g.denoise[lane] = (rng() & 1) ? INT32_MIN : 131072, g.dnq[lane] = (rng() & 1) ? INT32_MAX : -131072;
        break;
      default:  // one lane settled, the other moving
        g.gain[lane] = g.target[lane] = q17(rng), g.denoise[lane] = g.dnq[lane] = 131072;
        if (lane == 1) g.target[lane] = near(g.gain[lane]), g.dnq[lane] = 8192;
        break;
    }
  }
  return g;
}

bool same_state(const kafx::DrcGlide& a, const kafx::DrcGlide& b) {
  return std::equal(a.gain, a.gain + 2, b.gain) && std::equal(a.denoise, a.denoise + 2, b.denoise);
}

// One run of a look-ahead stretch kernel, fn(line, in, out, n, gain) with a
// fixed gain or fn(line, in, out, n, gains) with one per sample, on copies of
// line0 and in, each with canaries past its end; in place, out starts as the
// copy of in and is the input.
struct Stretch {
  Guarded<int32_t> line, out;
  template <class Fn, class Gain>
  Stretch(Fn fn, const std::vector<int32_t>& line0, const std::vector<int32_t>& in, Gain gain, bool in_place)
      : line(line0.size()), out(in.size()) {
    std::copy(line0.begin(), line0.end(), line.data());
    std::copy(in.begin(), in.end(), out.data());
    fn(line.data(), in_place ? out.data() : in.data(), out.data(), static_cast<int>(in.size()), gain);
  }
};

// The baseline stretch against its definition: the line now holds the
// input, and out[k] is the delayed sample times the gain of sample k.
template <class Fn, class Gain, class GainAt>
void expect_stretch_definition(Fn base, const std::vector<int32_t>& line0, const std::vector<int32_t>& in, Gain gain,
                               GainAt gain_at) {
  const int n = static_cast<int>(in.size());
  const Stretch s(base, line0, in, gain, false);
  EXPECT_TRUE(std::equal(in.begin(), in.end(), s.line.v.begin()));
  for (int k = 0; k < n; ++k) ASSERT_EQ(s.out.v[k], gain_model(line0[k], gain_at(k))) << "n " << n << " k " << k;
  EXPECT_TRUE(s.line.guards_intact() && s.out.guards_intact());
}

// One call of a glide build from state g beside the baseline's from h (equal
// on entry): the states stay equal, and so do the totals written.
template <class Fn>
void expect_glide_like_baseline(Fn fn, Fn base, kafx::DrcGlide& g, kafx::DrcGlide& h, int n) {
  Guarded<int32_t> ga(n), gb(n), ha(n), hb(n);
  fn(&g, ga.data(), gb.data(), n);
  base(&h, ha.data(), hb.data(), n);
  ASSERT_TRUE(same_state(g, h));
  ASSERT_EQ(ga.v, ha.v);
  ASSERT_EQ(gb.v, hb.v);
  EXPECT_TRUE(ga.guards_intact() && gb.guards_intact());
}

// A stretch build against the baseline, in place and out of place.
template <class Fn, class Gain>
void expect_stretch_like_baseline(Fn fn, Fn base, const std::vector<int32_t>& line0, const std::vector<int32_t>& in,
                                  Gain gain) {
  for (bool in_place : {false, true}) {
    const Stretch a(fn, line0, in, gain, in_place), b(base, line0, in, gain, in_place);
    ASSERT_EQ(a.line.v, b.line.v) << (in_place ? "in place" : "out of place");
    ASSERT_EQ(a.out.v, b.out.v) << (in_place ? "in place" : "out of place");
    EXPECT_TRUE(a.line.guards_intact() && a.out.guards_intact());
  }
}

}  // namespace

TEST(DrcKernels, BaselineStatsEqualDirectSums) {
  const auto base = kafx::drc_block_stats_variants.fn[kafx::kIsaBaseline];
  for (int kind = 0; kind < 4; ++kind)
    for (int n : kOddLengths) {
      const std::vector<int32_t> x = input(kind, n, 11u * n + kind);
      int64_t sum = 0, top = 0;
      for (int32_t v : x) {
        const int64_t a = v < 0 ? -int64_t{v} : int64_t{v};
        sum += a;
        if (a > top) top = a;
      }
      const kafx::DrcBlockStats s = base(x.data(), n);
      EXPECT_EQ(s.sum, sum) << kind << " " << n;
      EXPECT_EQ(s.max_abs, top) << kind << " " << n;
    }
  const int32_t all_min[5] = {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
  EXPECT_EQ(base(all_min, 5).max_abs, int64_t{1} << 31);
  EXPECT_EQ(base(all_min, 0).sum, 0);
}

TEST(DrcKernels, BaselineStretchesEqualDefinition) {
  const auto fixed = kafx::drc_delay_gain_variants.fn[kafx::kIsaBaseline];
  const auto per_sample = kafx::drc_delay_gains_variants.fn[kafx::kIsaBaseline];
  for (int32_t gain : kGains)
    for (int n : kOddLengths) {
      SCOPED_TRACE(gain);
      expect_stretch_definition(fixed, input(static_cast<int>(gain & 3), n, 5u * n), input(2, n, 7u * n), gain,
                                [gain](int) { return gain; });
    }
  for (int kind = 0; kind < 4; ++kind)
    for (int n : kOddLengths) {
      SCOPED_TRACE(kind);
      const std::vector<int32_t> gains = gain_run(n, 3u * n + kind);
      expect_stretch_definition(per_sample, input(kind, n, 5u * n + kind), input(2, n, 7u * n), gains.data(),
                                [&gains](int k) { return gains[static_cast<size_t>(k)]; });
    }
}

TEST(DrcKernels, BaselineGlideSteps) {
  // One step per row, worked by hand: {gain, target, denoise, dnq, gain', denoise'}.
  const int32_t rows[][6] = {
      // 2^32 - 1 up: (2^32 - 1) >> 11 = 2097151 beats -2^31 >> 12; the expander
      // rises by (2^32 - 1) >> 3 = 536870911
      {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN + 2097151, INT32_MIN + 536870911},
      // 2^32 - 1 down: (2^32 - 1) >> 10 = 4194303 beats (3221225470 >> 11 =
      // 1572863); the expander falls by floor(-(2^32 - 1) / 32) = -134217728
      {INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX - 4194303, INT32_MAX - 134217728},
      // negative gain falling 100000: 100000 >> 10 = 97 beats -1500000 >> 11
      // = -733; the expander's -12 >> 5 is -1
      {-1000000, -1100000, 5, -7, -1000097, 4},
      // 8192 -> 131072: +122880 >> 3 = 15360; 131072 -> 12288: -118784 >> 5 = -3712
      {131072, 131072, 8192, 131072, 131072, 23552},
      {131072, 131072, 131072, 12288, 131072, 127360},
      // the limiter overshooting (cur >> 12 = 100 > d = 80) is held at the
      // target; the expander's last 7 at once, 8 by 8 >> 3
      {409600, 409680, 131070, 131072, 409680, 131072},
      {409600, 409680, 131064, 131072, 409680, 131065},
  };
  const auto base = kafx::drc_glide_variants.fn[kafx::kIsaBaseline];
  for (const auto& r : rows) {
    // The same row in both lanes, and in lane 1 beside a settled lane 0.
    kafx::DrcGlide g{{r[0], r[0]}, {r[2], r[2]}, {r[1], r[1]}, {r[3], r[3]}};
    kafx::DrcGlide h{{5, r[0]}, {131072, r[2]}, {5, r[1]}, {131072, r[3]}};
    int32_t ta = 0, tb = 0, tc = 0, td = 0;
    base(&g, &ta, &tb, 1);
    base(&h, &tc, &td, 1);
    const int32_t want[2] = {r[4], r[5]};
    EXPECT_EQ((std::array{g.gain[0], g.denoise[0], g.gain[1], g.denoise[1], h.gain[1], h.denoise[1]}),
              (std::array{want[0], want[1], want[0], want[1], want[0], want[1]}))
        << r[0] << " " << r[2];
    // The total is the gain times the expander gain, Q17, saturated (not flushed).
    int64_t total = (int64_t{want[0]} * want[1]) >> 17;
    total = total > INT32_MAX ? INT32_MAX : (total < INT32_MIN ? INT32_MIN : total);
    EXPECT_EQ((std::array{ta, tb, td, h.gain[0], h.denoise[0], tc}),
              (std::array{static_cast<int32_t>(total), static_cast<int32_t>(total), static_cast<int32_t>(total), 5,
                          131072, 5}));
  }
}

TEST(DrcKernels, VariantsEqualBaseline) {
  const int stats = kafx_test::for_each_variant(kafx::drc_block_stats_variants, [](auto fn, auto base) {
    for (int kind = 0; kind < 4; ++kind)
      for (int n : {0, 1, 7, 8, 9, 17, 37, 127, 240, 1031}) {
        const std::vector<int32_t> x = input(kind, n, 3u * n + kind);
        const kafx::DrcBlockStats a = fn(x.data(), n), b = base(x.data(), n);
        EXPECT_EQ(a.sum, b.sum) << kind << " " << n;
        EXPECT_EQ(a.max_abs, b.max_abs) << kind << " " << n;
      }
  });
  const int gains = kafx_test::for_each_variant(kafx::drc_delay_gain_variants, [](auto fn, auto base) {
    for (int32_t gain : kGains)
      for (int kind = 0; kind < 4; ++kind)
        for (int n : {1, 7, 8, 9, 17, 37, 127, 240, 1031}) {
          SCOPED_TRACE(testing::Message() << gain << " " << kind << " " << n);
          expect_stretch_like_baseline(fn, base, input(kind, n, 13u * n + kind), input((kind + 1) % 4, n, 17u * n),
                                       gain);
          if (testing::Test::HasFatalFailure()) return;
        }
  });
  const int per_sample = kafx_test::for_each_variant(kafx::drc_delay_gains_variants, [](auto fn, auto base) {
    for (int kind = 0; kind < 4; ++kind)
      for (int n : {1, 3, 4, 5, 7, 8, 9, 17, 37, 127, 240, 1031}) {
        SCOPED_TRACE(testing::Message() << kind << " " << n);
        const std::vector<int32_t> gains = gain_run(n, 29u * n + kind);
        expect_stretch_like_baseline(fn, base, input(kind, n, 19u * n + kind), input((kind + 2) % 4, n, 23u * n),
                                     gains.data());
        if (testing::Test::HasFatalFailure()) return;
      }
  });
  const int glides = kafx_test::for_each_variant(kafx::drc_glide_variants, [](auto fn, auto base) {
    std::mt19937 rng(2024);
    for (int kind = 0; kind < 4; ++kind)
      for (int trial = 0; trial < 400; ++trial) {
        // Mostly single steps (each starts at a boundary), then longer runs
        // in several calls, through the settling point.
        const int n = trial < 300 ? 1 + trial % 3 : kOddLengths[trial % 5];
        kafx::DrcGlide g = glide_state(rng, kind), h = g;
        for (int call = 0; call < 3; ++call) {
          SCOPED_TRACE(testing::Message() << kind << " " << trial << " " << call);
          expect_glide_like_baseline(fn, base, g, h, n);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    // Every pair of start and target on a grid around the boundaries.
    for (int32_t base_gain : {0, 131072, -131072, INT32_MAX - 20000, INT32_MIN + 20000})
      for (int32_t e : kEdges)
        for (int sign : {1, -1}) {
          const int64_t to = int64_t{base_gain} + sign * int64_t{e};
          const auto target = static_cast<int32_t>(std::clamp<int64_t>(to, INT32_MIN, INT32_MAX));
          kafx::DrcGlide g{{base_gain, target}, {target, base_gain}, {target, base_gain}, {base_gain, target}}, h = g;
          SCOPED_TRACE(testing::Message() << base_gain << " " << sign * e);
          expect_glide_like_baseline(fn, base, g, h, 64);
          if (testing::Test::HasFatalFailure()) return;
        }
  });
  // The statistics have every build the gain stretch has; the per-sample
  // gains and the glide have NEON builds only.
  EXPECT_EQ(stats, gains);
  EXPECT_EQ(per_sample, kafx_test::neon_builds());
  EXPECT_EQ(glides, kafx_test::neon_builds());
}
