// The reverb's kernels: every build this processor runs gives the reference
// build's outputs and leaves the combs and all-passes in the same state, on
// odd run lengths with wrapping loops, with canaries past the outputs; for
// gains where the lane forms apply and where they must fall back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/reverb_kernels.h"
#include "kafx_proc/delay.h"
#include "support/variants.h"

namespace {

using kafx_test::Guarded;
using kafx_test::random_values;

constexpr int kRuns[] = {1, 17, 37, 127, 256, 255};

// Eight combs with random loop contents, positions and low-pass states.
struct CombBank {
  std::vector<comber> c;
  CombBank(const int* sizes, int32_t damp, int32_t damp_c, int32_t feedback, unsigned seed) : c(8) {
    for (int k = 0; k < 8; ++k) {
      comb_init(&c[k], sizes[k]);
      const std::vector<int32_t> words = random_values<int32_t>(static_cast<size_t>(sizes[k]) + 2, seed + k);
      std::memcpy(c[k].buffer, words.data(), sizeof(int32_t) * static_cast<size_t>(sizes[k]));
      c[k].index = static_cast<int32_t>(static_cast<uint32_t>(words[sizes[k]]) % static_cast<uint32_t>(sizes[k]));
      c[k].lowpass_state = words[sizes[k] + 1];
      c[k].damp = damp;
      c[k].damp_complement = damp_c;
      c[k].feedback = feedback;
    }
  }
  CombBank(const CombBank& o) : c(o.c) {
    for (size_t k = 0; k < c.size(); ++k) {
      comb_init(&c[k], o.c[k].size);
      std::memcpy(c[k].buffer, o.c[k].buffer, sizeof(int32_t) * static_cast<size_t>(o.c[k].size));
      c[k].index = o.c[k].index;
      c[k].lowpass_state = o.c[k].lowpass_state;
      c[k].damp = o.c[k].damp, c[k].damp_complement = o.c[k].damp_complement, c[k].feedback = o.c[k].feedback;
    }
  }
  ~CombBank() {
    for (comber& k : c) comb_end(&k);
  }
  std::vector<comber*> ptrs() {
    std::vector<comber*> p;
    for (comber& k : c) p.push_back(&k);
    return p;
  }
  bool same(const CombBank& o) const {
    for (size_t k = 0; k < c.size(); ++k) {
      if (c[k].index != o.c[k].index || c[k].lowpass_state != o.c[k].lowpass_state) return false;
      if (std::memcmp(c[k].buffer, o.c[k].buffer, sizeof(int32_t) * static_cast<size_t>(c[k].size)) != 0) return false;
    }
    return true;
  }
};

TEST(ReverbKernels, CombBankVariantsMatchReference) {
  const int kRoom[8] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
  const int kShort[8] = {256, 300, 37, 1000, 257, 999, 511, 700};  // one loop shorter than a run
  struct Gains {
    int32_t damp, damp_c, feedback;
  };
  const Gains kGains[] = {{4096, 4096, 8000}, {0, 8192, 8192}, {8192, 0, 5000}, {6000, 3000, 4096}, {-5, 8192, 9000}};
  int compared = 0;
  for (const auto* variants : {&kafx::reverb_comb_bank_working_variants, &kafx::reverb_comb_bank_16_variants}) {
    compared += kafx_test::for_each_variant(*variants, [&](auto fn, auto base) {
      unsigned seed = 1;
      for (const int* sizes : {kRoom, kShort})
        for (const Gains& g : kGains) {
          seed += 20;
          CombBank a(sizes, g.damp, g.damp_c, g.feedback, seed);
          CombBank b(a);
          std::vector<comber*> pa = a.ptrs(), pb = b.ptrs();
          for (int n : kRuns) {
            const std::vector<int32_t> x = random_values<int32_t>(static_cast<size_t>(n), seed + n, -(1 << 20), 1 << 20);
            const std::vector<int32_t> acc = random_values<int32_t>(static_cast<size_t>(n), seed + 2 * n);
            Guarded<int32_t> oa(static_cast<size_t>(n)), ob(static_cast<size_t>(n));
            std::copy(acc.begin(), acc.end(), oa.data());
            std::copy(acc.begin(), acc.end(), ob.data());
            base(pa.data(), x.data(), oa.data(), n);
            fn(pb.data(), x.data(), ob.data(), n);
            SCOPED_TRACE(testing::Message() << "gains " << g.damp << "/" << g.damp_c << "/" << g.feedback << " n " << n);
            EXPECT_EQ(oa.v, ob.v);
            EXPECT_TRUE(ob.guards_intact());
            EXPECT_TRUE(a.same(b));
          }
        }
    });
  }
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 2 : 0);
}

