// Stereo widening system: the whole system bit-exact against the same
// processing wired from the exported blocks (biquad, delay, comb, all-pass,
// DC remover) in plain 64-bit arithmetic, per rate (silent at 192 kHz), after
// a rate change and in blocks of odd lengths; defaults and the comb
// derivation; hand-worked samples of the difference circuit with unit
// sections. (The stated rows and the table designs are checked by test_tools.)
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <iterator>
#include <random>
#include <vector>

#include "headphone/stereo_widening_system_kernels.h"
#include "headphone/stereo_widening_system_tables.h"
#include "kafx_proc/stereo_widening_system.h"
#include "support/variants.h"

namespace {

using V = std::vector<int>;
namespace tables = kafx::sws_tables;

constexpr int32_t kUnit[5] = {1 << 28, 0, 0, 0, 0};

int wrap(int64_t v) { return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
int sat(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, INT_MIN, INT_MAX)); }
int gain(int g, int x, int shift = 13) { return sat((int64_t{g} * x) >> shift); }

// The three stages wired from exported blocks, following the algorithm text,
// with the rate's rows in the stated section order.
struct Reference {
  IIR_t dc[11]{}, cf[6]{}, pre[2]{};
  audio_delay delay[2]{};
  comber comb[2][4]{};
  allpass ap[2][2]{};
  dc_remove dcr[2]{};
  int side_gain = 4096, cf_gain = 4096, wet = 6144, dry = 6144;

  Reference(int rate, int delay_len) {
    const int32_t* rows[11] = {tables::kPhaseNetwork[0][rate], tables::kPhaseNetwork[1][rate],
                               tables::kPhaseNetwork[2][rate], tables::kPhaseNetwork[0][rate],
                               tables::kPhaseNetwork[1][rate], tables::kPhaseNetwork[2][rate],
                               tables::kSpareBandPass[rate],   tables::kLowPass200[rate],
                               tables::kSideHighPass[rate],    tables::kMidBandPass[rate],
                               tables::kLowPass200[rate]};
    for (int k = 0; k < 11; ++k) IIR_init(&dc[k], rows[k]);
    const int32_t* cfr[3] = {tables::kCrossfeedAllPass[rate], tables::kCrossfeedLowPass[rate],
                             tables::kCrossfeedHighPass[rate]};
    for (int k = 0; k < 6; ++k) IIR_init(&cf[k], cfr[k / 2]);
    const int lens[2][6] = {{1109, 1399, 1489, 1777, 241, 337}, {1151, 1423, 1523, 1801, 269, 367}};
    for (int c = 0; c < 2; ++c) {
      audio_delay_init(&delay[c], delay_len);
      for (int k = 0; k < 4; ++k) comb_init(&comb[c][k], lens[c][k]);
      for (int k = 0; k < 2; ++k) allpass_init(&ap[c][k], lens[c][4 + k]);
      dc_remove_init(&dcr[c]);
      IIR_init(&pre[c], tables::kReflectorPreFilter[rate]);
    }
  }
  ~Reference() {
    for (auto& f : dc) IIR_end(&f);
    for (auto& f : cf) IIR_end(&f);
    for (int c = 0; c < 2; ++c) {
      audio_delay_end(&delay[c]);
      IIR_end(&pre[c]);
      for (auto& k : comb[c]) comb_end(&k);
      for (auto& a : ap[c]) allpass_end(&a);
    }
  }
  // The comb settings the system derived from room size and damp (the
  // derivation itself is checked in DefaultsCombsAndEnd).
  void combs_from(const early_reflector& e) {
    for (int k = 0; k < 8; ++k) {
      const comber* m = k < 4 ? e.comb_left[k] : e.comb_right[k - 4];
      comb_setsetdamp(&comb[k / 4][k % 4], m->damp);
      comb_setfeedback(&comb[k / 4][k % 4], m->feedback);
    }
  }
  static int run(IIR_t* f, int x) {
    IIR_process_32(f, &x, &x);
    return x;
  }
  void sample(int& l, int& r) {
    // Difference circuit.
    int lf = l, rf = r;
    for (int k = 0; k < 3; ++k) lf = run(&dc[k], lf), rf = run(&dc[k + 3], rf);
    const int mid_sum = wrap(int64_t{lf} + rf), side = wrap(int64_t{lf} - rf);
    const int m_low = run(&dc[10], mid_sum), m_band = run(&dc[9], mid_sum);
    const int s_low = run(&dc[7], side), s_high = run(&dc[8], side);
    const int side_out = gain(side_gain, wrap(2 * int64_t{s_low} + (side >> 1) - (s_low >> 1) + s_high));
    const int mid = wrap(int64_t{mid_sum} + (m_band >> 2) + m_low) >> 1;
    l = wrap(int64_t{lf >> 2} + mid + side_out);
    r = wrap(int64_t{rf >> 2} + mid - side_out);
    // Crossfeed network.
    const int dl = run(&cf[0], l), dr = run(&cf[1], r), hl = run(&cf[4], l), hr = run(&cf[5], r);
    const int xl = run(&cf[2], audio_delay_process(&delay[0], l));
    const int xr = run(&cf[3], audio_delay_process(&delay[1], r));
    l = sat(int64_t{sat(int64_t{dl} + gain(cf_gain, xr))} + gain(cf_gain, hl, 15));
    r = sat(int64_t{sat(int64_t{dr} + gain(cf_gain, xl))} + gain(cf_gain, hr, 15));
    // Early reflector.
    int* io[2] = {&l, &r};
    for (int c = 0; c < 2; ++c) {
      const int x = *io[c];
      const int q = run(&pre[c], (x >> 2) == -1 ? 0 : x >> 2);
      int acc = 0;
      for (auto& k : comb[c]) acc = wrap(int64_t{acc} + comb_process_24(q, &k));
      for (auto& a : ap[c]) acc = allpass_process(acc, &a);
      int out = sat(int64_t{gain(wet, acc)} + gain(dry, x));
      dc_remove_process_24(&dcr[c], &out, &out);
      *io[c] = out;
    }
  }
};

