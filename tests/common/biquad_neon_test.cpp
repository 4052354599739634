// The stereo section pair kernel and its builds: the reference equals a
// direct evaluation of the section's difference equation, and every other
// build (NEON on ARM) equals the reference in outputs and final states, with
// saturating coefficients and inputs, sections switched off on one side,
// odd lengths and canaries. Decaying tails, where the product rule's -1
// flush decides every late sample, are checked through the pair, the
// cascade and the crossover builds.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/biquad.h"
#include "common/biquad_cascade.h"
#include "kafx_proc/biquad.h"
#include "support/variants.h"

namespace {

using kafx_test::Guarded;
using kafx_test::random_values;

// y[n] = sat32((b0 x0 + b1 x1 + b2 x2 + a1 y1 + a2 y2) >> 28) with -1 read
// as 0, x0 = the input times 32 saturated, output y >> 5; the sum of the
// 64-bit products wraps. Counts the outputs the flush changed.
struct Model {
  int32_t c[5];
  int32_t x1, x2, y1, y2;
  int flushes = 0;
  explicit Model(const IIR_t& f) {
    std::memcpy(c, f.coef, sizeof c);
    x1 = f.state[1], x2 = f.state[2], y1 = f.state[3], y2 = f.state[4];
  }
  int32_t step(int32_t in) {
    const int64_t wide = int64_t{in} * 32;
    const int32_t x0 = wide > INT32_MAX ? INT32_MAX : (wide < INT32_MIN ? INT32_MIN : static_cast<int32_t>(wide));
    const int64_t v[5] = {x0, x1, x2, y1, y2};
    uint64_t acc = 0;
    for (int i = 0; i < 5; ++i) acc += static_cast<uint64_t>(int64_t{c[i]} * v[i]);
    const int64_t s = static_cast<int64_t>(acc) >> 28;
    int32_t y = s > INT32_MAX ? INT32_MAX : (s < INT32_MIN ? INT32_MIN : static_cast<int32_t>(s));
    if (y == -1) {
      y = 0;
      ++flushes;
    }
    x2 = x1, x1 = x0, y2 = y1, y1 = y;
    return y >> 5;
  }
};

// A section owned by the test; `status` 0 passes its input through.
struct Section {
  IIR_t f{};
  Section(const int32_t* coef, const int32_t* hist, int status) {
    IIR_init(&f, coef);
    if (hist != nullptr) std::memcpy(f.state + 1, hist, 4 * sizeof(int32_t));
    f.status = status;
  }
  Section(const Section& o) : Section(o.f.coef, o.f.state + 1, o.f.status) { f.state[0] = o.f.state[0]; }
  ~Section() { IIR_end(&f); }
  bool same_state(const Section& o) const { return std::memcmp(f.state, o.f.state, 5 * sizeof(int32_t)) == 0; }
};

// A lightly damped resonance (poles at radius 0.99, angle 2 rad), the
// feedback pair stored negated: its tail rings down through accumulators in
// [-2^28, 0), where the flush decides the sample.
constexpr int32_t kRinging[5] = {1 << 22, 1 << 23, 1 << 22, -221182960, -263093590};

TEST(BiquadNeon, PairReferenceIsTheDifferenceEquation) {
  for (bool wild : {false, true}) {
    const std::vector<int32_t> c =
        wild ? random_values<int32_t>(10, 3) : random_values<int32_t>(10, 3, -(1 << 28), 1 << 28);
    const std::vector<int32_t> h = random_values<int32_t>(8, 4, -(1 << 28), 1 << 28);
    Section a(c.data(), h.data(), 1), b(c.data() + 5, h.data() + 4, 1);
    Model ma(a.f), mb(b.f);
    std::vector<int32_t> xa = random_values<int32_t>(203, 5), xb = random_values<int32_t>(203, 6, -(1 << 23), 1 << 23);
    std::vector<int32_t> want_a(xa.size()), want_b(xb.size());
    for (size_t i = 0; i < xa.size(); ++i) want_a[i] = ma.step(xa[i]), want_b[i] = mb.step(xb[i]);
    kafx::biquad_block32_pair_variants.fn[kafx::kIsaBaseline](&a.f, xa.data(), &b.f, xb.data(), 203);
    EXPECT_EQ(xa, want_a) << wild;
    EXPECT_EQ(xb, want_b) << wild;
    const int32_t end_a[5] = {ma.x1, ma.x1, ma.x2, ma.y1, ma.y2};
    EXPECT_EQ(0, std::memcmp(a.f.state, end_a, sizeof end_a));
  }
}

TEST(BiquadNeon, PairVariantsMatchTheReference) {
  int runs = 0;
  const int compared = kafx_test::for_each_variant(kafx::biquad_block32_pair_variants, [&](auto fn, auto base) {
    unsigned seed = 900;
    for (int status : {3, 1, 2, 0})  // bit 0: first section works, bit 1: second
      for (bool wild : {false, true})
        for (int n : {0, 1, 17, 37, 127, 1031}) {
          seed += 10;
          const std::vector<int32_t> c =
              wild ? random_values<int32_t>(10, seed) : random_values<int32_t>(10, seed, -(1 << 28), 1 << 28);
          const std::vector<int32_t> h = random_values<int32_t>(8, seed + 1, -(1 << 28), 1 << 28);
          Section fa(c.data(), h.data(), status & 1), fb(c.data() + 5, h.data() + 4, status >> 1);
          Section ga(fa), gb(fb);
          const std::vector<int32_t> in_a = random_values<int32_t>(static_cast<size_t>(n), seed + 2);
          const std::vector<int32_t> in_b =
              random_values<int32_t>(static_cast<size_t>(n), seed + 3, -(1 << 24), 1 << 24);
          Guarded<int32_t> ra(n), rb(n), va(n), vb(n);
          std::copy(in_a.begin(), in_a.end(), ra.data());
          std::copy(in_a.begin(), in_a.end(), va.data());
          std::copy(in_b.begin(), in_b.end(), rb.data());
          std::copy(in_b.begin(), in_b.end(), vb.data());
          for (int pass = 0; pass < 2; ++pass) {
            base(&fa.f, ra.data(), &fb.f, rb.data(), n);
            fn(&ga.f, va.data(), &gb.f, vb.data(), n);
          }
          SCOPED_TRACE(testing::Message() << "status " << status << ", n " << n << (wild ? " wild" : ""));
          EXPECT_EQ(ra.v, va.v);
          EXPECT_EQ(rb.v, vb.v);
          EXPECT_TRUE(va.guards_intact() && vb.guards_intact());
          EXPECT_TRUE(fa.same_state(ga) && fb.same_state(gb));
          ++runs;
        }
  });
  EXPECT_EQ(compared, kafx_test::neon_builds());
  EXPECT_EQ(runs, compared * 4 * 2 * 6);
}

// Two bursts, each followed by silence: the ringing section's tails reach
// zero through outputs the flush changed (the model counts them on both
// channels); every build follows the reference exactly there, through the
// pair, a cascade of such sections and a crossover chain built of them.
TEST(BiquadNeon, DecayingTailsFlushAlike) {
  constexpr int kLen = 6001;
  std::vector<int32_t> burst_l(kLen, 0), burst_r(kLen, 0);
  const std::vector<int32_t> noise = random_values<int32_t>(64, 77, -(1 << 23), 1 << 23);
  for (int i = 0; i < 32; ++i) {
    burst_l[i] = burst_l[3000 + i] = noise[i];
    burst_r[i] = burst_r[3000 + i] = noise[32 + i];
  }
  {
    Section s(kRinging, nullptr, 1);
    Model ml(s.f), mr(s.f);
    int32_t last_l = 1, last_r = 1;
    for (int i = 0; i < kLen; ++i) last_l = ml.step(burst_l[i]), last_r = mr.step(burst_r[i]);
    ASSERT_GT(ml.flushes, 0);
    ASSERT_GT(mr.flushes, 0);
    EXPECT_EQ(last_l, 0);
    EXPECT_EQ(last_r, 0);
  }
  int compared = 0;
  compared += kafx_test::for_each_variant(kafx::biquad_block32_pair_variants, [&](auto fn, auto base) {
    Section a(kRinging, nullptr, 1), b(kRinging, nullptr, 1);
    Section c(a), d(b);
    std::vector<int32_t> rl = burst_l, rr = burst_r, vl = burst_l, vr = burst_r;
    base(&a.f, rl.data(), &b.f, rr.data(), kLen);
    fn(&c.f, vl.data(), &d.f, vr.data(), kLen);
    EXPECT_EQ(rl, vl);
    EXPECT_EQ(rr, vr);
    EXPECT_TRUE(a.same_state(c) && b.same_state(d));
  });
  compared += kafx_test::for_each_variant(kafx::biquad_cascade_pair_variants, [&](auto fn, auto base) {
    for (int count : {1, 2, 3, 5}) {
      std::vector<Section> l, r;
      l.reserve(5), r.reserve(5);
      for (int k = 0; k < count; ++k) l.emplace_back(kRinging, nullptr, 1), r.emplace_back(kRinging, nullptr, 1);
      std::vector<Section> l2(l), r2(r);
      std::vector<IIR_t*> pl, pr, pl2, pr2;
      for (size_t k = 0; k < l.size(); ++k) {
        pl.push_back(&l[k].f), pr.push_back(&r[k].f), pl2.push_back(&l2[k].f), pr2.push_back(&r2[k].f);
      }
      std::vector<int32_t> rl = burst_l, rr = burst_r, vl = burst_l, vr = burst_r;
      base(pl.data(), count, rl.data(), pr.data(), count, rr.data(), kLen);
      fn(pl2.data(), count, vl.data(), pr2.data(), count, vr.data(), kLen);
      EXPECT_EQ(rl, vl) << count;
      EXPECT_EQ(rr, vr) << count;
      for (size_t k = 0; k < l.size(); ++k) EXPECT_TRUE(l[k].same_state(l2[k]) && r[k].same_state(r2[k])) << count;
    }
  });
  compared += kafx_test::for_each_variant(kafx::biquad_crossover_stereo_variants, [&](auto fn, auto base) {
    constexpr int kStages = 3;
    std::vector<Section> s, s2;
    s.reserve(8 * kStages);
    for (int k = 0; k < 8 * kStages; ++k) s.emplace_back(kRinging, nullptr, 1);
    s2 = std::vector<Section>(s.begin(), s.end());
    std::vector<kafx::CrossoverStage> l, r, l2, r2;
    for (int k = 0; k < kStages; ++k) {
      Section* p = &s[8 * static_cast<size_t>(k)];
      Section* q = &s2[8 * static_cast<size_t>(k)];
      l.push_back({{&p[0].f, &p[1].f}, {&p[2].f, &p[3].f}});
      r.push_back({{&p[4].f, &p[5].f}, {&p[6].f, &p[7].f}});
      l2.push_back({{&q[0].f, &q[1].f}, {&q[2].f, &q[3].f}});
      r2.push_back({{&q[4].f, &q[5].f}, {&q[6].f, &q[7].f}});
    }
    std::vector<std::vector<int32_t>> low(4 * kStages, std::vector<int32_t>(kLen));
    std::vector<int32_t*> ll, lr, ll2, lr2;
    for (int k = 0; k < kStages; ++k) {
      ll.push_back(low[4 * k].data()), lr.push_back(low[4 * k + 1].data());
      ll2.push_back(low[4 * k + 2].data()), lr2.push_back(low[4 * k + 3].data());
    }
    std::vector<int32_t> rl = burst_l, rr = burst_r, vl = burst_l, vr = burst_r;
    base(l.data(), r.data(), kStages, rl.data(), rr.data(), ll.data(), lr.data(), kLen);
    fn(l2.data(), r2.data(), kStages, vl.data(), vr.data(), ll2.data(), lr2.data(), kLen);
    EXPECT_EQ(rl, vl);
    EXPECT_EQ(rr, vr);
    for (size_t k = 0; k < kStages; ++k) {
      EXPECT_EQ(low[4 * k], low[4 * k + 2]) << k;
      EXPECT_EQ(low[4 * k + 1], low[4 * k + 3]) << k;
    }
    for (size_t k = 0; k < s.size(); ++k) EXPECT_TRUE(s[k].same_state(s2[k])) << k;
  });
  const int per_kernel = kafx_test::neon_builds();
  const int avx2 = kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0;
  EXPECT_EQ(compared, 3 * per_kernel + 2 * avx2);  // the pair has no AVX2 build
}

}  // namespace
