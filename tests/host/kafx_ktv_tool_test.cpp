// `kafx ktv` on generated WAV files: each option equals the front end driven
// directly with the same settings; other rates and channel counts are
// converted with a message; the built-in phrase; bad arguments. (The plain
// copy with no block is checked in kafx_stream_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "kafx_proc/ktv.h"
#include "tests/host/tool_harness.h"

namespace kafx_test {
namespace {

using KafxKtvToolTest = ToolTest;

// Each option: the file equals the front end given the same calls (the tool
// switches off the echo unless asked), and differs from the plain copy.
TEST_F(KafxKtvToolTest, EachOptionEqualsTheFrontEndAndIsAudible) {
  using Set = void (*)(void*, int);
  const Set set_eq = [](void* h, int) {
    int eq[10] = {12, 0, 0, -6, 0, 0, 9, 0, 0, -15};
    kafx_ktv_eq_setparameter(h, eq);
  };
  const std::pair<const char*, std::vector<std::pair<Set, int>>> rows[] = {
      {"--gramophone", {{kafx_ktv_gramophone_enable, 1}}},
      {"--eq 12,0,0,-6,0,0,9,0,0,-15", {{set_eq, 0}, {kafx_ktv_eq_enable, 1}}},
      {"--reverb 6000,3000,4000,6000,8192,300",
       {{kafx_ktv_reverb_setroomsize, 6000}, {kafx_ktv_reverb_setdamp, 3000}, {kafx_ktv_reverb_setwet, 4000},
        {kafx_ktv_reverb_setdry, 6000}, {kafx_ktv_reverb_setwidth, 8192}, {kafx_ktv_reverb_setgain, 300},
        {kafx_ktv_reverb_enable, 1}}},
      {"--echo 120", {{kafx_ktv_iirecho_enable, 1}, {kafx_ktv_iirecho_setdelay, 120}}},
      {"--echo 80,6000,3000,5000",
       {{kafx_ktv_iirecho_enable, 1}, {kafx_ktv_iirecho_setdelay, 80}, {kafx_ktv_iirecho_setfeedback, 6000},
        {kafx_ktv_iirecho_setwet, 3000}, {kafx_ktv_iirecho_setdry, 5000}}},
      {"--compressor --voice-gain 16384", {{kafx_ktv_compressor_enable, 1}, {kafx_ktv_set_voice_gain, 16384}}},
      {"--howling", {{kafx_ktv_hw_howling_canceling_enable, 1}}},
  };
  // A voice-like signal (gliding harmonics in bursts, from full-scale codes on), then a steady whistle for the
  // canceller over it.
  std::vector<int16_t> v(48000 * 2);
  Wav in{48000, 1, SF_FORMAT_PCM_16, {}};
  double phase = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    phase += 2 * M_PI * (200.0 + 40.0 * std::sin(i * 2e-4)) / 48000.0;
    const double voice = ((i / 6000) % 2 == 0 ? 0.8 : 0.2) * (0.6 * std::sin(phase) + 0.3 * std::sin(3 * phase));
    const double whistle = i < 30000 ? 0 : 12000 * std::sin(2 * M_PI * 1500.0 * i / 48000.0);
    v[i] = static_cast<int16_t>(i == 0   ? 32767
                                : i == 1 ? -32768
                                         : std::lround(32767.0 * voice * (i < 30000 ? 1 : 0.5)) + std::lround(whistle));
    in.samples.push_back(v[i] * 65536);
  }
  for (const auto& [options, calls] : rows) {
    const Wav out = run("ktv", in, options);
    ASSERT_EQ(out.samples.size(), 2 * v.size()) << options;
    void* h = kafx_ktv_init();
    kafx_ktv_iirecho_enable(h, 0);
    for (const auto& [set, value] : calls) set(h, value);
    std::vector<int16_t> voice = v, l(v.size()), r(v.size());
    for (size_t at = 0; at < v.size(); at += 240)
      kafx_ktv_process_16(h, voice.data() + at, l.data() + at, r.data() + at, static_cast<int>(std::min<size_t>(240, v.size() - at)));
    kafx_ktv_deinit(h);
    size_t changed = 0;
    for (size_t i = 0; i < v.size(); ++i) {
      ASSERT_EQ(out.samples[2 * i], l[i] * 65536) << options << " " << i;
      ASSERT_EQ(out.samples[2 * i + 1], r[i] * 65536) << options << " " << i;
      changed += l[i] != v[i];
    }
    EXPECT_GT(changed, v.size() / 10) << options;
  }
}

// 44.1 kHz stereo 24-bit: resampled to 48 kHz mono 16-bit with a message
// each; a 1 kHz tone survives with its level within 0.1 dB and its pitch.
TEST_F(KafxKtvToolTest, ConvertsRateAndChannelsWithAMessage) {
  Wav in{44100, 2, SF_FORMAT_PCM_24, {}};
  for (int i = 0; i < 44100; ++i) {
    const int32_t s = static_cast<int32_t>(std::lround(0.5 * 8388607 * std::sin(2 * M_PI * 1000.0 * i / 44100.0))) * 256;
    in.samples.insert(in.samples.end(), {s, s});
  }
  std::string output;
  const Wav out = run("ktv", in, "", &output);
  for (const char* says : {"44100 Hz; resampled to 48000 Hz", "2 channels; mixed down to mono",
                           "24-bit samples; rounded to 16 bits"})
    EXPECT_NE(output.find(says), std::string::npos) << says << "\n" << output;
  ASSERT_TRUE(out.rate == 48000 && out.channels == 2 && out.samples.size() == 2u * 48000u);
  double re = 0, im = 0;
  for (int i = 4800; i < 43200; ++i) {
    re += out.samples[2 * i] * std::cos(2 * M_PI * 1000.0 * i / 48000.0);
    im += out.samples[2 * i] * std::sin(2 * M_PI * 1000.0 * i / 48000.0);
  }
  const double amplitude = 2 * std::hypot(re, im) / (43200 - 4800) / 2147483648.0;
  EXPECT_NEAR(20 * std::log10(amplitude / 0.5), 0.0, 0.1);
}

TEST_F(KafxKtvToolTest, BuiltInVoiceAndErrors) {
  std::string output;
  ASSERT_EQ(run_tool("ktv --reverb 6000,3000,4000,6000,8192,300 --gramophone " + path("sung.wav"), &output), 0)
      << output;
  const Wav in = read_wav(path("default_voice.wav")), out = read_wav(path("sung.wav"));
  EXPECT_TRUE(in.rate == 48000 && in.channels == 1 && in.samples.size() > 48000u * 4);
  EXPECT_EQ(out.samples.size(), 2 * in.samples.size());
  EXPECT_NE(output.find("blocks: gramophone, reverb"), std::string::npos) << output;
  const std::string io = " " + path("default_voice.wav") + " " + path("never.wav");
  expect_exit_codes({{"ktv", 2}, {"ktv --eq 1,2,3" + io, 2}, {"ktv --eq 0,0,0,0,0,0,0,0,0,16" + io, 2},
                     {"ktv --reverb 1,2,3,4,5" + io, 2}, {"ktv --echo 351" + io, 2}, {"ktv --echo 0" + io, 2},
                     {"ktv --voice-gain x" + io, 2}, {"ktv --bogus" + io, 2},
                     {"ktv " + path("missing.wav") + " " + path("never.wav"), 1}},
                    path("never.wav"));
}

// howl-test on a measured room: a 24-bit WAV response at 44.1 kHz, a
// direct path and an echo of half its level in opposite sign 147 samples
// (3.33 ms) later. The tool resamples it by linear interpolation; 44100 /
// 48000 = 147 / 160, so both taps land on output samples (a peak tap of 1
// after normalising) with neighbours of 1 - 147 / 160 either side, a
// triangle summing to 1.1625. The comb's peaks at 150 Hz and every 300 Hz
// above are then 1.5 * 1.1625 (4.83 dB), nearly alike: the loop howls from
// about -4.83 dB without the canceller, and notches narrower than the band
// gain nothing.
TEST_F(KafxKtvToolTest, HowlTestOnAMeasuredRoom) {
  Wav rir{44100, 1, SF_FORMAT_PCM_24, std::vector<int32_t>(600, 0)};
  rir.samples[294] = 1 << 30;
  rir.samples[441] = -(1 << 29);
  write_wav(path("room.wav"), rir);
  std::string output;
  ASSERT_EQ(run_tool("howl-test --howling off --room " + path("room.wav"), &output), 0) << output;
  EXPECT_NE(output.find("44100 Hz, resampled to 48000 Hz"), std::string::npos) << output;
  double limit = 99, bound = -1;
  const size_t at = output.find("max stable loop gain ");
  ASSERT_NE(at, std::string::npos) << output;
  EXPECT_EQ(std::sscanf(output.c_str() + at, "max stable loop gain %lf", &limit), 1);
  const size_t b = output.find("ideal notches (+-115 Hz) could add at most ");
  ASSERT_NE(b, std::string::npos) << output;
  EXPECT_EQ(std::sscanf(output.c_str() + b, "ideal notches (+-115 Hz) could add at most %lf", &bound), 1);
  EXPECT_NEAR(limit, -20 * std::log10(1.5 * (1 + 2 * (1 - 147.0 / 160))), 0.5);
  EXPECT_NEAR(bound, 0.0, 0.05);
  EXPECT_EQ(output.find("with the canceller"), std::string::npos);
  expect_exit_codes({{"howl-test --room " + path("missing.wav"), 1},
                     {"howl-test --howling maybe", 2},
                     {"howl-test --ramp 61", 2},
                     {"howl-test --ramp -1", 2},
                     {"howl-test --ramp x", 2}},
                    path("never.wav"));
}

}  // namespace
}  // namespace kafx_test
