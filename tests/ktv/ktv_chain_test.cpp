// Karaoke chain: defaults and rate classes, the bypass and conversion paths,
// the whole chain equal to its exported blocks wired in the stated order,
// the noise branch that never runs, and the wrappers' choices at the edges
// (count above the 256-sample buffers, count 0, a null chain).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <tuple>
#include <vector>

#include "kafx_proc/ktv_chain.h"

namespace {

using Seq = std::vector<int>;
using Seq16 = std::vector<short>;

struct Chain {
  kedo_audio_tx_ktv_t c{};
  Chain() { kedo_audio_tx_ktv_init(&c); }
  ~Chain() { kedo_audio_tx_ktv_end(&c); }
};

// The settings of a chain with every block on, applied through the chain.
struct Settings {
  int eq[10] = {6, -3, 0, 4, -8, 2, 9, -15, 15, 1};
  int reverb[6] = {6000, 3000, 4000, 6000, 7000, 300};  // room, damp, wet, dry, width, gain
  int echo[4] = {6000, 120, 3000, 4000};                // feedback, delay ms, wet, dry
  int volume = 12000;
};

void all_on(kedo_audio_tx_ktv_t* c, Settings& s) {
  kedo_audio_tx_ktv_howling_canceling_setstatus(c, 1);
  kedo_audio_tx_ktv_gramophone_setstatus(c, 1);
  kedo_audio_tx_ktv_eq_setstatus(c, 1);
  kedo_audio_tx_ktv_eq_set_param_index(c, s.eq);
  kedo_audio_tx_ktv_reverb_setstatus(c, 1);
  kedo_audio_tx_ktv_reverb_setroomsize(c, s.reverb[0]);
  kedo_audio_tx_ktv_reverb_setdamp(c, s.reverb[1]);
  kedo_audio_tx_ktv_reverb_setwet(c, s.reverb[2]);
  kedo_audio_tx_ktv_reverb_setdry(c, s.reverb[3]);
  kedo_audio_tx_ktv_reverb_setwidth(c, s.reverb[4]);
  kedo_audio_tx_ktv_reverb_setgain(c, s.reverb[5]);
  kedo_audio_tx_ktv_iirecho_setstatus(c, 1);
  kedo_audio_tx_ktv_iirecho_setfeedback(c, s.echo[0]);
  kedo_audio_tx_ktv_iirecho_setdelay(c, s.echo[1]);
  kedo_audio_tx_ktv_iirecho_setwet(c, s.echo[2]);
  kedo_audio_tx_ktv_iirecho_setdry(c, s.echo[3]);
  kedo_audio_tx_ktv_compressor_setstatus(c, 1);
  kedo_audio_tx_ktv_set_volume(c, s.volume);
}

// The same blocks, owned here and wired by hand in the stated order.
struct Wired {
  howlingCancel howl{};
  gramophone gram{};
  equalizer_t eq{};
  reverb_t rev{};
  iirecho echo{};
  compressor_t comp{};
  explicit Wired(Settings& s) {
    howling_canceling_init(&howl);
    howling_canceling_setstatus(&howl, 1);  // the canceller copies while off
    gramophone_init(&gram);
    equalizer_init(&eq);
    equalizer_set_param_index(&eq, s.eq, SAMPLE_RATE_48000);
    reverb_init(&rev);
    reverb_setroomsize(&rev, s.reverb[0]);
    reverb_setdamp(&rev, s.reverb[1]);
    reverb_setwet(&rev, s.reverb[2]);
    reverb_setdry(&rev, s.reverb[3]);
    reverb_setwidth(&rev, s.reverb[4]);
    reverb_setgain(&rev, s.reverb[5]);
    reverb_update(&rev);
    iirecho_init(&echo);
    iirecho_setfeedback(&echo, s.echo[0]);
    iirecho_setdelay(&echo, s.echo[1]);
    iirecho_setwet(&echo, s.echo[2]);
    iirecho_setdry(&echo, s.echo[3]);
    compressor_init(&comp, 8192, 0);
    compressor_set_volume(&comp, s.volume);
  }
  ~Wired() {
    howling_canceling_end(&howl);
    gramophone_end(&gram);
    equalizer_end(&eq);
    reverb_end(&rev);
    iirecho_end(&echo);
    compressor_end(&comp);
  }
  void frame(Seq& l, Seq& r) {
    const int n = static_cast<int>(l.size());
    howling_canceling_process(&howl, l.data(), l.data(), n);
    gramophone_process(&gram, l.data(), l.data(), n);
    equalizer_process_mono(&eq, l.data(), l.data(), n);
    r = l;
    reverb_process_stereo_24(&rev, l.data(), r.data(), l.data(), r.data(), n);
    iirecho_processStereo(&echo, l.data(), r.data(), l.data(), r.data(), n);
    compressor_process(&comp, l.data(), r.data(), l.data(), r.data(), n);
  }
};

// Voice-like 16-bit material: a gliding harmonic tone with a steady whistle
// and some noise, loud enough to drive the compressor and the canceller.
Seq16 voice(size_t n, uint32_t seed) {
  Seq16 s(n);
  double phase = 0;
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / 48000.0;
    phase += 2 * std::numbers::pi * (180.0 + 60.0 * std::sin(2 * std::numbers::pi * 1.3 * t)) / 48000.0;
    seed = seed * 1664525u + 1013904223u;
    const double v = 0.35 * std::sin(phase) + 0.2 * std::sin(2 * phase) + 0.1 * std::sin(3 * phase) +
                     0.25 * std::sin(2 * std::numbers::pi * 2500.0 * t) +
                     0.02 * (static_cast<double>(seed >> 8) / 8388608.0 - 1.0);
    s[i] = static_cast<short>(std::lround(v * 32767.0 * (i % 24000 < 20000 ? 1.0 : 0.1)));
  }
  return s;
}

}  // namespace

