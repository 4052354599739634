// The audio commands through the shared streaming runner: output aligned
// with the input (an impulse in the last frame survives, the cross-correlation
// peaks at lag 0), every PCM width, honest warnings and --strict, standard
// input and output, and nothing left behind when a run fails.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/host/tool_harness.h"

namespace {

namespace fs = std::filesystem;
using kafx_test::read_wav;
using kafx_test::run_tool;
using kafx_test::Wav;
using kafx_test::write_wav;

std::string source_dir() {
  const char* root = std::getenv("KAFX_SOURCE_DIR");
  return root != nullptr ? root : ".";
}

// Stereo (or `channels`) white noise at about -20 dBFS, 16-bit values.
Wav noise(int rate, int channels, size_t frames, int subtype = SF_FORMAT_PCM_16) {
  Wav w{rate, channels, subtype, {}};
  uint32_t seed = 12345u;
  for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
    seed = seed * 1664525u + 1013904223u;
    w.samples.push_back(static_cast<int32_t>((seed >> 16) % 6554) * 65536 - 3277 * 65536);
  }
  return w;
}

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

class KafxStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(kafx_test::tool_path())) GTEST_SKIP() << "tool not built";
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_, ec_); }
  std::string path(const char* name) const { return (dir_ / name).string(); }
  // Runs `kafx CMD OPTIONS in.wav out.wav`; expects `code`; returns the output file (empty on failure).
  Wav run(const std::string& cmd, const Wav& in, const std::string& options, std::string* text = nullptr,
          int code = 0) {
    write_wav(path("in.wav"), in);
    fs::remove(path("out.wav"), ec_);
    std::string t;
    EXPECT_EQ(run_tool(cmd + " " + options + " " + path("in.wav") + " " + path("out.wav"), &t), code) << t;
    if (text != nullptr) *text = t;
    return code == 0 ? read_wav(path("out.wav")) : Wav{};
  }
  // No temporary or output file is left in the folder besides the given ones.
  void expect_only(std::vector<std::string> names) {
    for (const auto& e : fs::directory_iterator(dir_)) {
      const std::string n = e.path().filename().string();
      EXPECT_NE(std::find(names.begin(), names.end(), n), names.end()) << "left behind: " << n;
    }
  }
  std::error_code ec_;
  const fs::path dir_ = fs::temp_directory_path() / ("kafx_stream_test_" + std::to_string(getpid()));
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
  const std::string xml = source_dir() + "/examples/speaker.xml";
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

// The karaoke chain has no latency: a click in the last frame of the voice is
// in the last frame of the output.
TEST_F(KafxStreamTest, KaraokeKeepsTheLastFrame) {
  Wav in{48000, 1, SF_FORMAT_PCM_16, std::vector<int32_t>(4801, 0)};
  in.samples.back() = 16000 * 65536;
  const Wav out = run("ktv", in, "");
  ASSERT_EQ(out.samples.size(), 2 * in.samples.size());
  EXPECT_EQ(out.samples[out.samples.size() - 2], in.samples.back());
}

// libsndfile converts: 8-bit, float and double files run (as 16-bit and
// full-scale 32-bit hosts) and come back in their own format; with every
// block off the speaker product returns them exactly (8-bit) or to 24 bits.
TEST_F(KafxStreamTest, EveryPcmWidthIsConverted) {
  for (int subtype : {SF_FORMAT_PCM_U8, SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
    SCOPED_TRACE(subtype);
    Wav in = noise(48000, 2, 3000, subtype);
    write_wav(path("in.wav"), in);
    in = read_wav(path("in.wav"));  // the values the file really holds
    const Wav out = run("speaker", in, "");
    ASSERT_EQ(out.subtype, subtype);
    ASSERT_EQ(out.samples.size(), in.samples.size());
    for (size_t i = 0; i < in.samples.size(); ++i)
      ASSERT_NEAR(out.samples[i], in.samples[i], subtype == SF_FORMAT_PCM_U8 ? 0 : 256) << i;
  }
}

// Rates a product bypasses, silences or runs on another rate's tables are
// announced; --strict makes each an error that writes nothing.
TEST_F(KafxStreamTest, RateWarningsAndStrict) {
  const std::string xml = source_dir() + "/examples/speaker.xml";
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
  const std::string xml = source_dir() + "/examples/speaker.xml";
  const Wav three = noise(48000, 3, 6000);
  Wav two{48000, 2, SF_FORMAT_PCM_16, {}};
  for (size_t f = 0; f < 6000; ++f) two.samples.insert(two.samples.end(), {three.samples[3 * f], three.samples[3 * f + 1]});
  const Wav out2 = run("speaker", two, "--config " + xml);
  std::string text;
  const Wav out3 = run("speaker", three, "--config " + xml, &text);
  EXPECT_NE(text.find("3 channels"), std::string::npos) << text;
  ASSERT_EQ(out3.samples.size(), three.samples.size());
  for (size_t f = 0; f < 6000; ++f) {
    ASSERT_EQ(out3.samples[3 * f], out2.samples[2 * f]) << f;
    ASSERT_EQ(out3.samples[3 * f + 1], out2.samples[2 * f + 1]) << f;
    ASSERT_EQ(out3.samples[3 * f + 2], three.samples[3 * f + 2]) << f;
  }
}

// '-' reads standard input and writes standard output (a complete WAV file);
// the summary then goes to standard error.
TEST_F(KafxStreamTest, StandardInputAndOutput) {
  const std::string xml = source_dir() + "/examples/speaker.xml";
  const Wav in = noise(48000, 2, 9000);
  const Wav by_file = run("speaker", in, "--config " + xml);
  const std::string tool = kafx_test::program_command(kafx_test::tool_path().string());  // through the emulator on a cross build
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
  EXPECT_EQ(run_tool("speaker --strict --config " + source_dir() + "/examples/speaker.xml " + path("in.wav") + " " +
                         path("out.wav"),
                     &text),
            1);
  EXPECT_TRUE(read_wav(path("out.wav")).samples == before.samples);
  EXPECT_NE(run_tool("speaker " + path("in.wav") + " /proc/kafx-no-such-dir/out.wav", &text), 0);
  expect_only({"in.wav", "out.wav"});
}

}  // namespace
