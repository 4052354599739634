// The audio commands through the shared streaming runner: output aligned
// with the input (an impulse in the last frame survives, the cross-correlation
// peaks at lag 0) and of the input's length, every PCM width and block size,
// honest warnings and --strict, standard input and output, and nothing left
// behind when a run fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/host/tool_harness.h"

namespace kafx_test {
namespace {

namespace fs = std::filesystem;

std::string speaker_xml() { return source_file("examples/speaker.xml"); }

// Lag (output relative to input, in frames, within +-max_lag) at which the
// cross-correlation of channel 0 is largest.
long best_lag(const Wav& in, const Wav& out, long max_lag) {
  const long frames = static_cast<long>(in.samples.size()) / in.channels;
  long best = 0;
  double best_v = -1.0;
  for (long lag = -max_lag; lag <= max_lag; ++lag) {
    double acc = 0.0;
    for (long f = std::max(0L, -lag); f < frames && f + lag < frames; ++f)
      acc += static_cast<double>(in.samples[static_cast<size_t>(f * in.channels)]) *
             static_cast<double>(out.samples[static_cast<size_t>((f + lag) * out.channels)]);
    if (acc > best_v) {
      best_v = acc;
      best = lag;
    }
  }
  return best;
}

class KafxStreamTest : public ToolTest {
 protected:
  // No temporary or output file is left in the folder besides the given ones.
  void expect_only(std::vector<std::string> names) {
    for (const auto& e : fs::directory_iterator(dir_)) {
      const std::string n = e.path().filename().string();
      EXPECT_NE(std::find(names.begin(), names.end(), n), names.end()) << "left behind: " << n;
    }
  }
};

// RMS of channel 0 over the last `frames` frames.
double tail_rms(const Wav& w, size_t frames) {
  const size_t n = w.samples.size() / static_cast<size_t>(w.channels);
  double e = 0.0;
  for (size_t f = n - frames; f < n; ++f) e += std::pow(w.samples[f * static_cast<size_t>(w.channels)] / 2147483648.0, 2);
  return std::sqrt(e / static_cast<double>(frames));
}

// Every product, every rate it processes, with its real latency (the shipped
// speaker configuration turns the boost system's 20 ms look-ahead on): the
// output has the input's length, the last 5 ms carry the input's level (the
// tail is flushed), the cross-correlation of noise peaks at lag 0 and a click
// in the very last frame comes out in the last frame. With the shipped
// speaker configuration the equalizer, pre-filter and crossover spread the
// click over the following samples (minimum-phase filters: the response
// starts at lag 0 and peaks 2 samples later), so there the correlation peak
// may sit up to 8 frames late; a latency error would move it by hundreds.
TEST_F(KafxStreamTest, OutputIsAlignedAndKeepsTheLastFrame) {
  const std::string xml = speaker_xml();
  struct Case {
    std::string cmd, options;
    int rate;
    long max_lag;   // allowed cross-correlation lag (filters' group delay)
    bool click;     // a lone click survives (the noise suppressor removes clicks)
  };
  const Case cases[] = {
      {"speaker", "", 48000, 0, true},
      {"speaker", "", 96000, 0, true},
      {"speaker", "--config " + xml, 44100, 8, true},
      {"speaker", "--config " + xml, 48000, 8, true},
      {"speaker", "--config " + xml, 96000, 8, true},
      {"speaker", "--config " + xml + " --block 1000", 48000, 8, true},
      {"headphone", "", 44100, 0, true},
      {"headphone", "--effect 3", 48000, 0, true},
      {"headphone", "--adapter 4", 44100, 0, true},
      {"ns", "--policy 0", 16000, 0, false},
      {"ns", "--policy 0", 8000, 0, false},
      {"ns", "--policy 0", 48000, 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cmd + " " + c.options + " at " + std::to_string(c.rate));
    const size_t frames = static_cast<size_t>(c.rate) / 2;
    Wav in = noise(c.rate, 2, frames);
    const Wav out = run(c.cmd, in, c.options);
    ASSERT_EQ(out.samples.size(), in.samples.size());
    const long lag = best_lag(in, out, 600);
    EXPECT_TRUE(lag >= 0 && lag <= c.max_lag) << "lag " << lag;
    const size_t ms5 = static_cast<size_t>(c.rate) / 200;
    EXPECT_GT(tail_rms(out, ms5), 0.25 * tail_rms(in, ms5)) << "the last 5 ms are lost";
    if (!c.click) continue;
    // Silence, then a single click in the last frame.
    std::fill(in.samples.begin(), in.samples.end(), 0);
    in.samples[2 * frames - 2] = in.samples[2 * frames - 1] = 16000 * 65536;
    const Wav click = run(c.cmd, in, c.options);
    ASSERT_EQ(click.samples.size(), in.samples.size());
    const int32_t last = std::max(std::abs(click.samples[2 * frames - 2]), std::abs(click.samples[2 * frames - 1]));
    EXPECT_GT(last, 1000 * 65536) << "the last frame's click is lost";
  }
}

// The karaoke chain has no latency and with no block copies the voice to
// both sides bit for bit, up to a click in the last, partial frame.
TEST_F(KafxStreamTest, KaraokeCopiesTheVoiceToBothSides) {
  Wav in{48000, 1, SF_FORMAT_PCM_16, extremes_then_noise(48000 + 17, 16)};
  in.samples.back() = 16000 * 65536;
  const Wav out = run("ktv", in, "");
  ASSERT_TRUE(out.rate == 48000 && out.channels == 2 && out.subtype == SF_FORMAT_PCM_16 &&
              out.samples.size() == 2 * in.samples.size());
  for (size_t i = 0; i < in.samples.size(); ++i)
    ASSERT_TRUE(out.samples[2 * i] == in.samples[i] && out.samples[2 * i + 1] == in.samples[i]) << i;
}

// Every sample format through the speaker product with every block off (its
// 239-frame delay taken out), each back in its own format. 16-bit x goes in
// as x * 256 and back as (x * 256 + 128) >> 8 = x whatever the block size,
// 8-bit likewise. 32-bit (host format 3) goes in as (x + 128) >> 8 with the
// add saturating, is clamped to +-8388607 by the chain (-2^31 returns as
// -2^31 + 256) and goes out << 8. libsndfile converts float and double to
// full-scale 32-bit hosts: back within the 24-bit step.
TEST_F(KafxStreamTest, EveryPcmWidthIsConverted) {
  const auto host32 = [](int32_t x) {
    const int64_t w = std::min<int64_t>(x + int64_t{128}, INT32_MAX) >> 8;
    return std::clamp<int64_t>(w, -8388607, 8388607) * 256;
  };
  struct Case {
    int subtype, rate, channels, bits;  // bits 0: noise only
    const char* options;
    int tolerance;
  };
  const Case cases[] = {
      {SF_FORMAT_PCM_16, 48000, 2, 16, "--block 1", 0}, {SF_FORMAT_PCM_16, 48000, 2, 16, "--block 241", 0},
      {SF_FORMAT_PCM_32, 44100, 1, 32, "--block 100", 0}, {SF_FORMAT_PCM_U8, 48000, 2, 0, "", 0},
      {SF_FORMAT_FLOAT, 48000, 2, 0, "", 256}, {SF_FORMAT_DOUBLE, 48000, 2, 0, "", 256},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.subtype) + " " + c.options);
    const size_t frames = 3001;
    Wav in = c.bits > 0 ? Wav{c.rate, c.channels, c.subtype, extremes_then_noise(frames * c.channels, c.bits)}
                        : noise(c.rate, c.channels, frames, c.subtype);
    write_wav(path("in.wav"), in);
    in = read_wav(path("in.wav"));  // the values the file really holds
    const Wav out = run("speaker", in, c.options);
    ASSERT_TRUE(out.rate == c.rate && out.channels == c.channels && out.subtype == c.subtype &&
                out.samples.size() == in.samples.size());
    for (size_t i = 0; i < in.samples.size(); ++i)
      ASSERT_NEAR(out.samples[i], c.subtype == SF_FORMAT_PCM_32 ? host32(in.samples[i]) : in.samples[i], c.tolerance)
          << i;
  }
}