struct Sws {
  stereo_widening_system s{};
  explicit Sws(SampleRateType rate = SAMPLE_RATE_48000) {
    stereo_widening_system_init(&s);
    stereo_widening_system_set_sample_rate(&s, rate);
  }
  ~Sws() { stereo_widening_system_end(&s); }
  void run(V& l, V& r) {
    stereo_widening_system_process(&s, l.data(), r.data(), l.data(), r.data(), static_cast<int>(l.size()));
  }
};

// Loud, wide test material: a low tone on the left, a presence tone and noise
// on the right, with occasional full-scale clicks.
void material(V& l, V& r, size_t start, uint32_t seed) {
  std::mt19937 rng(seed);
  for (size_t i = 0; i < l.size(); ++i) {
    const double t = static_cast<double>(start + i) / 48000;
    l[i] = static_cast<int>(5000000 * std::sin(2 * M_PI * 90 * t));
    r[i] = static_cast<int>(3000000 * std::sin(2 * M_PI * 3100 * t)) +
           std::uniform_int_distribution<int>(-1500000, 1500000)(rng);
    if (rng() % 97 == 0) l[i] = (rng() & 1) ? 8388607 : -8388608;
  }
}

// Defaults; room size and damp re-derive all eight combs at once (the
// feedback's addition is a plain one: 2333/8192 < 1, it cannot overflow);
// end releases the three stages.
TEST(StereoWideningSystem, DefaultsCombsAndEnd) {
  stereo_widening_system s;
  stereo_widening_system_init(&s);
  int v[6];
  stereo_widening_system_dc_get_side_gain(&s, &v[0]);
  stereo_widening_system_cfn_get_gain(&s, &v[1]);
  stereo_widening_system_er_get_wet_gain(&s, &v[2]);
  stereo_widening_system_er_get_dry_gain(&s, &v[3]);
  stereo_widening_system_er_get_roomsize(&s, &v[4]);
  stereo_widening_system_er_get_damp(&s, &v[5]);
  EXPECT_EQ(V(v, v + 6), (V{4096, 4096, 6144, 6144, 4096, 4096}));
  EXPECT_EQ((V{s.status, s.cfn->delay[0]->size}), (V{0, 95}));
  const int cases[][4] = {{4096, 4096, 6945, 1650}, {7168, 4096, 7820, 1650}, {8192, 0, 8112, 0},
                          {0, 8192, 5779, 3301},    {INT_MAX, 1, 611587730, 0}};  // roomsize, damp, feedback, damping
  for (const auto& c : cases) {
    stereo_widening_system_er_set_roomsize(&s, c[0]);
    stereo_widening_system_er_set_damp(&s, c[1]);
    for (int k = 0; k < 8; ++k) {
      const comber* m = k < 4 ? s.er->comb_left[k] : s.er->comb_right[k - 4];
      EXPECT_EQ((V{m->feedback, m->damp, m->damp_complement}), (V{c[2], c[3], 8192 - c[3]})) << c[0] << " " << k;
    }
  }
  stereo_widening_system_end(&s);
  EXPECT_TRUE(s.dc == nullptr && s.cfn == nullptr && s.er == nullptr);
}

