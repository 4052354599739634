// Headphone front end: the rate window and its bypass, the init and parameter log lines, the block-length rule
// on the stated frame counts (seen through the fade, which advances once per block), the fade sequence block by
// block, the three host formats with their stated examples, and nulls and partial frames. (Identical records and
// the fade rules themselves are checked on the chain.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "support/log_capture.h"
#include "support/variants.h"

namespace {

using V = std::vector<int32_t>;
using kafx_test::LogCapture;
using kafx_test::random_values;
using Record = audio_effect_control_acdb_t;

struct Hp {
  kafx_hp_effect_t* h;
  Hp(unsigned rate, int format) : h(static_cast<kafx_hp_effect_t*>(kafx_hp_effect_init(rate, format))) {}
  ~Hp() { kafx_hp_effect_deinit(h); }
  kedo_hp_effect_t* chain() { return &h->chain; }
  // Interleaved samples in the handle's container, `frames_per_call` frames per call; returns the buffer after.
  V run(const V& in, size_t frames_per_call) {
    std::vector<int16_t> b16(in.begin(), in.end());
    V b32 = in;
    auto* bytes = h->bits == 16 ? reinterpret_cast<char*>(b16.data()) : reinterpret_cast<char*>(b32.data());
    const size_t frame_bytes = 2 * static_cast<size_t>(h->bytes_per_sample);
    for (size_t f = 0, frames = in.size() / 2; f < frames; f += frames_per_call)
      kafx_hp_effect_process(h, bytes + f * frame_bytes,
                             static_cast<unsigned>(std::min(frames_per_call, frames - f) * frame_bytes));
    return h->bits == 16 ? V(b16.begin(), b16.end()) : b32;
  }
  // Runs silent blocks until the fade that init starts is over.
  void settle() {
    for (int i = 0; i < 8; ++i) run(V(2 * 240), 240);
  }
  // Only the smooth volume runs (chain off, no fade), resting at `gain` (Q13).
  void transparent(int gain) {
    kedo_hp_effect_debug_enable_setstatus(chain(), 1);
    kedo_hp_effect_setstatus(chain(), 0);
    chain()->fade_state = -1;
    kedo_hp_effect_sv_set_volume(chain(), gain);
    smooth_volume_set_soft_volume(chain()->smooth_volume, gain);
  }
};

// Messages of the front end's own tag (the chain logs under another).
std::vector<std::string> wrapper_lines(const LogCapture& log) {
  std::vector<std::string> out;
  for (const auto& l : log.all())
    if (l.tag == "kafx_hp_wrapper") out.push_back(l.message);
  return out;
}

// Rates inside 44050..48050 Hz process, the rest bypass with a warning; the init line, the stored format and the
// chain's state (its status follows the rate and starts a fade; the rate class reaches the chain).
TEST(HpFrontEnd, InitRatesFormatsAndLogLines) {
  const std::tuple<unsigned, int, SampleRateType> rates[] = {
      {44049, 0, SAMPLE_RATE_48000}, {44050, 1, SAMPLE_RATE_48000}, {44100, 1, SAMPLE_RATE_44100},
      {46000, 1, SAMPLE_RATE_48000}, {48000, 1, SAMPLE_RATE_48000}, {48050, 1, SAMPLE_RATE_48000},
      {48051, 0, SAMPLE_RATE_48000}, {8000, 0, SAMPLE_RATE_48000},   {96000, 0, SAMPLE_RATE_96000}};
  for (auto [rate, enabled, cls] : rates) {
    LogCapture log;
    Hp hp(rate, 1);
    const std::string r = "kafx_hp_effect_init: sample_rate " + std::to_string(rate);
    std::vector<std::string> want = {r + ", format_type 1"};
    if (!enabled) want.push_back(r + " unmatch, need bypass");
    ASSERT_EQ(wrapper_lines(log), want);
    EXPECT_TRUE(log.all()[0].priority == ANDROID_LOG_DEBUG && log.all().back().priority ==
                (enabled ? ANDROID_LOG_DEBUG : ANDROID_LOG_WARN)) << rate;
    const kafx_hp_effect_t& s = *hp.h;
    EXPECT_EQ((V{s.enabled, s.sample_rate, s.frame_count, s.block_len, s.chain.status, s.chain.fade_state,
                 s.chain.rate_type}),
              (V{enabled, static_cast<int32_t>(rate), 256, 256, enabled, 6, cls})) << rate;
  }
  for (auto [arg, format, bits, bytes] :
       {std::tuple{1, 1, 16, 2}, {2, 2, 32, 4}, {3, 3, 32, 4}, {0, 0, 32, 4}, {4, 0, 32, 4}, {-1, 0, 32, 4}}) {
    Hp hp(48000, arg);
    EXPECT_EQ((V{hp.h->format_type, hp.h->bits, hp.h->bytes_per_sample}), (V{format, bits, bytes})) << arg;
  }
}

// A bypassed handle leaves every format's buffer bit for bit as it was, yet keeps the record it is given.
TEST(HpFrontEnd, UnsupportedRatesBypassBitExactly) {
  LogCapture quiet;
  for (unsigned rate : {44049u, 48051u, 96000u}) {
    for (int format : {1, 2, 3}) {
      Hp hp(rate, format);
      Record rec = {5, 2, {3, 3, 3, 3, 3, 3, 3, 3, 3, 3}};
      kafx_hp_effect_set_parameters(hp.h, &rec);
      const int64_t full = format == 1 ? 32767 : INT32_MAX;
      const V in = random_values<int32_t>(2 * 1000, rate, -full - 1, full);
      EXPECT_EQ(hp.run(in, 333), in) << rate << " " << format;
      Record back{};
      kafx_hp_effect_get_parameters(hp.h, &back);
      EXPECT_EQ(0, std::memcmp(&back, &rec, sizeof rec)) << rate;
    }
  }
}

// {frames, block length, blocks per buffer}: the length is chosen when the frame count changes (with a log line)
// and each block moves the fade on by one state.
TEST(HpFrontEnd, BlockLengthRuleOnStatedFrameCounts) {
  const std::tuple<unsigned, int, int> cases[] = {{480, 240, 2}, {512, 256, 2}, {500, 256, 2}, {250, 256, 1},
                                                  {241, 256, 1}, {300, 240, 2}, {256, 256, 1}, {720, 240, 3},
                                                  {1, 256, 1},   {0, 240, 0},   {270, 240, 2}, {767, 256, 3}, {1000, 256, 4}};
  for (auto [frames, block, blocks] : cases) {
    Hp hp(48000, 2);
    LogCapture log;
    V buf(2 * frames + 2, 1000);
    kafx_hp_effect_process(hp.h, buf.data(), 8 * frames);
    EXPECT_EQ((V{hp.h->block_len, hp.h->frame_count, hp.chain()->fade_state}),
              (V{block, static_cast<int32_t>(frames), 6 - blocks})) << frames;
    const std::vector<std::string> change = {"kafx_hp_effect_process: frame size change to " + std::to_string(block)};
    EXPECT_EQ(wrapper_lines(log), frames == 256 ? std::vector<std::string>{} : change) << frames;  // 256: no change
    log.clear();
    kafx_hp_effect_process(hp.h, buf.data(), 8 * frames);  // same count: no new choice, no line
    EXPECT_TRUE(wrapper_lines(log).empty()) << frames;
    EXPECT_EQ(hp.chain()->fade_state, std::max(-1, 6 - 2 * blocks)) << frames;
  }
}

// A new record fades out over two blocks, is applied in the third (with the chain's two log lines), stays muted
// for one more and fades back in from the fifth, gliding back to unity.
TEST(HpFrontEnd, FadeSequenceBlockByBlock) {
  LogCapture log;
  Hp hp(48000, 1);
  hp.settle();
  kedo_hp_effect_t* c = hp.chain();
  ASSERT_TRUE(c->fade_state == -1 && c->active == 1);
  log.clear();
  Record rec = {3, 0, {}};
  kafx_hp_effect_set_parameters(hp.h, &rec);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"kafx_hp_effect_set_parameters: effect 3 hpadapter 0"});
  EXPECT_EQ(c->fade_state, 6);
  const V in = random_values<int32_t>(2 * 240, 3, -12000, 12000);
  // After block k: fade state, target, parametric equalizer status, log lines of the chain so far.
  const int want[][4] = {{5, 0, 0, 1}, {4, 0, 0, 1}, {3, 0, 1, 2}, {2, 0, 1, 2},
                         {1, 8192, 1, 2}, {0, 8192, 1, 2}, {-1, 8192, 1, 2}, {-1, 8192, 1, 2}};
  for (int k = 0; k < 8; ++k) {
    hp.run(in, 240);
    EXPECT_EQ((V{c->fade_state, c->smooth_volume->target_gain, c->parameter_equalizer->status,
                 static_cast<int32_t>(log.all().size())}),
              (V{want[k][0], want[k][1], want[k][2], want[k][3]})) << "block " << k;
    EXPECT_TRUE(k != 3 || c->smooth_volume->current_gain == 0) << "muted while the record changes";
  }
  EXPECT_EQ(c->smooth_volume->current_gain, 8192);
  EXPECT_TRUE(log.all()[1].tag == "kafx_hp_proc" && log.all()[1].priority == ANDROID_LOG_DEBUG);
  EXPECT_EQ(log.all()[1].message, "effect_type 3, hpadapter_type 0");
}