TEST(KtvChain, InitDefaultsRateClassesAndEnd) {
  Chain ch;
  kedo_audio_tx_ktv_t& c = ch.c;
  int st[7];
  kedo_audio_tx_ktv_howling_canceling_getstatus(&c, &st[0]);
  kedo_audio_tx_ktv_gramophone_getstatus(&c, &st[1]);
  kedo_audio_tx_ktv_eq_getstatus(&c, &st[2]);
  kedo_audio_tx_ktv_reverb_getstatus(&c, &st[3]);
  kedo_audio_tx_ktv_iirecho_getstatus(&c, &st[4]);
  kedo_audio_tx_ktv_compressor_getstatus(&c, &st[5]);
  kedo_audio_tx_ktv_noise_canceling_getstatus(&c, &st[6]);
  EXPECT_EQ(Seq(st, st + 7), (Seq{0, 0, 0, 0, 1, 0, 0}));  // the echo is on by its own default
  EXPECT_EQ((Seq{c.volume, c.rate_type, c.compressor->volume, c.compressor->drc_left->frame_len}),
            (Seq{8192, 1, 8192, 960}));
  EXPECT_EQ((Seq{c.ns->aggr_mode, static_cast<int>(c.ns->fs)}), (Seq{3, 32000}));
  EXPECT_EQ((Seq{c.down->in_khz, c.down->out_khz, c.up->in_khz, c.up->out_khz}), (Seq{48, 32, 32, 48}));
  EXPECT_EQ(Seq(c.highpass->coef, c.highpass->coef + 5), Seq(kFilterCoefficients, kFilterCoefficients + 5));
  EXPECT_EQ(Seq(kFilterCoefficients, kFilterCoefficients + 5), (Seq{1027072, -2054144, 1027072, 2048512, -1001728}));
  // Rate -> class; the compressor's block follows, nothing else is retuned.
  const std::tuple<unsigned, int, int> rates[] = {{44100, 0, 220}, {48000, 1, 240}, {96000, 2, 480},
                                                  {192000, 3, 960}, {8000, 1, 240},  {0, 1, 240},
                                                  {32000, 1, 240}};
  for (auto [rate, cls, frame] : rates) {
    kedo_audio_tx_ktv_set_sample_rate(&c, rate);
    EXPECT_EQ((Seq{c.rate_type, c.compressor->drc_left->frame_len, c.compressor->drc_right->frame_len}),
              (Seq{cls, frame, frame}))
        << rate;
  }
  EXPECT_EQ((Seq{c.down->in_khz, c.down->out_khz}), (Seq{48, 32}));
  kedo_audio_tx_ktv_end(&c);
  const void* ptrs[] = {c.reverb, c.equalizer, c.compressor, c.echo, c.howling, c.gramo,
                        c.highpass, c.ns, c.down, c.up, c.left, c.right};
  for (const void* p : ptrs) EXPECT_EQ(p, nullptr);
  kedo_audio_tx_ktv_init(&c);  // the fixture ends it again
}

