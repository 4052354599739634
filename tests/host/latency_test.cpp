// Each product's latency query against the delay its handle really shows:
// silence, then one impulse; the first non-zero output frame must come
// exactly `latency` frames after the impulse (every block is causal, so the
// impulse response starts at its first sample), for every rate and setting.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "kafx_proc/ktv.h"
#include "kafx_proc/speaker_boost.h"
#include "support/source_files.h"

namespace {

constexpr size_t kLead = 4800;   // frames of silence before the impulse
constexpr size_t kTail = 12000;  // frames after it (longer than any latency)

// Silence, one impulse (half of 24-bit full scale), silence, 24-in-32 stereo,
// through the handle in 480-frame calls: how many frames after the impulse
// the first non-zero output frame comes (kTail if none).
template <typename Process>
long impulse_delay(Process process, void* h) {
  std::vector<int32_t> b(2 * (kLead + kTail), 0);
  b[2 * kLead] = 4194304;
  b[2 * kLead + 1] = -4194304;
  for (size_t at = 0; at < b.size(); at += 960)
    process(h, b.data() + at, static_cast<unsigned>(std::min<size_t>(960, b.size() - at) * sizeof(int32_t)));
  size_t f = 0;
  while (2 * f < b.size() && b[2 * f] == 0 && b[2 * f + 1] == 0) ++f;
  return static_cast<long>(f) - static_cast<long>(kLead);
}

// Speaker: 239 frames with every block off at any rate; the example tuning
// adds the boost system's 2 x 2 limiter blocks of 5 ms of the rate class
// (any other rate runs on the 48 kHz rows). Headphone: the compressor's two
// 5 ms frames at the rates it processes, every preset; none where bypassed.
TEST(LatencyTest, FirstOutputSampleArrivesAtTheReportedLatency) {
  const std::string xml = kafx_test::source_file("examples/speaker.xml");
  struct Case { unsigned rate; bool config; int expected; };
  const Case speaker[] = {{44100, false, 239}, {48000, false, 239}, {96000, false, 239}, {192000, false, 239},
                          {8000, false, 239},  {44100, true, 239 + 880}, {48000, true, 239 + 960},
                          {96000, true, 239 + 1920}, {22050, true, 239 + 960}};
  for (const Case& c : speaker) {
    SCOPED_TRACE(std::to_string(c.rate) + (c.config ? " with examples/speaker.xml" : " all blocks off"));
    void* h = kafx_speaker_boost_init(2, c.rate, 2);
    ASSERT_EQ(c.config ? kafx_speaker_boost_loadconfig(h, xml.c_str()) : 0, 0);
    EXPECT_EQ(kafx_speaker_boost_get_latency(h), c.expected);
    EXPECT_EQ(impulse_delay(kafx_speaker_boost_process, h), c.expected);
    kafx_speaker_boost_deinit(h);
  }
  const Case headphone[] = {{44100, false, 440}, {46000, false, 480}, {48000, false, 480}, {32000, false, 0},
                            {96000, false, 0}};
  for (const Case& c : headphone) {
    for (int effect = 0; effect <= 5; ++effect) {
      SCOPED_TRACE(std::to_string(c.rate) + " Hz, preset " + std::to_string(effect));
      void* h = kafx_hp_effect_init(c.rate, 2);
      audio_effect_control_acdb_t r{};
      r.effect_type = effect;
      const int reverb[6] = {4096, 4096, 2730, 4096, 8192, 127};
      if (effect == KEDO_HP_EFFECT_REVERB) std::copy_n(reverb, 6, r.effect_data);
      kafx_hp_effect_set_parameters(h, &r);
      EXPECT_EQ(kafx_hp_effect_get_latency(h), c.expected);
      EXPECT_EQ(impulse_delay(kafx_hp_effect_process, h), c.expected);
      kafx_hp_effect_deinit(h);
    }
  }
  EXPECT_EQ(kafx_speaker_boost_get_latency(nullptr), -1);
  EXPECT_EQ(kafx_hp_effect_get_latency(nullptr), -1);
}

// Karaoke: an impulse comes out in its own frame, with or without the compressor.
TEST(LatencyTest, KaraokeOutputBelongsToTheSameFrame) {
  for (int compressor = 0; compressor <= 1; ++compressor) {
    void* h = kafx_ktv_init();
    kafx_ktv_iirecho_enable(h, 0);
    kafx_ktv_compressor_enable(h, compressor);
    EXPECT_EQ(kafx_ktv_get_latency(h), 0);
    std::vector<short> in(KAFX_KTV_FRAME * 20, 0), left(in.size()), right(in.size());
    in[KAFX_KTV_FRAME * 10] = 16384;
    for (size_t at = 0; at < in.size(); at += KAFX_KTV_FRAME)
      kafx_ktv_process_16(h, &in[at], &left[at], &right[at], KAFX_KTV_FRAME);
    size_t first = 0;
    while (first < in.size() && left[first] == 0 && right[first] == 0) ++first;
    EXPECT_EQ(first, static_cast<size_t>(KAFX_KTV_FRAME * 10)) << "compressor " << compressor;
    kafx_ktv_deinit(h);
  }
  EXPECT_EQ(kafx_ktv_get_latency(nullptr), -1);
}

}  // namespace