// Unit sections make the difference circuit's wiring visible sample by
// sample (the other stages are pinned by the composition test).
TEST(StereoWideningSystem, HandWorkedDifferenceCircuit) {
  // Difference circuit, l = 1000, r = 200: side 800, mid_sum 1200,
  // side_shaped = 1600 + 400 - 400 + 800 = 2400, side_out = 1200,
  // mid = (1200 + 300 + 1200) >> 1 = 1350; left 250 + 1350 + 1200, right 50 + 1350 - 1200.
  difference_circuit d;
  difference_circuit_init(&d);
  for (IIR_t* f : d.section) IIR_set_param(f, kUnit);
  int l = 1000, r = 200, ol, orr;
  difference_circuit_process_32(&d, &l, &r, &ol, &orr);
  EXPECT_EQ((V{ol, orr}), (V{2800, 200}));
  difference_circuit_set_side_gain(&d, 0);  // no side path: 250 + 1350, 50 + 1350
  difference_circuit_process_32(&d, &l, &r, &ol, &orr);
  EXPECT_EQ((V{ol, orr}), (V{1600, 1400}));
  difference_circuit_end(&d);
}

// The system equals its blocks wired together: built at 48 kHz, run, then
// switched to the case's rate (which loads that rate's rows and delay and
// clears the sections) and reset; then blocks of odd lengths (across the
// 256-sample scratch) against the reference sample by sample. One case runs
// the chain's preset values with one section of each stage passed through
// (status 0), which the block forms handle sample by sample. At 192 kHz
// every row is zero and the system silent.
TEST(StereoWideningSystem, EqualsItsBlocksWiredTogether) {
  struct Case {
    int rate, delay, side, cf, dry, wet, roomsize, damp;
    bool pass_through;
  };
  const Case cases[] = {{1, 23, 4096, 4096, 6144, 6144, 4096, 4096, false},
                        {1, 23, 9000, 6000, 6656, 1536, 7168, 2000, true},
                        {0, 23, 4096, 4096, 6144, 6144, 4096, 4096, false},
                        {2, 47, 9000, 6000, 6656, 1536, 7168, 2000, false},
                        {3, 95, 4096, 4096, 6144, 6144, 4096, 4096, false}};
  for (const Case& k : cases) {
    Sws sws;
    V l(240), r(240);
    material(l, r, 0, 3);
    sws.run(l, r);
    stereo_widening_system_set_sample_rate(&sws.s, static_cast<SampleRateType>(k.rate));
    EXPECT_EQ((V{sws.s.cfn->delay[0]->delay, sws.s.cfn->delay[1]->delay}), (V{k.delay, k.delay}));
    EXPECT_EQ(V(sws.s.dc->section[8]->state + 1, sws.s.dc->section[8]->state + 5), V(4)) << "history cleared";
    stereo_widening_system_reset(&sws.s);  // the reflector's combs keep their history across a rate change
    Reference ref(k.rate, k.delay);
    stereo_widening_system_dc_set_side_gain(&sws.s, ref.side_gain = k.side);
    stereo_widening_system_cfn_set_gain(&sws.s, ref.cf_gain = k.cf);
    stereo_widening_system_er_set_dry_gain(&sws.s, ref.dry = k.dry);
    stereo_widening_system_er_set_wet_gain(&sws.s, ref.wet = k.wet);
    stereo_widening_system_er_set_roomsize(&sws.s, k.roomsize);
    stereo_widening_system_er_set_damp(&sws.s, k.damp);
    ref.combs_from(*sws.s.er);
    if (k.pass_through) {
      sws.s.dc->section[8]->status = ref.dc[8].status = 0;
      sws.s.cfn->section[2]->status = ref.cf[2].status = 0;
      sws.s.er->prefilter_right->status = ref.pre[1].status = 0;
    }
    size_t start = 0;
    for (int n : {1, 17, 255, 256, 257, 1031, 37, 600, 240, 240}) {
      V a(n), b(n);
      material(a, b, start, static_cast<uint32_t>(n));
      start += static_cast<size_t>(n);
      V el = a, er = b;
      for (int i = 0; i < n; ++i) ref.sample(el[i], er[i]);
      sws.run(a, b);
      ASSERT_TRUE(a == el && b == er) << "rate " << k.rate << " side " << k.side << " n " << n;
      ASSERT_TRUE(k.rate != 3 || (a == V(n) && b == V(n))) << "silent at 192 kHz: every row is zero";
    }
    // Separate outputs leave the inputs untouched; a count of 0 writes nothing.
    V a(300), b(300), oa(300), ob(300);
    material(a, b, 0, 1);
    const V keep = a;
    stereo_widening_system_process(&sws.s, a.data(), b.data(), oa.data(), ob.data(), 300);
    const V out = oa;
    stereo_widening_system_process(&sws.s, a.data(), b.data(), oa.data(), ob.data(), 0);
    EXPECT_TRUE(a == keep && oa == out);
  }
}

}  // namespace