TEST(KtvChain, AccessorsReachTheirBlocks) {
  Chain ch;
  kedo_audio_tx_ktv_t& c = ch.c;
  int v = 0;
  // (set, get, field read back from the block)
  using Set = void (*)(kedo_audio_tx_ktv_t*, int);
  using Get = void (*)(kedo_audio_tx_ktv_t*, int*);
  const std::tuple<Set, Get, const int32_t*, int> rows[] = {
      {kedo_audio_tx_ktv_reverb_setroomsize, kedo_audio_tx_ktv_reverb_getroomsize, &c.reverb->roomsize, 1234},
      {kedo_audio_tx_ktv_reverb_setdamp, kedo_audio_tx_ktv_reverb_getdamp, &c.reverb->damp, 2345},
      {kedo_audio_tx_ktv_reverb_setwet, kedo_audio_tx_ktv_reverb_getwet, &c.reverb->wet, 3456},
      {kedo_audio_tx_ktv_reverb_setdry, kedo_audio_tx_ktv_reverb_getdry, &c.reverb->dry, 4567},
      {kedo_audio_tx_ktv_reverb_setwidth, kedo_audio_tx_ktv_reverb_getwidth, &c.reverb->width, 5678},
      {kedo_audio_tx_ktv_reverb_setgain, kedo_audio_tx_ktv_reverb_getgain, &c.reverb->gain, 99},
      {kedo_audio_tx_ktv_reverb_setstatus, kedo_audio_tx_ktv_reverb_getstatus, &c.reverb->status, 1},
      {kedo_audio_tx_ktv_eq_setstatus, kedo_audio_tx_ktv_eq_getstatus, &c.equalizer->status, 1},
      {kedo_audio_tx_ktv_howling_canceling_setstatus, kedo_audio_tx_ktv_howling_canceling_getstatus,
       &c.howling->status, 1},
      {kedo_audio_tx_ktv_gramophone_setstatus, kedo_audio_tx_ktv_gramophone_getstatus, &c.gramo->status, 1},
      {kedo_audio_tx_ktv_compressor_setstatus, kedo_audio_tx_ktv_compressor_getstatus, &c.compressor->status, 1},
      {kedo_audio_tx_ktv_iirecho_setstatus, kedo_audio_tx_ktv_iirecho_getstatus, &c.echo->status, 0},
      {kedo_audio_tx_ktv_iirecho_setfeedback, kedo_audio_tx_ktv_iirecho_getfeedback, &c.echo->feedback, 7000},
      {kedo_audio_tx_ktv_iirecho_setdelay, kedo_audio_tx_ktv_iirecho_getdelay, &c.echo->delay, 200},
      {kedo_audio_tx_ktv_iirecho_setwet, kedo_audio_tx_ktv_iirecho_getwet, &c.echo->wet, 1000},
      {kedo_audio_tx_ktv_iirecho_setdry, kedo_audio_tx_ktv_iirecho_getdry, &c.echo->dry, 2000},
      {kedo_audio_tx_ktv_noise_canceling_setstatus, kedo_audio_tx_ktv_noise_canceling_getstatus,
       &c.ns->canceling_status, 1},
  };
  for (auto [set, get, field, value] : rows) {
    set(&c, value);
    get(&c, &v);
    EXPECT_EQ(v, value);
    EXPECT_EQ(*field, value);
  }
  // Reverb setters are followed by the update: the combs carry the new feedback.
  EXPECT_EQ(c.reverb->comb_left[0]->feedback, c.reverb->feedback);
  kedo_audio_tx_ktv_iirecho_setdelay(&c, 1000);
  kedo_audio_tx_ktv_iirecho_getdelay(&c, &v);
  EXPECT_EQ((Seq{v, c.echo->left->delay, c.echo->right->delay}), (Seq{350, 16800, 16824}));
  kedo_audio_tx_ktv_set_volume(&c, 5000);
  EXPECT_EQ((Seq{c.volume, c.compressor->volume, c.compressor->drc_left->volume, c.compressor->drc_right->volume}),
            (Seq{5000, 5000, 5000, 5000}));
  // Equalizer: indices through the chain's rate, raw sets round trip.
  int idx[10] = {1, 2, 3, 4, 5, -1, -2, -3, -4, 20}, back[10];
  kedo_audio_tx_ktv_eq_set_param_index(&c, idx);
  kedo_audio_tx_ktv_eq_get_param_index(&c, back);
  EXPECT_EQ(Seq(back, back + 10), (Seq{1, 2, 3, 4, 5, -1, -2, -3, -4, 15}));
  equalizer_t ref{};
  equalizer_init(&ref);
  equalizer_set_param_index(&ref, idx, SAMPLE_RATE_48000);
  int want[10][5], got[10][5];
  equalizer_getparameter(&ref, want);
  kedo_audio_tx_ktv_eq_getparameter(&c, got);
  EXPECT_EQ(0, std::memcmp(want, got, sizeof want));
  for (auto& row : want) row[0] ^= 1;
  kedo_audio_tx_ktv_eq_setparameter(&c, want);
  kedo_audio_tx_ktv_eq_getparameter(&c, got);
  EXPECT_EQ(0, std::memcmp(want, got, sizeof want));
  equalizer_end(&ref);
}

