// Karaoke chain: defaults, accessors and rate classes, the bypass and
// conversion paths, the whole chain equal to its exported blocks wired in
// the stated order with the noise branch asked for and never running, and
// the wrappers' choices at the edges (count above the 256-sample buffers,
// count 0, a null chain).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <tuple>
#include <vector>

#include "kafx_proc/ktv_chain.h"
#include "support/sequences.h"
#include "tools/howl_sim.h"

namespace {

using Seq = std::vector<int>;
using Seq16 = std::vector<short>;
using Set = void (*)(kedo_audio_tx_ktv_t*, int);
using Get = void (*)(kedo_audio_tx_ktv_t*, int*);

struct Chain {
  kedo_audio_tx_ktv_t c{};
  Chain() { kedo_audio_tx_ktv_init(&c); }
  ~Chain() { kedo_audio_tx_ktv_end(&c); }
};

// A chain with every block on: these settings through the chain's setters,
// or the same values through the blocks' own setters; the chain's getters.
int kEq[10] = {6, -3, 0, 4, -8, 2, 9, -15, 15, 1};
const std::tuple<Set, void (*)(reverb_t*, int), Get, int> kReverb[] = {
    {kedo_audio_tx_ktv_reverb_setroomsize, reverb_setroomsize, kedo_audio_tx_ktv_reverb_getroomsize, 6000},
    {kedo_audio_tx_ktv_reverb_setdamp, reverb_setdamp, kedo_audio_tx_ktv_reverb_getdamp, 3000},
    {kedo_audio_tx_ktv_reverb_setwet, reverb_setwet, kedo_audio_tx_ktv_reverb_getwet, 4000},
    {kedo_audio_tx_ktv_reverb_setdry, reverb_setdry, kedo_audio_tx_ktv_reverb_getdry, 6000},
    {kedo_audio_tx_ktv_reverb_setwidth, reverb_setwidth, kedo_audio_tx_ktv_reverb_getwidth, 7000},
    {kedo_audio_tx_ktv_reverb_setgain, reverb_setgain, kedo_audio_tx_ktv_reverb_getgain, 300}};
const std::tuple<Set, void (*)(iirecho*, int), Get, int> kEcho[] = {
    {kedo_audio_tx_ktv_iirecho_setfeedback, iirecho_setfeedback, kedo_audio_tx_ktv_iirecho_getfeedback, 6000},
    {kedo_audio_tx_ktv_iirecho_setdelay, iirecho_setdelay, kedo_audio_tx_ktv_iirecho_getdelay, 120},
    {kedo_audio_tx_ktv_iirecho_setwet, iirecho_setwet, kedo_audio_tx_ktv_iirecho_getwet, 3000},
    {kedo_audio_tx_ktv_iirecho_setdry, iirecho_setdry, kedo_audio_tx_ktv_iirecho_getdry, 4000}};
constexpr int kVolume = 12000;

void all_on(kedo_audio_tx_ktv_t* c) {
  for (Set s : {kedo_audio_tx_ktv_howling_canceling_setstatus, kedo_audio_tx_ktv_gramophone_setstatus,
                kedo_audio_tx_ktv_eq_setstatus, kedo_audio_tx_ktv_reverb_setstatus, kedo_audio_tx_ktv_iirecho_setstatus,
                kedo_audio_tx_ktv_compressor_setstatus})
    s(c, 1);
  kedo_audio_tx_ktv_eq_set_param_index(c, kEq);
  for (auto [chain, block, get, v] : kReverb) chain(c, v);
  for (auto [chain, block, get, v] : kEcho) chain(c, v);
  kedo_audio_tx_ktv_set_volume(c, kVolume);
}

// Voice-like 16-bit material with a steady 2.5 kHz whistle, loud enough to
// drive the compressor and the canceller.
Seq16 voice(double seconds, uint64_t seed) {
  std::vector<double> v = howl_sim::voice_like(seconds, seed, -16);
  const std::vector<double> t = howl_sim::tone(2500, seconds, -14);
  for (size_t i = 0; i < v.size(); ++i) v[i] += t[i];
  return kafx_test::to16(v);
}

}  // namespace