// Rates a product bypasses, silences or runs on another rate's tables are
// announced; --strict makes each an error that writes nothing.
TEST_F(KafxStreamTest, RateWarningsAndStrict) {
  const std::string xml = speaker_xml();
  struct Case {
    std::string cmd, options;
    int rate;
    std::string says;
  };
  const Case cases[] = {
      {"speaker", "--config " + xml, 192000, "output is silence"},
      {"speaker", "--config " + xml, 22050, "48000 Hz tables"},
      {"speaker", "--config " + xml, 8000, "48000 Hz tables"},
      {"headphone", "--effect 3", 32000, "bypassed"},
      {"headphone", "--effect 3", 46000, "48000 Hz tables"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cmd + " at " + std::to_string(c.rate));
    const Wav in = noise(c.rate, 2, 2000);
    std::string text;
    const Wav out = run(c.cmd, in, c.options, &text);
    EXPECT_NE(text.find("warning: '"), std::string::npos) << text;
    EXPECT_NE(text.find(c.says), std::string::npos) << text;
    EXPECT_EQ(out.samples.size(), in.samples.size());
    run(c.cmd, in, "--strict " + c.options, &text, 1);
    EXPECT_NE(text.find("(--strict)"), std::string::npos) << text;
    expect_only({"in.wav"});
  }
  // Supported rates stay quiet.
  std::string text;
  run("speaker", noise(48000, 2, 2000), "--strict --config " + xml, &text);
  EXPECT_EQ(text.find("warning"), std::string::npos) << text;
}

