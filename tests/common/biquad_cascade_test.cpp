// Biquad cascades: the section-after-section build equals the cascade run
// sample by sample through the exported section, and every other build of
// the cascade (the AVX2 wavefront, the NEON lane pairs) equals the
// section-after-section build in outputs and final states, for every count
// of working and switched-off sections per channel (and with every section
// on), on odd and even lengths, with canaries past the ends. The same for
// the band split and the crossover
// chain built from the sections.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/biquad_cascade.h"
#include "kafx_proc/biquad.h"
#include "support/variants.h"

namespace {

using kafx_test::Guarded;
using kafx_test::random_values;

// One cascade of sections with random coefficients and histories; `off`
// sections (chosen by the seed) are switched off. Wild coefficients drive
// the accumulator into saturation and wrap-around.
struct Cascade {
  std::vector<IIR_t> s;
  Cascade(int count, unsigned seed, bool wild) : s(static_cast<size_t>(count)) {
    const std::vector<int32_t> c = wild ? random_values<int32_t>(5u * count, seed)
                                        : random_values<int32_t>(5u * count, seed, -(1 << 28), 1 << 28);
    const std::vector<int32_t> h = random_values<int32_t>(4u * count, seed + 1, -(1 << 28), 1 << 28);
    const std::vector<int32_t> off = random_values<int32_t>(static_cast<size_t>(count), seed + 2, 0, 3);
    for (int k = 0; k < count; ++k) {
      IIR_init(&s[k], &c[5 * k]);
      std::memcpy(s[k].state + 1, &h[4 * k], 4 * sizeof(int32_t));
      s[k].status = off[k] == 0 ? 0 : 1;
    }
  }
  Cascade(const Cascade& o) : s(o.s.size()) {
    for (size_t k = 0; k < s.size(); ++k) {
      IIR_init(&s[k], o.s[k].coef);
      std::memcpy(s[k].state, o.s[k].state, 5 * sizeof(int32_t));
      s[k].status = o.s[k].status;
    }
  }
  ~Cascade() {
    for (IIR_t& f : s) IIR_end(&f);
  }
  std::vector<IIR_t*> ptrs() {
    std::vector<IIR_t*> p;
    for (IIR_t& f : s) p.push_back(&f);
    return p;
  }
  bool same_state(const Cascade& o) const {
    for (size_t k = 0; k < s.size(); ++k)
      if (std::memcmp(s[k].state, o.s[k].state, 5 * sizeof(int32_t)) != 0) return false;
    return true;
  }
};

TEST(BiquadCascade, SectionAfterSectionEqualsSampleBySample) {
  for (bool wild : {false, true}) {
    Cascade block(7, 11, wild);
    Cascade sample(block);
    std::vector<int32_t> x = random_values<int32_t>(301, 12);
    std::vector<int32_t> y = x;
    std::vector<IIR_t*> p = block.ptrs();
    kafx::biquad_cascade_pair_variants.fn[kafx::kIsaBaseline](p.data(), 7, y.data(), nullptr, 0, nullptr, 301);
    for (int32_t& v : x)
      for (IIR_t& f : sample.s) IIR_process_32(&f, &v, &v);
    EXPECT_EQ(x, y) << wild;
    EXPECT_TRUE(block.same_state(sample));
  }
}

TEST(BiquadCascade, VariantsMatchSectionAfterSection) {
  int runs = 0;
  const int compared = kafx_test::for_each_variant(kafx::biquad_cascade_pair_variants, [&](auto fn, auto base) {
    const int kCounts[][2] = {{10, 10}, {10, 0}, {0, 4}, {3, 9}, {6, 5}, {1, 2}, {8, 8}, {4, 7}, {12, 3}};
    unsigned seed = 100;
    for (const auto& c : kCounts)
      for (bool wild : {false, true})
        for (int n : {0, 1, 2, 17, 37, 127, 240, 1031})
          for (bool all_on : {false, true}) {
          seed += 10;
          Cascade la(c[0], seed, wild), ra(c[1], seed + 3, wild);
          if (all_on) {
            // Every lane a working section (no bypass lanes when the counts fill the lanes).
            for (IIR_t& f : la.s) f.status = 1;
            for (IIR_t& f : ra.s) f.status = 1;
          }
          Cascade lb(la), rb(ra);
          const std::vector<int32_t> in_l = random_values<int32_t>(static_cast<size_t>(n), seed + 5);
          const std::vector<int32_t> in_r = random_values<int32_t>(static_cast<size_t>(n), seed + 6, -(1 << 24), 1 << 24);
          Guarded<int32_t> al(n), ar(n), bl(n), br(n);
          std::copy(in_l.begin(), in_l.end(), al.data());
          std::copy(in_l.begin(), in_l.end(), bl.data());
          std::copy(in_r.begin(), in_r.end(), ar.data());
          std::copy(in_r.begin(), in_r.end(), br.data());
          std::vector<IIR_t*> pla = la.ptrs(), pra = ra.ptrs(), plb = lb.ptrs(), prb = rb.ptrs();
          // Twice: the second block starts from the states the first left.
          for (int pass = 0; pass < 2; ++pass) {
            base(pla.data(), c[0], al.data(), pra.data(), c[1], ar.data(), n);
            fn(plb.data(), c[0], bl.data(), prb.data(), c[1], br.data(), n);
          }
          SCOPED_TRACE(testing::Message() << c[0] << "+" << c[1] << " sections, n " << n << (wild ? " wild" : "")
                                          << (all_on ? " every section on" : ""));
          EXPECT_EQ(al.v, bl.v);
          EXPECT_EQ(ar.v, br.v);
          EXPECT_TRUE(bl.guards_intact() && br.guards_intact());
          EXPECT_TRUE(la.same_state(lb) && ra.same_state(rb));
          ++runs;
        }
  });
  EXPECT_EQ(compared, (kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0) + kafx_test::neon_builds());
  EXPECT_EQ(runs, compared * 9 * 2 * 8 * 2);
}

// The band split: the reference equals the definition (successive
// remainders through the exported section, sums of squares), and the other
// builds equal the reference in energies and final states.
TEST(BiquadCascade, BandSplitVariantsMatchTheDefinition) {
  for (bool wild : {false, true}) {
    Cascade l(3, 41, wild), r(3, 42, wild);
    Cascade ls(l), rs(r);
    const std::vector<int32_t> x = random_values<int32_t>(600, 43);
    std::vector<IIR_t*> pl = l.ptrs(), pr = r.ptrs();
    uint64_t el[4] = {}, er[4] = {};
    kafx::biquad_split_energies_variants.fn[kafx::kIsaBaseline](pl.data(), x.data(), el, pr.data(), x.data() + 300, er,
                                                                3, 300);
    uint64_t want[2][4] = {};
    Cascade* model[2] = {&ls, &rs};
    for (int c = 0; c < 2; ++c)
      for (int i = 0; i < 300; ++i) {
        int32_t rest = x[static_cast<size_t>(300 * c + i)];
        for (int k = 0; k < 3; ++k) {
          int32_t low = rest;
          IIR_process_32(&model[c]->s[k], &low, &low);
          want[c][k] += static_cast<uint64_t>(int64_t{low} * low);
          const int64_t d = int64_t{rest} - low;
          rest = static_cast<int32_t>(d > INT32_MAX ? INT32_MAX : (d < INT32_MIN ? INT32_MIN : d));
        }
        want[c][3] += static_cast<uint64_t>(int64_t{rest} * rest);
      }
    EXPECT_EQ(std::vector<uint64_t>(el, el + 4), std::vector<uint64_t>(want[0], want[0] + 4)) << wild;
    EXPECT_EQ(std::vector<uint64_t>(er, er + 4), std::vector<uint64_t>(want[1], want[1] + 4)) << wild;
    EXPECT_TRUE(l.same_state(ls) && r.same_state(rs));
  }
  const int compared = kafx_test::for_each_variant(kafx::biquad_split_energies_variants, [&](auto fn, auto base) {
    unsigned seed = 500;
    for (int count : {0, 1, 3, 4, 7, 9, 10})
      for (bool wild : {false, true})
        for (int n : {0, 1, 17, 127, 1031}) {
          seed += 10;
          Cascade la(count, seed, wild), ra(count, seed + 3, wild);
          Cascade lb(la), rb(ra);
          const std::vector<int32_t> xl = random_values<int32_t>(static_cast<size_t>(n), seed + 5);
          const std::vector<int32_t> xr = random_values<int32_t>(static_cast<size_t>(n), seed + 6, -(1 << 24), 1 << 24);
          std::vector<uint64_t> ea(22, 7), eb(22, 7);  // 11 per channel: canaries past count + 1
          std::vector<IIR_t*> pla = la.ptrs(), pra = ra.ptrs(), plb = lb.ptrs(), prb = rb.ptrs();
          for (int pass = 0; pass < 2; ++pass) {
            base(pla.data(), xl.data(), ea.data(), pra.data(), xr.data(), ea.data() + 11, count, n);
            fn(plb.data(), xl.data(), eb.data(), prb.data(), xr.data(), eb.data() + 11, count, n);
          }
          SCOPED_TRACE(testing::Message() << count << " stages, n " << n << (wild ? " wild" : ""));
          EXPECT_EQ(ea, eb);
          if (count < 10) {
            EXPECT_EQ(eb[static_cast<size_t>(count) + 1], 7u);  // nothing past energy[count]
          }
          EXPECT_TRUE(la.same_state(lb) && ra.same_state(rb));
        }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// The crossover chain: the reference equals the definition (each stage's
// two branches through the exported section, sample by sample, the next
// stage fed the high branch), and the other builds equal the reference in
// every band and final state, for 1 to 4 stages (4 runs past the
// wavefront's limit), with every section on and with some switched off.
TEST(BiquadCascade, CrossoverChainVariantsMatchTheDefinition) {
  struct Chain {
    Cascade l, r;
    std::vector<kafx::CrossoverStage> sl, sr;
    Chain(int stages, unsigned seed, bool wild, bool all_on = false)
        : l(4 * stages, seed, wild), r(4 * stages, seed + 1, wild) {
      if (all_on)
        for (Cascade* c : {&l, &r})
          for (IIR_t& f : c->s) f.status = 1;
      bind();
    }
    Chain(const Chain& o) : l(o.l), r(o.r) { bind(); }
    void bind() {
      for (size_t k = 0; 4 * k < l.s.size(); ++k) {
        IIR_t* a = &l.s[4 * k];
        IIR_t* b = &r.s[4 * k];
        sl.push_back({{a, a + 1}, {a + 2, a + 3}});
        sr.push_back({{b, b + 1}, {b + 2, b + 3}});
      }
    }
    bool same_state(const Chain& o) const { return l.same_state(o.l) && r.same_state(o.r); }
  };
  // The definition, for 3 stages of 150 samples per channel.
  for (bool wild : {false, true}) {
    Chain c(3, 61, wild), model(c);
    std::vector<int32_t> xl = random_values<int32_t>(150, 62), xr = random_values<int32_t>(150, 63);
    std::vector<std::vector<int32_t>> low(6, std::vector<int32_t>(150));
    int32_t* ll[3] = {low[0].data(), low[1].data(), low[2].data()};
    int32_t* lr[3] = {low[3].data(), low[4].data(), low[5].data()};
    const std::vector<int32_t> in_l = xl, in_r = xr;
    kafx::biquad_crossover_stereo_variants.fn[kafx::kIsaBaseline](c.sl.data(), c.sr.data(), 3, xl.data(), xr.data(),
                                                                  ll, lr, 150);
    Cascade* side[2] = {&model.l, &model.r};
    const std::vector<int32_t>* in[2] = {&in_l, &in_r};
    const std::vector<int32_t>* out[2] = {&xl, &xr};
    for (int ch = 0; ch < 2; ++ch)
      for (int i = 0; i < 150; ++i) {
        int32_t h = (*in[ch])[static_cast<size_t>(i)];
        for (int k = 0; k < 3; ++k) {
          std::vector<IIR_t>& f = side[ch]->s;
          int32_t lo = h;
          IIR_process_32(&f[4 * k], &lo, &lo);
          IIR_process_32(&f[4 * k + 1], &lo, &lo);
          IIR_process_32(&f[4 * k + 2], &h, &h);
          IIR_process_32(&f[4 * k + 3], &h, &h);
          ASSERT_EQ(low[static_cast<size_t>(3 * ch + k)][static_cast<size_t>(i)], lo) << ch << " stage " << k << " " << i;
        }
        ASSERT_EQ((*out[ch])[static_cast<size_t>(i)], h) << ch << " " << i;
      }
    EXPECT_TRUE(c.same_state(model));
  }
  const int compared = kafx_test::for_each_variant(kafx::biquad_crossover_stereo_variants, [&](auto fn, auto base) {
    unsigned seed = 700;
    for (int stages : {1, 2, 3, 4})
      for (bool wild : {false, true})
        for (int n : {0, 1, 5, 6, 17, 241})
          for (bool all_on : {false, true}) {
            seed += 10;
            Chain a(stages, seed, wild, all_on), b(a);
            const std::vector<int32_t> xl = random_values<int32_t>(static_cast<size_t>(n), seed + 5);
            const std::vector<int32_t> xr = random_values<int32_t>(static_cast<size_t>(n), seed + 6, -(1 << 24), 1 << 24);
            Guarded<int32_t> al(n), ar(n), bl(n), br(n);
            std::vector<Guarded<int32_t>> lows;
            for (int k = 0; k < 4 * stages; ++k) lows.emplace_back(n);
            std::vector<int32_t*> la, ra, lb, rb;
            for (int k = 0; k < stages; ++k) {
              la.push_back(lows[4 * k].data()), ra.push_back(lows[4 * k + 1].data());
              lb.push_back(lows[4 * k + 2].data()), rb.push_back(lows[4 * k + 3].data());
            }
            std::copy(xl.begin(), xl.end(), al.data());
            std::copy(xl.begin(), xl.end(), bl.data());
            std::copy(xr.begin(), xr.end(), ar.data());
            std::copy(xr.begin(), xr.end(), br.data());
            for (int pass = 0; pass < 2; ++pass) {
              base(a.sl.data(), a.sr.data(), stages, al.data(), ar.data(), la.data(), ra.data(), n);
              fn(b.sl.data(), b.sr.data(), stages, bl.data(), br.data(), lb.data(), rb.data(), n);
            }
            SCOPED_TRACE(testing::Message() << stages << " stages, n " << n << (wild ? " wild" : "")
                                            << (all_on ? " every section on" : ""));
            EXPECT_EQ(al.v, bl.v);
            EXPECT_EQ(ar.v, br.v);
            for (int k = 0; k < stages; ++k) {
              EXPECT_EQ(lows[4 * k].v, lows[4 * k + 2].v) << "left low " << k;
              EXPECT_EQ(lows[4 * k + 1].v, lows[4 * k + 3].v) << "right low " << k;
            }
            bool intact = bl.guards_intact() && br.guards_intact();
            for (auto& g : lows) intact = intact && g.guards_intact();
            EXPECT_TRUE(intact);
            EXPECT_TRUE(a.same_state(b));
          }
  });
  EXPECT_EQ(compared, (kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0) + kafx_test::neon_builds());
}

}  // namespace