TEST(KtvChain, DefaultsAccessorsRateClassesAndEnd) {
  Chain ch;
  kedo_audio_tx_ktv_t& c = ch.c;
  // Statuses after init: the echo on by its own default, every other block
  // off; then each status and each setting round trips through the getters.
  const std::tuple<Set, Get, int> statuses[] = {
      {kedo_audio_tx_ktv_howling_canceling_setstatus, kedo_audio_tx_ktv_howling_canceling_getstatus, 0},
      {kedo_audio_tx_ktv_gramophone_setstatus, kedo_audio_tx_ktv_gramophone_getstatus, 0},
      {kedo_audio_tx_ktv_eq_setstatus, kedo_audio_tx_ktv_eq_getstatus, 0},
      {kedo_audio_tx_ktv_reverb_setstatus, kedo_audio_tx_ktv_reverb_getstatus, 0},
      {kedo_audio_tx_ktv_iirecho_setstatus, kedo_audio_tx_ktv_iirecho_getstatus, 1},
      {kedo_audio_tx_ktv_compressor_setstatus, kedo_audio_tx_ktv_compressor_getstatus, 0},
      {kedo_audio_tx_ktv_noise_canceling_setstatus, kedo_audio_tx_ktv_noise_canceling_getstatus, 0}};
  int v = -1;
  auto round_trip = [&](Set set, Get get, int value) {
    set(&c, value);
    get(&c, &v);
    EXPECT_EQ(v, value);
  };
  for (auto [set, get, init] : statuses) {
    get(&c, &v);
    EXPECT_EQ(v, init);
    round_trip(set, get, 1 - init);
  }
  for (auto [set, block, get, value] : kReverb) round_trip(set, get, value);
  for (auto [set, block, get, value] : kEcho) round_trip(set, get, value);
  EXPECT_EQ((Seq{c.volume, c.rate_type}), (Seq{8192, 1}));
  // The idle noise branch's high-pass holds the stated coefficients.
  EXPECT_EQ(Seq(c.highpass->coef, c.highpass->coef + 5), (Seq{1027072, -2054144, 1027072, 2048512, -1001728}));
  // Equalizer indices and raw five-value rows round trip through the chain.
  int idx[10] = {1, 2, 3, 4, 5, -1, -2, -3, -4, 15}, back[10], rows5[10][5], got[10][5];
  kedo_audio_tx_ktv_eq_set_param_index(&c, idx);
  kedo_audio_tx_ktv_eq_get_param_index(&c, back);
  EXPECT_EQ(0, std::memcmp(idx, back, sizeof idx));
  kedo_audio_tx_ktv_eq_getparameter(&c, rows5);
  for (auto& row : rows5) row[0] ^= 1;
  kedo_audio_tx_ktv_eq_setparameter(&c, rows5);
  kedo_audio_tx_ktv_eq_getparameter(&c, got);
  EXPECT_EQ(0, std::memcmp(rows5, got, sizeof got));
  // Rate -> class; the compressor's 5 ms block follows.
  for (auto [rate, cls, frame] : {std::tuple<unsigned, int, int>{44100, 0, 220}, {48000, 1, 240}, {96000, 2, 480},
                                  {192000, 3, 960}, {8000, 1, 240}, {0, 1, 240}, {32000, 1, 240}}) {
    kedo_audio_tx_ktv_set_sample_rate(&c, rate);
    EXPECT_EQ((Seq{c.rate_type, c.compressor->drc_left->frame_len, c.compressor->drc_right->frame_len}),
              (Seq{cls, frame, frame}))
        << rate;
  }
  kedo_audio_tx_ktv_end(&c);
  for (const void* p : std::initializer_list<const void*>{c.reverb, c.equalizer, c.compressor, c.echo, c.howling, c.gramo,
                                                          c.highpass, c.ns, c.down, c.up, c.left, c.right})
    EXPECT_EQ(p, nullptr);
  kedo_audio_tx_ktv_init(&c);  // the fixture ends it again
}