// Both channels' banks of eight side by side: the reverb's rooms, a bank
// with a loop shorter than a run, and gains that send one bank or both to
// the fallback; different inputs and accumulators per channel.
TEST(ReverbKernels, CombBanksVariantsMatchReference) {
  const int kLeft[8] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
  const int kRight[8] = {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579};
  const int kShort[8] = {1151, 1423, 1523, 255, 1997, 2099, 2293, 2579};
  struct Case {
    const int* right_sizes;
    int32_t left_gains[3], right_gains[3];  // damp, damp complement, feedback
  };
  const Case kCases[] = {
      {kRight, {1208, 6984, 7487}, {1208, 6984, 7487}},  // both banks in lanes
      {kRight, {0, 8192, 8192}, {8192, 0, 5000}},
      {kShort, {1208, 6984, 7487}, {1208, 6984, 7487}},  // the right bank falls back
      {kRight, {1208, 6984, 7487}, {4096, 4096, 8193}},  // the right bank saturates
      {kRight, {-5, 8192, 9000}, {-5, 8192, 9000}},      // both saturate
  };
  int compared = 0;
  for (const auto* variants : {&kafx::reverb_comb_banks_working_variants, &kafx::reverb_comb_banks_16_variants}) {
    const bool working = variants == &kafx::reverb_comb_banks_working_variants;
    compared += kafx_test::for_each_variant(*variants, [&](auto fn, auto base) {
      unsigned seed = 31;
      for (const Case& c : kCases) {
        seed += 20;
        CombBank la(kLeft, c.left_gains[0], c.left_gains[1], c.left_gains[2], seed);
        CombBank ra(c.right_sizes, c.right_gains[0], c.right_gains[1], c.right_gains[2], seed + 9);
        CombBank lb(la), rb(ra);
        std::vector<comber*> pla = la.ptrs(), pra = ra.ptrs(), plb = lb.ptrs(), prb = rb.ptrs();
        for (int n : kRuns) {
          const auto un = static_cast<size_t>(n);
          // Working samples up to full scale; 16-bit samples up to theirs.
          const int32_t top = working ? 8388607 : 32767;
          const std::vector<int32_t> xl = random_values<int32_t>(un, seed + n, -top - 1, top);
          const std::vector<int32_t> xr = random_values<int32_t>(un, seed + 3 * n, -top - 1, top);
          const std::vector<int32_t> acc = random_values<int32_t>(2 * un, seed + 2 * n);
          Guarded<int32_t> al_a(un), ar_a(un), al_b(un), ar_b(un);
          std::copy(acc.begin(), acc.begin() + n, al_a.data());
          std::copy(acc.begin(), acc.begin() + n, al_b.data());
          std::copy(acc.begin() + n, acc.end(), ar_a.data());
          std::copy(acc.begin() + n, acc.end(), ar_b.data());
          base(pla.data(), pra.data(), xl.data(), xr.data(), al_a.data(), ar_a.data(), n);
          fn(plb.data(), prb.data(), xl.data(), xr.data(), al_b.data(), ar_b.data(), n);
          SCOPED_TRACE(testing::Message() << "case " << (&c - kCases) << " n " << n);
          EXPECT_EQ(al_a.v, al_b.v);
          EXPECT_EQ(ar_a.v, ar_b.v);
          EXPECT_TRUE(al_b.guards_intact() && ar_b.guards_intact());
          EXPECT_TRUE(la.same(lb));
          EXPECT_TRUE(ra.same(rb));
        }
      }
    });
  }
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 2 : 0);
}

