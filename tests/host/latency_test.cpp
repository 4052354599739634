// Each product's latency query against the delay its handle really shows:
// silence, then one impulse; the first non-zero output frame must come
// exactly `latency` frames after the impulse (every block is causal, so the
// impulse response starts at its first sample), for every rate and setting.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "kafx_proc/hp_effect.h"
#include "kafx_proc/ktv.h"
#include "kafx_proc/speaker_boost.h"

namespace {

constexpr size_t kLead = 4800;   // frames of silence before the impulse
constexpr size_t kTail = 12000;  // frames after it (longer than any latency)
constexpr int32_t kImpulse = 4194304;  // half of 24-bit full scale

// Silence, one impulse, silence (24-in-32 stereo) through the handle in
// 480-frame calls: how many frames after the impulse the first non-zero
// output frame comes (kTail if none).
template <typename Process>
long impulse_delay(Process process, void* h) {
  std::vector<int32_t> b(2 * (kLead + kTail), 0);
  b[2 * kLead] = kImpulse;
  b[2 * kLead + 1] = -kImpulse;
  for (size_t at = 0; at < b.size(); at += 960)
    process(h, b.data() + at, static_cast<unsigned>(std::min<size_t>(960, b.size() - at) * sizeof(int32_t)));
  size_t f = 0;
  while (2 * f < b.size() && b[2 * f] == 0 && b[2 * f + 1] == 0) ++f;
  return static_cast<long>(f) - static_cast<long>(kLead);
}

struct SpeakerCase {
  unsigned rate;
  const char* config;  // nullptr: every block off
  int expected;        // independent figure: 239 + 2 * 2 * (5 ms of the rate class) with the boost on
};

TEST(LatencyTest, SpeakerFirstOutputSampleArrivesAtTheReportedLatency) {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  const std::string xml = std::string(root != nullptr ? root : ".") + "/examples/speaker.xml";
  const SpeakerCase cases[] = {
      {44100, nullptr, 239}, {48000, nullptr, 239},   {96000, nullptr, 239},   {192000, nullptr, 239},
      {8000, nullptr, 239},  {44100, "xml", 239 + 880}, {48000, "xml", 239 + 960}, {96000, "xml", 239 + 1920},
      {22050, "xml", 239 + 960},  // any other rate runs on the 48 kHz rows
  };
  for (const SpeakerCase& c : cases) {
    SCOPED_TRACE(std::to_string(c.rate) + (c.config ? " with examples/speaker.xml" : " all blocks off"));
    void* h = kafx_speaker_boost_init(2, c.rate, 2);
    ASSERT_NE(h, nullptr);
    if (c.config) {
      ASSERT_EQ(kafx_speaker_boost_loadconfig(h, xml.c_str()), 0);
    }
    EXPECT_EQ(kafx_speaker_boost_get_latency(h), c.expected);
    EXPECT_EQ(impulse_delay(kafx_speaker_boost_process, h), c.expected);
    kafx_speaker_boost_deinit(h);
  }
  EXPECT_EQ(kafx_speaker_boost_get_latency(nullptr), -1);
}

TEST(LatencyTest, HeadphoneFirstOutputSampleArrivesAtTheReportedLatency) {
  struct Case { unsigned rate; int expected; };
  const Case cases[] = {{44100, 440}, {46000, 480}, {48000, 480}, {32000, 0}, {96000, 0}};
  for (const Case& c : cases) {
    for (int effect = 0; effect <= 5; ++effect) {
      SCOPED_TRACE(std::to_string(c.rate) + " Hz, preset " + std::to_string(effect));
      void* h = kafx_hp_effect_init(c.rate, 2);
      ASSERT_NE(h, nullptr);
      audio_effect_control_acdb_t r{};
      r.effect_type = effect;
      if (effect == KEDO_HP_EFFECT_REVERB) {
        const int reverb[6] = {4096, 4096, 2730, 4096, 8192, 127};
        std::copy(std::begin(reverb), std::end(reverb), r.effect_data);
      }
      kafx_hp_effect_set_parameters(h, &r);
      EXPECT_EQ(kafx_hp_effect_get_latency(h), c.expected);
      EXPECT_EQ(impulse_delay(kafx_hp_effect_process, h), c.expected);
      kafx_hp_effect_deinit(h);
    }
  }
  EXPECT_EQ(kafx_hp_effect_get_latency(nullptr), -1);
}

TEST(LatencyTest, KaraokeOutputBelongsToTheSameFrame) {
  for (int compressor = 0; compressor <= 1; ++compressor) {
    SCOPED_TRACE(compressor ? "compressor on" : "compressor off");
    void* h = kafx_ktv_init();
    ASSERT_NE(h, nullptr);
    kafx_ktv_iirecho_enable(h, 0);
    kafx_ktv_compressor_enable(h, compressor);
    EXPECT_EQ(kafx_ktv_get_latency(h), 0);
    std::vector<short> in(KAFX_KTV_FRAME * 20, 0), left(in.size()), right(in.size());
    in[KAFX_KTV_FRAME * 10] = 16384;
    for (size_t at = 0; at < in.size(); at += KAFX_KTV_FRAME)
      kafx_ktv_process_16(h, &in[at], &left[at], &right[at], KAFX_KTV_FRAME);
    size_t first = 0;
    while (first < in.size() && left[first] == 0 && right[first] == 0) ++first;
    EXPECT_EQ(first, static_cast<size_t>(KAFX_KTV_FRAME * 10));
    kafx_ktv_deinit(h);
  }
  EXPECT_EQ(kafx_ktv_get_latency(nullptr), -1);
}

}  // namespace