// A file whose header announces more audio than it holds is reported.
TEST_F(KafxStreamTest, TruncatedFileIsReported) {
  write_wav(path("full.wav"), noise(48000, 2, 4800));
  const auto size = fs::file_size(path("full.wav"));
  fs::resize_file(path("full.wav"), size / 2);
  for (const char* cmd : {"speaker", "headphone", "ns", "ktv"}) {
    std::string text;
    EXPECT_EQ(run_tool(std::string(cmd) + " " + path("full.wav") + " " + path("out.wav"), &text), 0) << text;
    EXPECT_NE(text.find("is truncated"), std::string::npos) << cmd << ": " << text;
    EXPECT_EQ(run_tool(std::string(cmd) + " --strict " + path("full.wav") + " " + path("strict.wav"), &text), 1);
    EXPECT_FALSE(fs::exists(path("strict.wav"))) << cmd;
  }
}

// More than two channels: the speaker product processes the first two and the
// others pass through, aligned with the processed ones.
TEST_F(KafxStreamTest, ExtraChannelsPassThroughAligned) {
  const std::string xml = speaker_xml();
  const Wav three = noise(48000, 3, 6000);
  Wav two{48000, 2, SF_FORMAT_PCM_16, {}};
  for (size_t f = 0; f < 6000; ++f) two.samples.insert(two.samples.end(), {three.samples[3 * f], three.samples[3 * f + 1]});
  const Wav out2 = run("speaker", two, "--config " + xml);
  std::string text;
  const Wav out3 = run("speaker", three, "--config " + xml, &text);
  EXPECT_NE(text.find("3 channels"), std::string::npos) << text;
  ASSERT_EQ(out3.samples.size(), three.samples.size());
  for (size_t f = 0; f < 6000; ++f)
    ASSERT_TRUE(out3.samples[3 * f] == out2.samples[2 * f] && out3.samples[3 * f + 1] == out2.samples[2 * f + 1] &&
                out3.samples[3 * f + 2] == three.samples[3 * f + 2]) << f;
}

// '-' reads standard input and writes standard output (a complete WAV file);
// the summary then goes to standard error.
TEST_F(KafxStreamTest, StandardInputAndOutput) {
  const std::string xml = speaker_xml();
  const Wav in = noise(48000, 2, 9000);
  const Wav by_file = run("speaker", in, "--config " + xml);
  const std::string tool = program_command(tool_path().string());  // the emulator on a cross build
  const std::string cmd = "cat " + path("in.wav") + " | " + tool + " speaker --config " + xml + " - - > " +
                          path("piped.wav") + " 2>" + path("err.txt");
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  EXPECT_TRUE(read_wav(path("piped.wav")).samples == by_file.samples);
}

// A run that fails part way leaves neither the output nor a temporary file;
// an existing output file is kept as it was.
TEST_F(KafxStreamTest, FailureLeavesNothingBehind) {
  write_wav(path("out.wav"), noise(48000, 2, 100));
  const Wav before = read_wav(path("out.wav"));
  std::string text;
  write_wav(path("in.wav"), noise(192000, 2, 1000));
  EXPECT_EQ(run_tool("speaker --strict --config " + speaker_xml() + " " + path("in.wav") + " " + path("out.wav"), &text), 1);
  EXPECT_TRUE(read_wav(path("out.wav")).samples == before.samples);
  EXPECT_NE(run_tool("speaker " + path("in.wav") + " /proc/kafx-no-such-dir/out.wav", &text), 0);
  expect_only({"in.wav", "out.wav"});
}

}  // namespace
}  // namespace kafx_test