// Every status 0: the 16-bit path returns sat16((in << 8) >> 8) = in on both
// sides; the 32-bit path returns (in >> 4) clamped to 24 bits, << 4.
TEST(KtvChain, BypassAndConversions) {
  Chain ch;
  kedo_audio_tx_ktv_iirecho_setstatus(&ch.c, 0);
  Seq16 in = voice(240, 1);
  in[0] = 32767;
  in[1] = -32768;
  in[2] = -1;
  Seq16 l(240, 7), r(240, 7);
  EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in.data(), l.data(), r.data(), 240), 0);
  EXPECT_EQ(l, in);
  EXPECT_EQ(r, in);
  const Seq in32 = {INT_MAX, INT_MIN, 0x7ffffff0, -0x7ffffff0, 15, -15, -16, 134217727, 100 << 4, -1};
  const Seq want32 = {134217712, -134217728, 134217712, -134217728, 0, -16, -16, 134217712, 100 << 4, -16};
  for (int format : {24, 32, 0, 17}) {
    Seq a(in32.size(), 5), b(in32.size(), 5);
    Seq x = in32;
    EXPECT_EQ(kedo_audio_tx_ktv_process(&ch.c, format, x.data(), a.data(), b.data(), 10), 0);
    EXPECT_EQ(a, want32) << format;
    EXPECT_EQ(b, want32) << format;
  }
  // Format 16 is the 16-bit path.
  Seq16 l2(240), r2(240);
  kedo_audio_tx_ktv_process(&ch.c, 16, in.data(), l2.data(), r2.data(), 240);
  EXPECT_EQ(l2, in);
  // Overlap-safe copy, left to right.
  Seq buf = {1, 2, 3, 4, 5, 6};
  kedo_audio_tx_ktv_copy_left_to_right(buf.data(), buf.data() + 1, 4);
  EXPECT_EQ(buf, (Seq{1, 1, 2, 3, 4, 6}));
  kedo_audio_tx_ktv_copy_left_to_right(buf.data(), buf.data() + 1, -2);
  EXPECT_EQ(buf, (Seq{1, 1, 2, 3, 4, 6}));
}

// The chain with every block on equals the exported blocks wired by hand in
// the stated order: howling, gramophone, equalizer, copy, reverb, echo,
// compressor; frame after frame, through the 16- and 32-bit wrappers.
TEST(KtvChain, EqualsItsBlocksInOrder) {
  for (int format : {16, 24}) {
    Settings s;
    Chain ch;
    all_on(&ch.c, s);
    kedo_audio_tx_ktv_set_sample_rate(&ch.c, 48000);  // 240-sample compressor blocks
    Wired w(s);
    compressor_set_sample_rate(&w.comp, SAMPLE_RATE_48000);
    const Seq16 in = voice(240 * 400, 9);
    size_t differ_from_input = 0;
    for (size_t f = 0; f < 400; ++f) {
      Seq l(240), r;
      Seq16 o16l(240), o16r(240);
      Seq in32(240), o32l(240), o32r(240);
      for (int i = 0; i < 240; ++i) {
        l[i] = in[f * 240 + i] * 256;
        in32[i] = in[f * 240 + i] * 4096;  // working sample * 16
      }
      w.frame(l, r);
      if (format == 16) {
        kedo_audio_tx_ktv_process_16(&ch.c, const_cast<short*>(in.data() + f * 240), o16l.data(), o16r.data(), 240);
        for (int i = 0; i < 240; ++i) {
          ASSERT_EQ(o16l[i], std::clamp(l[i] >> 8, -32768, 32767)) << f << " " << i;
          ASSERT_EQ(o16r[i], std::clamp(r[i] >> 8, -32768, 32767)) << f << " " << i;
          differ_from_input += o16l[i] != in[f * 240 + i];
        }
      } else {
        kedo_audio_tx_ktv_process_24(&ch.c, in32.data(), o32l.data(), o32r.data(), 240);
        for (int i = 0; i < 240; ++i) {
          ASSERT_EQ(o32l[i], std::clamp(l[i], -8388608, 8388607) * 16) << f << " " << i;
          ASSERT_EQ(o32r[i], std::clamp(r[i], -8388608, 8388607) * 16) << f << " " << i;
        }
      }
    }
    if (format == 16) {
      EXPECT_GT(differ_from_input, 90000u);
    }
  }
}