// The chunk kernels' builds (headphone/stereo_widening_system_kernels.h)
// against the baseline: the same outputs (with canaries past them) and the
// same section states and delay lines afterwards, over the runs where the
// AVX2 difference circuit's pipeline is too short to start, just long enough
// and full; with random states, random coefficient rows that saturate the
// accumulators, inputs over the whole int32 range, and a pass-through
// section.
namespace variants {

struct Case {
  int rate;
  bool random_coefficients;
  int64_t lo, hi;  // input range
  int gain;        // side gain or crossfeed gain
  bool bypass;     // one section passes through
};

constexpr Case kCases[] = {
    {1, false, -8388607, 8388607, 4096, false}, {0, false, INT32_MIN, INT32_MAX, 30000, false},
    {2, true, -8388607, 8388607, -9000, false}, {1, true, INT32_MIN, INT32_MAX, 8192, false},
    {1, false, -8388607, 8388607, 4096, true},
};
constexpr int kRuns[] = {1, 3, 4, 5, 17, 37, 127, 255, 256};

// Random states (and coefficients) into sections, the same seed giving the
// same words.
void scramble(IIR_t* const* f, int count, unsigned seed, bool coefficients) {
  for (int k = 0; k < count; ++k) {
    const std::vector<int32_t> w = kafx_test::random_values<int32_t>(10, seed + static_cast<unsigned>(k));
    for (int j = 0; j < 5; ++j) f[k]->state[j] = w[j];
    if (coefficients)
      for (int j = 0; j < 5; ++j) f[k]->coef[j] = w[5 + j];
  }
}

bool same_sections(IIR_t* const* a, IIR_t* const* b, int count) {
  for (int k = 0; k < count; ++k)
    if (!std::equal(a[k]->state, a[k]->state + 5, b[k]->state)) return false;
  return true;
}

template <class Block, class Kernel>
void compare(Block& got_block, Block& want_block, Kernel fn, Kernel ref, const Case& c, unsigned seed) {
  for (int n : kRuns) {
    ASSERT_NO_FATAL_FAILURE(kafx_test::expect_same_stereo_chunk(fn, ref, &got_block, &want_block, n, seed, c.lo, c.hi));
    ASSERT_TRUE(same_sections(got_block.section, want_block.section, static_cast<int>(std::size(got_block.section))))
        << "n " << n;
  }
}

TEST(StereoWideningSystem, DifferenceChunkVariantsMatchTheBaseline) {
  kafx_test::for_each_variant(kafx::difference_chunk_variants, [](auto fn, auto ref) {
    unsigned seed = 100;
    for (const Case& c : kCases) {
      difference_circuit got, want;
      for (difference_circuit* d : {&got, &want}) {
        difference_circuit_init(d);
        difference_circuit_set_sample_rate(d, static_cast<SampleRateType>(c.rate));
        scramble(d->section, DIFFERENCE_CIRCUIT_SECTIONS, seed, c.random_coefficients);
        d->side_gain = c.gain;
        if (c.bypass) d->section[8]->status = 0;
      }
      compare(got, want, fn, ref, c, seed);
      difference_circuit_end(&got);
      difference_circuit_end(&want);
      seed += 1000;
    }
  });
}

TEST(StereoWideningSystem, CrossfeedChunkVariantsMatchTheBaseline) {
  kafx_test::for_each_variant(kafx::crossfeed_chunk_variants, [](auto fn, auto ref) {
    unsigned seed = 200;
    for (const Case& c : kCases) {
      crossfeed_network got, want;
      for (crossfeed_network* d : {&got, &want}) {
        crossfeed_network_init(d);
        crossfeed_network_set_sample_rate(d, static_cast<SampleRateType>(c.rate));
        scramble(d->section, CROSSFEED_NETWORK_SECTIONS, seed, c.random_coefficients);
        d->gain = c.gain;
        if (c.bypass) d->section[3]->status = 0;
      }
      compare(got, want, fn, ref, c, seed);
      for (int ch = 0; ch < 2; ++ch) {
        const audio_delay* a = got.delay[ch];
        const audio_delay* b = want.delay[ch];
        EXPECT_EQ(a->index, b->index);
        EXPECT_TRUE(std::equal(a->buffer, a->buffer + CROSSFEED_NETWORK_MAX_DELAY, b->buffer));
      }
      crossfeed_network_end(&got);
      crossfeed_network_end(&want);
      seed += 1000;
    }
  });
}

// The early reflector's builds: random pre-filter states (and rows), the
// rooms and DC removers driven to the same state first, then the same
// outputs and pre-filter states and the same loop contents afterwards.
TEST(StereoWideningSystem, ReflectorChunkVariantsMatchTheBaseline) {
  kafx_test::for_each_variant(kafx::reflector_chunk_variants, [](auto fn, auto ref) {
    unsigned seed = 300;
    for (const Case& c : kCases) {
      early_reflector got, want;
      IIR_t* pre[2][2];
      int k = 0;
      for (early_reflector* e : {&got, &want}) {
        early_reflector_init(e);
        early_reflector_set_sample_rate(e, static_cast<SampleRateType>(c.rate));
        pre[k][0] = e->prefilter_left;
        pre[k][1] = e->prefilter_right;
        scramble(pre[k], 2, seed, c.random_coefficients);
        if (c.bypass) e->prefilter_right->status = 0;
        e->wet_gain = c.gain;
        ++k;
      }
      for (int n : kRuns) {
        ASSERT_NO_FATAL_FAILURE(kafx_test::expect_same_stereo_chunk(fn, ref, &got, &want, n, seed, c.lo, c.hi));
        ASSERT_TRUE(same_sections(pre[0], pre[1], 2)) << "n " << n;
        for (int j = 0; j < 4; ++j) {
          EXPECT_EQ(got.comb_left[j]->lowpass_state, want.comb_left[j]->lowpass_state);
          EXPECT_TRUE(std::equal(got.comb_right[j]->buffer, got.comb_right[j]->buffer + got.comb_right[j]->size,
                                 want.comb_right[j]->buffer));
        }
        EXPECT_EQ(got.dc_left->y1, want.dc_left->y1);
        EXPECT_EQ(got.dc_right->x1, want.dc_right->x1);
      }
      early_reflector_end(&got);
      early_reflector_end(&want);
      seed += 1000;
    }
  });
}

}  // namespace variants

