// Stereo widening system: every stage and the whole system bit-exact against
// the same processing wired from the exported blocks (biquad, delay, comb,
// all-pass, DC remover) in plain 64-bit arithmetic; hand-worked samples with
// unit sections; the stated 48 kHz rows in the right sections; block forms
// against the per-sample forms at odd lengths; rate switching; 192 kHz
// silence; reflector tails that reach exact zero.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <random>
#include <vector>

#include "headphone/stereo_widening_system_tables.h"
#include "kafx_proc/stereo_widening_system.h"

namespace {

using V = std::vector<int>;
using Row = std::array<int, 5>;
namespace tables = kafx::sws_tables;

// Stated 48 kHz rows.
constexpr Row kCfAllPass = {261503521, -528804336, 268435455, 528804336, -261503521};
constexpr Row kCfLowPass = {2266318, 4532636, 2266318, 462722641, -203352458};
constexpr Row kCfHighPass = {233627638, -467255277, 233627638, 462722641, -203352458};
constexpr Row kLowPass200 = {45157, 90314, 45157, 526933453, -258678627};
constexpr Row kSideHighPass = {138325627, -276651255, 138325627, 209371769, -75495286};
constexpr Row kMidBandPass = {57638104, 0, -57638104, 392363526, -153159245};
constexpr Row kPreFilter = {261084054, -522168108, 261084054, 521966744, -253934017};
constexpr Row kUnit = {1 << 28, 0, 0, 0, 0};

int wrap(int64_t v) { return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
int sat(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, INT_MIN, INT_MAX)); }
Row row(const int32_t* r) { return {r[0], r[1], r[2], r[3], r[4]}; }
Row params(IIR_t* f) {
  Row c;
  IIR_get_param(f, c.data());
  return c;
}

// The system's sections in the stated order, with the rate's rows: stated at
// 48 kHz; the phase networks and the spare band (designed here) from the table.
std::array<Row, 11> difference_rows(int rate) {
  if (rate != 1) {
    return {row(tables::kPhaseNetwork[0][rate]), row(tables::kPhaseNetwork[1][rate]),
            row(tables::kPhaseNetwork[2][rate]), row(tables::kPhaseNetwork[0][rate]),
            row(tables::kPhaseNetwork[1][rate]), row(tables::kPhaseNetwork[2][rate]),
            row(tables::kSpareBandPass[rate]),   row(tables::kLowPass200[rate]),
            row(tables::kSideHighPass[rate]),    row(tables::kMidBandPass[rate]),
            row(tables::kLowPass200[rate])};
  }
  return {row(tables::kPhaseNetwork[0][1]), row(tables::kPhaseNetwork[1][1]), row(tables::kPhaseNetwork[2][1]),
          row(tables::kPhaseNetwork[0][1]), row(tables::kPhaseNetwork[1][1]), row(tables::kPhaseNetwork[2][1]),
          row(tables::kSpareBandPass[1]),   kLowPass200,
          kSideHighPass,                    kMidBandPass,
          kLowPass200};
}

// The three stages wired from exported blocks, following the algorithm text.
struct Reference {
  IIR_t dc[11]{};
  int side_gain = 4096;
  IIR_t cf[6]{};
  audio_delay delay[2]{};
  int cf_gain = 4096;
  comber comb[2][4]{};
  allpass ap[2][2]{};
  dc_remove dcr[2]{};
  IIR_t pre[2]{};
  int wet = 6144, dry = 6144;