// Every status 0: the 16-bit path (process_16, or process with format 16)
// returns sat16((in << 8) >> 8) = in on both sides; the 32-bit path (format
// 24, 32, 0 or anything else) returns (in >> 4) clamped to 24 bits, << 4.
TEST(KtvChain, BypassAndConversions) {
  Chain ch;
  kedo_audio_tx_ktv_iirecho_setstatus(&ch.c, 0);
  Seq16 in = voice(0.1, 1);
  in.resize(240);
  in[0] = 32767;
  in[1] = -32768;
  in[2] = -1;
  for (bool through_process : {false, true}) {
    Seq16 l(240, 7), r(240, 7);
    EXPECT_EQ(through_process ? kedo_audio_tx_ktv_process(&ch.c, 16, in.data(), l.data(), r.data(), 240)
                              : kedo_audio_tx_ktv_process_16(&ch.c, in.data(), l.data(), r.data(), 240),
              0);
    EXPECT_EQ(l, in);
    EXPECT_EQ(r, in);
  }
  const Seq in32 = {INT_MAX, INT_MIN, 0x7ffffff0, -0x7ffffff0, 15, -15, -16, 134217727, 100 << 4, -1};
  const Seq want32 = {134217712, -134217728, 134217712, -134217728, 0, -16, -16, 134217712, 100 << 4, -16};
  for (int format : {24, 32, 0, 17}) {
    Seq a(in32.size(), 5), b(in32.size(), 5), x = in32;
    EXPECT_EQ(kedo_audio_tx_ktv_process(&ch.c, format, x.data(), a.data(), b.data(), 10), 0);
    EXPECT_EQ(a, want32) << format;
    EXPECT_EQ(b, want32) << format;
  }
  // Overlap-safe copy, left to right; a negative count copies nothing.
  Seq buf = {1, 2, 3, 4, 5, 6};
  kedo_audio_tx_ktv_copy_left_to_right(buf.data(), buf.data() + 1, 4);
  kedo_audio_tx_ktv_copy_left_to_right(buf.data(), buf.data() + 1, -2);
  EXPECT_EQ(buf, (Seq{1, 1, 2, 3, 4, 6}));
}

