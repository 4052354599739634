// Karaoke front end: the forwarding of every setter to its chain function
// (the front end equals a chain driven directly), the one log line, and the
// choices at the edges (null handle, count above 256, count 0).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <tuple>
#include <vector>

#include "kafx_proc/ktv.h"
#include "tests/support/log_capture.h"
#include "tools/howl_sim.h"

namespace {

using Seq16 = std::vector<short>;

// Voice-like 16-bit material, one second at 48 kHz.
Seq16 voice() {
  const std::vector<double> v = howl_sim::voice_like(1, 5, -12);
  Seq16 s(v.size());
  for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<short>(std::clamp(std::lrint(v[i] / 256), -32768L, 32767L));
  return s;
}

// Every front-end setter, its chain function and a value to send.
const std::tuple<void (*)(void*, int), void (*)(kedo_audio_tx_ktv_t*, int), int> kForwards[] = {
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

// Runs two handles (or a handle and a chain) on the same input, frame by
// frame, and expects the same outputs.
template <typename A, typename B>
void expect_same_output(A a, B b) {
  const Seq16 in = voice();
  for (size_t at = 0; at + 240 <= in.size(); at += 240) {
    Seq16 x(in.begin() + at, in.begin() + at + 240), al(240), ar(240), bl(240), br(240);
    ASSERT_EQ(a(x.data(), al.data(), ar.data()), 0);
    b(x.data(), bl.data(), br.data());
    ASSERT_EQ(al, bl) << at;
    ASSERT_EQ(ar, br) << at;
  }
}

}  // namespace

// A handle at 16 bits with every setter used equals a chain given the same calls.
TEST(KtvFrontEnd, ForwardsEveryCallToTheChain) {
  void* h = kafx_ktv_init();
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(static_cast<kafx_ktv_t*>(h)->sample_format, 16);
  kedo_audio_tx_ktv_t ref{};
  kedo_audio_tx_ktv_init(&ref);
  int eq[10] = {3, 3, 0, -4, 5, 6, -2, 0, 8, -9};
  kafx_ktv_eq_setparameter(h, eq);
  kedo_audio_tx_ktv_eq_set_param_index(&ref, eq);
  for (auto [front, chain, value] : kForwards) {
    front(h, value);
    chain(&ref, value);
  }
  expect_same_output([&](short* x, short* l, short* r) { return kafx_ktv_process_16(h, x, l, r, 240); },
                     [&](short* x, short* l, short* r) { kedo_audio_tx_ktv_process_16(&ref, x, l, r, 240); });
  kedo_audio_tx_ktv_end(&ref);
  kafx_ktv_deinit(h);
}

// Noise enable logs one line and is inaudible; the voice gain is inaudible
// while the compressor is off.
TEST(KtvFrontEnd, NoiseEnableLogsAndIsInaudibleVoiceGainNeedsTheCompressor) {
  void* a = kafx_ktv_init();
  void* b = kafx_ktv_init();
  {
    kafx_test::LogCapture log;
    kafx_ktv_noise_canceling_enable(a, 1);
    kafx_ktv_set_voice_gain(a, 30000);
    kafx_ktv_reverb_enable(a, 1);
    kafx_ktv_reverb_enable(b, 1);
    ASSERT_EQ(log.all().size(), 1u);
    EXPECT_EQ(log.all()[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(log.all()[0].tag, "kafx_ktv_wrapper");
    EXPECT_EQ(log.all()[0].message, "kafx_ktv_noise_canceling_enable: 1");
  }
  expect_same_output([&](short* x, short* l, short* r) { return kafx_ktv_process_16(a, x, l, r, 240); },
                     [&](short* x, short* l, short* r) { kafx_ktv_process_16(b, x, l, r, 240); });
  kafx_ktv_deinit(a);
  kafx_ktv_deinit(b);
}

// Null handle: process returns -1, setters and deinit do nothing. Count
// above 256: -1 and nothing written; count 0 or below: 0 and nothing written.
TEST(KtvFrontEnd, NullHandleAndFrameLimits) {
  Seq16 in(300, 1000), l(300, 5), r(300, 5);
  EXPECT_EQ(kafx_ktv_process_16(nullptr, in.data(), l.data(), r.data(), 240), -1);
  for (const auto& f : kForwards) std::get<0>(f)(nullptr, std::get<2>(f));
  kafx_ktv_eq_setparameter(nullptr, nullptr);
  kafx_ktv_deinit(nullptr);
  void* h = kafx_ktv_init();
  for (int count : {257, 300, INT_MAX, 0, -1})
    EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), count), count > 256 ? -1 : 0) << count;
  EXPECT_EQ(l, Seq16(300, 5));
  EXPECT_EQ(r, Seq16(300, 5));
  EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), 256), 0);
  EXPECT_EQ((std::vector<int>{l[255] != 5, l[256], r[256]}), (std::vector<int>{1, 5, 5}));
  kafx_ktv_deinit(h);
}