  explicit Reference(int rate = 1, int delay_len = 23) {
    const auto rows = difference_rows(rate);
    for (int k = 0; k < 11; ++k) IIR_init(&dc[k], rows[k].data());
    const Row cfr[3] = {rate == 1 ? kCfAllPass : row(tables::kCrossfeedAllPass[rate]),
                        rate == 1 ? kCfLowPass : row(tables::kCrossfeedLowPass[rate]),
                        rate == 1 ? kCfHighPass : row(tables::kCrossfeedHighPass[rate])};
    for (int k = 0; k < 6; ++k) IIR_init(&cf[k], cfr[k / 2].data());
    for (auto& d : delay) audio_delay_init(&d, delay_len);
    const int lens[2][4] = {{1109, 1399, 1489, 1777}, {1151, 1423, 1523, 1801}};
    const int aps[2][2] = {{241, 337}, {269, 367}};
    for (int c = 0; c < 2; ++c) {
      for (int k = 0; k < 4; ++k) comb_init(&comb[c][k], lens[c][k]);
      for (int k = 0; k < 2; ++k) allpass_init(&ap[c][k], aps[c][k]);
      dc_remove_init(&dcr[c]);
      IIR_init(&pre[c], (rate == 1 ? kPreFilter : row(tables::kReflectorPreFilter[rate])).data());
    }
    room(4096, 4096);
  }
  ~Reference() {
    for (auto& f : dc) IIR_end(&f);
    for (auto& f : cf) IIR_end(&f);
    for (auto& d : delay) audio_delay_end(&d);
    for (int c = 0; c < 2; ++c) {
      for (auto& k : comb[c]) comb_end(&k);
      for (auto& a : ap[c]) allpass_end(&a);
      IIR_end(&pre[c]);
    }
  }
  void room(int roomsize, int damp) {
    const int damping = sat((int64_t{damp} * 3301) >> 13);
    const int feedback = wrap(int64_t{sat((int64_t{roomsize} * 2333) >> 13)} + 5779);
    for (auto& side : comb) {
      for (auto& k : side) {
        comb_setsetdamp(&k, damping);
        k.feedback = feedback;
      }
    }
  }
  static int run(IIR_t* f, int x) {
    IIR_process_32(f, &x, &x);
    return x;
  }
  void difference(int& l, int& r) {
    int lf = l, rf = r;
    for (int k = 0; k < 3; ++k) lf = run(&dc[k], lf), rf = run(&dc[k + 3], rf);
    const int mid_sum = wrap(int64_t{lf} + rf), side = wrap(int64_t{lf} - rf);
    const int m_low = run(&dc[10], mid_sum), m_band = run(&dc[9], mid_sum);
    const int s_low = run(&dc[7], side), s_high = run(&dc[8], side);
    const int shaped = wrap(2 * int64_t{s_low} + (side >> 1) - (s_low >> 1) + s_high);
    const int side_out = sat((int64_t{shaped} * side_gain) >> 13);
    const int mid = wrap(int64_t{mid_sum} + (m_band >> 2) + m_low) >> 1;
    l = wrap(int64_t{lf >> 2} + mid + side_out);
    r = wrap(int64_t{rf >> 2} + mid - side_out);
  }
  void crossfeed(int& l, int& r) {
    const int dl = run(&cf[0], l), dr = run(&cf[1], r), hl = run(&cf[4], l), hr = run(&cf[5], r);
    const int xl = run(&cf[2], audio_delay_process(&delay[0], l));
    const int xr = run(&cf[3], audio_delay_process(&delay[1], r));
    l = sat(int64_t{sat(int64_t{dl} + sat((int64_t{cf_gain} * xr) >> 13))} + sat((int64_t{cf_gain} * hl) >> 15));
    r = sat(int64_t{sat(int64_t{dr} + sat((int64_t{cf_gain} * xl) >> 13))} + sat((int64_t{cf_gain} * hr) >> 15));
  }
  void reflect(int& l, int& r) {
    int* io[2] = {&l, &r};
    for (int c = 0; c < 2; ++c) {
      const int x = *io[c];
      const int q = run(&pre[c], (x >> 2) == -1 ? 0 : x >> 2);
      int acc = 0;
      for (auto& k : comb[c]) acc = wrap(int64_t{acc} + comb_process_24(q, &k));
      for (auto& a : ap[c]) acc = allpass_process(acc, &a);
      int out = sat(int64_t{sat((int64_t{wet} * acc) >> 13)} + sat((int64_t{dry} * x) >> 13));
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

TEST(StereoWideningSystem, InitLoadsTheStatedRowsAndDefaults) {
  stereo_widening_system s;
  stereo_widening_system_init(&s);
  EXPECT_EQ(s.status, 0);
  const auto rows = difference_rows(1);
  for (int k = 0; k < 11; ++k) EXPECT_EQ(params(s.dc->section[k]), rows[k]) << "difference section " << k;
  const Row cf[6] = {kCfAllPass, kCfAllPass, kCfLowPass, kCfLowPass, kCfHighPass, kCfHighPass};
  for (int k = 0; k < 6; ++k) EXPECT_EQ(params(s.cfn->section[k]), cf[k]) << "crossfeed section " << k;
  EXPECT_EQ(params(s.er->prefilter_left), kPreFilter);
  EXPECT_EQ(params(s.er->prefilter_right), kPreFilter);
  // The phase networks are all-passes: b2 = 1.0 - 1 LSB, the feedback pair mirrors b1, b0.
  for (int k = 0; k < 6; ++k) {
    const Row c = params(s.dc->section[k]);
    EXPECT_TRUE(c[2] == 268435455 && c[3] == -c[1] && c[4] == -c[0]) << k;
  }
  int v[6];
  stereo_widening_system_dc_get_side_gain(&s, &v[0]);
  stereo_widening_system_cfn_get_gain(&s, &v[1]);
  stereo_widening_system_er_get_wet_gain(&s, &v[2]);
  stereo_widening_system_er_get_dry_gain(&s, &v[3]);
  stereo_widening_system_er_get_roomsize(&s, &v[4]);
  stereo_widening_system_er_get_damp(&s, &v[5]);
  EXPECT_EQ(V(v, v + 6), (V{4096, 4096, 6144, 6144, 4096, 4096}));
  EXPECT_EQ((V{s.cfn->delay[0]->size, s.cfn->delay[0]->delay, s.cfn->delay[1]->delay}), (V{95, 23, 23}));
  const int lens[8] = {1109, 1399, 1489, 1777, 1151, 1423, 1523, 1801};
  for (int k = 0; k < 8; ++k) {
    const comber* c = k < 4 ? s.er->comb_left[k] : s.er->comb_right[k - 4];
    EXPECT_EQ((V{c->size, c->feedback, c->damp, c->damp_complement}), (V{lens[k], 6945, 1650, 6542})) << k;
  }
  EXPECT_EQ((V{s.er->allpass_left[0]->size, s.er->allpass_left[1]->size, s.er->allpass_right[0]->size,
               s.er->allpass_right[1]->size}),
            (V{241, 337, 269, 367}));
  stereo_widening_system_end(&s);
  EXPECT_TRUE(s.dc == nullptr && s.cfn == nullptr && s.er == nullptr);
}

// Room size and damp re-derive all eight combs at once; the feedback's
// addition is a plain one (it cannot overflow: 2333/8192 < 1).
TEST(StereoWideningSystem, RoomSizeAndDampDeriveTheCombs) {
  struct Case {
    int roomsize, damp, feedback, damping;
  };
  const Case cases[] = {{4096, 4096, 6945, 1650}, {7168, 4096, 7820, 1650}, {8192, 0, 8112, 0},
                        {0, 8192, 5779, 3301},    {INT_MAX, 1, 611587730, 0}};
  Sws sws;
  for (const Case& c : cases) {
    stereo_widening_system_er_set_roomsize(&sws.s, c.roomsize);
    stereo_widening_system_er_set_damp(&sws.s, c.damp);
    for (int k = 0; k < 4; ++k) {
      for (const comber* m : {sws.s.er->comb_left[k], sws.s.er->comb_right[k]}) {
        EXPECT_EQ((V{m->feedback, m->damp, m->damp_complement}), (V{c.feedback, c.damping, 8192 - c.damping}))
            << c.roomsize << " " << c.damp;
      }
    }
  }
}

// Unit sections make the wiring visible sample by sample.
TEST(StereoWideningSystem, HandWorkedSamplesWithUnitSections) {
  {  // Difference circuit, l = 1000, r = 200: side 800, mid_sum 1200,
     // side_shaped = 1600 + 400 - 400 + 800 = 2400, side_out = 1200,
     // mid = (1200 + 300 + 1200) >> 1 = 1350; left 250 + 1350 + 1200, right 50 + 1350 - 1200.
    difference_circuit d;
    difference_circuit_init(&d);
    for (IIR_t* f : d.section) IIR_set_param(f, kUnit.data());
    int l = 1000, r = 200, ol, orr;
    difference_circuit_process_32(&d, &l, &r, &ol, &orr);
    EXPECT_EQ((V{ol, orr}), (V{2800, 200}));
    difference_circuit_set_side_gain(&d, 0);  // no side path: 250 + 1350, 50 + 1350
    difference_circuit_process_32(&d, &l, &r, &ol, &orr);
    EXPECT_EQ((V{ol, orr}), (V{1600, 1400}));
    difference_circuit_end(&d);
  }
  {  // Crossfeed, an impulse of 8000 on the left: direct 8000 + high band 8000 / 8 now,
     // half of it on the right 23 samples later (48 kHz).
    crossfeed_network c;
    crossfeed_network_init(&c);
    for (IIR_t* f : c.section) IIR_set_param(f, kUnit.data());
    V outl, outr;
    for (int n = 0; n < 30; ++n) {
      int l = n == 0 ? 8000 : 0, r = 0, ol, orr;
      crossfeed_network_process_32(&c, &l, &r, &ol, &orr);
      outl.push_back(ol), outr.push_back(orr);
    }
    V el(30), er(30);
    el[0] = 9000, er[23] = 4000;
    EXPECT_EQ(outl, el);
    EXPECT_EQ(outr, er);
    crossfeed_network_end(&c);
  }
  {  // Early reflector with a unit pre-filter and no dry path: 4096 enters
     // the combs as 1024; comb 0 returns it after 1109 samples, each all-pass
     // passes half of a fresh input (256), and the DC remover gives
     // (256 << 5) * 0.996 >> 5 = 254.
    early_reflector e;
    early_reflector_init(&e);
    IIR_set_param(e.prefilter_left, kUnit.data());
    IIR_set_param(e.prefilter_right, kUnit.data());
    early_reflector_set_dry_gain(&e, 0);
    early_reflector_set_wet_gain(&e, 8192);
    V out;
    for (int n = 0; n <= 1109; ++n) {
      int l = n == 0 ? 4096 : 0, r = 0, ol, orr;
      early_reflector_process_32(&e, &l, &r, &ol, &orr);
      out.push_back(ol);
      ASSERT_EQ(orr, 0);
    }
    V expect(1110);
    expect[1109] = 254;
    EXPECT_EQ(out, expect);
    early_reflector_end(&e);
  }
}

// Per-sample forms against the reference, then the block forms and the
// system against the per-sample forms at odd lengths, in place.
TEST(StereoWideningSystem, StagesMatchTheReferenceAndBlocksMatchSamples) {
  for (int params = 0; params < 2; ++params) {
    Reference ref;
    difference_circuit d;
    crossfeed_network c;
    early_reflector e;
    difference_circuit_init(&d);
    crossfeed_network_init(&c);
    early_reflector_init(&e);
    if (params == 1) {  // the chain's preset values and a louder side
      difference_circuit_set_side_gain(&d, 9000), ref.side_gain = 9000;
      crossfeed_network_set_gain(&c, 6000), ref.cf_gain = 6000;
      early_reflector_set_dry_gain(&e, 6656), ref.dry = 6656;
      early_reflector_set_wet_gain(&e, 1536), ref.wet = 1536;
      early_reflector_set_roomsize(&e, 7168);
      early_reflector_set_damp(&e, 2000);
      ref.room(7168, 2000);
    }
    V l(4800), r(4800);
    material(l, r, 0, 5 + params);
    for (size_t i = 0; i < l.size(); ++i) {
      int a = l[i], b = r[i], ol, orr;
      int el = a, er = b;
      ref.difference(el, er);
      difference_circuit_process_32(&d, &a, &b, &ol, &orr);
      ASSERT_EQ((V{ol, orr}), (V{el, er})) << "difference " << i;
      ref.crossfeed(el, er);
      crossfeed_network_process_32(&c, &ol, &orr, &ol, &orr);
      ASSERT_EQ((V{ol, orr}), (V{el, er})) << "crossfeed " << i;
      ref.reflect(el, er);
      early_reflector_process_32(&e, &ol, &orr, &ol, &orr);
      ASSERT_EQ((V{ol, orr}), (V{el, er})) << "reflector " << i;
    }
    difference_circuit_end(&d);
    crossfeed_network_end(&c);
    early_reflector_end(&e);
  }

  // Blocks of odd lengths (across the 256-sample scratch) against samples;
  // from the fifth length on, one section of each stage passes through
  // (status 0), which the block forms handle sample by sample.
  Sws blocks, samples;
  stereo_widening_system_er_set_roomsize(&blocks.s, 7168);
  stereo_widening_system_er_set_roomsize(&samples.s, 7168);
  size_t start = 0;
  int round = 0;
  for (int n : {1, 17, 255, 256, 257, 1031, 37, 600}) {
    if (++round == 5) {
      for (Sws* x : {&blocks, &samples}) {
        x->s.dc->section[8]->status = 0;
        x->s.cfn->section[2]->status = 0;
        x->s.er->prefilter_right->status = 0;
      }
    }
    V l(n), r(n);
    material(l, r, start, static_cast<uint32_t>(n));
    start += static_cast<size_t>(n);
    V sl = l, sr = r;
    for (int i = 0; i < n; ++i) {
      difference_circuit_process_32(samples.s.dc, &sl[i], &sr[i], &sl[i], &sr[i]);
      crossfeed_network_process_32(samples.s.cfn, &sl[i], &sr[i], &sl[i], &sr[i]);
      early_reflector_process_32(samples.s.er, &sl[i], &sr[i], &sl[i], &sr[i]);
    }
    V bl = l, br = r;  // stage by stage through the exported block forms
    stereo_widening_system_process(&blocks.s, bl.data(), br.data(), bl.data(), br.data(), n);
    ASSERT_EQ(bl, sl) << n;
    ASSERT_EQ(br, sr) << n;
  }
  // Separate outputs leave the inputs untouched; a count of 0 writes nothing.
  V l(300), r(300), ol(300), orr(300);
  material(l, r, 0, 1);
  const V keep_l = l, keep_r = r;
  stereo_widening_system_process(&blocks.s, l.data(), r.data(), ol.data(), orr.data(), 300);
  EXPECT_TRUE(l == keep_l && r == keep_r);
  const V keep_out = ol;
  stereo_widening_system_process(&blocks.s, l.data(), r.data(), ol.data(), orr.data(), 0);
  EXPECT_EQ(ol, keep_out);
}

// Identical channels: no side, so the difference circuit and the crossfeed
// give equal outputs; the reflections differ (the two rooms have different
// comb lengths), so the system's outputs are equal without the wet path.
TEST(StereoWideningSystem, IdenticalChannelsGiveEqualOutputs) {
  Sws sws, dry;
  stereo_widening_system_er_set_wet_gain(&dry.s, 0);
  bool reflections_differ = false;
  for (size_t b = 0; b < 20; ++b) {
    V l(240), r(240);
    material(l, r, b * 240, static_cast<uint32_t>(b));
    r = l;
    V dl = l, dr = l;
    difference_circuit_process_block(sws.s.dc, l.data(), r.data(), l.data(), r.data(), 240);
    ASSERT_EQ(l, r) << b;
    crossfeed_network_process_block(sws.s.cfn, l.data(), r.data(), l.data(), r.data(), 240);
    ASSERT_EQ(l, r) << b;
    early_reflector_process_block(sws.s.er, l.data(), r.data(), l.data(), r.data(), 240);
    reflections_differ = reflections_differ || l != r;
    stereo_widening_system_process(&dry.s, dl.data(), dr.data(), dl.data(), dr.data(), 240);
    ASSERT_EQ(dl, dr) << b;
  }
  EXPECT_TRUE(reflections_differ);
}

// A rate change loads the rate's rows and delay length and clears every
// section's history; after a reset the system equals a reference built for
// that rate. At 192 kHz every row is zero and the system is silent.
TEST(StereoWideningSystem, RateSwitchingAndSilenceAt192k) {
  const int delays[4] = {23, 23, 47, 95};
  for (int rate : {0, 2, 1, 3}) {
    Sws sws;
    V l(240), r(240);
    material(l, r, 0, 3);
    stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
    stereo_widening_system_set_sample_rate(&sws.s, static_cast<SampleRateType>(rate));
    std::vector<IIR_t*> all(std::begin(sws.s.dc->section), std::end(sws.s.dc->section));
    all.insert(all.end(), std::begin(sws.s.cfn->section), std::end(sws.s.cfn->section));
    all.push_back(sws.s.er->prefilter_left);
    all.push_back(sws.s.er->prefilter_right);
    for (IIR_t* f : all) EXPECT_EQ(V(f->state + 1, f->state + 5), V(4)) << rate;
    EXPECT_EQ((V{sws.s.cfn->delay[0]->delay, sws.s.cfn->delay[1]->delay}), (V{delays[rate], delays[rate]}));
    stereo_widening_system_reset(&sws.s);  // the reflector's combs keep their history across a rate change
    if (rate == 3) {
      for (IIR_t* f : all) EXPECT_EQ(params(f), Row{});
      for (size_t b = 0; b < 10; ++b) {
        material(l, r, b * 240, 9);
        stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
        ASSERT_EQ(l, V(240));
        ASSERT_EQ(r, V(240));
      }
      continue;
    }
    Reference ref(rate, delays[rate]);
    for (size_t b = 0; b < 8; ++b) {
      material(l, r, b * 240, 4);
      V el = l, er = r;
      for (int i = 0; i < 240; ++i) ref.difference(el[i], er[i]), ref.crossfeed(el[i], er[i]), ref.reflect(el[i], er[i]);
      stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
      ASSERT_EQ(l, el) << rate << " " << b;
      ASSERT_EQ(r, er) << rate << " " << b;
    }
  }
  Sws fresh(SAMPLE_RATE_192000);  // silent from the start
  for (size_t b = 0; b < 10; ++b) {
    V l(240), r(240);
    material(l, r, b * 240, 2);
    stereo_widening_system_process(&fresh.s, l.data(), r.data(), l.data(), r.data(), 240);
    ASSERT_TRUE(l == V(240) && r == V(240)) << b;
  }
}

// Tails. The reflector's combs and all-passes decay to exact zero (the -1
// flush): with unit sections (no recursion in any biquad) every all-pass
// buffer is zero after the tail and every comb returns zero. The Q28 sections themselves round toward minus
// infinity without error feedback, so a section whose poles sit close to
// z = 1 (the 200 Hz low-pass, the 300 Hz high-pass, the all-passes) can hold
// a small negative state for ever; the output DC remover turns that constant
// into its own resting value, at most 8 LSB below zero (its state stops
// moving once 0.004 |y| < 1). The full system's tail therefore settles to a
// constant between -8 and 0 (below -120 dBFS), never to an oscillation.
TEST(StereoWideningSystem, TailsSettle) {
  for (bool unit : {true, false}) {
    Sws sws;
    if (unit) {
      for (IIR_t* f : sws.s.dc->section) IIR_set_param(f, kUnit.data());
      for (IIR_t* f : sws.s.cfn->section) IIR_set_param(f, kUnit.data());
      IIR_set_param(sws.s.er->prefilter_left, kUnit.data());
      IIR_set_param(sws.s.er->prefilter_right, kUnit.data());
    }
    stereo_widening_system_er_set_roomsize(&sws.s, 7168);
    stereo_widening_system_er_set_wet_gain(&sws.s, 8192);
    V l(240), r(240);
    for (size_t b = 0; b < 50; ++b) {
      material(l, r, b * 240, 7);
      for (auto& x : l) x /= 2;  // keep the unit sections out of saturation
      stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
    }
    for (size_t b = 0; b < 6000; ++b) {  // 30 s of silence
      l.assign(240, 0), r.assign(240, 0);
      stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
    }
    const V last_l = l, last_r = r;
    l.assign(240, 0), r.assign(240, 0);
    stereo_widening_system_process(&sws.s, l.data(), r.data(), l.data(), r.data(), 240);
    EXPECT_TRUE(l == last_l && r == last_r) << unit;
    EXPECT_EQ(l, V(240, l[0])) << unit;
    EXPECT_EQ(r, V(240, r[0])) << unit;
    EXPECT_TRUE(l[0] >= -8 && l[0] <= 0 && r[0] >= -8 && r[0] <= 0) << unit << " " << l[0] << " " << r[0];
    if (unit) {
      for (int c = 0; c < 2; ++c) {
        // A comb's Q28 loop may rest a few units below zero, but what it
        // returns (the word >> 5, -1 flushed) is exactly zero.
        for (comber* k : c == 0 ? sws.s.er->comb_left : sws.s.er->comb_right) {
          EXPECT_TRUE(std::all_of(k->buffer, k->buffer + k->size, [](int w) { return w >= -32 && w < 32; }));
        }
        for (allpass* a : c == 0 ? sws.s.er->allpass_left : sws.s.er->allpass_right) {
          EXPECT_EQ(V(a->buffer, a->buffer + a->size), V(a->size));
        }
      }
    }
  }
}

}  // namespace
