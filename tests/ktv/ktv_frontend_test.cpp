// Karaoke front end: the handle, the forwarding of every setter to its
// chain function (the front end equals a chain driven directly), the one
// log line, and the choices at the edges (null handle, count above 256).
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <tuple>
#include <vector>

#include "kafx_proc/ktv.h"
#include "tests/support/log_capture.h"

namespace {

using Seq16 = std::vector<short>;
using Seq = std::vector<int>;

Seq16 tone_bursts(size_t n) {
  Seq16 s(n);
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / 48000.0;
    const double env = (i / 4800) % 3 == 2 ? 0.05 : 0.9;
    s[i] = static_cast<short>(std::lround(
        32767.0 * env * (0.5 * std::sin(2 * std::numbers::pi * 220 * t) + 0.3 * std::sin(2 * std::numbers::pi * 1100 * t))));
  }
  return s;
}

using FrontSet = void (*)(void*, int);
using ChainSet = void (*)(kedo_audio_tx_ktv_t*, int);

// Every front-end setter, its chain function and a value to send.
const std::tuple<FrontSet, ChainSet, int> kForwards[] = {
    {kafx_ktv_hw_howling_canceling_enable, kedo_audio_tx_ktv_howling_canceling_setstatus, 1},
    {kafx_ktv_gramophone_enable, kedo_audio_tx_ktv_gramophone_setstatus, 1},
    {kafx_ktv_eq_enable, kedo_audio_tx_ktv_eq_setstatus, 1},
    {kafx_ktv_reverb_enable, kedo_audio_tx_ktv_reverb_setstatus, 1},
    {kafx_ktv_reverb_setroomsize, kedo_audio_tx_ktv_reverb_setroomsize, 7000},
    {kafx_ktv_reverb_setdamp, kedo_audio_tx_ktv_reverb_setdamp, 2000},
    {kafx_ktv_reverb_setwet, kedo_audio_tx_ktv_reverb_setwet, 5000},
    {kafx_ktv_reverb_setdry, kedo_audio_tx_ktv_reverb_setdry, 6000},
    {kafx_ktv_reverb_setwidth, kedo_audio_tx_ktv_reverb_setwidth, 3000},
    {kafx_ktv_reverb_setgain, kedo_audio_tx_ktv_reverb_setgain, 200},
    {kafx_ktv_iirecho_enable, kedo_audio_tx_ktv_iirecho_setstatus, 1},
    {kafx_ktv_iirecho_setfeedback, kedo_audio_tx_ktv_iirecho_setfeedback, 5000},
    {kafx_ktv_iirecho_setdelay, kedo_audio_tx_ktv_iirecho_setdelay, 90},
    {kafx_ktv_iirecho_setwet, kedo_audio_tx_ktv_iirecho_setwet, 4000},
    {kafx_ktv_iirecho_setdry, kedo_audio_tx_ktv_iirecho_setdry, 5000},
    {kafx_ktv_compressor_enable, kedo_audio_tx_ktv_compressor_setstatus, 1},
    {kafx_ktv_set_voice_gain, kedo_audio_tx_ktv_set_volume, 20000},
    {kafx_ktv_noise_canceling_enable, kedo_audio_tx_ktv_noise_canceling_setstatus, 1},
};

}  // namespace

TEST(KtvFrontEnd, InitHoldsTheChainAtSixteenBits) {
  void* h = kafx_ktv_init();
  ASSERT_NE(h, nullptr);
  auto* rec = static_cast<kafx_ktv_t*>(h);
  EXPECT_EQ(rec->sample_format, 16);
  EXPECT_EQ((Seq{rec->chain.volume, rec->chain.rate_type}), (Seq{8192, 1}));
  kafx_ktv_deinit(h);
}

// Front end with every setter used equals a chain given the same calls.
TEST(KtvFrontEnd, ForwardsEveryCallToTheChain) {
  void* h = kafx_ktv_init();
  kedo_audio_tx_ktv_t ref{};
  kedo_audio_tx_ktv_init(&ref);
  int eq[10] = {3, 3, 0, -4, 5, 6, -2, 0, 8, -9};
  kafx_ktv_eq_setparameter(h, eq);
  kedo_audio_tx_ktv_eq_set_param_index(&ref, eq);
  for (auto [front, chain, value] : kForwards) {
    front(h, value);
    chain(&ref, value);
  }
  const Seq16 in = tone_bursts(240 * 200);
  for (size_t f = 0; f < 200; ++f) {
    Seq16 hl(240), hr(240), rl(240), rr(240);
    short* x = const_cast<short*>(in.data() + f * 240);
    ASSERT_EQ(kafx_ktv_process_16(h, x, hl.data(), hr.data(), 240), 0);
    kedo_audio_tx_ktv_process_16(&ref, x, rl.data(), rr.data(), 240);
    ASSERT_EQ(hl, rl) << f;
    ASSERT_EQ(hr, rr) << f;
  }
  kedo_audio_tx_ktv_end(&ref);
  kafx_ktv_deinit(h);
}

TEST(KtvFrontEnd, NoiseEnableLogsAndIsInaudibleVoiceGainNeedsTheCompressor) {
  void* a = kafx_ktv_init();
  void* b = kafx_ktv_init();
  {
    kafx_test::LogCapture log;
    kafx_ktv_noise_canceling_enable(a, 1);
    kafx_ktv_set_voice_gain(a, 30000);  // compressor off: no audible effect
    kafx_ktv_reverb_enable(a, 1);
    kafx_ktv_reverb_enable(b, 1);
    ASSERT_EQ(log.all().size(), 1u);
    EXPECT_EQ(log.all()[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(log.all()[0].tag, "kafx_ktv_wrapper");
    EXPECT_EQ(log.all()[0].message, "kafx_ktv_noise_canceling_enable: 1");
  }
  const Seq16 in = tone_bursts(240 * 40);
  for (size_t f = 0; f < 40; ++f) {
    Seq16 al(240), ar(240), bl(240), br(240);
    short* x = const_cast<short*>(in.data() + f * 240);
    kafx_ktv_process_16(a, x, al.data(), ar.data(), 240);
    kafx_ktv_process_16(b, x, bl.data(), br.data(), 240);
    ASSERT_EQ(al, bl) << f;
    ASSERT_EQ(ar, br) << f;
  }
  kafx_ktv_deinit(a);
  kafx_ktv_deinit(b);
}

// Null handle: process returns -1, setters and deinit do nothing. Count
// above 256: -1 and nothing written; count 0: 0 and nothing written.
TEST(KtvFrontEnd, NullHandleAndFrameLimits) {
  Seq16 in(300, 1000), l(300, 5), r(300, 5);
  EXPECT_EQ(kafx_ktv_process_16(nullptr, in.data(), l.data(), r.data(), 240), -1);
  for (auto [front, chain, value] : kForwards) {
    (void)chain;
    front(nullptr, value);
  }
  kafx_ktv_eq_setparameter(nullptr, nullptr);
  kafx_ktv_deinit(nullptr);
  void* h = kafx_ktv_init();
  for (int count : {257, 300, INT_MAX, 0, -1}) {
    EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), count), count > 256 ? -1 : 0) << count;
  }
  EXPECT_EQ(l, Seq16(300, 5));
  EXPECT_EQ(r, Seq16(300, 5));
  EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), 256), 0);
  EXPECT_EQ((Seq{l[255] != 5, l[256], r[256]}), (Seq{1, 5, 5}));
  kafx_ktv_deinit(h);
}
