// Speaker-boost chain: rate mapping, the output clamp, stereo/mono choice,
// block order, the format wrappers and their refusal of oversize blocks.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kafx_proc/speaker_boost_chain.h"

namespace {

struct Chain {
  kedo_speaker_boost_t c{};
  Chain() {
    kedo_speaker_boost_init(&c);
    kedo_speaker_boost_set_sample_rate(&c, 48000);
  }
  ~Chain() { kedo_speaker_boost_end(&c); }
  void all_off() {
    kedo_speaker_boost_cb_setstatus(&c, 0);
    kedo_speaker_boost_p_eq_setstatus(&c, 0);
    kedo_speaker_boost_sbs_setstatus(&c, 0);
  }
};

TEST(SpeakerChain, InitDefaultsAndRateMapping) {
  Chain ch;
  EXPECT_EQ(ch.c.enable, 0);
  EXPECT_EQ(ch.c.channel_num, 2);
  int v = -1;
  kedo_speaker_boost_cb_getstatus(&ch.c, &v);
  EXPECT_EQ(v, 1);
  kedo_speaker_boost_p_eq_getstatus(&ch.c, &v);
  EXPECT_EQ(v, 0);
  kedo_speaker_boost_sbs_getstatus(&ch.c, &v);
  EXPECT_EQ(v, 0);
  const struct {
    unsigned rate;
    SampleRateType cls;
  } cases[] = {{44100, SAMPLE_RATE_44100}, {48000, SAMPLE_RATE_48000}, {22050, SAMPLE_RATE_48000},
               {88200, SAMPLE_RATE_48000}, {96000, SAMPLE_RATE_96000}, {192000, SAMPLE_RATE_192000},
               {176400, SAMPLE_RATE_48000}, {0, SAMPLE_RATE_48000},   {384000, SAMPLE_RATE_48000}};
  for (const auto& t : cases) {
    kedo_speaker_boost_set_sample_rate(&ch.c, t.rate);
    EXPECT_EQ(ch.c.rate_type, t.cls) << t.rate;
  }
}

TEST(SpeakerChain, AllOffOnlyClamps) {
  Chain ch;
  ch.all_off();
  std::vector<int> l = {8388608, -8388608, 8388607, -8388607, 0, 2147483647, -2147483647 - 1};
  std::vector<int> r = {-8388608, 8388608, 1, -1, 5, -5, 9000000};
  kedo_speaker_boost_core_process(&ch.c, l.data(), r.data(), 7);
  EXPECT_EQ(l, (std::vector<int>{8388607, -8388607, 8388607, -8388607, 0, 8388607, -8388607}));
  EXPECT_EQ(r, (std::vector<int>{-8388607, 8388607, 1, -1, 5, -5, 8388607}));
}

TEST(SpeakerChain, MonoModeFoldsLeftAndLeavesRight) {
  Chain ch;
  kedo_speaker_boost_set_channel_num(&ch.c, 1);
  int num;
  kedo_speaker_boost_cb_get_channel_num(&ch.c, &num);
  EXPECT_EQ(num, 1);  // the chain's setter writes the balance block's copy too
  std::vector<int> l = {1000, 3, -9000000};
  std::vector<int> r = {3000, 4, 100};
  kedo_speaker_boost_core_process(&ch.c, l.data(), r.data(), 3);
  EXPECT_EQ(l, (std::vector<int>{2000, 3, -4499950}));
  EXPECT_EQ(r, (std::vector<int>{3000, 4, 100}));
  // process_16 in mono mode writes the left result to both outputs.
  int16_t il[2] = {100, -300}, ir[2] = {300, 100}, ol[2], orr[2];
  kedo_speaker_boost_process_16(&ch.c, il, ir, ol, orr, 2);
  EXPECT_EQ(ol[0], 200);
  EXPECT_EQ(ol[1], -100);
  EXPECT_EQ(orr[0], 200);
  EXPECT_EQ(orr[1], -100);
}

TEST(SpeakerChain, BalanceChannelNumDoesNotSwitchMode) {
  Chain ch;
  kedo_speaker_boost_cb_set_channel_num(&ch.c, 1);
  EXPECT_EQ(ch.c.channel_num, 2);
  int l = 1000, r = 3000;
  kedo_speaker_boost_core_process(&ch.c, &l, &r, 1);
  EXPECT_EQ(l, 1000);  // still stereo: ratio 0 leaves both channels
  EXPECT_EQ(r, 3000);
}

TEST(SpeakerChain, BalanceThenEqualizerOrder) {
  Chain ch;
  kedo_speaker_boost_cb_set_channel_ration(&ch.c, 8192);  // left := right
  kedo_speaker_boost_p_eq_setstatus(&ch.c, 1);
  kedo_speaker_boost_p_eq_set_gain_left(&ch.c, 16384);  // then x2 on the left
  int l = 1000, r = 3000;
  kedo_speaker_boost_core_process(&ch.c, &l, &r, 1);
  EXPECT_EQ(l, 6000);
  EXPECT_EQ(r, 3000);
  int g;
  kedo_speaker_boost_p_eq_get_gain_left(&ch.c, &g);
  EXPECT_EQ(g, 16384);
}

TEST(SpeakerChain, FormatWrappers) {
  Chain ch;
  int16_t in16[4] = {32767, -32768, -1, 5};
  int16_t out_l[4], out_r[4];
  kedo_speaker_boost_process_16(&ch.c, in16, in16, out_l, out_r, 4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(out_l[i], in16[i]);
    EXPECT_EQ(out_r[i], in16[i]);
  }
  // 32-bit wrapper: audio at 16x the working scale; >> 4 truncates.
  int32_t in32[4] = {2147483647, -2147483647 - 1, 17, -17};
  int32_t o_l[4], o_r[4];
  kedo_speaker_boost_process_24(&ch.c, in32, in32, o_l, o_r, 4);
  EXPECT_EQ(o_l[0], 8388607 * 16);  // clamped to 24 bits first
  EXPECT_EQ(o_l[1], -8388607 * 16);
  EXPECT_EQ(o_l[2], 16);
  EXPECT_EQ(o_r[3], -32);
  int16_t v2[1] = {1234}, v2o[1], v2r[1];
  kedo_speaker_boost_process_v2(&ch.c, 16, v2, v2, v2o, v2r, 1);
  EXPECT_EQ(v2o[0], 1234);
  int32_t w[1] = {1600}, wo[1], wr[1];
  kedo_speaker_boost_process_v2(&ch.c, 24, w, w, wo, wr, 1);
  EXPECT_EQ(wo[0], 1600);
}

TEST(SpeakerChain, OversizeWrapperBlockIsRefused) {
  Chain ch;
  std::vector<int16_t> in(300, 1000), out_l(300, -7), out_r(300, -7);
  kedo_speaker_boost_process_16(&ch.c, in.data(), in.data(), out_l.data(), out_r.data(), 300);
  EXPECT_EQ(out_l[0], -7);
  EXPECT_EQ(out_r[299], -7);
  std::vector<int32_t> in32(257, 1000), o32(257, -7);
  kedo_speaker_boost_process_24(&ch.c, in32.data(), in32.data(), o32.data(), o32.data(), 257);
  EXPECT_EQ(o32[0], -7);
  kedo_speaker_boost_process_16(&ch.c, in.data(), in.data(), out_l.data(), out_r.data(), 256);
  EXPECT_EQ(out_l[255], 1000);
}

TEST(SpeakerChain, DrcParametersReachTheLimiters) {
  Chain ch;
  const drc_param_t p = {1, 6, 20000, 9000, 1};  // denoise threshold stored as at least 2
  kedo_speaker_boost_sbs_set_drc_high_right(&ch.c, &p);
  drc_param_t q{};
  kedo_speaker_boost_sbs_get_drc_high_right(&ch.c, &q);
  EXPECT_EQ(q.attact_order, 1);
  EXPECT_EQ(q.release_order, 6);
  EXPECT_EQ(q.threshold, 20000);
  EXPECT_EQ(q.volume, 9000);
  EXPECT_EQ(q.denoise_threshold, 2);
  EXPECT_EQ(ch.c.sbs->drc_high_right->threshold, 20000);
  EXPECT_EQ(ch.c.sbs->drc_high_left->threshold, 32767);
  kedo_speaker_boost_sbs_get_drc_full_left(&ch.c, &q);
  EXPECT_EQ(q.threshold, 32767);
  EXPECT_EQ(q.release_order, 5);
}

}  // namespace
