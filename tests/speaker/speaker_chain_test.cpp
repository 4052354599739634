// Speaker-boost chain: rate classes (forwarded to the boost system), the symmetric output clamp, the
// stereo/mono choice and block order, the format wrappers and their refusal of oversize blocks.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <tuple>
#include <vector>

#include "kafx_proc/speaker_boost_chain.h"

namespace {

using Prepare = void (*)(kedo_speaker_boost_t*);

struct Chain {
  kedo_speaker_boost_t c{};
  explicit Chain(Prepare prepare = nullptr) {
    kedo_speaker_boost_init(&c);
    kedo_speaker_boost_set_sample_rate(&c, 48000);
    if (prepare != nullptr) prepare(&c);
  }
  ~Chain() { kedo_speaker_boost_end(&c); }
};

void all_off(kedo_speaker_boost_t* c) { kedo_speaker_boost_cb_setstatus(c, 0); }
void mono(kedo_speaker_boost_t* c) { kedo_speaker_boost_set_channel_num(c, 1); }
void balance_count_1(kedo_speaker_boost_t* c) { kedo_speaker_boost_cb_set_channel_num(c, 1); }
void mix_then_double(kedo_speaker_boost_t* c) {
  kedo_speaker_boost_cb_set_channel_ration(c, 8192); // left := right
  kedo_speaker_boost_p_eq_setstatus(c, 1);
  kedo_speaker_boost_p_eq_set_gain_left(c, 16384); // then x2 on the left
}

TEST(SpeakerChain, InitRateClassesAndLimiterAccess) {
  Chain ch;
  int cb = -1, peq = -1, sbs = -1;
  kedo_speaker_boost_cb_getstatus(&ch.c, &cb);
  kedo_speaker_boost_p_eq_getstatus(&ch.c, &peq);
  kedo_speaker_boost_sbs_getstatus(&ch.c, &sbs);
  EXPECT_EQ((std::vector{ch.c.enable, ch.c.channel_num, cb, peq, sbs}), (std::vector{0, 2, 1, 0, 0}));
  // Rate -> class -> the boost system's limiter block length.
  const std::tuple<unsigned, SampleRateType, int> rates[] = {
      {44100, SAMPLE_RATE_44100, 220}, {48000, SAMPLE_RATE_48000, 240},   {22050, SAMPLE_RATE_48000, 240},
      {88200, SAMPLE_RATE_48000, 240}, {96000, SAMPLE_RATE_96000, 480},   {192000, SAMPLE_RATE_192000, 960},
      {176400, SAMPLE_RATE_48000, 240}, {0, SAMPLE_RATE_48000, 240},      {384000, SAMPLE_RATE_48000, 240}};
  for (auto [rate, cls, frame_len] : rates) {
    kedo_speaker_boost_set_sample_rate(&ch.c, rate);
    EXPECT_EQ(ch.c.rate_type, cls) << rate;
    EXPECT_EQ(ch.c.sbs->frame_len, frame_len) << rate;
  }
  // A limiter setter reaches that limiter itself (its getter is checked with the configuration).
  const drc_param_t p = {1, 6, 20000, 9000, 1};
  kedo_speaker_boost_sbs_set_drc_high_right(&ch.c, &p);
  EXPECT_EQ(ch.c.sbs->drc_high_right->threshold, 20000);
  EXPECT_EQ(ch.c.sbs->drc_high_left->threshold, 32767);
}

// Core process, one block per row: how a fresh chain is prepared, the input and the expected output.
TEST(SpeakerChain, CoreProcessCases) {
  using V = std::vector<int>;
  const std::tuple<const char*, Prepare, V, V, V, V> cases[] = {
      {"all off: the symmetric clamp only", all_off, {8388608, -8388608, 8388607, -8388607, 0, INT_MAX, INT_MIN},
       {-8388608, 8388608, 1, -1, 5, -5, 9000000}, {8388607, -8388607, 8388607, -8388607, 0, 8388607, -8388607},
       {-8388607, 8388607, 1, -1, 5, -5, 8388607}},
      {"mono: left is (l + r) >> 1, right only clamped", mono, {1000, 3, -9000000, 1}, {3000, 4, 100, -9000000},
       {2000, 3, -4499950, -4500000}, {3000, 4, 100, -8388607}},
      {"the balance's own channel count keeps stereo", balance_count_1, {1000}, {3000}, {1000}, {3000}},
      {"balance before the equalizer", mix_then_double, {1000}, {3000}, {6000}, {3000}},
  };
  for (auto [what, prepare, l, r, want_l, want_r] : cases) {
    Chain ch(prepare);
    kedo_speaker_boost_core_process(&ch.c, l.data(), r.data(), static_cast<int>(l.size()));
    EXPECT_EQ(l, want_l) << what;
    EXPECT_EQ(r, want_r) << what;
  }
  Chain ch(mono);
  int num = 0;
  kedo_speaker_boost_cb_get_channel_num(&ch.c, &num);
  EXPECT_EQ(num, 1); // the chain's setter writes the balance block's copy too
}

using Wrapper = void (*)(kedo_speaker_boost_t*, void*, void*, void*, void*, int);

// Runs a wrapper on a fresh chain (prepared by `prepare`) over planar input;
// both outputs start at -7, so a refused block shows.
template <typename T>
std::array<std::vector<T>, 2> wrapped(Wrapper wrapper, Prepare prepare, std::array<std::vector<T>, 2> in) {
  Chain ch(prepare);
  std::array<std::vector<T>, 2> out{std::vector<T>(in[0].size(), -7), std::vector<T>(in[0].size(), -7)};
  wrapper(&ch.c, in[0].data(), in[1].data(), out[0].data(), out[1].data(), static_cast<int>(in[0].size()));
  return out;
}

template <int Bits>
void v2(kedo_speaker_boost_t* c, void* in_l, void* in_r, void* out_l, void* out_r, int n) {
  kedo_speaker_boost_process_v2(c, Bits, in_l, in_r, out_l, out_r, n);
}

// 16-bit: x * 256 in, a truncating >> 8 out (saturated); 32-bit: >> 4 in, x 16 out; v2 takes 16 for the
// first and anything else for the second; mono writes the left result to both outputs; more than the
// 256-sample scratch is refused.
TEST(SpeakerChain, FormatWrappers) {
  using I16 = std::vector<int16_t>;
  using I32 = std::vector<int32_t>;
  using P16 = std::array<I16, 2>;
  using P32 = std::array<I32, 2>;
  const std::tuple<const char*, Wrapper, Prepare, P16, P16> cases16[] = {
      {"16", kedo_speaker_boost_process_16, nullptr, {{{32767, -32768, -1, 5}, {5, -1, -32768, 32767}}},
       {{{32767, -32768, -1, 5}, {5, -1, -32768, 32767}}}},
      {"16 mono", kedo_speaker_boost_process_16, mono, {{{100, -300, 1, -1}, {300, 100, 0, 0}}},
       {{{200, -100, 0, -1}, {200, -100, 0, -1}}}},
      {"v2 16", v2<16>, nullptr, {{{1234}, {-5}}}, {{{1234}, {-5}}}},
      {"256", kedo_speaker_boost_process_16, nullptr, {{I16(256, 1000), I16(256, 9)}}, {{I16(256, 1000), I16(256, 9)}}},
      {"257", kedo_speaker_boost_process_16, nullptr, {{I16(257, 1000), I16(257, 9)}}, {{I16(257, -7), I16(257, -7)}}},
  };
  for (const auto& [what, wrapper, prepare, in, want] : cases16) EXPECT_EQ(wrapped(wrapper, prepare, in), want) << what;
  const std::tuple<const char*, Wrapper, Prepare, P32, P32> cases32[] = {
      {"24", kedo_speaker_boost_process_24, nullptr, {{{INT32_MAX, INT32_MIN, 17, -17}, {-17, 17, 1600, 0}}},
       {{{8388607 * 16, -8388607 * 16, 16, -32}, {-32, 16, 1600, 0}}}},
      {"24 mono", kedo_speaker_boost_process_24, mono, {{{1600, 16}, {0, 0}}}, {{{800, 0}, {800, 0}}}},
      {"v2 32", v2<32>, nullptr, {{{1600}, {-17}}}, {{{1600}, {-32}}}},
      {"257", kedo_speaker_boost_process_24, nullptr, {{I32(257, 1000), I32(257, 9)}}, {{I32(257, -7), I32(257, -7)}}},
  };
  for (const auto& [what, wrapper, prepare, in, want] : cases32) EXPECT_EQ(wrapped(wrapper, prepare, in), want) << what;
}

} // namespace