// Host formats with only the smooth volume running at a known gain: {format, gain (Q13), input, output}.
TEST(HpFrontEnd, FormatConversions) {
  const std::tuple<int, int, V, V> cases[] = {
      // 16-bit: x * 256 in, (x >> 8) saturated out, truncating (3 at one half gives 1).
      {1, 8192, {32767, -32768, 1, -1}, {32767, -32768, 1, -1}},
      {1, 4096, {3, -3, -1, 1}, {1, -2, -1, 0}},
      {1, 16384, {20000, -20000, 3, -1}, {32767, -32768, 6, -2}},
      // 24 in 32 (and any unknown format): copied both ways, no clamp.
      {2, 8192, {9000000, -9000000, 5, -5}, {9000000, -9000000, 5, -5}},
      {7, 8192, {9000000, -9000000, 5, -5}, {9000000, -9000000, 5, -5}},
      // Full scale: (x + 128) >> 8 in, saturating; x << 8 out, saturating outside 24 bits.
      {3, 8192, {INT32_MAX, INT32_MIN, 1000, -129}, {2147483392, INT32_MIN, 1024, -256}},
      {3, 16384, {1 << 30, -(1 << 30) - 256, 127, -129}, {INT32_MAX, INT32_MIN, 0, -512}},
  };
  for (const auto& [format, gain, in, want] : cases) {
    Hp hp(48000, format);
    hp.transparent(gain);
    EXPECT_EQ(hp.run(in, 256), want) << format << " " << gain;
  }
}