// After a loud burst and then zeros, the system's output stops moving and
// holds a small constant. The floor shifts leave the recursions on small
// negative values with the -1 rule unable to clear them: a biquad whose
// feedback pair sums to just under 1 keeps y where floor((a1 + a2) y) = y
// (the first phase all-pass holds its output at -2), the sections after it
// pass that DC on, and the combs hold their loop words. The early
// reflector's DC blockers remove that DC, and what remains at the output is
// their own residue: a state at 32 times the sample scale in -249 .. -1
// that the floor shift of 0.996 y cannot move, read out as 0 .. -8 (see
// DcRemove.ZeroInputHoldsSmallNegativeStates). Checked: the output is
// unchanged for 50000 samples, lies in -8 .. 0, and equals what a copy of
// each DC blocker gives when fed its last input again, which leaves the
// copy's state where it was.
TEST(StereoWideningSystem, TailSettlesOnTheDcBlockersResidue) {
  for (unsigned seed : {3u, 4u, 5u}) {
    stereo_widening_system s;
    stereo_widening_system_init(&s);
    const std::vector<int32_t> burst = kafx_test::random_values<int32_t>(9600, seed, -8388607, 8388607);
    std::vector<int> l(240), r(240);
    long changed = 0, n = 0;
    const long limit = 2000000;
    for (; n < limit && n - changed < 50000; n += 240) {
      const int before[2] = {l.back(), r.back()};
      for (int i = 0; i < 240; ++i) {
        l[i] = n + i < 4800 ? burst[static_cast<size_t>(n + i)] : 0;
        r[i] = n + i < 4800 ? burst[static_cast<size_t>(n + i + 4800)] : 0;
      }
      stereo_widening_system_process(&s, l.data(), r.data(), l.data(), r.data(), 240);
      for (int i = 0; i < 240; ++i)
        if (l[i] != (i ? l[i - 1] : before[0]) || r[i] != (i ? r[i - 1] : before[1])) changed = n + i;
    }
    EXPECT_LT(n, limit) << "seed " << seed << ": tail still moving";
    const int outs[2] = {l.back(), r.back()};
    const dc_remove* blockers[2] = {s.er->dc_left, s.er->dc_right};
    for (int c = 0; c < 2; ++c) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << " channel " << c);
      EXPECT_TRUE(outs[c] <= 0 && outs[c] >= -8) << outs[c];
      EXPECT_TRUE(blockers[c]->y1 <= 0 && blockers[c]->y1 >= -249) << blockers[c]->y1;
      dc_remove copy = *blockers[c];
      int last = static_cast<int>(blockers[c]->x1 / 32), residue = 1;
      dc_remove_process_24(&copy, &last, &residue);
      EXPECT_EQ(residue, outs[c]);
      EXPECT_EQ(copy.y1, blockers[c]->y1);
    }
    stereo_widening_system_end(&s);
  }
}