// Switching noise suppression on changes nothing: the status reads 0 after
// the frame, the output equals a chain that was never asked, and neither
// the suppressor nor the branch's high-pass has been touched.
TEST(KtvChain, NoiseBranchNeverRuns) {
  Settings s;
  Chain asked, plain;
  all_on(&asked.c, s);
  all_on(&plain.c, s);
  std::vector<unsigned char> ns_before(sizeof(NsxInst_t_));
  std::memcpy(ns_before.data(), asked.c.ns, sizeof(NsxInst_t_));
  const Seq16 in = voice(240 * 50, 3);
  for (size_t f = 0; f < 50; ++f) {
    kedo_audio_tx_ktv_noise_canceling_setstatus(&asked.c, 1);
    Seq16 al(240), ar(240), pl(240), pr(240);
    kedo_audio_tx_ktv_process_16(&asked.c, const_cast<short*>(in.data() + f * 240), al.data(), ar.data(), 240);
    kedo_audio_tx_ktv_process_16(&plain.c, const_cast<short*>(in.data() + f * 240), pl.data(), pr.data(), 240);
    int st = -1;
    kedo_audio_tx_ktv_noise_canceling_getstatus(&asked.c, &st);
    ASSERT_EQ(st, 0);
    ASSERT_EQ(al, pl);
    ASSERT_EQ(ar, pr);
  }
  EXPECT_EQ(0, std::memcmp(ns_before.data(), asked.c.ns, sizeof(NsxInst_t_)));
  EXPECT_EQ(Seq(asked.c.highpass->state, asked.c.highpass->state + 5), Seq(5, 0));
}

// count above the 256-sample buffers is refused (-1, nothing written, no
// block runs); count 0 or negative returns 0 and writes nothing; a null
// chain returns -1. Canaries around every buffer.
TEST(KtvChain, WrapperEdges) {
  Chain ch;
  Settings s;
  all_on(&ch.c, s);
  Seq16 in16(300, 1000), l16(302, 77), r16(302, 77);
  Seq in32(300, 1 << 20), l32(302, 77), r32(302, 77);
  const int echo_index = ch.c.echo->left->index;
  for (int count : {257, 300, INT_MAX}) {
    EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in16.data(), l16.data() + 1, r16.data() + 1, count), -1);
    EXPECT_EQ(kedo_audio_tx_ktv_process_24(&ch.c, in32.data(), l32.data() + 1, r32.data() + 1, count), -1);
    EXPECT_EQ(kedo_audio_tx_ktv_process(&ch.c, 16, in16.data(), l16.data() + 1, r16.data() + 1, count), -1);
  }
  for (int count : {0, -1, INT_MIN}) {
    EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in16.data(), l16.data() + 1, r16.data() + 1, count), 0);
    EXPECT_EQ(kedo_audio_tx_ktv_process_24(&ch.c, in32.data(), l32.data() + 1, r32.data() + 1, count), 0);
  }
  EXPECT_EQ(l16, Seq16(302, 77));
  EXPECT_EQ(r16, Seq16(302, 77));
  EXPECT_EQ(l32, Seq(302, 77));
  EXPECT_EQ(r32, Seq(302, 77));
  EXPECT_EQ(ch.c.echo->left->index, echo_index);  // no block ran
  EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in16.data(), l16.data() + 1, r16.data() + 1, 256), 0);
  EXPECT_EQ((Seq{l16[0], l16[257], r16[0], r16[257]}), (Seq{77, 77, 77, 77}));
  EXPECT_EQ(kedo_audio_tx_ktv_process_16(nullptr, in16.data(), l16.data(), r16.data(), 240), -1);
  EXPECT_EQ(kedo_audio_tx_ktv_process(nullptr, 24, in32.data(), l32.data(), r32.data(), 240), -1);
}
