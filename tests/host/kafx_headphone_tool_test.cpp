// `kafx headphone` on generated WAV files: each preset and adapter equals the front end driven directly with the
// same record and the compressor's two-frame look-ahead taken out; record files written and read back; rates the
// product bypasses come back bit for bit; mono files; the built-in excerpt; bad arguments; an imported equalizer
// in place of preset 3's bands, measured with tones. (Alignment, formats and
// rate warnings are checked for every product in kafx_stream_test.cpp.)
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/tool_harness.h"
#include "kafx_proc/hp_effect.h"

namespace kafx_test {
namespace {

// The front end driven directly on a 16-bit stereo programme: calls of 480 frames over the input and a zero tail
// (every call whole, as from a host), the output read two 5 ms frames (the compressor's look-ahead) later.
std::vector<int32_t> direct(const Wav& in, audio_effect_control_acdb_t rec) {
  const size_t latency = 2 * static_cast<size_t>(in.rate == 44100 ? 220 : 240);
  const size_t frames = in.samples.size() / 2, total = (frames + latency + 479) / 480 * 480;
  std::vector<int16_t> buf(2 * total);
  for (size_t i = 0; i < in.samples.size(); ++i) buf[i] = static_cast<int16_t>(in.samples[i] >> 16);
  void* h = kafx_hp_effect_init(static_cast<unsigned>(in.rate), 1);
  kafx_hp_effect_set_parameters(h, &rec);
  for (size_t f = 0; f < total; f += 480)
    kafx_hp_effect_process(h, buf.data() + 2 * f, static_cast<unsigned>(std::min<size_t>(480, total - f) * 4));
  kafx_hp_effect_deinit(h);
  std::vector<int32_t> out(in.samples.size());
  for (size_t i = 0; i < out.size(); ++i) out[i] = buf[i + 2 * latency] * 65536;
  return out;
}

audio_effect_control_acdb_t record(int effect, int adapter, std::vector<int> data = {}) {
  audio_effect_control_acdb_t r{};
  r.effect_type = effect;
  r.hpadapter_type = adapter;
  std::copy(data.begin(), data.end(), r.effect_data);
  return r;
}

class KafxHeadphoneToolTest : public ToolTest {
 protected:
  Wav run(const Wav& in, const std::string& options, std::string* text = nullptr) {
    return ToolTest::run("headphone", in, options, text);
  }
};

// {options, the record they stand for}: presets 3 and 5, every adapter, a reverb; 48 and 44.1 kHz.
TEST_F(KafxHeadphoneToolTest, PresetsAndAdaptersEqualTheFrontEnd) {
  struct Case {
    std::string options;
    audio_effect_control_acdb_t rec;
    int rate;
  };
  std::vector<Case> cases = {
      {"--effect 3", record(3, 0), 48000},
      {"--effect 3 --adapter 2", record(3, 2), 44100},
      {"--geq 6,5,3,0,-2,-3,0,2,4,-15", record(5, 0, {6, 5, 3, 0, -2, -3, 0, 2, 4, -15}), 48000},
      {"--effect 4", record(4, 0, {4096, 4096, 2730, 4096, 8192, 127}), 48000},
      {"--reverb 6000,3000,3000,6000,8192,200 --adapter 6", record(4, 6, {6000, 3000, 3000, 6000, 8192, 200}), 44100},
  };
  for (int a = 1; a <= 7; ++a) cases.push_back({"--adapter " + std::to_string(a), record(0, a), 48000});
  for (const auto& c : cases) {
    const Wav in = noise(c.rate, 2, 4000);
    std::string text;
    const Wav out = run(in, c.options, &text);
    EXPECT_TRUE(out.samples == direct(in, c.rec)) << c.options;
    EXPECT_NE(out.samples, in.samples) << c.options;
    EXPECT_NE(text.find("record: effect " + std::to_string(c.rec.effect_type) + ", hpadapter " +
                        std::to_string(c.rec.hpadapter_type)), std::string::npos) << text;
  }
}

// --save-record writes a readable record; --record reads it back (the options then replace their own fields).
TEST_F(KafxHeadphoneToolTest, RecordFilesRoundTrip) {
  const Wav in = noise(48000, 2, 3000);
  const Wav a = run(in, "--geq 1,2,3,4,5,6,7,8,9,10 --adapter 3 --save-record " + path("rec.txt"));
  const std::string text = read_text("rec.txt");
  for (const char* line : {"effect_type = 5\n", "hpadapter_type = 3\n", "effect_data[9] = 10  #", "effect_data[28] = 0\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
  EXPECT_TRUE(run(in, "--record " + path("rec.txt")).samples == a.samples);
  EXPECT_TRUE(run(in, "--record " + path("rec.txt") + " --effect 3 --adapter 0").samples ==
              direct(in, record(3, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})));
  EXPECT_TRUE(run(in, "--record " + write("hand.txt", "# by hand\neffect_type = 5\n\n  effect_data[0]=  -4  # bass\n"))
                  .samples == direct(in, record(5, 0, {-4})));
}

// Rates outside 44050..48050 Hz: a 32-bit file comes back bit for bit. A mono
// file feeds both sides and takes the left result.
TEST_F(KafxHeadphoneToolTest, BypassedRatesAndMono) {
  for (int rate : {96000, 32000, 44049}) {
    const Wav in{rate, 2, SF_FORMAT_PCM_32, extremes_then_noise(4000, 32)};
    EXPECT_TRUE(run(in, "--effect 5 --adapter 1").samples == in.samples) << rate;
  }
  const Wav mono = noise(44100, 1, 3000);
  Wav stereo{44100, 2, SF_FORMAT_PCM_16, {}};
  for (int32_t s : mono.samples) stereo.samples.insert(stereo.samples.end(), {s, s});
  const std::vector<int32_t> both = direct(stereo, record(0, 5));
  const Wav out = run(mono, "--adapter 5");
  ASSERT_EQ(out.samples.size(), mono.samples.size());
  for (size_t f = 0; f < mono.samples.size(); ++f) ASSERT_EQ(out.samples[f], both[2 * f]) << f;
}

// The built-in excerpt (its writer is the speaker command's, checked there) is processed; bad arguments exit
// with 2, unusable files with 1, and leave no output.
TEST_F(KafxHeadphoneToolTest, BuiltInExcerptAndErrors) {
  std::string text;
  ASSERT_EQ(run_tool("headphone --effect 3 " + path("result.wav"), &text), 0) << text;
  const Wav excerpt = read_wav(path("default_in.wav"));
  EXPECT_TRUE(read_wav(path("result.wav")).samples == direct(excerpt, record(3, 0)));
  write_wav(path("ok.wav"), noise(48000, 2, 100));
  write("bad.txt", "effect_type = 5\nvolume = 3\n");
  write("twice.txt", "effect_type = 5\neffect_type = 3\n");
  const std::string out = " " + path("never.wav"), io = " " + path("ok.wav") + out;
  expect_exit_codes({{"headphone", 2}, {"headphone --effect 6" + io, 2}, {"headphone --adapter 8" + io, 2},
                     {"headphone --reverb 1,2,3" + io, 2}, {"headphone --geq 16,0,0,0,0,0,0,0,0,0" + io, 2},
                     {"headphone --geq 1,1,1,1,1,1,1,1,1,1 --reverb 1,1,1,1,1,1" + io, 2}, {"headphone --bogus" + io, 2},
                     {"headphone --record " + path("missing.txt") + io, 1}, {"headphone --record " + path("bad.txt") + io, 1},
                     {"headphone --record " + path("twice.txt") + io, 1}, {"headphone " + path("missing.wav") + out, 1}},
                    path("never.wav"));
}

// RMS level in dB of one channel of an interleaved stereo file, over its second half (past any fade).
double level_db(const Wav& w, int channel) {
  const size_t frames = w.samples.size() / 2;
  double sum = 0;
  for (size_t f = frames / 2; f < frames; ++f) sum += std::pow(w.samples[2 * f + channel] / 2147483648.0, 2);
  return 10 * std::log10(sum / static_cast<double>(frames - frames / 2));
}

// A stereo sine at -30 dBFS, 16-bit.
Wav tone(int rate, double hz, size_t frames) {
  Wav w{rate, 2, SF_FORMAT_PCM_16, {}};
  for (size_t i = 0; i < frames; ++i) {
    const int32_t v = 65536 * static_cast<int32_t>(std::lround(1036 * std::sin(2 * M_PI * hz * i / rate)));
    w.samples.insert(w.samples.end(), {v, v});
  }
  return w;
}

// --eq-import: an equalizer text takes preset 3's place. A +6 dB peak at 1 kHz (left only, through "Channel: L")
// raises a 1 kHz tone by 6 dB against a flat import (a lone preamp of 0 dB) through the whole product, leaves
// 100 Hz and the right side as they were, at both rates; the saved record carries the bands and reproduces the
// run bit for bit.
TEST_F(KafxHeadphoneToolTest, EqImportFillsThePresetsEqualizer) {
  write("flat.txt", "Preamp: 0 dB\n");
  write("eq.txt", "# a test equalizer\nChannel: L\nFilter 1: ON PK Fc 1000 Hz Gain 6 dB Q 1.41\n"
                  "Filter 2: OFF LSC Fc 100 Hz Gain 10 dB\n");
  for (int rate : {48000, 44100}) {
    for (double hz : {1000.0, 100.0}) {
      const Wav in = tone(rate, hz, static_cast<size_t>(rate) / 2);
      std::string text;
      const Wav flat = run(in, "--eq-import " + path("flat.txt"));
      const Wav eq = run(in, "--eq-import " + path("eq.txt") + " --save-record " + path("rec.txt"), &text);
      EXPECT_NE(text.find("parametric equalizer: " + path("eq.txt") + " (designed at " + std::to_string(rate) + " Hz)"),
                std::string::npos) << text;
      const double gain = level_db(eq, 0) - level_db(flat, 0);
      EXPECT_NEAR(gain, hz == 1000 ? 6 : 0, hz == 1000 ? 0.3 : 0.5) << rate << " " << hz;
      EXPECT_NEAR(level_db(eq, 1), level_db(flat, 1), 0.01) << rate << " " << hz;
      EXPECT_NEAR(level_db(flat, 0), -33, 1) << rate << " " << hz;  // a -30 dBFS peak passes otherwise
      EXPECT_TRUE(run(in, "--record " + path("rec.txt")).samples == eq.samples) << rate << " " << hz;
    }
    const std::string rec = read_text("rec.txt");
    for (const std::string& line : std::vector<std::string>{"effect_type = 3\n", "param_eq.design_rate = " + std::to_string(rate) + "\n",
                                   "param_eq.gain_left = 8192\n", "param_eq.right_band[0] = 0,268435456,0,0,0,0\n",
                                   "param_eq.left_band[1] = 0,268435456,0,0,0,0\n"})
      EXPECT_NE(rec.find(line), std::string::npos) << line << "\n" << rec;
    EXPECT_NE(rec.find("param_eq.left_band[0] = 1,"), std::string::npos) << rec;
  }
  // A rate the product bypasses passes bit for bit (the filters are not designed for it: 20 kHz is above
  // 32 kHz's Nyquist frequency).
  write("hf.txt", "Filter 1: ON PK Fc 20000 Hz Gain 3 dB Q 1\n");
  const Wav bypassed{32000, 2, SF_FORMAT_PCM_16, extremes_then_noise(4000, 16)};
  EXPECT_TRUE(run(bypassed, "--eq-import " + path("hf.txt")).samples == bypassed.samples);
  // A record designed at another rate runs with a warning.
  std::string text;
  run(tone(44100, 1000, 4000), "--record " + path("rec.txt"), &text);
  EXPECT_EQ(text.find("warning"), std::string::npos) << text;
  run(tone(48000, 1000, 4000), "--record " + path("rec.txt"), &text);
  EXPECT_NE(text.find("warning: the record's parametric equalizer was designed at 44100 Hz"), std::string::npos)
      << text;
}

// Import errors name the file and line; --eq-import excludes the other presets; param_eq lines need preset 3.
TEST_F(KafxHeadphoneToolTest, EqImportErrors) {
  write_wav(path("ok.wav"), noise(48000, 2, 100));
  std::string many = "Preamp: -3 dB\n";
  for (int i = 1; i <= 11; ++i) many += "Filter " + std::to_string(i) + ": ON PK Fc " + std::to_string(500 * i) + " Hz Gain 1 dB Q 1\n";
  write("many.txt", many);
  write("bp.txt", "Preamp: -3 dB\n\nFilter 1: ON BP Fc 1000 Hz Q 1\n");
  write("fc.txt", "Filter 1: ON PK Fc 1000 Hz Gain 3 dB Q 1\nFilter 2: ON PK Fc 30000 Hz Gain 3 dB Q 1\n");
  write("gain.txt", "Filter 1: ON PK Fc 1000 Hz Gain 40 dB Q 1\n");
  write("geq_rec.txt", "effect_type = 5\nparam_eq.status = 1\n");
  write("bad_band.txt", "effect_type = 3\nparam_eq.left_band[0] = 1,2,3\n");
  const std::string out = " " + path("never.wav"), io = " " + path("ok.wav") + out;
  const std::pair<std::string, std::string> named[] = {{"many.txt", "many.txt: line 12: "},
                                                       {"bp.txt", "bp.txt: line 3: unsupported filter type 'BP'"},
                                                       {"fc.txt", "fc.txt: line 2: Fc 30000 Hz is out of range"},
                                                       {"gain.txt", "gain.txt: line 1: Gain 40 dB is out of range"}};
  for (const auto& [file, message] : named) {
    std::string text;
    EXPECT_EQ(run_tool("headphone --eq-import " + path(file) + io, &text), 1) << file;
    EXPECT_NE(text.find(message), std::string::npos) << file << ": " << text;
  }
  std::string text;
  EXPECT_EQ(run_tool("headphone --record " + path("bad_band.txt") + io, &text), 1);
  EXPECT_NE(text.find("bad_band.txt:2: param_eq.left_band[0] needs six"), std::string::npos) << text;
  expect_exit_codes({{"headphone --eq-import " + path("fc.txt") + " --effect 4" + io, 2},
                     {"headphone --eq-import " + path("fc.txt") + " --geq 0,0,0,0,0,0,0,0,0,0" + io, 2},
                     {"headphone --eq-import " + path("missing.txt") + io, 1},
                     {"headphone --record " + path("geq_rec.txt") + io, 2}},
                    path("never.wav"));
}

}  // namespace
}  // namespace kafx_test