// Nulls are ignored; only whole frames are read and written (a trailing odd sample or stray bytes stay as they
// were, also in the full-scale format whose conversion would otherwise change them).
TEST(HpFrontEnd, NullsAndPartialFrames) {
  kafx_hp_effect_process(nullptr, nullptr, 100);
  kafx_hp_effect_reset(nullptr);
  kafx_hp_effect_set_parameters(nullptr, nullptr);
  kafx_hp_effect_get_parameters(nullptr, nullptr);
  kafx_hp_effect_deinit(nullptr);
  Hp hp(48000, 1);
  hp.transparent(16384);
  kafx_hp_effect_process(hp.h, nullptr, 100);
  kafx_hp_effect_set_parameters(hp.h, nullptr);
  Record untouched = {9, 9, {}};
  kafx_hp_effect_get_parameters(hp.h, &untouched);
  EXPECT_EQ(untouched.effect_type, 0);  // a real call: the record set so far (none)
  std::vector<int16_t> s16 = {100, -100, 200, -200, 300, 0x5555, 0x5555};
  kafx_hp_effect_process(hp.h, s16.data(), 11);  // two frames, an odd sample and a stray byte
  EXPECT_EQ(s16, (std::vector<int16_t>{200, -200, 400, -400, 300, 0x5555, 0x5555}));

  Hp full(48000, 3);
  full.transparent(8192);
  V s32 = {1000, -1000, 1000, 77};
  kafx_hp_effect_process(full.h, s32.data(), 14);  // one frame, one odd sample, two stray bytes
  EXPECT_EQ(s32, (V{1024, -1024, 1000, 77}));
}

}  // namespace