// The chain with every block on equals the exported blocks wired by hand in
// the stated order: howling, gramophone, equalizer, copy, reverb, echo,
// compressor; frame after frame, through the 16-bit wrapper. Noise
// suppression is switched on before every frame and never runs: the output
// still equals the wiring without it, the status reads 0 after each frame,
// and neither the suppressor nor the branch's high-pass has been touched.
TEST(KtvChain, EqualsItsBlocksInOrderAndTheNoiseBranchNeverRuns) {
  Chain ch;
  all_on(&ch.c);
  std::vector<unsigned char> ns_before(sizeof(NsxInst_t_));
  std::memcpy(ns_before.data(), ch.c.ns, sizeof(NsxInst_t_));
  kedo_audio_tx_ktv_set_sample_rate(&ch.c, 48000);  // 240-sample compressor blocks
  howlingCancel howl{};
  gramophone gram{};
  equalizer_t eq{};
  reverb_t rev{};
  iirecho echo{};
  compressor_t comp{};
  howling_canceling_init(&howl);
  howling_canceling_setstatus(&howl, 1);  // the canceller copies while off
  gramophone_init(&gram);
  equalizer_init(&eq);
  equalizer_set_param_index(&eq, kEq, SAMPLE_RATE_48000);
  reverb_init(&rev);
  for (auto [chain, block, get, v] : kReverb) block(&rev, v);
  reverb_update(&rev);
  iirecho_init(&echo);
  for (auto [chain, block, get, v] : kEcho) block(&echo, v);
  compressor_init(&comp, 8192, 0);
  compressor_set_sample_rate(&comp, SAMPLE_RATE_48000);
  compressor_set_volume(&comp, kVolume);
  Seq16 in = voice(2, 9);
  size_t differ_from_input = 0;
  for (size_t at = 0; at + 240 <= in.size() && !::testing::Test::HasFailure(); at += 240) {
    Seq l(240), r;
    for (int i = 0; i < 240; ++i) l[i] = in[at + i] * 256;
    howling_canceling_process(&howl, l.data(), l.data(), 240);
    gramophone_process(&gram, l.data(), l.data(), 240);
    equalizer_process_mono(&eq, l.data(), l.data(), 240);
    r = l;
    reverb_process_stereo_24(&rev, l.data(), r.data(), l.data(), r.data(), 240);
    iirecho_processStereo(&echo, l.data(), r.data(), l.data(), r.data(), 240);
    compressor_process(&comp, l.data(), r.data(), l.data(), r.data(), 240);
    Seq16 want_l(240), want_r(240), got_l(240), got_r(240);
    for (int i = 0; i < 240; ++i) {
      want_l[i] = static_cast<short>(std::clamp(l[i] >> 8, -32768, 32767));
      want_r[i] = static_cast<short>(std::clamp(r[i] >> 8, -32768, 32767));
      differ_from_input += want_l[i] != in[at + i];
    }
    kedo_audio_tx_ktv_noise_canceling_setstatus(&ch.c, 1);
    kedo_audio_tx_ktv_process_16(&ch.c, in.data() + at, got_l.data(), got_r.data(), 240);
    int noise_status = -1;
    kedo_audio_tx_ktv_noise_canceling_getstatus(&ch.c, &noise_status);
    EXPECT_EQ(noise_status, 0) << at;
    EXPECT_EQ(got_l, want_l) << at;
    EXPECT_EQ(got_r, want_r) << at;
  }
  EXPECT_GT(differ_from_input, in.size() * 9 / 10);
  int notch_state = 0, centre = 0;  // the whistle engaged the canceller's notch path
  howling_canceling_getnotch(&howl, 0, &notch_state, &centre);
  EXPECT_EQ(notch_state, HOWLING_LOCKED);
  EXPECT_EQ(0, std::memcmp(ns_before.data(), ch.c.ns, sizeof(NsxInst_t_)));
  EXPECT_EQ(Seq(ch.c.highpass->state, ch.c.highpass->state + 5), Seq(5, 0));
  howling_canceling_end(&howl);
  gramophone_end(&gram);
  equalizer_end(&eq);
  reverb_end(&rev);
  iirecho_end(&echo);
  compressor_end(&comp);
}

// count above the 256-sample buffers is refused (-1, nothing written, no
// block runs); count 0 or negative returns 0 and writes nothing; a null
// chain returns -1. Canaries around every buffer.
TEST(KtvChain, WrapperEdges) {
  Chain ch;
  all_on(&ch.c);
  Seq16 in16(300, 1000), l16(302, 77), r16(302, 77);
  Seq in32(300, 1 << 20), l32(302, 77), r32(302, 77);
  const int echo_index = ch.c.echo->left->index;
  for (int count : {257, 300, INT_MAX, 0, -1, INT_MIN}) {
    const int want = count > 256 ? -1 : 0;
    EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in16.data(), &l16[1], &r16[1], count), want) << count;
    EXPECT_EQ(kedo_audio_tx_ktv_process(&ch.c, 16, in16.data(), &l16[1], &r16[1], count), want) << count;
    EXPECT_EQ(kedo_audio_tx_ktv_process_24(&ch.c, in32.data(), &l32[1], &r32[1], count), want) << count;
  }
  EXPECT_EQ(l16, Seq16(302, 77));
  EXPECT_EQ(r16, l16);
  EXPECT_EQ(l32, Seq(302, 77));
  EXPECT_EQ(r32, l32);
  EXPECT_EQ(ch.c.echo->left->index, echo_index);  // no block ran
  EXPECT_EQ(kedo_audio_tx_ktv_process_16(&ch.c, in16.data(), &l16[1], &r16[1], 256), 0);
  EXPECT_EQ((Seq{l16[0], l16[257], r16[0], r16[257]}), (Seq{77, 77, 77, 77}));
  EXPECT_EQ(kedo_audio_tx_ktv_process_16(nullptr, in16.data(), l16.data(), r16.data(), 240), -1);
  EXPECT_EQ(kedo_audio_tx_ktv_process(nullptr, 24, in32.data(), l32.data(), r32.data(), 240), -1);
}
