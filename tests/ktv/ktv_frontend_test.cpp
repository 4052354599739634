// Karaoke front end: the forwarding of every setter to its chain function
// (the front end equals a chain driven directly), the one log line, and the
// null handle.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "kafx_proc/ktv.h"
#include "support/sequences.h"
#include "tests/support/log_capture.h"
#include "tools/howl_sim.h"

namespace {

using Seq16 = std::vector<short>;

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
  const Seq16 in = kafx_test::to16(howl_sim::voice_like(1, 5, -12));  // one second of voice
  for (size_t at = 0; at + 240 <= in.size(); at += 240) {
    Seq16 x(in.begin() + at, in.begin() + at + 240), al(240), ar(240), bl(240), br(240);
    ASSERT_EQ(kafx_ktv_process_16(h, x.data(), al.data(), ar.data(), 240), 0);
    kedo_audio_tx_ktv_process_16(&ref, x.data(), bl.data(), br.data(), 240);
    ASSERT_EQ(al, bl) << at;
    ASSERT_EQ(ar, br) << at;
  }
  kedo_audio_tx_ktv_end(&ref);
  kafx_ktv_deinit(h);
}

// Noise enable logs one line; no other setter logs. (That the noise branch
// never runs is checked on the chain.)
TEST(KtvFrontEnd, NoiseEnableLogsOneLine) {
  void* h = kafx_ktv_init();
  kafx_test::LogCapture log;
  for (auto [front, chain, value] : kForwards) front(h, value);
  ASSERT_EQ(log.all().size(), 1u);
  EXPECT_EQ(log.all()[0].priority, ANDROID_LOG_DEBUG);
  EXPECT_EQ(log.all()[0].tag, "kafx_ktv_wrapper");
  EXPECT_EQ(log.all()[0].message, "kafx_ktv_noise_canceling_enable: 1");
  kafx_ktv_deinit(h);
}

// Null handle: process returns -1, setters and deinit do nothing. The count
// reaches the chain unchanged (its limits are checked there): 257 is refused.
TEST(KtvFrontEnd, NullHandleAndCountForwarded) {
  Seq16 in(300, 1000), l(300, 5), r(300, 5);
  EXPECT_EQ(kafx_ktv_process_16(nullptr, in.data(), l.data(), r.data(), 240), -1);
  for (const auto& f : kForwards) std::get<0>(f)(nullptr, std::get<2>(f));
  kafx_ktv_eq_setparameter(nullptr, nullptr);
  kafx_ktv_deinit(nullptr);
  void* h = kafx_ktv_init();
  EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), 257), -1);
  EXPECT_EQ(l, Seq16(300, 5));
  EXPECT_EQ(kafx_ktv_process_16(h, in.data(), l.data(), r.data(), 256), 0);
  EXPECT_EQ((std::vector<int>{l[255] != 5, l[256], r[256]}), (std::vector<int>{1, 5, 5}));
  kafx_ktv_deinit(h);
}