// Two rooms of four combs (lanes 0..3 and 4..7 of the AVX2 build) with
// different inputs and accumulators per room: the stereo widening's rooms,
// rooms with a loop shorter than a run, and gains that must fall back.
TEST(ReverbKernels, CombStereo4VariantsMatchReference) {
  const int kRooms[8] = {1109, 1399, 1489, 1777, 1151, 1423, 1523, 1801};
  const int kShort[8] = {1109, 1399, 1489, 1777, 1151, 1423, 255, 1801};
  const int32_t kGains[][3] = {{1650, 6542, 6945}, {0, 8192, 8192}, {8192, 0, 5000}, {4096, 4096, 8193}};
  const int compared = kafx_test::for_each_variant(kafx::comb_stereo4_working_variants, [&](auto fn, auto base) {
    unsigned seed = 11;
    for (const int* sizes : {kRooms, kShort})
      for (const auto& g : kGains) {
        seed += 20;
        CombBank a(sizes, g[0], g[1], g[2], seed);
        CombBank b(a);
        std::vector<comber*> pa = a.ptrs(), pb = b.ptrs();
        for (int n : kRuns) {
          const auto un = static_cast<size_t>(n);
          const std::vector<int32_t> xl = random_values<int32_t>(un, seed + n, -8388607, 8388607);
          const std::vector<int32_t> xr = random_values<int32_t>(un, seed + 3 * n, -8388607, 8388607);
          const std::vector<int32_t> acc = random_values<int32_t>(2 * un, seed + 2 * n);
          Guarded<int32_t> la(un), ra(un), lb(un), rb(un);
          std::copy(acc.begin(), acc.begin() + n, la.data());
          std::copy(acc.begin(), acc.begin() + n, lb.data());
          std::copy(acc.begin() + n, acc.end(), ra.data());
          std::copy(acc.begin() + n, acc.end(), rb.data());
          base(pa.data(), pa.data() + 4, xl.data(), xr.data(), la.data(), ra.data(), n);
          fn(pb.data(), pb.data() + 4, xl.data(), xr.data(), lb.data(), rb.data(), n);
          SCOPED_TRACE(testing::Message() << "gains " << g[0] << "/" << g[1] << "/" << g[2] << " n " << n);
          EXPECT_EQ(la.v, lb.v);
          EXPECT_EQ(ra.v, rb.v);
          EXPECT_TRUE(lb.guards_intact() && rb.guards_intact());
          EXPECT_TRUE(a.same(b));
        }
      }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

// The wet/dry mix: samples over the whole int32 range, the reverb's gains
// and gains whose sums saturate or wrap, written in place over the wet sums
// and to separate outputs with canaries.
TEST(ReverbKernels, MixVariantsMatchReference) {
  const int32_t kGains[][3] = {{8190, 8190, 0}, {6144, 2048, 1000}, {INT32_MAX, INT32_MAX, INT32_MAX},
                               {INT32_MIN, INT32_MAX, -7}, {0, 0, 8192}};
  const int compared = kafx_test::for_each_variant(kafx::reverb_mix_variants, [&](auto fn, auto base) {
    unsigned seed = 90;
    for (const auto& g : kGains)
      for (int n : kRuns) {
        const auto un = static_cast<size_t>(n);
        ++seed;
        const std::vector<int32_t> al = random_values<int32_t>(un, seed), ar = random_values<int32_t>(un, seed + 1);
        const std::vector<int32_t> dl = random_values<int32_t>(un, seed + 2), dr = random_values<int32_t>(un, seed + 3);
        Guarded<int32_t> ml_a(un), mr_a(un), ml_b(un), mr_b(un);
        base(g, al.data(), ar.data(), dl.data(), dr.data(), ml_a.data(), mr_a.data(), n);
        fn(g, al.data(), ar.data(), dl.data(), dr.data(), ml_b.data(), mr_b.data(), n);
        SCOPED_TRACE(testing::Message() << "gains " << g[0] << "/" << g[1] << "/" << g[2] << " n " << n);
        EXPECT_EQ(ml_a.v, ml_b.v);
        EXPECT_EQ(mr_a.v, mr_b.v);
        EXPECT_TRUE(ml_b.guards_intact() && mr_b.guards_intact());
        // In place over the wet sums.
        std::vector<int32_t> l = al, r = ar;
        fn(g, l.data(), r.data(), dl.data(), dr.data(), l.data(), r.data(), n);
        EXPECT_TRUE(std::equal(l.begin(), l.end(), ml_a.v.begin()));
        EXPECT_TRUE(std::equal(r.begin(), r.end(), mr_a.v.begin()));
      }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

TEST(ReverbKernels, AllpassVariantsMatchReference) {
  const int compared = kafx_test::for_each_variant(kafx::reverb_allpass_run_variants, [&](auto fn, auto base) {
    unsigned seed = 7;
    for (int size : {619, 241, 5})
      for (int32_t g : {4096, 3000}) {
        allpass a, b;
        allpass_init(&a, size);
        allpass_init(&b, size);
        allpass_setfeedback(&a, g);
        allpass_setfeedback(&b, g);
        const std::vector<int32_t> words = random_values<int32_t>(static_cast<size_t>(size), seed += 3);
        std::memcpy(a.buffer, words.data(), sizeof(int32_t) * static_cast<size_t>(size));
        std::memcpy(b.buffer, words.data(), sizeof(int32_t) * static_cast<size_t>(size));
        a.index = b.index = size / 3;
        for (int n : kRuns) {
          const std::vector<int32_t> v = random_values<int32_t>(static_cast<size_t>(n), seed + n);
          Guarded<int32_t> va(static_cast<size_t>(n)), vb(static_cast<size_t>(n));
          std::copy(v.begin(), v.end(), va.data());
          std::copy(v.begin(), v.end(), vb.data());
          base(&a, va.data(), n);
          fn(&b, vb.data(), n);
          SCOPED_TRACE(testing::Message() << "size " << size << " g " << g << " n " << n);
          EXPECT_EQ(va.v, vb.v);
          EXPECT_TRUE(vb.guards_intact());
          EXPECT_EQ(a.index, b.index);
          EXPECT_EQ(0, std::memcmp(a.buffer, b.buffer, sizeof(int32_t) * static_cast<size_t>(size)));
        }
        allpass_end(&a);
        allpass_end(&b);
      }
  });
  EXPECT_EQ(compared, kafx::isa_available(kafx::kIsaAvx2) && KAFX_AVX2_VARIANTS ? 1 : 0);
}

}  // namespace
